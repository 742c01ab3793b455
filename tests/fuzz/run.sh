#!/usr/bin/env bash
# Runs every fuzz target of a build, two at a time. What fails is left in the folder of findings.
#   run.sh BUILD SECONDS [FINDINGS]
set -uo pipefail
source_dir=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
build=$(cd "$1" && pwd) seconds=$2 findings=${3:-$(mktemp -d)}
mkdir -p "$findings"
findings=$(cd "$findings" && pwd) # the targets change to a folder of their own

run_target() { # name
    local corpus dictionary=()
    corpus=$(mktemp -d)
    [ -f "$source_dir/$1.dict" ] && dictionary=(-dict="$source_dir/$1.dict")
    "$build/tests/fuzz/$1_fuzz" -max_total_time="$seconds" -timeout=20 -rss_limit_mb=2048 \
        -max_len=4096 -print_final_stats=1 -artifact_prefix="$findings/$1-" "${dictionary[@]}" \
        "$corpus" "$source_dir/corpus/$1" >"$findings/$1.log" 2>&1
    local result=$?
    rm -rf "$corpus"
    [ $result -eq 0 ] || tail -n 60 "$findings/$1.log"
    printf '%s: %s\n' "$1" "$(grep -o 'number_of_executed_units: .*' "$findings/$1.log")"
    return $result
}
export -f run_target
export source_dir build seconds findings

printf '%s\n' scene obj metadata outputs |
    xargs -P 2 -I{} bash -c 'run_target {}' || { echo "failing inputs are in $findings"; exit 1; }
