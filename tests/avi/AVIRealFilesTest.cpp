// The real AVI files of testdata/ (made by ffmpeg), read whole and through a
// source that serves odd-sized pieces: video key flags against ffprobe (or
// the idx1 dump where ffprobe's are wrong), audio splitter output, codec data.
#include <gtest/gtest.h>

#include <math.h>
#include <stdlib.h>

#include <fstream>
#include <sstream>

#include <media/stagefright/MediaBuffer.h>
#include <media/stagefright/MediaDefs.h>
#include <media/stagefright/MediaErrors.h>

#include "LogCapture.h"
#include "TestDataSources.h"
#include "avi/ZIRKAVIExtractor.h"

using namespace android;
using namespace android::test;

namespace {

struct Packet {
    bool mVideo;
    int64_t mTimeUs;
    size_t mSize;
    bool mKey;
};

std::vector<std::string> splitCsv(const std::string& line) {
    std::vector<std::string> out;
    std::stringstream ss(line);
    std::string field;
    while (std::getline(ss, field, ',')) out.push_back(field);
    return out;
}

std::vector<Packet> readPackets(const std::string& name) {
    std::ifstream in(testdataPath(name + ".packets.csv"));
    std::vector<Packet> packets;
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#') continue;
        std::vector<std::string> f = splitCsv(line);
        // codec_type,stream_index,pts,pts_time,dts,dts_time,duration_time,size,flags
        const std::string& time = f[3] != "N/A" ? f[3] : f[5];
        packets.push_back({f[0] == "video", llround(atof(time.c_str()) * 1e6),
                           static_cast<size_t>(atol(f[7].c_str())), f[8][0] == 'K'});
    }
    return packets;
}

// Key flags of the non-empty 00dc chunks from the idx1 dump.
std::vector<bool> idx1VideoKeys(const std::string& name) {
    std::ifstream in(testdataPath(name + ".idx1.csv"));
    std::vector<bool> keys;
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#') continue;
        std::vector<std::string> f = splitCsv(line);  // n,ckid,flags,key,idx_offset,file_offset,size
        if (f[1].compare(0, 2, "00") == 0 && atol(f[6].c_str()) > 0) keys.push_back(f[3] == "1");
    }
    return keys;
}

struct Output {
    std::vector<std::vector<uint8_t>> mData;
    std::vector<int64_t> mTimes;
};

Output readTrack(const sp<MediaSource>& source) {
    Output out;
    EXPECT_EQ(source->start(), OK);
    MediaBuffer* buffer;
    status_t err;
    while ((err = source->read(&buffer)) == OK) {
        const uint8_t* p = static_cast<const uint8_t*>(buffer->data()) + buffer->range_offset();
        out.mData.emplace_back(p, p + buffer->range_length());
        int64_t t = -1;
        buffer->meta_data()->findInt64(kKeyTime, &t);
        out.mTimes.push_back(t);
        buffer->release();
    }
    EXPECT_EQ(err, ERROR_END_OF_STREAM);
    EXPECT_EQ(source->stop(), OK);
    return out;
}

enum AudioCheck { kMPEGFrames, kPCM16, kPCM8, kALaw, kAC3, kIMA, kMSADPCMStereo, kRawAAC };

struct FileCase {
    const char* mName;
    const char* mVideoMime;
    const char* mAudioMime;
    AudioCheck mAudio;
    int mRate;
    bool mKeysFromIdx1;  // ffprobe marks every frame key in this file
};

const FileCase kFiles[] = {
    {"avi_xvid_mp3", MEDIA_MIMETYPE_VIDEO_MPEG4, MEDIA_MIMETYPE_AUDIO_MPEG, kMPEGFrames, 44100, false},
    {"avi_xvid_mp2", MEDIA_MIMETYPE_VIDEO_MPEG4, MEDIA_MIMETYPE_AUDIO_MPEG_LAYER_II, kMPEGFrames, 44100, false},
    {"avi_msmpeg4v3_pcm", MEDIA_MIMETYPE_VIDEO_DIVX3, MEDIA_MIMETYPE_AUDIO_RAW, kPCM16, 22050, false},
    {"avi_mjpeg_pcm8", MEDIA_MIMETYPE_VIDEO_MJPEG, MEDIA_MIMETYPE_AUDIO_RAW, kPCM8, 11025, false},
    {"avi_h264_ac3", MEDIA_MIMETYPE_VIDEO_AVC, MEDIA_MIMETYPE_AUDIO_AC3, kAC3, 48000, false},
    {"avi_mpeg4_ima", MEDIA_MIMETYPE_VIDEO_MPEG4, MEDIA_MIMETYPE_AUDIO_RAW, kIMA, 22050, false},
    {"avi_dx50_msadpcm", MEDIA_MIMETYPE_VIDEO_MPEG4, MEDIA_MIMETYPE_AUDIO_RAW, kMSADPCMStereo, 22050, false},
    {"avi_h263_alaw", MEDIA_MIMETYPE_VIDEO_H263, MEDIA_MIMETYPE_AUDIO_G711_ALAW, kALaw, 8000, true},
    {"avi_mpeg4_aac", MEDIA_MIMETYPE_VIDEO_MPEG4, MEDIA_MIMETYPE_AUDIO_AAC, kRawAAC, 44100, false},
};

class AVIRealFileTest : public testing::TestWithParam<FileCase> {};

uint64_t fnv1a(const std::vector<std::vector<uint8_t>>& pieces) {
    uint64_t h = 0xcbf29ce484222325ULL;
    for (const auto& p : pieces) {
        for (uint8_t b : p) {
            h ^= b;
            h *= 0x100000001b3ULL;
        }
    }
    return h;
}

// Key flags of the non-empty chunks in the index table (ProbeCrossCheck
// compares the video sizes and times, not the AVI key flags).
void checkVideoKeys(const FileCase& c, const sp<ZIRKAVIExtractor>& ex, const std::vector<Packet>& packets) {
    std::vector<bool> keys, expected;
    for (const ZIRKAVIExtractor::SampleInfo& s : ex->trackAt(0).mSamples) {
        if (s.mSize > 0) keys.push_back(s.mIsKey);
    }
    if (c.mKeysFromIdx1) expected = idx1VideoKeys(std::string(c.mName) + ".avi");
    for (const Packet& p : packets) {
        if (p.mVideo && !c.mKeysFromIdx1) expected.push_back(p.mKey);
    }
    EXPECT_EQ(keys, expected);
}

// What each audio splitter makes of the file's chunks.
void checkAudio(const FileCase& c, const Output& out, const std::vector<Packet>& packets, LogCapture* log) {
    std::vector<size_t> in;
    size_t inBytes = 0, outBytes = 0;
    for (const Packet& p : packets) {
        if (!p.mVideo) in.push_back(p.mSize), inBytes += p.mSize;
    }
    for (const auto& d : out.mData) outBytes += d.size();
    // Frames of n samples, or pieces of at most 20 ms, stamped from 0.
    auto expectFrames = [&](int64_t n) {
        for (size_t i = 0; i < out.mTimes.size(); ++i) EXPECT_EQ(out.mTimes[i], int64_t(i) * n * 1000000 / c.mRate) << i;
    };
    auto expectPieces = [&](size_t bytesPerFrame, size_t inToOut) {
        EXPECT_EQ(outBytes, inToOut * inBytes);
        int64_t samples = 0;
        for (size_t i = 0; i < out.mData.size(); ++i) {
            EXPECT_LE(out.mData[i].size(), c.mRate / 50 * bytesPerFrame);
            EXPECT_EQ(out.mTimes[i], samples * 1000000 / c.mRate) << i;
            samples += out.mData[i].size() / bytesPerFrame;
        }
    };
    std::vector<size_t> sizes;
    for (const auto& d : out.mData) sizes.push_back(d.size());
    switch (c.mAudio) {
        case kMPEGFrames: EXPECT_EQ(sizes, in); expectFrames(1152); break;  // one frame per chunk
        case kRawAAC: EXPECT_EQ(sizes, in); expectFrames(1024); break;
        case kAC3: EXPECT_EQ(sizes, std::vector<size_t>(in.size(), 384)); expectFrames(1536); break;
        case kPCM16: expectPieces(2, 1); break;
        case kPCM8: expectPieces(2, 2); break;
        case kALaw: expectPieces(1, 1); break;
        case kIMA: {
            // 1024-byte blocks of 2041 samples, against ffmpeg's own decode of
            // this file (s16le): the first samples and an FNV-1a hash.
            EXPECT_EQ(sizes, std::vector<size_t>(in.size(), 2041 * 2));
            expectFrames(2041);
            const int16_t first[8] = {0, 13, 43, 106, 242, 536, 1167, 2524};
            const int16_t second[8] = {-4054, -4096, -4058, -3954, -3860, -3602, -3358, -3011};
            for (int i = 0; i < 8; ++i) {
                EXPECT_EQ(static_cast<int16_t>(out.mData[0][2 * i] | (out.mData[0][2 * i + 1] << 8)), first[i]);
                EXPECT_EQ(static_cast<int16_t>(out.mData[1][2 * i] | (out.mData[1][2 * i + 1] << 8)), second[i]);
            }
            EXPECT_EQ(fnv1a(out.mData), 0x60960459db823432ULL);
            break;
        }
        case kMSADPCMStereo:
            // Through the IMA decoder a 1024-byte stereo MS ADPCM block is 1019
            // bytes, not whole 4-byte groups: every read warns, nothing comes out.
            EXPECT_TRUE(out.mData.empty());
            EXPECT_GT(log->count("8 samples of one channel should be packed together for multi-channel IMA ADPCM."), 0u);
            break;
    }
}

TEST_P(AVIRealFileTest, WholeAndPiecewiseReadsAgree) {
    const FileCase& c = GetParam();
    std::vector<uint8_t> bytes = readFileBytes(testdataPath(std::string(c.mName) + ".avi"));
    std::vector<Packet> packets = readPackets(std::string(c.mName) + ".avi");
    ASSERT_FALSE(bytes.empty() || packets.empty());
    String8 mime;
    float confidence;
    ASSERT_TRUE(ZIRKSniffAVI(new MemorySource(bytes), &mime, &confidence, nullptr));
    Output first[2];
    for (size_t piece : {size_t(0), size_t(777)}) {
        SCOPED_TRACE(piece ? "piecewise" : "whole");
        LogCapture log;
        sp<ZIRKAVIExtractor> ex = new ZIRKAVIExtractor(piece ? sp<DataSource>(new PiecewiseSource(bytes, piece))
                                                             : sp<DataSource>(new MemorySource(bytes)));
        ASSERT_EQ(ex->initCheck(), OK);
        ASSERT_EQ(ex->countTracks(), 2u);
        const char *video, *audio;
        ASSERT_TRUE(ex->getTrackMetaData(0, 0)->findCString(kKeyMIMEType, &video));
        ASSERT_TRUE(ex->getTrackMetaData(1, 0)->findCString(kKeyMIMEType, &audio));
        EXPECT_STREQ(video, c.mVideoMime);
        EXPECT_STREQ(audio, c.mAudioMime);
        checkVideoKeys(c, ex, packets);
        Output out[2] = {readTrack(ex->getTrack(0)), readTrack(ex->getTrack(1))};
        checkAudio(c, out[1], packets, &log);
        for (int t = 0; t < 2 && piece; ++t) {
            EXPECT_TRUE(out[t].mData == first[t].mData && out[t].mTimes == first[t].mTimes) << "track " << t;
        }
        if (!piece) first[0] = out[0], first[1] = out[1];
        if (!strcmp(c.mVideoMime, MEDIA_MIMETYPE_VIDEO_AVC)) {
            for (const auto& d : out[0].mData) EXPECT_TRUE(d.size() >= 4 && d[3] == 1) << "start code";
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Files, AVIRealFileTest, testing::ValuesIn(kFiles),
                         [](const testing::TestParamInfo<FileCase>& info) { return std::string(info.param.mName); });

TEST(AVIRealFileMetaTest, CodecConfigurationFromTheFiles) {
    // avcC from the first frame's SPS/PPS; MPEG-4 config before the first VOP;
    // AAC config as stored (5 bytes).
    struct Case {
        const char* file;
        size_t track;
        uint32_t key;
    };
    for (const Case& c : {Case{"avi_h264_ac3", 0, kKeyAVCC}, Case{"avi_xvid_mp3", 0, kKeyESDS},
                          Case{"avi_mpeg4_aac", 1, kKeyESDS}}) {
        SCOPED_TRACE(c.file);
        sp<ZIRKAVIExtractor> ex =
            new ZIRKAVIExtractor(new MemorySource(readFileBytes(testdataPath(std::string(c.file) + ".avi"))));
        ASSERT_EQ(ex->initCheck(), OK);
        uint32_t type;
        const void* data;
        size_t size;
        ASSERT_TRUE(ex->getTrackMetaData(c.track, 0)->findData(c.key, &type, &data, &size));
        if (c.track == 1) {
            const uint8_t expected[] = {0x12, 0x10, 0x56, 0xE5, 0x00};
            ASSERT_EQ(size, 27u);
            EXPECT_EQ(memcmp(static_cast<const uint8_t*>(data) + 22, expected, 5), 0);
        }
    }
    sp<ZIRKAVIExtractor> ex =
        new ZIRKAVIExtractor(new MemorySource(readFileBytes(testdataPath("avi_h264_ac3.avi"))));
    int32_t w = 0, h = 0;
    EXPECT_TRUE(ex->getTrackMetaData(0, 0)->findInt32(kKeyWidth, &w));
    EXPECT_TRUE(ex->getTrackMetaData(0, 0)->findInt32(kKeyHeight, &h));
    EXPECT_EQ(w, 176);
    EXPECT_EQ(h, 144);
    int64_t duration = 0;
    EXPECT_TRUE(ex->getTrackMetaData(0, 0)->findInt64(kKeyDuration, &duration));
    EXPECT_EQ(duration, 49 * 40000);
}

}  // namespace
