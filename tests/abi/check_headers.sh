#!/bin/sh
# Checks the public headers, alone and against exports.txt. CC and CXX choose the compilers.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
headers=$(cd "$here/../../include/ruvell" && pwd)
CC=${CC:-cc}
CXX=${CXX:-c++}
warnings="-Wall -Wextra -Werror -pedantic -Wshadow -Wconversion"
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
export LC_ALL=C
failed=0
fail() { echo "FAIL: $*"; failed=1; }
pass() { echo "ok:   $*"; }

# compile LANGUAGE FILE...: each file becomes an object of its name in the temporary folder.
compile() {
    language=$1
    shift
    for file; do
        object=$tmp/$(basename "$file" .c).o
        case $language in
            C11)
                # shellcheck disable=SC2086
                "$CC" -std=c11 -Wstrict-prototypes -Wmissing-prototypes $warnings -I"$headers" \
                    -c "$file" -o "$object" || return 1 ;;
            C++17)
                # shellcheck disable=SC2086
                "$CXX" -std=c++17 $warnings -I"$headers" -x c++ -c "$file" -o "$object" || return 1 ;;
        esac
    done
}

# 1. Every header stands alone and may be included twice; rv.h includes every other.
count=0
for header in "$headers"/*.h; do
    name=$(basename "$header")
    count=$((count + 1))
    printf '#include "%s"\n#include "%s"\ntypedef int rv_check_unit;\n' "$name" "$name" \
        >"$tmp/alone.c"
    for language in C11 C++17; do
        compile "$language" "$tmp/alone.c" || fail "$name alone as $language"
    done
    [ "$name" = rv.h ] || grep -q "#include \"$name\"" "$headers/rv.h" ||
        fail "rv.h does not include $name"
done
[ "$failed" = 1 ] || pass "each of the $count headers compiles alone"

# 2. exports.txt is well formed: four columns, no symbol twice.
grep -v '^[#[]' "$here/exports.txt" >"$tmp/exports"
if awk -F'\t' 'NF != 4 || $1 !~ /^(Rv[A-Z]|RV_)/ || ($3 != "func" && $3 != "const") {
                   print "bad line: " $0; bad = 1 }
               seen[$1]++ { print "twice: " $1; bad = 1 }
               END { exit bad }' "$tmp/exports"; then
    pass "exports.txt is well formed"
else
    fail "exports.txt"
fi

# 3. Headers and exports.txt agree on symbol, header and prototype, both ways.
for header in "$headers"/*.h; do
    # Left of each prototype the header's name; blanks folded, as the list writes them.
    sed -e 's/RV_PRINTF_LIKE([0-9, ]*)//' -e '/^ *#/d' "$header" | tr '\n' ' ' |
        sed 's/[;{}]/&\n/g' | grep 'RV_API ' |
        sed -e 's/.*RV_API *//' -e 's/ *; *$//' -e 's/  */ /g' -e 's/( /(/g' -e 's/ )/)/g' \
            -e "s/^/$(basename "$header")	/"
done | sort >"$tmp/declared"
cut -f2,4 "$tmp/exports" | sort >"$tmp/listed"
if diff "$tmp/listed" "$tmp/declared" >"$tmp/diff"; then
    pass "headers and exports.txt declare the same $(wc -l <"$tmp/listed") symbols"
else
    fail "differences ('<' only in exports.txt, '>' only in the headers):"
    grep '^[<>]' "$tmp/diff"
fi

# 4. The prototypes of exports.txt are compatible redeclarations, and link under the listed names.
{
    printf '#include "rv.h"\nRV_C_BEGIN\n'
    awk -F'\t' '{ print ($3 == "const" ? $4 : "extern " $4) ";" }' "$tmp/exports"
    printf 'typedef void (*rv_check_fn)(void);\n'
    printf 'extern const rv_check_fn rv_check_functions[];\n'
    printf 'const rv_check_fn rv_check_functions[] = {\n'
    awk -F'\t' '$3 == "func" { print "    (rv_check_fn)" $1 "," }' "$tmp/exports"
    printf '};\nextern const void* const rv_check_constants[];\n'
    printf 'const void* const rv_check_constants[] = {\n'
    awk -F'\t' '$3 == "const" { print "    &" $1 "," }' "$tmp/exports"
    printf '};\nRV_C_END\n'
} >"$tmp/redeclare.c"
cut -f1 "$tmp/exports" | sort >"$tmp/symbols"
for language in C11 C++17; do
    if compile "$language" "$tmp/redeclare.c"; then
        nm "$tmp/redeclare.o" | awk '$1 == "U" { print $2 }' | grep '^R[vV]' | sort >"$tmp/linked"
        if diff "$tmp/symbols" "$tmp/linked"; then
            pass "prototypes redeclare and link plainly as $language"
        else
            fail "link names as $language"
        fi
    else
        fail "prototypes of exports.txt as $language"
    fi
done

# 5. Host and plug-in code, with the layouts that it may rely on.
for language in C11 C++17; do
    if compile "$language" "$here/use_headers.c"; then
        if [ "$(nm "$tmp/use_headers.o" | grep -cE ' T (Node|Proc)Loader$')" = 2 ]; then
            pass "host and plug-in code compiles as $language"
        else
            fail "plug-in symbols are mangled as $language"
        fi
    else
        fail "host and plug-in code as $language"
    fi
done

[ "$failed" = 0 ] && echo "all checks passed"
exit "$failed"
