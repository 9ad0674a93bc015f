#!/usr/bin/env python3
"""zirk-probe --timeline over every container file of testdata/, copies cut
in half (named with markup characters) and FLV copies with extreme tag times
or every time 0: the SVG is well-formed, has one panel per track titled with
its MIME type, every coordinate is a finite number on the page, a track with
key frames shows seek points and each lands on a key-frame bar; rsvg-convert
(when installed) renders it. An output that cannot be created gives exit 6.

Usage: probe_timeline_test.py PROBE TESTDATA_DIR
"""
import glob
import json
import math
import os
import re
import shutil
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as ET

SVG = "{http://www.w3.org/2000/svg}"
WMV = ["--prop", "media.tamelordecode.supportwmva=1"]
MP4 = ["--container", "mp4"]  # ISO files are not claimed by the sniffer
OPTIONS = {".flv": [], ".avi": [], ".asf": WMV, ".mov": MP4, ".mp4": MP4, ".m4a": MP4, ".3gp": MP4}
CUT_FILES = ["mp4_h264_faststart.mp4", "asf_wmv2_wmav2.asf"]  # also probed cut in half
NUMBER_ATTRS = ("x", "y", "width", "height", "x1", "y1", "x2", "y2")


def retimed_flv(src, path, stamp):
    """A copy of an FLV file with tag k's time set to stamp(k) (4 bytes as stored) when that is not None."""
    with open(src, "rb") as f:
        data = bytearray(f.read())
    pos, k = 13, 0  # the first tag follows the header and a previous-tag size
    while pos + 11 <= len(data):
        if stamp(k) is not None:
            data[pos + 4:pos + 8] = stamp(k)
        pos, k = pos + 15 + int.from_bytes(data[pos + 1:pos + 4], "big"), k + 1
    with open(path, "wb") as f:
        f.write(data)
    return path


def coordinates_ok(root, width, height):
    """Every drawn coordinate is a finite number on the page."""
    for e in root.iter():
        values = [e.get(a) for a in NUMBER_ATTRS if e.get(a) is not None]
        values += re.split(r"[ ,]+", e.get("points", "").strip()) if e.get("points") else []
        for v in values:
            f = float(v)
            if not math.isfinite(f) or f < -1 or f > max(width, height) + 1:
                return "%s has %s" % (e.tag, v)
    return None


def check_panel(g, track):
    bars = [r for r in g.iter(SVG + "rect") if "bar" in r.get("class", "").split()]
    keys = [(float(r.get("x")), float(r.get("x")) + float(r.get("width"))) for r in bars if "key" in r.get("class")]
    seeks = [float(l.get("x1")) for l in g.iter(SVG + "line") if l.get("class") == "seek"]
    title = g.find(SVG + "text").text
    if track["meta"]["mime"] not in title:
        return "title %r lacks %s" % (title, track["meta"]["mime"])
    if track["sample_count"] and not 0 < len(bars) <= 1000:
        return "%d bars for %d samples" % (len(bars), track["sample_count"])
    if keys and not seeks:
        return "key frames but no seek point"
    for x in seeks if keys else []:
        if not any(lo - 1.1 <= x <= hi + 1.1 for lo, hi in keys):  # bars stand 1 px apart
            return "seek point at x=%.1f is on no key-frame bar" % x
    return None


def check_file(probe, path, options, out_dir, expect_codes=(0,)):
    svg = os.path.join(out_dir, os.path.basename(path) + ".svg")
    run = subprocess.run([probe, "--json", "--timeline", svg] + options + [path], stdout=subprocess.PIPE,
                         stderr=subprocess.PIPE, timeout=20)
    if run.returncode not in expect_codes:
        return "exit %d: %s" % (run.returncode, run.stderr.decode(errors="replace").strip())
    tracks = json.loads(run.stdout)["tracks"]
    try:
        root = ET.parse(svg).getroot()
    except ET.ParseError as e:
        return "not well-formed: %s" % e
    panels = [g for g in root.iter(SVG + "g") if g.get("class") == "track"]
    if [g.get("id") for g in panels] != ["track-%d" % t["index"] for t in tracks]:
        return "panels %s for %d tracks" % ([g.get("id") for g in panels], len(tracks))
    problem = coordinates_ok(root, float(root.get("width")), float(root.get("height")))
    for g, track in zip(panels, tracks):
        problem = problem or check_panel(g, track)
    if problem is None and shutil.which("rsvg-convert"):
        png = subprocess.run(["rsvg-convert", svg], stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=20)
        if png.returncode != 0 or not png.stdout.startswith(b"\x89PNG"):
            problem = "rsvg-convert: %s" % png.stderr.decode(errors="replace").strip()
    return problem


def main():
    probe, testdata = sys.argv[1], sys.argv[2]
    out_dir = tempfile.mkdtemp(prefix="timeline-")
    cases = [(p, OPTIONS[os.path.splitext(p)[1]], (0,)) for p in sorted(glob.glob(os.path.join(testdata, "*")))
             if os.path.splitext(p)[1] in OPTIONS]
    for name in CUT_FILES:  # named with markup characters, which the title shows escaped
        cut = os.path.join(out_dir, "cut<&>" + name)
        with open(os.path.join(testdata, name), "rb") as f:
            data = f.read()
        with open(cut, "wb") as f:
            f.write(data[:len(data) // 2])
        cases.append((cut, OPTIONS[os.path.splitext(name)[1]], (0, 5)))  # a cut track may end in an error
    flv = os.path.join(testdata, "flv_h264_aac.flv")
    extremes = {3: b"\xff\xff\xff\xff", 4: b"\x00\x00\x00\x80"}  # -1 ms, 2^31 ms
    cases.append((retimed_flv(flv, os.path.join(out_dir, "extreme.flv"), lambda k: extremes.get(k % 7)), [], (0, 5)))
    cases.append((retimed_flv(flv, os.path.join(out_dir, "one_instant.flv"), lambda k: bytes(4)), [], (0, 5)))
    failed = 0
    for path, options, codes in cases:
        problem = check_file(probe, path, options, out_dir, codes)
        print("%s %s%s" % ("FAIL" if problem else "ok  ", os.path.basename(path), ": " + problem if problem else ""))
        failed += problem is not None
    for target in (os.path.join(out_dir, "no-such-dir", "x.svg"), out_dir):
        code = subprocess.run([probe, "--timeline", target, os.path.join(testdata, "flv_h264_aac.flv")],
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL).returncode
        print("%s unwritable %s: exit %d" % ("ok  " if code == 6 else "FAIL", target, code))
        failed += code != 6
    shutil.rmtree(out_dir)
    print("%d cases, %d failed" % (len(cases) + 2, failed))
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
