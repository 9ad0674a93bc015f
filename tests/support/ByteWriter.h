// Bytes for the synthetic-file builders: fields of 2 to 8 bytes in either
// byte order, appended or written over a file already built (to make one
// field lie), FourCCs, and joining byte strings. RIFF and ASF are
// little-endian; FLV tags and MOV boxes big-endian.
#ifndef ZIRK_TEST_BYTE_WRITER_H_
#define ZIRK_TEST_BYTE_WRITER_H_

#include <stdint.h>
#include <string.h>

#include <initializer_list>
#include <string>
#include <vector>

namespace android {
namespace test {

using Bytes = std::vector<uint8_t>;

// `width` bytes of `v` at `at`: least significant first (LE) or last (BE).
inline void setLE(Bytes* b, size_t at, int width, uint64_t v) {
    for (int i = 0; i < width; ++i) b->at(at + i) = static_cast<uint8_t>(v >> (8 * i));
}
inline void setBE(Bytes* b, size_t at, int width, uint64_t v) {
    for (int i = 0; i < width; ++i) b->at(at + width - 1 - i) = static_cast<uint8_t>(v >> (8 * i));
}
// Each value in `width` bytes at the end.
inline void putLE(Bytes* b, int width, std::initializer_list<uint64_t> values) {
    for (uint64_t v : values) {
        b->resize(b->size() + width);
        setLE(b, b->size() - width, width, v);
    }
}
inline void putBE(Bytes* b, int width, std::initializer_list<uint64_t> values) {
    for (uint64_t v : values) {
        b->resize(b->size() + width);
        setBE(b, b->size() - width, width, v);
    }
}

inline void putLE16(Bytes* b, uint64_t v) { putLE(b, 2, {v}); }
inline void putLE32(Bytes* b, uint64_t v) { putLE(b, 4, {v}); }
inline void putLE64(Bytes* b, uint64_t v) { putLE(b, 8, {v}); }
inline void putBE16(Bytes* b, uint64_t v) { putBE(b, 2, {v}); }
inline void putBE24(Bytes* b, uint64_t v) { putBE(b, 3, {v}); }
inline void putBE32(Bytes* b, uint64_t v) { putBE(b, 4, {v}); }
inline void putBE64(Bytes* b, uint64_t v) { putBE(b, 8, {v}); }
inline void setLE16(Bytes* b, size_t at, uint64_t v) { setLE(b, at, 2, v); }
inline void setLE32(Bytes* b, size_t at, uint64_t v) { setLE(b, at, 4, v); }
inline void setLE64(Bytes* b, size_t at, uint64_t v) { setLE(b, at, 8, v); }
inline void setBE16(Bytes* b, size_t at, uint64_t v) { setBE(b, at, 2, v); }
inline void setBE32(Bytes* b, size_t at, uint64_t v) { setBE(b, at, 4, v); }
inline void setBE64(Bytes* b, size_t at, uint64_t v) { setBE(b, at, 8, v); }

inline uint32_t getLE32(const Bytes& b, size_t at) {
    return b.at(at) | b.at(at + 1) << 8 | b.at(at + 2) << 16 | static_cast<uint32_t>(b.at(at + 3)) << 24;
}

// Four characters, padded with spaces ("AVI" is "AVI ").
inline void putFourcc(Bytes* b, const std::string& f) {
    for (size_t i = 0; i < 4; ++i) b->push_back(i < f.size() ? f[i] : ' ');
}

inline void append(Bytes* b, const Bytes& more) { b->insert(b->end(), more.begin(), more.end()); }

// The parts one after another.
inline Bytes cat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const Bytes& p : parts) append(&out, p);
    return out;
}

// "0a1B..." as bytes (pairs of hex digits; a trailing odd digit is ignored).
inline Bytes hexBytes(const std::string& h) {
    Bytes out;
    for (size_t i = 0; i + 1 < h.size(); i += 2) {
        out.push_back(static_cast<uint8_t>(std::stoul(h.substr(i, 2), nullptr, 16)));
    }
    return out;
}

// Offset of the first `id` at or after `from`, for patching a field of a
// built file; b.size() when absent.
inline size_t findFourcc(const Bytes& b, const std::string& id, size_t from = 0) {
    for (size_t i = from; i + 4 <= b.size(); ++i) {
        if (!memcmp(b.data() + i, id.data(), 4)) return i;
    }
    return b.size();
}

}  // namespace test
}  // namespace android

#endif
