// ASFSource: media objects gathered from their payloads, the VC-1 start code,
// the buffer-size guard, seeks and their sync flag, the fatal lifecycle
// checks, and every track of a file written by ffmpeg against ffprobe's list.
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <thread>

#include <cutils/properties.h>

#include "ASFBuilder.h"
#include "CheckMatchers.h"
#include "LogCapture.h"
#include "TestDataSources.h"
#include "TrackReader.h"
#include "asf/extractor/ASFExtractor.h"
#include "asf/extractor/ASFSource.h"

namespace {

using namespace android;
using namespace android::test;
using namespace android::test::asf;
using Mode = MediaSource::ReadOptions::SeekMode;

// Sets "media.tamelordecode.supportwmva" for its lifetime, then restores it.
struct WmvaProperty {
    char old[PROPERTY_VALUE_MAX];
    explicit WmvaProperty(const char* v) { property_get(ASFExtractor::kSupportWMVAProperty, old, ""), property_set(ASFExtractor::kSupportWMVAProperty, v); }
    ~WmvaProperty() { property_set(ASFExtractor::kSupportWMVAProperty, old); }
};

// A fragment of a media object: stream (bit 7: key frame), offset in the object, object size, time, `n` bytes of `fill`.
Payload frag(uint8_t stream, uint32_t at, uint32_t size, uint32_t ms, size_t n, uint8_t fill) { return {stream, at, replicated(size, ms), Bytes(n, fill)}; }
// Stream 1: PCM audio (buffer: the 200-byte packet); stream 2: 16x16 video of FourCC `cc` (buffer 192). 2 s, no preroll.
sp<ASFExtractor> extractor(const std::vector<Packet>& packets, const char* cc = "DIVX") {
    Bytes data, pcm = joined({le(2, {1, 1}), le(4, {8000, 2000}), le(2, {2, 16, 0})});
    Bytes video = joined({le(4, {16, 16}), {0}, le(2, {40}), le(4, {40, 16, 16}), le(2, {1, 24}), Bytes(cc, cc + 4), Bytes(20, 0)});
    for (const Packet& p : packets) data = joined({data, packet(p, 200)});
    return new ASFExtractor(new MemorySource(joined({header({fileProps(20000000, 0, 200, packets.size()), streamProps(kGuidAudioMedia, 1, pcm),
                                                            streamProps(kGuidVideoMedia, 2, video)}), dataObject({}, data)})));
}
// "time[S] bytes" per read (bytes as runs: "ab*3"), "!status" for a failed one; up to `reads` reads or the end of stream.
std::string reads(const sp<MediaSource>& s, const MediaSource::ReadOptions* seek = nullptr, size_t reads = 8) {
    std::string out;
    Sample x;
    for (status_t err = OK; err != ERROR_END_OF_STREAM && reads--; seek = nullptr) {
        if ((err = readSample(s, &x, seek)) != OK) { out += "!" + std::to_string(err) + ";"; continue; }
        out += std::to_string(x.timeUs / 1000) + (x.sync == 1 ? "S" : "");
        for (size_t i = 0, j; i < x.data.size(); i = j) {
            for (j = i; j < x.data.size() && x.data[j] == x.data[i]; ++j) {}
            char b[16];
            snprintf(b, sizeof(b), j - i > 1 ? " %02x*%zu" : " %02x", x.data[i], j - i);
            out += b;
        }
        out += ";";
    }
    return out;
}

TEST(ASFSourceTest, Reads) {
    const std::string eos = "!" + std::to_string(ERROR_END_OF_STREAM) + ";", bad = "!" + std::to_string(ERROR_MALFORMED) + ";";
    const Packet twoVideo = {{frag(0x82, 0, 10, 0, 10, 0xD1), frag(2, 0, 5, 40, 5, 0xD2)}};
    const struct { const char* name; std::vector<Packet> packets; size_t track; const char* cc; std::string want; } kRows[] = {
        {"WholeObjectsSkipOtherStream", {{{frag(1, 0, 10, 0, 10, 0xA1), frag(2, 0, 3, 0, 3, 0xEE), frag(1, 0, 20, 46, 20, 0xA2)}}}, 0, "DIVX", "0 a1*10;46 a2*20;" + eos},
        {"KindsFirstMiddleLastAcrossPackets", {{{frag(1, 0, 180, 100, 60, 0xB1)}}, {{frag(1, 60, 180, 100, 60, 0xB2)}}, {{frag(1, 120, 180, 100, 60, 0xB3)}}},
         0, "DIVX", "100 b1*60 b2*60 b3*60;" + eos},
        {"ObjectFillingTheBufferExactly", {{{frag(1, 0, 200, 5, 100, 0xC1)}}, {{frag(1, 100, 200, 5, 100, 0xC2)}}}, 0, "DIVX", "5 c1*100 c2*100;" + eos},
        // 360 bytes for a 200-byte buffer: the rest of the object is read past, the next object comes whole.
        {"ObjectLargerThanBufferDroppedWhole", {{{frag(1, 0, 360, 0, 120, 1)}}, {{frag(1, 120, 360, 0, 120, 2)}}, {{frag(1, 240, 360, 0, 120, 3)}},
         {{frag(1, 0, 4, 9, 4, 4)}}}, 0, "DIVX", bad + "9 04*4;" + eos},
        {"PartObjectAtEndDropped", {{{frag(1, 0, 10, 0, 10, 0xA1), frag(1, 0, 90, 46, 30, 0xA2)}}}, 0, "DIVX", "0 a1*10;" + eos},
        {"WVC1StartCodeOnEverySample", {twoVideo}, 1, "WVC1", "0 00*2 01 0d d1*10;40 00*2 01 0d d2*5;" + eos},
        {"WMVAStartCodeOnEverySample", {twoVideo}, 1, "WMVA", "0 00*2 01 0d d1*10;40 00*2 01 0d d2*5;" + eos},
        {"NoStartCodeForOtherVideo", {twoVideo}, 1, "WMV2", "0 d1*10;40 d2*5;" + eos},
        // 192-byte buffer: 188 bytes and the start code fit, 189 do not.
        {"StartCodeCountsAgainstTheBuffer", {{{frag(2, 0, 188, 0, 150, 7)}}, {{frag(2, 150, 188, 0, 38, 8)}}, {{frag(2, 0, 189, 3, 150, 7)}}, {{frag(2, 150, 189, 3, 39, 8)}}},
         1, "WVC1", "0 00*2 01 0d 07*150 08*38;" + bad + eos},
    };
    WmvaProperty set("1");
    for (const auto& row : kRows) {
        sp<MediaSource> s = extractor(row.packets, row.cc)->getTrack(row.track);
        ASSERT_EQ(OK, s->start()) << row.name;
        EXPECT_EQ(row.want, reads(s)) << row.name;
    }
}

TEST(ASFSourceTest, SeeksAndSyncFlag) {
    const std::vector<Packet> noKeyFrames = {{{frag(1, 0, 5, 0, 5, 1), frag(2, 0, 5, 0, 5, 2)}}};
    const std::vector<Packet> keyFrames = {{{frag(0x82, 0, 5, 0, 5, 1)}}, {{frag(2, 0, 5, 100, 5, 2)}}, {{frag(0x82, 0, 5, 200, 5, 3)}}};
    const struct { const char* name; std::vector<Packet> packets; size_t track; int64_t us; std::string want, log = ""; } kRows[] = {
        {"VideoWithoutKeyFrameFails", noKeyFrames, 1, 5000000, "!" + std::to_string(ERROR_END_OF_STREAM) + ";", "[V]wanted seekTimeMs=5000"},
        {"AudioWithoutObjectsFails", {{{frag(2, 0, 5, 0, 5, 2)}}}, 0, 9999999, "!" + std::to_string(ERROR_END_OF_STREAM) + ";", "[A]wanted seekTimeMs=9999"},
        {"OnlyTheFirstSampleAfterASeekIsSync", keyFrames, 1, 0, "0S 01*5;100 02*5;200 03*5;"},
    };
    for (const auto& row : kRows) {
        LogCapture log;
        sp<MediaSource> s = extractor(row.packets)->getTrack(row.track);
        MediaSource::ReadOptions seek;
        seek.setSeekTo(row.us, MediaSource::ReadOptions::SEEK_CLOSEST_SYNC);
        ASSERT_EQ(OK, s->start());
        EXPECT_EQ(row.want, reads(s, &seek, 3)) << row.name;
        EXPECT_EQ(row.log.empty() ? 0u : 1u, log.count(row.log, 6)) << row.name;
    }
}

TEST(ASFSourceTest, BufferSizes) {
    // The format's maximum input size, as a damaged file could give it; track 1 is WVC1 video.
    const struct { const char* name; int32_t size; status_t start; size_t track = 0; } kRows[] = {
        {"Negative", -1, ERROR_MALFORMED}, {"PastTheCap", ASFSource::kMaxBufferBytes + 1, ERROR_MALFORMED}, {"AtTheCap", ASFSource::kMaxBufferBytes, OK},
        {"Zero", 0, OK}, {"StartCodeDoesNotFit", 3, OK, 1}};
    WmvaProperty set("1");
    for (const auto& row : kRows) {
        sp<MediaSource> s = extractor({{{frag(1, 0, 1, 0, 1, 1), frag(2, 0, 1, 0, 1, 1)}}}, "WVC1")->getTrack(row.track);
        s->getFormat()->setInt32(kKeyMaxInputSize, row.size);
        EXPECT_EQ(row.start, s->start()) << row.name;
        // Nothing fits: the object is malformed, then the stream ends.
        if (row.start == OK && row.size < 4) {
            EXPECT_EQ("!" + std::to_string(ERROR_MALFORMED) + ";!" + std::to_string(ERROR_END_OF_STREAM) + ";", reads(s)) << row.name;
        }
    }
}

TEST(ASFSourceTest, LifecycleChecksStayFatal) {
    const struct { const char* name; int line; const char* check; void (*body)(const sp<MediaSource>&); } kRows[] = {
        {"StartTwice", 156, "CHECK(!mBufferGroup) failed.", [](const sp<MediaSource>& s) { s->start(), s->start(); }},
        {"NoMaxInputSize", 161, "CHECK(mTrack.mMeta->findInt32(kKeyMaxInputSize, &max_size)) failed.", [](const sp<MediaSource>& s) { s->getFormat()->remove(kKeyMaxInputSize), s->start(); }},
        {"StopUnstarted", 169, "CHECK(mBufferGroup) failed.", [](const sp<MediaSource>& s) { s->stop(); }},
        {"ReadUnstarted", 183, "CHECK(mBufferGroup) failed.", [](const sp<MediaSource>& s) { MediaBuffer* b; s->read(&b); }},
    };
    for (const auto& row : kRows) {
        EXPECT_DEATH(row.body(extractor({})->getTrack(0)), checkMessageAt("asf/extractor/ASFExtractor", row.line, row.check)) << row.name;
    }
}

class ASFSourceFileTest : public ::testing::Test {
protected:
    WmvaProperty set{"1"};
    sp<ASFExtractor> e = new ASFExtractor(new PiecewiseSource(readFileBytes(testdataPath("asf_wmv2_wmav2.asf")), 7));
    std::vector<CsvRow> rows = readTestdataCsv("asf_wmv2_wmav2.asf.packets.csv");
};

TEST_F(ASFSourceFileTest, EveryTrackAgainstFFprobe) {
    // Per track (exposed track i is ffprobe's stream i): every object's time and size, in order, against ffprobe's
    // pts and size. The times agree without an offset (ffmpeg wrote no preroll). No buffer carries a sync flag or
    // a start code (WMV2), and each track ends with the end of stream. The two tracks are read on two threads.
    ASSERT_EQ(2u, e->countTracks());
    std::map<std::string, std::string> want, got;
    for (const CsvRow& row : rows) want[row.at("stream_index")] += " " + row.at("pts") + "/" + row.at("size");
    std::vector<TrackRead> read(2);
    std::thread t0([&] { read[0] = readTrack(e->getTrack(0)); }), t1([&] { read[1] = readTrack(e->getTrack(1)); });
    t0.join(), t1.join();
    for (size_t i = 0; i < 2; ++i) {
        for (const Sample& s : read[i].samples) got[std::to_string(i)] += " " + std::to_string(s.timeUs / 1000) + "/" + std::to_string(s.data.size()) + (s.sync == -1 ? "" : "S");
        EXPECT_EQ(ERROR_END_OF_STREAM, read[i].end);
    }
    EXPECT_EQ(want, got);
}

TEST_F(ASFSourceFileTest, TwoSourcesOfOneTrackShareItsPosition) {
    // Two sources of the audio track read on two threads: each object goes to exactly one of them, whole.
    std::multiset<std::string> want, got;
    for (const CsvRow& row : rows) row.at("codec_type") == "audio" ? (void)want.insert(row.at("pts") + "/" + row.at("size")) : (void)0;
    std::vector<TrackRead> read(2);
    std::thread t0([&] { read[0] = readTrack(e->getTrack(1)); }), t1([&] { read[1] = readTrack(e->getTrack(1)); });
    t0.join(), t1.join();
    for (const TrackRead& r : read) for (const Sample& s : r.samples) got.insert(std::to_string(s.timeUs / 1000) + "/" + std::to_string(s.data.size()));
    EXPECT_EQ(want, got);
}

TEST_F(ASFSourceFileTest, SeeksInEveryMode) {
    // ffprobe lists one video key frame (46 ms): a video seek in any mode to any object's time lands on it; an audio seek
    // to an audio object's time lands on that object. The first buffer after the seek is flagged sync.
    sp<MediaSource> tracks[2] = {e->getTrack(0), e->getTrack(1)};
    for (const sp<MediaSource>& s : tracks) ASSERT_EQ(OK, s->start());
    for (const CsvRow& row : rows) {
        const bool video = row.at("codec_type") == "video";
        for (Mode mode : {Mode::SEEK_PREVIOUS_SYNC, Mode::SEEK_NEXT_SYNC, Mode::SEEK_CLOSEST_SYNC, Mode::SEEK_CLOSEST}) {
            MediaSource::ReadOptions seek;
            seek.setSeekTo(std::stoll(row.at("pts")) * 1000, mode);
            Sample x;
            ASSERT_EQ(OK, readSample(tracks[video ? 0 : 1], &x, &seek)) << row.at("pts") << " mode " << mode;
            EXPECT_EQ(std::make_pair(video ? int64_t(46000) : int64_t(std::stoll(row.at("pts")) * 1000), 1), std::make_pair(x.timeUs, x.sync)) << row.at("pts") << " mode " << mode;
        }
    }
}

}  // namespace
