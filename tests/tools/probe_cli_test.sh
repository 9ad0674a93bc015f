#!/usr/bin/env bash
# zirk-probe's command-line contract: exit codes, messages and the JSON shape
# that scripts depend on. Usage: probe_cli_test.sh PROBE TESTDATA_DIR
set -uo pipefail
probe=$1
data=$2
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
passed=0
failed=0

# expect NAME WANT_EXIT GREP_PATTERN -- ARGS...: runs the probe, checks the exit
# code and that stdout+stderr match the pattern.
expect() {
  local name=$1 want=$2 pattern=$3
  shift 4
  "$probe" "$@" >"$tmp/out" 2>&1
  local got=$?
  if [[ $got -ne $want ]]; then
    echo "FAIL $name: exit $got, wanted $want"; sed 's/^/    /' "$tmp/out" | head -20; failed=$((failed + 1)); return
  fi
  if [[ -n $pattern ]] && ! grep -qE -- "$pattern" "$tmp/out"; then
    echo "FAIL $name: output lacks /$pattern/"; sed 's/^/    /' "$tmp/out" | head -20; failed=$((failed + 1)); return
  fi
  echo "ok   $name"; passed=$((passed + 1))
}

printf 'just some text, not media\n%.0s' {1..100} >"$tmp/text.txt"
: >"$tmp/empty.bin"

expect version 0 '^zirk-probe [0-9]' -- --version
expect version-lists-containers 0 '^flv: ' -- --version
expect help 0 'Usage' -- --help
expect no-file 1 'no FILE' --
expect unreadable 2 "cannot read '$tmp/missing'" -- "$tmp/missing"
expect directory 2 'cannot read' -- "$tmp"
expect not-media 3 'not a container this library recognises' -- "$tmp/text.txt"
expect empty-file 3 'not a container' -- "$tmp/empty.bin"
expect unknown-container 3 'no extractor' -- "$tmp/text.txt" --container video/x-nothing
expect bad-seek-mode 1 'unknown seek mode' -- "$tmp/text.txt" --seek 100:sideways
expect bad-seek-time 1 'microseconds' -- "$tmp/text.txt" --seek abc
expect bad-prop 1 'bad --prop' -- "$tmp/text.txt" --prop novalue
expect bad-log-level 1 'unknown log level' -- "$tmp/text.txt" --log-level loud
expect json-on-unrecognised 3 '"sniff": null' -- "$tmp/text.txt" --json

# Once a container is in the build, a bundled sample must probe and read.
if "$probe" --version | grep -q '^flv: QVX'; then
  expect flv-probe 0 'video/x-flv' -- "$data/flv_h264_aac.flv"
  expect flv-json-shape 0 '"end": "ERROR_END_OF_STREAM"' -- "$data/flv_h264_aac.flv" --samples --json
  expect flv-count 0 '"end": "COUNT_REACHED"' -- "$data/flv_h264_aac.flv" --samples --json --count 3
  expect flv-forced-container 0 '"sniff": null' -- "$data/flv_h264_aac.flv" --container FLV --json
  expect flv-bad-track 1 'no track 7' -- "$data/flv_h264_aac.flv" --track 7
  expect flv-quiet 0 '^samples=[0-9]+ bytes=[0-9]+ seconds=' -- "$data/flv_h264_aac.flv" --samples --quiet
fi

echo "$passed passed, $failed failed"
[[ $failed -eq 0 ]]
