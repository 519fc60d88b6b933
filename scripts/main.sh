#!/usr/bin/env bash
# Installs what is missing, builds the library and its tool, and runs the tool on its sample frame.
# Extra arguments are passed to the tool (see README).
set -euo pipefail
here="$(cd "$(dirname "$0")/.." && pwd)"
bash "$here/scripts/setup.sh" base
build="$here/build/main"
cmake -S "$here" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
      -DBIVISTA_BUILD_TESTS=OFF -DBIVISTA_BUILD_BENCH=OFF >/dev/null
log="$build/build.log"
cmake --build "$build" -j "$(nproc)" --target bivista_depthcalc_tool >"$log" 2>&1 || { cat "$log"; exit 1; }
exec "$build/tools/bivista_depthcalc_tool" "$@"
