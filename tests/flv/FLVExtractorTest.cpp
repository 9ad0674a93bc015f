// ZIRKFLVExtractor and its track source: sniffing, the file header, the tag
// walk and its failure reports, track metadata and onMetaData; payloads, the
// H.264 rewrite, seeks, the fatal checks, and the process-wide Sorenson switch.
#include <gtest/gtest.h>
#include <stdio.h>
#include <strings.h>

#include <functional>
#include <tuple>

#include <cutils/properties.h>
#include <media/stagefright/MediaDefs.h>

#include "CheckMatchers.h"
#include "FLVBuilder.h"
#include "LogCapture.h"
#include "TestDataSources.h"
#include "TrackReader.h"
#include "common/ZIRKMetaKeys.h"
#include "flv/ZIRKFLVExtractor.h"

using namespace android;
using namespace android::test;

namespace {

typedef FLVBuilder B;
typedef MediaSource::ReadOptions RO;
// Fatal checks name the file they are in.
const char kFLVExtractorFile[] = "flv/ZIRKFLVExtractor";
const char kFLVSourceFile[] = "flv/ZIRKFLVSource";

// "Fail (status): flv/ZIRKFLVExtractor(line)[step]", for ERROR_MALFORMED and
// ERROR_IO.
std::string failLine(int status, int line, const std::string& step) {
    return "Fail (" + std::to_string(status) + "): flv/ZIRKFLVExtractor(" + std::to_string(line) + ")[" + step + "]";
}

sp<ZIRKFLVExtractor> openFLV(const Bytes& bytes) { return new ZIRKFLVExtractor(new MemorySource(bytes)); }

// Every sample of a started source, which must end at the end of the stream.
std::vector<Sample> readAll(const sp<MediaSource>& source) {
    TrackRead r = readTrack(source, false);
    EXPECT_EQ(r.end, ERROR_END_OF_STREAM);
    return r.samples;
}

Bytes oneMP3Tag(B b) { return b.audio(0, B::kMP3Stereo44k, {1, 2, 3}).bytes(); }
Bytes withMP3(const Bytes& script) { return B().header().script(script).audio(0, B::kMP3Stereo44k, {1}).bytes(); }
Bytes dropLast(Bytes b, size_t n) { return Bytes(b.begin(), b.end() - n); }

typedef std::vector<std::pair<uint32_t, int64_t>> Ints;  // key, value (-1: absent)

// onMetaData's five properties as the file's metadata.
Ints metaInts(int64_t durationUs, int64_t width, int64_t height, int64_t bitRate, int64_t frameRate) {
    return {{kKeyDuration, durationUs}, {kKeyWidth, width}, {kKeyHeight, height}, {kKeyBitRate, bitRate},
            {kKeyFrameRate, frameRate}};
}

// A log line: its text, priority (-1: any) and how many times it is logged.
struct Log {
    std::string text;
    int prio = -1;
    size_t count = 1;
};
Log mal(int line, const std::string& step) { return {failLine(ERROR_MALFORMED, line, step), ANDROID_LOG_ERROR}; }
Log io(int line, const std::string& step) { return {failLine(ERROR_IO, line, step), ANDROID_LOG_ERROR}; }

void expectInts(const sp<MetaData>& meta, const Ints& want) {
    for (const auto& kv : want) {
        int32_t v32 = -1;
        int64_t v = -1;
        if (meta->findInt32(kv.first, &v32)) v = v32;
        else meta->findInt64(kv.first, &v);
        EXPECT_EQ(v, kv.second) << "key " << std::hex << kv.first;
    }
}

// A file for the scan: the tracks it finds (none past them), what it logs,
// the file's metadata and each track's.
struct ScanCase {
    const char* what;
    Bytes bytes;
    size_t tracks;
    std::vector<Log> logs;
    Ints file = {};
    std::vector<Ints> track = {};
};

// A broken file has no file metadata; a readable one (even of no tracks) has.
void expectScan(const ScanCase& c, bool broken) {
    SCOPED_TRACE(c.what);
    LogCapture logs;
    sp<ZIRKFLVExtractor> extractor = openFLV(c.bytes);
    ASSERT_EQ(extractor->countTracks(), c.tracks);
    EXPECT_EQ(extractor->getTrack(c.tracks), nullptr);
    EXPECT_EQ(extractor->getTrackMetaData(c.tracks), nullptr);
    EXPECT_EQ(extractor->getMetaData()->countEntries() == 0, broken);
    expectInts(extractor->getMetaData(), c.file);
    for (size_t t = 0; t < c.track.size(); ++t) expectInts(extractor->getTrackMetaData(t), c.track[t]);
    for (const Log& l : c.logs) EXPECT_EQ(logs.count(l.text, l.prio), l.count) << l.text;
}

// (The confidence, and the caller's meta left alone: EntrySniffTest.)
TEST(FLVSniffTest, NeedsFourBytesStartingWithFLV) {
    const std::pair<Bytes, bool> cases[] = {{{'F', 'L', 'V'}, false},           {{'F', 'L', 'V', 0x01}, true},
                                            {{'F', 'L', 'V', 0x07, 0, 0}, true}, {{'F', 'L', 'X', 0x01}, false},
                                            {{}, false}};
    for (const auto& c : cases) {
        String8 mime("untouched");
        float confidence = -1;
        sp<AMessage> meta = new AMessage;
        EXPECT_EQ(ZIRKSniffFLV(new MemorySource(c.first), &mime, &confidence, &meta), c.second);
        EXPECT_STREQ(mime.c_str(), c.second ? MEDIA_MIMETYPE_CONTAINER_FLV : "untouched");
    }
    EXPECT_STREQ(getZirkFlvExtractorVersion(), "QVX_libflvextractor_Rev10005_build_on_Aug 28 2013");
}

// Every failure report of the scan, with its line: a broken file has no
// tracks and no metadata. Pins each refusal and the report's line and step.
TEST(FLVScanTest, FailureReportsAndTheirLines) {
    const std::string kHeader = "readFileHeader", kMeta = "readMetaData", kBody = "readFileBody",
                      kPrevSize = "readAndCheckPrevTagSize", kAudioTag = "readAndRegisterAudioTag",
                      kVideoTag = "readAndRegisterVideoTag", kScriptTag = "readAndRegisterScriptTag";
    B mp3;
    mp3.header().audio(0, B::kMP3Stereo44k, {1});
    const ScanCase cases[] = {
        {"signature", oneMP3Tag(B().header(0x05, 9, 1, 0, "FLX")), 0, {mal(708, kHeader), mal(617, kMeta)}},
        {"version", oneMP3Tag(B().header(0x05, 9, 2)), 0, {mal(709, kHeader), mal(617, kMeta)}},
        {"reserved bit", oneMP3Tag(B().header(0x07)), 0, {mal(716, kHeader)}},
        {"DataOffset 10", oneMP3Tag(B().header(0x05, 10)), 0, {mal(720, kHeader)}},
        {"8 bytes", {'F', 'L', 'V', 1, 5, 0, 0, 0}, 0, {mal(706, kHeader)}},
        {"PreviousTagSize0", oneMP3Tag(B().header(0x05, 9, 1, 11)), 0, {mal(778, kPrevSize), mal(619, kMeta)}},
        {"no PreviousTagSize0", {'F', 'L', 'V', 1, 5, 0, 0, 0, 9, 0}, 0, {io(776, kPrevSize), io(619, kMeta)}},
        {"PreviousTagSize mismatch", B(mp3).tagWithPrevSize(B::kAudio, 26, {0x2F, 1}, 12).bytes(), 0,
         {mal(778, kPrevSize), mal(752, kBody), mal(620, kMeta)}},
        {"file ends before PreviousTagSize", dropLast(mp3.bytes(), 2), 0, {io(776, kPrevSize), io(752, kBody)}},
        {"video tag of 1 byte", B().header().tag(B::kVideo, 0, {0x12}).bytes(), 0,
         {mal(840, kVideoTag), mal(750, kBody)}},
        {"audio tag of 1 byte", B().header().tag(B::kAudio, 0, {0x2F}).bytes(), 0, {mal(785, kAudioTag)}},
        {"AAC at 22050 Hz", B().header().aac(0, 1, {1, 2}, 0xAB).bytes(), 0, {mal(811, kAudioTag)}},
        {"AAC in mono", B().header().aac(0, 1, {1, 2}, 0xAE).bytes(), 0, {mal(812, kAudioTag)}},
        {"script past the file", B().header().tagHeader(B::kScript, 0xFFFFF0).raw({'o', 'n'}).bytes(), 0,
         {io(893, kScriptTag)}},
        {"AAC config past the file", B().header().tagHeader(B::kAudio, 0xFFFFF0).raw({0xAF, 0, 0x12}).bytes(), 0,
         {io(816, kAudioTag)}},
        {"onMetaData duration is a string", withMP3(B::onMetaData({{"duration", B::amfString("2s")}})), 0,
         {mal(898, kScriptTag), mal(750, kBody)}},
        {"onMetaData Boolean", withMP3(B::onMetaData({{"width", {0x01, 0x01}}, {"height", B::amfNumber(1)}})), 0,
         {mal(898, kScriptTag)}},
        {"onMetaData 6 value bytes",
         withMP3(cat({B::amfString("onMetaData"), {'w', 'i', 'd', 't', 'h', 0, 1, 2, 3, 4, 5, 6}})), 0,
         {mal(898, kScriptTag)}},
    };
    for (const ScanCase& c : cases) expectScan(c, true);
}

// Files the scan reads, and what it finds (-1: absent; each log line with its
// priority, -1 for any, and count). A damaged tag header or an unknown tag
// type only ends the scan, keeping the tag before it.
//
// Reserved flag bits set, and audio/video flags that contradict the tags, are
// only logged. Unsupported codecs are passed over with one warning each (zero
// tracks is still a readable file). Without onMetaData, video comes first
// whatever comes first in the file, the first audio tag decides rate and
// channels, and video buffers get a 1.2 margin, audio none. The thumbnail is
// the latest key frame at least as large as every video tag before it: a
// later key frame of equal size wins. (Codec data and the sequence headers
// not being samples: RealFileTest, on flv_h264_aac and flv_aac_only.) onMetaData
// properties are looked up in table order (duration, width, height,
// videodatarate, framerate), each after the one before, and Numbers truncate;
// a later onMetaData overwrites and feeds the video track; without one the
// file duration is the last tag time (0 here).
TEST(FLVScanTest, TracksMetadataAndReports) {
    B derived, thumbnail, later;
    derived.header().audio(0, B::kMP3Mono22k, Bytes(40)).audio(26, B::kMP3Stereo44k, Bytes(99));
    derived.video(0, B::kKey, B::kSorenson, Bytes(1000)).video(40, B::kInter, B::kSorenson, Bytes(10));
    derived.audio(1500, B::kMP3Mono22k, Bytes(7));
    thumbnail.header();
    const size_t thumbnailTags[] = {100, 300, 200, 300, 300, 100};  // every 40 ms; all key frames but the second
    for (int i = 0; i < 6; ++i) {
        thumbnail.video(40 * i, i == 1 ? B::kInter : B::kKey, B::kSorenson, Bytes(thumbnailTags[i] - 1));
    }
    later.header().script(B::onMetaData({{"duration", B::amfNumber(9)}, {"width", B::amfNumber(100)}}));
    later.video(0, B::kKey, B::kSorenson, {1, 2});
    later.script(B::onMetaData({{"width", B::amfNumber(176)}, {"height", B::amfNumber(144)}}));
    const int W = ANDROID_LOG_WARN;
    B mp3;
    mp3.header().audio(0, B::kMP3Stereo44k, {1});
    const ScanCase cases[] = {
        {"encrypted tag", B(mp3).tag(0x29, 40, {0x17, 1}).audio(80, B::kMP3Stereo44k, {2}).bytes(), 1,
         {{"Unrecognized tag type: 41, guess it's OK to finish"}}, {}, {{{kKeyBufferCount, 1}}}},
        {"stream id", B(mp3).tag(B::kAudio, 40, {0x2F, 1}, 7).audio(80, B::kMP3Stereo44k, {2}).bytes(), 1,
         {mal(766, "readTagHeader")}, {}, {{{kKeyBufferCount, 1}}}},
        {"type flags", oneMP3Tag(B().header(0xF9)), 1,
         {{"Invalid TypeFlagsReserved, expect 0, but 31", W},
          {"File Header indicate video track existence", ANDROID_LOG_INFO},
          {"File Header indicate audio track existence", -1, 0}}},
        {"unsupported codecs",
         B().header().video(0, B::kKey, B::kVP6, {1}).video(40, B::kKey, B::kVP6, {1}).audio(0, 0xB6, {1})
                 .audio(20, 0xB6, {1}).audio(40, 0x06, {1}).bytes(), 0,
         {{"Unsupported video format: VP6, ignore", W}, {"Unsupported sound Format: Speex, ignore", W},
          {"Unsupported sound Format: Linear PCM, platform endian, ignore", -1, 0}}},
        {"derived metadata", derived.bytes(), 2, {}, {{kKeyDuration, 1500000}},
         {{{kKeyWidth, 640}, {kKeyHeight, 480}, {kKeyMaxInputSize, 1201}, {kKeyBufferCount, 2}, {kKeyDuration, 40000},
           {kKeyThumbnailTime, 0}},
          {{kKeySampleRate, 22050}, {kKeyChannelCount, 1}, {kKeyMaxInputSize, 100}, {kKeyBufferCount, 3},
           {kKeyDuration, 1500000}, {kKeyThumbnailTime, -1}}}},
        {"thumbnail", thumbnail.bytes(), 1, {}, {}, {{{kKeyThumbnailTime, 160000}}}},
        {"later onMetaData", later.bytes(), 1, {}, {},
         {{{kKeyWidth, 176}, {kKeyHeight, 144}, {kKeyDuration, 9000000}}}},
        {"all five",
         withMP3(B::onMetaData({{"duration", B::amfNumber(12.3456789)}, {"width", B::amfNumber(176.9)},
                                {"height", B::amfNumber(144)}, {"videodatarate", B::amfNumber(781.25)},
                                {"framerate", B::amfNumber(29.97)}})),
         1, {}, metaInts(12345678, 176, 144, 781, 29)},
        {"width before duration",
         withMP3(B::onMetaData({{"width", B::amfNumber(320)}, {"duration", B::amfNumber(2)},
                                {"height", B::amfNumber(240)}})), 1,
         {{"onMetaData has no [width]", W}, {"onMetaData has no [videodatarate]", W},
          {"onMetaData has no [framerate]", W}},
         metaInts(2000000, -1, 240, -1, -1)},
        // The name must be followed by at least one byte of the tag.
        {"key at the very end",
         withMP3(cat({B::onMetaData({{"duration", B::amfNumber(1)}}), {'w', 'i', 'd', 't', 'h'}})), 1,
         {{"onMetaData has no [width]", W}}, metaInts(1000000, -1, -1, -1, -1)},
        // A Number one byte short of the tag's end is still read.
        {"number cut by one byte",
         withMP3(cat({B::amfString("onMetaData"), {'w', 'i', 'd', 't', 'h', 0, 0x40, 0x74, 0, 0, 0, 0, 0}})), 1,
         {{"onMetaData has no [duration]", W}}, metaInts(0, 320, -1, -1, -1)},
        {"no onMetaData", withMP3(B::amfString("onCuePoint")), 1, {{"onMetaData not found in the script tag", W}},
         metaInts(0, -1, -1, -1, -1)},
        {"empty script tag", withMP3({}), 1, {}, metaInts(0, -1, -1, -1, -1)},
    };
    for (const ScanCase& c : cases) expectScan(c, false);
}

// ---------------------------------------------------------------- the track source

sp<MediaSource> startTrack(const sp<ZIRKFLVExtractor>& extractor, size_t index) {
    sp<MediaSource> source = extractor->getTrack(index);
    if (source != nullptr) { EXPECT_EQ(source->start(), OK); }
    return source;
}

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

// Audio payloads drop their header (AAC: 2 bytes) and carry no key flag;
// buffer times wrap at 2^32 us, the table's do not; a read past the end
// stays there and stop() rewinds. (Video payloads, times and key flags:
// RealFileTest against ffprobe's packets.)
TEST(FLVReadTest, PayloadsFlagsAndRestart) {
    sp<ZIRKFLVExtractor> extractor =
            openFLV(B().header().aac(0, 0, {0x12, 0x10}).aac(23, 1, {1, 2, 3}).aac(4800000, 1, Bytes(20, 9)).bytes());
    sp<MediaSource> audio = startTrack(extractor, 0);
    EXPECT_EQ(audio->getFormat(), extractor->getTrackMetaData(0));
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

// A file changed or cut after the scan, and an H.264 rewrite that would
// overflow the read buffer (1-byte lengths of empty units grow 4x): the read
// fails without moving on.
TEST(FLVReadTest, FailedReadsDoNotMoveOn) {
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
    B avc;
    avc.header().avc(0, B::kKey, 0, B::avcc(1)).avc(0, B::kKey, 1, Bytes(100, 0));
    source = startTrack(openFLV(avc.bytes()), 0);
    EXPECT_EQ(readSample(source, &s), ERROR_MALFORMED);
    EXPECT_EQ(readSample(source, &s), ERROR_MALFORMED);
    EXPECT_EQ(logs.count("Tag at " + std::to_string(avc.tagOffset(1)) + " needs 400 bytes, more than the 126-byte "
                         "read buffer", ANDROID_LOG_ERROR), 2u);
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
        std::vector<Sample> v = readAll(startTrack(openFLV(avcFile(n ? &avcc : nullptr, nal).bytes()), 0));
        ASSERT_EQ(v.size(), 2u);
        ASSERT_GE(v[1].written.size(), written.size());
        EXPECT_EQ(Bytes(v[1].written.begin(), v[1].written.begin() + written.size()), written);
        EXPECT_EQ(v[1].data, Bytes(v[1].written.begin(), v[1].written.begin() + nal.size()));
    }
}

// Video seeks land on key frames; audio seeks on any sample. "Next" at a key
// frame is the following one (lo + 1); a closest tie goes to the earlier one;
// the search narrows to mid - 1, so "previous" can skip the last key frame
// at or before the target (7-second file).
TEST(FLVSeekTest, ModesAtAndBetweenKeyFrames) {
    const RO::SeekMode P = RO::SEEK_PREVIOUS_SYNC, N = RO::SEEK_NEXT_SYNC, C = RO::SEEK_CLOSEST_SYNC,
                       X = RO::SEEK_CLOSEST;
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

const Bytes kAvcc4 = B::avcc(4), kAvcc2 = B::avcc(2), kAvccVersion2 = B::avcc(4, 2),
            kAvccShort = {1, 0x64, 0, 0x1E, 0xFF, 0xE0};
const B kOneSecond = keyFramesEverySecond(1);
void poke(size_t at, uint8_t value) { readAfter(kOneSecond, [&](FaultySource* f) { f->poke(at, value); }); }

TEST(FLVDeathTest, ChecksStayFatal) {
    const char* const X = kFLVExtractorFile;
    const struct { const char* name; void (*body)(); const char* check; const char* file = kFLVSourceFile; } cases[] = {
        {"VideoWithoutKeyFrame", [] { openFLV(B().header().video(0, B::kInter, B::kSorenson, {1}).bytes())
                                             ->countTracks(); },
         "CHECK_GE( syncBufferNum,1) failed: 0 vs. 1", X},
        {"NALLengthOverrunsTag", [] { readEverything(avcFile(&kAvcc2, {0, 5, 0x65, 1, 2, 3}).bytes()); },
         "CHECK(size == 0) failed."},
        {"ConfigurationTooShort", [] { readEverything(avcFile(&kAvccShort, {}).bytes()); }, "CHECK(size >= 7) failed."},
        {"ConfigurationVersion", [] { readEverything(avcFile(&kAvccVersion2, {}).bytes()); },
         "CHECK_EQ( (unsigned)ptr[0],1u) failed: 2 vs. 1"},
        {"TagsSmallerThanThePreload", [] { readEverything(B().header().audio(0, B::kMP3Stereo44k, {1}).bytes()); },
         "CHECK(pBuffer->size() > preLoadLen) failed."},
        {"AACWith8BitSamples", [] { readEverything(B().header().aac(0, 1, Bytes(20, 0), 0xAD).bytes()); },
         "CHECK_EQ( tagHeaderReader.getBits(1),1) failed: 0 vs. 1"},
        {"StreamIdChangedAfterScan", [] { poke(kOneSecond.tagOffset(0) + 10, 1); },
         "CHECK_EQ( tagHeaderReader.getBits(24),0) failed: 1 vs. 0"},
        {"TagTypeChangedAfterScan", [] { poke(kOneSecond.tagOffset(0), 18); },
         "CHECK((tagType == FLV_TAG_TYPE_AUDIO) || (tagType == FLV_TAG_TYPE_VIDEO)) failed."},
        {"SequenceHeaderAtReadTime", [] {
             B b = avcFile(&kAvcc4, {});
             readAfter(b, [&](FaultySource* f) { f->poke(b.tagOffset(1) + 12, 0); });
         }, "CHECK_NE( avcPackType,0) failed: 0 vs. 0"},
        {"PreloadCutShort", [] {
             const size_t at = kOneSecond.tagOffset(0) + 5;
             readAfter(kOneSecond, [&](FaultySource* f) { f->setFault(FaultySource::kShortRead, at); });
         }, "CHECK_EQ( mDataSource->readAt(offset, pBuffer->data(), preLoadLen),preLoadLen) failed: 5 vs. 13"},
        {"UnexpectedSeekMode", [] {
             RO options;
             options.setSeekTo(1500000, static_cast<RO::SeekMode>(7));
             readAfter(keyFramesEverySecond(3), [](FaultySource*) {}, &options);
         }, "CHECK(false) failed."},
        {"StartTwice", [] { startTrack(openFLV(kOneSecond.bytes()), 0)->start(); }, "CHECK(!mStarted) failed."},
        {"ReadBeforeStart", [] { Sample s; readSample(openFLV(kOneSecond.bytes())->getTrack(0), &s); },
         "CHECK(mStarted) failed."},
        {"StopBeforeStart", [] { openFLV(kOneSecond.bytes())->getTrack(0)->stop(); }, "CHECK(mStarted) failed."},
        {"DataSourceNotReady", [] { sp<ZIRKFLVExtractor> e = new ZIRKFLVExtractor(new NotReadySource); },
         "CHECK_EQ( mDataSource->initCheck(),(status_t)OK) failed: -19 vs. 0", X},
    };
    for (const auto& c : cases) EXPECT_DEATH(c.body(), checkMessage(c.file, c.check)) << c.name;
}

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
    expect(logs.count("Unsupported video format: Sorenson H.263, ignore", ANDROID_LOG_WARN) == (off ? 1u : 0u),
           "one warning");
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
