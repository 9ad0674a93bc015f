// The FLV scan: sniffing, the file header, the tag walk and its failure
// reports, track metadata, and onMetaData.
#include <gtest/gtest.h>

#include <tuple>

#include <media/stagefright/MediaDefs.h>

#include "FLVTestUtil.h"
#include "LogCapture.h"
#include "common/ZIRKMetaKeys.h"

using namespace android;
using namespace android::test;

namespace {

typedef FLVBuilder B;
const int kMalformed = ERROR_MALFORMED;
const int kIO = ERROR_IO;

Bytes oneMP3Tag(B b) { return b.audio(0, B::kMP3Stereo44k, {1, 2, 3}).bytes(); }
Bytes withMP3(const Bytes& script) { return B().header().script(script).audio(0, B::kMP3Stereo44k, {1}).bytes(); }
Bytes dropLast(Bytes b, size_t n) { return Bytes(b.begin(), b.end() - n); }

typedef std::vector<std::pair<uint32_t, int64_t>> Ints;  // key, value (-1: absent)

// onMetaData's five properties as the file's metadata.
Ints metaInts(int64_t durationUs, int64_t width, int64_t height, int64_t bitRate, int64_t frameRate) {
    return {{kKeyDuration, durationUs}, {kKeyWidth, width}, {kKeyHeight, height}, {kKeyBitRate, bitRate}, {kKeyFrameRate, frameRate}};
}

// A log line: its text, priority (-1: any) and how many times it is logged.
struct Log {
    std::string text;
    int prio = -1;
    size_t count = 1;
};

void expectInts(const sp<MetaData>& meta, const Ints& want) {
    for (const auto& kv : want) {
        int32_t v32 = -1;
        int64_t v = -1;
        if (meta->findInt32(kv.first, &v32)) v = v32;
        else meta->findInt64(kv.first, &v);
        EXPECT_EQ(v, kv.second) << "key " << std::hex << kv.first;
    }
}

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
        if (c.second) { EXPECT_EQ(confidence, 0.71f); }
        EXPECT_EQ(meta->countEntries(), 0u);
    }
    EXPECT_STREQ(getZirkFlvExtractorVersion(), "QVX_libflvextractor_Rev10005_build_on_Aug 28 2013");
}

// Every failure report of the scan, with its line: a broken file has no
// tracks and no metadata; a damaged tag header or an unknown tag type only
// ends the scan, keeping the tag before it.
TEST(FLVScanTest, FailureReportsAndTheirLines) {
    struct Case {
        const char* what;
        Bytes bytes;
        size_t tracks;
        std::vector<std::string> logs;
    } cases[] = {
        {"signature", oneMP3Tag(B().header(0x05, 9, 1, 0, "FLX")), 0,
         {failLine(kMalformed, 708, "readFileHeader"), failLine(kMalformed, 617, "readMetaData")}},
        {"version", oneMP3Tag(B().header(0x05, 9, 2)), 0,
         {failLine(kMalformed, 709, "readFileHeader"), failLine(kMalformed, 617, "readMetaData")}},
        {"reserved bit", oneMP3Tag(B().header(0x07)), 0, {failLine(kMalformed, 716, "readFileHeader")}},
        {"DataOffset 10", oneMP3Tag(B().header(0x05, 10)), 0, {failLine(kMalformed, 720, "readFileHeader")}},
        {"8 bytes", {'F', 'L', 'V', 1, 5, 0, 0, 0}, 0, {failLine(kMalformed, 706, "readFileHeader")}},
        {"PreviousTagSize0", oneMP3Tag(B().header(0x05, 9, 1, 11)), 0,
         {failLine(kMalformed, 778, "readAndCheckPrevTagSize"), failLine(kMalformed, 619, "readMetaData")}},
        {"no PreviousTagSize0", {'F', 'L', 'V', 1, 5, 0, 0, 0, 9, 0}, 0,
         {failLine(kIO, 776, "readAndCheckPrevTagSize"), failLine(kIO, 619, "readMetaData")}},
        {"PreviousTagSize mismatch",
         B().header().audio(0, B::kMP3Stereo44k, {1}).tagWithPrevSize(B::kAudio, 26, {0x2F, 1}, 12).bytes(), 0,
         {failLine(kMalformed, 778, "readAndCheckPrevTagSize"), failLine(kMalformed, 752, "readFileBody"),
          failLine(kMalformed, 620, "readMetaData")}},
        {"file ends before PreviousTagSize", dropLast(B().header().audio(0, B::kMP3Stereo44k, {1, 2}).bytes(), 2), 0,
         {failLine(kIO, 776, "readAndCheckPrevTagSize"), failLine(kIO, 752, "readFileBody")}},
        {"video tag of 1 byte", B().header().tag(B::kVideo, 0, {0x12}).bytes(), 0,
         {failLine(kMalformed, 840, "readAndRegisterVideoTag"), failLine(kMalformed, 750, "readFileBody")}},
        {"audio tag of 1 byte", B().header().tag(B::kAudio, 0, {0x2F}).bytes(), 0,
         {failLine(kMalformed, 785, "readAndRegisterAudioTag")}},
        {"AAC at 22050 Hz", B().header().aac(0, 1, {1, 2}, 0xAB).bytes(), 0,
         {failLine(kMalformed, 811, "readAndRegisterAudioTag")}},
        {"AAC in mono", B().header().aac(0, 1, {1, 2}, 0xAE).bytes(), 0,
         {failLine(kMalformed, 812, "readAndRegisterAudioTag")}},
        {"script past the file", B().header().raw({18, 0xFF, 0xFF, 0xF0, 0, 0, 0, 0, 0, 0, 0, 'o', 'n'}).bytes(), 0,
         {failLine(kIO, 893, "readAndRegisterScriptTag")}},
        {"AAC config past the file",
         B().header().raw({8, 0xFF, 0xFF, 0xF0, 0, 0, 0, 0, 0, 0, 0, 0xAF, 0, 0x12}).bytes(), 0,
         {failLine(kIO, 816, "readAndRegisterAudioTag")}},
        {"onMetaData duration is a string", withMP3(B::onMetaData({{"duration", B::amfString("2s")}})), 0,
         {failLine(kMalformed, 898, "readAndRegisterScriptTag"), failLine(kMalformed, 750, "readFileBody")}},
        {"onMetaData Boolean", withMP3(B::onMetaData({{"width", {0x01, 0x01}}, {"height", B::amfNumber(1)}})), 0,
         {failLine(kMalformed, 898, "readAndRegisterScriptTag")}},
        {"onMetaData 6 value bytes", withMP3(cat({B::amfString("onMetaData"), {'w', 'i', 'd', 't', 'h', 0, 1, 2, 3, 4, 5, 6}})), 0,
         {failLine(kMalformed, 898, "readAndRegisterScriptTag")}},
        {"encrypted tag",
         B().header().audio(0, B::kMP3Stereo44k, {1}).tag(0x29, 40, {0x17, 1}).audio(80, B::kMP3Stereo44k, {2}).bytes(), 1,
         {"Unrecognized tag type: 41, guess it's OK to finish"}},
        {"stream id",
         B().header().audio(0, B::kMP3Stereo44k, {1}).tag(B::kAudio, 40, {0x2F, 1}, 7).audio(80, B::kMP3Stereo44k, {2}).bytes(), 1,
         {failLine(kMalformed, 766, "readTagHeader")}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        LogCapture logs;
        sp<ZIRKFLVExtractor> extractor = openFLV(c.bytes);
        ASSERT_EQ(extractor->countTracks(), c.tracks);
        if (c.tracks == 0) {
            EXPECT_EQ(extractor->getTrack(0), nullptr);
            EXPECT_EQ(extractor->getTrackMetaData(0), nullptr);
            EXPECT_EQ(extractor->getMetaData()->countEntries(), 0u);
        } else {
            expectInts(extractor->getTrackMetaData(0), {{kKeyBufferCount, 1}});
        }
        for (const std::string& line : c.logs) {
            EXPECT_EQ(logs.count(line, line.rfind("Fail", 0) == 0 ? ANDROID_LOG_ERROR : -1), 1u) << line;
        }
    }
}

// Files the scan reads, and what it finds: the tracks (none past them), the
// file's metadata and each track's (-1: absent), codec data, and what it logs
// (each line with its priority, -1 for any, and count).
//
// Reserved flag bits set, and audio/video flags that contradict the tags, are
// only logged. Unsupported codecs are passed over with one warning each (zero
// tracks is still a readable file). Without onMetaData, video comes first
// whatever comes first in the file, the first audio tag decides rate and
// channels, and video buffers get a 1.2 margin, audio none. The thumbnail is
// the latest key frame at least as large as every video tag before it: a
// later key frame of equal size wins. The AudioSpecificConfig goes behind the
// fixed 22-byte ES descriptor (its length bytes are not adjusted); the AVC
// configuration drops its 5-byte tag header; neither is a sample. onMetaData
// properties are looked up in table order (duration, width, height,
// videodatarate, framerate), each after the one before, and Numbers truncate;
// a later onMetaData overwrites and feeds the video track; without one the
// file duration is the last tag time (0 here).
TEST(FLVScanTest, TracksMetadataAndReports) {
    B derived, thumbnail, headers, later;
    derived.header().audio(0, B::kMP3Mono22k, Bytes(40)).audio(26, B::kMP3Stereo44k, Bytes(99));
    derived.video(0, B::kKey, B::kSorenson, Bytes(1000)).video(40, B::kInter, B::kSorenson, Bytes(10));
    derived.audio(1500, B::kMP3Mono22k, Bytes(7));
    thumbnail.header();
    for (const auto& t : std::vector<std::tuple<uint32_t, uint8_t, size_t>>{
                 {0, B::kKey, 100}, {40, B::kInter, 300}, {80, B::kKey, 200}, {120, B::kKey, 300}, {160, B::kKey, 300},
                 {200, B::kKey, 100}}) {
        thumbnail.video(std::get<0>(t), std::get<1>(t), B::kSorenson, Bytes(std::get<2>(t) - 1));
    }
    headers.header().aac(0, 0, {0x12, 0x10, 0x56, 0xE5, 0x00}).avc(0, B::kKey, 0, B::avcc(4));
    headers.aac(0, 1, {9, 9}).avc(0, B::kKey, 1, {0, 0, 0, 1, 0x65});
    later.header().script(B::onMetaData({{"duration", B::amfNumber(9)}, {"width", B::amfNumber(100)}}));
    later.video(0, B::kKey, B::kSorenson, {1, 2});
    later.script(B::onMetaData({{"width", B::amfNumber(176)}, {"height", B::amfNumber(144)}}));
    const Bytes esds = {0x03, 0x16, 0, 0, 0, 0x04, 0x11, 0x40, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                        0x05, 0x02, 0x12, 0x10, 0x56, 0xE5, 0x00};
    const int W = ANDROID_LOG_WARN;
    const struct {
        const char* what;
        Bytes bytes;
        size_t tracks;
        std::vector<Log> logs;
        Ints file;
        std::vector<Ints> track;
        std::vector<std::tuple<size_t, uint32_t, Bytes>> data;
    } cases[] = {
        {"type flags", oneMP3Tag(B().header(0xF9)), 1,
         {{"Invalid TypeFlagsReserved, expect 0, but 31", W}, {"File Header indicate video track existence", ANDROID_LOG_INFO},
          {"File Header indicate audio track existence", -1, 0}},
         {}, {}, {}},
        {"unsupported codecs",
         B().header().video(0, B::kKey, B::kVP6, {1}).video(40, B::kKey, B::kVP6, {1}).audio(0, 0xB6, {1}).audio(20, 0xB6, {1})
                 .audio(40, 0x06, {1}).bytes(), 0,
         {{"Unsupported video format: VP6, ignore", W}, {"Unsupported sound Format: Speex, ignore", W},
          {"Unsupported sound Format: Linear PCM, platform endian, ignore", -1, 0}},
         {}, {}, {}},
        {"derived metadata", derived.bytes(), 2, {}, {{kKeyDuration, 1500000}},
         {{{kKeyWidth, 640}, {kKeyHeight, 480}, {kKeyMaxInputSize, 1201}, {kKeyBufferCount, 2}, {kKeyDuration, 40000},
           {kKeyThumbnailTime, 0}},
          {{kKeySampleRate, 22050}, {kKeyChannelCount, 1}, {kKeyMaxInputSize, 100}, {kKeyBufferCount, 3},
           {kKeyDuration, 1500000}, {kKeyThumbnailTime, -1}}},
         {}},
        {"thumbnail", thumbnail.bytes(), 1, {}, {}, {{{kKeyThumbnailTime, 160000}}}, {}},
        {"sequence headers", headers.bytes(), 2, {}, {}, {{{kKeyBufferCount, 1}}, {{kKeyBufferCount, 1}}},
         {{0, kKeyAVCC, B::avcc(4)}, {1, kKeyESDS, esds}}},
        {"later onMetaData", later.bytes(), 1, {}, {}, {{{kKeyWidth, 176}, {kKeyHeight, 144}, {kKeyDuration, 9000000}}}, {}},
        {"all five",
         withMP3(B::onMetaData({{"duration", B::amfNumber(12.3456789)}, {"width", B::amfNumber(176.9)},
                                {"height", B::amfNumber(144)}, {"videodatarate", B::amfNumber(781.25)},
                                {"framerate", B::amfNumber(29.97)}})),
         1, {}, metaInts(12345678, 176, 144, 781, 29), {}, {}},
        {"width before duration",
         withMP3(B::onMetaData({{"width", B::amfNumber(320)}, {"duration", B::amfNumber(2)}, {"height", B::amfNumber(240)}})), 1,
         {{"onMetaData has no [width]", W}, {"onMetaData has no [videodatarate]", W}, {"onMetaData has no [framerate]", W}},
         metaInts(2000000, -1, 240, -1, -1), {}, {}},
        // The name must be followed by at least one byte of the tag.
        {"key at the very end", withMP3(cat({B::onMetaData({{"duration", B::amfNumber(1)}}), {'w', 'i', 'd', 't', 'h'}})), 1,
         {{"onMetaData has no [width]", W}}, metaInts(1000000, -1, -1, -1, -1), {}, {}},
        // A Number one byte short of the tag's end is still read.
        {"number cut by one byte",
         withMP3(cat({B::amfString("onMetaData"), {'w', 'i', 'd', 't', 'h', 0, 0x40, 0x74, 0, 0, 0, 0, 0}})), 1,
         {{"onMetaData has no [duration]", W}}, metaInts(0, 320, -1, -1, -1), {}, {}},
        {"no onMetaData", withMP3(B::amfString("onCuePoint")), 1, {{"onMetaData not found in the script tag", W}},
         metaInts(0, -1, -1, -1, -1), {}, {}},
        {"empty script tag", withMP3({}), 1, {}, metaInts(0, -1, -1, -1, -1), {}, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        LogCapture logs;
        sp<ZIRKFLVExtractor> extractor = openFLV(c.bytes);
        ASSERT_EQ(extractor->countTracks(), c.tracks);
        EXPECT_EQ(extractor->getTrack(c.tracks), nullptr);
        EXPECT_EQ(extractor->getTrackMetaData(c.tracks), nullptr);
        EXPECT_NE(extractor->getMetaData()->countEntries(), 0u);
        expectInts(extractor->getMetaData(), c.file);
        for (size_t t = 0; t < c.track.size(); ++t) expectInts(extractor->getTrackMetaData(t), c.track[t]);
        for (const auto& d : c.data) EXPECT_EQ(bytesOf(extractor->getTrackMetaData(std::get<0>(d)), std::get<1>(d)), std::get<2>(d));
        for (const Log& l : c.logs) EXPECT_EQ(logs.count(l.text, l.prio), l.count) << l.text;
    }
    sp<ZIRKFLVExtractor> extractor = openFLV(oneMP3Tag(B().header(0xF9)));  // the one audio track is at index 0
    const char* mime;
    ASSERT_NE(extractor->getTrack(0), nullptr);
    ASSERT_TRUE(extractor->getTrackMetaData(0)->findCString(kKeyMIMEType, &mime));
    EXPECT_STREQ(mime, MEDIA_MIMETYPE_AUDIO_MPEG);
}

}  // namespace
