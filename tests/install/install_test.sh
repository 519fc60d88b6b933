#!/usr/bin/env bash
# Installs the build to two prefixes, moves one of them, and builds a consumer against each copy
# with pkg-config and with find_package; every consumer must run without LD_LIBRARY_PATH (the
# library finds its host companion through its $ORIGIN run path).
#   install_test.sh BUILD_DIR SOURCE_DIR C_COMPILER CMAKE_GENERATOR
set -euo pipefail
build="$1" here="$2" cc="$3" generator="$4"
work="$(mktemp -d "${TMPDIR:-/tmp}/bv_install.XXXXXX")"
trap 'rm -rf "$work"' EXIT
unset LD_LIBRARY_PATH

check() {  # check PREFIX LABEL
  local prefix="$1" label="$2"
  local pc
  pc="$(dirname "$(find "$prefix" -name bivista_disptodepth.pc | head -n 1)")"
  local libdir
  libdir="$(PKG_CONFIG_PATH="$pc" pkg-config --variable=libdir bivista_disptodepth)"
  case "$libdir" in "$prefix"/*) ;; *) echo "FAIL: $label: pkg-config libdir $libdir is outside $prefix"; exit 1 ;; esac
  # shellcheck disable=SC2046
  "$cc" -o "$work/$label-pc" "$here/tests/install/consumer.c" \
    $(PKG_CONFIG_PATH="$pc" pkg-config --cflags --libs bivista_disptodepth) -Wl,-rpath,"$libdir"
  "$work/$label-pc" | grep -q "consumer ok" || { echo "FAIL: $label: pkg-config consumer"; exit 1; }
  mkdir -p "$work/$label-src"
  cp "$here/tests/install/consumer.c" "$work/$label-src/"
  cp "$here/tests/install/consumer_cmake.txt" "$work/$label-src/CMakeLists.txt"
  cmake -S "$work/$label-src" -B "$work/$label-build" -G "$generator" -DCMAKE_C_COMPILER="$cc" \
    -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
  cmake --build "$work/$label-build" >/dev/null
  "$work/$label-build/consumer" | grep -q "consumer ok" || { echo "FAIL: $label: find_package consumer"; exit 1; }
  echo "ok: $label ($libdir)"
}

cmake --install "$build" --prefix "$work/one" >/dev/null
cmake --install "$build" --prefix "$work/two/deeper" >/dev/null
check "$work/one" one
check "$work/two/deeper" two
mv "$work/two" "$work/moved"
check "$work/moved/deeper" moved
