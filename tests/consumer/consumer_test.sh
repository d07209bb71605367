#!/usr/bin/env bash
# usage: consumer_test.sh BUILD_DIR VERSION LIBDIR CXX_FLAGS
#
# Installs the built tree into a folder of its own, builds the consumer against it twice (CMake package, pkg-config), runs
# both. CXX_FLAGS are those that the library itself needs of whoever links it (sanitizers).
set -euo pipefail
source=$(cd "$(dirname "$0")" && pwd) build=$1 version=$2 libdir=$3 flags=${4:-}
work=$build/consumer-test
rm -rf "$work"
mkdir -p "$work"
prefix=$work/prefix
cmake --install "$build" --prefix "$prefix" >"$work/install.log"

check() { # WHAT PROGRAM
  local output
  output=$("$2")
  [[ $output == "$version elem { name: \"interfaces\" }"* ]] || { echo "$1: the consumer printed: $output"; exit 1; }
  # Not through a pipe: grep -q leaves early, and ldd's broken pipe would count as a failure.
  [[ $(ldd "$2") == *"$prefix/$libdir/libKelTypeDecoder.so"* ]] || { echo "$1: not the installed library"; exit 1; }
}

launcher=$(command -v ccache || true)
cmake -S "$source" -B "$work/cmake" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_FLAGS="$flags" \
  -DCMAKE_CXX_COMPILER_LAUNCHER="$launcher" >"$work/cmake.log"
ninja -C "$work/cmake" >>"$work/cmake.log" || { cat "$work/cmake.log"; exit 1; }
check cmake "$work/cmake/consumer"

export PKG_CONFIG_PATH=$prefix/$libdir/pkgconfig
$launcher g++ -std=c++20 $flags $(pkg-config --cflags KelTypeDecoder) -c "$source/main.cpp" -o "$work/main.o"
g++ $flags "$work/main.o" -o "$work/consumer" $(pkg-config --libs KelTypeDecoder) -Wl,-rpath,"$prefix/$libdir"
check pkg-config "$work/consumer"
