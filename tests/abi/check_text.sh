#!/bin/sh
# Checks what no tracked file may say: notes of unfinished work, switched-off tests, references to
# documents that readers do not have, paths of one machine. The patterns do not match themselves.
set -u
cd "$(dirname "$0")/../.." || exit 1
failed=0

# git for a clone that may belong to somebody else.
tracked() { git -c safe.directory='*' "$@"; }

# forbid WHAT PATTERN [PATH...]
forbid() {
    what=$1 pattern=$2
    shift 2
    tracked grep -nIE "$pattern" -- "$@"
    case $? in
        0) echo "FAIL: the lines above have $what" && failed=1 ;;
        1) ;;
        *) echo "FAIL: the tracked files cannot be read" && failed=1 ;;
    esac
}

forbid "notes of unfinished work" '\b(TO[D]O|FIX[M]E|X[X]X|HA[C]K)\b' .
forbid "tests that do not run" 'GTEST_SKI[P]|\bDISABLE[D]_[A-Za-z]' .
forbid "references to other documents" \
    '\b[Pp]arts? [0-9]+\.[0-9]|\b[Ss]pec(ification)?\.md|\b([Tt]he|[Tt]his|[Ss]ee) [Ss]pec(ification)?\b' .
forbid "paths of one machine" '(^|[^A-Za-z0-9_.*/])/(home|root|work|mnt|srv|Users)/' .

[ "$failed" = 0 ] && echo "$(tracked ls-files | wc -l) tracked files are clean"
exit "$failed"
