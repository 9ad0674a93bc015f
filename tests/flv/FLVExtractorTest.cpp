// The FLV scan: sniffing, the file header, the tag walk and its failure
// reports, track registration and metadata, and onMetaData.
#include <gtest/gtest.h>

#include <media/stagefright/MediaDefs.h>

#include "FLVTestUtil.h"
#include "LogCapture.h"
#include "common/ZIRKMetaKeys.h"

using namespace android;
using namespace android::test;

namespace {

typedef FLVBuilder B;
typedef std::vector<uint8_t> Bytes;

const int kMalformed = ERROR_MALFORMED;
const int kIO = ERROR_IO;

// ---------------------------------------------------------------- sniffing

TEST(FLVSniffTest, NeedsFourBytesStartingWithFLV) {
    struct Case {
        Bytes bytes;
        bool claimed;
    } cases[] = {
            {{'F', 'L', 'V'}, false},
            {{'F', 'L', 'V', 0x01}, true},
            {{'F', 'L', 'V', 0x07, 0, 0}, true},
            {{'F', 'L', 'X', 0x01}, false},
            {{}, false},
    };
    for (const Case& c : cases) {
        String8 mime("untouched");
        float confidence = -1;
        sp<AMessage> meta = new AMessage;
        EXPECT_EQ(ZIRKSniffFLV(new MemorySource(c.bytes), &mime, &confidence, &meta), c.claimed);
        if (c.claimed) {
            EXPECT_STREQ(mime.c_str(), MEDIA_MIMETYPE_CONTAINER_FLV);
            EXPECT_EQ(confidence, 0.71f);
        } else {
            EXPECT_STREQ(mime.c_str(), "untouched");
        }
        EXPECT_EQ(meta->countEntries(), 0u);
    }
    EXPECT_STREQ(getZirkFlvExtractorVersion(), "QVX_libflvextractor_Rev10005_build_on_Aug 28 2013");
}

// ---------------------------------------------------------------- header

Bytes dropLast(Bytes b, size_t n) {
    b.resize(b.size() - n);
    return b;
}

Bytes oneMP3Tag(B b) { return b.audio(0, B::kMP3Stereo44k, {1, 2, 3}).bytes(); }

TEST(FLVHeaderTest, BadHeadersFailTheFileWithTheirLine) {
    struct Case {
        const char* what;
        Bytes bytes;
        std::vector<std::string> logs;
    } cases[] = {
            {"signature", oneMP3Tag(B().header(0x05, 9, 1, 0, "FLX")),
             {failLine(kMalformed, 708, "readFileHeader"), failLine(kMalformed, 617, "readMetaData")}},
            {"version", oneMP3Tag(B().header(0x05, 9, 2)),
             {failLine(kMalformed, 709, "readFileHeader"), failLine(kMalformed, 617, "readMetaData")}},
            {"reserved bit", oneMP3Tag(B().header(0x07)), {failLine(kMalformed, 716, "readFileHeader")}},
            {"DataOffset 10", oneMP3Tag(B().header(0x05, 10)), {failLine(kMalformed, 720, "readFileHeader")}},
            {"8 bytes", {'F', 'L', 'V', 1, 5, 0, 0, 0}, {failLine(kMalformed, 706, "readFileHeader")}},
            {"PreviousTagSize0", oneMP3Tag(B().header(0x05, 9, 1, 11)),
             {failLine(kMalformed, 778, "readAndCheckPrevTagSize"), failLine(kMalformed, 619, "readMetaData")}},
            {"no PreviousTagSize0", {'F', 'L', 'V', 1, 5, 0, 0, 0, 9, 0},
             {failLine(kIO, 776, "readAndCheckPrevTagSize"), failLine(kIO, 619, "readMetaData")}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        LogCapture logs;
        sp<ZIRKFLVExtractor> extractor = openFLV(c.bytes);
        EXPECT_EQ(extractor->countTracks(), 0u);
        EXPECT_EQ(extractor->getTrack(0), nullptr);
        EXPECT_EQ(extractor->getTrackMetaData(0), nullptr);
        EXPECT_EQ(extractor->getMetaData()->countEntries(), 0u);
        for (const std::string& line : c.logs) EXPECT_EQ(logs.count(line, ANDROID_LOG_ERROR), 1u) << line;
    }
}

TEST(FLVHeaderTest, TypeFlagsOnlyInform) {
    LogCapture logs;
    // Reserved flag bits set, and the audio/video flags contradict the tags.
    sp<ZIRKFLVExtractor> extractor = openFLV(oneMP3Tag(B().header(0xF9)));
    EXPECT_EQ(extractor->countTracks(), 1u);
    EXPECT_TRUE(logs.contains("Invalid TypeFlagsReserved, expect 0, but 31", ANDROID_LOG_WARN));
    EXPECT_TRUE(logs.contains("File Header indicate video track existence", ANDROID_LOG_INFO));
    EXPECT_FALSE(logs.contains("File Header indicate audio track existence"));
    const char* mime;
    ASSERT_TRUE(extractor->getMetaData()->findCString(kKeyMIMEType, &mime));
    EXPECT_STREQ(mime, MEDIA_MIMETYPE_CONTAINER_FLV);
}

// ---------------------------------------------------------------- tag walk

TEST(FLVScanTest, BrokenTagsFailTheWholeFile) {
    struct Case {
        const char* what;
        Bytes bytes;
        std::vector<std::string> logs;
    } cases[] = {
            {"PreviousTagSize mismatch",
             B().header().audio(0, B::kMP3Stereo44k, {1}).tagWithPrevSize(B::kAudio, 26, {0x2F, 1}, 12).bytes(),
             {failLine(kMalformed, 778, "readAndCheckPrevTagSize"), failLine(kMalformed, 752, "readFileBody"),
              failLine(kMalformed, 620, "readMetaData")}},
            {"file ends before PreviousTagSize",
             dropLast(B().header().audio(0, B::kMP3Stereo44k, {1, 2}).bytes(), 2),
             {failLine(kIO, 776, "readAndCheckPrevTagSize"), failLine(kIO, 752, "readFileBody")}},
            {"video tag of 1 byte", B().header().tag(B::kVideo, 0, {0x12}).bytes(),
             {failLine(kMalformed, 840, "readAndRegisterVideoTag"), failLine(kMalformed, 750, "readFileBody")}},
            {"audio tag of 1 byte", B().header().tag(B::kAudio, 0, {0x2F}).bytes(),
             {failLine(kMalformed, 785, "readAndRegisterAudioTag")}},
            {"AAC at 22050 Hz", B().header().aac(0, 1, {1, 2}, 0xAB).bytes(),
             {failLine(kMalformed, 811, "readAndRegisterAudioTag")}},
            {"AAC in mono", B().header().aac(0, 1, {1, 2}, 0xAE).bytes(),
             {failLine(kMalformed, 812, "readAndRegisterAudioTag")}},
            {"onMetaData duration is a string",
             B().header().script(B::onMetaData({{"duration", B::amfString("2s")}})).bytes(),
             {failLine(kMalformed, 898, "readAndRegisterScriptTag"), failLine(kMalformed, 750, "readFileBody")}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        LogCapture logs;
        sp<ZIRKFLVExtractor> extractor = openFLV(c.bytes);
        EXPECT_EQ(extractor->countTracks(), 0u);
        EXPECT_EQ(extractor->getMetaData()->countEntries(), 0u);
        for (const std::string& line : c.logs) EXPECT_EQ(logs.count(line, ANDROID_LOG_ERROR), 1u) << line;
    }
}

TEST(FLVScanTest, DamagedTagHeaderOrUnknownTypeEndsTheScanKeepingEarlierTags) {
    struct Case {
        const char* what;
        B builder;
        std::string log;
    } cases[] = {
            {"encrypted tag", B(), "Unrecognized tag type: 41, guess it's OK to finish"},
            {"stream id", B(), failLine(kMalformed, 766, "readTagHeader")},
    };
    cases[0].builder.header().audio(0, B::kMP3Stereo44k, {1}).tag(0x29, 40, {0x17, 1}).audio(80, B::kMP3Stereo44k, {2});
    cases[1].builder.header().audio(0, B::kMP3Stereo44k, {1}).tag(B::kAudio, 40, {0x2F, 1}, 7).audio(80, B::kMP3Stereo44k, {2});
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        LogCapture logs;
        sp<ZIRKFLVExtractor> extractor = openFLV(c.builder.bytes());
        ASSERT_EQ(extractor->countTracks(), 1u);
        int32_t count = 0;
        EXPECT_TRUE(extractor->getTrackMetaData(0)->findInt32(kKeyBufferCount, &count));
        EXPECT_EQ(count, 1);
        EXPECT_TRUE(logs.contains(c.log));
    }
}

TEST(FLVScanTest, UnsupportedCodecsArePassedOverWithOneWarningEach) {
    LogCapture logs;
    sp<ZIRKFLVExtractor> extractor =
            openFLV(B().header().video(0, B::kKey, B::kVP6, {1}).video(40, B::kKey, B::kVP6, {1})
                            .audio(0, 0xB6, {1}).audio(20, 0xB6, {1}).audio(40, 0x06, {1}).bytes());
    EXPECT_EQ(extractor->countTracks(), 0u);
    EXPECT_EQ(logs.count("Unsupported video format: VP6, ignore", ANDROID_LOG_WARN), 1u);
    EXPECT_EQ(logs.count("Unsupported sound Format: Speex, ignore", ANDROID_LOG_WARN), 1u);
    EXPECT_FALSE(logs.contains("Unsupported sound Format: Linear PCM, platform endian, ignore"));
    // Zero tracks is still a readable file.
    EXPECT_NE(extractor->getMetaData()->countEntries(), 0u);
}

// Video first in the track list, whatever comes first in the file; the sizes,
// durations and buffer sizes that the scan derives.
TEST(FLVScanTest, TrackMetadataWithoutOnMetaData) {
    B b;
    b.header().audio(0, B::kMP3Mono22k, Bytes(40)).audio(26, B::kMP3Stereo44k, Bytes(99));
    b.video(0, B::kKey, B::kSorenson, Bytes(1000)).video(40, B::kInter, B::kSorenson, Bytes(10));
    b.audio(1500, B::kMP3Mono22k, Bytes(7));
    LogCapture logs;
    sp<ZIRKFLVExtractor> extractor = openFLV(b.bytes());
    ASSERT_EQ(extractor->countTracks(), 2u);
    sp<MetaData> video = extractor->getTrackMetaData(0);
    sp<MetaData> audio = extractor->getTrackMetaData(1);
    const char* mime;
    int32_t v;
    int64_t d;
    ASSERT_TRUE(video->findCString(kKeyMIMEType, &mime));
    EXPECT_STREQ(mime, MEDIA_MIMETYPE_VIDEO_SORENSEN);
    const std::pair<uint32_t, int32_t> videoInts[] = {
            {kKeyWidth, 640}, {kKeyHeight, 480}, {kKeyDisplayWidth, 640}, {kKeyDisplayHeight, 480},
            {kKeyMaxInputSize, 1201},  // 1001 * 1.2
            {kKeyBufferCount, 2}};
    for (const auto& kv : videoInts) {
        EXPECT_TRUE(video->findInt32(kv.first, &v));
        EXPECT_EQ(v, kv.second);
    }
    EXPECT_TRUE(video->findInt64(kKeyDuration, &d));
    EXPECT_EQ(d, 40000);
    EXPECT_TRUE(video->findInt64(kKeyThumbnailTime, &d));
    EXPECT_EQ(d, 0);

    // The first audio tag decides rate and channels; no margin on the size.
    ASSERT_TRUE(audio->findCString(kKeyMIMEType, &mime));
    EXPECT_STREQ(mime, MEDIA_MIMETYPE_AUDIO_MPEG);
    const std::pair<uint32_t, int32_t> audioInts[] = {
            {kKeySampleRate, 22050}, {kKeyChannelCount, 1}, {kKeyMaxInputSize, 100}, {kKeyBufferCount, 3}};
    for (const auto& kv : audioInts) {
        EXPECT_TRUE(audio->findInt32(kv.first, &v));
        EXPECT_EQ(v, kv.second);
    }
    EXPECT_TRUE(audio->findInt64(kKeyDuration, &d));
    EXPECT_EQ(d, 1500000);
    EXPECT_FALSE(audio->findInt64(kKeyThumbnailTime, &d));
    EXPECT_TRUE(extractor->getMetaData()->findInt64(kKeyDuration, &d));
    EXPECT_EQ(d, 1500000);
    EXPECT_TRUE(logs.contains(std::string("Video ") + MEDIA_MIMETYPE_VIDEO_SORENSEN +
                                      " [1/2] <1001>: 640x480, Thumb@0 us",
                              ANDROID_LOG_DEBUG));
    EXPECT_TRUE(logs.contains(std::string("Audio ") + MEDIA_MIMETYPE_AUDIO_MPEG +
                                      " [0/3] <100>: 22050 Hz => 1 Channels",
                              ANDROID_LOG_DEBUG));
}

TEST(FLVScanTest, AudioOnlyFileHasItsTrackAtIndexZero) {
    sp<ZIRKFLVExtractor> extractor = openFLV(oneMP3Tag(B().header(0x04)));
    ASSERT_EQ(extractor->countTracks(), 1u);
    EXPECT_EQ(extractor->getTrackMetaData(1), nullptr);
    EXPECT_EQ(extractor->getTrack(1), nullptr);
    const char* mime;
    ASSERT_TRUE(extractor->getTrackMetaData(0)->findCString(kKeyMIMEType, &mime));
    EXPECT_STREQ(mime, MEDIA_MIMETYPE_AUDIO_MPEG);
    EXPECT_NE(extractor->getTrack(0), nullptr);
}

// The thumbnail is the latest key frame at least as large as every video tag
// before it; a later key frame of equal size wins.
TEST(FLVScanTest, ThumbnailRule) {
    const struct {
        uint32_t ms;
        uint8_t frame;
        size_t size;
    } tags[] = {{0, B::kKey, 100},   {40, B::kInter, 300}, {80, B::kKey, 200},
                {120, B::kKey, 300}, {160, B::kKey, 300},  {200, B::kKey, 100}};
    B b;
    b.header();
    for (const auto& t : tags) b.video(t.ms, t.frame, B::kSorenson, Bytes(t.size - 1));
    sp<ZIRKFLVExtractor> extractor = openFLV(b.bytes());
    ASSERT_EQ(extractor->countTracks(), 1u);
    int64_t thumb;
    ASSERT_TRUE(extractor->getTrackMetaData(0)->findInt64(kKeyThumbnailTime, &thumb));
    EXPECT_EQ(thumb, 160000);
}

// The AudioSpecificConfig goes behind the fixed 22-byte ES descriptor (its
// length bytes are not adjusted); the AVC configuration drops its 5-byte
// tag header. Neither is a sample.
TEST(FLVScanTest, SequenceHeadersBecomeCodecConfiguration) {
    const Bytes asc = {0x12, 0x10, 0x56, 0xE5, 0x00};
    B b;
    b.header().aac(0, 0, asc).avc(0, B::kKey, 0, B::avcc(4)).aac(0, 1, {9, 9}).avc(0, B::kKey, 1, {0, 0, 0, 1, 0x65});
    sp<ZIRKFLVExtractor> extractor = openFLV(b.bytes());
    ASSERT_EQ(extractor->countTracks(), 2u);
    const Bytes esds = {0x03, 0x16, 0, 0, 0, 0x04, 0x11, 0x40, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                        0x05, 0x02, 0x12, 0x10, 0x56, 0xE5, 0x00};
    EXPECT_EQ(bytesOf(extractor->getTrackMetaData(1), kKeyESDS), esds);
    EXPECT_EQ(bytesOf(extractor->getTrackMetaData(0), kKeyAVCC), B::avcc(4));
    int32_t count;
    for (size_t i = 0; i < 2; ++i) {
        EXPECT_TRUE(extractor->getTrackMetaData(i)->findInt32(kKeyBufferCount, &count));
        EXPECT_EQ(count, 1);
    }
}

// Declared sizes that run past the end of the file fail before anything is
// allocated for them.
TEST(FLVScanTest, SizesBeyondTheFileFailWithoutAllocating) {
    struct Case {
        const char* what;
        Bytes bytes;
        std::string log;
    } cases[] = {
            {"script", B().header().raw({18, 0xFF, 0xFF, 0xF0, 0, 0, 0, 0, 0, 0, 0, 'o', 'n'}).bytes(),
             failLine(kIO, 893, "readAndRegisterScriptTag")},
            {"AAC config", B().header().raw({8, 0xFF, 0xFF, 0xF0, 0, 0, 0, 0, 0, 0, 0, 0xAF, 0, 0x12}).bytes(),
             failLine(kIO, 816, "readAndRegisterAudioTag")},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        LogCapture logs;
        EXPECT_EQ(openFLV(c.bytes)->countTracks(), 0u);
        EXPECT_TRUE(logs.contains(c.log));
    }
}

// ---------------------------------------------------------------- onMetaData

struct MetaCase {
    const char* what;
    Bytes script;
    int64_t durationUs;  // -1: absent
    int32_t width, height, bitRate, frameRate;  // -1: absent
    std::vector<std::string> warnings;
};

TEST(FLVMetaDataTest, PropertiesAreFoundInTableOrderOnly) {
    const MetaCase cases[] = {
            {"all five",
             B::onMetaData({{"duration", B::amfNumber(12.3456789)}, {"width", B::amfNumber(176.9)},
                            {"height", B::amfNumber(144)}, {"videodatarate", B::amfNumber(781.25)},
                            {"framerate", B::amfNumber(29.97)}}),
             12345678, 176, 144, 781, 29, {}},
            {"width before duration",
             B::onMetaData({{"width", B::amfNumber(320)}, {"duration", B::amfNumber(2)},
                            {"height", B::amfNumber(240)}}),
             2000000, -1, 240, -1, -1,
             {"onMetaData has no [width]", "onMetaData has no [videodatarate]", "onMetaData has no [framerate]"}},
            // The name must be followed by at least one byte of the tag.
            {"key at the very end", B::cat(B::onMetaData({{"duration", B::amfNumber(1)}}), {'w', 'i', 'd', 't', 'h'}),
             1000000, -1, -1, -1, -1, {"onMetaData has no [width]"}},
            // A Number one byte short of the tag's end is still read.
            {"number cut by one byte", B::cat(B::amfString("onMetaData"), {'w', 'i', 'd', 't', 'h', 0, 0x40, 0x74, 0, 0, 0, 0, 0}),
             -1, 320, -1, -1, -1, {"onMetaData has no [duration]"}},
            {"no onMetaData", B::amfString("onCuePoint"), -1, -1, -1, -1, -1,
             {"onMetaData not found in the script tag"}},
            {"empty script tag", {}, -1, -1, -1, -1, -1, {}},
    };
    for (const MetaCase& c : cases) {
        SCOPED_TRACE(c.what);
        LogCapture logs;
        sp<ZIRKFLVExtractor> extractor = openFLV(B().header().script(c.script).audio(0, B::kMP3Stereo44k, {1}).bytes());
        ASSERT_EQ(extractor->countTracks(), 1u);
        sp<MetaData> meta = extractor->getMetaData();
        int64_t d = -1;
        meta->findInt64(kKeyDuration, &d);
        // Without onMetaData the file duration is the last tag time (0 here).
        EXPECT_EQ(d, c.durationUs < 0 ? 0 : c.durationUs);
        const std::pair<uint32_t, int32_t> ints[] = {
                {kKeyWidth, c.width}, {kKeyHeight, c.height}, {kKeyBitRate, c.bitRate}, {kKeyFrameRate, c.frameRate}};
        for (const auto& kv : ints) {
            int32_t v = -1;
            meta->findInt32(kv.first, &v);
            EXPECT_EQ(v, kv.second);
        }
        for (const std::string& w : c.warnings) EXPECT_EQ(logs.count(w, ANDROID_LOG_WARN), 1u) << w;
    }
}

TEST(FLVMetaDataTest, LaterOnMetaDataOverwritesAndFeedsTheVideoTrack) {
    B b;
    b.header().script(B::onMetaData({{"duration", B::amfNumber(9)}, {"width", B::amfNumber(100)}}));
    b.video(0, B::kKey, B::kSorenson, {1, 2});
    b.script(B::onMetaData({{"width", B::amfNumber(176)}, {"height", B::amfNumber(144)}}));
    LogCapture logs;
    sp<ZIRKFLVExtractor> extractor = openFLV(b.bytes());
    ASSERT_EQ(extractor->countTracks(), 1u);
    sp<MetaData> video = extractor->getTrackMetaData(0);
    int32_t w, h;
    int64_t d;
    EXPECT_TRUE(video->findInt32(kKeyWidth, &w));
    EXPECT_TRUE(video->findInt32(kKeyHeight, &h));
    EXPECT_TRUE(video->findInt64(kKeyDuration, &d));
    EXPECT_EQ(w, 176);
    EXPECT_EQ(h, 144);
    EXPECT_EQ(d, 9000000);
    EXPECT_TRUE(logs.contains("onMetaData [duration]: 9000000 usec", ANDROID_LOG_DEBUG));
    EXPECT_TRUE(logs.contains("onMetaData [width]: 176", ANDROID_LOG_DEBUG));
}

TEST(FLVMetaDataTest, NonNumberOrShortValuesFailTheFile) {
    const Bytes scripts[] = {
            B::onMetaData({{"width", {0x01, 0x01}}, {"height", B::amfNumber(1)}}),  // Boolean
            B::cat(B::amfString("onMetaData"), {'w', 'i', 'd', 't', 'h', 0, 1, 2, 3, 4, 5, 6}),  // 6 value bytes
    };
    for (const Bytes& s : scripts) {
        LogCapture logs;
        EXPECT_EQ(openFLV(B().header().script(s).audio(0, B::kMP3Stereo44k, {1}).bytes())->countTracks(), 0u);
        EXPECT_TRUE(logs.contains(failLine(kMalformed, 898, "readAndRegisterScriptTag")));
    }
}

}  // namespace
