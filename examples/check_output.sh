#!/bin/sh
# Runs a program that must succeed and print, for each pattern, a line that matches it.
#   check_output.sh PROGRAM PATTERN...
set -eu
program=$1
shift
output=$("$program") || { echo "FAIL: $program returned $?"; exit 1; }
printf '%s\n' "$output"
for pattern; do
    printf '%s\n' "$output" | grep -qE -- "$pattern" ||
        { echo "FAIL: no line matches $pattern"; exit 1; }
done
