// The codec helpers of avc_utils on real encoder output from testdata/ (a
// misreading of the standards shows up against a second, independent
// implementation) and on hand-built headers for branches the encoders never
// take. Negative cases run under ASan: these parse file bytes.
#include <gtest/gtest.h>

#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include <media/stagefright/MediaDefs.h>
#include <media/stagefright/MetaData.h>
#include <media/stagefright/foundation/ABuffer.h>
#include <media/stagefright/foundation/avc_utils.h>

#include "TestDataSources.h"

using namespace android;
using android::test::readFileBytes;
using android::test::testdataPath;

namespace {

typedef std::vector<uint8_t> Bytes;

// MSB-first bit writer for hand-built headers.
class BitWriter {
public:
    BitWriter& put(uint64_t value, int bits) {
        for (int i = bits - 1; i >= 0; --i) {
            if (mBits % 8 == 0) mBytes.push_back(0);
            if ((value >> i) & 1) mBytes.back() |= uint8_t(0x80 >> (mBits % 8));
            ++mBits;
        }
        return *this;
    }
    BitWriter& ue(uint64_t value) {
        int len = 0;
        while (((value + 1) >> len) > 1) ++len;
        return put(0, len).put(value + 1, len + 1);
    }
    BitWriter& se(int64_t v) { return ue(v > 0 ? uint64_t(2 * v - 1) : uint64_t(-2 * v)); }
    BitWriter& stopBitAndAlign() { return put(1, 1).align(); }
    BitWriter& align() { return put(0, (8 - mBits % 8) % 8); }
    Bytes bytes() const { return mBytes; }
    Bytes mBytes;
    size_t mBits = 0;
};

Bytes cat(std::initializer_list<Bytes> parts) {
    Bytes out;
    for (const auto& p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}

// Inserts emulation-prevention bytes as an encoder must.
Bytes escape(const Bytes& rbsp) {
    Bytes out;
    int zeros = 0;
    for (uint8_t b : rbsp) {
        if (zeros >= 2 && b <= 3) out.push_back(3), zeros = 0;
        out.push_back(b);
        zeros = b == 0 ? zeros + 1 : 0;
    }
    return out;
}

// The "size" column of an ffprobe packets CSV.
std::vector<size_t> packetSizes(const std::string& csvName) {
    std::ifstream in(testdataPath(csvName));
    std::vector<size_t> sizes;
    for (std::string line, col; std::getline(in, line);) {
        std::istringstream fields(line);
        for (int i = 0; i <= 7; ++i) std::getline(fields, col, ',');
        if (line[0] != '#') sizes.push_back(std::stoul(col));
    }
    return sizes;
}

// Payloads of the first `maxChunks` '00dc' chunks of an AVI's movi list.
std::vector<Bytes> aviVideoChunks(const std::string& name, size_t maxChunks) {
    Bytes file = readFileBytes(testdataPath(name));
    std::vector<Bytes> chunks;
    const uint8_t kMovi[] = {'m', 'o', 'v', 'i'};
    size_t pos = std::search(file.begin(), file.end(), kMovi, kMovi + 4) - file.begin() + 4;
    while (chunks.size() < maxChunks && pos + 8 <= file.size()) {
        uint32_t size = file[pos + 4] | file[pos + 5] << 8 | file[pos + 6] << 16 | uint32_t(file[pos + 7]) << 24;
        if (memcmp(&file[pos], "idx1", 4) == 0 || size > file.size() - pos - 8) break;
        if (memcmp(&file[pos], "00dc", 4) == 0 && size > 0) chunks.emplace_back(&file[pos + 8], &file[pos + 8 + size]);
        pos += 8 + size + (size & 1);
    }
    return chunks;
}

// The real streams and their sizes (h264.expected.txt).
const struct { const char* mPrefix; int32_t mWidth, mHeight; } kH264[] = {
    {"h264_176x144", 176, 144}, {"h264_1920x1080", 1920, 1080}};

// ---- FindAVCDimensions ----

// A baseline SPS (profile 66) up to frame cropping; each case changes a field.
struct Sps {
    uint32_t mProfile = 66, mChromaFormat = 1, mPocType = 0, mPocCycle = 0, mWidthMbsMinus1 = 10, mHeightMapMinus1 = 8;
    int64_t mPocOffset = -3;  // offset_for_non_ref_pic
    bool mSeparatePlanes = false, mScalingLists = false, mFrameMbsOnly = true, mCrop = false;
    uint32_t mCropLeft = 0, mCropRight = 0, mCropTop = 0, mCropBottom = 0;
};

Bytes buildSps(const Sps& s) {
    BitWriter w;
    w.put(s.mProfile, 8).put(0, 8).put(30, 8).ue(0);
    if (s.mProfile == 100) {
        w.ue(s.mChromaFormat);
        if (s.mChromaFormat == 3) w.put(s.mSeparatePlanes, 1);
        w.ue(0).ue(0).put(0, 1).put(s.mScalingLists, 1);
        for (int i = 0; s.mScalingLists && i < (s.mChromaFormat == 3 ? 12 : 8); ++i) {
            w.put(1, 1);
            // Even lists: a +5 ramp, a -128 jump and a final 0, all coded.
            // Odd lists: three steps, then -23 makes nextScale 0 and ends it.
            for (int j = 0, n = i < 6 ? 16 : 64; j < n; ++j) {
                bool endsHere = (i % 2) && j == 3;
                w.se(endsHere ? -23 : j == n - 2 ? -128 : j == n - 1 ? 0 : 5);
                if (endsHere) break;
            }
        }
    }
    w.ue(0).ue(s.mPocType);
    if (s.mPocType == 0) w.ue(2);
    if (s.mPocType == 1) {
        w.put(0, 1).se(s.mPocOffset).se(7).ue(s.mPocCycle);
        for (uint32_t i = 0; i < s.mPocCycle; ++i) w.se(i % 2 ? -int64_t(i) : int64_t(i));
    }
    w.ue(1).put(0, 1).ue(s.mWidthMbsMinus1).ue(s.mHeightMapMinus1).put(s.mFrameMbsOnly, 1);
    if (!s.mFrameMbsOnly) w.put(1, 1);
    w.put(1, 1).put(s.mCrop, 1);
    if (s.mCrop) w.ue(s.mCropLeft).ue(s.mCropRight).ue(s.mCropTop).ue(s.mCropBottom);
    w.put(0, 1).stopBitAndAlign();  // no VUI
    return cat({{0x67}, escape(w.bytes())});
}

bool dims(const Bytes& sps, int32_t* w, int32_t* h) { return FindAVCDimensions(sps.data(), sps.size(), w, h); }

TEST(FindAVCDimensionsTest, RealSPSAndEveryPrefixOrBitFlipOfIt) {
    for (const auto& f : kH264) {
        SCOPED_TRACE(f.mPrefix);
        Bytes sps = readFileBytes(testdataPath(std::string(f.mPrefix) + ".sps.bin"));
        int32_t w = 0, h = 0;
        ASSERT_TRUE(dims(sps, &w, &h));
        EXPECT_EQ(w, f.mWidth);
        EXPECT_EQ(h, f.mHeight);
        // Every prefix and single-bit flip may be accepted or rejected, but must
        // stay inside the exact-size buffer (ASan) and never give a size <= 0.
        auto check = [&](const Bytes& bad) {
            EXPECT_TRUE(!dims(bad, &w, &h) || (w > 0 && h > 0)) << ::testing::PrintToString(bad);
        };
        for (size_t n = 0; n < sps.size(); ++n) check(Bytes(sps.begin(), sps.begin() + n));
        for (size_t bit = 8; bit < sps.size() * 8; ++bit) {
            Bytes bad = sps;
            bad[bit / 8] ^= uint8_t(0x80 >> (bit % 8));
            check(bad);
        }
    }
}

// Crop units per chroma format and frame/field coding, the skipped syntax,
// and the limits (width 0: rejected). "EscapeBeforeSizes" pins removal of
// emulation-prevention bytes: the real files only have them in the VUI, after
// every field read here; offset_for_non_ref_pic = -2^30 puts one before.
TEST(FindAVCDimensionsTest, HandBuiltSPS) {
    Sps base, crop420, field, high444, planes, high422, mono, scaling, scaling444, poc1, poc2, epb, cycle256,
        cropAll, cropHuge, wide, poc3, cropOne;
    crop420.mCrop = true, crop420.mCropRight = 3, crop420.mCropBottom = 4;
    field = crop420, field.mFrameMbsOnly = false;  // field MB pairs; crop unit Y doubles
    high444 = crop420, high444.mProfile = 100, high444.mChromaFormat = 3;
    planes = high444, planes.mSeparatePlanes = true;  // ChromaArrayType 0
    high422 = crop420, high422.mProfile = 100, high422.mChromaFormat = 2;
    mono = crop420, mono.mProfile = 100, mono.mChromaFormat = 0;
    scaling = crop420, scaling.mProfile = 100, scaling.mScalingLists = true;
    scaling444 = high444, scaling444.mScalingLists = true;  // 12 lists
    poc1.mPocType = 1, poc1.mPocCycle = 255, poc2.mPocType = 2, poc3.mPocType = 3;
    epb = poc1, epb.mPocOffset = -(INT64_C(1) << 30), epb.mPocCycle = 2;
    epb.mCrop = true, epb.mCropRight = 1, epb.mCropBottom = 1;
    cycle256 = poc1, cycle256.mPocCycle = 256;
    cropAll.mCrop = true, cropAll.mCropLeft = 44, cropAll.mCropRight = 44;
    cropHuge.mCrop = true, cropHuge.mCropBottom = 0xFFFFFFFEu;  // must not wrap
    wide.mWidthMbsMinus1 = 0xFFFFFFFEu;  // x16 overflows 32 bits
    cropOne.mCrop = true, cropOne.mCropLeft = 87;  // one unit left is still a picture
    const struct { const char* mName; Sps mSps; int32_t mWidth, mHeight; } kCases[] = {
        {"Baseline", base, 176, 144}, {"Crop420", crop420, 170, 136}, {"FieldCoded", field, 170, 272},
        {"High444", high444, 173, 140}, {"SeparatePlanes", planes, 173, 140}, {"High422", high422, 170, 140},
        {"Monochrome", mono, 173, 140}, {"ScalingLists", scaling, 170, 136}, {"ScalingLists444", scaling444, 173, 140},
        {"PocType1Cycle255", poc1, 176, 144}, {"PocType2", poc2, 176, 144}, {"EscapeBeforeSizes", epb, 174, 142},
        {"CropOneLeft", cropOne, 2, 144}, {"Cycle256", cycle256, 0, 0}, {"CropAll", cropAll, 0, 0},
        {"CropHuge", cropHuge, 0, 0}, {"Wide", wide, 0, 0}, {"PocType3", poc3, 0, 0},
    };
    for (const auto& c : kCases) {
        int32_t w = 0, h = 0;
        ASSERT_EQ(dims(buildSps(c.mSps), &w, &h), c.mWidth > 0) << c.mName;
        EXPECT_TRUE(c.mWidth == 0 || (w == c.mWidth && h == c.mHeight)) << c.mName << " " << w << "x" << h;
    }
    const uint8_t kEPB[] = {0, 0, 3};
    Bytes escaped = buildSps(epb);
    EXPECT_LT(std::search(escaped.begin(), escaped.end(), kEPB, kEPB + 3) - escaped.begin(), 12);
    // An Exp-Golomb code with 32 leading zeros; a PPS; too short; nothing.
    BitWriter longCode;
    longCode.put(66, 8).put(0, 8).put(30, 8).put(0, 32).put(1, 1).put(0, 32).stopBitAndAlign();
    int32_t w, h;
    EXPECT_FALSE(dims(cat({{0x67}, escape(longCode.bytes())}), &w, &h));
    Bytes pps = buildSps(Sps());
    pps[0] = 0x68;
    EXPECT_FALSE(dims(pps, &w, &h));
    EXPECT_FALSE(FindAVCDimensions(pps.data(), 1, &w, &h));
    EXPECT_FALSE(FindAVCDimensions(nullptr, 0, &w, &h));
}

// ---- MakeAVCCodecSpecificData ----

sp<MetaData> makeCsd(const Bytes& bytes, size_t skip = 0) {
    sp<ABuffer> buffer = new ABuffer(bytes.size());
    if (!bytes.empty()) memcpy(buffer->data(), bytes.data(), bytes.size());
    buffer->setRange(skip, bytes.size() - skip);
    return MakeAVCCodecSpecificData(buffer);
}

Bytes avccOf(const sp<MetaData>& meta) {
    uint32_t type = 0;
    const void* data;
    size_t size = 0;
    if (meta == nullptr || !meta->findData(kKeyAVCC, &type, &data, &size)) return {};
    EXPECT_EQ(type, uint32_t(kTypeAVCC));
    return Bytes(static_cast<const uint8_t*>(data), static_cast<const uint8_t*>(data) + size);
}

// The record from the real first access units keeps the escaped SPS bytes.
TEST(MakeAVCCodecSpecificDataTest, RealStreams) {
    for (const auto& f : kH264) {
        SCOPED_TRACE(f.mPrefix);
        const std::string p = f.mPrefix;
        Bytes stream = readFileBytes(testdataPath(p + ".h264"));
        Bytes sps = readFileBytes(testdataPath(p + ".sps.bin")), pps = readFileBytes(testdataPath(p + ".pps.bin"));
        sp<MetaData> meta = makeCsd(stream);  // the whole stream: the first SPS and PPS are used
        ASSERT_NE(meta, nullptr);
        const char* mime = "";
        int32_t w = 0, h = 0;
        EXPECT_TRUE(meta->findCString(kKeyMIMEType, &mime) && meta->findInt32(kKeyWidth, &w) &&
                    meta->findInt32(kKeyHeight, &h));
        EXPECT_STREQ(mime, MEDIA_MIMETYPE_VIDEO_AVC);
        EXPECT_EQ(w, f.mWidth);
        EXPECT_EQ(h, f.mHeight);
        EXPECT_EQ(avccOf(meta), cat({{1, sps[1], sps[2], sps[3], 0xFF, 0xE1, uint8_t(sps.size() >> 8),
                                      uint8_t(sps.size())}, sps, {1, uint8_t(pps.size() >> 8), uint8_t(pps.size())}, pps}));
    }
}

TEST(MakeAVCCodecSpecificDataTest, StartCodeFormsRangeAndUnusableInput) {
    Bytes sps = readFileBytes(testdataPath("h264_176x144.sps.bin"));
    Bytes pps = readFileBytes(testdataPath("h264_176x144.pps.bin"));
    // Junk before the buffer's range, 3-byte start codes, trailing zero bytes
    // after the PPS, and a second SPS that must not win.
    Bytes avcc = avccOf(makeCsd(cat({{0xAA, 0xBB, 0, 0, 1}, {0, 0, 1}, sps, {0, 0, 1}, pps, {0, 0}, {0, 0, 1, 0x67, 0x42}}), 5));
    ASSERT_EQ(avcc.size(), 11 + sps.size() + pps.size());
    EXPECT_EQ(Bytes(avcc.begin() + 8, avcc.begin() + 8 + sps.size()), sps);
    EXPECT_EQ(Bytes(avcc.end() - pps.size(), avcc.end()), pps);

    Bytes bigSps = sps;  // a length that does not fit the record's 16 bits
    bigSps.resize(70000, 0x55);
    for (const Bytes& bad : {Bytes(), Bytes{0, 0, 1}, cat({{0, 0, 0, 1}, sps, {0, 0, 0, 1, 0x65, 0x88}}),
                             cat({{0, 0, 0, 1}, pps}), cat({{0, 0, 1, 0x67, 0x64, 0x00}, {0, 0, 1}, pps}),
                             cat({{0, 0, 1}, bigSps, {0, 0, 1}, pps})}) {
        EXPECT_EQ(makeCsd(bad), nullptr) << bad.size();
    }
    EXPECT_EQ(MakeAVCCodecSpecificData(nullptr), nullptr);
}

// ---- GetMPEGAudioFrameSize ----

uint32_t mpegHeader(uint32_t version, uint32_t layer, uint32_t bitrateIndex, uint32_t rateIndex,
                    uint32_t padding, uint32_t mode) {
    return 0xFFE00000u | version << 19 | layer << 17 | 1u << 16 | bitrateIndex << 12 | rateIndex << 10 |
           padding << 9 | mode << 6;
}

// Walking each real file frame by frame lands on every ffprobe packet size
// and ends exactly at the end of the file.
TEST(GetMPEGAudioFrameSizeTest, RealFilesFrameByFrame) {
    for (std::string name : {"mp3_44100_stereo.mp3", "mp3_22050_mono.mp3", "mp3_8000_mono.mp3", "mp2_48000.mp2",
                             "mp2_24000.mp2"}) {
        SCOPED_TRACE(name);
        Bytes file = readFileBytes(testdataPath(name));
        std::vector<size_t> expected = packetSizes(name + ".packets.csv"), got;
        ASSERT_FALSE(expected.empty());
        for (size_t pos = 0; pos + 4 <= file.size() && got.size() <= expected.size();) {
            uint32_t header = uint32_t(file[pos]) << 24 | file[pos + 1] << 16 | file[pos + 2] << 8 | file[pos + 3];
            size_t size = 0;
            ASSERT_TRUE(GetMPEGAudioFrameSize(header, &size)) << pos;
            ASSERT_GT(size, 0u);
            got.push_back(size);
            pos += size;
        }
        EXPECT_EQ(got, expected);
    }
}

// Version: 3 MPEG-1, 2 MPEG-2, 0 MPEG-2.5. Layer bits: 3 I, 2 II, 1 III.
// Sizes by hand from the frame-length formulas, with truncating divisions.
TEST(GetMPEGAudioFrameSizeTest, EveryVersionAndLayer) {
    const struct { uint32_t mVersion, mLayer, mBitrateIndex, mRateIndex, mPadding, mMode;
                   size_t mSize; int mRate, mBitrate, mSamples, mChannels; } kCases[] = {
        {3, 3, 1, 0, 0, 0, 32, 44100, 32, 384, 2},     // (12*32000/44100 = 8) * 4
        {3, 3, 1, 0, 1, 3, 36, 44100, 32, 384, 1},     // padding is one 4-byte slot
        {2, 3, 14, 0, 0, 2, 556, 22050, 256, 384, 2},  // MPEG-2 Layer I table
        {0, 3, 1, 2, 1, 3, 196, 8000, 32, 384, 1},     // MPEG-2.5 Layer I
        {3, 2, 10, 1, 0, 0, 576, 48000, 192, 1152, 2},
        {3, 2, 14, 2, 1, 0, 1729, 32000, 384, 1152, 2},
        {2, 2, 8, 1, 0, 3, 384, 24000, 64, 1152, 1},   // MPEG-2 Layer II keeps 144
        {0, 2, 14, 1, 0, 3, 1920, 12000, 160, 1152, 1},
        {3, 1, 9, 0, 1, 1, 418, 44100, 128, 1152, 2},
        {3, 1, 14, 2, 0, 0, 1440, 32000, 320, 1152, 2},
        {2, 1, 4, 0, 0, 3, 104, 22050, 32, 576, 1},    // MPEG-2 Layer III uses 72
        {0, 1, 1, 0, 0, 3, 52, 11025, 8, 576, 1},
    };
    for (const auto& c : kCases) {
        uint32_t header = mpegHeader(c.mVersion, c.mLayer, c.mBitrateIndex, c.mRateIndex, c.mPadding, c.mMode);
        SCOPED_TRACE(::testing::Message() << std::hex << header);
        size_t size = 0, sizeOnly = 0;
        int rate = 0, channels = 0, bitrate = 0, samples = 0;
        ASSERT_TRUE(GetMPEGAudioFrameSize(header, &size, &rate, &channels, &bitrate, &samples));
        EXPECT_EQ(std::make_tuple(size, rate, bitrate, samples, channels),
                  std::make_tuple(c.mSize, c.mRate, c.mBitrate, c.mSamples, c.mChannels));
        EXPECT_TRUE(GetMPEGAudioFrameSize(header, &sizeOnly) && sizeOnly == c.mSize);  // optional outputs left out
    }
    const uint32_t good = 0xFFFB9044u;  // first header of mp3_44100_stereo.mp3
    for (uint32_t bad : {mpegHeader(1, 1, 9, 0, 0, 1) /* reserved version */, mpegHeader(3, 0, 9, 0, 0, 1),
                         mpegHeader(3, 1, 0, 0, 0, 1) /* free format */, mpegHeader(3, 1, 15, 0, 0, 1),
                         mpegHeader(3, 1, 9, 3, 0, 1), good & ~(1u << 21), good & ~(1u << 31), 0u}) {
        size_t size;
        EXPECT_FALSE(GetMPEGAudioFrameSize(bad, &size)) << std::hex << bad;
    }
}

// ---- Detect263AdvancedFeatures ----

// PSC, TR, PTYPE, then for an extended header UFEP and OPPTYPE, then a few
// more bits so the header is not cut short.
Bytes h263Header(uint32_t sourceFormat, uint32_t ptypeModes, int ufep = -1, uint32_t opptype = 0,
                 int leadingZeroBytes = 0) {
    BitWriter w;
    for (int i = 0; i < leadingZeroBytes; ++i) w.put(0, 8);
    w.put(0x20, 22).put(5, 8).put(2, 2).put(0, 3).put(sourceFormat, 3);
    if (sourceFormat != 7) w.put(1, 1).put(ptypeModes, 4);
    if (sourceFormat == 7) w.put(uint32_t(ufep), 3).put(opptype, ufep == 1 ? 18 : 0);
    return w.put(0x1F, 5).put(0, 16).align().bytes();
}

// OPPTYPE with QCIF, the fixed "1 000" tail and bit `bit` (1 = first) set.
uint32_t opptype(int bit = 0) { return (2u << 15) | 8u | (bit ? 1u << (18 - bit) : 0); }

int detect(Bytes b) { return Detect263AdvancedFeatures(b.data(), static_cast<int>(b.size())); }

TEST(Detect263AdvancedFeaturesTest, RealPictures) {
    std::vector<Bytes> frames = aviVideoChunks("avi_h263_alaw.avi", 50);
    ASSERT_EQ(frames.size(), 50u);
    for (size_t i = 0; i < frames.size(); ++i) EXPECT_EQ(detect(frames[i]), 0) << "frame " << i;
    // ffmpeg's decoder reports this picture as "AP UMV + AIC AIV MQ LOOP SS".
    EXPECT_EQ(detect(readFileBytes(testdataPath("h263p_qcif_annexes.h263"))),
              kH263UnrestrictedMV | kH263AdvancedPrediction | kH263AdvancedIntraCoding | kH263AlternativeInterVLC |
                  kH263ModifiedQuantization | kH263DeblockingFilter | kH263SliceStructured);
}

TEST(Detect263AdvancedFeaturesTest, EachModeMapsToItsOwnBit) {
    EXPECT_EQ(detect(h263Header(2, 0)), 0);
    EXPECT_EQ(detect(h263Header(2, 8)), kH263UnrestrictedMV);
    EXPECT_EQ(detect(h263Header(3, 4)), kH263SyntaxArithmeticCoding);
    EXPECT_EQ(detect(h263Header(1, 2)), kH263AdvancedPrediction);
    EXPECT_EQ(detect(h263Header(5, 1)), kH263PBFrames);
    EXPECT_EQ(detect(h263Header(2, 8, -1, 0, 3)), kH263UnrestrictedMV);  // stuffing before the PSC
    EXPECT_EQ(detect(h263Header(7, 0, 0)), 0);                           // UFEP 0: no OPPTYPE
    // OPPTYPE bits 4 (custom PCF, not a mode) to 14.
    const int kPlus[] = {0, kH263UnrestrictedMV, kH263SyntaxArithmeticCoding, kH263AdvancedPrediction,
                         kH263AdvancedIntraCoding, kH263DeblockingFilter, kH263SliceStructured,
                         kH263ReferencePictureSelection, kH263IndependentSegmentDecoding,
                         kH263AlternativeInterVLC, kH263ModifiedQuantization};
    EXPECT_EQ(detect(h263Header(7, 0, 1, opptype())), 0);
    for (int bit = 4; bit <= 14; ++bit) EXPECT_EQ(detect(h263Header(7, 0, 1, opptype(bit))), kPlus[bit - 4]) << bit;
}

TEST(Detect263AdvancedFeaturesTest, MalformedOrTruncatedHeadersAreNegative) {
    Bytes fixedBitsWrong = h263Header(2, 0);
    fixedBitsWrong[3] ^= 0x03;  // PTYPE bits 1-2 become "0 1"
    for (const Bytes& bad : {Bytes(), Bytes{0, 0}, Bytes(64, 0), h263Header(0, 0) /* forbidden format */,
                             h263Header(6, 0), h263Header(7, 0, 2) /* reserved UFEP */,
                             h263Header(7, 0, 1, opptype() & 0x7FFF), h263Header(7, 0, 1, opptype() & ~8u),
                             fixedBitsWrong, h263Header(2, 0, -1, 0, 33) /* PSC beyond the search */}) {
        EXPECT_LT(detect(bad), 0) << ::testing::PrintToString(bad);
    }
    EXPECT_LT(Detect263AdvancedFeatures(nullptr, 10), 0);
    EXPECT_LT(Detect263AdvancedFeatures(fixedBitsWrong.data(), -5), 0);
    // A baseline header needs 43 bits; an extended one 41 + 18.
    for (auto c : {std::make_pair(h263Header(2, 15), 43), std::make_pair(h263Header(7, 0, 1, opptype(5)), 59)}) {
        size_t need = (c.second + 7) / 8;
        for (size_t n = 0; n <= need; ++n) {
            Bytes prefix(c.first.begin(), c.first.begin() + n);
            EXPECT_EQ(detect(prefix) >= 0, n == need) << n << " bytes";
        }
    }
}

// ---- ParseMPEG4GMCWarpPoint ----

Bytes hex(const std::string& h) {
    Bytes out;
    for (size_t i = 0; i + 1 < h.size(); i += 2) out.push_back(uint8_t(std::stoul(h.substr(i, 2), nullptr, 16)));
    return out;
}

int warpPoints(Bytes b) { return ParseMPEG4GMCWarpPoint(b.data(), static_cast<int>(b.size())); }

TEST(ParseMPEG4GMCWarpPointTest, RealVolHeadersHaveNoSprites) {
    for (const char* name : {"avi_xvid_mp3.avi", "avi_mpeg4_ima.avi", "avi_dx50_msadpcm.avi"}) {
        std::vector<Bytes> frames = aviVideoChunks(name, 1);
        ASSERT_EQ(frames.size(), 1u) << name;
        EXPECT_EQ(warpPoints(frames[0]), 0) << name;
    }
}

// Visual object sequence, [visual object,] video object and a VOL header with
// the named fields; `mNeeded` is where the fields the parser reads end (every
// shorter prefix must fail). sprite_enable is one bit for version-1 layers
// and two otherwise: reading two for "Verid1Static" would take a bit of
// sprite_width as GMC and return bits of sprite_width as the count.
TEST(ParseMPEG4GMCWarpPointTest, HandBuiltHeadersAndTheirPrefixes) {
    const struct { const char* mName; size_t mNeeded; const char* mHex; int mExpected; } kCases[] = {
        {"Gmc3Verid2", 24, "000001B001000001000000012000C888800CD058412160E204", 3},
        {"EveryOptionalFieldGmc63", 38, "000001B001000001000000012000C8F8605DC91A42B3FFFFEBFF9ABC97530C000C1610485BF881", 63},
        {"Gmc7Resolution30000", 38, "000001B001000001000000012000C8F8605DC91A42B3FFFFEBFF9ABC97530C000C161048587881", 7},
        {"VeridFromVisualObject", 29, "000001B001000001B59114000001000000012000844006682C2090B03102", 1},
        {"GrayscaleVerid2", 21, "000001B001000001000000012000C88B0800CCC14408", 2},
        {"ResolutionOneFixedRate", 24, "000001B001000001000000012000C8888000F82C2090B07102", 3},
        {"NoSpriteVerid2", 23, "000001B001000001000000012000C888800CD05841214408", 0},
        {"NoSpriteVerid1", 22, "000001B001000001000000012000844006682C2090A408", 0},
        {"StaticVerid1", 30, "000001B001000001000000012000844006682C2090B0AAC2AB0AAC2AB12102", 0},
        {"StaticVerid1Points3", 30, "000001B001000001000000012000844006682C2090B0AAC2AB0AAC2AB0E102", 0},
        {"StaticVerid2", 31, "000001B001000001000000012000C888800CD058412150AAC2AB0AAC2AB12102", 0},
        {"BinaryOnlyShape", 19, "000001B001000001000000012000C88A800CC810", 0},
        {"ZeroTimeResolution", 0, "000001B001000001000000012000844000282C2090A408", -1},
        {"ReservedSpriteValue", 0, "000001B001000001000000012000C888800CD05841217408", -1},
        {"NoVol", 0, "000001B00100000100", -1},
    };
    for (const auto& c : kCases) {
        SCOPED_TRACE(c.mName);
        Bytes vol = hex(c.mHex);
        EXPECT_EQ(std::max(warpPoints(vol), -1), c.mExpected);
        for (size_t n = 0; n < c.mNeeded; ++n) EXPECT_LT(warpPoints(Bytes(vol.begin(), vol.begin() + n)), 0) << n;
        EXPECT_TRUE(!c.mNeeded || warpPoints(Bytes(vol.begin(), vol.begin() + c.mNeeded)) == c.mExpected);
    }
    EXPECT_LT(warpPoints({}), 0);
    EXPECT_LT(ParseMPEG4GMCWarpPoint(nullptr, 100), 0);
}

}  // namespace
