#!/usr/bin/env bash
# Installs what is missing, builds everything and runs every test.
# ZIRK_SANITIZE=1 does the same in a separate AddressSanitizer +
# UndefinedBehaviorSanitizer build; ZIRK_SANITIZE=thread builds with
# ThreadSanitizer and runs only the tests that use several threads.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/deps.sh

CTEST_FILTER=()
if [[ "${ZIRK_SANITIZE:-0}" == "1" ]]; then
  BUILD_DIR=${BUILD_DIR:-build-asan}
  cmake -S . -B "$BUILD_DIR" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DZIRK_SANITIZE=ON >/dev/null
  # Leak checking stays on; death tests fork, which ASan handles.
  export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=0}
  export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
elif [[ "${ZIRK_SANITIZE:-0}" == "thread" ]]; then
  BUILD_DIR=${BUILD_DIR:-build-tsan}
  cmake -S . -B "$BUILD_DIR" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DZIRK_SANITIZE=thread >/dev/null
  # The first race fails the test that ran into it.
  export TSAN_OPTIONS=${TSAN_OPTIONS:-halt_on_error=1:second_deadlock_stack=1}
  # The thread-contract tests and the caching source's (readers on several threads).
  CTEST_FILTER=(-R 'Concurrent|CachedFileSource' --no-tests=error)
else
  BUILD_DIR=${BUILD_DIR:-build}
  cmake -S . -B "$BUILD_DIR" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
fi
cmake --build "$BUILD_DIR" -j2
cd "$BUILD_DIR"
ctest -j2 --output-on-failure --timeout 600 "${CTEST_FILTER[@]}"
