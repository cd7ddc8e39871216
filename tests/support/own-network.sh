#!/bin/sh
# Runs a test in a network namespace of its own, so that it meets neither the ports in use on this machine nor the hosts
# of its networks. Where that is not allowed the test runs as it is.
if [ "$(id -u)" -eq 0 ]; then
    options=--net
else
    options='--net --map-root-user'
fi
if command -v ip >/dev/null && unshare $options true 2>/dev/null; then
    exec unshare $options sh -c 'ip link set lo up && exec "$@"' sh "$@"
fi
exec "$@"
