#!/usr/bin/env python3
"""Checks `zirk-probe --extract` by decoding what it writes.

Every track of testdata/'s container files is extracted; those of a codec in
DEMUXERS must decode with ffmpeg without a word on stderr, audio at the
track's sample rate and channel count, into as many frames as the track gave
samples (empty H.264 samples, end-of-sequence markers, make no frame) or, for
PCM, into as many audio samples as its bytes hold. Then --seek/--count
pieces, and outputs that cannot be written (exit 6).

Usage: probe_extract_test.py PROBE TESTDATA_DIR     (exits 77 without ffmpeg)
"""
import concurrent.futures
import json
import os
import shutil
import subprocess
import sys
import tempfile

DEMUXERS = {"video/avc": "h264", "video/mp4v-es": "m4v", "video/mpeg2": "mpegvideo", "video/3gpp": "h263",
            "audio/mp4a-latm": "aac", "audio/mpeg": "mp3", "audio/mpeg-L2": "mp3", "audio/ac3": "ac3",
            "audio/raw": "wav"}
CONTAINERS = {".flv": [], ".avi": [], ".asf": ["--prop", "media.tamelordecode.supportwmva=1"],
              ".mov": ["--container", "mp4"], ".mp4": ["--container", "mp4"], ".m4a": ["--container", "mp4"],
              ".3gp": ["--container", "mp4"]}
# (file, extra options): every container file whole, then pieces.
PIECES = [("flv_h264_aac.flv", ["--seek", "1000000", "--count", "10"]),
          ("mov_h264_aac.mov", ["--seek", "700000:closest", "--count", "7"]),
          ("avi_h264_ac3.avi", ["--seek", "500000", "--count", "12"])]
# (output, what stderr must say): each makes the probe exit 6.
UNWRITABLE = [("/nonexistent-dir/out.h264", "No such file or directory"),
              ("/dev/full", "No space left on device")]


def run(args):
    return subprocess.run(args, stdout=subprocess.PIPE, stderr=subprocess.PIPE, universal_newlines=True)


def decode(path, demuxer):
    """ffmpeg's complaints, the decoded frames' sample counts (None for video) and the stream's audio layout."""
    errors = run(["ffmpeg", "-nostdin", "-v", "error", "-f", demuxer, "-i", path, "-f", "null", "-"]).stderr
    probe = run(["ffprobe", "-v", "error", "-f", demuxer, "-show_entries",
                 "frame=nb_samples:stream=sample_rate,channels", "-of", "json", path])
    doc = json.loads(probe.stdout or "{}")
    frames = [f.get("nb_samples") for f in doc.get("frames", [])]
    stream = (doc.get("streams") or [{}])[0]
    return (errors + probe.stderr).strip(), frames, (int(stream.get("sample_rate", 0)), stream.get("channels"))


def check_file(probe, testdata, out_dir, name, extra):
    container = CONTAINERS[os.path.splitext(name)[1]]
    listing = json.loads(run([probe, "--json"] + container + [os.path.join(testdata, name)]).stdout)
    args = [probe, "--samples", "--json"] + container + extra
    outs = {t["index"]: os.path.join(out_dir, "%s.%d.%d" % (name, len(extra), t["index"]))
            for t in listing["tracks"]}
    for index, out in outs.items():
        args += ["--extract", "%d:%s" % (index, out)]
    result = run(args + [os.path.join(testdata, name)])
    if result.returncode != 0:
        return ["FAIL %s %s: exit %d: %s" % (name, extra, result.returncode, result.stderr.strip())]
    lines = []
    for track in json.loads(result.stdout)["tracks"]:
        meta, samples = track["meta"], track["samples"]
        demuxer = DEMUXERS.get(meta["mime"])
        if demuxer is None:
            continue
        errors, frames, layout = decode(outs[track["index"]], demuxer)
        if "srte" in meta and layout != (meta["srte"], meta["#chn"]):
            errors += "\ndecoded as %d Hz, %s channels" % layout
        if meta["mime"] == "audio/raw":
            got, want, unit = sum(frames), sum(s["size"] for s in samples) // (2 * meta["#chn"]), "audio samples"
        else:
            got, want, unit = len(frames), sum(1 for s in samples if s["size"] > 0), "frames"
        errors = errors.strip()
        ok = not errors and got == want
        lines.append("%s %s %s track %d (%s): %d %s, want %d%s" % (
            "ok  " if ok else "FAIL", name, " ".join(extra), track["index"], meta["mime"], got, unit, want,
            "" if not errors else "\n    " + "\n    ".join(errors.splitlines()[-6:])))
    return lines


def check_unwritable(probe, testdata, out, message):
    result = run([probe, "--quiet", "--extract", "0:" + out, os.path.join(testdata, "flv_h264_aac.flv")])
    ok = result.returncode == 6 and message in result.stderr
    return ["%s unwritable %s: exit %d, %s" % ("ok  " if ok else "FAIL", out, result.returncode,
                                                result.stderr.strip())]


def main():
    probe, testdata = sys.argv[1], sys.argv[2]
    if not shutil.which("ffmpeg") or not shutil.which("ffprobe"):
        print("ffmpeg/ffprobe not installed: skipped")
        return 77
    rows = [(n, []) for n in sorted(os.listdir(testdata)) if os.path.splitext(n)[1] in CONTAINERS] + PIECES
    with tempfile.TemporaryDirectory() as out_dir, concurrent.futures.ThreadPoolExecutor(4) as pool:
        jobs = [pool.submit(check_file, probe, testdata, out_dir, n, extra) for n, extra in rows]
        jobs += [pool.submit(check_unwritable, probe, testdata, out, msg) for out, msg in UNWRITABLE]
        lines = [line for job in jobs for line in job.result()]
    print("\n".join(lines))
    failed = sum(1 for line in lines if line.startswith("FAIL"))
    print("%d passed, %d failed" % (len(lines) - failed, failed))
    return 1 if failed or len(lines) < 20 else 0


if __name__ == "__main__":
    sys.exit(main())
