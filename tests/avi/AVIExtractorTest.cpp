// ZIRKAVIExtractor on synthetic files: the RIFF walk, stream headers and
// formats, both index kinds, the sample look-ups and seek rules, the source,
// and the fatal checks.
#include <gtest/gtest.h>

#include <media/stagefright/MediaBuffer.h>
#include <media/stagefright/MediaDefs.h>
#include <media/stagefright/MediaErrors.h>

#include "AVIBuilder.h"
#include "CheckMatchers.h"
#include "LogCapture.h"
#include "TestDataSources.h"
#include "avi/ZIRKAVIExtractor.h"
#include "common/ZIRKMetaKeys.h"

using namespace android;
using namespace android::test;
using namespace android::test::avi;

namespace {

const char* const kSource = "avi/ZIRKAVIExtractor";
using SeekMode = MediaSource::ReadOptions::SeekMode;

sp<ZIRKAVIExtractor> openBytes(const Bytes& bytes) {
    return new ZIRKAVIExtractor(new MemorySource(bytes));
}

Bytes frame(size_t size, uint8_t fill) { return Bytes(size, fill); }

// Reads that reach into [hole, hole + 4) come back short at the hole.
class HoleSource : public MemorySource {
public:
    HoleSource(Bytes bytes, uint64_t hole) : MemorySource(std::move(bytes)), mHole(hole) {}
    ssize_t readAt(off64_t offset, void* data, size_t size) override {
        uint64_t begin = static_cast<uint64_t>(offset);
        if (begin <= mHole && begin + size > mHole) return MemorySource::readAt(offset, data, mHole - begin);
        return MemorySource::readAt(offset, data, size);
    }

private:
    uint64_t mHole;
};

// A 25 fps MJPEG track with `count` frames of distinct sizes; key frames
// where `keys` says.
AVIFile mjpegFile(size_t count, const std::vector<bool>& keys = {}) {
    AVIFile f;
    int v = f.addVideo("MJPG", 1, 25);
    for (size_t i = 0; i < count; ++i) {
        f.addSample(v, frame(100 + i, static_cast<uint8_t>(i)), keys.empty() ? true : keys[i]);
    }
    return f;
}

struct ReadResult {
    std::vector<Bytes> mData;
    std::vector<int64_t> mTimes;
    status_t mEnd;
};

ReadResult readAll(const sp<MediaSource>& source, const MediaSource::ReadOptions* first = nullptr) {
    ReadResult r;
    EXPECT_EQ(source->start(), OK);
    for (;;) {
        MediaBuffer* buffer = nullptr;
        status_t err = source->read(&buffer, r.mData.empty() ? first : nullptr);
        if (err != OK) {
            r.mEnd = err;
            break;
        }
        const uint8_t* p = static_cast<const uint8_t*>(buffer->data()) + buffer->range_offset();
        r.mData.emplace_back(p, p + buffer->range_length());
        int64_t t = -1;
        EXPECT_TRUE(buffer->meta_data()->findInt64(kKeyTime, &t));
        EXPECT_FALSE(buffer->meta_data()->hasData(kKeyIsSyncFrame));
        r.mTimes.push_back(t);
        buffer->release();
    }
    EXPECT_EQ(source->stop(), OK);
    return r;
}

// ---------------------------------------------------------------------------

TEST(AVISniffTest, RecognisesOnlyRiffAviForm) {
    struct Case {
        const char* name;
        Bytes bytes;
        bool claimed;
    };
    Bytes good = {'R', 'I', 'F', 'F', 0, 0, 0, 0, 'A', 'V', 'I', ' '};
    Bytes eleven(good.begin(), good.begin() + 11);
    Bytes avix = good;
    avix[11] = 'X';
    Bytes wave = {'R', 'I', 'F', 'F', 0, 0, 0, 0, 'W', 'A', 'V', 'E'};
    Bytes rifx = good;
    rifx[3] = 'X';
    Bytes lower = good;
    lower[8] = 'a';
    const Case cases[] = {{"riff avi", good, true},      {"11 bytes", eleven, false},
                          {"AVIX form", avix, false},    {"WAVE form", wave, false},
                          {"RIFX", rifx, false},         {"lower-case form", lower, false}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        String8 mime("untouched");
        float confidence = -1.0f;
        EXPECT_EQ(ZIRKSniffAVI(new MemorySource(c.bytes), &mime, &confidence, nullptr), c.claimed);
        if (c.claimed) {
            EXPECT_STREQ(mime.c_str(), MEDIA_MIMETYPE_CONTAINER_AVI);
            EXPECT_EQ(confidence, 0.21f);
        } else {
            EXPECT_STREQ(mime.c_str(), "untouched");
            EXPECT_EQ(confidence, -1.0f);
        }
    }
    EXPECT_STREQ(getZirkAviExtractorVersion(), "QVX_libaviextractor_Rev10016_build_on_Nov 21 2013");
}

// ---------------------------------------------------------------------------
// RIFF walk

TEST(AVIRiffWalkTest, MinimalFileGivesTrackTableAndMetadata) {
    AVIFile f = mjpegFile(5, {true, false, true, false, false});
    sp<ZIRKAVIExtractor> ex = openBytes(f.build());
    ASSERT_EQ(ex->initCheck(), OK);
    ASSERT_EQ(ex->countTracks(), 1u);
    const char* mime;
    sp<MetaData> fileMeta = ex->getMetaData();
    ASSERT_TRUE(fileMeta->findCString(kKeyMIMEType, &mime));
    EXPECT_STREQ(mime, MEDIA_MIMETYPE_CONTAINER_AVI);
    sp<MetaData> meta = ex->getTrackMetaData(0, 0);
    EXPECT_EQ(meta.get(), ex->getTrackMetaData(0, 0).get());  // the same object
    ASSERT_TRUE(meta->findCString(kKeyMIMEType, &mime));
    EXPECT_STREQ(mime, MEDIA_MIMETYPE_VIDEO_MJPEG);
    int64_t duration, thumb;
    int32_t maxInput, width;
    EXPECT_TRUE(meta->findInt64(kKeyDuration, &duration));
    EXPECT_EQ(duration, 4 * 40000);
    EXPECT_TRUE(meta->findInt32(kKeyMaxInputSize, &maxInput));
    EXPECT_EQ(maxInput, 104);
    // Largest of the key frames 0 and 2.
    EXPECT_TRUE(meta->findInt64(kKeyThumbnailTime, &thumb));
    EXPECT_EQ(thumb, 80000);
    EXPECT_TRUE(meta->findInt32(kKeyWidth, &width));
    EXPECT_EQ(width, 64);
    EXPECT_EQ(ex->getTrackMetaData(1, 0), nullptr);
    EXPECT_EQ(ex->getTrack(1), nullptr);
}

TEST(AVIRiffWalkTest, StructuralFailuresLeaveNoTracks) {
    struct Case {
        const char* name;
        Bytes bytes;
        status_t status;
    };
    AVIFile good = mjpegFile(2);
    Bytes noIndex = good.build(AVIFile::kNoIndex);
    // The hdrl list claiming more than the RIFF list has left.
    Bytes oversized = good.build();
    setLE32(&oversized, 16, 0x00100000);
    // movi renamed: no movie list.
    Bytes noMovi = good.build();
    size_t moviAt = good.movieOffset();
    noMovi[moviAt + 8] = 'x';
    Bytes whole = good.build();
    Bytes truncated(whole.begin(), whole.begin() + 40);
    const Case cases[] = {
        {"no index", noIndex, ERROR_MALFORMED},
        {"oversized chunk", oversized, ERROR_MALFORMED},
        {"no movi", noMovi, ERROR_MALFORMED},
        {"truncated header", truncated, ERROR_MALFORMED},
        {"empty", Bytes(), ERROR_MALFORMED},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        sp<ZIRKAVIExtractor> ex = openBytes(c.bytes);
        EXPECT_EQ(ex->initCheck(), c.status);
        EXPECT_EQ(ex->countTracks(), 0u);
        EXPECT_FALSE(ex->getMetaData()->hasData(kKeyMIMEType));
        const char* mime;
        EXPECT_FALSE(ex->getMetaData()->findCString(kKeyMIMEType, &mime));
    }
    // A failed read keeps its own status.
    sp<ZIRKAVIExtractor> ex =
        new ZIRKAVIExtractor(new FaultySource(good.build(), FaultySource::kNegativeRead, 100));
    EXPECT_EQ(ex->initCheck(), ERROR_IO);
}

TEST(AVIRiffWalkTest, OddSizedChunksArePaddedAndShortTailsIgnored) {
    AVIFile f;
    int v = f.addVideo("MJPG", 1, 25);
    f.addSample(v, frame(7, 1));  // odd: followed by a pad byte
    f.addSample(v, frame(9, 2));
    f.addSample(v, frame(4, 3));
    f.mExtraHeaderChunks.push_back(chunk("JUNK", frame(3, 0xEE)));
    f.mExtraHeaderChunks.push_back(chunk("strn", frame(5, 'n')));
    // Eight bytes that cannot hold a chunk end the hdrl walk quietly.
    f.mExtraHeaderChunks.push_back(Bytes(8, 0xFF));
    sp<ZIRKAVIExtractor> ex = openBytes(f.build());
    ASSERT_EQ(ex->initCheck(), OK);
    ReadResult r = readAll(ex->getTrack(0));
    ASSERT_EQ(r.mData.size(), 3u);
    EXPECT_EQ(r.mData[0], frame(7, 1));
    EXPECT_EQ(r.mData[1], frame(9, 2));
    EXPECT_EQ(r.mData[2], frame(4, 3));
    EXPECT_EQ(r.mEnd, ERROR_END_OF_STREAM);
}

TEST(AVIRiffWalkTest, DeepNestingIsWalkedWithoutRecursionUpToTheCap) {
    // LIST(nest LIST(nest ... JUNK)), written front to back in linear time.
    auto nested = [](size_t depth) {
        Bytes out;
        const uint32_t innermost = 10;  // JUNK with 2 data bytes
        for (size_t i = 0; i < depth; ++i) {
            putFourcc(&out, "LIST");
            putLE32(&out, static_cast<uint32_t>(4 + innermost + 12 * (depth - i - 1)));
            putFourcc(&out, "nest");
        }
        append(&out, chunk("JUNK", frame(2, 0)));
        return out;
    };
    AVIFile f = mjpegFile(2);
    f.mExtraHeaderChunks.push_back(nested(4000));
    sp<ZIRKAVIExtractor> ex = openBytes(f.build());
    EXPECT_EQ(ex->initCheck(), OK);

    AVIFile deep = mjpegFile(2);
    deep.mExtraHeaderChunks.push_back(nested(5000));
    ex = openBytes(deep.build());
    EXPECT_EQ(ex->initCheck(), ERROR_MALFORMED);
}

// ---------------------------------------------------------------------------
// Stream header and format

TEST(AVIStreamFormatTest, StreamCountIsLimitedTo100) {
    for (int streams : {100, 101}) {
        SCOPED_TRACE(streams);
        AVIFile f;
        for (int s = 0; s < streams; ++s) f.addVideo("MJPG", 1, 25);
        for (int s = 0; s < streams; ++s) f.addSample(s, frame(10, s));
        sp<ZIRKAVIExtractor> ex = openBytes(f.build());
        EXPECT_EQ(ex->initCheck(), streams == 100 ? OK : -34);
        EXPECT_EQ(ex->countTracks(), streams == 100 ? 100u : 0u);
    }
}

TEST(AVIStreamFormatTest, HeaderAndFormatRules) {
    struct Case {
        const char* name;
        Bytes strhData;
        Bytes strfData;
        std::string suffix;
        status_t status;
        const char* mime;   // expected track MIME (when OK)
        const char* log;    // expected warning, or null
    };
    Bytes extensiblePCM = waveFormat(0xFFFE, 2, 48000, 4, 16,
                                     {16, 0, 3, 0, 0, 0, 0x01, 0, 0, 0, 0x00, 0x00, 0x10, 0x00,
                                      0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71});
    Bytes extensibleAC3 = waveFormat(0xFFFE, 2, 48000, 4, 16,
                                     {16, 0, 3, 0, 0, 0, 0x2C, 0x80, 0x6D, 0xE0, 0x46, 0xDB, 0xCF,
                                      0x11, 0xB4, 0xD1, 0x00, 0x80, 0x5F, 0x6C, 0xBB, 0xEA});
    const Case cases[] = {
        {"strh of 55 bytes", Bytes(55, 0), bitmapInfo(8, 8, "MJPG"), "dc", ERROR_MALFORMED, nullptr, nullptr},
        {"short video strf", strh("vids", "MJPG", 1, 25), Bytes(39, 0), "dc", ERROR_MALFORMED, nullptr, nullptr},
        {"short audio strf", strh("auds", "", 1, 8000), Bytes(15, 0), "wb", ERROR_MALFORMED, nullptr, nullptr},
        {"unknown handler, known compression", strh("vids", "ABCD", 1, 25), bitmapInfo(8, 8, "XVID"), "dc",
         ERROR_MALFORMED /* MPEG-4 without a VOP */, nullptr, "Unsupported video format 'ABCD'"},
        {"unknown handler and compression", strh("vids", "ABCD", 1, 25), bitmapInfo(8, 8, "QQQQ"), "dc", OK,
         "video/unknown", "Unsupported video format 'ABCD'"},
        {"strh and strf disagree", strh("vids", "MJPG", 1, 25), bitmapInfo(8, 8, "DIV3"), "dc", OK,
         MEDIA_MIMETYPE_VIDEO_MJPEG, "The video format information is mismatched in 'strh' and 'strf' "},
        {"WVC1 has no lower-case twin", strh("vids", "wvc1", 1, 25), bitmapInfo(8, 8, "wvc1"), "dc", OK,
         "video/unknown", "Unsupported video format 'wvc1'"},
        {"unknown audio tag", strh("auds", "", 1, 8000), waveFormat(0x1234, 1, 8000, 2, 16), "wb", OK,
         "application/octet-stream", "Unsupported audio format = 0x1234"},
        {"extensible PCM", strh("auds", "", 4, 192000, 4), extensiblePCM, "wb", OK, MEDIA_MIMETYPE_AUDIO_RAW,
         nullptr},
        {"extensible AC-3", strh("auds", "", 1, 48000), extensibleAC3, "wb", OK, MEDIA_MIMETYPE_AUDIO_AC3,
         nullptr},
        {"block align mismatch", strh("auds", "", 2, 16000, 4), waveFormat(1, 1, 8000, 2, 16), "wb", OK,
         MEDIA_MIMETYPE_AUDIO_RAW, "nBlockAlign is not same as dwSampleSize in AVI stream header 2 vs. 4 "},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        LogCapture log;
        AVIFile f;
        int s = f.addStream(c.strhData, c.strfData, c.suffix);
        Bytes data = frame(64, 0x11);
        f.addSample(s, data);
        sp<ZIRKAVIExtractor> ex = openBytes(f.build());
        EXPECT_EQ(ex->initCheck(), c.status);
        if (c.log) {
            EXPECT_TRUE(log.contains(c.log, ANDROID_LOG_WARN));
        }
        if (c.status != OK) continue;
        const char* mime;
        ASSERT_TRUE(ex->getTrackMetaData(0, 0)->findCString(kKeyMIMEType, &mime));
        EXPECT_STREQ(mime, c.mime);
    }
}

TEST(AVIStreamFormatTest, AudioFormatFieldsAndAACConfig) {
    struct Case {
        const char* name;
        Bytes format;
        Bytes esds;  // empty: none expected
    };
    const Case cases[] = {
        // 44100 Hz is index 4, stereo: 0x30 | 2, (4 << 7 | 2 << 3) & 0xFF.
        {"built config", waveFormat(0xFF, 2, 44100, 4, 16),
         {0x03, 0x16, 0, 0, 0, 0x04, 0x11, 0x40, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x05, 2, 0x32, 0x10}},
        {"rate not in table", waveFormat(0xFF, 2, 7350, 4, 16), {}},
        {"stored config", waveFormat(0xFF, 2, 44100, 4, 16, {0x12, 0x10, 0x56, 0xE5, 0x00}),
         {0x03, 0x19, 0, 0, 0, 0x04, 0x14, 0x40, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x05, 5, 0x12, 0x10,
          0x56, 0xE5, 0x00}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        AVIFile f;
        int a = f.addAudio(c.format, 1024, 44100, 0);
        f.addSample(a, frame(10, 0));
        sp<ZIRKAVIExtractor> ex = openBytes(f.build());
        ASSERT_EQ(ex->initCheck(), OK);
        sp<MetaData> meta = ex->getTrackMetaData(0, 0);
        uint32_t type;
        const void* data;
        size_t size;
        if (c.esds.empty()) {
            EXPECT_FALSE(meta->findData(kKeyESDS, &type, &data, &size));
        } else {
            ASSERT_TRUE(meta->findData(kKeyESDS, &type, &data, &size));
            EXPECT_EQ(Bytes(static_cast<const uint8_t*>(data), static_cast<const uint8_t*>(data) + size), c.esds);
        }
        int32_t channels, rate;
        EXPECT_TRUE(meta->findInt32(kKeyChannelCount, &channels));
        EXPECT_EQ(channels, 2);
        EXPECT_TRUE(meta->findInt32(kKeySampleRate, &rate));
        EXPECT_EQ(ex->trackAt(0).mAudioType, 0u);
    }

    // PCM fields, and the switch to per-chunk samples on a mismatch.
    AVIFile f;
    int a = f.addAudio(waveFormat(1, 2, 22050, 4, 16), 1, 22050, 2);
    f.addSample(a, frame(40, 0));
    sp<ZIRKAVIExtractor> ex = openBytes(f.build());
    ASSERT_EQ(ex->initCheck(), OK);
    EXPECT_EQ(ex->trackAt(0).mBytesPerSample, 0u);
    EXPECT_EQ(ex->trackAt(0).mBlockAlign, 4u);
    EXPECT_EQ(ex->trackAt(0).mBitsPerSample, 16u);
    EXPECT_EQ(ex->trackAt(0).mAudioType, 2u);
}

// ---------------------------------------------------------------------------
// Indexes and look-ups

TEST(AVIIndexTest, RelativeAndAbsoluteOffsetsReadTheSameSamples) {
    AVIFile f;
    int v = f.addVideo("MJPG", 1, 25);
    int a = f.addAudio(waveFormat(1, 1, 8000, 2, 16), 2, 16000, 2);
    for (int i = 0; i < 4; ++i) {
        f.addSample(v, frame(50 + i, i));
        f.addSample(a, frame(320, 0x80 + i));
    }
    for (AVIFile::IndexKind kind : {AVIFile::kIdx1Relative, AVIFile::kIdx1Absolute, AVIFile::kOpenDML}) {
        SCOPED_TRACE(kind);
        sp<ZIRKAVIExtractor> ex = openBytes(f.build(kind));
        ASSERT_EQ(ex->initCheck(), OK);
        EXPECT_EQ(ex->offsetsAreAbsolute(), kind != AVIFile::kIdx1Relative);
        std::vector<uint64_t> positions = f.samplePositions(kind);
        for (uint32_t i = 0; i < 4; ++i) {
            int64_t offset, time;
            uint32_t size;
            bool key;
            ASSERT_EQ(ex->getSampleInfo(0, i, &offset, &size, &key, &time), OK);
            EXPECT_EQ(static_cast<uint64_t>(offset), positions[2 * i] + 8);
            EXPECT_EQ(size, 50u + i);
            EXPECT_EQ(time, i * 40000);
        }
        ReadResult r = readAll(ex->getTrack(0));
        ASSERT_EQ(r.mData.size(), 4u);
        EXPECT_EQ(r.mData[3], frame(53, 3));
    }
}

TEST(AVIIndexTest, MalformedIndexEntriesRejectTheFile) {
    struct Case {
        const char* name;
        std::string indexId;
    };
    const Case cases[] = {{"audio suffix on a video stream", "00wb"},
                          {"stream number out of range", "01dc"},
                          {"stream number not digits", "a0dc"}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        AVIFile f;
        int v = f.addVideo("MJPG", 1, 25);
        f.addSample(v, frame(10, 0));
        f.addSample(v, frame(10, 1), true, "", c.indexId);
        EXPECT_EQ(openBytes(f.build())->initCheck(), ERROR_MALFORMED);
    }
    // The first sample pointing at garbage under both readings fails.
    AVIFile f;
    int v = f.addVideo("MJPG", 1, 25);
    f.addSample(v, frame(10, 0), true, "zzdc", "00dc");
    EXPECT_EQ(openBytes(f.build())->initCheck(), ERROR_MALFORMED);
    // An idx1 whose size is not a multiple of 16.
    Bytes bytes = mjpegFile(2).build();
    size_t idx1At = bytes.size() - 2 * 16 - 8;
    setLE32(&bytes, idx1At + 4, 31);
    EXPECT_EQ(openBytes(bytes)->initCheck(), ERROR_MALFORMED);
}

TEST(AVIIndexTest, InvalidFrameIsDroppedAndSizeMismatchResolved) {
    AVIFile f;
    int v = f.addVideo("MJPG", 1, 25);
    int a = f.addAudio(waveFormat(0x55, 1, 44100, 1, 0), 1152, 44100, 0);
    f.addSample(v, frame(10, 0));
    f.addSample(v, frame(11, 1), true, "01wb", "00dc");  // the index says video, the file audio
    f.addSample(v, frame(12, 2), true, "", "", 30);       // index size 30, header 12: header wins
    f.addSample(v, frame(13, 3), true, "", "", 5);        // last: header size 13 is used
    f.addSample(a, frame(4, 0));
    LogCapture log;
    sp<ZIRKAVIExtractor> ex = openBytes(f.build());
    ASSERT_EQ(ex->initCheck(), OK);
    int64_t offset = -5, time;
    uint32_t size = 99;
    bool key;
    ASSERT_EQ(ex->getSampleInfo(0, 1, &offset, &size, &key, &time), OK);
    EXPECT_EQ(size, 0u);
    EXPECT_TRUE(log.contains("!!! drop one invalid frame, type: 1 !!!", ANDROID_LOG_WARN));
    ASSERT_EQ(ex->getSampleInfo(0, 2, &offset, &size, &key, &time), OK);
    EXPECT_EQ(size, 12u);
    EXPECT_TRUE(log.contains(" Stream data size is mismatched with it in 'idx1'/'indx' chunk", ANDROID_LOG_WARN));
    ReadResult r = readAll(ex->getTrack(0));
    ASSERT_EQ(r.mData.size(), 3u);
    EXPECT_EQ(r.mTimes, (std::vector<int64_t>{0, 80000, 120000}));
    EXPECT_EQ(r.mData[2], frame(13, 3));
    EXPECT_EQ(ex->getSampleInfo(0, 4, &offset, &size, &key, &time), -34);
    EXPECT_EQ(ex->getSampleInfo(2, 0, &offset, &size, &key, &time), -34);
}

TEST(AVIIndexTest, SizeMismatchTakesIndexSizeWhenHeaderOverrunsNextChunk) {
    AVIFile f;
    int v = f.addVideo("MJPG", 1, 25);
    f.addSample(v, frame(10, 0));
    f.addSample(v, frame(10, 1));
    Bytes bytes = f.build();
    std::vector<uint64_t> pos = f.samplePositions();
    setLE32(&bytes, pos[0] + 4, 500);  // the header claims past the next chunk
    sp<ZIRKAVIExtractor> ex = openBytes(bytes);
    ASSERT_EQ(ex->initCheck(), OK);
    int64_t offset, time;
    uint32_t size;
    bool key;
    ASSERT_EQ(ex->getSampleInfo(0, 0, &offset, &size, &key, &time), OK);
    EXPECT_EQ(size, 10u);
}

TEST(AVIIndexTest, FixedSizeAudioTimesComeFromTheAverageChunk) {
    // 16-bit mono at 8000 Hz: 16000 bytes per second. Chunks of 1000, 1000,
    // 2000 and 3000 bytes average 2000 over chunks 1..3.
    AVIFile f;
    int a = f.addAudio(waveFormat(1, 1, 8000, 2, 16), 2, 16000, 2);
    for (size_t s : {1000u, 1000u, 2000u, 3000u}) f.addSample(a, frame(s, 0));
    sp<ZIRKAVIExtractor> ex = openBytes(f.build());
    ASSERT_EQ(ex->initCheck(), OK);
    EXPECT_EQ(ex->trackAt(0).mFirstChunkSize, 1000u);
    EXPECT_DOUBLE_EQ(ex->trackAt(0).mAvgChunkSize, 2000.0);
    const int64_t expected[] = {0, 62500, 187500, 312500};
    for (uint32_t i = 0; i < 4; ++i) {
        int64_t t;
        ASSERT_EQ(ex->getSampleTime(0, i, &t), OK);
        EXPECT_EQ(t, expected[i]) << i;
    }
    // Time → sample: position (t * 2 / 2) * 16000 / 1e6 bytes.
    struct Seek {
        int64_t timeUs;
        uint32_t index;
    };
    for (const Seek& s : {Seek{0, 0}, Seek{62500, 0}, Seek{62563, 1}, Seek{200000, 2}, Seek{10000000, 3}}) {
        uint32_t index = 99;
        ASSERT_EQ(ex->getSampleIndexAtTime(0, s.timeUs, SeekMode::SEEK_PREVIOUS_SYNC, &index), OK);
        EXPECT_EQ(index, s.index) << s.timeUs;
    }
}

TEST(AVIIndexTest, OneChunkFixedSizeTrackHasDefinedTimesAndSeeks) {
    AVIFile f;
    int a = f.addAudio(waveFormat(1, 1, 8000, 2, 16), 2, 16000, 2);
    f.addSample(a, frame(100, 0));
    sp<ZIRKAVIExtractor> ex = openBytes(f.build());
    ASSERT_EQ(ex->initCheck(), OK);
    uint32_t index = 9;
    EXPECT_EQ(ex->getSampleIndexAtTime(0, 5000000, SeekMode::SEEK_CLOSEST, &index), OK);
    EXPECT_EQ(index, 0u);
}

TEST(AVIIndexTest, ZeroScaleAndRateGiveDefinedResults) {
    AVIFile f;
    int v = f.addVideo("MJPG", 0, 0);
    f.addSample(v, frame(10, 0));
    f.addSample(v, frame(10, 1));
    sp<ZIRKAVIExtractor> ex = openBytes(f.build());
    ASSERT_EQ(ex->initCheck(), OK);
    int64_t t = -1;
    EXPECT_EQ(ex->getSampleTime(0, 1, &t), OK);
    EXPECT_EQ(t, 0);
    uint32_t index = 9;
    EXPECT_EQ(ex->getSampleIndexAtTime(0, 1000000, SeekMode::SEEK_CLOSEST, &index), OK);
    EXPECT_EQ(index, 0u);
}

TEST(AVISeekTest, ModesFollowKeyFrames) {
    // 11 frames at 25 fps (40 ms); key frames 2, 4 and 8.
    std::vector<bool> keys = {false, false, true, false, true, false, false, false, true, false, false};
    sp<ZIRKAVIExtractor> ex = openBytes(mjpegFile(11, keys).build());
    ASSERT_EQ(ex->initCheck(), OK);
    struct Case {
        int64_t timeUs;
        SeekMode mode;
        status_t status;
        uint32_t index;
    };
    const Case cases[] = {
        {0, SeekMode::SEEK_CLOSEST, OK, 0},
        {200000, SeekMode::SEEK_CLOSEST, OK, 5},
        {239999, SeekMode::SEEK_CLOSEST, OK, 5},
        {99000000, SeekMode::SEEK_CLOSEST, OK, 10},
        {-40000, SeekMode::SEEK_CLOSEST, OK, 0},
        {200000, SeekMode::SEEK_PREVIOUS_SYNC, OK, 4},
        {200000, SeekMode::SEEK_NEXT_SYNC, OK, 8},
        {0, SeekMode::SEEK_PREVIOUS_SYNC, UNKNOWN_ERROR, static_cast<uint32_t>(-1)},
        {360000, SeekMode::SEEK_NEXT_SYNC, UNKNOWN_ERROR, 11},
        {0, SeekMode::SEEK_CLOSEST_SYNC, OK, 2},
        {360000, SeekMode::SEEK_CLOSEST_SYNC, OK, 8},
        {120000, SeekMode::SEEK_CLOSEST_SYNC, OK, 4},  // 3: one from 2 and from 4: the later wins
        {240000, SeekMode::SEEK_CLOSEST_SYNC, OK, 8},  // 6: two from 4 and from 8: the later wins
        {200000, SeekMode::SEEK_CLOSEST_SYNC, OK, 4},  // 5: nearer to 4
        {280000, SeekMode::SEEK_CLOSEST_SYNC, OK, 8},  // 7: nearer to 8
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << c.timeUs << " mode " << c.mode);
        uint32_t index = 12345;
        EXPECT_EQ(ex->getSampleIndexAtTime(0, c.timeUs, c.mode, &index), c.status);
        if (c.status == OK || c.mode != SeekMode::SEEK_CLOSEST_SYNC) {
            EXPECT_EQ(index, c.index);
        }
    }
    uint32_t index;
    EXPECT_EQ(ex->getSampleIndexAtTime(1, 0, SeekMode::SEEK_CLOSEST, &index), -34);
}

TEST(AVISeekTest, CloseSyncTieGoesToTheLaterKeyFrame) {
    // Key frames 0 and 10; sample 5 is exactly between them.
    std::vector<bool> keys(11, false);
    keys[0] = keys[10] = true;
    sp<ZIRKAVIExtractor> ex = openBytes(mjpegFile(11, keys).build());
    uint32_t index = 0;
    ASSERT_EQ(ex->getSampleIndexAtTime(0, 200000, SeekMode::SEEK_CLOSEST_SYNC, &index), OK);
    EXPECT_EQ(index, 10u);
}

TEST(AVISeekTest, AudioChunksAreAllSyncPointsAndSeekTimesTruncateEarly) {
    // Scale 3 and rate 75: 25 chunks per second; t / 3 truncates first.
    AVIFile f;
    int a = f.addAudio(waveFormat(0x55, 1, 44100, 1, 0), 3, 75, 0);
    for (int i = 0; i < 10; ++i) f.addSample(a, frame(10, i), false);
    sp<ZIRKAVIExtractor> ex = openBytes(f.build());
    ASSERT_EQ(ex->initCheck(), OK);
    uint32_t index = 0;
    ASSERT_EQ(ex->getSampleIndexAtTime(0, 200000, SeekMode::SEEK_NEXT_SYNC, &index), OK);
    EXPECT_EQ(index, 4u);  // (200000 / 3) * 75 / 1e6 = 4.99.. → 4
    ASSERT_EQ(ex->getSampleIndexAtTime(0, 200000, SeekMode::SEEK_PREVIOUS_SYNC, &index), OK);
    EXPECT_EQ(index, 4u);
}

// ---------------------------------------------------------------------------
// OpenDML

TEST(AVIOpenDMLTest, SuperAndStandardIndexesReadEndToEnd) {
    AVIFile f;
    int v = f.addVideo("MJPG", 1, 25);
    int a = f.addAudio(waveFormat(0x06, 1, 8000, 1, 8), 1, 8000, 1);
    for (int i = 0; i < 6; ++i) {
        f.addSample(v, frame(200 + i, i), i % 3 == 0);
        f.addSample(a, frame(160, 0xD5));
    }
    Bytes bytes = f.build(AVIFile::kOpenDML);
    // An idx1 after the indx is ignored, even a broken one.
    Bytes broken = idx1({{"99zz", 0, 0, 0}});
    bytes.insert(bytes.end(), broken.begin(), broken.end());
    setLE32(&bytes, 4, static_cast<uint32_t>(bytes.size() - 8));
    sp<ZIRKAVIExtractor> ex = openBytes(bytes);
    ASSERT_EQ(ex->initCheck(), OK);
    ASSERT_EQ(ex->countTracks(), 2u);
    EXPECT_TRUE(ex->offsetsAreAbsolute());
    const ZIRKAVIExtractor::Track& video = ex->trackAt(0);
    ASSERT_EQ(video.mSamples.size(), 6u);
    for (size_t i = 0; i < 6; ++i) EXPECT_EQ(video.mSamples[i].mIsKey, i % 3 == 0) << i;
    EXPECT_EQ(video.mNumSyncSamples, 2u);
    ReadResult r = readAll(ex->getTrack(0));
    ASSERT_EQ(r.mData.size(), 6u);
    for (size_t i = 0; i < 6; ++i) {
        EXPECT_EQ(r.mData[i], frame(200 + i, i));
        EXPECT_EQ(r.mTimes[i], static_cast<int64_t>(i) * 40000);
    }
    ReadResult audio = readAll(ex->getTrack(1));
    EXPECT_EQ(audio.mData.size(), 6u);  // 160-byte chunks = 20 ms pieces
}

TEST(AVIOpenDMLTest, StandardIndexRules) {
    AVIFile f;
    int v = f.addVideo("MJPG", 1, 25);
    f.addSample(v, frame(16, 1));
    Bytes good = f.build(AVIFile::kOpenDML);
    std::vector<uint64_t> pos = f.samplePositions(AVIFile::kOpenDML);
    size_t ixAt = good.size() - (32 + 8);
    ASSERT_EQ(good[ixAt], 'i');

    struct Case {
        const char* name;
        size_t at;
        std::vector<uint8_t> patch;
        status_t status;
        const char* log;
    };
    const Case cases[] = {
        {"not ix##", ixAt + 1, {'y'}, ERROR_MALFORMED, nullptr},
        {"track out of range", ixAt + 2, {'0', '5'}, ERROR_MALFORMED, "Invalid track index!"},
        {"chunk id stream differs", ixAt + 16, {'0', '1'}, ERROR_MALFORMED,
         "Mismatch track index in FOURCC and CHUNK_ID!"},
        {"chunk id of audio", ixAt + 18, {'w', 'b'}, ERROR_MALFORMED, nullptr},
        {"size field past the read", ixAt + 4, {0xFF, 0x00}, ERROR_MALFORMED, nullptr},
        // 0x80001000: a 4096-byte non-key sample (the chunk is then short).
        {"non-key 4096", ixAt + 36, {0x00, 0x10, 0x00, 0x80}, OK, nullptr},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        LogCapture log;
        Bytes bytes = good;
        for (size_t i = 0; i < c.patch.size(); ++i) bytes[c.at + i] = c.patch[i];
        sp<ZIRKAVIExtractor> ex = openBytes(bytes);
        EXPECT_EQ(ex->initCheck(), c.status);
        if (c.log) {
            EXPECT_EQ(log.count(c.log), 1u);
        }
        if (c.status == OK) {
            EXPECT_EQ(ex->trackAt(0).mSamples[0].mSize, 4096u);
            EXPECT_FALSE(ex->trackAt(0).mSamples[0].mIsKey);
            EXPECT_EQ(ex->trackAt(0).mSamples[0].mOffset, pos[0]);
        }
    }
}

// ---------------------------------------------------------------------------
// Codec-specific data

TEST(AVICodecDataTest, MPEG4ConfigIsWrappedWithLeastSignificantLengthFirst) {
    struct Case {
        size_t length;
        Bytes head;  // expected first bytes
    };
    // L = 200: a = 2 + 200, b = 2 + 203; lengths b + 17 = 222 (0xDE 0x01)
    // and a + 14 = 216 (0xD8 0x01), L = 200 (0xC8 0x01).
    const Case cases[] = {
        {3, {0x03, 23, 0, 0, 0, 0x04, 18, 0x01}},
        {200, {0x03, 0xDE, 0x01, 0, 0, 0, 0x04, 0xD8, 0x01, 0x01}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.length);
        Bytes config(c.length, 0xAB);
        sp<ABuffer> in = new ABuffer(config.data(), config.size());
        sp<ABuffer> out = MakeMPEG4VideoCodecSpecificData(in);
        ASSERT_NE(out, nullptr);
        Bytes got(out->data(), out->data() + out->size());
        ASSERT_GE(got.size(), c.head.size());
        EXPECT_EQ(Bytes(got.begin(), got.begin() + c.head.size()), c.head);
        EXPECT_EQ(Bytes(got.end() - c.length, got.end()), config);
        if (c.length <= 124) {
            EXPECT_EQ(got.size(), c.length + 22);
        }
    }
}

TEST(AVICodecDataTest, MPEG4TrackTakesConfigFromFirstNonEmptyFrame) {
    Bytes vol = {0x00, 0x00, 0x01, 0xB0, 0x01, 0x00, 0x00, 0x01, 0x20, 0x08};
    Bytes vop = vol;
    vop.insert(vop.end(), {0x00, 0x00, 0x01, 0xB6, 0x10, 0x20});
    AVIFile f;
    int v = f.addVideo("XVID", 1, 25);
    f.addSample(v, Bytes());  // empty chunk first, as muxers write for audio delay
    f.addSample(v, vop);
    sp<ZIRKAVIExtractor> ex = openBytes(f.build());
    ASSERT_EQ(ex->initCheck(), OK);
    uint32_t type;
    const void* data;
    size_t size;
    ASSERT_TRUE(ex->getTrackMetaData(0, 0)->findData(kKeyESDS, &type, &data, &size));
    EXPECT_EQ(type, static_cast<uint32_t>(kTypeESDS));
    ASSERT_EQ(size, vol.size() + 22);
    EXPECT_EQ(Bytes(static_cast<const uint8_t*>(data) + 22, static_cast<const uint8_t*>(data) + size), vol);

    AVIFile noVop;
    v = noVop.addVideo("XVID", 1, 25);
    noVop.addSample(v, vol);
    EXPECT_EQ(openBytes(noVop.build())->initCheck(), ERROR_MALFORMED);
}

TEST(AVICodecDataTest, AVCRewriteEdgeCases) {
    struct Case {
        const char* name;
        Bytes in;
        Bytes out;
    };
    const Case cases[] = {
        {"two units", {0, 0, 0, 2, 0x65, 0x88, 0, 0, 0, 1, 0x41},
         {0, 0, 0, 1, 0x65, 0x88, 0, 0, 0, 1, 0x41}},
        {"already start codes", {0, 0, 0, 1, 0x67, 0, 0, 0, 5}, {0, 0, 0, 1, 0x67, 0, 0, 0, 5}},
        {"length overruns", {0, 0, 0, 1 + 1, 0x65, 0x88, 0, 0, 0x10, 0, 0x41, 0x42},
         {0, 0, 0, 1, 0x65, 0x88, 0, 0, 0, 1, 0x41, 0x42}},
        {"four bytes only", {0, 0, 0, 9}, {0, 0, 0, 9}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Bytes b = c.in;
        ZIRKAVIRewriteAVCLengths(b.data(), b.size());
        EXPECT_EQ(b, c.out);
    }
}

TEST(AVICodecDataTest, AVCWithoutParameterSetsNeedsStrfConfig) {
    Bytes slice = {0, 0, 0, 3, 0x65, 0x88, 0x84};
    for (bool withStrfConfig : {false, true}) {
        SCOPED_TRACE(withStrfConfig);
        LogCapture log;
        AVIFile f;
        Bytes extra = withStrfConfig ? Bytes{1, 0x42, 0, 0x1E, 0xFF} : Bytes();
        int v = f.addVideo("H264", 1, 25, 64, 48, extra);
        f.addSample(v, slice);
        sp<ZIRKAVIExtractor> ex = openBytes(f.build());
        if (withStrfConfig) {
            ASSERT_EQ(ex->initCheck(), OK);
            EXPECT_TRUE(log.contains("Unable to extract AVC codec specific data in sample data. The AVC "
                                     "specific data has already been found in 'strf'",
                                     ANDROID_LOG_INFO));
            ReadResult r = readAll(ex->getTrack(0));
            ASSERT_EQ(r.mData.size(), 1u);
            EXPECT_EQ(r.mData[0], (Bytes{0, 0, 0, 1, 0x65, 0x88, 0x84}));
        } else {
            EXPECT_EQ(ex->initCheck(), ERROR_MALFORMED);
            EXPECT_TRUE(log.contains("Unable to extract AVC codec specific data", ANDROID_LOG_ERROR));
        }
    }
}

// ---------------------------------------------------------------------------
// Source

TEST(AVISourceTest, SeeksAndEndOfStream) {
    std::vector<bool> keys = {true, false, false, true, false, false};
    sp<ZIRKAVIExtractor> ex = openBytes(mjpegFile(6, keys).build());
    sp<MediaSource> source = ex->getTrack(0);
    EXPECT_EQ(source->getFormat().get(), ex->getTrackMetaData(0, 0).get());
    ASSERT_EQ(source->start(), OK);
    MediaSource::ReadOptions options;
    MediaBuffer* buffer = nullptr;
    options.setSeekTo(90000, SeekMode::SEEK_NEXT_SYNC);
    ASSERT_EQ(source->read(&buffer, &options), OK);
    int64_t t;
    ASSERT_TRUE(buffer->meta_data()->findInt64(kKeyTime, &t));
    EXPECT_EQ(t, 120000);
    buffer->release();
    options.setSeekTo(10000000, SeekMode::SEEK_NEXT_SYNC);
    EXPECT_EQ(source->read(&buffer, &options), ERROR_END_OF_STREAM);
    EXPECT_EQ(buffer, nullptr);
    options.setSeekTo(200000, SeekMode::SEEK_CLOSEST);
    ASSERT_EQ(source->read(&buffer, &options), OK);
    EXPECT_EQ(buffer->range_length(), 105u);
    buffer->release();
    EXPECT_EQ(source->read(&buffer, nullptr), ERROR_END_OF_STREAM);
    EXPECT_EQ(source->stop(), OK);
    // Restartable.
    EXPECT_EQ(readAll(source).mData.size(), 6u);
}

TEST(AVISourceTest, ChunksLargerThanTheBuffersAndShortReadsFail) {
    AVIFile f;
    int v = f.addVideo("MJPG", 1, 25);
    f.addSample(v, frame(10, 0));
    f.addSample(v, frame(10, 1));
    f.addSample(v, frame(10, 2));
    Bytes bytes = f.build();
    std::vector<uint64_t> pos = f.samplePositions();
    // The last chunk's header claims 4000 bytes: its header size is used,
    // and it does not fit the buffers made from the index.
    setLE32(&bytes, pos[2] + 4, 4000);
    sp<ZIRKAVIExtractor> ex = openBytes(bytes);
    ASSERT_EQ(ex->initCheck(), OK);
    ReadResult r = readAll(ex->getTrack(0));
    EXPECT_EQ(r.mData.size(), 2u);
    EXPECT_EQ(r.mEnd, ERROR_MALFORMED);

    // A truncated chunk: the read fails, the next read moves on.
    Bytes file = f.build();
    sp<ZIRKAVIExtractor> faulty = new ZIRKAVIExtractor(new HoleSource(file, pos[1] + 12));
    ASSERT_EQ(faulty->initCheck(), OK);
    sp<MediaSource> source = faulty->getTrack(0);
    ASSERT_EQ(source->start(), OK);
    MediaBuffer* buffer;
    ASSERT_EQ(source->read(&buffer), OK);
    buffer->release();
    EXPECT_EQ(source->read(&buffer), ERROR_MALFORMED);
    ASSERT_EQ(source->read(&buffer), OK);
    EXPECT_EQ(buffer->range_length(), 10u);
    buffer->release();
    EXPECT_EQ(source->read(&buffer), ERROR_END_OF_STREAM);
    source->stop();
}

// ---------------------------------------------------------------------------
// Fatal checks

// One row per named check: {name, body, line, check text}. The text stream's
// format (0 bytes) is accepted unread; its index entries would be dropped, so
// it has none and the finish check ends the process.
struct DeathCase {
    const char* mName;
    void (*mBody)();
    int mLine;
    const char* mCheck;
};

const DeathCase kDeathCases[] = {
    {"TrackWithoutSamples", [] {
         AVIFile f;
         int v = f.addVideo("MJPG", 1, 25);
         f.addStream(strh("txts", "", 1, 25), Bytes(), "tx");
         f.addSample(v, frame(10, 0));
         openBytes(f.build());
     }, 2122, "CHECK_EQ( (status_t)OK,getSampleTime(i, track->mSamples.size() - 1, &durationUs)) failed: 0 vs. -34"},
    {"EmptyOpenDMLTrack", [] {
         AVIFile f;
         f.addVideo("MJPG", 1, 25);
         openBytes(f.build(AVIFile::kOpenDML));
     }, 2378, "CHECK_EQ( (status_t)OK,getSampleTime(trackIndex, track->mSamples.size() - 1, &durationUs)) failed: 0 vs. -34"},
    {"UnknownSeekMode", [] {
         uint32_t index;
         openBytes(mjpegFile(3).build())->getSampleIndexAtTime(0, 0, static_cast<SeekMode>(7), &index);
     }, 2787, "CHECK(!\"Should not be here.\") failed."},
    {"ReadBeforeStart", [] {
         MediaBuffer* buffer;
         openBytes(mjpegFile(3).build())->getTrack(0)->read(&buffer);
     }, 300, "CHECK(mBufferGroup) failed."},
    {"StopBeforeStart", [] { openBytes(mjpegFile(3).build())->getTrack(0)->stop(); }, 284, "CHECK(mBufferGroup) failed."},
    {"StartTwice", [] {
         sp<MediaSource> source = openBytes(mjpegFile(3).build())->getTrack(0);
         source->start();
         source->start();
     }, 236, "CHECK(!mBufferGroup) failed."},
};

TEST(AVIDeathTest, ChecksStayFatal) {
    for (const DeathCase& c : kDeathCases) {
        EXPECT_DEATH(c.mBody(), checkMessageAt(kSource, c.mLine, c.mCheck)) << c.mName;
    }
}

}  // namespace
