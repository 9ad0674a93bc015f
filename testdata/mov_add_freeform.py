#!/usr/bin/env python3
"""Add an iTunes free-form metadata item to an MP4/M4A file.

Usage: mov_add_freeform.py IN OUT MEAN NAME TEXT

Copies IN to OUT with one extra item appended at the end of
moov/udta/meta/ilst:

    '----'
      'mean'  4 bytes version/flags (0), then MEAN (UTF-8, no terminator)
      'name'  4 bytes version/flags (0), then NAME
      'data'  4-byte type indicator 1 (UTF-8 text), 4-byte locale 0, then TEXT

The sizes of every enclosing box (ilst, meta, udta, moov) grow by the item's
length. If moov lies before the first mdat, the sample data moves by the same
amount, so every stco/co64 chunk offset inside moov is shifted too.
32-bit and 64-bit (size 1 + largesize) box headers are both handled; a box
whose size field would overflow 32 bits is an error.
"""
import struct
import sys

CONTAINERS = {b"moov", b"trak", b"mdia", b"minf", b"stbl", b"udta", b"edts", b"dinf"}


def boxes(buf, start, end):
    """Yields (offset, header_size, total_size, type) for the boxes in buf[start:end]."""
    off = start
    while off + 8 <= end:
        size, typ = struct.unpack(">I4s", buf[off:off + 8])
        hdr = 8
        if size == 1:
            size = struct.unpack(">Q", buf[off + 8:off + 16])[0]
            hdr = 16
        elif size == 0:
            size = end - off
        if size < hdr or off + size > end:
            raise SystemExit("bad box %r at %d" % (typ, off))
        yield off, hdr, size, typ
        off += size


def find(buf, start, end, typ):
    for b in boxes(buf, start, end):
        if b[3] == typ:
            return b
    raise SystemExit("no %r box in [%d, %d)" % (typ, start, end))


def grow(buf, box, delta):
    off, hdr, size, typ = box
    if hdr == 16:
        struct.pack_into(">Q", buf, off + 8, size + delta)
    else:
        if size + delta > 0xFFFFFFFF:
            raise SystemExit("%r box too large" % typ)
        struct.pack_into(">I", buf, off, size + delta)


def leaf(typ, payload):
    return struct.pack(">I4s", 8 + len(payload), typ) + payload


def shift_chunk_offsets(buf, start, end, delta):
    n = 0
    for off, hdr, size, typ in boxes(buf, start, end):
        body = off + hdr
        if typ in CONTAINERS:
            n += shift_chunk_offsets(buf, body, off + size, delta)
        elif typ in (b"stco", b"co64"):
            count = struct.unpack(">I", buf[body + 4:body + 8])[0]
            fmt, width = (">I", 4) if typ == b"stco" else (">Q", 8)
            for i in range(count):
                p = body + 8 + i * width
                v = struct.unpack(fmt, buf[p:p + width])[0] + delta
                if typ == b"stco" and v > 0xFFFFFFFF:
                    raise SystemExit("stco offset overflow")
                struct.pack_into(fmt, buf, p, v)
            n += count
    return n


def main():
    if len(sys.argv) != 6:
        raise SystemExit(__doc__)
    src, dst, mean, name, text = sys.argv[1:]
    buf = bytearray(open(src, "rb").read())

    item = leaf(b"----",
                leaf(b"mean", b"\0\0\0\0" + mean.encode()) +
                leaf(b"name", b"\0\0\0\0" + name.encode()) +
                leaf(b"data", struct.pack(">II", 1, 0) + text.encode()))
    delta = len(item)

    top = list(boxes(buf, 0, len(buf)))
    moov = next((b for b in top if b[3] == b"moov"), None)
    if moov is None:
        raise SystemExit("no moov box")
    mdats = [b[0] for b in top if b[3] == b"mdat"]
    moov_first = bool(mdats) and moov[0] < min(mdats)

    udta = find(buf, moov[0] + moov[1], moov[0] + moov[2], b"udta")
    meta = find(buf, udta[0] + udta[1], udta[0] + udta[2], b"meta")
    # meta is a full box: 4 bytes version/flags before its children
    ilst = find(buf, meta[0] + meta[1] + 4, meta[0] + meta[2], b"ilst")

    if moov_first:
        n = shift_chunk_offsets(buf, moov[0] + moov[1], moov[0] + moov[2], delta)
        print("%s: moov before mdat, shifted %d chunk offsets by %d" % (dst, n, delta))
    for b in (ilst, meta, udta, moov):
        grow(buf, b, delta)
    end_of_ilst = ilst[0] + ilst[2]
    buf[end_of_ilst:end_of_ilst] = item
    with open(dst, "wb") as f:
        f.write(buf)


if __name__ == "__main__":
    main()
