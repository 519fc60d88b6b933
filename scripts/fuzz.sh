#!/usr/bin/env bash
# Builds the libFuzzer targets (tests/fuzz/fuzz_*.cc) with clang and runs each for a bounded time
# on a working copy of its checked-in seeds (tests/fuzz/corpus/<family>/).
#   scripts/fuzz.sh                    every target, 60 s each
#   scripts/fuzz.sh -t 600 matrix      one target for ten minutes
#   scripts/fuzz.sh -b 270             every target, 270 s shared between them (CI)
# A crash leaves its input in build/fuzz/artifacts/ and ends the script with status 1; replay it
# with build/fuzz/tests/fuzz/fuzz_<family> build/fuzz/artifacts/<file>.
set -euo pipefail
here="$(cd "$(dirname "$0")/.." && pwd)"
per=60 budget=0
while getopts "t:b:" opt; do
  case "$opt" in
    t) per="$OPTARG" ;;
    b) budget="$OPTARG" ;;
    *) echo "usage: scripts/fuzz.sh [-t seconds-per-target | -b total-seconds] [family...]" >&2; exit 2 ;;
  esac
done
shift $((OPTIND - 1))

bash "$here/scripts/setup.sh" base fuzz
build="$here/build/fuzz"
cmake -S "$here" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
      -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DBIVISTA_FUZZ=ON \
      -DBIVISTA_BUILD_TESTS=OFF -DBIVISTA_BUILD_TOOLS=OFF -DBIVISTA_BUILD_BENCH=OFF >/dev/null
cmake --build "$build" -j "$(nproc)" --target fuzzers

families=("$@")
if [ ${#families[@]} -eq 0 ]; then
  for f in "$here"/tests/fuzz/fuzz_*.cc; do families+=("$(basename "$f" .cc | sed 's/^fuzz_//')"); done
fi
if [ "$budget" -gt 0 ]; then
  per=$(( budget / ${#families[@]} ))
  [ "$per" -ge 5 ] || per=5
fi

mkdir -p "$build/artifacts"
total=0 failed=()
for fam in "${families[@]}"; do
  work="$build/corpus/$fam"
  mkdir -p "$work"
  seeds="$here/tests/fuzz/corpus/$fam"
  [ -d "$seeds" ] || seeds=""
  log="$build/fuzz_$fam.log"
  set +e
  "$build/tests/fuzz/fuzz_$fam" -max_total_time="$per" -timeout=20 -rss_limit_mb=4096 \
      -print_final_stats=1 -artifact_prefix="$build/artifacts/${fam}-" "$work" $seeds >"$log" 2>&1
  rc=$?
  set -e
  runs="$(awk '/stat::number_of_executed_units/ {print $2}' "$log" | tail -n 1)"
  runs="${runs:-0}"
  total=$((total + runs))
  if [ "$rc" -ne 0 ]; then
    failed+=("$fam")
    echo "fuzz_$fam: FAILED after $runs runs (exit $rc); last lines of $log:"
    tail -n 40 "$log"
  else
    echo "fuzz_$fam: $runs runs in ${per} s, no finding"
  fi
done
echo "fuzz: ${#families[@]} targets, $total runs, ${#failed[@]} with findings${failed:+: ${failed[*]}}"
[ ${#failed[@]} -eq 0 ]
