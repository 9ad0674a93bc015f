#!/usr/bin/env bash
# zirk-probe batches: every JSON line is the document a single run prints for
# that file, in the order the files are found; a fatal check in one file is
# reported with its message and the rest go on; --ext filters; a link back up
# the tree is walked once. Usage: probe_batch_test.sh PROBE TESTDATA_DIR
set -uo pipefail
probe=$1
data=$2
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT
passed=0
failed=0
check() {  # NAME CONDITION-EXIT-STATUS [DETAIL]
  if [[ $2 -eq 0 ]]; then echo "ok   $1"; passed=$((passed + 1)); else echo "FAIL $1 ${3:-}"; failed=$((failed + 1)); fi
}

# Each batch line against a single run of its file with the same options
# (key order included); a line without a document needs a single run without one.
same_as_single() {  # BATCH_OUTPUT OPTIONS...
  local out=$1
  shift
  python3 - "$out" "$probe" "$@" <<'EOF'
import json, subprocess, sys
out, probe, opts = sys.argv[1], sys.argv[2], sys.argv[3:]
keep = lambda pairs: pairs
bad = 0
for line in open(out):
    got = json.loads(line, object_pairs_hook=keep)
    name = dict(got)["file"]
    single = subprocess.run([probe, *opts, name], capture_output=True, text=True).stdout
    want = json.loads(single, object_pairs_hook=keep) if single else None
    if (want is None and "error" not in dict(got)) or (want is not None and got != want):
        print("  differs:", name); bad += 1
sys.exit(1 if bad else 0)
EOF
}

# 1. testdata/ as JSON Lines, samples listed: one line per file in byte order,
#    each the single run's document; unrecognised files (ISO MP4 without
#    --container, the CSV lists) make the exit 7.
wm=(--prop media.tamelordecode.supportwmva=1)
opts=(--json --samples "${wm[@]}")
"$probe" "$data" --jobs 2 "${opts[@]}" >"$tmp/all.jsonl" 2>"$tmp/all.err"
check testdata-exit $(($? != 7))
python3 -c 'import json,sys; print("\n".join(json.loads(l)["file"] for l in open(sys.argv[1])))' "$tmp/all.jsonl" \
  >"$tmp/order"
cmp -s "$tmp/order" <(find "$data" -type f | LC_ALL=C sort)
check testdata-every-file-in-order $?
same_as_single "$tmp/all.jsonl" "${opts[@]}"
check testdata-same-as-single $?

# 2. A file that hits a fatal check (an FLV whose only video frame is not a
#    key frame) among good ones: its message is reported, the rest are probed.
mkdir -p "$tmp/mix/sub"
python3 -c 'import sys; sys.stdout.buffer.write(b"FLV\1\1\0\0\0\x09\0\0\0\0" +
  b"\x09\0\0\x0a" + bytes(7) + b"\x22" + bytes(9) + b"\0\0\0\x15")' >"$tmp/mix/fatal.flv"
cp "$data/flv_h264_aac.flv" "$tmp/mix/a.flv"
cp "$data/avi_xvid_mp3.avi" "$tmp/mix/sub/B.AVI"
cp "$data/asf_wmv2_wmav2.asf" "$tmp/mix/sub/c.asf"
echo 'not media' >"$tmp/mix/sub/notes.txt"
ln -s .. "$tmp/mix/sub/up"
"$probe" "$tmp/mix" --jobs 2 --json "${wm[@]}" >"$tmp/mix.jsonl" 2>/dev/null
check fatal-exit-7 $(($? != 7))
check_line='"file":"[^"]*fatal.flv","error":"F/ZIRKFLVExtractor: .*CHECK_GE( syncBufferNum,1) failed: 0 vs. 1"'
grep -q "$check_line,\"signal\":\"SIGABRT\"" "$tmp/mix.jsonl"
check fatal-message $?
[[ $(grep -c '"tracks":\[{' "$tmp/mix.jsonl") -eq 3 && $(wc -l <"$tmp/mix.jsonl") -eq 5 ]]
check fatal-others-probed $? "$(cut -c1-100 "$tmp/mix.jsonl")"
"$probe" "$tmp/mix" "${wm[@]}" >"$tmp/mix.txt" 2>/dev/null
grep -qE '^  .*fatal.flv: killed by SIGABRT: F/ZIRKFLVExtractor: .*CHECK_GE' "$tmp/mix.txt" &&
  grep -q '^ *1  video/x-flv$' "$tmp/mix.txt" && grep -q '^  .*notes.txt$' "$tmp/mix.txt"
check text-table $? "$(cat "$tmp/mix.txt")"

# 3. --ext, case-insensitive, on names found and given; no file left: exit 0.
"$probe" "$tmp/mix" "$tmp/mix/fatal.flv" --ext avi,.ASF --json "${wm[@]}" >"$tmp/ext.jsonl" 2>/dev/null
check ext-exit-0 $?
[[ $(python3 -c 'import json,sys; print(" ".join(json.loads(l)["file"].split("/")[-1] for l in open(sys.argv[1])))' \
     "$tmp/ext.jsonl") == "B.AVI c.asf" ]]
check ext-filters $? "$(cut -c1-100 "$tmp/ext.jsonl")"
"$probe" "$tmp/mix" --ext mkv >/dev/null 2>"$tmp/none.err"
check ext-none-left $(($? != 0)) "$(cat "$tmp/none.err")"

echo "$passed passed, $failed failed"
[[ $failed -eq 0 ]]
