#!/usr/bin/env bash
# Installs what is missing, builds, and runs zirk-probe on a file (default: a
# bundled FLV sample). Extra arguments after the file go to zirk-probe, e.g.
#   scripts/probe.sh testdata/avi_xvid_mp3.avi --samples --json
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh

BUILD_DIR=${BUILD_DIR:-build}
# The same configuration as scripts/test.sh, so that the two share one build.
cmake -S . -B "$BUILD_DIR" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
cmake --build "$BUILD_DIR" -j2 --target zirk-probe >/dev/null

file=${1:-testdata/flv_h264_aac.flv}
shift || true
exec "$BUILD_DIR/tools/zirk-probe" "$file" "$@"
