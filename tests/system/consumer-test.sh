#!/bin/sh
# Installs the build tree given as $1 into a folder of its own and builds and runs a small program against it, once
# through the CMake package and once through pkg-config. $2 is the folder of this file, $3 the compiler, $4 its flags.
set -eu
buildTree=$1 here=$2 compiler=$3 flags=$4
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake --install "$buildTree" --prefix "$work/prefix" >"$work/install.log"
expected="CPU[2]/RAM/SIZE = 4096
UserFpga"

check() {
    actual=$(LD_LIBRARY_PATH="$work/prefix/lib" "$2")
    [ "$actual" = "$expected" ] || { printf 'through %s: unexpected output\n%s\n' "$1" "$actual"; exit 1; }
    echo "through $1: built and run"
}

cmake -S "$here/consumer" -B "$work/cmake" -G Ninja -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_CXX_FLAGS="$flags" \
    -DCMAKE_PREFIX_PATH="$work/prefix" >"$work/cmake.log"
cmake --build "$work/cmake" >>"$work/cmake.log" || { cat "$work/cmake.log"; exit 1; }
check "the CMake package" "$work/cmake/consumer"

PKG_CONFIG_PATH="$work/prefix/lib/pkgconfig"
export PKG_CONFIG_PATH
"$compiler" -std=c++20 $flags "$here/consumer/main.cpp" -o "$work/consumer" $(pkg-config --cflags --libs kvinventory)
check pkg-config "$work/consumer"

for header in $(cd "$work/prefix/include/korvel" && find . -name '*.h'); do
    echo "#include \"$header\"" >"$work/header.cpp"
    "$compiler" -std=c++20 -Wall -Wextra -fsyntax-only -I"$work/prefix/include/korvel" "$work/header.cpp" ||
        { echo "the installed $header does not stand alone"; exit 1; }
done
echo "every installed header stands alone"
