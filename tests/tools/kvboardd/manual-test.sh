#!/bin/sh
# Manual pages without a fault, and completions that shells can read. The arguments are files: NAME.1 and NAME.8 are
# pages, NAME.bash and NAME.zsh or _NAME completions. Exit status 77: skipped, with the reason.
set -eu
skip() { echo "skipped: $*"; exit 77; }
fail() { echo "failed: $*"; exit 1; }
for tool in man groff bash zsh; do
    command -v "$tool" >/dev/null || skip "$tool is not installed"
done
for file in "$@"; do
    [ -s "$file" ] || fail "$file is empty or missing"
    case "$file" in
        *.bash) said=$(bash -n "$file" 2>&1) || fail "$file: $said" ;;
        *.zsh | */_*) said=$(zsh -n "$file" 2>&1) || fail "$file: $said" ;;
        *) said=$(MANWIDTH=80 man --warnings -E UTF-8 -l -Tutf8 -Z "$file" 2>&1 >/dev/null) || fail "$file: $said" ;;
    esac
    [ -z "$said" ] || fail "$file: $said"
done
# What is wrong in a page is found at all.
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
printf '.TH X 1\n.SH NAME\nx \\- y\n.NOSUCH\n' >"$work/x.1"
[ -n "$(man --warnings -E UTF-8 -l -Tutf8 -Z "$work/x.1" 2>&1 >/dev/null)" ] || fail "man does not warn"

# The limits of the protocol stand on the first page of the service's manual.
for file in "$@"; do
    case "$file" in
        *kvboardd.8) ;;
        *) continue ;;
    esac
    text=$(MANWIDTH=80 man -E UTF-8 -l "$file" | head -n 40 | tr -s ' \n' ' ')
    for said in 'no authentication, no secrecy and no integrity' 'listens on loopback' 'management network' \
        'prevents accidents, not attacks' 'no checksum'; do
        case "$text" in
            *"$said"*) ;;
            *) fail "the first page does not say: $said" ;;
        esac
    done
done
