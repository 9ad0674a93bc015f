// Byte-order loads from unaligned memory. The caller guarantees that the
// bytes exist.
#ifndef UTILS_H_
#define UTILS_H_

#include <stdint.h>

namespace android {

inline uint16_t U16_AT(const uint8_t* ptr) {
    return static_cast<uint16_t>((ptr[0] << 8) | ptr[1]);
}
inline uint32_t U32_AT(const uint8_t* ptr) {
    return (static_cast<uint32_t>(ptr[0]) << 24) | (static_cast<uint32_t>(ptr[1]) << 16) |
           (static_cast<uint32_t>(ptr[2]) << 8) | ptr[3];
}
inline uint64_t U64_AT(const uint8_t* ptr) {
    return (static_cast<uint64_t>(U32_AT(ptr)) << 32) | U32_AT(ptr + 4);
}
inline uint16_t U16LE_AT(const uint8_t* ptr) {
    return static_cast<uint16_t>(ptr[0] | (ptr[1] << 8));
}
inline uint32_t U32LE_AT(const uint8_t* ptr) {
    return (static_cast<uint32_t>(ptr[3]) << 24) | (static_cast<uint32_t>(ptr[2]) << 16) |
           (static_cast<uint32_t>(ptr[1]) << 8) | ptr[0];
}
inline uint64_t U64LE_AT(const uint8_t* ptr) {
    return (static_cast<uint64_t>(U32LE_AT(ptr + 4)) << 32) | U32LE_AT(ptr);
}

// Network (big-endian) to host order of a 64-bit value.
inline uint64_t ntoh64(uint64_t x) {
    const uint8_t* p = reinterpret_cast<const uint8_t*>(&x);
    return U64_AT(p);
}
inline uint64_t hton64(uint64_t x) { return ntoh64(x); }

}  // namespace android

#endif
