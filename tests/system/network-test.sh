#!/bin/sh
# The programs on a network of their own: the board's port mapper on port 111, a real rpcbind, and a captured scan in
# which another program finds no malformed frame. $1 names the case, $2 is the folder of kvinv and kvboardd, $3 the
# folder of the samples. Exit status 77: skipped, with the reason.
set -eu
case=$1 kvinv=$2/kvinv/kvinv kvboardd=$2/kvboardd/kvboardd samples=$3

. "${0%/*}/lab.sh"

if [ -z "${KV_IN_NAMESPACE:-}" ]; then
    command -v unshare >/dev/null || skip "unshare is not installed"
    # rpcbind gives up root for a user of its own, which a mapping of root alone does not have.
    options='--net --mount'
    if [ "$(id -u)" -ne 0 ]; then
        [ "$case" != rpcbind ] || skip "rpcbind needs root"
        options="$options --map-root-user"
    fi
    unshare $options true 2>/dev/null || skip "network namespaces cannot be made here"
    export KV_IN_NAMESPACE=1
    exec unshare $options "$0" "$@"
fi

ip link set lo up
mount -t tmpfs none /run
work=$(mktemp -d)
started=
finish() {
    status=$?
    for process in $started; do kill "$process" 2>/dev/null || true; done
    wait 2>/dev/null || true
    [ "$status" -eq 0 ] || [ "$status" -eq 77 ] || cat "$work"/*.log 2>/dev/null || true
    rm -rf "$work"
    exit "$status"
}
trap finish EXIT

startBoards() {
    mkfifo "$work/ready"
    "$kvboardd" --boards "$samples/rack-boards.json" --state "$work/state" "$@" >"$work/ready" 2>"$work/kvboardd.log" &
    boardsProcess=$!
    started="$started $boardsProcess"
    read -r line <"$work/ready" || fail "the service did not start"
    [ "$line" = "ready: 8 boards" ] || fail "the service said: $line"
}
boards=127.0.0.11,127.0.0.12,127.0.0.13,127.0.0.14,127.0.0.15,127.0.0.16,127.0.0.17,127.0.0.18

case "$case" in
    portmapper)
        startBoards --portmap 111
        found=$("$kvinv" discover | grep -c 'IO-[1-8]') || true
        [ "$found" = 8 ] || fail "the hosts' own networks show $found boards"
        [ "$("$kvinv" get 'HCN[4713]/SERIAL_NUMBER')" = 4713 ] || fail "a board found without a selection was not read"
        command -v rpcinfo >/dev/null || skip "rpcinfo is not installed"
        rpcinfo -p 127.0.0.14 | grep -q '^ *8 *1 *tcp ' || fail "rpcinfo does not list the inventory manager"
        rpcinfo -t 127.0.0.14 8 1 || fail "the null procedure of the inventory manager by TCP"
        rpcinfo -t 127.0.0.14 536890198 1 || fail "the null procedure of device access by TCP"
        rpcinfo -u 127.0.0.14 536890198 1 || fail "the null procedure of device access by UDP"
        ;;
    rpcbind)
        command -v rpcbind >/dev/null || skip "rpcbind is not installed"
        rpcbind -f >"$work/rpcbind.log" 2>&1 &
        started="$started $!"
        until_ rpcinfo -p 127.0.0.1
        startBoards --rpcbind
        "$kvinv" scan --ip "$boards" -o "$work/rack.inv"
        cmp "$work/rack.inv" "$samples/rack.inv" || fail "the scanned tree is not the sample's"
        # The services listen on the boards' addresses alone, so the one that rpcbind is asked at is not called.
        for service in 8:tcp 536890198:tcp 536890198:udp; do
            program=${service%:*} transport=${service#*:}
            port=$(rpcinfo -p 127.0.0.1 | awk -v p="$program" -v t="$transport" '$1 == p && $3 == t { print $4; exit }')
            [ -n "$port" ] || fail "rpcbind does not know $service"
            for last in 11 18; do
                rpcinfo -a "127.0.0.$last.$((port / 256)).$((port % 256))" -T "$transport" "$program" 1 ||
                    fail "the null procedure of $service at 127.0.0.$last"
            done
        done
        # It has given up root long since, and takes its registrations back all the same.
        user=$(awk '$1 == "Uid:" { print $2 }' "/proc/$boardsProcess/status")
        [ "$user" != 0 ] || fail "the service runs as root"
        kill "$boardsProcess"
        wait "$boardsProcess" || fail "the service did not end cleanly"
        rpcinfo -p 127.0.0.1 >"$work/registered" || fail "rpcbind does not answer any more"
        awk '$1 == 8 || $1 == 536890198 { found = 1 } END { exit found }' "$work/registered" ||
            fail "registrations are left: $(cat "$work/registered")"
        ;;
    capture)
        command -v tshark >/dev/null || skip "tshark is not installed"
        startBoards --portmap 111
        tshark -i lo -w "$work/scan.pcap" -q >"$work/tshark.log" 2>&1 &
        tshark=$!
        started="$started $tshark"
        until_ test -s "$work/scan.pcap"
        "$kvinv" scan --ip "$boards" -o "$work/rack.inv"
        # The programs of the boards are none that it knows; their calls are to be taken apart all the same.
        select() { tshark -o rpc.dissect_unknown_programs:TRUE -r "$work/scan.pcap" -Y "$1" >"$work/frames" 2>"$work/tshark.err"; }
        # While the capture still runs, its file may end within a frame.
        allScanned() { select 'rpc.program == 8 && rpc.msgtyp == 1' || true; [ "$(wc -l <"$work/frames")" = 8 ]; }
        until_ allScanned
        kill "$tshark"
        wait "$tshark" || true
        select _ws.malformed || fail "the capture cannot be read: $(cat "$work/tshark.err")"
        [ ! -s "$work/frames" ] || fail "malformed frames: $(cat "$work/frames")"
        select rpc || fail "the capture cannot be read: $(cat "$work/tshark.err")"
        [ -s "$work/frames" ] || fail "no RPC frame was captured"
        echo "$(wc -l <"$work/frames") RPC frames, none malformed"
        ;;
    *) fail "no such case: $case" ;;
esac
echo "passed: $case"
