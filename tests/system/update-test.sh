#!/bin/sh
# A firmware update from the command line, as a person and as a script see it. $1 is the folder of kvinv and kvboardd, $2
# the folder of the samples.
set -eu
. "${0%/*}/lab.sh"
kvinv=$1/kvinv/kvinv kvboardd=$1/kvboardd/kvboardd samples=$2
work=$(mktemp -d)
service=
finish() {
    status=$?
    trap - EXIT
    [ -z "$service" ] || kill "$service" 2>/dev/null || true
    wait
    [ "$status" -eq 0 ] || cat "$work/kvboardd.log" || true
    rm -rf "$work"
    exit "$status"
}
trap finish EXIT
trap 'exit 143' TERM INT HUP

export KVDAL_PORTMAP_PORT=10183
sed -e 's/"127\.0\.0\./"127.0.83./' -e "s|\"tree\": \"|&$samples/|" "$samples/rack-boards.json" >"$work/boards.json"
mkfifo "$work/ready"
"$kvboardd" --boards "$work/boards.json" --portmap $KVDAL_PORTMAP_PORT --state "$work/state" --update-seconds 1 \
    >"$work/ready" 2>"$work/kvboardd.log" &
service=$!
read -r line <"$work/ready" || fail "the service did not start"
image=$samples/firmware-image.bin

# hasVersion BOARD VERSION; no file and no lock is left on it either.
hasVersion() {
    expect 0 "$kvinv" get --ip "127.0.83.1$1" "HCN[471$1]/FIRMWARE/VERSION"
    [ "$(cat "$work/out")" = "$2" ] || fail "board $1 has the version $(cat "$work/out") instead of $2"
    expect 0 "$kvinv" ls --json --ip "127.0.83.1$1" "HCN[471$1]"
    ! grep -q '"size"' "$work/out" || fail "left on board $1: $(cat "$work/out")"
    [ -z "$(find "$work/state/471$1" -type f ! -name inventory.inv ! -name update.json)" ] ||
        fail "left on the disk: $(find "$work/state")"
    expect 0 "$kvinv" locks --json --ip "127.0.83.1$1"
    ! grep -q '"level"' "$work/out" || fail "a lock is left on board $1: $(cat "$work/out")"
}

# What would happen is shown, and nothing does.
hasVersion 1 3.1.2b4p7
expect 0 "$kvinv" update --dry-run --ip 127.0.83.11 'HCN[4711]/FIRMWARE' "$image"
said '3\.1\.2b4p7'
said '4\.0\.1b2'
! grep -q 'access level' "$work/kvboardd.log" || fail "a lock was taken for a dry run"
hasVersion 1 3.1.2b4p7

# On a terminal: one bar that only grows, to the end.
script -qec "'$kvinv' update --ip 127.0.83.11 'HCN[4711]/FIRMWARE' '$image'" /dev/null >"$work/screen" </dev/null ||
    { cat "$work/screen"; fail "the update ended with $?"; }
grep -ao '[0-9][0-9]* *%' "$work/screen" | tr -d ' %' >"$work/percent"
sort -nc "$work/percent" || fail "the bar has shrunk: $(tr '\n' ' ' <"$work/percent")"
[ "$(tail -n 1 "$work/percent")" = 100 ] || fail "the bar ended at $(tail -n 1 "$work/percent") %"
[ "$(sort -u "$work/percent" | wc -l)" -ge 5 ] || fail "the bar did not grow: $(tr '\n' ' ' <"$work/percent")"
hasVersion 1 4.0.1b2

# Elsewhere: lines, without control characters.
expect 0 "$kvinv" update --ip 127.0.83.12 'HCN[4712]/FIRMWARE' "$image"
for line in 'transferring .*firmware-image\.bin (90519 bytes)' 'the board is programming' 'the board has verified the image'; do
    said "^kvinv: $line\$"
done
[ "$(wc -l <"$work/err")" = 3 ] || fail "other than one line for each change: $(cat "$work/err")"
! LC_ALL=C grep -q '[^ -~]' "$work/out" "$work/err" || { cat -v "$work/out" "$work/err"; fail "control characters"; }
hasVersion 2 4.0.1b2

# What is not newer is refused here, what is for other hardware by the board; nothing of either is left.
expect 1 "$kvinv" update --ip 127.0.83.11 'HCN[4711]/FIRMWARE' "$image"
said 'not newer'
hasVersion 1 4.0.1b2
expect 1 "$kvinv" update --ip 127.0.83.17 'HCN[4717]/FIRMWARE' "$image"
hasVersion 7 3.1.2b4p7
expect 0 "$kvinv" update --force --ip 127.0.83.11 'HCN[4711]/FIRMWARE' "$image"
hasVersion 1 4.0.1b2
echo "passed"
