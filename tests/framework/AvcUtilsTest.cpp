// The codec helpers of avc_utils on real encoder output from testdata/ (so
// that a misreading of the standards shows up against a second, independent
// implementation) and on hand-built headers for the branches the encoders
// never take. Every negative case runs under ASan: these parse file bytes.
#include <gtest/gtest.h>

#include <stdint.h>
#include <string.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
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

// ---- helpers ----

// MSB-first bit writer for hand-built headers.
class BitWriter {
public:
    BitWriter& put(uint64_t value, int bits) {
        for (int i = bits - 1; i >= 0; --i) putBit((value >> i) & 1);
        return *this;
    }
    BitWriter& ue(uint64_t value) {
        uint64_t v = value + 1;
        int len = 0;
        while ((v >> len) > 1) ++len;
        put(0, len);
        return put(v, len + 1);
    }
    BitWriter& se(int64_t value) {
        return ue(value > 0 ? uint64_t(2 * value - 1) : uint64_t(-2 * value));
    }
    // rbsp_trailing_bits for H.264, or zero stuffing elsewhere.
    BitWriter& stopBitAndAlign() {
        putBit(1);
        return align();
    }
    BitWriter& align() {
        while (mBitCount % 8) putBit(0);
        return *this;
    }
    size_t bitCount() const { return mBitCount; }
    std::vector<uint8_t> bytes() const { return mBytes; }

private:
    void putBit(int bit) {
        if (mBitCount % 8 == 0) mBytes.push_back(0);
        if (bit) mBytes.back() |= uint8_t(0x80 >> (mBitCount % 8));
        ++mBitCount;
    }
    std::vector<uint8_t> mBytes;
    size_t mBitCount = 0;
};

std::vector<uint8_t> concat(std::initializer_list<std::vector<uint8_t>> parts) {
    std::vector<uint8_t> out;
    for (const auto& p : parts) out.insert(out.end(), p.begin(), p.end());
    return out;
}

// Inserts emulation-prevention bytes as an encoder must.
std::vector<uint8_t> escape(const std::vector<uint8_t>& rbsp) {
    std::vector<uint8_t> out;
    int zeros = 0;
    for (uint8_t b : rbsp) {
        if (zeros >= 2 && b <= 3) {
            out.push_back(3);
            zeros = 0;
        }
        out.push_back(b);
        zeros = b == 0 ? zeros + 1 : 0;
    }
    return out;
}

// Each "<file> <width> <height>" line of h264.expected.txt.
std::map<std::string, std::pair<int, int>> expectedH264Sizes() {
    std::map<std::string, std::pair<int, int>> sizes;
    std::ifstream in(testdataPath("h264.expected.txt"));
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#') continue;
        std::istringstream fields(line);
        std::string name;
        int w = 0, h = 0;
        fields >> name >> w >> h;
        sizes[name] = {w, h};
    }
    return sizes;
}

// The "size" column of an ffprobe packets CSV.
std::vector<size_t> packetSizes(const std::string& csvName) {
    std::ifstream in(testdataPath(csvName));
    std::string line;
    std::vector<size_t> sizes;
    int sizeColumn = -1;
    while (std::getline(in, line)) {
        if (line.empty()) continue;
        std::vector<std::string> cols;
        std::istringstream fields(line[0] == '#' ? line.substr(1) : line);
        std::string col;
        while (std::getline(fields, col, ',')) cols.push_back(col);
        if (line[0] == '#') {
            for (size_t i = 0; i < cols.size(); ++i) {
                if (cols[i] == "size") sizeColumn = static_cast<int>(i);
            }
            continue;
        }
        if (sizeColumn < 0 || static_cast<size_t>(sizeColumn) >= cols.size()) return {};
        sizes.push_back(std::stoul(cols[sizeColumn]));
    }
    return sizes;
}

// Payloads of the first `maxChunks` '00dc' chunks of an AVI's movi list.
std::vector<std::vector<uint8_t>> aviVideoChunks(const std::string& name, size_t maxChunks) {
    std::vector<uint8_t> file = readFileBytes(testdataPath(name));
    std::vector<std::vector<uint8_t>> chunks;
    const uint8_t kMovi[] = {'m', 'o', 'v', 'i'};
    auto it = std::search(file.begin(), file.end(), kMovi, kMovi + 4);
    if (it == file.end()) return chunks;
    size_t pos = static_cast<size_t>(it - file.begin()) + 4;
    while (chunks.size() < maxChunks && file.size() >= 8 && pos <= file.size() - 8) {
        uint32_t size = file[pos + 4] | (file[pos + 5] << 8) | (file[pos + 6] << 16) |
                        (uint32_t(file[pos + 7]) << 24);
        if (memcmp(&file[pos], "idx1", 4) == 0 || size > file.size() - pos - 8) break;
        if (memcmp(&file[pos], "00dc", 4) == 0 && size > 0) {
            chunks.emplace_back(file.begin() + pos + 8, file.begin() + pos + 8 + size);
        }
        pos += 8 + size + (size & 1);
    }
    return chunks;
}

// ---- FindAVCDimensions ----

class FindAVCDimensionsTest : public ::testing::Test {
protected:
    // A baseline SPS (profile 66) up to frame cropping; the pieces are
    // settable so that each case changes one thing.
    struct Sps {
        uint32_t mProfile = 66;
        uint32_t mChromaFormat = 1;
        bool mSeparatePlanes = false;
        bool mScalingLists = false;
        uint32_t mPocType = 0;
        uint32_t mPocCycle = 0;
        int64_t mPocOffset = -3;  // offset_for_non_ref_pic
        uint32_t mWidthMbsMinus1 = 10;   // 176
        uint32_t mHeightMapMinus1 = 8;   // 144
        bool mFrameMbsOnly = true;
        bool mCrop = false;
        uint32_t mCropLeft = 0, mCropRight = 0, mCropTop = 0, mCropBottom = 0;
    };

    static std::vector<uint8_t> build(const Sps& s) {
        BitWriter w;
        w.put(s.mProfile, 8).put(0, 8).put(30, 8).ue(0);
        if (s.mProfile == 100) {
            w.ue(s.mChromaFormat);
            if (s.mChromaFormat == 3) w.put(s.mSeparatePlanes, 1);
            w.ue(0).ue(0).put(0, 1).put(s.mScalingLists, 1);
            if (s.mScalingLists) {
                int lists = s.mChromaFormat == 3 ? 12 : 8;
                for (int i = 0; i < lists; ++i) {
                    w.put(1, 1);
                    int n = i < 6 ? 16 : 64;
                    // Even lists: a +5 ramp, one -128 jump and a final 0, all
                    // coded. Odd lists: 8 -> 23 in three steps, then -23 makes
                    // nextScale 0, which ends the coded part of the list.
                    for (int j = 0; j < n; ++j) {
                        bool endsHere = (i % 2) && j == 3;
                        w.se(endsHere ? -23 : j == n - 2 ? -128 : j == n - 1 ? 0 : 5);
                        if (endsHere) break;
                    }
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
        return concat({{0x67}, escape(w.bytes())});
    }

    static bool dims(const std::vector<uint8_t>& sps, int32_t* w, int32_t* h) {
        return FindAVCDimensions(sps.data(), sps.size(), w, h);
    }
};

TEST_F(FindAVCDimensionsTest, RealSPSFromTestdata) {
    auto expected = expectedH264Sizes();
    for (const char* name : {"h264_176x144.sps.bin", "h264_1920x1080.sps.bin"}) {
        SCOPED_TRACE(name);
        ASSERT_EQ(expected.count(name), 1u);
        std::vector<uint8_t> sps = readFileBytes(testdataPath(name));
        ASSERT_FALSE(sps.empty());
        int32_t w = 0, h = 0;
        ASSERT_TRUE(FindAVCDimensions(sps.data(), sps.size(), &w, &h));
        EXPECT_EQ(w, expected[name].first);
        EXPECT_EQ(h, expected[name].second);
    }
}

// Pins a parser that does not remove emulation-prevention bytes. In the
// real SPS files they sit in the VUI, after every field read here, so the
// files alone cannot catch it: offset_for_non_ref_pic = -2^30 is coded with
// 31 leading zeros, which always span three zero bytes, so an escape lands
// before the sizes.
TEST_F(FindAVCDimensionsTest, EmulationPreventionBeforeTheSizeFields) {
    Sps s;
    s.mPocType = 1;
    s.mPocOffset = -(INT64_C(1) << 30);
    s.mPocCycle = 2;
    s.mCrop = true;
    s.mCropRight = 1;
    s.mCropBottom = 1;
    std::vector<uint8_t> sps = build(s);
    const uint8_t kEPB[] = {0, 0, 3};
    auto epb = std::search(sps.begin(), sps.end(), kEPB, kEPB + 3);
    ASSERT_NE(epb, sps.end());
    ASSERT_LT(epb - sps.begin(), 12);  // inside the POC fields, before the sizes
    int32_t w = 0, h = 0;
    ASSERT_TRUE(dims(sps, &w, &h));
    EXPECT_EQ(w, 174);
    EXPECT_EQ(h, 142);
}

TEST_F(FindAVCDimensionsTest, CroppingAndChromaFormats) {
    struct Case {
        const char* mName;
        Sps mSps;
        int32_t mWidth, mHeight;
    };
    Sps base;
    Sps crop420 = base;
    crop420.mCrop = true;
    crop420.mCropRight = 3;   // 2-pixel units in 4:2:0
    crop420.mCropBottom = 4;  // 2-line units in 4:2:0 frames
    Sps field = crop420;
    field.mFrameMbsOnly = false;  // map units are field MB pairs; crop unit Y doubles
    Sps high444 = crop420;
    high444.mProfile = 100;
    high444.mChromaFormat = 3;  // 1x1 crop units
    Sps planes = high444;
    planes.mSeparatePlanes = true;  // ChromaArrayType 0: 1x1
    Sps high422 = crop420;
    high422.mProfile = 100;
    high422.mChromaFormat = 2;  // 2x1
    Sps mono = crop420;
    mono.mProfile = 100;
    mono.mChromaFormat = 0;  // 1x1
    Sps scaling = crop420;
    scaling.mProfile = 100;
    scaling.mScalingLists = true;
    Sps scaling444 = high444;
    scaling444.mScalingLists = true;  // 12 lists
    Sps poc1 = base;
    poc1.mPocType = 1;
    poc1.mPocCycle = 255;  // the most the standard allows
    Sps poc2 = base;
    poc2.mPocType = 2;

    const Case kCases[] = {
        {"Baseline", base, 176, 144},
        {"Crop420", crop420, 170, 136},
        {"FieldCoded", field, 170, 272},
        {"High444", high444, 173, 140},
        {"SeparatePlanes", planes, 173, 140},
        {"High422", high422, 170, 140},
        {"Monochrome", mono, 173, 140},
        {"ScalingLists", scaling, 170, 136},
        {"ScalingLists444", scaling444, 173, 140},
        {"PocType1LongestCycle", poc1, 176, 144},
        {"PocType2", poc2, 176, 144},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.mName);
        int32_t w = -1, h = -1;
        ASSERT_TRUE(dims(build(c.mSps), &w, &h));
        EXPECT_EQ(w, c.mWidth);
        EXPECT_EQ(h, c.mHeight);
    }
}

TEST_F(FindAVCDimensionsTest, RejectsAbsurdValues) {
    Sps cycle = Sps();
    cycle.mPocType = 1;
    cycle.mPocCycle = 256;  // one more than allowed
    Sps cropAll = Sps();
    cropAll.mCrop = true;
    cropAll.mCropLeft = 44;  // 88 of 176 pixels...
    cropAll.mCropRight = 44;  // ...and the other 88: nothing left
    Sps cropHuge = Sps();
    cropHuge.mCrop = true;
    cropHuge.mCropBottom = 0xFFFFFFFEu;  // largest ue value: must not wrap
    Sps wide = Sps();
    wide.mWidthMbsMinus1 = 0xFFFFFFFEu;  // 2^32 - 1 macroblocks: overflows 32 bits x 16
    Sps pocType3 = Sps();
    pocType3.mPocType = 3;

    for (const Sps& s : {cycle, cropAll, cropHuge, wide, pocType3}) {
        int32_t w = -1, h = -1;
        EXPECT_FALSE(dims(build(s), &w, &h));
    }

    // Crop leaving exactly one unit is still a picture.
    Sps cropOne = Sps();
    cropOne.mCrop = true;
    cropOne.mCropLeft = 87;
    int32_t w, h;
    ASSERT_TRUE(dims(build(cropOne), &w, &h));
    EXPECT_EQ(w, 2);
}

TEST_F(FindAVCDimensionsTest, RejectsExpGolombOver32Bits) {
    // seq_parameter_set_id with 32 leading zeros.
    BitWriter w;
    w.put(66, 8).put(0, 8).put(30, 8).put(0, 32).put(1, 1).put(0, 32).stopBitAndAlign();
    std::vector<uint8_t> sps = concat({{0x67}, escape(w.bytes())});
    int32_t width, height;
    EXPECT_FALSE(FindAVCDimensions(sps.data(), sps.size(), &width, &height));
}

TEST_F(FindAVCDimensionsTest, RejectsNonSPSAndEmptyInput) {
    std::vector<uint8_t> sps = build(Sps());
    int32_t w, h;
    EXPECT_FALSE(FindAVCDimensions(nullptr, 0, &w, &h));
    EXPECT_FALSE(FindAVCDimensions(sps.data(), 1, &w, &h));
    sps[0] = 0x68;  // a PPS header
    EXPECT_FALSE(FindAVCDimensions(sps.data(), sps.size(), &w, &h));
}

// Every prefix and every single-bit corruption of real SPS: the parser may
// accept or reject, but must stay inside the buffer (ASan) and never report
// a non-positive size.
TEST_F(FindAVCDimensionsTest, TruncatedOrCorruptedRealSPSNeverMisbehaves) {
    for (const char* name : {"h264_176x144.sps.bin", "h264_1920x1080.sps.bin"}) {
        std::vector<uint8_t> sps = readFileBytes(testdataPath(name));
        for (size_t n = 0; n < sps.size(); ++n) {
            // Exact-size heap copy, so a read past the end is caught.
            std::vector<uint8_t> prefix(sps.begin(), sps.begin() + n);
            int32_t w = 0, h = 0;
            if (FindAVCDimensions(prefix.data(), prefix.size(), &w, &h)) {
                EXPECT_GT(w, 0);
                EXPECT_GT(h, 0);
            }
        }
        for (size_t bit = 8; bit < sps.size() * 8; ++bit) {
            std::vector<uint8_t> bad = sps;
            bad[bit / 8] ^= uint8_t(0x80 >> (bit % 8));
            int32_t w = 0, h = 0;
            if (FindAVCDimensions(bad.data(), bad.size(), &w, &h)) {
                EXPECT_GT(w, 0);
                EXPECT_GT(h, 0);
            }
        }
    }
}

// ---- MakeAVCCodecSpecificData ----

// The bytes of the first access unit: everything up to the end of the first
// coded slice NAL (types 1 and 5).
std::vector<uint8_t> firstAccessUnit(const std::vector<uint8_t>& stream) {
    size_t pos = 0;
    bool inSlice = false;
    for (size_t i = 0; i + 3 <= stream.size(); ++i) {
        if (stream[i] == 0 && stream[i + 1] == 0 && stream[i + 2] == 1) {
            if (inSlice) {
                size_t end = i;
                if (end > 0 && stream[end - 1] == 0) --end;  // 4-byte start code
                return std::vector<uint8_t>(stream.begin(), stream.begin() + end);
            }
            pos = i + 3;
            if (pos < stream.size()) {
                uint8_t type = stream[pos] & 0x1F;
                inSlice = type == 1 || type == 5;
            }
        }
    }
    return stream;
}

class MakeAVCCodecSpecificDataTest : public ::testing::Test {
protected:
    static sp<MetaData> make(const std::vector<uint8_t>& bytes) {
        sp<ABuffer> buffer = new ABuffer(bytes.size());
        if (!bytes.empty()) memcpy(buffer->data(), bytes.data(), bytes.size());
        return MakeAVCCodecSpecificData(buffer);
    }
};

TEST_F(MakeAVCCodecSpecificDataTest, RealFirstAccessUnits) {
    auto expected = expectedH264Sizes();
    for (const char* prefix : {"h264_176x144", "h264_1920x1080"}) {
        SCOPED_TRACE(prefix);
        std::string name = std::string(prefix) + ".h264";
        std::vector<uint8_t> au = firstAccessUnit(readFileBytes(testdataPath(name)));
        std::vector<uint8_t> sps = readFileBytes(testdataPath(std::string(prefix) + ".sps.bin"));
        std::vector<uint8_t> pps = readFileBytes(testdataPath(std::string(prefix) + ".pps.bin"));
        ASSERT_GE(sps.size(), 4u);

        sp<MetaData> meta = make(au);
        ASSERT_NE(meta, nullptr);
        const char* mime;
        ASSERT_TRUE(meta->findCString(kKeyMIMEType, &mime));
        EXPECT_STREQ(mime, MEDIA_MIMETYPE_VIDEO_AVC);
        int32_t w, h;
        ASSERT_TRUE(meta->findInt32(kKeyWidth, &w));
        ASSERT_TRUE(meta->findInt32(kKeyHeight, &h));
        EXPECT_EQ(w, expected[name].first);
        EXPECT_EQ(h, expected[name].second);

        uint32_t type;
        const void* data;
        size_t size;
        ASSERT_TRUE(meta->findData(kKeyAVCC, &type, &data, &size));
        EXPECT_EQ(type, static_cast<uint32_t>(kTypeAVCC));
        std::vector<uint8_t> want = {1, sps[1], sps[2], sps[3], 0xFF, 0xE1,
                                     uint8_t(sps.size() >> 8), uint8_t(sps.size())};
        want.insert(want.end(), sps.begin(), sps.end());  // escaped bytes kept
        want.push_back(1);
        want.push_back(uint8_t(pps.size() >> 8));
        want.push_back(uint8_t(pps.size()));
        want.insert(want.end(), pps.begin(), pps.end());
        EXPECT_EQ(std::vector<uint8_t>(static_cast<const uint8_t*>(data),
                                       static_cast<const uint8_t*>(data) + size),
                  want);
    }
}

TEST_F(MakeAVCCodecSpecificDataTest, ThreeByteStartCodesAndBufferRange) {
    std::vector<uint8_t> sps = readFileBytes(testdataPath("h264_176x144.sps.bin"));
    std::vector<uint8_t> pps = readFileBytes(testdataPath("h264_176x144.pps.bin"));
    // Junk before the range, 3-byte start codes, trailing zero bytes after
    // the PPS (trailing_zero_8bits), a second SPS that must not win.
    std::vector<uint8_t> bytes = concat({{0xAA, 0xBB, 0x00, 0x00, 0x01},
                                         {0, 0, 1}, sps, {0, 0, 1}, pps, {0, 0},
                                         {0, 0, 1, 0x67, 0x42}});
    sp<ABuffer> buffer = new ABuffer(bytes.size());
    memcpy(buffer->data(), bytes.data(), bytes.size());
    buffer->setRange(5, bytes.size() - 5);
    sp<MetaData> meta = MakeAVCCodecSpecificData(buffer);
    ASSERT_NE(meta, nullptr);
    uint32_t type;
    const void* data;
    size_t size;
    ASSERT_TRUE(meta->findData(kKeyAVCC, &type, &data, &size));
    ASSERT_EQ(size, 11 + sps.size() + pps.size());
    const uint8_t* p = static_cast<const uint8_t*>(data);
    EXPECT_EQ(memcmp(p + 8, sps.data(), sps.size()), 0);
    EXPECT_EQ(memcmp(p + 11 + sps.size(), pps.data(), pps.size()), 0);
}

TEST_F(MakeAVCCodecSpecificDataTest, MissingOrUnusableParameterSets) {
    std::vector<uint8_t> sps = readFileBytes(testdataPath("h264_176x144.sps.bin"));
    std::vector<uint8_t> pps = readFileBytes(testdataPath("h264_176x144.pps.bin"));
    std::vector<uint8_t> noPps = concat({{0, 0, 0, 1}, sps, {0, 0, 0, 1, 0x65, 0x88}});
    std::vector<uint8_t> noSps = concat({{0, 0, 0, 1}, pps});
    std::vector<uint8_t> shortSps = concat({{0, 0, 1, 0x67, 0x64, 0x00}, {0, 0, 1}, pps});
    // 70000 bytes of SPS: a parsable header followed by filler. Its length
    // does not fit the record's 16-bit field, so no record may be made.
    std::vector<uint8_t> bigSps = sps;
    bigSps.resize(70000, 0x55);
    std::vector<uint8_t> tooBig = concat({{0, 0, 1}, bigSps, {0, 0, 1}, pps});

    EXPECT_EQ(make({}), nullptr);
    EXPECT_EQ(make({0, 0, 1}), nullptr);
    EXPECT_EQ(make(noPps), nullptr);
    EXPECT_EQ(make(noSps), nullptr);
    EXPECT_EQ(make(shortSps), nullptr);
    EXPECT_EQ(make(tooBig), nullptr);
    EXPECT_EQ(MakeAVCCodecSpecificData(nullptr), nullptr);
}

// ---- GetMPEGAudioFrameSize ----

uint32_t mpegHeader(uint32_t version, uint32_t layer, uint32_t bitrateIndex, uint32_t rateIndex,
                    uint32_t padding, uint32_t mode) {
    return 0xFFE00000u | version << 19 | layer << 17 | 1u << 16 | bitrateIndex << 12 |
           rateIndex << 10 | padding << 9 | mode << 6;
}

struct MPEGAudioFile {
    const char* mName;
    int mSampleRate, mChannels, mBitrate, mSamplesPerFrame;
};

class MPEGAudioFileTest : public ::testing::TestWithParam<MPEGAudioFile> {};

TEST_P(MPEGAudioFileTest, EveryFrameMatchesTheProbedPacketSizes) {
    const MPEGAudioFile& f = GetParam();
    std::vector<uint8_t> file = readFileBytes(testdataPath(f.mName));
    std::vector<size_t> expected = packetSizes(std::string(f.mName) + ".packets.csv");
    ASSERT_FALSE(file.empty());
    ASSERT_FALSE(expected.empty());

    size_t pos = 0;
    size_t frames = 0;
    while (pos < file.size()) {
        ASSERT_GE(file.size() - pos, 4u) << "partial header at " << pos;
        uint32_t header = uint32_t(file[pos]) << 24 | file[pos + 1] << 16 | file[pos + 2] << 8 |
                          file[pos + 3];
        size_t frameSize = 0;
        int rate = 0, channels = 0, bitrate = 0, samples = 0;
        ASSERT_TRUE(GetMPEGAudioFrameSize(header, &frameSize, &rate, &channels, &bitrate, &samples))
            << "frame " << frames << " at " << pos;
        ASSERT_LT(frames, expected.size());
        EXPECT_EQ(frameSize, expected[frames]) << "frame " << frames;
        if (frames == 0) {
            EXPECT_EQ(rate, f.mSampleRate);
            EXPECT_EQ(channels, f.mChannels);
            EXPECT_EQ(bitrate, f.mBitrate);
            EXPECT_EQ(samples, f.mSamplesPerFrame);
        }
        ASSERT_GT(frameSize, 0u);
        pos += frameSize;
        ++frames;
    }
    EXPECT_EQ(pos, file.size());
    EXPECT_EQ(frames, expected.size());
}

INSTANTIATE_TEST_SUITE_P(Testdata, MPEGAudioFileTest,
                         ::testing::Values(MPEGAudioFile{"mp3_44100_stereo.mp3", 44100, 2, 128, 1152},
                                           MPEGAudioFile{"mp3_22050_mono.mp3", 22050, 1, 32, 576},
                                           MPEGAudioFile{"mp3_8000_mono.mp3", 8000, 1, 16, 576},
                                           MPEGAudioFile{"mp2_48000.mp2", 48000, 2, 192, 1152},
                                           MPEGAudioFile{"mp2_24000.mp2", 24000, 1, 64, 1152}),
                         [](const ::testing::TestParamInfo<MPEGAudioFile>& info) {
                             std::string n = info.param.mName;
                             for (char& c : n) if (c == '.') c = '_';
                             return n;
                         });

TEST(GetMPEGAudioFrameSizeTest, EveryVersionAndLayer) {
    // Version: 3 MPEG-1, 2 MPEG-2, 0 MPEG-2.5. Layer bits: 3 I, 2 II, 1 III.
    // Sizes worked out by hand from the frame-length formulas; the rate
    // index and padding are chosen so that the integer division truncates.
    struct Case {
        uint32_t mVersion, mLayer, mBitrateIndex, mRateIndex, mPadding, mMode;
        size_t mSize;
        int mRate, mBitrate, mSamples, mChannels;
    };
    const Case kCases[] = {
        {3, 3, 1, 0, 0, 0, 32, 44100, 32, 384, 2},     // (12*32000/44100 = 8) * 4
        {3, 3, 1, 0, 1, 3, 36, 44100, 32, 384, 1},     // padding is one 4-byte slot
        {3, 3, 14, 1, 0, 1, 448, 48000, 448, 384, 2},
        {2, 3, 14, 0, 0, 2, 556, 22050, 256, 384, 2},  // MPEG-2 Layer I table
        {0, 3, 1, 2, 1, 3, 196, 8000, 32, 384, 1},     // MPEG-2.5 Layer I
        {3, 2, 10, 1, 0, 0, 576, 48000, 192, 1152, 2},
        {3, 2, 14, 2, 1, 0, 1729, 32000, 384, 1152, 2},
        {2, 2, 8, 1, 0, 3, 384, 24000, 64, 1152, 1},   // MPEG-2 Layer II keeps 144
        {0, 2, 14, 1, 0, 3, 1920, 12000, 160, 1152, 1},
        {3, 1, 9, 0, 0, 1, 417, 44100, 128, 1152, 2},
        {3, 1, 9, 0, 1, 1, 418, 44100, 128, 1152, 2},
        {3, 1, 14, 2, 0, 0, 1440, 32000, 320, 1152, 2},
        {2, 1, 4, 0, 0, 3, 104, 22050, 32, 576, 1},    // MPEG-2 Layer III uses 72
        {2, 1, 14, 2, 0, 3, 720, 16000, 160, 576, 1},
        {0, 1, 2, 2, 0, 3, 144, 8000, 16, 576, 1},
        {0, 1, 1, 0, 0, 3, 52, 11025, 8, 576, 1},
    };
    for (const Case& c : kCases) {
        uint32_t header = mpegHeader(c.mVersion, c.mLayer, c.mBitrateIndex, c.mRateIndex,
                                     c.mPadding, c.mMode);
        SCOPED_TRACE(::testing::Message() << std::hex << header);
        size_t size = 0;
        int rate = 0, channels = 0, bitrate = 0, samples = 0;
        ASSERT_TRUE(GetMPEGAudioFrameSize(header, &size, &rate, &channels, &bitrate, &samples));
        EXPECT_EQ(size, c.mSize);
        EXPECT_EQ(rate, c.mRate);
        EXPECT_EQ(bitrate, c.mBitrate);
        EXPECT_EQ(samples, c.mSamples);
        EXPECT_EQ(channels, c.mChannels);
        // Optional outputs may be left out.
        size_t sizeOnly = 0;
        EXPECT_TRUE(GetMPEGAudioFrameSize(header, &sizeOnly));
        EXPECT_EQ(sizeOnly, c.mSize);
    }
}

TEST(GetMPEGAudioFrameSizeTest, InvalidHeaders) {
    const uint32_t good = 0xFFFB9044u;  // first header of mp3_44100_stereo.mp3
    size_t goodSize = 0;
    ASSERT_TRUE(GetMPEGAudioFrameSize(good, &goodSize));
    const uint32_t kBad[] = {
        mpegHeader(1, 1, 9, 0, 0, 1),   // reserved version
        mpegHeader(3, 0, 9, 0, 0, 1),   // reserved layer
        mpegHeader(3, 1, 0, 0, 0, 1),   // free format
        mpegHeader(3, 1, 15, 0, 0, 1),  // bad bitrate index
        mpegHeader(3, 1, 9, 3, 0, 1),   // reserved sample rate
        good & ~(1u << 21),             // last sync bit clear
        good & ~(1u << 31),             // first sync bit clear
        0,
    };
    for (uint32_t header : kBad) {
        size_t size = 12345;
        EXPECT_FALSE(GetMPEGAudioFrameSize(header, &size)) << std::hex << header;
    }
}

// ---- Detect263AdvancedFeatures ----

// A picture header: PSC, TR, PTYPE, then for an extended header UFEP and
// OPPTYPE; `tail` more bits follow so the header is not cut short.
std::vector<uint8_t> h263Header(uint32_t sourceFormat, uint32_t ptypeModes, int ufep = -1,
                                uint32_t opptype = 0, int leadingZeroBytes = 0) {
    BitWriter w;
    for (int i = 0; i < leadingZeroBytes; ++i) w.put(0, 8);
    w.put(0x20, 22).put(5, 8).put(2, 2).put(0, 3).put(sourceFormat, 3);
    if (sourceFormat != 7) {
        w.put(1, 1).put(ptypeModes, 4);
    } else {
        w.put(static_cast<uint32_t>(ufep), 3);
        if (ufep == 1) w.put(opptype, 18);
    }
    w.put(0x1F, 5).put(0, 16);  // PQUANT/CPM and some macroblock bits
    return w.align().bytes();
}

// OPPTYPE with QCIF, the fixed "1 000" tail and the given bit numbers set
// (1 = first of 18).
uint32_t opptype(std::initializer_list<int> bits) {
    uint32_t v = (2u << 15) | 8u;
    for (int b : bits) v |= 1u << (18 - b);
    return v;
}

int detect(std::vector<uint8_t> bytes) {
    return Detect263AdvancedFeatures(bytes.data(), static_cast<int>(bytes.size()));
}

TEST(Detect263AdvancedFeaturesTest, RealH263PicturesAreBaseline) {
    std::vector<std::vector<uint8_t>> frames = aviVideoChunks("avi_h263_alaw.avi", 50);
    ASSERT_EQ(frames.size(), 50u);
    for (size_t i = 0; i < frames.size(); ++i) EXPECT_EQ(detect(frames[i]), 0) << "frame " << i;
}

TEST(Detect263AdvancedFeaturesTest, RealExtendedHeaderWithAnnexes) {
    // ffmpeg's decoder reports this picture as "AP UMV + AIC AIV MQ LOOP SS".
    std::vector<uint8_t> picture = readFileBytes(testdataPath("h263p_qcif_annexes.h263"));
    ASSERT_FALSE(picture.empty());
    EXPECT_EQ(detect(picture), kH263UnrestrictedMV | kH263AdvancedPrediction |
                                   kH263AdvancedIntraCoding | kH263AlternativeInterVLC |
                                   kH263ModifiedQuantization | kH263DeblockingFilter |
                                   kH263SliceStructured);
}

TEST(Detect263AdvancedFeaturesTest, EachModeMapsToItsOwnBit) {
    struct Case {
        const char* mName;
        std::vector<uint8_t> mBytes;
        int mExpected;
    };
    const Case kCases[] = {
        {"Baseline", h263Header(2, 0), 0},
        {"PtypeUMV", h263Header(2, 8), kH263UnrestrictedMV},
        {"PtypeSAC", h263Header(3, 4), kH263SyntaxArithmeticCoding},
        {"PtypeAP", h263Header(1, 2), kH263AdvancedPrediction},
        {"PtypePB", h263Header(5, 1), kH263PBFrames},
        {"PtypeAll", h263Header(4, 15),
         kH263UnrestrictedMV | kH263SyntaxArithmeticCoding | kH263AdvancedPrediction |
             kH263PBFrames},
        {"PlusNone", h263Header(7, 0, 1, opptype({})), 0},
        {"PlusCustomPCFIsNotAMode", h263Header(7, 0, 1, opptype({4})), 0},
        {"PlusUMV", h263Header(7, 0, 1, opptype({5})), kH263UnrestrictedMV},
        {"PlusSAC", h263Header(7, 0, 1, opptype({6})), kH263SyntaxArithmeticCoding},
        {"PlusAP", h263Header(7, 0, 1, opptype({7})), kH263AdvancedPrediction},
        {"PlusAIC", h263Header(7, 0, 1, opptype({8})), kH263AdvancedIntraCoding},
        {"PlusDF", h263Header(7, 0, 1, opptype({9})), kH263DeblockingFilter},
        {"PlusSS", h263Header(7, 0, 1, opptype({10})), kH263SliceStructured},
        {"PlusRPS", h263Header(7, 0, 1, opptype({11})), kH263ReferencePictureSelection},
        {"PlusISD", h263Header(7, 0, 1, opptype({12})), kH263IndependentSegmentDecoding},
        {"PlusAIV", h263Header(7, 0, 1, opptype({13})), kH263AlternativeInterVLC},
        {"PlusMQ", h263Header(7, 0, 1, opptype({14})), kH263ModifiedQuantization},
        {"PlusUfepZero", h263Header(7, 0, 0), 0},
        {"StuffingBeforeStartCode", h263Header(2, 8, -1, 0, 3), kH263UnrestrictedMV},
    };
    for (const Case& c : kCases) EXPECT_EQ(detect(c.mBytes), c.mExpected) << c.mName;
}

TEST(Detect263AdvancedFeaturesTest, MalformedHeadersAreNegative) {
    std::vector<uint8_t> fixedBitsWrong = h263Header(2, 0);
    fixedBitsWrong[3] ^= 0x03;  // PTYPE bits 1-2 become "0 1"
    std::vector<uint8_t> opptypeTailWrong = h263Header(7, 0, 1, opptype({}) & ~8u);
    const std::vector<uint8_t> kBad[] = {
        {},
        {0x00, 0x00},
        std::vector<uint8_t>(64, 0x00),  // no start code at all
        h263Header(0, 0),                // forbidden source format
        h263Header(6, 0),                // reserved source format
        h263Header(7, 0, 2),             // reserved UFEP
        h263Header(7, 0, 1, opptype({}) & 0x7FFF),  // forbidden extended source format
        fixedBitsWrong,
        opptypeTailWrong,
        h263Header(2, 0, -1, 0, 33),     // start code beyond the searched bytes
    };
    for (const auto& bytes : kBad) EXPECT_LT(detect(bytes), 0) << ::testing::PrintToString(bytes);
    EXPECT_LT(Detect263AdvancedFeatures(nullptr, 10), 0);
    std::vector<uint8_t> ok = h263Header(2, 0);
    EXPECT_LT(Detect263AdvancedFeatures(ok.data(), -5), 0);
}

TEST(Detect263AdvancedFeaturesTest, TruncatedHeadersAreNegative) {
    // PSC, TR and a baseline PTYPE take 43 bits; an extended header has 38
    // before UFEP (3) and OPPTYPE (18).
    struct Case {
        std::vector<uint8_t> mBytes;
        size_t mNeededBits;
    };
    const Case kCases[] = {{h263Header(2, 15), 43}, {h263Header(7, 0, 1, opptype({5, 14})), 41 + 18}};
    for (const Case& c : kCases) {
        for (size_t n = 0; n < (c.mNeededBits + 7) / 8; ++n) {
            std::vector<uint8_t> prefix(c.mBytes.begin(), c.mBytes.begin() + n);
            EXPECT_LT(detect(prefix), 0) << n << " bytes";
        }
        std::vector<uint8_t> enough(c.mBytes.begin(), c.mBytes.begin() + (c.mNeededBits + 7) / 8);
        EXPECT_GE(detect(enough), 0);
    }
}

// ---- ParseMPEG4GMCWarpPoint ----

struct Vol {
    int mVoHeaderVerid = 0;    // > 0: a visual object header with this verid precedes the VOL
    int mVolVerid = 0;         // > 0: is_object_layer_identifier with this verid
    bool mExtendedPAR = false;
    bool mControl = false;
    bool mVbv = false;
    uint32_t mShape = 0;
    uint32_t mResolution = 25;
    bool mFixedRate = false;
    uint32_t mSprite = 0;
    uint32_t mWarpPoints = 0;
};

std::vector<uint8_t> volBytes(const Vol& v, size_t* neededBytes = nullptr) {
    std::vector<uint8_t> out = {0, 0, 1, 0xB0, 0x01};  // visual_object_sequence, profile
    if (v.mVoHeaderVerid > 0) {
        BitWriter vo;
        vo.put(1, 1).put(v.mVoHeaderVerid, 4).put(1, 3).put(1, 4).put(0, 1).stopBitAndAlign();
        out = concat({out, {0, 0, 1, 0xB5}, vo.bytes()});
    }
    out = concat({out, {0, 0, 1, 0x00}});  // video_object
    BitWriter w;
    w.put(0, 1).put(1, 8);  // random_accessible_vol, simple object type
    if (v.mVolVerid > 0) {
        w.put(1, 1).put(v.mVolVerid, 4).put(1, 3);
    } else {
        w.put(0, 1);
    }
    w.put(v.mExtendedPAR ? 15 : 1, 4);
    if (v.mExtendedPAR) w.put(12, 8).put(11, 8);
    w.put(v.mControl, 1);
    if (v.mControl) {
        w.put(1, 2).put(1, 1).put(v.mVbv, 1);
        if (v.mVbv) w.put(0x1234, 15).put(1, 1).put(0x0567, 15).put(1, 1).put(0x7FFF, 15).put(1, 1)
                        .put(5, 3).put(0x3FF, 11).put(1, 1).put(0x1ABC, 15).put(1, 1);
    }
    w.put(v.mShape, 2);
    int verid = v.mVolVerid > 0 ? v.mVolVerid : (v.mVoHeaderVerid > 0 ? v.mVoHeaderVerid : 1);
    if (v.mShape == 3 && verid != 1) w.put(0, 4);
    w.put(1, 1).put(v.mResolution, 16).put(1, 1).put(v.mFixedRate, 1);
    if (v.mFixedRate) {
        int bits = 1;
        while (bits < 16 && (1u << bits) < v.mResolution) ++bits;
        w.put(1, bits);
    }
    if (v.mShape != 2) {
        if (v.mShape == 0) w.put(1, 1).put(176, 13).put(1, 1).put(144, 13).put(1, 1);
        w.put(0, 1).put(1, 1).put(v.mSprite, verid == 1 ? 1 : 2);
        if (v.mSprite == 1 || v.mSprite == 2) {
            if (v.mSprite == 1) {
                for (int i = 0; i < 4; ++i) w.put(0x155, 13).put(1, 1);
            }
            w.put(v.mWarpPoints, 6).put(2, 2).put(0, 1);
            if (v.mSprite == 1) w.put(0, 1);
        }
    }
    size_t headerBytes = out.size() + 4 + (w.bitCount() + 7) / 8;
    if (neededBytes) *neededBytes = headerBytes;
    // quant_type etc. would follow; a few more bits so the header is not at
    // the very end.
    w.put(0, 1).put(1, 1).put(0, 6).stopBitAndAlign();
    return concat({out, {0, 0, 1, 0x20}, w.bytes()});
}

int warpPoints(std::vector<uint8_t> bytes) {
    return ParseMPEG4GMCWarpPoint(bytes.data(), static_cast<int>(bytes.size()));
}

TEST(ParseMPEG4GMCWarpPointTest, RealVolHeadersHaveNoSprites) {
    for (const char* name : {"avi_xvid_mp3.avi", "avi_mpeg4_ima.avi", "avi_dx50_msadpcm.avi"}) {
        std::vector<std::vector<uint8_t>> frames = aviVideoChunks(name, 1);
        ASSERT_EQ(frames.size(), 1u) << name;
        EXPECT_EQ(warpPoints(frames[0]), 0) << name;
    }
}

TEST(ParseMPEG4GMCWarpPointTest, HandBuiltHeaders) {
    struct Case {
        const char* mName;
        Vol mVol;
        int mExpected;
    };
    Vol gmc3;
    gmc3.mVolVerid = 2;
    gmc3.mSprite = 2;
    gmc3.mWarpPoints = 3;
    Vol everything = gmc3;  // every optional field before sprite_enable present
    everything.mExtendedPAR = true;
    everything.mControl = true;
    everything.mVbv = true;
    everything.mResolution = 30000;  // 15-bit fixed_vop_time_increment
    everything.mFixedRate = true;
    everything.mWarpPoints = 63;
    Vol fromVoHeader = gmc3;  // verid 2 known only from the visual object header
    fromVoHeader.mVolVerid = 0;
    fromVoHeader.mVoHeaderVerid = 2;
    fromVoHeader.mWarpPoints = 1;
    Vol grayscale = gmc3;  // shape extension bits for verid 2
    grayscale.mShape = 3;
    grayscale.mWarpPoints = 2;
    Vol resolutionOne = gmc3;  // a one-bit increment, the minimum
    resolutionOne.mResolution = 1;
    resolutionOne.mFixedRate = true;
    Vol noSprite;
    noSprite.mVolVerid = 2;
    Vol verid1NoSprite;  // one-bit sprite_enable: its 0 is followed by other fields
    Vol verid1Static;
    verid1Static.mSprite = 1;
    verid1Static.mWarpPoints = 4;
    Vol static2 = verid1Static;
    static2.mVolVerid = 2;
    Vol binaryOnly = gmc3;
    binaryOnly.mShape = 2;  // no sprite fields at all

    const Case kCases[] = {
        {"Gmc3", gmc3, 3},
        {"Everything", everything, 63},
        {"VeridFromVisualObject", fromVoHeader, 1},
        {"Grayscale", grayscale, 2},
        {"ResolutionOne", resolutionOne, 3},
        {"NoSprite", noSprite, 0},
        {"Verid1NoSprite", verid1NoSprite, 0},
        {"Verid1Static", verid1Static, 0},
        {"Verid2Static", static2, 0},
        {"BinaryOnly", binaryOnly, 0},
    };
    for (const Case& c : kCases) EXPECT_EQ(warpPoints(volBytes(c.mVol)), c.mExpected) << c.mName;
}

// Pins the width of sprite_enable: one bit for version-1 layers, two
// otherwise. Reading two bits here would see "static" + the first bit of
// sprite_width as GMC and return bits of sprite_width as the count.
TEST(ParseMPEG4GMCWarpPointTest, VersionDecidesSpriteEnableWidth) {
    Vol v;
    v.mVolVerid = 1;
    v.mSprite = 1;  // static, 1 bit
    v.mWarpPoints = 0;
    EXPECT_EQ(warpPoints(volBytes(v)), 0);
    v.mVolVerid = 2;
    v.mSprite = 2;  // GMC is only expressible with two bits
    v.mWarpPoints = 5;
    EXPECT_EQ(warpPoints(volBytes(v)), 5);
}

TEST(ParseMPEG4GMCWarpPointTest, MalformedOrTruncatedIsNegative) {
    Vol zeroResolution;
    zeroResolution.mResolution = 0;
    Vol reservedSprite;
    reservedSprite.mVolVerid = 2;
    reservedSprite.mSprite = 3;
    EXPECT_LT(warpPoints(volBytes(zeroResolution)), 0);
    EXPECT_LT(warpPoints(volBytes(reservedSprite)), 0);
    EXPECT_LT(warpPoints({0, 0, 1, 0xB0, 0x01, 0, 0, 1, 0x00}), 0);  // no VOL
    EXPECT_LT(warpPoints({}), 0);
    EXPECT_LT(ParseMPEG4GMCWarpPoint(nullptr, 100), 0);

    for (Vol v : {Vol(), Vol{0, 2, true, true, true, 0, 30000, true, 2, 7},
                  Vol{0, 0, false, false, false, 0, 25, false, 1, 3}}) {
        size_t needed = 0;
        std::vector<uint8_t> full = volBytes(v, &needed);
        ASSERT_GE(warpPoints(full), 0);
        for (size_t n = 0; n < needed; ++n) {
            std::vector<uint8_t> prefix(full.begin(), full.begin() + n);
            EXPECT_LT(warpPoints(prefix), 0) << n << " of " << needed << " bytes";
        }
        std::vector<uint8_t> exact(full.begin(), full.begin() + needed);
        EXPECT_GE(warpPoints(exact), 0);
    }
}

}  // namespace
