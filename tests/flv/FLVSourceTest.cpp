// The FLV track source: payloads, the H.264 rewrite, seeks, the fatal
// checks, and the process-wide Sorenson switch.
#include <gtest/gtest.h>
#include <stdio.h>
#include <strings.h>

#include <functional>

#include <cutils/properties.h>
#include <media/stagefright/MediaDefs.h>

#include "CheckMatchers.h"
#include "FLVTestUtil.h"
#include "LogCapture.h"

using namespace android;
using namespace android::test;

namespace {

typedef FLVBuilder B;
typedef MediaSource::ReadOptions RO;

sp<MediaSource> startTrack(const sp<ZIRKFLVExtractor>& extractor, size_t index) {
    sp<MediaSource> source = extractor->getTrack(index);
    if (source != nullptr) { EXPECT_EQ(source->start(), OK); }
    return source;
}
std::vector<Sample> readFile(const Bytes& file, size_t index = 0) { return readAll(startTrack(openFLV(file), index)); }

// Sorenson frames every 250 ms, key frames on the second, 0 .. `seconds` + 0.5.
B keyFramesEverySecond(int seconds) {
    B b;
    b.header();
    for (int ms = 0; ms <= seconds * 1000 + 500; ms += 250) {
        b.video(ms, ms % 1000 == 0 ? B::kKey : B::kInter, B::kSorenson, Bytes(20, 1));
    }
    return b;
}

// A key frame with one large unit first gives the buffer room for the
// rewrite's growth; then an inter frame at 40 ms with `nalData`.
B avcFile(const Bytes* avcc, const Bytes& nalData) {
    B b;
    b.header();
    Bytes filler(150, 0x65);
    if (avcc != nullptr) {
        b.avc(0, B::kKey, 0, *avcc);
        if (avcc->size() > 4) filler = B::lengthPrefixed(((*avcc)[4] & 3) + 1, {filler});
    }
    return b.avc(0, B::kKey, 1, filler).avc(40, B::kInter, 1, nalData);
}

// Audio payloads drop their header (AAC: 2 bytes); key flags come from
// video only; buffer times wrap at 2^32 us, the table's do not; a read past
// the end stays there and stop() rewinds.
TEST(FLVReadTest, PayloadsFlagsAndRestart) {
    B b;
    b.header().aac(0, 0, {0x12, 0x10}).video(0, B::kKey, B::kSorenson, Bytes(30, 7));
    b.aac(23, 1, {1, 2, 3}).video(40, B::kInter, B::kSorenson, {4, 5}).aac(4800000, 1, Bytes(20, 9));
    sp<ZIRKFLVExtractor> extractor = openFLV(b.bytes());
    ASSERT_EQ(extractor->countTracks(), 2u);
    std::vector<Sample> video = readAll(startTrack(extractor, 0));
    ASSERT_EQ(video.size(), 2u);
    EXPECT_TRUE(video[0].data == Bytes(30, 7) && video[0].sync == 1);
    EXPECT_TRUE(video[1].data == Bytes({4, 5}) && video[1].sync != 1 && video[1].timeUs == 40000);
    sp<MediaSource> audio = startTrack(extractor, 1);
    EXPECT_EQ(audio->getFormat(), extractor->getTrackMetaData(1));
    int64_t duration = 0;
    EXPECT_TRUE(audio->getFormat()->findInt64(kKeyDuration, &duration) && duration == 4800000000LL);
    std::vector<Sample> all = readAll(audio);
    ASSERT_EQ(all.size(), 2u);
    EXPECT_EQ(all[1].timeUs, 4800000000LL - 4294967296LL);
    Sample s;
    EXPECT_EQ(readSample(audio, &s), ERROR_END_OF_STREAM);
    EXPECT_EQ(audio->stop(), OK);
    EXPECT_EQ(audio->start(), OK);
    ASSERT_EQ(readSample(audio, &s), OK);
    EXPECT_TRUE(s.data == Bytes({1, 2, 3}) && s.sync != 1 && s.timeUs == 23000);
}

// A repeated time: the later tag replaces the earlier one in the table.
TEST(FLVReadTest, DuplicateTimestampKeepsTheLaterTag) {
    std::vector<Sample> video = readFile(B().header().video(0, B::kKey, B::kSorenson, Bytes(20, 1))
                                                  .video(40, B::kInter, B::kSorenson, Bytes(20, 2))
                                                  .video(40, B::kKey, B::kSorenson, Bytes(20, 3)).bytes());
    ASSERT_EQ(video.size(), 2u);
    EXPECT_TRUE(video[1].data == Bytes(20, 3) && video[1].sync == 1);
}

// A file changed or cut after the scan: the read fails without moving on.
TEST(FLVReadTest, TagsChangedAfterTheScanFailTheRead) {
    B b;
    b.header().video(0, B::kKey, B::kSorenson, Bytes(99, 1)).video(40, B::kInter, B::kSorenson, Bytes(40, 2));
    const size_t second = b.tagOffset(1);
    sp<FaultySource> file = new FaultySource(b.bytes(), FaultySource::kNone, 0);
    sp<MediaSource> source = startTrack(new ZIRKFLVExtractor(file), 0);
    Sample s;
    ASSERT_EQ(readSample(source, &s), OK);
    LogCapture logs;
    file->poke(second + 1, 0x10);  // dataSize 1 MiB + 41: larger than the buffer
    EXPECT_EQ(readSample(source, &s), ERROR_MALFORMED);
    file->poke(second + 1, 0);
    file->setFault(FaultySource::kShortRead, second + 30);
    EXPECT_EQ(readSample(source, &s), ERROR_IO);
    EXPECT_TRUE(logs.contains("video_loadOneTagData() fails with -1004", ANDROID_LOG_ERROR));
    file->setFault(FaultySource::kNone, 0);
    ASSERT_EQ(readSample(source, &s), OK);
    EXPECT_EQ(s.data, Bytes(40, 2));
}

// Length prefixes of 1..4 bytes become start codes; the range keeps the
// tag's NAL size, so shorter lengths write further than the range. Without
// 'avcC' (0): one start code before the data, the range cut 4 short.
TEST(FLVAVCTest, LengthPrefixesBecomeStartCodes) {
    const std::vector<Bytes> units = {{0x65, 1, 2, 3, 4, 5}, {}, {0x41, 9}};
    Bytes expected;
    for (const Bytes& u : units) expected = cat({expected, {0, 0, 0, 1}, u});
    for (size_t n = 0; n <= 4; ++n) {
        SCOPED_TRACE(n);
        const Bytes avcc = B::avcc(n), nal = n ? B::lengthPrefixed(n, units) : Bytes{0, 0, 0, 2, 0x65, 7};
        const Bytes written = n ? expected : cat({{0, 0, 0, 1}, nal});
        std::vector<Sample> v = readFile(avcFile(n ? &avcc : nullptr, nal).bytes());
        ASSERT_EQ(v.size(), 2u);
        ASSERT_GE(v[1].written.size(), written.size());
        EXPECT_EQ(Bytes(v[1].written.begin(), v[1].written.begin() + written.size()), written);
        EXPECT_EQ(v[1].data, Bytes(v[1].written.begin(), v[1].written.begin() + nal.size()));
    }
}

// 1-byte lengths of empty units grow 4x: the read fails, and is retried.
TEST(FLVAVCTest, RewriteThatWouldOverflowTheBufferFailsTheRead) {
    B b;
    b.header().avc(0, B::kKey, 0, B::avcc(1)).avc(0, B::kKey, 1, Bytes(100, 0));
    LogCapture logs;
    sp<MediaSource> source = startTrack(openFLV(b.bytes()), 0);
    Sample s;
    EXPECT_EQ(readSample(source, &s), ERROR_MALFORMED);
    EXPECT_EQ(readSample(source, &s), ERROR_MALFORMED);
    EXPECT_EQ(logs.count("Tag at " + std::to_string(b.tagOffset(1)) + " needs 400 bytes, more than the 126-byte read buffer",
                         ANDROID_LOG_ERROR), 2u);
}

// Video seeks land on key frames; audio seeks on any sample. "Next" at a key
// frame is the following one (lo + 1); a closest tie goes to the earlier one;
// the search narrows to mid - 1, so "previous" can skip the last key frame
// at or before the target (7-second file).
TEST(FLVSeekTest, ModesAtAndBetweenKeyFrames) {
    const RO::SeekMode P = RO::SEEK_PREVIOUS_SYNC, N = RO::SEEK_NEXT_SYNC, C = RO::SEEK_CLOSEST_SYNC, X = RO::SEEK_CLOSEST;
    B audio;
    audio.header();
    for (int ms = 0; ms <= 500; ms += 100) audio.audio(ms, B::kMP3Stereo44k, Bytes(20, 1));
    const struct { Bytes file; std::vector<std::tuple<int64_t, RO::SeekMode, int64_t>> seeks; } cases[] = {
        {keyFramesEverySecond(3).bytes(),
         {{-5000, N, 0}, {0, N, 0}, {0, P, 0}, {3000000, P, 3000000}, {9000000, P, 3000000},
          {1000000, P, 1000000}, {1000000, N, 2000000}, {1000000, C, 1000000}, {1000000, X, 1000000},
          {1400000, P, 1000000}, {1400000, N, 2000000}, {1400000, C, 1000000}, {1600000, C, 2000000},
          {1600000, X, 2000000}, {1500000, C, 1000000}, {2750000, P, 2000000}, {2750000, N, 3000000}}},
        {keyFramesEverySecond(7).bytes(), {{2500000, P, 1000000}, {2500000, N, 2000000}, {2500000, C, 2000000}}},
        {audio.bytes(), {{250000, P, 200000}, {250000, N, 300000}, {260000, X, 300000}, {-1, X, 0}}},
    };
    for (const auto& c : cases) {
        sp<MediaSource> source = startTrack(openFLV(c.file), 0);
        for (const auto& seek : c.seeks) {
            SCOPED_TRACE(testing::Message() << std::get<0>(seek) << " mode " << std::get<1>(seek));
            RO options;
            options.setSeekTo(std::get<0>(seek), std::get<1>(seek));
            Sample s;
            ASSERT_EQ(readSample(source, &s, &options), OK);
            EXPECT_EQ(s.timeUs, std::get<2>(seek));
            ASSERT_EQ(readSample(source, &s), OK);  // then on from there
            EXPECT_GT(s.timeUs, std::get<2>(seek));
        }
    }
}

// ---------------------------------------------------------------- fatal checks

struct DeathCase {
    const char* name;
    std::function<void()> body;
    std::string check;
    const char* file = kFLVSourceFile;
};

void readEverything(const Bytes& bytes) {
    sp<ZIRKFLVExtractor> extractor = openFLV(bytes);
    for (size_t i = 0; i < extractor->countTracks(); ++i) readAll(startTrack(extractor, i));
}

// Opens `b`, starts track 0, then changes the file and reads once.
void readAfter(const B& b, const std::function<void(FaultySource*)>& change, const RO* options = nullptr) {
    sp<FaultySource> file = new FaultySource(b.bytes(), FaultySource::kNone, 0);
    sp<MediaSource> source = startTrack(new ZIRKFLVExtractor(file), 0);
    change(file.get());
    Sample s;
    readSample(source, &s, options);
}

class NotReadySource : public MemorySource {
public:
    NotReadySource() : MemorySource({}) {}
    status_t initCheck() const override { return NO_INIT; }
};

const Bytes kAvcc4 = B::avcc(4), kAvcc2 = B::avcc(2), kAvccShort = {1, 0x64, 0, 0x1E, 0xFF, 0xE0},
            kAvccVersion2 = B::avcc(4, 2);
const B kOneSecond = keyFramesEverySecond(1);

class FLVDeathTest : public testing::TestWithParam<DeathCase> {};

TEST_P(FLVDeathTest, AbortsWithItsCheck) {
    EXPECT_DEATH(GetParam().body(), checkMessage(GetParam().file, GetParam().check));
}

INSTANTIATE_TEST_SUITE_P(
        Checks, FLVDeathTest,
        testing::Values(
                DeathCase{"VideoWithoutKeyFrame", [] { openFLV(B().header().video(0, B::kInter, B::kSorenson, {1}).bytes())->countTracks(); },
                          "CHECK_GE( syncBufferNum,1) failed: 0 vs. 1", kFLVExtractorFile},
                DeathCase{"NALLengthOverrunsTag", [] { readEverything(avcFile(&kAvcc2, {0, 5, 0x65, 1, 2, 3}).bytes()); },
                          "CHECK(size == 0) failed."},
                DeathCase{"ConfigurationTooShort", [] { readEverything(avcFile(&kAvccShort, {}).bytes()); },
                          "CHECK(size >= 7) failed."},
                DeathCase{"ConfigurationVersion", [] { readEverything(avcFile(&kAvccVersion2, {}).bytes()); },
                          "CHECK_EQ( (unsigned)ptr[0],1u) failed: 2 vs. 1"},
                DeathCase{"TagsSmallerThanThePreload", [] { readEverything(B().header().audio(0, B::kMP3Stereo44k, {1}).bytes()); },
                          "CHECK(pBuffer->size() > preLoadLen) failed."},
                DeathCase{"AACWith8BitSamples", [] { readEverything(B().header().aac(0, 1, Bytes(20, 0), 0xAD).bytes()); },
                          "CHECK_EQ( tagHeaderReader.getBits(1),1) failed: 0 vs. 1"},
                DeathCase{"StreamIdChangedAfterScan",
                          [] { readAfter(kOneSecond, [](FaultySource* f) { f->poke(kOneSecond.tagOffset(0) + 10, 1); }); },
                          "CHECK_EQ( tagHeaderReader.getBits(24),0) failed: 1 vs. 0"},
                DeathCase{"TagTypeChangedAfterScan",
                          [] { readAfter(kOneSecond, [](FaultySource* f) { f->poke(kOneSecond.tagOffset(0), 18); }); },
                          "CHECK((tagType == FLV_TAG_TYPE_AUDIO) || (tagType == FLV_TAG_TYPE_VIDEO)) failed."},
                DeathCase{"SequenceHeaderAtReadTime",
                          [] {
                              B b = avcFile(&kAvcc4, {});
                              readAfter(b, [&](FaultySource* f) { f->poke(b.tagOffset(1) + 12, 0); });
                          },
                          "CHECK_NE( avcPackType,0) failed: 0 vs. 0"},
                DeathCase{"PreloadCutShort",
                          [] { readAfter(kOneSecond, [](FaultySource* f) { f->setFault(FaultySource::kShortRead, kOneSecond.tagOffset(0) + 5); }); },
                          "CHECK_EQ( mDataSource->readAt(offset, pBuffer->data(), preLoadLen),preLoadLen) failed: 5 vs. 13"},
                DeathCase{"UnexpectedSeekMode",
                          [] {
                              RO options;
                              options.setSeekTo(1500000, static_cast<RO::SeekMode>(7));
                              readAfter(keyFramesEverySecond(3), [](FaultySource*) {}, &options);
                          },
                          "CHECK(false) failed."},
                DeathCase{"StartTwice", [] { startTrack(openFLV(kOneSecond.bytes()), 0)->start(); }, "CHECK(!mStarted) failed."},
                DeathCase{"ReadBeforeStart",
                          [] {
                              Sample s;
                              readSample(openFLV(kOneSecond.bytes())->getTrack(0), &s);
                          },
                          "CHECK(mStarted) failed."},
                DeathCase{"StopBeforeStart", [] { openFLV(kOneSecond.bytes())->getTrack(0)->stop(); }, "CHECK(mStarted) failed."},
                DeathCase{"DataSourceNotReady", [] { sp<ZIRKFLVExtractor> e = new ZIRKFLVExtractor(new NotReadySource); },
                          "CHECK_EQ( mDataSource->initCheck(),(status_t)OK) failed: -19 vs. 0", kFLVExtractorFile}),
        [](const testing::TestParamInfo<DeathCase>& info) { return std::string(info.param.name); });

// ---------------------------------------------------------------- Sorenson switch

// The switch is process-wide and sticky, so each value runs in a child
// process that reports its findings through its exit status and stderr.
int sorensonChild(const char* value) {
    std::string problems;
    auto expect = [&](bool ok, const char* what) { if (!ok) problems += std::string(what) + "; "; };
    const Bytes file = readFileBytes(testdataPath("flv_h263_mp3.flv"));
    sp<ZIRKFLVExtractor> before = openFLV(file);
    expect(before->countTracks() == 2, "two tracks before the switch");
    sp<MediaSource> oldVideo = startTrack(before, 0);
    property_set("debug.media.disableFlvSorensen", value);
    const bool off = !strcmp(value, "1") || !strcasecmp(value, "true");
    LogCapture logs;
    sp<ZIRKFLVExtractor> after = openFLV(file);
    expect(after->countTracks() == (off ? 1u : 2u), "track count after");
    const char* mime = "";
    after->getTrackMetaData(0)->findCString(kKeyMIMEType, &mime);
    expect(strcmp(mime, off ? MEDIA_MIMETYPE_AUDIO_MPEG : MEDIA_MIMETYPE_VIDEO_SORENSEN) == 0, "track 0 MIME");
    expect(logs.count("Unsupported video format: Sorenson H.263, ignore", ANDROID_LOG_WARN) == (off ? 1u : 0u), "one warning");
    Sample s;  // a track found before the switch no longer reads
    expect(readSample(oldVideo, &s) == (off ? status_t(ERROR_MALFORMED) : status_t(OK)), "old track read");
    expect(logs.contains("Unsupported video read format: Sorenson H.263") == off, "read log");
    property_set("debug.media.disableFlvSorensen", "");
    expect(openFLV(file)->countTracks() == (off ? 1u : 2u), "sticky");
    fprintf(stderr, "%s", problems.c_str());
    return problems.empty() ? 0 : 1;
}

TEST(FLVSorensonTest, PropertySwitchesSorensonOffForTheProcess) {
    for (const char* value : {"TRUE", "1", "yes", "0"}) {
        SCOPED_TRACE(value);
        EXPECT_EXIT(exit(sorensonChild(value)), testing::ExitedWithCode(0), "");
    }
}

}  // namespace
