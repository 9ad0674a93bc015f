// Small rules the AVI extractor's parts share. Stateless.
#ifndef ZIRK_AVI_INTERNAL_H_
#define ZIRK_AVI_INTERNAL_H_

#include <stdint.h>
#include <strings.h>

#include <zirk/ZIRKByteReader.h>

namespace android {
namespace avi_internal {

// Largest chunk read whole into memory (stream formats, OpenDML indexes,
// first video frames). Far above any real header or index chunk; it bounds
// the allocation when the source cannot tell its size.
constexpr int64_t kMaxWholeReadBytes = 64 * 1024 * 1024;

inline bool isDigit(uint8_t c) { return c >= '0' && c <= '9'; }

// The stream number in the first two characters of a chunk identifier.
inline bool streamNumber(uint32_t chunkType, uint32_t* number) {
    uint8_t tens = chunkType >> 24;
    uint8_t units = (chunkType >> 16) & 0xFF;
    if (!isDigit(tens) || !isDigit(units)) return false;
    *number = (tens - '0') * 10 + (units - '0');
    return true;
}

// An 8-byte chunk header: the identifier as fourcc() gives it, the size
// little-endian.
inline void readChunkHeader(const uint8_t header[8], uint32_t* id, uint32_t* size) {
    ZIRKByteReader r(header, 8);
    r.readBE32(id);
    r.readLE32(size);
}

inline bool isVideoMime(const char* mime) { return mime && !strncasecmp(mime, "video/", 6); }

}  // namespace avi_internal
}  // namespace android

#endif
