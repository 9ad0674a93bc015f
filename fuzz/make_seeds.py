#!/usr/bin/env python3
"""Writes small synthetic AVI seeds that start the fuzzer inside paths the real
files in testdata/ do not reach: MPEG-4 video without an ES descriptor whose
configuration (the bytes before the first VOP) has a length at which the
descriptor's length fields change width, and IMA/MS ADPCM with block aligns
that are not whole 4-byte groups per channel or hold headers alone.

Usage: fuzz/make_seeds.py   (rewrites fuzz/seeds/avi/)
"""
import os
import struct

OUT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "seeds", "avi")


def chunk(cid, data):
    pad = b"\0" if len(data) & 1 else b""
    return cid + struct.pack("<I", len(data)) + data + pad


def lst(kind, children, cid=b"LIST"):
    return chunk(cid, kind + b"".join(children))


def strh(kind, handler, scale, rate, sample_size=0):
    return kind + handler + struct.pack("<IHHIIIIIIII", 0, 0, 0, 0, scale, rate, 0, 0, 0, 0, sample_size) + b"\0" * 8


def avi(streams, samples):
    """streams: [(strh, strf, suffix)]; samples: [(stream, data, key)]"""
    hdrl = lst(b"hdrl", [chunk(b"avih", b"\0" * 56)] +
               [lst(b"strl", [chunk(b"strh", h), chunk(b"strf", f)]) for h, f, _ in streams])
    movi, idx, pos = [], [], 4
    for s, data, key in samples:
        cid = b"%02d" % s + streams[s][2]
        movi.append(chunk(cid, data))
        idx.append(cid + struct.pack("<III", 0x10 if key else 0, pos, len(data)))
        pos += 8 + len(data) + (len(data) & 1)
    return lst(b"AVI ", [hdrl, lst(b"movi", movi), chunk(b"idx1", b"".join(idx))], b"RIFF")


def mpeg4(config_len):
    bmi = struct.pack("<IiiHH4sIiiII", 40, 64, 48, 1, 24, b"XVID", 0, 0, 0, 0, 0)
    config = (b"\0\0\x01\xb0\x01\0\0\x01\xb5" + bytes(range(256)) * 80)[:config_len]
    frame = config + b"\0\0\x01\xb6\x10\x20\x30"
    return avi([(strh(b"vids", b"XVID", 1, 25), bmi, b"dc")],
               [(0, frame, True), (0, b"\0\0\x01\xb6\x50\x60", False)])


def adpcm(tag, channels, align, rate=8000):
    spb = channels + (align - 4 * channels) * 2 if tag == 0x11 else (align - 6 * channels) * 2
    per_channel = max(spb // channels, 1)
    wfx = struct.pack("<HHIIHHHH", tag, channels, rate, rate * align // per_channel, align, 4, 2, per_channel)
    data = bytes((i * 37 + 11) & 0xFF for i in range(align * 3))
    return avi([(strh(b"auds", b"\0\0\0\0", per_channel, rate, align), wfx, b"wb")],
               [(0, data[:align * 2], True), (0, data[align * 2:], True)])


def main():
    os.makedirs(OUT, exist_ok=True)
    seeds = {"mpeg4-config-%d" % n: mpeg4(n) for n in (107, 108, 110, 125, 16362)}
    seeds.update({
        "ima-stereo-align-2044": adpcm(0x11, 2, 2044),
        "ima-stereo-align-8": adpcm(0x11, 2, 8),
        "ima-mono-align-4": adpcm(0x11, 1, 4),
        "msadpcm-mono-align-1024": adpcm(0x02, 1, 1024),
    })
    for name, data in seeds.items():
        with open(os.path.join(OUT, name + ".avi"), "wb") as f:
            f.write(data)


if __name__ == "__main__":
    main()
