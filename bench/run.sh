#!/usr/bin/env bash
# Builds zirk-probe (Release), makes the inputs if missing and prints the
# throughput table. Usage: bench/run.sh [--runs N] [CONTAINER...]
set -euo pipefail
cd "$(dirname "$0")/.."
runs=5
if [[ ${1:-} == --runs ]]; then runs=$2; shift 2; fi
source scripts/deps.sh
for p in ffmpeg time python3; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || {
    SUDO=""; [[ $(id -u) -ne 0 ]] && SUDO=sudo
    $SUDO apt-get install -y -qq "$p" >/dev/null; }
done
cmake -S . -B build-release -DCMAKE_BUILD_TYPE=Release -DZIRK_BUILD_TESTS=OFF >/dev/null
cmake --build build-release -j2 --target zirk-probe >/dev/null
bench/make_inputs.sh bench/inputs "$@"
files=()
containers=("$@"); ((${#containers[@]})) || containers=(flv avi mov asf)
for c in "${containers[@]}"; do
  for f in bench/inputs/large_$c.$c bench/inputs/small_$c.$c; do [[ -s $f ]] && files+=("$f"); done
done
python3 bench/bench.py --runs "$runs" "${files[@]}"
