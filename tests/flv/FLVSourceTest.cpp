// The FLV track source: payloads, times and flags, the H.264 rewrite, seeks,
// the fatal checks, and the process-wide Sorenson switch.
#include <gtest/gtest.h>
#include <stdio.h>
#include <string.h>
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
typedef std::vector<uint8_t> Bytes;
typedef MediaSource::ReadOptions RO;

sp<MediaSource> startTrack(const sp<ZIRKFLVExtractor>& extractor, size_t index) {
    sp<MediaSource> source = extractor->getTrack(index);
    if (source == nullptr) return nullptr;
    EXPECT_EQ(source->start(), OK);
    return source;
}

// ---------------------------------------------------------------- payloads

TEST(FLVReadTest, PayloadsTimesAndFlags) {
    B b;
    b.header().aac(0, 0, {0x12, 0x10}).video(0, B::kKey, B::kSorenson, Bytes(30, 7));
    b.aac(23, 1, {1, 2, 3}).video(40, B::kInter, B::kSorenson, {4, 5});
    // 80 minutes: the buffer time wraps at 2^32 us, the table time does not.
    b.aac(4800000, 1, Bytes(20, 9));
    sp<ZIRKFLVExtractor> extractor = openFLV(b.bytes());
    ASSERT_EQ(extractor->countTracks(), 2u);

    std::vector<Sample> video = readAll(startTrack(extractor, 0));
    ASSERT_EQ(video.size(), 2u);
    EXPECT_EQ(video[0].data, Bytes(30, 7));
    EXPECT_TRUE(video[0].sync);
    EXPECT_EQ(video[1].data, Bytes({4, 5}));
    EXPECT_FALSE(video[1].sync);
    EXPECT_EQ(video[1].timeUs, 40000);

    sp<MediaSource> audioSource = startTrack(extractor, 1);
    std::vector<Sample> audio = readAll(audioSource);
    ASSERT_EQ(audio.size(), 2u);
    EXPECT_EQ(audio[0].data, Bytes({1, 2, 3}));  // dataSize - 2
    EXPECT_FALSE(audio[0].sync);
    EXPECT_EQ(audio[0].timeUs, 23000);
    EXPECT_EQ(audio[1].timeUs, 4800000000LL - 4294967296LL);
    int64_t d;
    EXPECT_TRUE(extractor->getTrackMetaData(1)->findInt64(kKeyDuration, &d));
    EXPECT_EQ(d, 4800000000LL);

    // Past the end stays at the end; stop rewinds.
    Sample s;
    EXPECT_EQ(readSample(audioSource, &s), ERROR_END_OF_STREAM);
    EXPECT_EQ(audioSource->stop(), OK);
    EXPECT_EQ(audioSource->start(), OK);
    ASSERT_EQ(readSample(audioSource, &s), OK);
    EXPECT_EQ(s.timeUs, 23000);
    EXPECT_EQ(audioSource->getFormat(), extractor->getTrackMetaData(1));
}

// The tag with a repeated time replaces the earlier one in the table.
TEST(FLVReadTest, DuplicateTimestampKeepsTheLaterTag) {
    sp<ZIRKFLVExtractor> extractor = openFLV(B().header().video(0, B::kKey, B::kSorenson, Bytes(20, 1))
                                                     .video(40, B::kInter, B::kSorenson, Bytes(20, 2))
                                                     .video(40, B::kKey, B::kSorenson, Bytes(20, 3)).bytes());
    std::vector<Sample> video = readAll(startTrack(extractor, 0));
    ASSERT_EQ(video.size(), 2u);
    EXPECT_EQ(video[1].data, Bytes(20, 3));
    EXPECT_TRUE(video[1].sync);
}

// A file changed or cut after the scan: the read fails without moving on,
// and never reads beyond its buffer.
TEST(FLVReadTest, TagsChangedAfterTheScanFailTheRead) {
    B b;
    b.header().video(0, B::kKey, B::kSorenson, Bytes(99, 1)).video(40, B::kInter, B::kSorenson, Bytes(40, 2));
    const size_t second = b.tagOffset(1);
    sp<MutableSource> file = new MutableSource(b.bytes());
    sp<ZIRKFLVExtractor> extractor = new ZIRKFLVExtractor(file);
    sp<MediaSource> source = startTrack(extractor, 0);
    Sample s;
    ASSERT_EQ(readSample(source, &s), OK);

    LogCapture logs;
    file->poke(second + 1, 0x10);  // dataSize grows to 1 MiB + 41: larger than the buffer
    EXPECT_EQ(readSample(source, &s), ERROR_MALFORMED);
    file->poke(second + 1, 0);
    file->truncate(second + 30);
    EXPECT_EQ(readSample(source, &s), ERROR_IO);
    EXPECT_TRUE(logs.contains("video_loadOneTagData() fails with -1004", ANDROID_LOG_ERROR));
    file->truncate(SIZE_MAX);
    ASSERT_EQ(readSample(source, &s), OK);  // the same tag again
    EXPECT_EQ(s.data, Bytes(40, 2));
}

// ---------------------------------------------------------------- H.264

const Bytes kUnitA = {0x65, 1, 2, 3, 4, 5};
const Bytes kUnitB = {0x41, 9};
const Bytes kUnitEmpty = {};

// Start-code form of the units above.
Bytes annexB(const std::vector<Bytes>& units) {
    Bytes out;
    for (const Bytes& u : units) out = B::cat(B::cat(out, {0, 0, 0, 1}), u);
    return out;
}

// A key frame with one large unit first gives the buffer room for the
// rewrite's growth; then an inter frame with `nalData`.
B avcFile(const Bytes* avcc, const Bytes& nalData) {
    B b;
    b.header();
    Bytes filler(150, 0x65);
    if (avcc != nullptr) {
        b.avc(0, B::kKey, 0, *avcc);
        if (avcc->size() > 4) filler = B::lengthPrefixed(((*avcc)[4] & 3) + 1, {filler});
    }
    b.avc(0, B::kKey, 1, filler).avc(40, B::kInter, 1, nalData);
    return b;
}

TEST(FLVAVCTest, LengthPrefixesOfEverySizeBecomeStartCodes) {
    const std::vector<Bytes> units = {kUnitA, kUnitEmpty, kUnitB};
    for (size_t n = 1; n <= 4; ++n) {
        SCOPED_TRACE(n);
        const Bytes avcc = B::avcc(n);
        const Bytes nal = B::lengthPrefixed(n, units);
        std::vector<Sample> v = readAll(startTrack(openFLV(avcFile(&avcc, nal).bytes()), 0));
        ASSERT_EQ(v.size(), 2u);
        const Sample& s = v[1];
        const Bytes expected = annexB(units);
        // The range keeps the tag's NAL size; shorter lengths write further.
        EXPECT_EQ(s.data.size(), nal.size());
        ASSERT_GE(s.written.size(), expected.size());
        EXPECT_EQ(Bytes(s.written.begin(), s.written.begin() + expected.size()), expected);
        EXPECT_EQ(s.timeUs, 40000);
    }
}

TEST(FLVAVCTest, WithoutConfigurationOneStartCodeAndDataCutFourShort) {
    const Bytes nal = {0, 0, 0, 2, 0x65, 7};
    sp<ZIRKFLVExtractor> extractor = openFLV(avcFile(nullptr, nal).bytes());
    std::vector<Sample> v = readAll(startTrack(extractor, 0));
    ASSERT_EQ(v.size(), 2u);
    EXPECT_EQ(v[1].data, Bytes({0, 0, 0, 1, 0, 0}));
    EXPECT_EQ(Bytes(v[1].written.begin(), v[1].written.begin() + 10), B::cat({0, 0, 0, 1}, nal));
}

TEST(FLVAVCTest, EndOfSequenceTagIsAnEmptyKeySample) {
    const Bytes avcc = B::avcc(4);
    B b = avcFile(&avcc, B::lengthPrefixed(4, {kUnitB}));
    b.avc(40, B::kKey, 2, {});  // same time: replaces the frame before
    std::vector<Sample> v = readAll(startTrack(openFLV(b.bytes()), 0));
    ASSERT_EQ(v.size(), 2u);
    EXPECT_TRUE(v[1].data.empty());
    EXPECT_TRUE(v[1].sync);
}

// 1-byte lengths of empty units grow 4x: more than the buffer holds.
TEST(FLVAVCTest, RewriteThatWouldOverflowTheBufferFailsTheRead) {
    const Bytes avcc = B::avcc(1);
    B b;
    b.header().avc(0, B::kKey, 0, avcc).avc(0, B::kKey, 1, Bytes(100, 0));
    LogCapture logs;
    sp<MediaSource> source = startTrack(openFLV(b.bytes()), 0);
    Sample s;
    EXPECT_EQ(readSample(source, &s), ERROR_MALFORMED);
    EXPECT_EQ(readSample(source, &s), ERROR_MALFORMED);  // retried, not skipped
    const std::string log = "Tag at " + std::to_string(b.tagOffset(1)) +
                            " needs 400 bytes, more than the 126-byte read buffer";
    EXPECT_EQ(logs.count(log, ANDROID_LOG_ERROR), 2u);
}

// ---------------------------------------------------------------- seeking

struct SeekCase {
    int64_t targetUs;
    RO::SeekMode mode;
    int64_t expectedUs;
};

void expectSeeks(const sp<MediaSource>& source, const std::vector<SeekCase>& cases) {
    for (const SeekCase& c : cases) {
        SCOPED_TRACE(testing::Message() << c.targetUs << " mode " << c.mode);
        RO options;
        options.setSeekTo(c.targetUs, c.mode);
        Sample s;
        ASSERT_EQ(readSample(source, &s, &options), OK);
        EXPECT_EQ(s.timeUs, c.expectedUs);
        ASSERT_EQ(readSample(source, &s), OK);  // then on from there
        EXPECT_GT(s.timeUs, c.expectedUs);
    }
}

// Video: frames every 250 ms, key frames every second, 0..3 s.
B keyFramesEverySecond(int seconds) {
    B b;
    b.header();
    for (int ms = 0; ms <= seconds * 1000 + 500; ms += 250) {
        b.video(ms, ms % 1000 == 0 ? B::kKey : B::kInter, B::kSorenson, Bytes(20, 1));
    }
    return b;
}

TEST(FLVSeekTest, VideoSeeksLandOnKeyFrames) {
    sp<MediaSource> source = startTrack(openFLV(keyFramesEverySecond(3).bytes()), 0);
    const RO::SeekMode P = RO::SEEK_PREVIOUS_SYNC, N = RO::SEEK_NEXT_SYNC, C = RO::SEEK_CLOSEST_SYNC,
                       X = RO::SEEK_CLOSEST;
    expectSeeks(source, {
            // before, at and after the ends: the end key frame in every mode
            {-5000, N, 0}, {0, N, 0}, {0, P, 0}, {3000000, P, 3000000}, {9000000, P, 3000000},
            // exactly at an inner key frame: next is always the following one
            {1000000, P, 1000000}, {1000000, N, 2000000}, {1000000, C, 1000000}, {1000000, X, 1000000},
            // between key frames; a tie goes to the earlier one
            {1400000, P, 1000000}, {1400000, N, 2000000}, {1400000, C, 1000000}, {1600000, C, 2000000},
            {1600000, X, 2000000}, {1500000, C, 1000000}, {2750000, P, 2000000}, {2750000, N, 3000000},
    });
}

// The search narrows to mid - 1, so its "previous" key frame can be an
// earlier one than the last at or before the target.
TEST(FLVSeekTest, NarrowingRuleIsKept) {
    sp<MediaSource> source = startTrack(openFLV(keyFramesEverySecond(7).bytes()), 0);
    expectSeeks(source, {{2500000, RO::SEEK_PREVIOUS_SYNC, 1000000},
                         {2500000, RO::SEEK_NEXT_SYNC, 2000000},
                         {2500000, RO::SEEK_CLOSEST_SYNC, 2000000}});
}

TEST(FLVSeekTest, AudioSeeksUseEverySample) {
    B b;
    b.header();
    for (int ms = 0; ms <= 500; ms += 100) b.audio(ms, B::kMP3Stereo44k, Bytes(20, 1));
    LogCapture logs;
    sp<MediaSource> source = startTrack(openFLV(b.bytes()), 0);
    expectSeeks(source, {{250000, RO::SEEK_PREVIOUS_SYNC, 200000},
                         {250000, RO::SEEK_NEXT_SYNC, 300000},
                         {260000, RO::SEEK_CLOSEST, 300000},
                         {-1, RO::SEEK_CLOSEST, 0}});
    EXPECT_TRUE(logs.contains("Seek (1) Audio Track [250000 us] : [300000 us]", ANDROID_LOG_DEBUG));
}

// ---------------------------------------------------------------- fatal checks

struct DeathCase {
    const char* name;
    std::function<void()> body;
    std::string check;
};

Bytes videoWithoutKeyFrame() { return B().header().video(0, B::kInter, B::kSorenson, {1}).bytes(); }

void readEverything(const Bytes& bytes) {
    sp<ZIRKFLVExtractor> extractor = openFLV(bytes);
    for (size_t i = 0; i < extractor->countTracks(); ++i) readAll(startTrack(extractor, i));
}

void readAfterPoke(const B& b, size_t offset, uint8_t value) {
    sp<MutableSource> file = new MutableSource(b.bytes());
    sp<ZIRKFLVExtractor> extractor = new ZIRKFLVExtractor(file);
    sp<MediaSource> source = startTrack(extractor, 0);
    file->poke(offset, value);
    Sample s;
    readSample(source, &s);
}

class FLVDeathTest : public testing::TestWithParam<DeathCase> {};

TEST_P(FLVDeathTest, AbortsWithItsCheck) {
    EXPECT_DEATH(GetParam().body(), checkMessage(kFLVSource, GetParam().check));
}

const Bytes kAvcc4 = B::avcc(4);
const Bytes kAvcc2 = B::avcc(2);
const Bytes kAvccShort = {1, 0x64, 0, 0x1E, 0xFF, 0xE0};
const Bytes kAvccVersion2 = B::avcc(4, 2);

INSTANTIATE_TEST_SUITE_P(
        Checks, FLVDeathTest,
        testing::Values(
                DeathCase{"VideoWithoutKeyFrame", [] { openFLV(videoWithoutKeyFrame())->countTracks(); },
                          "CHECK_GE( syncBufferNum,1) failed: 0 vs. 1"},
                DeathCase{"NALLengthOverrunsTag",
                          [] { readEverything(avcFile(&kAvcc2, {0, 5, 0x65, 1, 2, 3}).bytes()); },
                          "CHECK(size == 0) failed."},
                DeathCase{"LengthFieldOverrunsTag",
                          [] { readEverything(avcFile(&kAvcc4, {0, 0, 0, 1, 0x65, 0, 0}).bytes()); },
                          "CHECK(size == 0) failed."},
                DeathCase{"AVCTagShorterThanItsHeaders",
                          [] {
                              B b;
                              b.header().avc(0, B::kKey, 0, kAvcc4).avc(0, B::kKey, 1, Bytes(100, 0));
                              b.tag(B::kVideo, 40, {0x27, 1, 0});
                              readEverything(b.bytes());
                          },
                          "CHECK(size == 0) failed."},
                DeathCase{"ConfigurationTooShort", [] { readEverything(avcFile(&kAvccShort, {}).bytes()); },
                          "CHECK(size >= 7) failed."},
                DeathCase{"ConfigurationVersion",
                          [] { readEverything(avcFile(&kAvccVersion2, {}).bytes()); },
                          "CHECK_EQ( (unsigned)ptr[0],1u) failed: 2 vs. 1"},
                DeathCase{"TagsSmallerThanThePreload",
                          [] { readEverything(B().header().audio(0, B::kMP3Stereo44k, {1}).bytes()); },
                          "CHECK(pBuffer->size() > preLoadLen) failed."},
                DeathCase{"AACWith8BitSamples",
                          [] { readEverything(B().header().aac(0, 1, Bytes(20, 0), 0xAD).bytes()); },
                          "CHECK_EQ( tagHeaderReader.getBits(1),1) failed: 0 vs. 1"},
                DeathCase{"StreamIdChangedAfterScan",
                          [] {
                              B b = keyFramesEverySecond(1);
                              readAfterPoke(b, b.tagOffset(0) + 10, 1);
                          },
                          "CHECK_EQ( tagHeaderReader.getBits(24),0) failed: 1 vs. 0"},
                DeathCase{"TagTypeChangedAfterScan",
                          [] {
                              B b = keyFramesEverySecond(1);
                              readAfterPoke(b, b.tagOffset(0), 18);
                          },
                          "CHECK((tagType == FLV_TAG_TYPE_AUDIO) || (tagType == FLV_TAG_TYPE_VIDEO)) failed."},
                DeathCase{"SequenceHeaderAtReadTime",
                          [] {
                              B b = avcFile(&kAvcc4, {});
                              readAfterPoke(b, b.tagOffset(1) + 12, 0);
                          },
                          "CHECK_NE( avcPackType,0) failed: 0 vs. 0"},
                DeathCase{"PreloadCutShort",
                          [] {
                              B b = keyFramesEverySecond(1);
                              sp<MutableSource> file = new MutableSource(b.bytes());
                              sp<ZIRKFLVExtractor> extractor = new ZIRKFLVExtractor(file);
                              sp<MediaSource> source = startTrack(extractor, 0);
                              file->truncate(b.tagOffset(0) + 5);
                              Sample s;
                              readSample(source, &s);
                          },
                          "CHECK_EQ( mDataSource->readAt(offset, pBuffer->data(), preLoadLen),preLoadLen) "
                          "failed: 5 vs. 13"},
                DeathCase{"UnexpectedSeekMode",
                          [] {
                              sp<MediaSource> source = startTrack(openFLV(keyFramesEverySecond(3).bytes()), 0);
                              RO options;
                              options.setSeekTo(1500000, static_cast<RO::SeekMode>(7));
                              Sample s;
                              readSample(source, &s, &options);
                          },
                          "CHECK(false) failed."},
                DeathCase{"StartTwice",
                          [] {
                              sp<MediaSource> source = startTrack(openFLV(keyFramesEverySecond(1).bytes()), 0);
                              source->start();
                          },
                          "CHECK(!mStarted) failed."},
                DeathCase{"ReadBeforeStart",
                          [] {
                              Sample s;
                              readSample(openFLV(keyFramesEverySecond(1).bytes())->getTrack(0), &s);
                          },
                          "CHECK(mStarted) failed."},
                DeathCase{"StopBeforeStart",
                          [] { openFLV(keyFramesEverySecond(1).bytes())->getTrack(0)->stop(); },
                          "CHECK(mStarted) failed."},
                DeathCase{"DataSourceNotReady",
                          [] { sp<ZIRKFLVExtractor> e = new ZIRKFLVExtractor(new NotReadySource); },
                          "CHECK_EQ( mDataSource->initCheck(),(status_t)OK) failed: -19 vs. 0"}),
        [](const testing::TestParamInfo<DeathCase>& info) { return std::string(info.param.name); });

// ---------------------------------------------------------------- Sorenson switch

// The switch is process-wide and sticky, so each case runs in a child
// process that reports its findings through its exit status and stderr.
int sorensonChild(const char* value) {
    std::string problems;
    auto expect = [&](bool ok, const char* what) {
        if (!ok) problems += std::string(what) + "; ";
    };
    const Bytes file = readFileBytes(testdataPath("flv_h263_mp3.flv"));
    sp<ZIRKFLVExtractor> before = openFLV(file);
    expect(before->countTracks() == 2, "two tracks before the switch");
    sp<MediaSource> oldVideo = startTrack(before, 0);

    property_set("debug.media.disableFlvSorensen", value);
    const bool switchesOff = !strcmp(value, "1") || !strcasecmp(value, "true");
    LogCapture logs;
    sp<ZIRKFLVExtractor> after = openFLV(file);
    const size_t expectedTracks = switchesOff ? 1 : 2;
    expect(after->countTracks() == expectedTracks, "track count after");
    const char* mime = "";
    after->getTrackMetaData(0)->findCString(kKeyMIMEType, &mime);
    expect(strcmp(mime, switchesOff ? MEDIA_MIMETYPE_AUDIO_MPEG : MEDIA_MIMETYPE_VIDEO_SORENSEN) == 0,
           "track 0 MIME");
    expect(logs.count("Unsupported video format: Sorenson H.263, ignore", ANDROID_LOG_WARN) ==
                   (switchesOff ? 1u : 0u),
           "one warning");
    // A track found before the switch no longer reads.
    Sample s;
    expect(readSample(oldVideo, &s) == (switchesOff ? status_t(ERROR_MALFORMED) : status_t(OK)),
           "old track read");
    expect(logs.contains("Unsupported video read format: Sorenson H.263") == switchesOff, "read log");
    // Even with the property removed again, the switch stays.
    property_set("debug.media.disableFlvSorensen", "");
    expect(openFLV(file)->countTracks() == expectedTracks, "sticky");
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
