#!/usr/bin/env bash
# usage: install.sh CHECKOUT BUILD-FOLDER COMPILER
# Installs into an empty folder and builds a stranger's project against it, by find_package and by pkg-config.
set -euo pipefail
source=$1 build=$2 compiler=$3
place=$(mktemp -d)
trap 'rm -rf "$place"' EXIT

cmake --install "$build" --prefix "$place/usr" >"$place/install.log"
cmake -S "$source/examples/tour" -B "$place/by-cmake" -G Ninja -DCMAKE_PREFIX_PATH="$place/usr" \
  -DCMAKE_CXX_COMPILER="$compiler" >"$place/configure.log"
cmake --build "$place/by-cmake" >"$place/build.log" || { cat "$place/build.log"; exit 1; }

libraries=$(dirname "$(find "$place/usr" -name liborrery-mysql.so)")
export PKG_CONFIG_PATH="$libraries/pkgconfig"
# shellcheck disable=SC2046
"$compiler" -std=c++17 "$source/examples/tour/tour.cpp" -o "$place/by-pkg-config" \
  $(pkg-config --cflags --libs orrery-mysql)

for program in "$place/by-cmake/orrery-tour" "$place/by-pkg-config"; do
  status=0
  answer=$(LD_LIBRARY_PATH="$libraries" "$program" 2>&1) || status=$?
  case "$status $answer" in
    "2 usage: "*) ;;
    *) echo "$program: exit status $status: $answer"; exit 1 ;;
  esac
done
test -x "$place/usr/bin/orrery-mysql"
LD_LIBRARY_PATH="$libraries" "$place/usr/bin/orrery-mysql" --version
LD_LIBRARY_PATH="$libraries" "$place/usr/bin/orrery-mysql" --home "$place/home" init >"$place/init.log"
test "$(readlink "$place/home/libobk.so")" = "$libraries/orrery-mysql/libobk.so"
