// The ASF object and stream-type GUIDs this demultiplexer recognises, as one
// constant table of 16-byte values in the order the file stores them: the
// first three groups little-endian, the last two as bytes. Objects are told
// apart by comparing these 16 raw bytes. Constant data; any thread.
#ifndef ZIRK_ASF_GUIDS_H_
#define ZIRK_ASF_GUIDS_H_

#include <stddef.h>
#include <stdint.h>
#include <string.h>

namespace android {

struct ASFGuid {
    uint8_t bytes[16];

    bool matches(const uint8_t* stored) const { return memcmp(bytes, stored, sizeof(bytes)) == 0; }
};

// The GUID written as {d1-d2-d3-d4d5-...}, in its stored byte order.
constexpr ASFGuid asfGuid(uint32_t d1, uint16_t d2, uint16_t d3, uint64_t tail) {
    ASFGuid g = {};
    for (int i = 0; i < 4; ++i) g.bytes[i] = static_cast<uint8_t>(d1 >> (8 * i));
    for (int i = 0; i < 2; ++i) g.bytes[4 + i] = static_cast<uint8_t>(d2 >> (8 * i));
    for (int i = 0; i < 2; ++i) g.bytes[6 + i] = static_cast<uint8_t>(d3 >> (8 * i));
    for (int i = 0; i < 8; ++i) g.bytes[8 + i] = static_cast<uint8_t>(tail >> (8 * (7 - i)));
    return g;
}

enum ASFGuidId {
    kGuidHeader,
    kGuidData,
    kGuidIndex,
    kGuidSimpleIndex,
    kGuidFileProperties,
    kGuidStreamProperties,
    kGuidContentDescription,
    kGuidExtContentDescription,
    kGuidHeaderExtension,
    kGuidExtStreamProperties,
    kGuidAudioMedia,
    kGuidVideoMedia,
    kGuidCount,
};

constexpr ASFGuid kASFGuids[kGuidCount] = {
        asfGuid(0x75B22630, 0x668E, 0x11CF, 0xA6D900AA0062CE6C),  // Header Object
        asfGuid(0x75B22636, 0x668E, 0x11CF, 0xA6D900AA0062CE6C),  // Data Object
        asfGuid(0xD6E229D3, 0x35DA, 0x11D1, 0x903400A0C90349BE),  // Index Object
        asfGuid(0x33000890, 0xE5B1, 0x11CF, 0x89F400A0C90349CB),  // Simple Index Object
        asfGuid(0x8CABDCA1, 0xA947, 0x11CF, 0x8EE400C00C205365),  // File Properties Object
        asfGuid(0xB7DC0791, 0xA9B7, 0x11CF, 0x8EE600C00C205365),  // Stream Properties Object
        asfGuid(0x75B22633, 0x668E, 0x11CF, 0xA6D900AA0062CE6C),  // Content Description Object
        asfGuid(0xD2D0A440, 0xE307, 0x11D2, 0x97F000A0C95EA850),  // Extended Content Description Object
        asfGuid(0x5FBF03B5, 0xA92E, 0x11CF, 0x8EE300C00C205365),  // Header Extension Object
        asfGuid(0x14E6A5CB, 0xC672, 0x4332, 0x8399A96952065B5A),  // Extended Stream Properties Object
        asfGuid(0xF8699E40, 0x5B4D, 0x11CF, 0xA8FD00805F5C442B),  // Audio Media (stream type)
        asfGuid(0xBC19EFC0, 0x5B4D, 0x11CF, 0xA8FD00805F5C442B),  // Video Media (stream type)
};

inline bool isASFGuid(const uint8_t* stored, ASFGuidId id) { return kASFGuids[id].matches(stored); }

}  // namespace android

#endif
