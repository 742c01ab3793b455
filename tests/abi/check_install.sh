#!/bin/sh
# Installs a build into an empty prefix and builds and runs a program against it, found once with
# find_package and once with pkg-config.
#   check_install.sh BUILD_DIR
# CMAKE, CC and CXX choose the tools.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
build=$1
CMAKE=${CMAKE:-cmake}
CC=${CC:-cc}
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
prefix=$tmp/prefix

# expect_output PROGRAM
expect_output() {
    output=$("$1")
    if [ "$output" != "Ruvell 3.3.6.0: ball has radius 2.5" ]; then
        echo "FAIL: $1 printed: $output"
        exit 1
    fi
}

"$CMAKE" --install "$build" --prefix "$prefix" >"$tmp/log" || { cat "$tmp/log"; exit 1; }
for wanted in librv.so ruvell.mtd; do
    [ -n "$(find "$prefix" -name "$wanted")" ] || { echo "FAIL: $wanted is not installed"; exit 1; }
done
[ "$(find "$prefix" -name '*.h' | wc -l)" = "$(find "$here/../../include" -name '*.h' | wc -l)" ] ||
    { echo "FAIL: not every public header is installed"; exit 1; }

{
    "$CMAKE" -S "$here/consumer" -B "$tmp/consumer" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
        -DCMAKE_C_COMPILER="$CC" && "$CMAKE" --build "$tmp/consumer"
} >"$tmp/log" 2>&1 || { cat "$tmp/log"; echo "FAIL: find_package(Ruvell)"; exit 1; }
expect_output "$tmp/consumer/consumer"
echo "ok: find_package(Ruvell)"

{
    cp -r "$here/../../examples/plugins" "$tmp/plugins"
    "$CMAKE" -S "$tmp/plugins" -B "$tmp/plugins/build" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" \
        -DCMAKE_C_COMPILER="$CC" && "$CMAKE" --build "$tmp/plugins/build"
} >"$tmp/log" 2>&1 || { cat "$tmp/log"; echo "FAIL: the sample plug-ins"; exit 1; }
(cd "$tmp/plugins/build" && ./show) | grep -q "^63 shapes$" ||
    { echo "FAIL: the sample plug-ins do not load"; exit 1; }
echo "ok: sample plug-ins"

if ! command -v pkg-config >/dev/null; then
    echo "pkg-config is not installed: ruvell.pc was not tried"
    exit 0
fi
PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name ruvell.pc)")
export PKG_CONFIG_PATH
# shellcheck disable=SC2046
"$CC" "$here/consumer/consumer.c" -o "$tmp/with_pkg_config" $(pkg-config --cflags --libs ruvell) \
    -Wl,-rpath,"$(pkg-config --variable=libdir ruvell)"
[ "$(pkg-config --modversion ruvell)" = "3.3.6.0" ] || { echo "FAIL: version in ruvell.pc"; exit 1; }
expect_output "$tmp/with_pkg_config"
echo "ok: pkg-config ruvell"
