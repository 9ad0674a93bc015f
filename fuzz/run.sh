#!/usr/bin/env bash
# Runs one fuzz target for SECONDS with its seeds and dictionary.
# Usage: fuzz/run.sh TARGET SECONDS [extra libFuzzer flags...]
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)
target=$1
seconds=$2
shift 2
bin=${BUILD_DIR:-build-fuzz}/fuzz/fuzz_$target
[[ -x $bin ]] || { echo "no $bin: build with -DZIRK_BUILD_FUZZERS=ON (see fuzz/README.md)" >&2; exit 1; }
work=${FUZZ_WORK_DIR:-fuzz/corpus-work}/$target
mkdir -p "$work/corpus"
case $target in
  flv) seeds=(testdata/*.flv) ;;
  avi) seeds=(testdata/*.avi) ;;
  entry) seeds=(testdata/*.flv testdata/*.avi testdata/*.asf) ;;
  asf) seeds=(testdata/*.asf testdata/*.wma) ;;
  codec_helpers) seeds=(testdata/*.h264 testdata/*.h263 testdata/*.bin testdata/*.mp3 testdata/*.mp2) ;;
  esds) seeds=(testdata/aac_mono_44100.m4a) ;;
  mov) seeds=(testdata/*.mov testdata/*.mp4 testdata/*.m4a testdata/*.3gp) ;;
  mov_sample_table) seeds=() ;;  # fuzz/seeds/mov_sample_table/ only
  *) seeds=() ;;
esac
for s in "${seeds[@]}" fuzz/seeds/"$target"/* fuzz/regressions/"$target"/*; do
  [[ -f $s ]] && cp -n "$s" "$work/corpus/" 2>/dev/null || true
done
dict=()
[[ -f fuzz/dict/$target.dict ]] && dict=(-dict=fuzz/dict/$target.dict)
cd "$work"
# ASan's quarantine of freed memory counts toward RSS; kept small so that the
# 512 MB limit measures the code under test, not the sanitizer.
export ASAN_OPTIONS=${ASAN_OPTIONS:-quarantine_size_mb=32:malloc_context_size=10}
[[ $bin == /* ]] || bin=$root/$bin
exec "$bin" corpus "${dict[@]/#-dict=/-dict=$root/}" -max_total_time="$seconds" -timeout=2 \
  -rss_limit_mb=512 -malloc_limit_mb=512 -print_final_stats=1 "$@"
