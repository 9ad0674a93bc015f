#!/usr/bin/env python3
"""Dump every tag of an FLV file as CSV (independent of ffprobe).

Usage: flv_tags_dump.py IN.flv > OUT.csv
Columns:
  n            tag number (0-based)
  offset       file offset of the 11-byte tag header
  type         8 audio, 9 video, 18 script
  data_size    tag payload size (DataSize field)
  timestamp    ms, including the extended (upper 8 bit) byte
  first_byte   first payload byte as hex (audio: format/rate/size/type,
               video: frame type/codec id); empty for script tags
  codec        audio SoundFormat (2 mp3, 10 aac) or video CodecID
               (2 Sorenson H.263, 7 AVC)
  frame_type   video only: 1 key, 2 inter, ...
  pkt_type     AACPacketType (0 config, 1 raw) or AVCPacketType
               (0 sequence header, 1 NALU, 2 end of sequence)
  cts          AVC composition time offset (signed 24-bit, ms)
  payload_size payload bytes after the FLV audio/video headers
               (1 byte; +1 for AAC; +4 for AVC)
"""
import struct
import sys


def main() -> None:
    d = open(sys.argv[1], "rb").read()
    if d[:3] != b"FLV":
        raise SystemExit("not an FLV file")
    p = struct.unpack(">I", d[5:9])[0] + 4
    print("#n,offset,type,data_size,timestamp,first_byte,codec,frame_type,pkt_type,cts,payload_size")
    k = 0
    while p + 11 <= len(d):
        t = d[p] & 0x1F
        n = int.from_bytes(d[p + 1:p + 4], "big")
        ts = int.from_bytes(d[p + 4:p + 7], "big") | (d[p + 7] << 24)
        b = d[p + 11:p + 11 + n]
        fb = codec = ft = pt = cts = ""
        psize = ""
        if t == 8 and n:
            fb = "0x%02x" % b[0]
            codec = b[0] >> 4
            if codec == 10:
                pt = b[1]
                psize = n - 2
            else:
                psize = n - 1
        elif t == 9 and n:
            fb = "0x%02x" % b[0]
            codec = b[0] & 0x0F
            ft = b[0] >> 4
            if codec == 7:
                pt = b[1]
                c = int.from_bytes(b[2:5], "big")
                cts = c - (1 << 24) if c & 0x800000 else c
                psize = n - 5
            else:
                psize = n - 1
        print("%d,%d,%d,%d,%d,%s,%s,%s,%s,%s,%s" % (k, p, t, n, ts, fb, codec, ft, pt, cts, psize))
        k += 1
        p += 11 + n + 4


if __name__ == "__main__":
    main()
