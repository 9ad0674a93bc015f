#!/usr/bin/env python3
"""Copy an FLV file, dropping every script-data tag (tag type 18, e.g. onMetaData).

Usage: strip_flv_script.py IN.flv OUT.flv

FLV layout: 9+ byte file header (whose last 4 bytes give the header size),
then PreviousTagSize0 (uint32 BE, = 0), then repeated
  [tag header (11 bytes) | tag data | PreviousTagSize (uint32 BE)].
A dropped tag is removed together with its trailing PreviousTagSize, so
each remaining PreviousTagSize still describes the tag directly before it.
PreviousTagSize values are recomputed (11 + data size) for every kept tag.
"""
import struct
import sys


def strip(data: bytes) -> bytes:
    if data[:3] != b"FLV":
        raise SystemExit("not an FLV file")
    header_size = struct.unpack(">I", data[5:9])[0]
    out = bytearray(data[:header_size])
    pos = header_size
    out += data[pos:pos + 4]          # PreviousTagSize0
    pos += 4
    dropped = kept = 0
    while pos + 11 <= len(data):
        tag_type = data[pos] & 0x1F   # low 5 bits; bit 5 is the "filter" flag
        data_size = int.from_bytes(data[pos + 1:pos + 4], "big")
        end = pos + 11 + data_size
        if end + 4 > len(data):
            raise SystemExit("truncated tag at offset %d" % pos)
        if tag_type == 18:
            dropped += 1
        else:
            kept += 1
            out += data[pos:end]
            out += struct.pack(">I", 11 + data_size)
        pos = end + 4
    if pos != len(data):
        raise SystemExit("%d trailing bytes at offset %d" % (len(data) - pos, pos))
    sys.stderr.write("strip_flv_script: kept %d tags, dropped %d script tags\n"
                     % (kept, dropped))
    return bytes(out)


def main() -> None:
    if len(sys.argv) != 3:
        raise SystemExit(__doc__)
    with open(sys.argv[1], "rb") as f:
        data = f.read()
    with open(sys.argv[2], "wb") as f:
        f.write(strip(data))


if __name__ == "__main__":
    main()
