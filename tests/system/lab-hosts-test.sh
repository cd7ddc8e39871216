#!/bin/sh
# The programs between hosts: what is found, read and written there, by one and by several, and what a link does that
# fails. $1 names the case, $2 is the folder of kvinv and kvboardd, $3 the folder of the samples. Exit status 77:
# skipped, with the reason.
set -eu
. "${0%/*}/lab.sh"
enterLab "$0" "$@"
case=$1 kvinv=$2/kvinv/kvinv kvboardd=$2/kvboardd/kvboardd samples=$3

# Wants exactly the boards of these hosts, in this order, in what a discovery has printed to $1.
found() {
    actual=$(awk '$1 ~ /^471/ { printf "%s@%s ", $1, $NF }' "$1") wanted=
    shift
    for n in "$@"; do wanted="${wanted}471$n@$(addressOf "$n") "; done
    [ "$actual" = "$wanted" ] || fail "found: $actual, instead of: $wanted"
}

discovery() {
    buildLab 1 2 3 4 5
    # One of them answers the port mapper's calls itself, broadcast ones, too.
    startBoard 4 --portmap 111
    for n in 1 2 3 5; do startBoard "$n"; done
    "$kvinv" discover >"$work/all" &
    all=$!
    "$kvinv" discover --subnet 255.255.255.240 >"$work/narrow" &
    narrow=$!
    "$kvinv" discover --system 'Rack B' >"$work/system" &
    system=$!
    expect 0 "$kvinv" discover --ip 10.77.1.34,10.77.2.15
    found "$work/out" 4 5
    expect 3 "$kvinv" discover --ip 10.77.2.15,10.77.1.99
    found "$work/out" 5
    said '10\.77\.1\.99'
    expect 1 "$kvinv" discover --ip 10.77.1.99
    wait "$all" && found "$work/all" 1 2 3 4
    wait "$narrow" && found "$work/narrow" 1 2
    wait "$system" && found "$work/system" 3 4
    stopBoards 1 2 3 4 5
}

values() {
    buildLab 1 2 5
    for n in 1 2 5; do startBoard "$n"; done
    # Default selection: those of this network alone. By list: also the one behind the router.
    expect 0 "$kvinv" scan -o "$work/network.inv"
    expect 0 "$kvinv" diff "$work/network.inv" ip:10.77.1.11,10.77.1.12
    expect 0 "$kvinv" scan --ip 10.77.1.11,10.77.1.12,10.77.2.15 -o "$work/all.inv"
    expect 1 "$kvinv" diff "$work/network.inv" "$work/all.inv"
    ! grep -v '^+ ROOT/HCN\[4715\]' "$work/out" || fail "the scans differ in more than the board behind the router"
    expect 0 "$kvinv" diff "$samples/boards/io-2.inv" ip:10.77.1.12
    expect 0 "$kvinv" diff "$samples/boards/io-5.inv" ip:10.77.2.15
    expect 0 "$kvinv" set --ip 10.77.2.15 'HCN[4715]/LOCATION' 'behind the router'
    expect 1 "$kvinv" diff "$work/all.inv" ip:10.77.1.11,10.77.1.12,10.77.2.15
    [ "$(cat "$work/out")" = '~ ROOT/HCN[4715]/LOCATION: "Row 3 <bay 4> & shelf" -> "behind the router"' ] ||
        fail "changed: $(cat "$work/out")"
    expect 0 on 2 "$kvinv" get --ip 10.77.2.15 'HCN[4715]/LOCATION'
    [ "$(cat "$work/out")" = 'behind the router' ] || fail "read from another host: $(cat "$work/out")"
    stopBoards 1 2 5
}

locks() {
    buildLab 1 2 3
    startBoard 1
    # Host 2 holds the lock; host 3 and this one are told who does.
    mkfifo "$work/held" "$work/end"
    on 2 "$kvinv" lock --ip 10.77.1.11 'HCN[4711]' -- \
        sh -c 'echo held >"$1" && read -r line <"$2"' sh "$work/held" "$work/end" 2>"$work/holder.log" &
    holder=$!
    read -r line <"$work/held"
    expect 0 "$kvinv" locks --ip 10.77.1.11
    said 'kvinv.* 10\.77\.1\.12'
    for n in 1 3; do
        expect 1 on "$n" "$kvinv" set --ip 10.77.1.11 'HCN[4711]/LOCATION' "taken by $n"
        said 'kvinv.*10\.77\.1\.12'
    done
    expect 1 "$kvinv" lock --ip 10.77.1.11 'HCN[4711]' -- touch "$work/ran"
    [ ! -e "$work/ran" ] || fail "the command ran without the lock"
    echo >"$work/end"
    wait "$holder" || fail "the holder ended with $?"
    expect 0 "$kvinv" set --ip 10.77.1.11 'HCN[4711]/LOCATION' 'free again'
    # Two that fight for it: what one does under the lock is never mixed with what the other does.
    for n in 2 3; do
        (
            rounds=0
            while [ "$rounds" -lt 5 ]; do
                ! on "$n" "$kvinv" lock --ip 10.77.1.11 'HCN[4711]' -- \
                    sh -c 'echo "$1 in" >>"$2"; "$3" locks --ip 10.77.1.11; echo "$1 out" >>"$2"' \
                    sh "$n" "$work/turns" "$kvinv" >/dev/null 2>&1 || rounds=$((rounds + 1))
            done
        ) &
        eval "fighter$n=$!"
    done
    wait "$fighter2" && wait "$fighter3"
    [ "$(wc -l <"$work/turns")" = 20 ] || fail "$(wc -l <"$work/turns") entries instead of 20"
    awk 'NR % 2 { who = $1; if ($2 != "in") exit 1; next } $1 != who || $2 != "out" { exit 1 }' "$work/turns" ||
        fail "two held the lock at once: $(tr '\n' ' ' <"$work/turns")"
    stopBoards 1
}

link() {
    buildLab 1 2 3
    for n in 1 2 3; do startBoard "$n"; done
    boards=10.77.1.11,10.77.1.12,10.77.1.33
    # Host 2 sends so slowly that its link goes down in the middle of its answer, which would be in time all the same.
    on 2 tc qdisc add dev eth0 root tbf rate 100kbit burst 2kb latency 10s 2>/dev/null || skip "no slow link here"
    sent() { ip -s link show p2 | awk 'received { print $1; exit } /RX:/ { received = 1 }'; }
    sentMore() { [ "$(sent)" -gt "$1" ]; }
    before=$(sent)
    "$kvinv" scan --timeout 4 --ip "$boards" -o "$work/rest.inv" >"$work/out" 2>"$work/err" &
    scan=$!
    until_ sentMore $((before + 10000))
    kill -0 "$scan" || fail "the scan is over"
    on 2 ip link set eth0 down
    wait "$scan" && fail "the scan was complete" || [ $? = 3 ] || fail "the scan ended with $?"
    said '4712'
    expect 0 "$kvinv" diff "$work/rest.inv" ip:10.77.1.11,10.77.1.33
    # Nothing is restarted when it comes back.
    on 2 tc qdisc del dev eth0 root
    on 2 ip link set eth0 up
    until_ "$kvinv" scan --timeout 4 --ip "$boards" -o "$work/all.inv"
    expect 0 "$kvinv" diff "$samples/boards/io-2.inv" ip:10.77.1.12
    expect 0 "$kvinv" set --ip 10.77.1.12 'HCN[4712]/LOCATION' 'back again'
    stopBoards 1 2 3
}

case $case in
    discovery | values | locks | link) "$case" ;;
    *) fail "no such case: $case" ;;
esac
echo "passed: $case"
