#!/usr/bin/env bash
# Builds the libFuzzer targets with clang and runs each briefly from its seeds
# and regressions, with a fixed seed and a fixed number of runs so that a CI
# run is repeatable. Any crash, sanitizer report, leak, slow input or memory
# blow-up fails it; the extractors' deliberate fatal checks do not.
set -euo pipefail
cd "$(dirname "$0")/.."
export ZIRK_WITH_FUZZ=1
source scripts/deps.sh
BUILD_DIR=${BUILD_DIR:-build-fuzz}
CC=clang CXX=clang++ cmake -S . -B "$BUILD_DIR" -DZIRK_BUILD_FUZZERS=ON -DZIRK_BUILD_TESTS=OFF \
  -DZIRK_BUILD_TOOLS=OFF >/dev/null
cmake --build "$BUILD_DIR" -j2 --target fuzz_entry fuzz_flv fuzz_avi fuzz_esds fuzz_codec_helpers fuzz_mov_sample_table fuzz_mov fuzz_asf \
  fuzz_probe_outputs
runs=${ZIRK_FUZZ_SMOKE_RUNS:-3000}
passed=0
for target in entry flv avi esds codec_helpers mov_sample_table mov asf probe_outputs; do
  # A work folder of its own, apart from any longer fuzzing session's corpus.
  export FUZZ_WORK_DIR=fuzz/corpus-smoke
  rm -rf "$FUZZ_WORK_DIR/$target"
  echo "== fuzz_$target: $runs runs"
  log=$FUZZ_WORK_DIR/$target.log
  mkdir -p "$FUZZ_WORK_DIR"
  status=0
  BUILD_DIR=$BUILD_DIR fuzz/run.sh "$target" 600 -runs="$runs" -seed=1 >"$log" 2>&1 || status=$?
  grep -E '^(Done|stat::number_of_executed_units)|ERROR|SUMMARY' "$log" || true
  if [[ $status -ne 0 ]]; then
    tail -40 "$log"
    echo "fuzz_$target found a problem: see $FUZZ_WORK_DIR/$target"
    exit 1
  fi
  passed=$((passed + 1))
done
echo "$passed passed, 0 failed"
