#!/usr/bin/env bash
# zirk-probe's command-line contract: exit codes, messages, option parsing and
# the output that scripts depend on. Usage: probe_cli_test.sh PROBE TESTDATA_DIR
set -uo pipefail
probe=$1
data=$2
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
passed=0
failed=0

# expect NAME WANT_EXIT PATTERN -- ARGS...: runs the probe and checks the exit
# code, that stdout+stderr match the pattern, and that a usage error (1) comes
# before anything is printed on stdout.
expect() {
  local name=$1 want=$2 pattern=$3 why=
  shift 4
  "$probe" "$@" >"$tmp/out" 2>"$tmp/err"
  local got=$?
  if [[ $got -ne $want ]]; then
    why="exit $got, wanted $want"
  elif [[ -n $pattern ]] && ! cat "$tmp/out" "$tmp/err" | grep -qE -- "$pattern"; then
    why="output lacks /$pattern/"
  elif [[ $want -eq 1 && -s $tmp/out ]]; then
    why="printed on stdout before the usage error"
  fi
  if [[ -n $why ]]; then
    echo "FAIL $name: $why"; cat "$tmp/out" "$tmp/err" | head -20 | sed 's/^/    /'; failed=$((failed + 1))
  else
    echo "ok   $name"; passed=$((passed + 1))
  fi
}

printf 'just some text, not media\n%.0s' {1..100} >"$tmp/text.txt"
: >"$tmp/empty.bin"
mkfifo "$tmp/fifo"
printf 'FLV\x01\x05\x00\x00\x00\x09\x00\x00\x00\x00' >"$tmp/no-tracks.flv"
# The last video chunk's header (at 73670, after "00dc") claims 64 KiB, more
# than the track's buffers hold: reading it fails with ERROR_MALFORMED.
cp "$data/avi_mjpeg_pcm8.avi" "$tmp/bad-chunk.avi"
[[ $(dd if="$tmp/bad-chunk.avi" bs=1 skip=73670 count=4 status=none) == 00dc ]] ||
  { echo "FAIL bad-chunk: the chunk is no longer at 73670"; failed=$((failed + 1)); }
printf '\x00\x00\x01\x00' | dd of="$tmp/bad-chunk.avi" bs=1 seek=73674 conv=notrunc status=none
# A directory holding a FIFO, which a batch's walk leaves out.
mkdir "$tmp/dir"
cp "$tmp/no-tracks.flv" "$tmp/dir/"
mkfifo "$tmp/dir/fifo"
flv=$data/flv_h264_aac.flv
h263=$data/flv_h263_mp3.flv

# name                  exit  pattern                                       args
expect version             0 '^zirk-probe [0-9]'                              -- --version
expect version-containers  0 '^flv: QVX'                                      -- --version
expect help-exit-codes     0 '^  5  samples were read'                        -- --help
expect no-file             1 'no FILE'                                        --
expect unknown-option      1 "unknown option '--bogus'"                       -- --bogus "$flv"
expect extract-value       1 '--extract wants N:OUT'                          -- "$flv" --extract 0
expect extract-batch       1 '--extract and --timeline take one FILE'         -- "$flv" "$h263" --extract 0:x
expect jobs-value          1 '--jobs wants a number of files'                 -- "$flv" --jobs 0
expect extract-track       1 '--extract: no track 9'                          -- "$flv" --extract 9:"$tmp/x"
expect track-negative      1 "--track wants a track number"                   -- --track -1 "$flv"
expect track-out-of-range  1 'no track 7 \(the file has 2: 0 to 1\)'          -- "$flv" --track 7
expect count-negative      1 '--count wants a number of buffers \(0 or more\)' -- "$flv" --count -1
expect container-unknown   1 "unknown --container 'x' \(asf, .*flv"           -- "$flv" --container x
expect seek-mode           1 "unknown seek mode 'sideways' \(prev, next"       -- "$flv" --seek 100:sideways
expect seek-time           1 'microseconds \(0 or more\)'                     -- "$flv" --seek -5
expect log-level           1 "unknown log level 'loud' \(debug"               -- "$flv" --log-level loud
expect cache-value         1 '--cache wants on or off'                        -- "$flv" --cache maybe
expect prop-malformed      1 'bad --prop'                                     -- "$flv" --prop novalue
expect missing             2 "cannot read '.*': No such file"                 -- "$tmp/missing"
expect not-regular         2 'is not a regular file'                          -- "$tmp/fifo"
expect not-media           3 'not a container this library recognises'        -- "$tmp/text.txt"
expect empty-file          3 'not a container'                                -- "$tmp/empty.bin"
expect json-unrecognised   3 '"sniff": null'                                  -- "$tmp/text.txt" --json
expect iso-media-hint      3 'ISO media file.*try --container mov'            -- "$data/aac_mono_44100.m4a"
expect pending-container   3 "no extractor for container type 'application/vnd.rn-realmedia"  -- "$flv" --container rm
expect no-tracks           4 'no tracks this library can read'                -- "$tmp/no-tracks.flv"
expect track-error         5 'track 0: read failed: ERROR_MALFORMED'          -- "$tmp/bad-chunk.avi" --quiet
expect track-error-json    5 '"end": "ERROR_MALFORMED"'                       -- "$tmp/bad-chunk.avi" --json --samples
expect output-unwritable   6 "--extract 0:$tmp/no/such/dir/v.h264: "           -- "$flv" --extract 0:"$tmp/no/such/dir/v.h264"
# Repeatable options take one value each and never the file.
expect track-before-file   0 '^track 0:'                                      -- --track 0 "$flv"
expect prop-before-file    0 '^tracks: 2$'                                    -- --prop some.key=1 "$flv"
expect tracks-after-file   0 '^track 1:'                                      -- "$flv" --track 0 --track 1
# --prop reaches the library: the file's H.263 track is hidden.
expect prop-sorenson-off   0 '^tracks: 1$'                        -- --prop debug.media.disableFlvSorensen=1 "$h263"
expect sorenson-default    0 'video/x-sorenson-spark'                         -- "$h263"
# A track's format is what its source reports (the AVI source adds '263A').
expect source-format       0 '\[263A\]'                                       -- "$data/avi_h263_alaw.avi"
expect text-samples        0 '^  end: end of stream after 50 samples$'        -- "$flv" --samples --track 0
expect seek-implies-read   0 '^ +0 time_us=1000000 size=[0-9]+ sync=1'        -- "$flv" --seek 1000000:prev --track 0 --count 1
expect count-json          0 '"end": "COUNT_REACHED"'                         -- "$flv" --json --count 3
expect json-end-of-stream  0 '"end": "ERROR_END_OF_STREAM"'                   -- "$flv" --samples --json
expect forced-container    0 '"sniff": null'                                  -- "$flv" --container FLV --json
# Several paths or a directory make a batch: 0 when every file was probed, 7 otherwise.
expect batch-all-ok        0 '^== 2 files: 2 probed, 0 not recognised'       -- "$flv" "$h263"
expect batch-some-failed   7 '^  .*text.txt$'                                 -- "$flv" "$tmp/text.txt"
expect batch-directory     7 '^== 1 file: 0 probed, 0 not recognised, 1 failed' -- "$tmp/dir" --jobs 1
expect cache-off-quiet     0 '^samples=[0-9]+ bytes=[0-9]+ seconds='          -- "$flv" --cache off --quiet
# The plain file source reads what the caching one reads.
if cmp -s <("$probe" "$flv" --samples --json --cache off) <("$probe" "$flv" --samples --json); then
  echo "ok   cache-off-same-samples"; passed=$((passed + 1))
else
  echo "FAIL cache-off-same-samples"; failed=$((failed + 1))
fi

echo "$passed passed, $failed failed"
[[ $failed -eq 0 ]]
