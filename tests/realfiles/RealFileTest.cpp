// Every FLV and AVI file of testdata/ (made by ffmpeg) read through the entry
// points whole, in odd-sized pieces and from the file itself: every reading
// must give the same samples. The first is checked against the lists kept
// beside the file where the probe's cross-check (which compares every video
// sample and FLV audio sample with ffprobe's packets) does not look: AVI audio
// as each splitter re-frames it, FLV H.264 payload bytes, codec data,
// durations, AVI dimensions and the AVI index table's key flags (AVI buffers
// carry none).
#include <gtest/gtest.h>

#include <math.h>
#include <strings.h>

#include <algorithm>
#include <fstream>
#include <map>

#include <media/stagefright/FileSource.h>
#include <media/stagefright/MediaDefs.h>
#include <media/stagefright/MediaErrors.h>
#include <media/stagefright/Utils.h>

#include "LogCapture.h"
#include "TestDataSources.h"
#include "TrackReader.h"
#include "avi/ZIRKAVIExtractor.h"
#include "entry/ZIRKExtractorEntry.h"
#include "flv/ZIRKFLVExtractor.h"

using namespace android;
using namespace android::test;

namespace {

// What each AVI audio splitter makes of the file's chunks (FLV audio is
// compared with ffprobe's packets by the probe's cross-check).
enum AudioRule { kAsPackets, kMPEGFrames, kRawAAC, kAC3, kPCM16, kPCM8, kALaw, kIMA, kMSADPCMStereo };

// Codec configuration of a track: its size (0: any), and the bytes it ends in.
struct CodecData {
    size_t track;
    uint32_t key;
    size_t size;
    Bytes tail;
};

const Bytes kAACConfig = {0x12, 0x10, 0x56, 0xE5, 0x00};  // LC, 44100 Hz, stereo, no SBR

const struct FileFacts {
    const char* name;
    std::vector<const char*> mimes;
    AudioRule audio;
    int rate;            // AVI: of the audio, for the splitters' times
    int64_t durationUs;  // FLV: the file's (onMetaData, else the last tag)
    std::vector<CodecData> codecData;
} kFacts[] = {
    {"flv_h264_aac.flv", {MEDIA_MIMETYPE_VIDEO_AVC, MEDIA_MIMETYPE_AUDIO_AAC}, kAsPackets, 0, 2080000,
     {{0, kKeyAVCC, 38, {}}, {1, kKeyESDS, 27, kAACConfig}}},  // avcC: the 43-byte tag minus 5
    {"flv_h264_nometa.flv", {MEDIA_MIMETYPE_VIDEO_AVC, MEDIA_MIMETYPE_AUDIO_AAC}, kAsPackets, 0, 2077000,
     {{0, kKeyAVCC, 38, {}}, {1, kKeyESDS, 27, kAACConfig}}},
    {"flv_h263_mp3.flv", {MEDIA_MIMETYPE_VIDEO_SORENSEN, MEDIA_MIMETYPE_AUDIO_MPEG}, kAsPackets, 0, 2025000, {}},
    {"flv_aac_only.flv", {MEDIA_MIMETYPE_AUDIO_AAC}, kAsPackets, 0, 2023000, {{0, kKeyESDS, 27, kAACConfig}}},
    {"avi_xvid_mp3.avi", {MEDIA_MIMETYPE_VIDEO_MPEG4, MEDIA_MIMETYPE_AUDIO_MPEG}, kMPEGFrames, 44100, -1,
     {{0, kKeyESDS, 0, {}}}},  // the MPEG-4 configuration before the first VOP
    {"avi_xvid_mp2.avi", {MEDIA_MIMETYPE_VIDEO_MPEG4, MEDIA_MIMETYPE_AUDIO_MPEG_LAYER_II}, kMPEGFrames, 44100, -1, {}},
    {"avi_msmpeg4v3_pcm.avi", {MEDIA_MIMETYPE_VIDEO_DIVX3, MEDIA_MIMETYPE_AUDIO_RAW}, kPCM16, 22050, -1, {}},
    {"avi_mjpeg_pcm8.avi", {MEDIA_MIMETYPE_VIDEO_MJPEG, MEDIA_MIMETYPE_AUDIO_RAW}, kPCM8, 11025, -1, {}},
    {"avi_h264_ac3.avi", {MEDIA_MIMETYPE_VIDEO_AVC, MEDIA_MIMETYPE_AUDIO_AC3}, kAC3, 48000, -1,
     {{0, kKeyAVCC, 0, {}}}},  // from the first frame's SPS and PPS
    {"avi_mpeg4_ima.avi", {MEDIA_MIMETYPE_VIDEO_MPEG4, MEDIA_MIMETYPE_AUDIO_RAW}, kIMA, 22050, -1, {}},
    {"avi_dx50_msadpcm.avi", {MEDIA_MIMETYPE_VIDEO_MPEG4, MEDIA_MIMETYPE_AUDIO_RAW}, kMSADPCMStereo, 22050, -1, {}},
    {"avi_h263_alaw.avi", {MEDIA_MIMETYPE_VIDEO_H263, MEDIA_MIMETYPE_AUDIO_G711_ALAW}, kALaw, 8000, -1, {}},
    {"avi_mpeg4_aac.avi", {MEDIA_MIMETYPE_VIDEO_MPEG4, MEDIA_MIMETYPE_AUDIO_AAC}, kRawAAC, 44100, -1,
     {{1, kKeyESDS, 27, kAACConfig}}},  // stored as is (5 bytes)
};

// ffprobe's packets of one kind ("video", "audio"), in file order.
struct Packet {
    int64_t timeUs;  // decode time, else presentation time
    size_t size;
};
std::vector<Packet> packetsOf(const std::vector<CsvRow>& rows, const std::string& kind) {
    std::vector<Packet> out;
    for (const CsvRow& r : rows) {
        const std::string& t = r.at("dts_time") != "N/A" ? r.at("dts_time") : r.at("pts_time");
        if (r.at("codec_type") != kind) continue;
        out.push_back({llround(atof(t.c_str()) * 1e6), std::stoul(r.at("size"))});
    }
    return out;
}

// ffprobe's value of `key` for stream 0 (<file>.streams.txt), -1 if absent.
int32_t stream0Value(const std::string& name, const std::string& key) {
    std::ifstream in(testdataPath(name + ".streams.txt"));
    const std::string prefix = "streams.stream.0." + key + "=";
    for (std::string line; std::getline(in, line);) {
        if (line.rfind(prefix, 0) == 0) return std::stoi(line.substr(prefix.size()));
    }
    return -1;
}

// Key flags of the non-empty video chunks in the idx1 dump.
std::vector<bool> idx1VideoKeys(const std::string& name) {
    std::vector<bool> keys;
    for (const CsvRow& r : readTestdataCsv(name + ".idx1.csv")) {
        if (r.at("ckid").compare(0, 2, "00") == 0 && r.at("size") != "0") keys.push_back(r.at("key") == "1");
    }
    return keys;
}

// Start-code form of the 4-byte-length NAL data of the AVC tag with each
// time (the last such tag, as in the extractor's time-keyed table: the
// end-of-sequence tag's empty data at 1960 ms).
std::map<int64_t, Bytes> avcPayloadsFromTags(const std::string& name, const Bytes& file) {
    std::map<int64_t, Bytes> out;
    for (const CsvRow& r : readTestdataCsv(name + ".tags.csv")) {
        if (r.at("type") != "9" || r.at("pkt_type") == "0") continue;
        const size_t offset = std::stoul(r.at("offset")), dataSize = std::stoul(r.at("data_size"));
        Bytes nal(file.begin() + offset + 16, file.begin() + offset + 11 + dataSize);
        for (size_t pos = 0, length; pos + 4 <= nal.size(); pos += 4 + length) {
            length = U32_AT(&nal[pos]);
            setBE32(&nal, pos, 1);
        }
        out[std::stoll(r.at("timestamp"))] = nal;
    }
    return out;
}

void expectAVIAudio(const FileFacts& f, const std::vector<Sample>& out, const std::vector<Packet>& in,
                    const LogCapture& log) {
    std::vector<size_t> inSizes, sizes;
    size_t inBytes = 0, outBytes = 0;
    for (const Packet& p : in) inSizes.push_back(p.size), inBytes += p.size;
    for (const Sample& s : out) sizes.push_back(s.data.size()), outBytes += s.data.size();
    // Frames of n samples, or pieces of at most 20 ms, stamped from 0.
    auto expectFrames = [&](int64_t n) {
        for (size_t i = 0; i < out.size(); ++i) EXPECT_EQ(out[i].timeUs, int64_t(i) * n * 1000000 / f.rate) << i;
    };
    auto expectPieces = [&](size_t bytesPerFrame, size_t inToOut) {
        EXPECT_EQ(outBytes, inToOut * inBytes);
        int64_t frames = 0;
        for (size_t i = 0; i < out.size(); ++i) {
            EXPECT_LE(out[i].data.size(), f.rate / 50 * bytesPerFrame);
            EXPECT_EQ(out[i].timeUs, frames * 1000000 / f.rate) << i;
            frames += out[i].data.size() / bytesPerFrame;
        }
    };
    switch (f.audio) {
        case kAsPackets: break;
        case kMPEGFrames: EXPECT_EQ(sizes, inSizes); expectFrames(1152); break;  // one frame per chunk
        case kRawAAC: EXPECT_EQ(sizes, inSizes); expectFrames(1024); break;
        case kAC3: EXPECT_EQ(sizes, std::vector<size_t>(in.size(), 384)); expectFrames(1536); break;
        case kPCM16: expectPieces(2, 1); break;
        case kPCM8: expectPieces(2, 2); break;
        case kALaw: expectPieces(1, 1); break;
        case kIMA: {
            // 1024-byte blocks of 2041 samples, against a crc32 of ffmpeg's own
            // decode of this file (s16le).
            EXPECT_EQ(sizes, std::vector<size_t>(in.size(), 2041 * 2));
            expectFrames(2041);
            Bytes all;
            for (const Sample& s : out) append(&all, s.data);
            EXPECT_EQ(crc32Of(all), 0x8DD2490Eu);
            break;
        }
        case kMSADPCMStereo:
            // Through the IMA decoder a 1024-byte stereo MS ADPCM block is 1019
            // bytes, not whole 4-byte groups: every read warns, nothing comes out.
            EXPECT_TRUE(out.empty());
            EXPECT_EQ(log.count("8 samples of one channel should be packed together for multi-channel IMA ADPCM.",
                                ANDROID_LOG_WARN), in.size());
            break;
    }
}

// Checks one whole reading of the file against the lists.
void expectFacts(const FileFacts& f, const char* containerMime, const sp<MediaExtractor>& ex,
                 const std::vector<TrackRead>& tracks, const Bytes& file, const LogCapture& log) {
    const bool flv = !strcasecmp(containerMime, MEDIA_MIMETYPE_CONTAINER_FLV);
    const std::vector<CsvRow> rows = readTestdataCsv(std::string(f.name) + ".packets.csv");
    ASSERT_FALSE(rows.empty());
    for (size_t t = 0; t < tracks.size(); ++t) {
        SCOPED_TRACE(f.mimes[t]);
        const bool video = !strncasecmp(f.mimes[t], "video/", 6), avc = !strcmp(f.mimes[t], MEDIA_MIMETYPE_VIDEO_AVC);
        if (flv && avc) {
            // The end-of-sequence tag (17 02, 1960 ms) replaces the last frame
            // in the time-keyed table: an empty sample of the tag's payload.
            const std::map<int64_t, Bytes> payloads = avcPayloadsFromTags(f.name, file);
            ASSERT_EQ(tracks[t].samples.size(), payloads.size());
            for (const Sample& s : tracks[t].samples) EXPECT_EQ(s.data, payloads.at(s.timeUs / 1000)) << s.timeUs;
        }
        if (flv) continue;
        // AVI: H.264 in start-code form, and no buffer claims a key flag.
        for (const Sample& s : tracks[t].samples) {
            EXPECT_TRUE(!avc || (s.data.size() >= 4 && s.data[3] == 1)) << "start code";
            EXPECT_EQ(s.sync, -1);
        }
        if (!video) expectAVIAudio(f, tracks[t].samples, packetsOf(rows, "audio"), log);
    }
    for (const CodecData& c : f.codecData) {
        uint32_t type = 0;
        const Bytes data = findBytes(ex->getTrackMetaData(c.track, 0), c.key, &type);
        EXPECT_TRUE(!data.empty() && (c.size == 0 || data.size() == c.size)) << c.track << " " << data.size();
        EXPECT_TRUE(!flv || type == 0) << "FLV stores its codec data with type 0";
        EXPECT_TRUE(data.size() >= c.tail.size() && Bytes(data.end() - c.tail.size(), data.end()) == c.tail);
    }
    int64_t durationUs = 0;
    if (flv) {
        EXPECT_TRUE(ex->getMetaData()->findInt64(kKeyDuration, &durationUs));
        EXPECT_EQ(durationUs, f.durationUs);
        return;
    }
    // AVI: the video track has ffprobe's dimensions and lasts to its last
    // frame's start; the index table's key flags of the non-empty chunks are
    // the idx1 dump's (ffprobe marks every frame of the H.263 file key).
    int32_t width = 0, height = 0;
    EXPECT_TRUE(ex->getTrackMetaData(0, 0)->findInt32(kKeyWidth, &width));
    EXPECT_TRUE(ex->getTrackMetaData(0, 0)->findInt32(kKeyHeight, &height));
    EXPECT_EQ(width, stream0Value(f.name, "width"));
    EXPECT_EQ(height, stream0Value(f.name, "height"));
    EXPECT_TRUE(ex->getTrackMetaData(0, 0)->findInt64(kKeyDuration, &durationUs));
    EXPECT_EQ(durationUs, packetsOf(rows, "video").back().timeUs);
    std::vector<bool> keys;
    for (const ZIRKAVIExtractor::SampleInfo& s : static_cast<ZIRKAVIExtractor*>(ex.get())->trackAt(0).mSamples) {
        if (s.mSize > 0) keys.push_back(s.mIsKey);
    }
    EXPECT_EQ(keys, idx1VideoKeys(f.name));
}

// The FLV and AVI files; MOV files are compared with their lists in
// tests/mov and by the probe's cross-check.
std::vector<MediaFile> flvAndAviFiles() {
    std::vector<MediaFile> files;
    for (const MediaFile& f : mediaTestFiles()) {
        if (strcmp(f.containerMime, MEDIA_MIMETYPE_CONTAINER_MOV)) files.push_back(f);
    }
    return files;
}

class RealFileTest : public ::testing::TestWithParam<MediaFile> {};

// Every source gives the listed track types, reads each track to its end,
// and gives the samples the first one gave (sniffing: EntryTest).
TEST_P(RealFileTest, EverySourceGivesTheListedSamples) {
    const MediaFile& file = GetParam();
    const FileFacts* facts = nullptr;
    for (const FileFacts& f : kFacts) facts = file.name == f.name ? &f : facts;
    ASSERT_NE(facts, nullptr) << "no facts for " << file.name;
    const Bytes bytes = readFileBytes(testdataPath(file.name));
    std::vector<TrackRead> first;
    const sp<DataSource> sources[] = {new MemorySource(bytes), new PiecewiseSource(bytes, 7),
                                      new PiecewiseSource(bytes, 777), new FileSource(testdataPath(file.name).c_str())};
    for (const sp<DataSource>& source : sources) {
        const std::string what = "source " + std::to_string(&source - sources);
        LogCapture log;
        sp<MediaExtractor> ex = getInstance(source, file.containerMime);
        ASSERT_NE(ex, nullptr);
        ASSERT_EQ(ex->countTracks(), facts->mimes.size());
        std::vector<TrackRead> tracks;
        for (size_t t = 0; t < ex->countTracks(); ++t) {
            const char* trackMime = "";
            EXPECT_TRUE(ex->getTrackMetaData(t, 0)->findCString(kKeyMIMEType, &trackMime));
            EXPECT_STREQ(trackMime, facts->mimes[t]);
            tracks.push_back(readTrack(ex->getTrack(t)));
            EXPECT_EQ(tracks.back().end, ERROR_END_OF_STREAM);
            if (!first.empty()) expectSameRead(tracks[t], first[t], what + ", track " + std::to_string(t));
        }
        if (first.empty()) expectFacts(*facts, file.containerMime, ex, tracks, bytes, log);
        if (first.empty()) first = tracks;
    }
}

INSTANTIATE_TEST_SUITE_P(Files, RealFileTest, ::testing::ValuesIn(flvAndAviFiles()), MediaFileName());

// A file cut inside any tag cannot be opened (its PreviousTagSize chain is
// broken), and reading the partial tag stays inside the data.
TEST(RealFileDetailTest, FLVCutInsideAnyTagIsUnreadable) {
    const Bytes bytes = readFileBytes(testdataPath("flv_h264_aac.flv"));
    for (const CsvRow& r : readTestdataCsv("flv_h264_aac.flv.tags.csv")) {
        const size_t offset = std::stoul(r.at("offset")), data = offset + 11, dataSize = std::stoul(r.at("data_size"));
        for (size_t cut : {offset + 1, offset + 5, data + 1, data + dataSize / 2, data + dataSize + 2}) {
            Bytes prefix(bytes.begin(), bytes.begin() + std::min(cut, bytes.size() - 1));
            EXPECT_EQ(sp<ZIRKFLVExtractor>(new ZIRKFLVExtractor(new MemorySource(prefix)))->countTracks(), 0u) << cut;
        }
    }
}

}  // namespace
