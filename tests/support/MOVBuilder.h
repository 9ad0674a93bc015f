// MOVBuilder: big-endian boxes for MOV/MP4 test files. box() writes a box
// with its real size or a chosen wrong one. The sample-table payloads (stco,
// co64, stsc, stts, ctts, stss, stsz, stz2) start with the version-and-flags
// word and an entry count, either of which can be made to lie. BoxFile lays
// boxes out one after another and keeps where each payload starts and how
// large it is, as the box parser hands them on.
#ifndef ZIRK_TEST_MOV_BUILDER_H_
#define ZIRK_TEST_MOV_BUILDER_H_

#include <stdint.h>
#include <zlib.h>

#include <string>
#include <vector>

#include "ByteWriter.h"

namespace android {
namespace test {
namespace mov {

inline uint32_t fourcc(const std::string& type) {
    return static_cast<uint32_t>(type.at(0)) << 24 | static_cast<uint32_t>(type.at(1)) << 16 |
           static_cast<uint32_t>(type.at(2)) << 8 | static_cast<uint32_t>(type.at(3));
}

// A box with a 32-bit size: payload + 8 unless sizeOverride >= 0.
inline Bytes box(const std::string& type, const Bytes& payload, int64_t sizeOverride = -1) {
    Bytes b;
    putBE32(&b, sizeOverride >= 0 ? static_cast<uint64_t>(sizeOverride) : payload.size() + 8);
    putFourcc(&b, type);
    return cat({b, payload});
}

// A table payload: version and flags, the entry count (fields / perEntry
// unless countOverride >= 0), then every field in `width` bytes.
inline Bytes table(const std::vector<uint64_t>& fields, size_t perEntry = 1, int width = 4,
                   int64_t countOverride = -1, uint32_t versionFlags = 0) {
    Bytes b;
    putBE32(&b, versionFlags);
    putBE32(&b, countOverride >= 0 ? static_cast<uint64_t>(countOverride) : fields.size() / perEntry);
    for (uint64_t v : fields) putBE(&b, width, {v});
    return b;
}

// stsz (a constant size lists nothing; else 32-bit fields) and stz2 with 4-,
// 8- or 16-bit fields (two 4-bit fields a byte, high first).
inline Bytes sizeTable(uint32_t word, uint32_t width, const std::vector<uint64_t>& sizes, int64_t countOverride) {
    Bytes b;
    putBE(&b, 4, {0, word, countOverride >= 0 ? static_cast<uint64_t>(countOverride) : sizes.size()});
    for (size_t i = 0; i < sizes.size() && width > 0; ++i) {
        if (width != 4) {
            putBE(&b, static_cast<int>(width / 8), {sizes[i]});
        } else if (i % 2 == 0) {
            b.push_back(static_cast<uint8_t>(sizes[i] << 4));
        } else {
            b.back() |= static_cast<uint8_t>(sizes[i] & 0x0F);
        }
    }
    return b;
}
inline Bytes stsz(uint32_t defaultSize, const std::vector<uint64_t>& sizes, int64_t countOverride = -1) {
    return sizeTable(defaultSize, defaultSize == 0 ? 32 : 0, sizes, countOverride);
}
inline Bytes stz2(uint32_t fieldSize, const std::vector<uint64_t>& sizes, int64_t countOverride = -1) {
    return sizeTable(fieldSize, fieldSize, sizes, countOverride);
}

// Where a box's payload lies in the file.
struct Payload { uint32_t type; int64_t offset; uint64_t size; };

struct BoxFile {
    Bytes bytes;  // first the lead: the sample data chunk offsets point into

    Payload add(const std::string& type, const Bytes& payload) {
        Payload p = {fourcc(type), static_cast<int64_t>(bytes.size()) + 8, payload.size()};
        append(&bytes, box(type, payload));
        return p;
    }
};

// ---- whole movies, for the box walk

// A box with a 64-bit size (header 16 bytes): payload + 16 unless overridden.
inline Bytes largeBox(const std::string& type, const Bytes& payload, int64_t sizeOverride = -1) {
    Bytes b = box(type, {}, 1);
    putBE64(&b, sizeOverride >= 0 ? static_cast<uint64_t>(sizeOverride) : payload.size() + 16);
    return cat({b, payload});
}

// A full box: the version-and-flags word, then `rest`.
inline Bytes fullBox(const std::string& type, uint8_t version, uint32_t flags, const Bytes& rest) {
    Bytes p;
    putBE32(&p, static_cast<uint64_t>(version) << 24 | (flags & 0xFFFFFF));
    append(&p, rest);
    return box(type, p);
}

struct Matrix { int32_t a, b, c, d; };
constexpr Matrix kIdentity = {0x10000, 0, 0, 0x10000};

// tkhd and mdhd of version 0; mdhd's language is "eng" in three 5-bit letters.
inline Bytes tkhd(uint32_t trackId, Matrix m) {
    Bytes r;
    putBE(&r, 4, {0, 0, trackId, 0, 1000, 0, 0, 0, 0});  // times, id, duration, layer, volume
    putBE(&r, 4, {static_cast<uint32_t>(m.a), static_cast<uint32_t>(m.b), 0, static_cast<uint32_t>(m.c),
                  static_cast<uint32_t>(m.d), 0, 0, 0, 0x40000000, 0, 0});  // the matrix, width, height
    return fullBox("tkhd", 0, 7, r);
}
inline Bytes mdhd(uint32_t timescale, uint64_t duration) {
    Bytes r;
    putBE(&r, 4, {0, 0, timescale, duration});
    putBE(&r, 2, {('e' - 0x60) << 10 | ('n' - 0x60) << 5 | ('g' - 0x60), 0});
    return fullBox("mdhd", 0, 0, r);
}

inline Bytes hdlr(const std::string& handler) {
    Bytes r(4, 0);
    putFourcc(&r, handler);
    r.resize(21, 0);  // three reserved words and an empty name
    return fullBox("hdlr", 0, 0, r);
}

// A visual sample entry of `type`, then its children.
inline Bytes visualEntry(const std::string& type, uint16_t width, uint16_t height, const Bytes& children = {}) {
    Bytes p;
    putBE(&p, 2, {0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, width, height});  // data reference 1, the size
    putBE(&p, 4, {0x00480000, 0x00480000, 0});                           // 72 dpi
    putBE16(&p, 1);                                                      // one frame a sample
    p.resize(74, 0);                                                     // no compressor name
    putBE(&p, 2, {24, 0xFFFF});                                          // depth, no color table
    append(&p, children);
    return box(type, p);
}

// A sound sample entry; `extension` follows the 28 bytes of version 0 (16
// bytes for version 1, 36 for version 2).
inline Bytes soundEntry(const std::string& type, uint16_t version, uint16_t channels, uint32_t rate,
                        const Bytes& children = {}, const Bytes& extension = {}, uint16_t compressionId = 0) {
    Bytes p;
    putBE(&p, 2, {0, 0, 0, 1, version, 0, 0, 0, channels, 16, compressionId, 0});
    putBE32(&p, static_cast<uint64_t>(rate) << 16);
    append(&p, extension);
    append(&p, children);
    return box(type, p);
}

// An esds box: ES_Descriptor, DecoderConfigDescriptor of `objectType`, and
// the decoder-specific bytes (none when `specific` is empty).
inline Bytes esds(uint8_t objectType, const Bytes& specific) {
    Bytes dsi;
    if (!specific.empty()) {
        dsi = {0x05, static_cast<uint8_t>(specific.size())};
        append(&dsi, specific);
    }
    Bytes dcd = {0x04, static_cast<uint8_t>(13 + dsi.size()), objectType, 0x15, 0, 0, 0};
    putBE(&dcd, 4, {0, 0});
    append(&dcd, dsi);
    Bytes es = {0x03, static_cast<uint8_t>(3 + dcd.size() + 3), 0, 1, 0};
    append(&es, dcd);
    append(&es, {0x06, 0x01, 0x02});
    return fullBox("esds", 0, 0, es);
}

// An stbl with `entries` in its stsd and one sample of each size, all in
// one chunk at `chunkOffset`, 1000 units each.
inline Bytes stbl(const Bytes& entries, uint32_t entryCount, const std::vector<uint64_t>& sizes = {10, 10, 10},
                  uint32_t chunkOffset = 0) {
    Bytes sd;
    putBE(&sd, 4, {0, entryCount});
    append(&sd, entries);
    const uint64_t count = sizes.size();
    return box("stbl", cat({box("stsd", sd), box("stts", table({count, 1000}, 2)),
                            box("stsc", table({1, count, 1}, 3)), box("stsz", stsz(0, sizes)),
                            box("stco", table({chunkOffset}))}));
}

// A trak: tkhd, then mdia with mdhd, hdlr and minf/stbl.
inline Bytes trak(uint32_t trackId, const std::string& handler, const Bytes& sampleTable,
                  uint32_t timescale = 1000, uint64_t duration = 3000, Matrix m = kIdentity) {
    return box("trak", cat({tkhd(trackId, m),
                            box("mdia", cat({mdhd(timescale, duration), hdlr(handler),
                                             box("minf", sampleTable)}))}));
}

const Bytes kAVCC = {1, 0x42, 0xC0, 0x1E, 0xFF, 0xE0, 0x00};

// A 160x120 AVC track of three 10-byte samples.
inline Bytes avcTrack(const Bytes& config = box("avcC", kAVCC), uint32_t id = 1, Matrix m = kIdentity) {
    return trak(id, "vide", stbl(visualEntry("avc1", 160, 120, config), 1), 1000, 3000, m);
}

// ftyp, then moov with an mvhd and the boxes given.
inline Bytes movie(const Bytes& inMoov, const Bytes& more = {}) {
    return cat({box("ftyp", Bytes(8, 'q')), box("moov", cat({fullBox("mvhd", 0, 0, Bytes(96, 0)), inMoov, more}))});
}

// An mdat of `samples`, then a movie whose one track (`handler`, `entry`)
// lists them as one chunk.
inline Bytes mdatFirst(const std::string& handler, const Bytes& entry, const std::vector<Bytes>& samples) {
    Bytes data;
    std::vector<uint64_t> sizes;
    for (const Bytes& s : samples) {
        append(&data, s);
        sizes.push_back(s.size());
    }
    return cat({box("mdat", data), movie(trak(1, handler, stbl(entry, 1, sizes, 8)))});
}

inline Bytes zlib(const Bytes& in) {
    uLongf n = compressBound(in.size());
    Bytes out(n);
    if (compress(out.data(), &n, in.data(), in.size()) != Z_OK) return {};
    out.resize(n);
    return out;
}

// A moov/cmov whose cmvd claims `expanded` bytes and holds `stream` (its
// size field `cmvdSize` unless negative).
inline Bytes compressedMovie(uint32_t expanded, const Bytes& stream, int64_t cmvdSize = -1) {
    Bytes cmvd;
    putBE32(&cmvd, expanded);
    append(&cmvd, stream);
    return box("moov", box("cmov", cat({box("dcom", {'z', 'l', 'i', 'b'}), box("cmvd", cmvd, cmvdSize)})));
}

}  // namespace mov
}  // namespace test
}  // namespace android

#endif
