// The FLV files made by ffmpeg: reads through every kind of source, payload
// bytes against the independent tag dumps in testdata/, codec data.
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

// Per file: the track MIME types and the file duration. ProbeCrossCheck
// compares every track's sizes, times and key flags with ffprobe; here the
// same samples must come through a piecewise source and a FileSource, and
// the AVC payloads must be the tag dump's NAL data in start-code form.
const struct { const char* mName; std::vector<std::string> mMimes; int64_t mDurationUs; } kFiles[] = {
    {"flv_h264_aac.flv", {MEDIA_MIMETYPE_VIDEO_AVC, MEDIA_MIMETYPE_AUDIO_AAC}, 2080000},
    {"flv_h264_nometa.flv", {MEDIA_MIMETYPE_VIDEO_AVC, MEDIA_MIMETYPE_AUDIO_AAC}, 2077000},
    {"flv_h263_mp3.flv", {MEDIA_MIMETYPE_VIDEO_SORENSEN, MEDIA_MIMETYPE_AUDIO_MPEG}, 2025000},
    {"flv_aac_only.flv", {MEDIA_MIMETYPE_AUDIO_AAC}, 2023000}};

std::vector<std::vector<Sample>> readTracks(const sp<DataSource>& source, std::string mimeCheck[], size_t n) {
    sp<ZIRKFLVExtractor> extractor = new ZIRKFLVExtractor(source);
    std::vector<std::vector<Sample>> tracks;
    EXPECT_EQ(extractor->countTracks(), n);
    for (size_t i = 0; i < extractor->countTracks(); ++i) {
        const char* mime = "";
        extractor->getTrackMetaData(i)->findCString(kKeyMIMEType, &mime);
        mimeCheck[i] = mime;
        sp<MediaSource> track = extractor->getTrack(i);
        EXPECT_EQ(track->start(), OK);
        tracks.push_back(readAll(track));
        EXPECT_EQ(track->stop(), OK);
    }
    return tracks;
}

bool same(const std::vector<std::vector<Sample>>& a, const std::vector<std::vector<Sample>>& b) {
    auto eq = [](const Sample& x, const Sample& y) { return x.timeUs == y.timeUs && x.sync == y.sync && x.data == y.data; };
    for (size_t t = 0; t < a.size() && a.size() == b.size(); ++t) {
        if (!std::equal(a[t].begin(), a[t].end(), b[t].begin(), b[t].end(), eq)) return false;
    }
    return a.size() == b.size();
}

TEST(FLVRealFileTest, EverySourceGivesTheSameSamplesAndAVCPayloads) {
    for (const auto& f : kFiles) {
        SCOPED_TRACE(f.mName);
        const Bytes bytes = readFileBytes(testdataPath(f.mName));
        ASSERT_FALSE(bytes.empty());
        std::string mimes[2];
        std::vector<std::vector<Sample>> whole = readTracks(new MemorySource(bytes), mimes, f.mMimes.size());
        for (size_t i = 0; i < f.mMimes.size(); ++i) EXPECT_EQ(mimes[i], f.mMimes[i]);
        EXPECT_TRUE(same(readTracks(new PiecewiseSource(bytes, 7), mimes, f.mMimes.size()), whole));
        EXPECT_TRUE(same(readTracks(new FileSource(testdataPath(f.mName).c_str()), mimes, f.mMimes.size()), whole));
        int64_t d = 0;
        EXPECT_TRUE(openFLV(bytes)->getMetaData()->findInt64(kKeyDuration, &d));
        EXPECT_EQ(d, f.mDurationUs);
        if (f.mMimes[0] != MEDIA_MIMETYPE_VIDEO_AVC) continue;
        // The end-of-sequence tag (17 02, 1960 ms) replaces the last frame
        // in the time-keyed table: an empty key sample.
        const std::map<int64_t, Bytes> avc = avcPayloadsFromTags(f.mName, bytes);
        ASSERT_EQ(whole[0].size(), avc.size());
        for (const Sample& s : whole[0]) EXPECT_EQ(s.data, avc.at(s.timeUs / 1000)) << s.timeUs;
        EXPECT_TRUE(whole[0].back().data.empty() && whole[0].back().sync);
    }
}

TEST(FLVRealFileTest, H264FileConfigurationThumbnailAndSeek) {
    sp<ZIRKFLVExtractor> extractor = openFLV(readFileBytes(testdataPath("flv_h264_aac.flv")));
    ASSERT_EQ(extractor->countTracks(), 2u);
    sp<MetaData> video = extractor->getTrackMetaData(0);
    EXPECT_EQ(bytesOf(video, kKeyAVCC).size(), 38u);  // the 43-byte tag minus 5
    const Bytes esds = bytesOf(extractor->getTrackMetaData(1), kKeyESDS);
    ASSERT_EQ(esds.size(), 27u);
    EXPECT_EQ(Bytes(esds.end() - 5, esds.end()), Bytes({0x12, 0x10, 0x56, 0xE5, 0x00}));
    int64_t t;
    EXPECT_TRUE(video->findInt64(kKeyThumbnailTime, &t));
    EXPECT_EQ(t, 1000000);  // the larger second key frame (2636 bytes)
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
