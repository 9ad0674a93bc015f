// The FLV files made by ffmpeg, checked against ffprobe's packet lists and
// the independent tag dumps next to them in testdata/.
//
// Known differences to ffprobe, expected here rather than hidden:
// - The H.264 files end with an AVC end-of-sequence tag (17 02 00 00 00, key
//   frame, 1960 ms) that ffprobe does not list. The extractor registers it as
//   a sample; since it has the time of the last frame, it replaces that frame
//   in the time-keyed table. So the last video sample is an empty key frame
//   at 1.96 s instead of ffprobe's 322-byte inter frame.
// - Audio buffers carry no sync flag (ffprobe marks every audio packet K).
// Sizes match ffprobe directly: AVC payloads are dataSize - 5, AAC
// dataSize - 2, MP3 and Sorenson dataSize - 1, as ffprobe counts them.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <sstream>

#include <media/stagefright/FileSource.h>
#include <media/stagefright/MediaDefs.h>
#include <media/stagefright/Utils.h>

#include "FLVTestUtil.h"
#include "common/ZIRKMetaKeys.h"

using namespace android;
using namespace android::test;

namespace {

typedef std::vector<uint8_t> Bytes;

struct Packet {
    int64_t dtsMs;
    size_t size;
    bool key;
};

std::vector<std::vector<std::string>> readCSV(const std::string& name) {
    std::ifstream in(testdataPath(name));
    std::vector<std::vector<std::string>> rows;
    std::string line;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#') continue;
        std::vector<std::string> fields;
        std::stringstream ss(line);
        std::string f;
        while (std::getline(ss, f, ',')) fields.push_back(f);
        rows.push_back(fields);
    }
    return rows;
}

// ffprobe's packets of one codec type, in decode order.
std::vector<Packet> packets(const std::string& file, const std::string& type) {
    std::vector<Packet> out;
    for (const auto& r : readCSV(file + ".packets.csv")) {
        if (r.at(0) != type) continue;
        out.push_back({std::stoll(r.at(4)), std::stoul(r.at(7)), r.at(8)[0] == 'K'});
    }
    std::stable_sort(out.begin(), out.end(),
                     [](const Packet& a, const Packet& b) { return a.dtsMs < b.dtsMs; });
    return out;
}

// Start-code form of the 4-byte-length NAL data of the AVC tag with this
// time (the last such tag in the file, as in the extractor's table).
std::map<int64_t, Bytes> avcPayloadsFromTags(const std::string& file, const Bytes& bytes) {
    std::map<int64_t, Bytes> out;
    for (const auto& r : readCSV(file + ".tags.csv")) {
        if (r.at(2) != "9" || r.at(8) == "0") continue;
        const size_t offset = std::stoul(r.at(1));
        const size_t dataSize = std::stoul(r.at(3));
        Bytes nal(bytes.begin() + offset + 16, bytes.begin() + offset + 11 + dataSize);
        for (size_t pos = 0; pos + 4 <= nal.size();) {
            const size_t length = U32_AT(&nal[pos]);
            nal[pos] = nal[pos + 1] = nal[pos + 2] = 0;
            nal[pos + 3] = 1;
            pos += 4 + length;
        }
        out[std::stoll(r.at(4))] = nal;
    }
    return out;
}

struct FileCase {
    const char* name;
    std::vector<std::string> mimes;  // per track
    bool endOfSequence;
    int32_t width, height;
    int64_t fileDurationUs;
};

class FLVRealFileTest : public testing::TestWithParam<FileCase> {};

void checkTrack(const std::string& file, const FileCase& c, const sp<ZIRKFLVExtractor>& extractor,
                size_t index, const Bytes& bytes) {
    sp<MetaData> meta = extractor->getTrackMetaData(index);
    const char* mime;
    ASSERT_TRUE(meta->findCString(kKeyMIMEType, &mime));
    EXPECT_STREQ(mime, c.mimes[index].c_str());
    const bool video = !strncmp(mime, "video/", 6);

    std::vector<Packet> expected = packets(file, video ? "video" : "audio");
    if (video && c.endOfSequence) {
        ASSERT_EQ(expected.back().dtsMs, 1960);
        expected.back() = {1960, 0, true};
    }
    sp<MediaSource> source = extractor->getTrack(index);
    ASSERT_EQ(source->start(), OK);
    std::vector<Sample> got = readAll(source);
    ASSERT_EQ(got.size(), expected.size());
    int32_t count;
    EXPECT_TRUE(meta->findInt32(kKeyBufferCount, &count));
    EXPECT_EQ(static_cast<size_t>(count), expected.size());

    const std::map<int64_t, Bytes> avc = !strcmp(mime, MEDIA_MIMETYPE_VIDEO_AVC)
                                                 ? avcPayloadsFromTags(file, bytes)
                                                 : std::map<int64_t, Bytes>();
    for (size_t i = 0; i < got.size(); ++i) {
        SCOPED_TRACE(testing::Message() << mime << " sample " << i);
        EXPECT_EQ(got[i].timeUs, expected[i].dtsMs * 1000);
        EXPECT_EQ(got[i].data.size(), expected[i].size);
        EXPECT_EQ(got[i].sync, video && expected[i].key);
        if (!avc.empty()) {
            EXPECT_EQ(got[i].data, avc.at(expected[i].dtsMs));
        }
    }
    EXPECT_EQ(source->stop(), OK);
}

TEST_P(FLVRealFileTest, TracksMatchTheProbedPackets) {
    const FileCase& c = GetParam();
    const Bytes bytes = readFileBytes(testdataPath(c.name));
    ASSERT_FALSE(bytes.empty());
    const sp<DataSource> sources[] = {new MemorySource(bytes), new PiecewiseSource(bytes, 7),
                                      new FileSource(testdataPath(c.name).c_str())};
    for (const sp<DataSource>& source : sources) {
        sp<ZIRKFLVExtractor> extractor = new ZIRKFLVExtractor(source);
        ASSERT_EQ(extractor->countTracks(), c.mimes.size());
        for (size_t i = 0; i < c.mimes.size(); ++i) checkTrack(c.name, c, extractor, i, bytes);
        int64_t d;
        EXPECT_TRUE(extractor->getMetaData()->findInt64(kKeyDuration, &d));
        EXPECT_EQ(d, c.fileDurationUs);
        if (c.width > 0) {
            int32_t w, h;
            EXPECT_TRUE(extractor->getTrackMetaData(0)->findInt32(kKeyWidth, &w));
            EXPECT_TRUE(extractor->getTrackMetaData(0)->findInt32(kKeyHeight, &h));
            EXPECT_EQ(w, c.width);
            EXPECT_EQ(h, c.height);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
        Files, FLVRealFileTest,
        testing::Values(
                FileCase{"flv_h264_aac.flv", {MEDIA_MIMETYPE_VIDEO_AVC, MEDIA_MIMETYPE_AUDIO_AAC}, true, 176, 144, 2080000},
                FileCase{"flv_h264_nometa.flv", {MEDIA_MIMETYPE_VIDEO_AVC, MEDIA_MIMETYPE_AUDIO_AAC}, true, 640, 480, 2077000},
                FileCase{"flv_h263_mp3.flv", {MEDIA_MIMETYPE_VIDEO_SORENSEN, MEDIA_MIMETYPE_AUDIO_MPEG}, false, 176, 144, 2025000},
                FileCase{"flv_aac_only.flv", {MEDIA_MIMETYPE_AUDIO_AAC}, false, 0, 0, 2023000}),
        [](const testing::TestParamInfo<FileCase>& info) {
            std::string n = info.param.name;
            std::replace(n.begin(), n.end(), '.', '_');
            return n;
        });

TEST(FLVRealFileDetailTest, H264FileConfigurationThumbnailAndSeek) {
    sp<ZIRKFLVExtractor> extractor = openFLV(readFileBytes(testdataPath("flv_h264_aac.flv")));
    ASSERT_EQ(extractor->countTracks(), 2u);
    sp<MetaData> video = extractor->getTrackMetaData(0);
    sp<MetaData> audio = extractor->getTrackMetaData(1);
    EXPECT_EQ(bytesOf(video, kKeyAVCC).size(), 38u);  // the 43-byte tag minus 5
    const Bytes esds = bytesOf(audio, kKeyESDS);
    ASSERT_EQ(esds.size(), 27u);
    EXPECT_EQ(Bytes(esds.end() - 5, esds.end()), Bytes({0x12, 0x10, 0x56, 0xE5, 0x00}));
    int64_t t;
    int32_t v;
    EXPECT_TRUE(video->findInt64(kKeyThumbnailTime, &t));
    EXPECT_EQ(t, 1000000);  // the larger second key frame (2636 bytes)
    EXPECT_TRUE(video->findInt32(kKeyMaxInputSize, &v));
    EXPECT_EQ(v, 3163);  // 2636 * 1.2
    EXPECT_TRUE(audio->findInt32(kKeyMaxInputSize, &v));
    EXPECT_EQ(v, 272);
    EXPECT_TRUE(audio->findInt32(kKeySampleRate, &v));
    EXPECT_EQ(v, 44100);
    EXPECT_TRUE(audio->findInt32(kKeyChannelCount, &v));
    EXPECT_EQ(v, 2);
    int32_t rate, fps;
    EXPECT_TRUE(extractor->getMetaData()->findInt32(kKeyBitRate, &rate));
    EXPECT_TRUE(extractor->getMetaData()->findInt32(kKeyFrameRate, &fps));
    EXPECT_EQ(rate, 117);
    EXPECT_EQ(fps, 25);

    sp<MediaSource> source = extractor->getTrack(0);
    ASSERT_EQ(source->start(), OK);
    MediaSource::ReadOptions options;
    options.setSeekTo(1500000, MediaSource::ReadOptions::SEEK_PREVIOUS_SYNC);
    Sample s;
    ASSERT_EQ(readSample(source, &s, &options), OK);
    EXPECT_EQ(s.timeUs, 1000000);
    EXPECT_TRUE(s.sync);
    EXPECT_EQ(s.data.size(), 2631u);
}

// A file cut inside any tag cannot be opened (its PreviousTagSize chain is
// broken), and reading the partial tag stays inside the data.
TEST(FLVRealFileDetailTest, FileCutInsideAnyTagIsUnreadable) {
    const Bytes bytes = readFileBytes(testdataPath("flv_h264_aac.flv"));
    for (const auto& r : readCSV("flv_h264_aac.flv.tags.csv")) {
        const size_t offset = std::stoul(r.at(1));
        const size_t dataSize = std::stoul(r.at(3));
        for (size_t cut : {offset + 1, offset + 5, offset + 12, offset + 11 + dataSize / 2,
                           offset + 11 + dataSize + 2}) {
            SCOPED_TRACE(cut);
            sp<ZIRKFLVExtractor> extractor =
                    openFLV(Bytes(bytes.begin(), bytes.begin() + std::min(cut, bytes.size() - 1)));
            EXPECT_EQ(extractor->countTracks(), 0u);
        }
    }
}

}  // namespace
