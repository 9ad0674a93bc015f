#!/usr/bin/env python3
"""Extract the first SPS (nal_unit_type 7) and PPS (type 8) NAL units from an
Annex-B H.264 elementary stream.

Usage: extract_h264_params.py IN.h264 OUT_PREFIX
Writes OUT_PREFIX.sps.bin and OUT_PREFIX.pps.bin, each holding one NAL unit
*without* start code (first byte is the NAL header, 0x67 / 0x68 typically),
emulation-prevention bytes left in place (exactly as found in the stream).
"""
import sys


def nal_units(data: bytes):
    """Yield NAL payloads (without start codes) of an Annex-B stream."""
    starts = []
    i = 0
    n = len(data)
    while i + 3 <= n:
        if data[i] == 0 and data[i + 1] == 0 and data[i + 2] == 1:
            starts.append(i + 3)
            i += 3
        else:
            i += 1
    for k, s in enumerate(starts):
        e = starts[k + 1] - 3 if k + 1 < len(starts) else n
        # strip trailing zero bytes (belong to a 4-byte start code / padding)
        while e > s and data[e - 1] == 0:
            e -= 1
        yield data[s:e]


def main() -> None:
    if len(sys.argv) != 3:
        raise SystemExit(__doc__)
    with open(sys.argv[1], "rb") as f:
        data = f.read()
    found = {}
    for nal in nal_units(data):
        t = nal[0] & 0x1F
        if t in (7, 8) and t not in found:
            found[t] = nal
    if 7 not in found or 8 not in found:
        raise SystemExit("SPS/PPS not found in " + sys.argv[1])
    with open(sys.argv[2] + ".sps.bin", "wb") as f:
        f.write(found[7])
    with open(sys.argv[2] + ".pps.bin", "wb") as f:
        f.write(found[8])


if __name__ == "__main__":
    main()
