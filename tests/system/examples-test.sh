#!/bin/sh
# Builds nothing: runs the example programs of the build tree $1 on the samples in $2.
set -eu
build=$1 samples=$2
work=$(mktemp -d)
service=
finish() {
    status=$?
    [ -z "$service" ] || kill "$service" 2>/dev/null || true
    wait 2>/dev/null || true
    [ "$status" -eq 0 ] || cat "$work"/*.log 2>/dev/null || true
    rm -rf "$work"
    exit "$status"
}
trap finish EXIT
fail() { echo "failed: $*"; exit 1; }

"$build/examples/print_tree" "$samples/single-board.inv" >"$work/tree.txt"
[ "$(head -n 1 "$work/tree.txt")" = '<ITEM ID="HCN[4711]">' ] || fail "print_tree does not begin with the root"
[ "$(tail -n 1 "$work/tree.txt")" = '</ITEM>' ] || fail "print_tree does not end with the root"
! "$build/examples/print_tree" "$samples/broken/no-section.bin" 2>"$work/none.txt" || fail "a file without a section"
grep -q 'no inventory section in' "$work/none.txt" || fail "a file without a section is not named"

# The same eight boards, at addresses of this test's own.
sed 's/"127\.0\.0\./"127.0.81./' "$samples/rack-boards.json" >"$work/boards.json"
sed -i "s|\"tree\": \"|&$samples/|" "$work/boards.json"
mkfifo "$work/ready"
"$build/tools/kvboardd/kvboardd" --boards "$work/boards.json" --portmap 10181 --state "$work/state" --update-seconds 1 \
    >"$work/ready" 2>"$work/kvboardd.log" &
service=$!
read -r line <"$work/ready" || fail "the service did not start"
export KVDAL_PORTMAP_PORT=10181
"$build/examples/list_boards" 127.0.81.11,127.0.81.18 >"$work/boards.txt"
printf '4711  firmware 3.1.2b4p7\n4718  firmware 3.1.2b4p7\n' | cmp - "$work/boards.txt" || fail "list_boards"
"$build/examples/update_firmware" 127.0.81.11 4711 "$samples/firmware-image.bin" >"$work/updated.txt" ||
    fail "update_firmware"
printf '4711  firmware 4.0.1b2\n' | cmp - "$work/updated.txt" || fail "update_firmware does not show the new version"
# What the section describes does not stand in front of it: the board refuses, and says why.
! "$build/examples/update_firmware" 127.0.81.18 4718 "$samples/single-board.inv" >"$work/updated.txt" 2>"$work/why.txt" ||
    fail "a wrong image is taken"
grep -q 'checksum of its content' "$work/why.txt" || fail "why a wrong image is refused"
"$build/examples/list_boards" 127.0.81.11,127.0.81.18 >"$work/boards.txt"
printf '4711  firmware 4.0.1b2\n4718  firmware 3.1.2b4p7\n' | cmp - "$work/boards.txt" || fail "versions after updates"
[ -z "$(find "$work/state" -path '*/files/*' -type f)" ] || fail "images are left on the boards"
echo "passed"
