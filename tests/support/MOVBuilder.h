// MOVBuilder: big-endian boxes for MOV/MP4 test files. box() writes a box
// with its real size or a chosen wrong one. The sample-table payloads (stco,
// co64, stsc, stts, ctts, stss, stsz, stz2) start with the version-and-flags
// word and an entry count, either of which can be made to lie. BoxFile lays
// boxes out one after another and keeps where each payload starts and how
// large it is, as the box parser hands them on.
#ifndef ZIRK_TEST_MOV_BUILDER_H_
#define ZIRK_TEST_MOV_BUILDER_H_

#include <stdint.h>

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
    append(&b, payload);
    return b;
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

// stsz: a constant size lists nothing.
inline Bytes stsz(uint32_t defaultSize, const std::vector<uint64_t>& sizes, int64_t countOverride = -1) {
    Bytes b;
    putBE(&b, 4, {0, defaultSize, countOverride >= 0 ? static_cast<uint64_t>(countOverride) : sizes.size()});
    if (defaultSize == 0) {
        for (uint64_t v : sizes) putBE32(&b, v);
    }
    return b;
}

// stz2 with 4-, 8- or 16-bit fields (two 4-bit fields a byte, high first).
inline Bytes stz2(uint32_t fieldSize, const std::vector<uint64_t>& sizes, int64_t countOverride = -1) {
    Bytes b;
    putBE(&b, 4, {0, fieldSize, countOverride >= 0 ? static_cast<uint64_t>(countOverride) : sizes.size()});
    for (size_t i = 0; i < sizes.size(); ++i) {
        if (fieldSize != 4) {
            putBE(&b, static_cast<int>(fieldSize / 8), {sizes[i]});
        } else if (i % 2 == 0) {
            b.push_back(static_cast<uint8_t>(sizes[i] << 4));
        } else {
            b.back() |= static_cast<uint8_t>(sizes[i] & 0x0F);
        }
    }
    return b;
}

// Where a box's payload lies in the file.
struct Payload {
    uint32_t type;
    int64_t offset;
    uint64_t size;
};

class BoxFile {
public:
    // `lead` comes first: the sample data chunk offsets point into.
    explicit BoxFile(Bytes lead = {}) : mBytes(std::move(lead)) {}

    Payload add(const std::string& type, const Bytes& payload) {
        Payload p = {fourcc(type), static_cast<int64_t>(mBytes.size()) + 8, payload.size()};
        append(&mBytes, box(type, payload));
        return p;
    }
    const Bytes& bytes() const { return mBytes; }

private:
    Bytes mBytes;
};

}  // namespace mov
}  // namespace test
}  // namespace android

#endif
