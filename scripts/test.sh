#!/usr/bin/env bash
# Installs what is missing, builds everything and runs all tests.
#   scripts/test.sh            host build (library, tool, tests, benchmarks), all tests
#   scripts/test.sh asan       the suite under AddressSanitizer + UndefinedBehaviorSanitizer
#   scripts/test.sh tsan       the threaded tests under ThreadSanitizer
#   scripts/test.sh aarch64    cross build for Linux AArch64, tests under qemu-aarch64
set -euo pipefail
here="$(cd "$(dirname "$0")/.." && pwd)"
config="${1:-host}"
jobs="$(nproc)"

case "$config" in
  host)
    bash "$here/scripts/setup.sh" base bench
    args=(-DCMAKE_BUILD_TYPE=Release)
    ;;
  asan)
    bash "$here/scripts/setup.sh" base bench
    args=(-DCMAKE_BUILD_TYPE=RelWithDebInfo -DBIVISTA_SANITIZE=address -DBIVISTA_BUILD_BENCH=OFF)
    export ASAN_OPTIONS="detect_leaks=1:abort_on_error=0:halt_on_error=1"
    export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1"
    ;;
  tsan)
    bash "$here/scripts/setup.sh" base
    args=(-DCMAKE_BUILD_TYPE=RelWithDebInfo -DBIVISTA_SANITIZE=thread -DBIVISTA_BUILD_BENCH=OFF)
    export TSAN_OPTIONS="halt_on_error=1:second_deadlock_stack=1"
    ;;
  aarch64)
    bash "$here/scripts/setup.sh" base aarch64
    # Benchmarks are compiled (peers left out), not run.
    args=(-DCMAKE_BUILD_TYPE=Release
          -DCMAKE_TOOLCHAIN_FILE="$here/cmake/aarch64-linux-gnu.cmake")
    ;;
  *) echo "usage: scripts/test.sh [host|asan|tsan|aarch64]" >&2; exit 2 ;;
esac

build="$here/build/$config"
cmake -S "$here" -B "$build" -G Ninja "${args[@]}" >/dev/null
cmake --build "$build" -j "$jobs"
ctest_args=(--test-dir "$build" --output-on-failure -j "$jobs")
[ "$config" = tsan ] && ctest_args+=(-L threads)
ctest "${ctest_args[@]}"
