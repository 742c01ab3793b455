#!/bin/sh
# Keeps the pages true: the program in README.md is examples/hello.c to the letter, the node type
# in docs/node-types.md compiles, and every file that a page names in backticks exists.
set -eu
cd "$(dirname "$0")/../.."
CXX=${CXX:-c++}
failed=0

# listing LANGUAGE PAGE: the block of code in that language.
listing() { sed -n "/^\`\`\`$1\$/,/^\`\`\`\$/p" "$2" | sed '1d;$d'; }

listing c README.md | diff examples/hello.c - ||
    { echo "FAIL: the program in README.md ('>') is not examples/hello.c ('<')"; failed=1; }

listing cpp docs/node-types.md | "$CXX" -std=c++20 -Wall -Wextra -Wconversion -Wshadow -Werror \
    -Iinclude/ruvell -Icore/src -fsyntax-only -x c++ - ||
    { echo "FAIL: the listing in docs/node-types.md does not compile"; failed=1; }

for page in README.md docs/*.md; do
    for path in $(grep -o '`[a-zA-Z./_-]*/[a-zA-Z./_-]*`' "$page" | tr -d '`'); do
        [ -e "$path" ] || [ -e "core/src/$path" ] ||
            { echo "FAIL: $page names $path, which does not exist"; failed=1; }
    done
done
exit "$failed"
