# A lab on this machine, to be sourced: hosts with addresses of their own in network namespaces, joined by a bridge, on
# each an rpcbind and a kvboardd registered with it. Nothing of it reaches a network of the machine's, and it is gone
# when the shell ends, however it ends: everything lives in namespaces of that shell's own.
#
#   this shell     10.77.1.1            the client's side, at the bridge
#   host 1, 2      10.77.1.11, .12      HCN[4711], HCN[4712], system "Rack A"
#   host 3, 4      10.77.1.33, .34      HCN[4713], HCN[4714], system "Rack B"
#   host 5         10.77.2.15           HCN[4715], system "Rack B", behind a router

skip() { echo "skipped: $*"; exit 77; }
fail() { echo "failed: $*"; exit 1; }

# Waits until the command succeeds, a minute at most.
until_() {
    tries=0
    until "$@" >/dev/null 2>&1; do
        tries=$((tries + 1))
        [ "$tries" -lt 1200 ] || fail "never succeeded: $*"
        sleep 0.05
    done
}

# Runs the script $1 with its arguments in namespaces of its own, or skips; to be called first. Its processes die with it.
enterLab() {
    if [ -n "${KV_IN_LAB:-}" ]; then
        unset KV_IN_LAB
        trap finishLab EXIT
        trap 'exit 143' TERM INT HUP
        # Programs under sanitizers run slower; whatever they find ends them with this status.
        export ASAN_OPTIONS="exitcode=99:${ASAN_OPTIONS:-}"
        mount -t tmpfs none /run
        work=/run/lab
        mkdir "$work"
        ip link set lo up
        return
    fi
    [ "$(id -u)" -eq 0 ] || skip "namespaces with a real rpcbind need root"
    for tool in unshare ip rpcbind rpcinfo; do
        command -v "$tool" >/dev/null || skip "$tool is not installed"
    done
    own='unshare --net --mount --pid --fork --kill-child --mount-proc'
    $own true 2>/dev/null || skip "namespaces cannot be made here"
    $own ip link add kvprobe type bridge 2>/dev/null || skip "a bridge cannot be made here"
    export KV_IN_LAB=1
    exec $own "$@"
}

finishLab() {
    status=$?
    trap - EXIT
    if [ "$status" -ne 0 ] && [ "$status" -ne 77 ]; then
        for log in "$work"/*.log; do
            [ ! -s "$log" ] || { echo "== ${log##*/}"; tail -n 40 "$log"; }
        done
    fi
    exit "$status"
}

addressOf() {
    case "$1" in
        1 | 2) echo "10.77.1.1$1" ;;
        3 | 4) echo "10.77.1.3$1" ;;
        5) echo 10.77.2.15 ;;
    esac
}

# Runs a command on a host.
on() {
    host=h$1
    shift
    ip netns exec "$host" "$@"
}

# Makes the hosts that are named, in ascending order, with what is between them; rpcbind runs on each.
buildLab() {
    ip link add lab type bridge
    ip addr add 10.77.1.1/24 brd + dev lab
    ip link set lab up
    names=
    for n in "$@"; do
        ip netns add "h$n"
        on "$n" ip link set lo up
        if [ "$n" = 5 ]; then
            ip netns add router
            ip link add p5 type veth peer name eth0 netns router
            ip -n router addr add 10.77.1.254/24 dev eth0
            ip link add eth1 netns router type veth peer name eth0 netns h5
            ip -n router addr add 10.77.2.1/24 dev eth1
            ip -n router link set eth0 up
            ip -n router link set eth1 up
            ip netns exec router sh -c 'echo 1 >/proc/sys/net/ipv4/ip_forward' || skip "a router cannot be made here"
        else
            ip link add "p$n" type veth peer name eth0 netns "h$n"
            names="$names h$n"
        fi
        ip link set "p$n" master lab up
        on "$n" ip addr add "$(addressOf "$n")/24" brd + dev eth0
        on "$n" ip link set eth0 up
        if [ "$n" = 5 ]; then
            on 5 ip route add default via 10.77.2.1
            for side in "" $names; do
                ip ${side:+-n "$side"} route add 10.77.2.0/24 via 10.77.1.254
            done
        fi
        # Each rpcbind keeps its files in a /run of its own.
        ip netns exec "h$n" sh -c 'mount -t tmpfs none /run && exec rpcbind -f' >"$work/rpcbind$n.log" 2>&1 &
        echo $! >"$work/rpcbind$n.pid"
    done
    for n in "$@"; do
        until_ on "$n" rpcinfo -p 127.0.0.1
    done
}

# Starts the service of host $1 with further options and waits until it answers; its process is $(boardOf 1). With
# --portmap it does without the host's rpcbind, which is ended.
startBoard() {
    n=$1
    shift
    tree=$samples/boards/io-$n.inv system="Rack B"
    [ "$n" -gt 2 ] || system="Rack A"
    [ "$n" -ne 1 ] || tree=$samples/single-board.json
    printf '{"format": "korvel-board", "version": 1, "boards": [{"serialNumber": %s, "boardType": 6001,
             "boardName": "IO-%s", "systemName": "%s", "address": "%s", "tree": "%s"}]}\n' \
        "471$n" "$n" "$system" "$(addressOf "$n")" "$tree" >"$work/board$n.json"
    mapper=--rpcbind
    case " $* " in
        *' --portmap '*)
            mapper=
            kill "$(cat "$work/rpcbind$n.pid")"
            wait "$(cat "$work/rpcbind$n.pid")" || true
            ;;
    esac
    rm -f "$work/ready$n"
    mkfifo "$work/ready$n"
    ip netns exec "h$n" "$kvboardd" --boards "$work/board$n.json" $mapper "$@" \
        >"$work/ready$n" 2>>"$work/board$n.log" &
    echo $! >"$work/board$n.pid"
    read -r line <"$work/ready$n" || fail "the service of host $n did not start"
    [ "$line" = "ready: 1 boards" ] || fail "the service of host $n said: $line"
}

boardOf() { cat "$work/board$1.pid"; }

# Ends the services of the hosts as an administrator would, and wants a clean end.
stopBoards() {
    for n in "$@"; do
        kill "$(boardOf "$n")"
        wait "$(boardOf "$n")" || fail "the service of host $n ended with $?"
        ! on "$n" rpcinfo -p 127.0.0.1 2>/dev/null | grep -qE '^ *(8|536890198) ' || fail "the rpcbind of host $n still knows it"
    done
}

# The service of a host dies without a chance to do anything about it.
killBoard() {
    kill -9 "$(boardOf "$1")"
    wait "$(boardOf "$1")" || true
}

# Wants the status $1 of a command; what it says is in $work/out and $work/err.
expect() {
    wanted=$1 got=0
    shift
    "$@" >"$work/out" 2>"$work/err" || got=$?
    [ "$got" = "$wanted" ] || { cat "$work/out" "$work/err"; fail "status $got instead of $wanted: $*"; }
}

# Wants a line in what the last command said.
said() { grep -q -- "$1" "$work/out" "$work/err" || { cat "$work/out" "$work/err"; fail "not said: $1"; }; }
