#!/usr/bin/env python3
"""Cross-checks `zirk-probe --samples --json` against ffprobe's packet lists.

For each file given, the video track (and, for FLV, the audio track) must
carry the same number of samples, the same sizes, the same times (ffprobe's
decode times) and the same key flags as `<file>.packets.csv`, except for the
one difference the FLV format explains: an H.264 end-of-sequence tag (an empty
key frame) carries the time of the last frame, so it takes that frame's place.
AVI audio is re-framed by the splitters and is checked by the unit tests;
AVI buffers carry no key-frame flag, so only FLV key flags are compared.

MOV/MP4 tracks read a sample at a time (video, AAC) carry composition times:
edit lists are not applied, so each track may sit one constant offset away
from ffprobe's pts; sizes and key flags must match. PCM and ADPCM are
re-framed and decoded to 16-bit PCM: their byte total must equal ffprobe's
sample count (the packets' durations) x 2 x channels. MP3 gives one buffer
per MPEG audio frame: count and byte total must match.

ASF files are read with the Windows Media property set (their WMV/WMA streams
are hidden otherwise); every object's size and time must match (one constant
offset per track for the preroll); their buffers carry a sync flag only after
a seek, so flags are not compared. Their title, author and album must be
ffprobe's (`<file>.format.txt`).

Usage: probe_crosscheck.py PROBE FILE...
Prints one line per track and 'N passed, N failed'.
"""
import csv
import json
import os
import subprocess
import sys


def ffprobe_packets(path):
    rows = {}
    with open(path + ".packets.csv") as f:
        header = f.readline().lstrip("#").strip().split(",")
        for row in csv.DictReader(f, fieldnames=header):
            rows.setdefault(row["codec_type"], []).append(row)
    return rows


def us(t):
    return round(float(t) * 1e6)


def check_track(name, kind, samples, packets, is_flv):
    problems = []
    if is_flv and kind == "video" and samples and samples[-1]["size"] == 0 and samples[-1]["sync"] == 1:
        # The end-of-sequence tag replaced the frame of the same time.
        if packets and us(packets[-1]["dts_time"]) == samples[-1]["time_us"]:
            samples, packets = samples[:-1], packets[:-1]
    if len(samples) != len(packets):
        problems.append("%d samples, ffprobe has %d" % (len(samples), len(packets)))
    for i, (s, p) in enumerate(zip(samples, packets)):
        if s["size"] != int(p["size"]):
            problems.append("sample %d: size %d, ffprobe %s" % (i, s["size"], p["size"]))
        t = p["dts_time"] if p["dts_time"] != "N/A" else p["pts_time"]
        if abs(s["time_us"] - us(t)) > 1:
            problems.append("sample %d: time %d us, ffprobe %s s" % (i, s["time_us"], t))
        if is_flv and kind == "video" and bool(s["sync"]) != p["flags"].startswith("K"):
            problems.append("sample %d: sync %d, ffprobe flags %s" % (i, s["sync"], p["flags"]))
        if len(problems) > 5:
            break
    print("%s %s %s: %d samples%s" % ("ok  " if not problems else "FAIL", name, kind, len(samples),
                                      "" if not problems else "\n    " + "\n    ".join(problems[:6])))
    return not problems


MOV_EXTENSIONS = (".mov", ".mp4", ".m4a", ".3gp")  # a "fragmented" file is played as far as moov indexes


def check_mov_track(name, track, packets, compare_sync=True, whole_objects=False):
    kind = "video" if track["meta"]["mime"].startswith("video/") else "audio"
    mime, samples, problems = track["meta"]["mime"], track["samples"], []
    total = sum(s["size"] for s in samples)
    if whole_objects:
        pass
    elif mime == "audio/raw":
        frames = round(sum(float(p["duration_time"]) for p in packets) * track["meta"]["srte"])
        want = frames * 2 * track["meta"]["#chn"]
        if total != want:
            problems.append("%d bytes, ffprobe's %d samples make %d" % (total, frames, want))
    elif mime == "audio/mpeg":
        if len(samples) != len(packets) or total != sum(int(p["size"]) for p in packets):
            problems.append("%d buffers of %d bytes, ffprobe %d packets" % (len(samples), total, len(packets)))
    if whole_objects or mime not in ("audio/raw", "audio/mpeg"):
        if len(samples) != len(packets):
            problems.append("%d samples, ffprobe has %d" % (len(samples), len(packets)))
        for p in packets:
            if p["pts_time"] == "N/A":
                p["pts_time"] = p["dts_time"]
        offset = samples[0]["time_us"] - us(packets[0]["pts_time"]) if samples and packets else 0
        for i, (s, p) in enumerate(zip(samples, packets)):
            if s["size"] != int(p["size"]):
                problems.append("sample %d: size %d, ffprobe %s" % (i, s["size"], p["size"]))
            if abs(s["time_us"] - us(p["pts_time"]) - offset) > 1:
                problems.append("sample %d: time %d us, ffprobe pts %s s + %d us" % (i, s["time_us"], p["pts_time"], offset))
            if compare_sync and bool(s["sync"]) != p["flags"].startswith("K"):
                problems.append("sample %d: sync %d, ffprobe flags %s" % (i, s["sync"], p["flags"]))
            if len(problems) > 5:
                break
    print("%s %s %s (%s): %d buffers%s" % ("ok  " if not problems else "FAIL", name, kind, mime, len(samples),
                                          "" if not problems else "\n    " + "\n    ".join(problems[:6])))
    return not problems


ASF_TAGS = {"title": "titl", "artist": "arti", "album": "albu"}  # ffprobe's tag -> the file's metadata key


def check_asf_tags(path, meta):
    want = {}
    if os.path.exists(path + ".format.txt"):
        for line in open(path + ".format.txt"):
            key, _, value = line.strip().partition("=")
            if key.split(".")[-1] in ASF_TAGS:
                want[ASF_TAGS[key.split(".")[-1]]] = json.loads(value)
    got = {k: meta[k] for k in ASF_TAGS.values() if k in meta}
    ok = want == got
    print("%s %s metadata: %s%s" % ("ok  " if ok else "FAIL", os.path.basename(path), got, "" if ok else ", ffprobe %s" % want))
    return ok


def main():
    probe, files = sys.argv[1], sys.argv[2:]
    passed = failed = 0
    for path in files:
        is_mov = path.endswith(MOV_EXTENSIONS)
        is_asf = path.endswith((".asf", ".wma"))
        # ISO files are not claimed by the sniffer: they open by container type.
        args = [probe, "--samples", "--json"] + (["--container", "mov"] if is_mov else [])
        args += ["--prop", "media.tamelordecode.supportwmva=1"] if is_asf else []
        args.append(path)
        out = subprocess.run(args, stdout=subprocess.PIPE, check=True).stdout
        doc = json.loads(out)
        packets = ffprobe_packets(path)
        is_flv = path.endswith(".flv")
        if is_asf:
            ok = check_asf_tags(path, doc["meta"])
            passed, failed = passed + ok, failed + (not ok)
        for track in doc["tracks"]:
            mime = track["meta"]["mime"]
            kind = "video" if mime.startswith("video/") else "audio"
            if is_mov or is_asf:
                if track["end"] != "ERROR_END_OF_STREAM":
                    print("FAIL %s %s: reading ended with %s" % (os.path.basename(path), kind, track["end"]))
                    failed += 1
                    continue
                expected = packets.get(kind, [])
                if "fragmented" in path and track["samples"]:
                    # moov indexes the first fragment only; the rest is not played.
                    expected = expected[:len(track["samples"])]
                ok = check_mov_track(os.path.basename(path), track, expected, compare_sync=not is_asf,
                                     whole_objects=is_asf)
                passed, failed = passed + ok, failed + (not ok)
                continue
            if kind == "audio" and not is_flv:
                continue
            if track["end"] != "ERROR_END_OF_STREAM":
                print("FAIL %s %s: reading ended with %s" % (os.path.basename(path), kind, track["end"]))
                failed += 1
                continue
            ok = check_track(os.path.basename(path), kind, track["samples"], packets.get(kind, []), is_flv)
            passed, failed = passed + ok, failed + (not ok)
    print("%d passed, %d failed" % (passed, failed))
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
