#!/usr/bin/env python3
"""Dump the legacy 'idx1' index of an AVI file as CSV (independent of ffprobe).

Usage: avi_idx1_dump.py IN.avi > OUT.csv
Columns:
  n          entry number (0-based, in idx1 order)
  ckid       chunk id, e.g. 00dc / 01wb
  flags      dwFlags as hex (0x10 = AVIIF_KEYFRAME)
  key        1 if flags & 0x10
  idx_offset offset as stored in idx1 (ffmpeg: relative to the 'movi' fourcc)
  file_offset absolute offset of the chunk header ('00dc' etc.) in the file
  size       chunk payload size (0-size chunks are listed too)
"""
import struct
import sys


def main() -> None:
    d = open(sys.argv[1], "rb").read()
    if d[:4] != b"RIFF" or d[8:12] != b"AVI ":
        raise SystemExit("not an AVI file")
    movi = idx1 = None
    p, end = 12, 8 + struct.unpack("<I", d[4:8])[0]
    while p + 8 <= end:
        fcc = d[p:p + 4]
        n = struct.unpack("<I", d[p + 4:p + 8])[0]
        if fcc == b"LIST" and d[p + 8:p + 12] == b"movi":
            movi = p + 8                  # position of the 'movi' fourcc
        elif fcc == b"idx1":
            idx1 = (p + 8, n)
        p += 8 + n + (n & 1)
    if movi is None or idx1 is None:
        raise SystemExit("no movi/idx1")
    start, n = idx1
    print("#n,ckid,flags,key,idx_offset,file_offset,size")
    for k in range(n // 16):
        ckid, flags, off, size = struct.unpack("<4sIII", d[start + 16 * k:start + 16 * k + 16])
        print("%d,%s,0x%x,%d,%d,%d,%d" % (k, ckid.decode("latin-1"), flags,
                                          1 if flags & 0x10 else 0, off, movi + off, size))


if __name__ == "__main__":
    main()
