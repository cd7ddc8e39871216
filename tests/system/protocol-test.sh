#!/bin/bash
# The worked examples of the remote protocol's page: each call is sent to a running board, which has to answer what the
# page says, byte by byte. $1 is the page, $2 the folder of kvboardd, $3 the folder of the samples.
set -eu
page=$1 kvboardd=$2/kvboardd/kvboardd samples=$3
port=10182
work=$(mktemp -d)
service=
finish() {
    status=$?
    [ -z "$service" ] || kill "$service" 2>/dev/null || true
    wait
    [ "$status" -eq 0 ] || cat "$work/kvboardd.log" || true
    rm -rf "$work"
    exit "$status"
}
trap finish EXIT
fail() { echo "failed: $*"; exit 1; }

# One line for each example: the bytes of the call, a slash, those of the answer.
awk '$0 == "    call" { part = "call"; text[part] = ""; next }
     $0 == "    answer" { part = "answer"; text[part] = ""; next }
     part != "" && /^    / {
         for (i = 1; i <= NF && $i ~ /^([0-9A-F][0-9A-F]|[.][.])$/; ++i) text[part] = text[part] " " $i
         next
     }
     part == "answer" { print text["call"] " /" text["answer"]; part = "" }' "$page" >"$work/examples"
[ "$(wc -l <"$work/examples")" = 3 ] || fail "the page has $(wc -l <"$work/examples") examples"

sed -e 's/"127\.0\.0\./"127.0.82./' -e "s|\"tree\": \"|&$samples/|" "$samples/rack-boards.json" >"$work/boards.json"
mkfifo "$work/ready"
"$kvboardd" --boards "$work/boards.json" --port $port >"$work/ready" 2>"$work/kvboardd.log" &
service=$!
read -r line <"$work/ready" || fail "the service did not start"

while IFS=/ read -r call answer; do
    exec 3<>/dev/tcp/127.0.82.11/$port
    bytes=(${call})
    printf '%b' "$(printf '\\x%s' "${bytes[@]}")" >&3
    wanted=(${answer})
    actual=($(timeout 10 head -c ${#wanted[@]} <&3 | od -An -v -tx1 | tr a-f A-F))
    exec 3>&-
    for ((i = 0; i < ${#wanted[@]}; ++i)); do
        [[ "${actual[i]-none}" == ${wanted[i]/../??} ]] ||
            fail "byte $i is ${actual[i]-none} instead of ${wanted[i]} in the answer: ${actual[*]}"
    done
done <"$work/examples"
echo "passed"
