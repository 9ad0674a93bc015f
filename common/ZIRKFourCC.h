// Four-character codes, the video codec table of the RIFF family
// (BITMAPINFOHEADER compression and stream-header handler codes) and the
// BITMAPINFOHEADER reader, shared by the AVI and ASF demultiplexers.
// Stateless; safe from any thread.
#ifndef ZIRK_FOURCC_H_
#define ZIRK_FOURCC_H_

#include <stddef.h>
#include <stdint.h>

namespace android {

// 'abcd' as the big-endian value a byte-wise read of "abcd" gives.
constexpr uint32_t fourcc(char a, char b, char c, char d) {
    return (static_cast<uint32_t>(static_cast<uint8_t>(a)) << 24) |
           (static_cast<uint32_t>(static_cast<uint8_t>(b)) << 16) |
           (static_cast<uint32_t>(static_cast<uint8_t>(c)) << 8) | static_cast<uint8_t>(d);
}

// The framework MIME type of a video codec code (case as listed: 'XVID' and
// 'xvid' are both there, 'xViD' is not); null when the code is not known.
const char* ZIRKVideoMimeForFourcc(uint32_t code);

constexpr size_t kZIRKBitmapInfoHeaderSize = 40;

// The BITMAPINFOHEADER fields the demultiplexers use; `extra` views the
// caller's bytes after the 40-byte header (codec configuration).
struct ZIRKBitmapInfo {
    int32_t width;
    int32_t height;
    uint32_t compression;  // as fourcc() gives it
    const uint8_t* extra;
    size_t extraSize;
};
// False when fewer than kZIRKBitmapInfoHeaderSize bytes are given.
bool ZIRKReadBitmapInfoHeader(const uint8_t* data, size_t size, ZIRKBitmapInfo* out);

}  // namespace android

#endif
