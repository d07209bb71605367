#!/usr/bin/env bash
# usage: consumer_test.sh BUILD_DIR VERSION LIBDIR CXX_FLAGS
#
# Installs the built tree into a folder of its own, builds two programs against it, the README's with pkg-config and examples/host with the
# CMake package, and compares what they print with what the documents say. CXX_FLAGS are those that the library itself needs of whoever
# links it (sanitizers).
set -euo pipefail
root=$(cd "$(dirname "$0")/../.." && pwd) build=$1 version=$2 libdir=$3 flags=${4:-}
work=$build/consumer-test
rm -rf "$work"
mkdir -p "$work"
prefix=$work/prefix
cmake --install "$build" --prefix "$prefix" >"$work/install.log"

fenced() { # DOCUMENT TEXT: the first fenced block after the line with that text
  awk -v text="$2" 'index($0, text) { found = 1 } found && /^```/ { if (inside) exit; inside = 1; next } inside' "$root/$1"
}
check() { # DOCUMENT TEXT PROGRAM
  diff <(fenced "$1" "$2") <("$3" 2>&1 | sed 's/ *$//') || { echo "$1 says something else than $3 prints"; exit 1; }
  # Not through a pipe: grep -q leaves early, and ldd's broken pipe would count as a failure.
  [[ $(ldd "$3") == *"$prefix/$libdir/libKelTypeDecoder.so"* ]] || { echo "$3: not the installed library"; exit 1; }
}

launcher=$(command -v ccache || true)
strict="-Wall -Wextra -Werror"
[[ -z $flags ]] || strict= # sanitizers defeat the flow analysis behind some warnings
export PKG_CONFIG_PATH=$prefix/$libdir/pkgconfig
[[ $(pkg-config --modversion KelTypeDecoder) == "$version" ]] || { echo "pkg-config knows another version"; exit 1; }
fenced README.md 'runs: tests/consumer/consumer_test.sh' >"$work/readme.cpp"
$launcher g++ -std=c++20 $flags $(pkg-config --cflags KelTypeDecoder) -c "$work/readme.cpp" -o "$work/readme.o"
g++ $flags "$work/readme.o" -o "$work/readme" $(pkg-config --libs KelTypeDecoder) -Wl,-rpath,"$prefix/$libdir"
check README.md 'It prints:' "$work/readme"

cmake -S "$root/examples/host" -B "$work/host" -G Ninja -DCMAKE_PREFIX_PATH="$prefix" -DCMAKE_CXX_FLAGS="$strict $flags" \
  -DCMAKE_CXX_COMPILER_LAUNCHER="$launcher" >"$work/cmake.log"
ninja -C "$work/host" >>"$work/cmake.log" || { cat "$work/cmake.log"; exit 1; }
check docs/hosting.md 'What it prints' "$work/host/host"
