// Byte builder for ASF test files (all little-endian): objects with their
// computed size or a wrong one on purpose, the header sub-objects the parser
// reads, a Data Object and its data packets. The GUIDs are the parser's own table.
#ifndef ZIRK_TEST_ASF_BUILDER_H_
#define ZIRK_TEST_ASF_BUILDER_H_

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "ByteWriter.h"
#include "asf/parser/ASFGuids.h"

namespace android {
namespace test {
namespace asf {

using Size = std::optional<uint64_t>;  // a size to write instead of the real one

inline Bytes guid(ASFGuidId id) { return Bytes(kASFGuids[id].bytes, kASFGuids[id].bytes + 16); }
inline Bytes le(int width, std::initializer_list<uint64_t> values) {
    Bytes b;
    putLE(&b, width, values);
    return b;
}
inline Bytes joined(const std::vector<Bytes>& parts) {
    Bytes b;
    for (const Bytes& p : parts) append(&b, p);
    return b;
}
// ASCII as UTF-16LE with its terminating zero.
inline Bytes utf16(const std::string& text) {
    Bytes b;
    for (char c : text) putLE16(&b, static_cast<uint8_t>(c));
    return joined({b, {0, 0}});
}

inline Bytes object(ASFGuidId id, const Bytes& body, Size size = {}) {
    return joined({guid(id), le(8, {size ? *size : 24 + body.size()}), body});
}
inline Bytes header(const std::vector<Bytes>& children, Size size = {}) {
    return object(kGuidHeader, joined({le(4, {children.size()}), {1, 2}, joined(children)}), size);
}
// Durations in 100 ns units, preroll in ms; every packet `maxPacket` bytes.
inline Bytes fileProps(uint64_t play, uint64_t prerollMs, uint32_t maxPacket, uint64_t packets = 0) {
    return object(kGuidFileProperties, joined({Bytes(16, 0), le(8, {0, 0, packets, play, play, prerollMs}),
                                               le(4, {2, maxPacket, maxPacket, 0})}));
}
inline Bytes streamProps(ASFGuidId type, uint16_t flags, const Bytes& typeSpecific = {}) {
    return object(kGuidStreamProperties, joined({guid(type), Bytes(24, 0), le(4, {typeSpecific.size(), 0}),
                                                 le(2, {flags, 0, 0}), typeSpecific}));
}
inline Bytes headerExt(const std::vector<Bytes>& children) {
    return object(kGuidHeaderExtension,
                  joined({Bytes(16, 0), le(2, {6}), le(4, {joined(children).size()}), joined(children)}));
}
// Stream names of the given byte lengths, payload extension systems of the
// given info lengths (the low 16 bits of bytes follow each), then `embedded`.
inline Bytes extStreamProps(uint16_t stream, uint32_t maxObjectSize, const std::vector<uint16_t>& names = {},
                            const std::vector<uint32_t>& extInfo = {}, const Bytes& embedded = {}) {
    Bytes b = joined({Bytes(40, 0), le(4, {maxObjectSize, 0}), le(2, {stream, 0}), Bytes(8, 0),
                      le(2, {names.size(), extInfo.size()})});
    for (uint16_t n : names) b = joined({b, le(2, {0, n}), Bytes(n, 'n')});
    for (uint32_t n : extInfo) b = joined({b, Bytes(18, 0), le(4, {n}), Bytes(n & 0xFFFF, 0)});
    return object(kGuidExtStreamProperties, joined({b, embedded}));
}
// Title and author; an empty one has length 0.
inline Bytes contentDesc(const std::string& title, const std::string& author) {
    Bytes t = title.empty() ? Bytes() : utf16(title), a = author.empty() ? Bytes() : utf16(author);
    return object(kGuidContentDescription, joined({le(2, {t.size(), a.size(), 0, 0, 0}), t, a}));
}
struct Descriptor {
    std::string name;
    uint16_t type;
    Bytes value;
};
// `extraCount` more descriptors are declared than written.
inline Bytes extContentDesc(const std::vector<Descriptor>& ds, uint16_t extraCount = 0) {
    Bytes b = le(2, {ds.size() + extraCount});
    for (const Descriptor& d : ds) {
        b = joined({b, le(2, {utf16(d.name).size()}), utf16(d.name), le(2, {d.type, d.value.size()}), d.value});
    }
    return object(kGuidExtContentDescription, b);
}
// A WM/Picture value declaring `dataLength` picture bytes and holding `dataBytes`.
inline Bytes picture(const std::string& mime, uint32_t dataLength, size_t dataBytes) {
    return joined({{3}, le(4, {dataLength}), utf16(mime), utf16(""), Bytes(dataBytes, 0xAB)});
}
inline Bytes dataObject(Size size = {}, const Bytes& packets = {}) {
    return object(kGuidData, joined({Bytes(24, 0), le(2, {0x0101}), packets}), size);
}

// One payload: stream byte (bit 7: key frame), offset into its object (a
// compressed payload's presentation time), replicated data (one byte, the
// time delta: compressed) and data; lengths to write instead of the real ones.
struct Payload {
    uint8_t stream;
    uint32_t offset;
    Bytes replicated, data;
    Size replicatedLength = {}, length = {};
};
inline Bytes replicated(uint32_t objectSize, uint32_t timeMs) { return le(4, {objectSize, timeMs}); }
// `n` bytes of `fill` at `at` in a media object of `objectSize` bytes and time `timeMs`.
inline Payload part(uint8_t stream, uint32_t at, uint32_t objectSize, uint32_t timeMs, size_t n, uint8_t fill = 0xAB) {
    return {stream, at, replicated(objectSize, timeMs), Bytes(n, fill)};
}
// Sub-payloads of these lengths, each a length byte and its bytes.
inline Bytes subPayloads(const std::vector<uint8_t>& lengths) {
    Bytes b;
    for (uint8_t n : lengths) b = joined({b, {n}, Bytes(n, 0x5B)});
    return b;
}
// A data packet in a `slot`-byte slot, by default as ffmpeg writes them: 2
// bytes of error correction data, multiple payloads, 1-byte replicated length
// and object number, 4-byte offset, 2-byte payload lengths (width codes 0-3:
// 0, 1, 2, 4 bytes). Packet length, padding and payload count are the slot,
// what it leaves and the payloads', unless given.
struct Packet {
    std::vector<Payload> payloads;
    uint8_t lengthType = 0x01, property = 0x5D, payloadLengthType = 2, errorCorrection = 0x82;
    Size packetLength = {}, padding = {}, count = {};
};
inline Bytes field(uint8_t code, uint64_t v) { return code ? le(code == 3 ? 4 : code, {v}) : Bytes(); }
inline Bytes packet(const Packet& p, size_t slot) {
    const uint8_t lt = p.lengthType, multiple = lt & 1;
    Bytes body;
    for (const Payload& x : p.payloads) {
        body = joined({body, {x.stream}, field(p.property >> 4 & 3, 0), field(p.property >> 2 & 3, x.offset),
                       field(p.property & 3, x.replicatedLength.value_or(x.replicated.size())), x.replicated,
                       multiple ? field(p.payloadLengthType, x.length.value_or(x.data.size())) : Bytes(), x.data});
    }
    const uint8_t ec = p.errorCorrection;
    const Bytes head = joined({{ec}, Bytes(ec & 0x80 ? ec & 15 : 0, 0), {lt, p.property}});
    const size_t used = head.size() + field(lt >> 5 & 3, 0).size() + field(lt >> 1 & 3, 0).size() +
                        field(lt >> 3 & 3, 0).size() + 6 + multiple + body.size();
    const Bytes count = {uint8_t(p.count.value_or(p.payloads.size()) | p.payloadLengthType << 6)};
    Bytes b = joined({head, field(lt >> 5 & 3, p.packetLength.value_or(slot)), field(lt >> 1 & 3, 0),
                      field(lt >> 3 & 3, p.padding.value_or(slot - used)), Bytes(6, 0), multiple ? count : Bytes(),
                      body});
    b.resize(std::max(b.size(), slot));
    return b;
}
// A header of file properties (`play` in 100 ns units less `prerollMs`) and `streams` (Stream Properties
// Objects), then a Data Object of `packets` in `slot`-byte slots, then `tail`.
inline Bytes asfFile(const std::vector<Bytes>& streams, const std::vector<Packet>& packets = {}, uint32_t slot = 200,
                     uint64_t play = 20000000, uint64_t prerollMs = 0, const Bytes& tail = {}) {
    std::vector<Bytes> children = {fileProps(play, prerollMs, slot, packets.size())};
    children.insert(children.end(), streams.begin(), streams.end());
    Bytes data;
    for (const Packet& p : packets) append(&data, packet(p, slot));
    return joined({header(children), dataObject({}, data), tail});
}

// WAVEFORMATEX declaring cbSize `cb` with `extra` bytes after it; 8 kHz mono, 2000 bytes/s.
inline Bytes wav(uint16_t tag, uint16_t cb = 0, size_t extra = 0) {
    return joined({le(2, {tag, 1}), le(4, {8000, 2000}), le(2, {2, 16, cb}), Bytes(extra, 7)});
}
// Video type-specific data whose BITMAPINFOHEADER declares `extraSize` bytes after it, `extra` there.
inline Bytes bih(const char* cc, uint32_t w, uint32_t h, uint32_t extraSize = 0, size_t extra = 0) {
    return joined({le(4, {w, h}), {0}, le(2, {40 + extraSize}), le(4, {40 + extraSize, w, h}), le(2, {1, 24}),
                   Bytes(cc, cc + 4), Bytes(20, 0), Bytes(extra, 9)});
}

inline Bytes les(int width, const std::vector<uint64_t>& values) {
    Bytes b;
    for (uint64_t v : values) putLE(&b, width, {v});
    return b;
}
// An Index Object: a specifier per stream, blocks of (positions, entries
// entry-major); counts to write instead of the real ones.
struct IndexBlock {
    std::vector<uint64_t> positions, entries;
    Size entryCount = {};
};
inline Bytes indexObject(const std::vector<uint64_t>& streams, const std::vector<IndexBlock>& blocks,
                         Size blockCount = {}) {
    Bytes b = joined({le(4, {1000}), le(2, {streams.size()}), le(4, {blockCount.value_or(blocks.size())})});
    for (uint64_t s : streams) append(&b, le(2, {s, 0}));
    for (const IndexBlock& k : blocks) {
        const uint64_t count = k.entryCount.value_or(k.entries.size() / std::max<size_t>(1, streams.size()));
        append(&b, joined({le(4, {count}), les(8, k.positions), les(4, k.entries)}));
    }
    return object(kGuidIndex, b);
}
inline Bytes simpleIndex(const std::vector<uint64_t>& packets, Size count = {}) {
    Bytes b = joined({Bytes(16, 0), le(8, {10000000}), le(4, {1, count.value_or(packets.size())})});
    for (uint64_t p : packets) append(&b, joined({le(4, {p}), le(2, {1})}));
    return object(kGuidSimpleIndex, b);
}

}  // namespace asf
}  // namespace test
}  // namespace android

#endif
