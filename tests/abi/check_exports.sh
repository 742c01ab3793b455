#!/bin/sh
# Compares the dynamic symbols of the library with exports.txt, both ways.
#   check_exports.sh LIBRARY
set -eu
here=$(cd "$(dirname "$0")" && pwd)
library=$1
list=$here/exports.txt
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
export LC_ALL=C
failed=0

# The symbols of one section of the list, each with the letter that nm gives to its kind.
section() {
    awk -F'\t' -v wanted="[$1]" '
        /^\[/ { inside = ($0 == wanted); next }
        inside && !/^#/ { print $1, ($3 == "func" ? "function" : "object") }' "$list" | sort
}

section exported >"$tmp/listed"
section pending >"$tmp/pending"
nm -D --defined-only "$library" >"$tmp/nm"
awk '{ print $3, ($2 == "T" ? "function" : $2 ~ /^[RDB]$/ ? "object" : "of kind " $2) }' "$tmp/nm" |
    sort >"$tmp/found"

if [ ! -s "$tmp/listed" ]; then
    echo "FAIL: exports.txt lists nothing under [exported]"
    failed=1
fi
if ! diff "$tmp/listed" "$tmp/found" >"$tmp/diff"; then
    echo "FAIL: '<' is listed under [exported] only, '>' is in the library only:"
    grep '^[<>]' "$tmp/diff"
    failed=1
fi
if join "$tmp/pending" "$tmp/found" | grep .; then
    echo "FAIL: the symbols above are exported but listed under [pending]: move them to [exported]"
    failed=1
fi
if [ "$failed" = 0 ]; then
    echo "$(wc -l <"$tmp/listed") symbols exported, $(wc -l <"$tmp/pending") pending"
fi
exit "$failed"
