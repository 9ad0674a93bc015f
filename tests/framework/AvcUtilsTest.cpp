// The codec helpers of avc_utils on real encoder output from testdata/ and on
// small hand-made headers; exact-size buffers, so ASan sees any over-read.
#include <gtest/gtest.h>

#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <tuple>
#include <vector>

#include <media/stagefright/MediaDefs.h>
#include <media/stagefright/MetaData.h>
#include <media/stagefright/foundation/ABuffer.h>
#include <media/stagefright/foundation/avc_utils.h>

#include "TestDataSources.h"
#include "TrackReader.h"

using namespace android;
using namespace android::test;

namespace {

Bytes prefix(const Bytes& b, size_t n) { return Bytes(b.begin(), b.begin() + n); }

// Payloads of the first `maxChunks` non-empty '00dc' chunks of an AVI, by its idx1 dump.
std::vector<Bytes> aviVideoChunks(const std::string& name, size_t maxChunks) {
    const Bytes f = readFileBytes(testdataPath(name));
    std::vector<Bytes> chunks;
    for (const CsvRow& r : readTestdataCsv(name + ".idx1.csv")) {
        const size_t at = std::stoul(r.at("file_offset")), size = std::stoul(r.at("size"));
        if (r.at("ckid") == "00dc" && size > 0 && chunks.size() < maxChunks) {
            chunks.emplace_back(f.begin() + at, f.begin() + at + size);
        }
    }
    return chunks;
}

// 176x144 has no frame cropping; 1920x1080 is coded as 1088 rows and cropped.
const std::tuple<const char*, int32_t, int32_t> kH264[] = {{"h264_176x144", 176, 144}, {"h264_1920x1080", 1920, 1080}};

bool dims(const Bytes& sps, int32_t* w, int32_t* h) { return FindAVCDimensions(sps.data(), sps.size(), w, h); }

// 176x144 pictures (11x9 macroblocks) varied one field at a time. Crop
// offsets 3 right, 4 bottom unless noted: the crop unit depends on chroma
// format and frame/field coding. Width 0 means rejected.
TEST(FindAVCDimensionsTest, HandMadeSPS) {
    const struct { const char* mName; const char* mHex; int32_t mWidth, mHeight; } kCases[] = {
        {"Crop420", "6742001EED0589F24A80", 170, 136},
        {"FieldCoded", "6742001EED0589792540", 170, 272},
        {"High444", "6764001E919B41627C92A0", 173, 140},
        {"SeparatePlanes", "6764001E939B41627C92A0", 173, 140},
        {"High422", "6764001EBCDA0B13E495", 170, 140},
        {"Monochrome", "6764001EF3682C4F9254", 173, 140},
        // 4x4 lists hold 16 entries, 8x8 lists 64; odd lists end at next scale 0.
        {"ScalingLists", "6764001EADFFFFF847FFFFE11FFFFF847FFFFFFFFFFFFFFFFE11DA0B13E495", 170, 136},
        {"ScalingLists444", "6764001E91BFFFFF08FFFFFC23FFFFF08FFFFFFFFFFFFFFFFFC23FFFFFFFFFFFFFFFFF08"
                            "FFFFFFFFFFFFFFFFFC23B41627C92A", 173, 140},
        {"Poc1x255", "6742001ED0E380201FFFFFFFFFFFFFFFFFFFFFFFFFFF"
                     "FFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFD0589C80", 176, 144},
        {"Poc1x256", "6742001ED0E380203FFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFFE82C4E40", 0, 0},
        {"PocType2", "6742001EDA0B1390", 176, 144},
        {"PocType3", "6742001EC882C4E4", 0, 0},
        // offset_for_non_ref_pic -2^30: emulation prevention before the sizes; crop 1, 1.
        {"EscapeBeforeSizes", "6742001ED000000300040000030008E7A0B13EA9", 174, 142},
        {"CropOneLeftOf88", "6742001EED0589E058E8", 2, 144},
        {"CropAll", "6742001EED0589E0B416E8", 0, 0},
        {"CropBottom2e32", "6742001EED0589FC0000030007FFFFFFFA", 0, 0},
        {"WidthOverflows", "6742001EED00000300007FFFFFFF89C8", 0, 0},
        {"ExpGolomb32Zeros", "6742001E0000030000800000030040", 0, 0},
        {"PPS", "6842001EED0589C8", 0, 0},
        {"Short", "67", 0, 0},
        {"Empty", "", 0, 0},
    };
    for (const auto& c : kCases) {
        int32_t w = 0, h = 0;
        ASSERT_EQ(dims(hexBytes(c.mHex), &w, &h), c.mWidth > 0) << c.mName;
        EXPECT_TRUE(c.mWidth == 0 || (w == c.mWidth && h == c.mHeight)) << c.mName << " " << w << "x" << h;
    }
}

sp<MetaData> makeCsd(const Bytes& bytes, size_t skip = 0) {
    sp<ABuffer> buffer = new ABuffer(bytes.size());
    if (!bytes.empty()) memcpy(buffer->data(), bytes.data(), bytes.size());
    buffer->setRange(skip, bytes.size() - skip);
    return MakeAVCCodecSpecificData(buffer);
}

Bytes avccOf(const sp<MetaData>& meta) {
    uint32_t type = kTypeAVCC;
    Bytes avcc = findBytes(meta, kKeyAVCC, &type);
    EXPECT_EQ(type, uint32_t(kTypeAVCC));
    return avcc;
}

// Dimensions from the SPS, and the record of a whole stream (first SPS and PPS, escaped).
TEST(MakeAVCCodecSpecificDataTest, RealStreams) {
    for (const auto& f : kH264) {
        const std::string p = std::get<0>(f);
        SCOPED_TRACE(p);
        Bytes sps = readFileBytes(testdataPath(p + ".sps.bin")), pps = readFileBytes(testdataPath(p + ".pps.bin"));
        int32_t w = 0, h = 0;
        EXPECT_TRUE(dims(sps, &w, &h) && w == std::get<1>(f) && h == std::get<2>(f)) << w << "x" << h;
        for (size_t n = 0; n < sps.size(); ++n) EXPECT_TRUE(!dims(prefix(sps, n), &w, &h) || (w > 0 && h > 0)) << n;
        sp<MetaData> meta = makeCsd(readFileBytes(testdataPath(p + ".h264")));
        ASSERT_NE(meta, nullptr);
        const char* mime = "";
        EXPECT_TRUE(meta->findCString(kKeyMIMEType, &mime) && !strcmp(mime, MEDIA_MIMETYPE_VIDEO_AVC));
        EXPECT_TRUE(meta->findInt32(kKeyWidth, &w) && meta->findInt32(kKeyHeight, &h) && w == std::get<1>(f) &&
                    h == std::get<2>(f)) << w << "x" << h;
        const Bytes spsHead = {1, sps[1], sps[2], sps[3], 0xFF, 0xE1, uint8_t(sps.size() >> 8), uint8_t(sps.size())};
        EXPECT_EQ(avccOf(meta), cat({spsHead, sps, {1, uint8_t(pps.size() >> 8), uint8_t(pps.size())}, pps}));
    }
}

TEST(MakeAVCCodecSpecificDataTest, StartCodeFormsRangeAndUnusableInput) {
    const Bytes sps = readFileBytes(testdataPath("h264_176x144.sps.bin"));
    const Bytes pps = readFileBytes(testdataPath("h264_176x144.pps.bin"));
    // Junk before the range, 3-byte start codes, zeros after the PPS, a second SPS.
    const Bytes junkFirst = cat({{0xAA, 0xBB, 0, 0, 1}, {0, 0, 1}, sps, {0, 0, 1}, pps, {0, 0}, {0, 0, 1, 0x67, 0x42}});
    Bytes avcc = avccOf(makeCsd(junkFirst, 5));
    ASSERT_EQ(avcc.size(), 11 + sps.size() + pps.size());
    EXPECT_EQ(Bytes(avcc.begin() + 8, avcc.begin() + 8 + sps.size()), sps);
    EXPECT_EQ(Bytes(avcc.end() - pps.size(), avcc.end()), pps);

    Bytes bigSps = sps;  // a length that does not fit the record's 16 bits
    bigSps.resize(70000, 0x55);
    for (const Bytes& bad : {Bytes(), Bytes{0, 0, 1}, cat({{0, 0, 0, 1}, sps, {0, 0, 0, 1, 0x65, 0x88}}),
                             cat({{0, 0, 0, 1}, pps}), cat({{0, 0, 1, 0x67, 0x64, 0x00}, {0, 0, 1}, pps}),
                             cat({{0, 0, 1}, bigSps, {0, 0, 1}, pps})})
        EXPECT_EQ(makeCsd(bad), nullptr) << bad.size();
    EXPECT_EQ(MakeAVCCodecSpecificData(nullptr), nullptr);
}

// (Real files frame by frame against ffprobe's packet sizes: the MP3
// splitter's test, AVIMP3SplitterTest.)
// Version: 3 MPEG-1, 2 MPEG-2, 0 MPEG-2.5, 1 reserved. Layer bits: 3 I, 2 II,
// 1 III, 0 reserved. Sizes by hand, with truncating divisions; size 0: invalid.
TEST(GetMPEGAudioFrameSizeTest, EveryVersionAndLayer) {
    const struct { uint32_t mVersion, mLayer, mBitrateIndex, mRateIndex, mPadding, mMode;
                   size_t mSize; int mRate, mBitrate, mSamples, mChannels; } kCases[] = {
        {3, 3, 1, 0, 1, 3, 36, 44100, 32, 384, 1},     // (12*32000/44100 = 8) * 4, padding one 4-byte slot
        {2, 3, 14, 0, 0, 2, 556, 22050, 256, 384, 2},  // MPEG-2 Layer I table
        {0, 3, 1, 2, 1, 3, 196, 8000, 32, 384, 1},
        {3, 2, 14, 2, 1, 0, 1729, 32000, 384, 1152, 2},
        {2, 2, 8, 1, 0, 3, 384, 24000, 64, 1152, 1},   // MPEG-2 Layer II keeps 144
        {0, 2, 14, 1, 0, 3, 1920, 12000, 160, 1152, 1},
        {3, 1, 9, 0, 1, 1, 418, 44100, 128, 1152, 2},
        {2, 1, 4, 0, 0, 3, 104, 22050, 32, 576, 1},    // MPEG-2 Layer III uses 72
        {0, 1, 1, 0, 0, 3, 52, 11025, 8, 576, 1},
        {1, 1, 9, 0, 0, 1, 0, 0, 0, 0, 0}, {3, 0, 9, 0, 0, 1, 0, 0, 0, 0, 0}, {3, 1, 15, 0, 0, 1, 0, 0, 0, 0, 0},
        {3, 1, 0, 0, 0, 1, 0, 0, 0, 0, 0} /* free format */, {3, 1, 9, 3, 0, 1, 0, 0, 0, 0, 0},
    };
    for (const auto& c : kCases) {
        uint32_t header = 0xFFE10000u | c.mVersion << 19 | c.mLayer << 17 | c.mBitrateIndex << 12 |
                          c.mRateIndex << 10 | c.mPadding << 9 | c.mMode << 6;
        SCOPED_TRACE(::testing::Message() << std::hex << header);
        size_t size = 0, sizeOnly = 0;
        int rate = 0, channels = 0, bitrate = 0, samples = 0;
        ASSERT_EQ(GetMPEGAudioFrameSize(header, &size, &rate, &channels, &bitrate, &samples), c.mSize > 0);
        EXPECT_EQ(GetMPEGAudioFrameSize(header, &sizeOnly), c.mSize > 0);  // optional outputs left out
        if (c.mSize == 0) continue;
        EXPECT_EQ(std::make_tuple(size, sizeOnly, rate, bitrate, samples, channels),
                  std::make_tuple(c.mSize, c.mSize, c.mRate, c.mBitrate, c.mSamples, c.mChannels));
    }
    size_t size;
    for (uint32_t bad : {0xFFDB9044u, 0x7FFB9044u, 0u}) EXPECT_FALSE(GetMPEGAudioFrameSize(bad, &size)) << bad;  // sync
}

// MSB-first fields {value, bit count}, zero-padded to whole bytes.
Bytes bits(std::initializer_list<std::pair<uint64_t, int>> fields) {
    Bytes out;
    size_t n = 0;
    for (const auto& f : fields)
        for (int i = f.second - 1; i >= 0; --i, ++n) {
            if (n % 8 == 0) out.push_back(0);
            out.back() |= uint8_t(((f.first >> i) & 1) << (7 - n % 8));
        }
    return out;
}

// PSC, TR, PTYPE, [UFEP, [OPPTYPE,]] and a few more bits (not cut short).
Bytes h263Header(uint32_t format, uint32_t modes, uint32_t ufep = 0, uint32_t opptype = 0, size_t stuffing = 0) {
    bool ext = format == 7;
    return cat({Bytes(stuffing, 0), bits({{0x20, 22}, {5, 8}, {2, 2}, {0, 3}, {format, 3}, {ext ? 0 : 1, ext ? 0 : 1},
                                          {ext ? ufep : modes, ext ? 3 : 4}, {opptype, ext && ufep == 1 ? 18 : 0},
                                          {0x1F, 5}, {0, 16}})});
}

// OPPTYPE with QCIF, the fixed "1 000" tail and bit `bit` (1 = first) set.
uint32_t opptype(int bit = 0) { return (2u << 15) | 8u | (bit ? 1u << (18 - bit) : 0); }

int detect(Bytes b) { return Detect263AdvancedFeatures(b.data(), static_cast<int>(b.size())); }

// OPPTYPE bits 4 (custom PCF, not a mode) to 14 in the loop; -1: negative.
TEST(Detect263AdvancedFeaturesTest, RealAndHandMadePictures) {
    std::vector<Bytes> frames = aviVideoChunks("avi_h263_alaw.avi", 50);
    ASSERT_EQ(frames.size(), 50u);
    for (size_t i = 0; i < frames.size(); ++i) EXPECT_EQ(detect(frames[i]), 0) << "frame " << i;
    // ffmpeg's decoder reports this picture as "AP UMV + AIC AIV MQ LOOP SS".
    EXPECT_EQ(detect(readFileBytes(testdataPath("h263p_qcif_annexes.h263"))),
              kH263UnrestrictedMV | kH263AdvancedPrediction | kH263AdvancedIntraCoding | kH263AlternativeInterVLC |
                  kH263ModifiedQuantization | kH263DeblockingFilter | kH263SliceStructured);
    Bytes fixedBitsWrong = h263Header(2, 0);
    fixedBitsWrong[3] ^= 0x03;  // PTYPE bits 1-2 become "0 1"
    const std::pair<Bytes, int> kCases[] = {
        {h263Header(2, 0), 0}, {h263Header(2, 8), kH263UnrestrictedMV}, {h263Header(3, 4), kH263SyntaxArithmeticCoding},
        {h263Header(1, 2), kH263AdvancedPrediction}, {h263Header(5, 1), kH263PBFrames},
        {h263Header(2, 8, 0, 0, 3), kH263UnrestrictedMV},  // stuffing before the PSC
        {h263Header(7, 0, 0), 0},                          // UFEP 0: no OPPTYPE
        {h263Header(7, 0, 1, opptype()), 0}, {h263Header(7, 0, 1, opptype() & 0x7FFF), -1},
        {h263Header(7, 0, 1, opptype() & ~8u), -1}, {h263Header(0, 0), -1} /* forbidden format */,
        {h263Header(6, 0), -1}, {h263Header(7, 0, 2), -1} /* reserved UFEP */, {fixedBitsWrong, -1},
        {h263Header(2, 0, 0, 0, 33), -1} /* PSC beyond the search */, {Bytes(), -1}, {Bytes{0, 0}, -1},
        {Bytes(64, 0), -1},
    };
    for (const auto& c : kCases) {
        EXPECT_EQ(std::max(detect(c.first), -1), c.second) << ::testing::PrintToString(c.first);
    }
    const int kPlus[] = {0, kH263UnrestrictedMV, kH263SyntaxArithmeticCoding, kH263AdvancedPrediction,
                         kH263AdvancedIntraCoding, kH263DeblockingFilter, kH263SliceStructured,
                         kH263ReferencePictureSelection, kH263IndependentSegmentDecoding,
                         kH263AlternativeInterVLC, kH263ModifiedQuantization};
    for (int bit = 4; bit <= 14; ++bit) EXPECT_EQ(detect(h263Header(7, 0, 1, opptype(bit))), kPlus[bit - 4]) << bit;
    EXPECT_TRUE(Detect263AdvancedFeatures(nullptr, 10) < 0 && Detect263AdvancedFeatures(fixedBitsWrong.data(), -5) < 0);
    // A baseline header needs 43 bits; an extended one 41 + 18.
    for (auto c : {std::make_pair(h263Header(2, 15), 43), std::make_pair(h263Header(7, 0, 1, opptype(5)), 59)}) {
        size_t need = (c.second + 7) / 8;
        for (size_t n = 0; n <= need; ++n) EXPECT_EQ(detect(prefix(c.first, n)) >= 0, n == need) << n << " bytes";
    }
}

int warpPoints(Bytes b) { return ParseMPEG4GMCWarpPoint(b.data(), static_cast<int>(b.size())); }

// VOS, [VO,] VO and a VOL header with the named fields; every prefix shorter
// than `mNeeded` must fail. sprite_enable is one bit for version-1 layers and
// two otherwise (two for "StaticVerid1" would read sprite_width as GMC).
TEST(ParseMPEG4GMCWarpPointTest, RealAndHandMadeHeaders) {
    for (const char* name : {"avi_xvid_mp3.avi", "avi_mpeg4_ima.avi", "avi_dx50_msadpcm.avi"}) {
        std::vector<Bytes> frames = aviVideoChunks(name, 1);
        ASSERT_EQ(frames.size(), 1u) << name;
        EXPECT_EQ(warpPoints(frames[0]), 0) << name;  // no sprites
    }
    const struct { const char* mName; size_t mNeeded; const char* mHex; int mExpected; } kCases[] = {
        {"Gmc3Verid2", 24, "000001B001000001000000012000C888800CD058412160E204", 3},
        {"EveryOptionalFieldGmc63", 38,
         "000001B001000001000000012000C8F8605DC91A42B3FFFFEBFF9ABC97530C000C1610485BF881", 63},
        {"VeridFromVisualObject", 29, "000001B001000001B59114000001000000012000844006682C2090B03102", 1},
        {"GrayscaleVerid2", 21, "000001B001000001000000012000C88B0800CCC14408", 2},
        {"ResolutionOneFixedRate", 24, "000001B001000001000000012000C8888000F82C2090B07102", 3},
        {"StaticVerid1", 30, "000001B001000001000000012000844006682C2090B0AAC2AB0AAC2AB12102", 0},
        {"BinaryOnlyShape", 19, "000001B001000001000000012000C88A800CC810", 0},
        {"ZeroTimeResolution", 0, "000001B001000001000000012000844000282C2090A408", -1},
        {"ReservedSpriteValue", 0, "000001B001000001000000012000C888800CD05841217408", -1},
        {"NoVol", 0, "000001B00100000100", -1},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.mName);
        Bytes vol = hexBytes(c.mHex);
        EXPECT_EQ(std::max(warpPoints(vol), -1), c.mExpected);
        for (size_t n = 0; n < c.mNeeded; ++n) EXPECT_LT(warpPoints(prefix(vol, n)), 0) << n;
        EXPECT_TRUE(!c.mNeeded || warpPoints(prefix(vol, c.mNeeded)) == c.mExpected);
    }
    EXPECT_TRUE(warpPoints({}) < 0 && ParseMPEG4GMCWarpPoint(nullptr, 100) < 0);
}

}  // namespace
