// ES descriptor parsing: the length forms real writers use, the template a
// library component writes for AAC, and lengths that lie. A length that
// reaches past its parent must fail, never be followed into other bytes.
#include <gtest/gtest.h>

#include <string.h>

#include <algorithm>
#include <vector>

#include <media/stagefright/foundation/ESDS.h>

#include "TestDataSources.h"

using namespace android;
using android::test::readFileBytes;
using android::test::testdataPath;

namespace {

std::vector<uint8_t> concat(std::initializer_list<std::vector<uint8_t>> parts) {
    std::vector<uint8_t> out;
    for (const auto& p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}

// The component's fixed AAC descriptor: ES (length 0x16), ES_ID 0, flags 0,
// DecoderConfig (length 0x11) with objectTypeIndication 0x40 and twelve zero
// bytes, and a DecoderSpecificInfo header of length 2.
const std::vector<uint8_t> kAACTemplate = {0x03, 0x16, 0x00, 0x00, 0x00, 0x04, 0x11, 0x40,
                                           0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
                                           0x00, 0x00, 0x00, 0x00, 0x05, 0x02};

// A DecoderConfig with streamType 0x15, bufferSize 0x000600, max 0x11223344,
// avg 0x00010203, and the given trailing bytes (sub-descriptors).
std::vector<uint8_t> decoderConfig(const std::vector<uint8_t>& tail) {
    std::vector<uint8_t> body = concat({{0x40, 0x15, 0x00, 0x06, 0x00, 0x11, 0x22, 0x33, 0x44,
                                         0x00, 0x01, 0x02, 0x03},
                                        tail});
    return concat({{0x04, uint8_t(body.size())}, body});
}

std::vector<uint8_t> esDescriptor(uint8_t flags, const std::vector<uint8_t>& optional,
                                  const std::vector<uint8_t>& config) {
    std::vector<uint8_t> body = concat({{0x00, 0x01, flags}, optional, config});
    return concat({{0x03, uint8_t(body.size())}, body});
}

std::vector<uint8_t> csiOf(const ESDS& esds) {
    const void* data = nullptr;
    size_t size = 0;
    if (esds.getCodecSpecificInfo(&data, &size) != OK) return {0xEE};
    const uint8_t* p = static_cast<const uint8_t*>(data);
    return std::vector<uint8_t>(p, p + size);
}

TEST(ESDSTest, AACTemplateWithTwoByteConfig) {
    std::vector<uint8_t> bytes = concat({kAACTemplate, {0x12, 0x10}});
    ASSERT_EQ(kAACTemplate.size(), 22u);
    ESDS esds(bytes.data(), bytes.size());
    ASSERT_EQ(esds.InitCheck(), OK);
    uint8_t oti = 0;
    ASSERT_EQ(esds.getObjectTypeIndication(&oti), OK);
    EXPECT_EQ(oti, 0x40);
    EXPECT_EQ(csiOf(esds), (std::vector<uint8_t>{0x12, 0x10}));
}

// Regression: the template's lengths say 2 even when a 5-byte
// AudioSpecificConfig (12 10 56 E5 00, the explicit "no SBR" form in
// flv_h264_aac.flv) is appended. The lengths are self-consistent, so the
// descriptor is valid and its config is the first two bytes; the rest lies
// outside the ES descriptor and must be ignored, not treated as an error.
TEST(ESDSTest, AACTemplateWithLongerConfigReportsTwoBytes) {
    std::vector<uint8_t> bytes = concat({kAACTemplate, {0x12, 0x10, 0x56, 0xE5, 0x00}});
    ESDS esds(bytes.data(), bytes.size());
    ASSERT_EQ(esds.InitCheck(), OK);
    EXPECT_EQ(csiOf(esds), (std::vector<uint8_t>{0x12, 0x10}));
}

// The esds box of an ffmpeg-written MP4: every length in the 4-byte
// expandable form (80 80 80 nn) and an SLConfigDescriptor after the
// DecoderConfigDescriptor.
TEST(ESDSTest, RealEsdsBoxWithFourByteLengths) {
    std::vector<uint8_t> file = readFileBytes(testdataPath("aac_mono_44100.m4a"));
    const uint8_t kType[] = {'e', 's', 'd', 's'};
    auto it = std::search(file.begin(), file.end(), kType, kType + 4);
    ASSERT_NE(it, file.end());
    size_t typePos = static_cast<size_t>(it - file.begin());
    ASSERT_GE(typePos, 4u);
    size_t boxSize = size_t(file[typePos - 4]) << 24 | file[typePos - 3] << 16 |
                     file[typePos - 2] << 8 | file[typePos - 1];
    ASSERT_GE(boxSize, 12u);
    ASSERT_LE(boxSize, file.size() - (typePos - 4));
    // After the box header: version and flags, then the descriptor.
    std::vector<uint8_t> descriptor(it + 8, it - 4 + boxSize);
    ASSERT_EQ(descriptor[1], 0x80);

    ESDS esds(descriptor.data(), descriptor.size());
    ASSERT_EQ(esds.InitCheck(), OK);
    uint8_t oti = 0;
    ASSERT_EQ(esds.getObjectTypeIndication(&oti), OK);
    EXPECT_EQ(oti, 0x40);
    // ffprobe: extradata_size=5; AAC LC, 44100 Hz, mono, then the 0x2b7
    // sync extension.
    EXPECT_EQ(csiOf(esds), (std::vector<uint8_t>{0x12, 0x08, 0x56, 0xE5, 0x00}));

    // Every truncation cuts the ES descriptor short of its declared length.
    for (size_t n = 0; n < descriptor.size(); ++n) {
        std::vector<uint8_t> prefix(descriptor.begin(), descriptor.begin() + n);
        ESDS cut(prefix.data(), prefix.size());
        EXPECT_EQ(cut.InitCheck(), ERROR_MALFORMED) << n;
    }
}

TEST(ESDSTest, OptionalESFieldsAreSkipped) {
    const std::vector<uint8_t> dsi = {0x05, 0x03, 0xAA, 0xBB, 0xCC};
    struct Case {
        const char* mName;
        uint8_t mFlags;
        std::vector<uint8_t> mOptional;
    };
    const Case kCases[] = {
        {"None", 0x1F, {}},  // streamPriority bits set: not flags
        {"StreamDependence", 0x80, {0x00, 0x07}},
        {"Url", 0x40, {0x03, 'a', 'b', 'c'}},
        {"EmptyUrl", 0x40, {0x00}},
        {"OcrStream", 0x20, {0x00, 0x09}},
        {"All", 0xE0, {0x00, 0x07, 0x02, 'x', 'y', 0x00, 0x09}},
    };
    for (const Case& c : kCases) {
        std::vector<uint8_t> bytes = esDescriptor(c.mFlags, c.mOptional, decoderConfig(dsi));
        ESDS esds(bytes.data(), bytes.size());
        ASSERT_EQ(esds.InitCheck(), OK) << c.mName;
        EXPECT_EQ(csiOf(esds), (std::vector<uint8_t>{0xAA, 0xBB, 0xCC})) << c.mName;
        uint32_t maxRate = 0, avgRate = 0;
        ASSERT_EQ(esds.getBitRate(&maxRate, &avgRate), OK);
        EXPECT_EQ(maxRate, 0x11223344u);
        EXPECT_EQ(avgRate, 0x00010203u);
    }
}

TEST(ESDSTest, ConfigWithoutDecoderSpecificInfo) {
    for (const std::vector<uint8_t>& tail :
         {std::vector<uint8_t>{}, std::vector<uint8_t>{0x06, 0x01, 0x02}}) {
        std::vector<uint8_t> bytes = esDescriptor(0, {}, decoderConfig(tail));
        ESDS esds(bytes.data(), bytes.size());
        ASSERT_EQ(esds.InitCheck(), OK);
        EXPECT_TRUE(csiOf(esds).empty());
    }
}

TEST(ESDSTest, LengthsThatLieAreMalformed) {
    const std::vector<uint8_t> dsi = {0x05, 0x02, 0x12, 0x10};
    std::vector<uint8_t> good = esDescriptor(0, {}, decoderConfig(dsi));
    ASSERT_EQ(ESDS(good.data(), good.size()).InitCheck(), OK);

    std::vector<uint8_t> esTooLong = good;
    esTooLong[1] += 1;
    // The DecoderConfig claims one byte more than its ES parent holds, and
    // that byte exists in the buffer: it still may not be used.
    std::vector<uint8_t> configPastParent = concat({good, {0x00}});
    configPastParent[1 + 1 + 3 + 1] += 1;
    std::vector<uint8_t> dsiPastParent = concat({good, {0x00}});
    dsiPastParent[dsiPastParent.size() - 1 - 3] += 1;  // the DSI length byte
    std::vector<uint8_t> urlPastEnd = esDescriptor(0x40, {0x30, 'a'}, {});
    std::vector<uint8_t> fiveByteLength = {0x03, 0x80, 0x80, 0x80, 0x80, 0x05, 0, 1, 0, 0, 0};
    std::vector<uint8_t> shortConfig = esDescriptor(0, {}, {0x04, 0x03, 0x40, 0x15, 0x00});
    std::vector<uint8_t> wrongTag = good;
    wrongTag[0] = 0x04;
    std::vector<uint8_t> noConfig = esDescriptor(0, {}, {0x06, 0x01, 0x02});
    std::vector<uint8_t> lengthCutOff = {0x03, 0x80};  // continuation byte missing

    const std::vector<uint8_t>* kBad[] = {&esTooLong, &configPastParent, &dsiPastParent,
                                          &urlPastEnd, &fiveByteLength, &shortConfig,
                                          &wrongTag, &noConfig, &lengthCutOff};
    for (size_t i = 0; i < sizeof(kBad) / sizeof(kBad[0]); ++i) {
        ESDS esds(kBad[i]->data(), kBad[i]->size());
        EXPECT_EQ(esds.InitCheck(), ERROR_MALFORMED) << "case " << i;
        uint8_t oti;
        EXPECT_EQ(esds.getObjectTypeIndication(&oti), ERROR_MALFORMED) << "case " << i;
        const void* data;
        size_t size;
        EXPECT_EQ(esds.getCodecSpecificInfo(&data, &size), ERROR_MALFORMED) << "case " << i;
    }
    EXPECT_EQ(ESDS(nullptr, 10).InitCheck(), ERROR_MALFORMED);
    EXPECT_EQ(ESDS(good.data(), 0).InitCheck(), ERROR_MALFORMED);
}

TEST(ESDSTest, FourByteLengthAtItsLimit) {
    // Lengths in 2-, 3- and 4-byte forms around a 200-byte DSI (more than
    // one 7-bit group).
    std::vector<uint8_t> dsiBody(200);
    for (size_t i = 0; i < dsiBody.size(); ++i) dsiBody[i] = uint8_t(i);
    std::vector<uint8_t> dsi = concat({{0x05, 0x80, 0x80, 0x81, 0x48}, dsiBody});  // 128 + 72
    std::vector<uint8_t> configBody = concat({{0x40, 0x15, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, dsi});
    size_t cl = configBody.size();  // 218
    std::vector<uint8_t> config = concat({{0x04, uint8_t(0x80 | (cl >> 7)), uint8_t(cl & 0x7F)},
                                          configBody});
    std::vector<uint8_t> esBody = concat({{0x00, 0x01, 0x00}, config});
    size_t el = esBody.size();
    std::vector<uint8_t> bytes = concat(
        {{0x03, 0x80, uint8_t(0x80 | (el >> 7)), uint8_t(el & 0x7F)}, esBody});
    ESDS esds(bytes.data(), bytes.size());
    ASSERT_EQ(esds.InitCheck(), OK);
    EXPECT_EQ(csiOf(esds), dsiBody);
}

}  // namespace
