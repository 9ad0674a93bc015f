#!/usr/bin/env bash
# Installs the library into a temporary prefix and proves the installation
# complete on its own: every installed header compiles alone with the
# advertised flags, and a small program (tests/install/) is built against the
# prefix twice, through find_package(ZirkExtractor) and through pkg-config,
# and run on a bundled FLV file; zirk-probe runs from the prefix too.
# Builds a release configuration without tests in BUILD_DIR (build-install).
set -euo pipefail
cd "$(dirname "$0")/.."
# pkg-config is one of the CI extras.
export ZIRK_WITH_MEDIA_TOOLS=${ZIRK_WITH_MEDIA_TOOLS:-1}
source scripts/deps.sh

start=$SECONDS
BUILD_DIR=${BUILD_DIR:-build-install}
SAMPLE=$PWD/testdata/flv_h264_aac.flv
EXPECTED=$'container video/x-flv\ntracks 2\ntrack 0 video/avc\ntrack 1 audio/mp4a-latm'
WORK=$(mktemp -d "${TMPDIR:-/tmp}/zirk-install.XXXXXX")
trap 'rm -rf "$WORK"' EXIT
PREFIX=$WORK/prefix

cmake -S . -B "$BUILD_DIR" -DCMAKE_BUILD_TYPE=Release -DZIRK_BUILD_TESTS=OFF -DZIRK_BUILD_TOOLS=ON >/dev/null
cmake --build "$BUILD_DIR" -j2 --target stagefright_zirk_extractor zirk_framework zirk-probe
cmake --install "$BUILD_DIR" --prefix "$PREFIX" >/dev/null
export PKG_CONFIG_PATH=$PREFIX/lib/pkgconfig
export LD_LIBRARY_PATH=$PREFIX/lib
read -r -a CFLAGS <<<"$(pkg-config --cflags zirk-extractor)"
read -r -a LIBS <<<"$(pkg-config --libs zirk-extractor)"

failed=0
check() {  # name, expected text, actual text
  if [[ "$2" == "$3" ]]; then
    echo "ok: $1"
  else
    printf 'FAIL: %s\n--- expected\n%s\n--- got\n%s\n' "$1" "$2" "$3" >&2
    failed=1
  fi
}

headers=0
while IFS= read -r header; do
  header=${header#"$PREFIX/include/"}
  headers=$((headers + 1))
  if ! printf '#include <%s>\n' "$header" |
      g++ -std=c++17 -Wall -Wextra -Werror "${CFLAGS[@]}" -fsyntax-only -x c++ -; then
    echo "FAIL: <$header> does not compile on its own" >&2
    failed=1
  fi
done < <(find "$PREFIX/include" -name '*.h' | sort)
echo "ok: $headers installed headers compile on their own"

cmake -S tests/install -B "$WORK/cmake-consumer" -DCMAKE_BUILD_TYPE=Release -DCMAKE_PREFIX_PATH="$PREFIX" >/dev/null
cmake --build "$WORK/cmake-consumer" -j2 >/dev/null
check "find_package(ZirkExtractor) consumer" "$EXPECTED" "$("$WORK/cmake-consumer/zirk_consumer" "$SAMPLE")"

g++ -std=c++17 -Wall -Wextra "${CFLAGS[@]}" tests/install/consumer.cpp -o "$WORK/pc-consumer" "${LIBS[@]}"
check "pkg-config consumer" "$EXPECTED" "$("$WORK/pc-consumer" "$SAMPLE")"

if "$PREFIX/bin/zirk-probe" "$SAMPLE" >"$WORK/probe.txt"; then
  echo "ok: installed zirk-probe"
else
  echo "FAIL: installed zirk-probe on $SAMPLE" >&2
  failed=1
fi

echo "install check $( ((failed)) && echo FAILED || echo passed ) in $((SECONDS - start)) s"
exit "$failed"
