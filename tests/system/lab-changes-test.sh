#!/bin/sh
# Files, locks and updates between hosts, and what is left of them when a client, a service or a link fails, or when a
# disk is full. $1 names the case, $2 is the folder of kvinv and kvboardd, $3 the folder of the samples, $4 a folder on a
# disk for what is large, $5 the size of the largest file in MiB. Exit status 77: skipped, with the reason.
set -eu
. "${0%/*}/lab.sh"
enterLab "$0" "$@"
case=$1 kvinv=$2/kvinv/kvinv kvboardd=$2/kvboardd/kvboardd samples=$3 disk=$4 mebibytes=$5
rm -rf "$disk"
mkdir -p "$disk"
state=$disk/state
image=$samples/firmware-image.bin
old=3.1.2b4p7 new=4.0.1b2

# The files that were put on the board in $state, whole or not. (Values that were just being stored when the service was
# killed may stand beside their place until they are stored again.)
onDisk() { find "$state" -path '*/files/*' -type f; }
nothingOnDisk() { [ -z "$(onDisk)" ]; }
partOnDisk() { [ -n "$(find "$state" -path '*/files/*' -type f -size +0)" ]; }

# Wants no file on the disk of host 1, and none in its list.
nothingLeft() {
    nothingOnDisk || fail "left on the disk: $(onDisk)"
    expect 0 "$kvinv" ls --json --ip 10.77.1.11 'HCN[4711]'
    ! grep -q '"size"' "$work/out" || fail "left in the list: $(cat "$work/out")"
}

# Wants that host 1 has the version $1, and that no lock is in the way of a change.
hasVersion() {
    expect 0 "$kvinv" get --ip 10.77.1.11 'HCN[4711]/FIRMWARE/VERSION'
    [ "$(cat "$work/out")" = "$1" ] || fail "the version is $(cat "$work/out") instead of $1"
}
change() { "$kvinv" set --ip 10.77.1.11 'HCN[4711]/LOCATION' "$1"; }

# Puts the file $1 on host 1 in the background, through a link so slow ($2) that there is time to do something meanwhile,
# and returns when the board has a part of it.
beginSlowPut() {
    tc qdisc add dev p1 root tbf rate "$2" burst 32kb latency 1s 2>/dev/null || skip "no slow link here"
    "$kvinv" put --timeout 10 --ip 10.77.1.11 'HCN[4711]' "$1" >"$work/put.out" 2>"$work/put.err" &
    put=$!
    until_ partOnDisk
    kill -0 "$put" || fail "the file is there already"
}

# Updates host 1 in the background and returns when its board is at work.
beginUpdate() {
    "$kvinv" update --timeout 5 --ip 10.77.1.11 'HCN[4711]/FIRMWARE' "$image" "$@" >"$work/update.out" 2>"$work/update.err" &
    update=$!
    until_ grep -q 'the board is programming' "$work/update.err"
}

files() {
    buildLab 1
    startBoard 1 --state "$state"
    : >"$disk/none"
    printf x >"$disk/one"
    # A chunk is 1 MiB.
    head -c 1048576 /dev/urandom >"$disk/chunk"
    head -c 1048577 /dev/urandom >"$disk/more"
    head -c $((mebibytes * 1048576)) /dev/urandom >"$disk/large"
    for file in none one chunk more large; do
        expect 0 "$kvinv" put --ip 10.77.1.11 'HCN[4711]' "$disk/$file"
        remote=$(cat "$work/out")
        stored=$(onDisk)
        cmp "$disk/$file" "$stored" || fail "$file is another on the board"
        expect 0 "$kvinv" ls --json --ip 10.77.1.11 'HCN[4711]'
        said "\"size\": *$(stat -c %s "$disk/$file")[^0-9]"
        expect 0 "$kvinv" rm --ip 10.77.1.11 'HCN[4711]' "$remote"
        nothingLeft
    done
    # A file outlasts the service.
    expect 0 "$kvinv" put --ip 10.77.1.11 'HCN[4711]' "$disk/more"
    remote=$(cat "$work/out")
    stopBoards 1
    startBoard 1 --state "$state"
    cmp "$disk/more" "$(onDisk)" || fail "another file after a restart"
    expect 0 "$kvinv" rm --ip 10.77.1.11 'HCN[4711]' "$remote"
    nothingLeft
    stopBoards 1
}

full() {
    buildLab 1
    state=/run/small
    mkdir "$state"
    mount -t tmpfs -o size=2m none "$state"
    startBoard 1 --state "$state" --max-chunk 65536
    head -c 8388608 /dev/urandom >"$disk/large"
    head -c 1500000 /dev/urandom >"$disk/small"
    expect 1 "$kvinv" put --ip 10.77.1.11 'HCN[4711]' "$disk/large"
    said 'no space for a file of 8388608 bytes'
    nothingLeft
    # The disk fills up while a file comes.
    beginSlowPut "$disk/small" 4mbit
    head -c 4194304 /dev/zero >"$state/ballast" 2>/dev/null || true
    wait "$put" && fail "the file is there, says the client" || [ $? = 1 ] || fail "the client ended with $?"
    grep -q 'No space left on device' "$work/put.err" || fail "the client was told: $(cat "$work/put.err")"
    tc qdisc del dev p1 root
    rm "$state/ballast"
    nothingLeft
    expect 0 "$kvinv" put --ip 10.77.1.11 'HCN[4711]' "$disk/small"
    remote=$(cat "$work/out")
    # Another has no room beside it, which stays whole.
    expect 1 "$kvinv" put --ip 10.77.1.11 'HCN[4711]' "$disk/small"
    cmp "$disk/small" "$(onDisk)" || fail "another file than the one that fitted"
    # A value that cannot be stored is not taken.
    head -c 4194304 /dev/zero >"$state/ballast" 2>/dev/null || true
    expect 1 change 'never stored'
    said 'No space left on device'
    expect 0 "$kvinv" diff "$samples/single-board.inv" ip:10.77.1.11
    rm "$state/ballast"
    expect 0 "$kvinv" rm --ip 10.77.1.11 'HCN[4711]' "$remote"
    nothingLeft
    expect 0 change 'room again'
    stopBoards 1
}

update() {
    buildLab 1 2
    startBoard 1 --state "$state" --update-seconds 4
    hasVersion "$old"
    beginUpdate
    # While the board is at work others are kept out, and whoever reads sees the former version.
    expect 1 on 2 "$kvinv" set --ip 10.77.1.11 'HCN[4711]/LOCATION' 'in between'
    hasVersion "$old"
    # The link fails for a moment; whoever follows the update goes on when it is back.
    on 1 ip link set eth0 down
    until_ sh -c 'ip link show p1 | grep -q "state \(DOWN\|LOWERLAYERDOWN\)"'
    on 1 ip link set eth0 up
    wait "$update" || { cat "$work/update.out" "$work/update.err"; fail "the update ended with $?"; }
    hasVersion "$new"
    nothingLeft
    expect 0 change 'no lock is left'
    # What is not newer is refused before anything is changed.
    expect 1 "$kvinv" update --ip 10.77.1.11 'HCN[4711]/FIRMWARE' "$image"
    stopBoards 1
    startBoard 1 --state "$state"
    hasVersion "$new"
    stopBoards 1
}

client_killed() {
    buildLab 1
    startBoard 1 --state "$state" --lease-seconds 2 --update-seconds 3
    # ... while it holds a lock
    mkfifo "$work/held"
    "$kvinv" lock --ip 10.77.1.11 'HCN[4711]' -- sh -c 'echo $$ >"$1"; exec sleep 1000' sh "$work/held" 2>/dev/null &
    holder=$!
    read -r child <"$work/held"
    kill -9 "$holder" "$child"
    until_ change 'after a holder'
    # ... while it transfers
    head -c 67108864 /dev/zero >"$disk/large"
    beginSlowPut "$disk/large" 40mbit
    kill -9 "$put"
    until_ nothingOnDisk
    tc qdisc del dev p1 root
    until_ change 'after a transfer'
    nothingLeft
    # ... while the board updates, which it goes on with
    beginUpdate
    kill -9 "$update"
    hasVersion "$old"
    until_ change 'after an update'
    isNew() { [ "$("$kvinv" get --ip 10.77.1.11 'HCN[4711]/FIRMWARE/VERSION')" = "$new" ]; }
    until_ isNew
    # What it could not delete any more, others can; the finished update is in nobody's way.
    expect 0 "$kvinv" rm --ip 10.77.1.11 'HCN[4711]' "transfer/$(basename "$(onDisk)")"
    nothingLeft
    expect 0 "$kvinv" update --force --ip 10.77.1.11 'HCN[4711]/FIRMWARE' "$image"
    nothingLeft
    stopBoards 1
}

service_killed() {
    buildLab 1
    startBoard 1 --state "$state" --update-seconds 1
    expect 0 change 'before it all'
    # ... while a lock is held: it is gone, and its holder is told so
    mkfifo "$work/held" "$work/end"
    "$kvinv" lock --ip 10.77.1.11 'HCN[4711]' -- sh -c 'echo held >"$1" && read -r line <"$2"' sh \
        "$work/held" "$work/end" >/dev/null 2>"$work/holder.err" &
    holder=$!
    read -r line <"$work/held"
    killBoard 1
    startBoard 1 --state "$state" --update-seconds 1
    expect 0 "$kvinv" get --ip 10.77.1.11 'HCN[4711]/LOCATION'
    [ "$(cat "$work/out")" = 'before it all' ] || fail "after a restart: $(cat "$work/out")"
    expect 0 change 'as if nobody held it'
    echo >"$work/end"
    wait "$holder" && fail "the holder does not know that its lock was gone"
    # ... while a file comes: nothing of it is there afterwards
    head -c 67108864 /dev/zero >"$disk/large"
    beginSlowPut "$disk/large" 40mbit
    killBoard 1
    wait "$put" && fail "the file is there, says the client" || [ $? = 1 ] || fail "the client ended with $?"
    tc qdisc del dev p1 root
    startBoard 1 --state "$state" --update-seconds 1
    nothingLeft
    stopBoards 1
    # ... while it updates, at several moments: the version is the old or the new one, and the client knows
    for moment in 0 0.5 0.9 1 1.1; do
        state=$disk/state-$moment
        startBoard 1 --state "$state" --update-seconds 1
        beginUpdate
        sleep "$moment"
        killBoard 1
        startBoard 1 --state "$state" --update-seconds 1
        got=0
        wait "$update" || got=$?
        version=$("$kvinv" get --ip 10.77.1.11 'HCN[4711]/FIRMWARE/VERSION')
        echo "killed after $moment s: version $version, client $got"
        case "$version:$got" in
            "$old:1" | "$new:0" | "$new:1") ;;
            *) fail "version $version, and the client ended with $got" ;;
        esac
        # The lock is gone with the service, and so the reasons are for whoever asks under the next one.
        [ "$version" = "$new" ] || { grep -q 'the update has failed' "$work/update.err" &&
            grep -q '"state": "failed".*"errors": "00000001' "$state/4711/update.json"; } ||
            fail "said: $(cat "$work/update.err" "$state/4711/update.json")"
        for file in $(onDisk); do
            cmp "$image" "$file" || fail "a mixed file: $file"
            expect 0 "$kvinv" rm --ip 10.77.1.11 'HCN[4711]' "transfer/$(basename "$file")"
        done
        nothingLeft
        expect 0 "$kvinv" update --force --ip 10.77.1.11 'HCN[4711]/FIRMWARE' "$image"
        hasVersion "$new"
        nothingLeft
        stopBoards 1
    done
}

case $case in
    files | full | update | client-killed | service-killed) "$(echo "$case" | tr - _)" ;;
    *) fail "no such case: $case" ;;
esac
echo "passed: $case"
