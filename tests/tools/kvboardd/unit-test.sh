#!/bin/sh
# The unit of kvboardd: nothing in it that systemd does not know, and an exposure of at most 2.0. $1 is the unit's file.
# Exit status 77: skipped, with the reason.
set -eu
skip() { echo "skipped: $*"; exit 77; }
fail() { echo "failed: $*"; exit 1; }
command -v systemd-analyze >/dev/null || skip "systemd-analyze is not installed"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# In place of the installed program and its manual page, which systemd looks for.
sed -e "s,^ExecStart=[^ ]*/kvboardd ,ExecStart=/bin/true ," -e '/^Documentation=/d' "$1" >"$work/kvboardd.service"
grep -q '^ExecStart=/bin/true ' "$work/kvboardd.service" || fail "the unit does not start kvboardd"

said=$(systemd-analyze verify --man=no "$work/kvboardd.service" 2>&1 | grep 'kvboardd.service' || true)
[ -z "$said" ] || fail "systemd says: $said"

# 20 stands for an exposure of 2.0.
verdict=$(systemd-analyze security --offline=yes --no-pager --threshold=20 "$work/kvboardd.service" 2>&1) ||
    { echo "$verdict"; fail "it is too exposed"; }
echo "$verdict" | grep 'Overall exposure' || fail "systemd-analyze gives no verdict"
for line in 'Restart=on-failure' 'StateDirectory=kvboardd' 'NoNewPrivileges=yes'; do
    grep -q "^$line\$" "$1" || fail "the unit has no $line"
done
