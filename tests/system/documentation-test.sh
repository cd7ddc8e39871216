#!/bin/sh
# The API reference is made from the headers in $1 without a warning. Exit status 77: doxygen is not installed.
set -eu
command -v doxygen >/dev/null || { echo "skipped: doxygen is not installed"; exit 77; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$1"
{ cat docs/Doxyfile; echo "OUTPUT_DIRECTORY = $work"; } | doxygen -
echo "passed"
