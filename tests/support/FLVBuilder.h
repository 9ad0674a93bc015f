// FLVBuilder: writes FLV byte streams for tests: the file header, tags with
// their PreviousTagSize (computed, or a chosen wrong value), and the AMF0
// pieces of an onMetaData script tag. Every tag's header offset is recorded.
#ifndef ZIRK_TEST_FLV_BUILDER_H_
#define ZIRK_TEST_FLV_BUILDER_H_

#include <string.h>

#include <string>
#include <utility>
#include <vector>

#include "ByteWriter.h"

namespace android {
namespace test {

class FLVBuilder {
public:
    using Bytes = test::Bytes;

    enum : uint8_t { kAudio = 8, kVideo = 9, kScript = 18 };
    enum : uint8_t { kKey = 1, kInter = 2 };
    enum : uint8_t { kSorenson = 2, kVP6 = 4, kAVC = 7 };
    // Sound bytes: format << 4 | rate << 2 | size << 1 | type.
    enum : uint8_t { kAACStereo44k = 0xAF, kMP3Stereo44k = 0x2F, kMP3Mono22k = 0x2A };

    // The 9-byte header and PreviousTagSize0.
    FLVBuilder& header(uint8_t flags = 0x05, uint32_t dataOffset = 9, uint8_t version = 1, uint32_t prevTagSize0 = 0,
                       const char* signature = "FLV") {
        raw(cat({Bytes(signature, signature + 3), {version, flags}}));
        putBE(&mBytes, 4, {dataOffset, prevTagSize0});
        return *this;
    }

    FLVBuilder& tag(uint8_t type, uint32_t timeMs, const Bytes& data, uint32_t streamId = 0) {
        return tagWithPrevSize(type, timeMs, data, static_cast<uint32_t>(data.size()) + 11, streamId);
    }

    FLVBuilder& tagWithPrevSize(uint8_t type, uint32_t timeMs, const Bytes& data, uint32_t prevTagSize,
                                uint32_t streamId = 0) {
        tagHeader(type, static_cast<uint32_t>(data.size()), timeMs, streamId).raw(data);
        putBE32(&mBytes, prevTagSize);
        return *this;
    }

    // A tag header alone, with any dataSize: the data (or less of it) and
    // the PreviousTagSize are then written with raw().
    FLVBuilder& tagHeader(uint8_t type, uint32_t dataSize, uint32_t timeMs = 0, uint32_t streamId = 0) {
        mTagOffsets.push_back(mBytes.size());
        mBytes.push_back(type);
        putBE(&mBytes, 3, {dataSize, timeMs & 0xFFFFFF});
        mBytes.push_back(static_cast<uint8_t>(timeMs >> 24));
        putBE24(&mBytes, streamId);
        return *this;
    }

    FLVBuilder& video(uint32_t timeMs, uint8_t frameType, uint8_t codecId, const Bytes& payload) {
        return tag(kVideo, timeMs, cat({{static_cast<uint8_t>(frameType << 4 | codecId)}, payload}));
    }
    // AVC tag: codec byte, AVCPacketType, CompositionTime 0, then `data`.
    FLVBuilder& avc(uint32_t timeMs, uint8_t frameType, uint8_t packetType, const Bytes& data) {
        return tag(kVideo, timeMs, cat({{static_cast<uint8_t>(frameType << 4 | kAVC), packetType, 0, 0, 0}, data}));
    }
    FLVBuilder& audio(uint32_t timeMs, uint8_t soundByte, const Bytes& payload) {
        return tag(kAudio, timeMs, cat({{soundByte}, payload}));
    }
    FLVBuilder& aac(uint32_t timeMs, uint8_t packetType, const Bytes& payload, uint8_t soundByte = kAACStereo44k) {
        return tag(kAudio, timeMs, cat({{soundByte, packetType}, payload}));
    }
    FLVBuilder& script(const Bytes& body) { return tag(kScript, 0, body); }

    FLVBuilder& raw(const Bytes& b) {
        append(&mBytes, b);
        return *this;
    }

    const Bytes& bytes() const { return mBytes; }
    size_t tagOffset(size_t n) const { return mTagOffsets.at(n); }

    // ---- AMF0 pieces
    static Bytes amfName(const std::string& s) {
        Bytes b;
        putBE16(&b, s.size());
        return cat({b, Bytes(s.begin(), s.end())});
    }
    static Bytes amfString(const std::string& s) { return cat({{0x02}, amfName(s)}); }
    static Bytes amfNumber(double v) {
        uint64_t bits;
        memcpy(&bits, &v, sizeof(bits));
        Bytes b = {0x00};
        putBE64(&b, bits);
        return b;
    }
    // "onMetaData" and an ECMA array of the given (name, encoded value) pairs.
    static Bytes onMetaData(const std::vector<std::pair<std::string, Bytes>>& props) {
        Bytes b = cat({amfString("onMetaData"), {0x08, 0, 0, 0, static_cast<uint8_t>(props.size())}});
        for (const auto& p : props) b = cat({b, amfName(p.first), p.second});
        return cat({b, {0, 0, 9}});
    }

    // ---- H.264 pieces
    // An 'avcC' record with no parameter sets and the given NAL length size.
    static Bytes avcc(size_t nalLengthSize, uint8_t version = 1) {
        return {version, 0x64, 0x00, 0x1E, static_cast<uint8_t>(0xFC | (nalLengthSize - 1)), 0xE0, 0x00};
    }
    // NAL units, each behind an n-byte big-endian length.
    static Bytes lengthPrefixed(size_t n, const std::vector<Bytes>& units) {
        Bytes b;
        for (const Bytes& u : units) {
            putBE(&b, static_cast<int>(n), {u.size()});
            append(&b, u);
        }
        return b;
    }

private:
    Bytes mBytes;
    std::vector<size_t> mTagOffsets;
};

}  // namespace test
}  // namespace android

#endif
