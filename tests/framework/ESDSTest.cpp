// ES descriptors: the length forms real writers use, the component's AAC
// template, and lengths that lie (past the parent: fail, never followed).
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include <media/stagefright/foundation/ESDS.h>

#include "TestDataSources.h"

using namespace android;
using namespace android::test;

namespace {

// A descriptor with its length in `lengthBytes` 7-bit groups.
Bytes desc(uint8_t tag, const Bytes& body, int lengthBytes = 1) {
    Bytes out = {tag};
    for (int i = lengthBytes - 1; i >= 0; --i) out.push_back(uint8_t((body.size() >> (7 * i)) & 0x7F) | (i ? 0x80 : 0));
    return cat({out, body});
}

// objectTypeIndication 0x40, streamType 0x15, buffer 0x600, bit rates 0x11223344, 0x00010203.
const Bytes kConfigFields = {0x40, 0x15, 0x00, 0x06, 0x00, 0x11, 0x22, 0x33, 0x44, 0x00, 0x01, 0x02, 0x03};

Bytes es(uint8_t flags, const Bytes& optional, const Bytes& configTail) {
    return desc(3, cat({{0x00, 0x01, flags}, optional, desc(4, cat({kConfigFields, configTail}))}));
}

// The component's fixed AAC descriptor: ES, DecoderConfig (OTI 0x40), DSI length 2.
const Bytes kAACTemplate = {0x03, 0x16, 0x00, 0x00, 0x00, 0x04, 0x11, 0x40, 0x00, 0x00, 0x00,
                            0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x05, 0x02};

Bytes csiOf(const ESDS& esds) {
    const void* data = nullptr;
    size_t size = 0;
    if (esds.getCodecSpecificInfo(&data, &size) != OK) return {0xEE};
    return Bytes(static_cast<const uint8_t*>(data), static_cast<const uint8_t*>(data) + size);
}

TEST(ESDSTest, ValidDescriptors) {
    const Bytes abc = {0xAA, 0xBB, 0xCC}, dsi = desc(5, abc), big(200, 0x5A);  // 200: two 7-bit groups
    const struct { const char* mName; Bytes mBytes, mCsi; bool mRates; } kCases[] = {
        {"Template2ByteConfig", cat({kAACTemplate, {0x12, 0x10}}), {0x12, 0x10}, false},
        // Regression: a 5-byte config (flv_h264_aac.flv) past the lengths is ignored.
        {"Template5ByteConfig", cat({kAACTemplate, {0x12, 0x10, 0x56, 0xE5, 0x00}}), {0x12, 0x10}, false},
        {"NoOptionalFields", es(0x1F, {}, dsi), abc, true},  // streamPriority bits are not flags
        {"Url", es(0x40, {0x03, 'a', 'b', 'c'}, dsi), abc, true},
        {"AllOptionalFields", es(0xE0, {0x00, 0x07, 0x02, 'x', 'y', 0x00, 0x09}, dsi), abc, true},
        {"NoDsi", es(0, {}, {}), {}, true},
        {"OtherSubDescriptor", es(0, {}, {0x06, 0x01, 0x02}), {}, true},
        {"LengthForms4And2And4", desc(3, cat({{0, 1, 0}, desc(4, cat({kConfigFields, desc(5, big, 4)}), 2)}), 4), big,
         true},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.mName);
        ESDS esds(c.mBytes.data(), c.mBytes.size());
        ASSERT_EQ(esds.InitCheck(), OK);
        uint8_t oti = 0;
        EXPECT_TRUE(esds.getObjectTypeIndication(&oti) == OK && oti == 0x40);
        EXPECT_EQ(csiOf(esds), c.mCsi);
        uint32_t maxRate = 1, avgRate = 1;
        EXPECT_TRUE(esds.getBitRate(&maxRate, &avgRate) == OK && maxRate == (c.mRates ? 0x11223344u : 0u) &&
                    avgRate == (c.mRates ? 0x00010203u : 0u)) << maxRate << " " << avgRate;
    }
}

// ffmpeg's esds box: 4-byte lengths (80 80 80 nn) and an SLConfigDescriptor at the end.
TEST(ESDSTest, RealEsdsBoxAndItsPrefixes) {
    Bytes file = readFileBytes(testdataPath("aac_mono_44100.m4a"));
    size_t at = std::string(file.begin(), file.end()).find("esds") + 8;  // after version and flags
    ASSERT_TRUE(at + 5 < file.size() && file[at + 1] == 0x80);
    Bytes descriptor(file.begin() + at, file.begin() + std::min(file.size(), at + 5 + file[at + 4]));
    ESDS esds(descriptor.data(), descriptor.size());
    ASSERT_EQ(esds.InitCheck(), OK);
    // ffprobe: extradata_size=5; AAC LC, 44100 Hz, mono, then the 0x2b7 sync extension.
    EXPECT_EQ(csiOf(esds), (Bytes{0x12, 0x08, 0x56, 0xE5, 0x00}));
    for (size_t n = 0; n < descriptor.size(); ++n) {
        Bytes cut(descriptor.begin(), descriptor.begin() + n);  // exact size for ASan
        EXPECT_EQ(ESDS(cut.data(), cut.size()).InitCheck(), ERROR_MALFORMED) << n;
    }
}

TEST(ESDSTest, LengthsThatLieAreMalformed) {
    const Bytes good = es(0, {}, desc(5, {0x12, 0x10}));
    auto bump = [](Bytes b, size_t i) { b[i] += 1; return b; };
    const struct { const char* mName; Bytes mBytes; } kCases[] = {
        {"EsPastEnd", bump(good, 1)},
        {"ConfigPastParent", bump(cat({good, {0}}), 6)},  // the byte past the parent exists
        {"DsiPastParent", bump(cat({good, {0}}), good.size() - 3)},
        {"UrlPastEnd", desc(3, {0x00, 0x01, 0x40, 0x30, 'a'})},
        {"FiveByteLength", {0x03, 0x80, 0x80, 0x80, 0x80, 0x05, 0, 1, 0, 0, 0}},
        {"ShortConfig", desc(3, {0x00, 0x01, 0x00, 0x04, 0x03, 0x40, 0x15, 0x00})},
        {"WrongTag", bump(good, 0)},
        {"NoConfig", desc(3, {0x00, 0x01, 0x00, 0x06, 0x01, 0x02})},
        {"LengthCutOff", {0x03, 0x80}},
    };
    for (const auto& c : kCases) {
        ESDS esds(c.mBytes.data(), c.mBytes.size());
        uint8_t oti;
        EXPECT_TRUE(esds.InitCheck() == ERROR_MALFORMED && esds.getObjectTypeIndication(&oti) == ERROR_MALFORMED &&
                    csiOf(esds) == Bytes{0xEE}) << c.mName;
    }
    EXPECT_EQ(ESDS(nullptr, 10).InitCheck(), ERROR_MALFORMED);
}

}  // namespace
