// ZIRKAVIExtractor on synthetic files: the RIFF walk, stream headers and
// formats, both index kinds, the sample look-ups and seek rules, the source,
// and the fatal checks.
#include <gtest/gtest.h>

#include <map>

#include <media/stagefright/MediaBuffer.h>
#include <media/stagefright/MediaDefs.h>
#include <media/stagefright/MediaErrors.h>
#include <media/stagefright/foundation/ESDS.h>

#include "AVIBuilder.h"
#include "CheckMatchers.h"
#include "LogCapture.h"
#include "TestDataSources.h"
#include "TrackReader.h"
#include "avi/ZIRKAVIExtractor.h"
#include "common/ZIRKESDescriptor.h"
#include "common/ZIRKMetaKeys.h"

using namespace android;
using namespace android::test;
using namespace android::test::avi;

namespace {

const char* const kSource = "avi/ZIRKAVIExtractor";
using SeekMode = MediaSource::ReadOptions::SeekMode;
const SeekMode kPrev = SeekMode::SEEK_PREVIOUS_SYNC, kNext = SeekMode::SEEK_NEXT_SYNC,
               kCloseSync = SeekMode::SEEK_CLOSEST_SYNC, kClosest = SeekMode::SEEK_CLOSEST;

sp<ZIRKAVIExtractor> openBytes(const Bytes& bytes) { return new ZIRKAVIExtractor(new MemorySource(bytes)); }

// `b` with `patch` written over it at `at`.
Bytes put(Bytes b, size_t at, const Bytes& patch) {
    std::copy(patch.begin(), patch.end(), b.begin() + at);
    return b;
}

// One stream with samples of the given sizes (sample i filled with i), key
// frames where `keys` says (all when empty).
AVIFile oneTrack(const Bytes& strhData, const Bytes& strfData, const std::string& suffix,
                 const std::vector<size_t>& sizes, const std::vector<bool>& keys = {}) {
    AVIFile f;
    int s = f.addStream(strhData, strfData, suffix);
    for (size_t i = 0; i < sizes.size(); ++i) f.addSample(s, Bytes(sizes[i], uint8_t(i)), keys.empty() || keys[i]);
    return f;
}

// A 25 fps MJPEG track of `count` frames of 100 + i bytes.
AVIFile mjpegFile(size_t count, const std::vector<bool>& keys = {}) {
    std::vector<size_t> sizes;
    for (size_t i = 0; i < count; ++i) sizes.push_back(100 + i);
    return oneTrack(strh("vids", "MJPG", 1, 25), bitmapInfo(64, 48, "MJPG"), "dc", sizes, keys);
}

// An XVID track of `frames`; kVOL is a configuration before the first VOP.
const Bytes kVOL = {0x00, 0x00, 0x01, 0xB0, 0x01, 0x00, 0x00, 0x01, 0x20, 0x08};
Bytes xvidFile(const std::vector<Bytes>& frames) {
    AVIFile f;
    int v = f.addVideo("XVID", 1, 25);
    for (const Bytes& data : frames) f.addSample(v, data);
    return f.build();
}

// One H.264 frame of 4-byte lengths and no parameter sets; `strfConfig`
// after the BITMAPINFOHEADER (kAVCConfig: an 'avcC' without parameter sets).
const Bytes kAVCConfig = {1, 0x42, 0, 0x1E, 0xFF};
Bytes h264File(const Bytes& strfConfig) {
    AVIFile f;
    f.addSample(f.addVideo("H264", 1, 25, 64, 48, strfConfig), {0, 0, 0, 3, 0x65, 0x88, 0x84});
    return f.build();
}

// Every buffer of the track, read to the end of the stream (and their times).
std::vector<Bytes> readAll(const sp<MediaSource>& source, std::vector<int64_t>* times = nullptr) {
    TrackRead t = readTrack(source);
    EXPECT_EQ(t.end, ERROR_END_OF_STREAM);
    std::vector<Bytes> data;
    for (const Sample& s : t.samples) {
        data.push_back(s.data);
        if (times != nullptr) times->push_back(s.timeUs);
    }
    return data;
}

struct SampleInfo {
    status_t status;
    int64_t offset = -1, timeUs = -1;
    uint32_t size = 99;
    bool key = false;
};
SampleInfo sampleInfo(const sp<ZIRKAVIExtractor>& ex, size_t track, uint32_t i) {
    SampleInfo s;
    s.status = ex->getSampleInfo(track, i, &s.offset, &s.size, &s.key, &s.timeUs);
    return s;
}

// Pins a sniffer that claims a short header, another RIFF form, or a form
// type compared without case. (The confidence, and outputs left alone when
// not claimed: EntrySniffTest.)
TEST(AVISniffTest, RecognisesOnlyRiffAviForm) {
    const Bytes good = {'R', 'I', 'F', 'F', 0, 0, 0, 0, 'A', 'V', 'I', ' '};
    const std::pair<Bytes, bool> cases[] = {{good, true}, {Bytes(good.begin(), good.end() - 1), false},
                                            {put(good, 11, {'X'}), false}, {put(good, 8, {'W'}), false},
                                            {put(good, 3, {'X'}), false}, {put(good, 8, {'a'}), false}};
    for (const auto& c : cases) {
        String8 mime("untouched");
        float confidence = -1.0f;
        EXPECT_EQ(ZIRKSniffAVI(new MemorySource(c.first), &mime, &confidence, nullptr), c.second);
        EXPECT_STREQ(mime.c_str(), c.second ? MEDIA_MIMETYPE_CONTAINER_AVI : "untouched");
    }
    EXPECT_STREQ(getZirkAviExtractorVersion(), "QVX_libaviextractor_Rev10016_build_on_Nov 21 2013");
}

// What opening a file gives: its status (a failed file has no tracks and
// no MIME type), the first track's MIME type, and the report logged. Pins
// each refusal below, the 100-stream limit and its status, and the format
// look-ups (handler first, then compression; extensible formats by GUID).
TEST(AVIOpenTest, StatusFormatAndReport) {
    const Bytes good = mjpegFile(2).build();
    const size_t idx1 = findFourcc(good, "idx1");
    auto streams = [](int count) {
        AVIFile f;
        for (int s = 0; s < count; ++s) f.addSample(f.addVideo("MJPG", 1, 25), Bytes(10, s));
        return f.build();
    };
    // An OpenDML file whose one standard index entry is patched.
    const Bytes dml = mjpegFile(1).build(AVIFile::kOpenDML);
    const size_t ix = findFourcc(dml, "ix00");
    auto video = [](const std::string& handler, const std::string& compression) {
        return oneTrack(strh("vids", handler, 1, 25), bitmapInfo(8, 8, compression), "dc", {64}).build();
    };
    auto audio = [](uint32_t scale, uint32_t rate, uint32_t sampleSize, const Bytes& format) {
        return oneTrack(strh("auds", "", scale, rate, sampleSize), format, "wb", {64}).build();
    };
    // WAVEFORMATEXTENSIBLE tails: valid bits, channel mask, the PCM and AC-3 GUIDs.
    const Bytes pcmTail = hexBytes("1000030000000100000000001000800000AA00389B71");
    const Bytes ac3Tail = hexBytes("1000030000002C806DE046DBCF11B4D100805F6CBBEA");
    const struct {
        const char* name;
        Bytes bytes;
        status_t status;
        const char* mime = nullptr;  // of track 0, when OK
        const char* log = nullptr;   // logged once
        int prio = ANDROID_LOG_WARN;
        size_t tracks = 1;           // when OK
    } cases[] = {
        {"no index", mjpegFile(2).build(AVIFile::kNoIndex), ERROR_MALFORMED},
        {"no movi", put(good, findFourcc(good, "movi"), {'x'}), ERROR_MALFORMED},
        {"empty", {}, ERROR_MALFORMED},
        {"100 streams", streams(100), OK, MEDIA_MIMETYPE_VIDEO_MJPEG, nullptr, 0, 100},
        {"101 streams", streams(101), -34},
        // idx1 entry 1 (of 2) names another chunk; the last row's first
        // sample points at garbage under both offset readings.
        {"index says audio", put(good, idx1 + 24, {'0', '0', 'w', 'b'}), ERROR_MALFORMED},
        {"index says stream 1", put(good, idx1 + 24, {'0', '1'}), ERROR_MALFORMED},
        {"index stream not a number", put(good, idx1 + 24, {'a'}), ERROR_MALFORMED},
        {"first chunk is garbage", put(good, findFourcc(good, "00dc"), {'z', 'z'}), ERROR_MALFORMED},
        {"strh of 55 bytes", oneTrack(Bytes(55, 0), bitmapInfo(8, 8, "MJPG"), "dc", {64}).build(), ERROR_MALFORMED},
        // (XVID: an MPEG-4 track without a VOP.)
        {"unknown handler, known compression", video("ABCD", "XVID"), ERROR_MALFORMED, nullptr,
         "Unsupported video format 'ABCD'"},
        {"unknown handler and compression", video("ABCD", "QQQQ"), OK, "video/unknown",
         "Unsupported video format 'ABCD'"},
        {"strh and strf disagree", video("MJPG", "DIV3"), OK, MEDIA_MIMETYPE_VIDEO_MJPEG,
         "The video format information is mismatched in 'strh' and 'strf' "},
        {"WVC1 has no lower-case twin", video("wvc1", "wvc1"), OK, "video/unknown", "Unsupported video format 'wvc1'"},
        {"unknown audio tag", audio(1, 8000, 0, waveFormat(0x1234, 1, 8000, 2, 16)), OK, "application/octet-stream",
         "Unsupported audio format = 0x1234"},
        {"extensible PCM", audio(4, 192000, 4, waveFormat(0xFFFE, 2, 48000, 4, 16, pcmTail)), OK,
         MEDIA_MIMETYPE_AUDIO_RAW},
        {"extensible AC-3", audio(1, 48000, 0, waveFormat(0xFFFE, 2, 48000, 4, 16, ac3Tail)), OK,
         MEDIA_MIMETYPE_AUDIO_AC3},
        {"block align mismatch", audio(2, 16000, 4, waveFormat(1, 1, 8000, 2, 16)), OK, MEDIA_MIMETYPE_AUDIO_RAW,
         "nBlockAlign is not same as dwSampleSize in AVI stream header 2 vs. 4 "},
        // The MPEG-4 configuration is what precedes the first VOP of the first
        // non-empty frame: none, or only empty chunks (the search runs past
        // the last sample).
        {"MPEG-4 without a VOP", xvidFile({kVOL}), ERROR_MALFORMED},
        {"MPEG-4 of empty chunks", xvidFile({{}, {}}), -34},
        {"AVC without parameter sets", h264File({}), ERROR_MALFORMED, nullptr,
         "Unable to extract AVC codec specific data", ANDROID_LOG_ERROR},
        {"AVC configuration in strf", h264File(kAVCConfig), OK, MEDIA_MIMETYPE_VIDEO_AVC,
         "Unable to extract AVC codec specific data in sample data. The AVC specific data has already been found "
         "in 'strf'", ANDROID_LOG_INFO},
        {"ix not ix##", put(dml, ix + 1, {'y'}), ERROR_MALFORMED},
        {"ix track out of range", put(dml, ix + 2, {'0', '5'}), ERROR_MALFORMED, nullptr, "Invalid track index!",
         ANDROID_LOG_DEBUG},
        {"ix chunk id stream differs", put(dml, ix + 16, {'0', '1'}), ERROR_MALFORMED, nullptr,
         "Mismatch track index in FOURCC and CHUNK_ID!", ANDROID_LOG_ERROR},
        {"ix chunk id of audio", put(dml, ix + 18, {'w', 'b'}), ERROR_MALFORMED},
        {"ix size field past the read", put(dml, ix + 4, {0xFF, 0x00}), ERROR_MALFORMED},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        LogCapture log;
        sp<ZIRKAVIExtractor> ex = openBytes(c.bytes);
        EXPECT_EQ(ex->initCheck(), c.status);
        EXPECT_EQ(ex->countTracks(), c.status == OK ? c.tracks : 0u);
        const char* mime = nullptr;
        sp<MetaData> fileMeta = ex->getMetaData();
        EXPECT_EQ(fileMeta->findCString(kKeyMIMEType, &mime), c.status == OK);
        EXPECT_TRUE(c.status != OK || !strcmp(mime, MEDIA_MIMETYPE_CONTAINER_AVI));
        EXPECT_TRUE(c.log == nullptr || log.count(c.log, c.prio) == 1u) << c.log;
        if (c.mime) {
            ASSERT_TRUE(ex->getTrackMetaData(0, 0)->findCString(kKeyMIMEType, &mime));
            EXPECT_STREQ(mime, c.mime);
        }
    }
    // A failed read keeps its own status.
    EXPECT_EQ(sp<ZIRKAVIExtractor>(new ZIRKAVIExtractor(new FaultySource(good, FaultySource::kNegativeRead, 100)))
                      ->initCheck(), ERROR_IO);
}

// The ES descriptor of track 0 ends in the codec configuration: for AAC the
// one built from rate and channels (none for a rate outside the table),
// behind the 22-byte descriptor (a stored one: RealFileTest, avi_mpeg4_aac);
// for MPEG-4 what precedes the first VOP of the first non-empty frame.
TEST(AVIStreamFormatTest, CodecConfigurationsAndPCMSampleSizeMismatch) {
    const Bytes head = {0x03, 0x16, 0, 0, 0, 0x04, 0x11, 0x40, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x05, 2};
    auto aac = [](uint32_t rate) {
        return oneTrack(strh("auds", "", 1024, 44100), waveFormat(0xFF, 2, rate, 4, 16), "wb", {10}).build();
    };
    const struct { const char* name; Bytes file; size_t size; Bytes tail; } cases[] = {
        {"AAC rate index 4, stereo", aac(44100), head.size() + 2, cat({head, {0x32, 0x10}})},
        {"AAC rate outside the table", aac(7350), 0, {}},
        {"MPEG-4", xvidFile({{}, cat({kVOL, {0x00, 0x00, 0x01, 0xB6, 0x10, 0x20}})}), kVOL.size() + 22, kVOL},
    };
    for (const auto& c : cases) {
        sp<ZIRKAVIExtractor> ex = openBytes(c.file);
        ASSERT_EQ(ex->initCheck(), OK) << c.name;
        Bytes esds = findBytes(ex->getTrackMetaData(0, 0), kKeyESDS);
        ASSERT_EQ(esds.size(), c.size) << c.name;
        EXPECT_EQ(Bytes(esds.end() - c.tail.size(), esds.end()), c.tail) << c.name;
    }
    // PCM whose strh sample size (2) is not its block align (4): per chunk.
    AVIFile pcm = oneTrack(strh("auds", "", 1, 22050, 2), waveFormat(1, 2, 22050, 4, 16), "wb", {40});
    sp<ZIRKAVIExtractor> ex = openBytes(pcm.build());
    ASSERT_EQ(ex->initCheck(), OK);
    EXPECT_EQ(ex->trackAt(0).mBytesPerSample, 0u);
}

// idx1 offsets relative to 'movi' or absolute are told apart by where the
// first entry lands; both, and OpenDML, give the same offsets, sizes, times
// and key flags (idx1 flag 0x10; bit 31 of a standard index size marks a
// non-key frame) and read the same samples. Pins also: an idx1 after the
// standard indexes read although they came first (this one is broken),
// odd-sized chunks not padded, and a short chunk tail at the end of hdrl
// (8 bytes claiming 4 GiB) taken for a chunk.
TEST(AVIIndexTest, EveryIndexKindReadsTheSameSamples) {
    AVIFile f;
    int v = f.addVideo("MJPG", 1, 25);
    int a = f.addAudio(waveFormat(0x06, 1, 8000, 1, 8), 1, 8000, 1);
    std::vector<Bytes> video;
    for (int i = 0; i < 4; ++i) {
        video.push_back(Bytes(50 + i, i));
        f.addSample(v, video.back(), i % 3 == 0);
        f.addSample(a, Bytes(160, 0xD5));
    }
    f.mExtraHeaderChunks = {chunk("JUNK", Bytes(3, 0xEE)), chunk("strn", Bytes(5, 'n')), Bytes(8, 0xFF)};
    for (AVIFile::IndexKind kind : {AVIFile::kIdx1Relative, AVIFile::kIdx1Absolute, AVIFile::kOpenDML}) {
        SCOPED_TRACE(kind);
        std::vector<uint64_t> positions;
        Bytes bytes = f.build(kind, &positions);
        if (kind == AVIFile::kOpenDML) {
            append(&bytes, chunk("idx1", put(Bytes(16), 0, {'9', '9', 'z', 'z'})));  // flags, offset and size 0
            setLE32(&bytes, 4, bytes.size() - 8);
        }
        sp<ZIRKAVIExtractor> ex = openBytes(bytes);
        ASSERT_EQ(ex->initCheck(), OK);
        EXPECT_EQ(ex->offsetsAreAbsolute(), kind != AVIFile::kIdx1Relative);
        for (uint32_t i = 0; i < 4; ++i) {
            SampleInfo s = sampleInfo(ex, 0, i);
            ASSERT_EQ(s.status, OK);
            EXPECT_EQ(static_cast<uint64_t>(s.offset), positions[2 * i] + 8);
            EXPECT_TRUE(s.size == 50u + i && s.timeUs == i * 40000 && s.key == (i % 3 == 0)) << i;
        }
        EXPECT_EQ(ex->trackAt(0).mNumSyncSamples, 2u);
        EXPECT_EQ(readAll(ex->getTrack(0)), video);
        EXPECT_EQ(readAll(ex->getTrack(1)).size(), 4u);  // 160-byte chunks = 20 ms pieces
    }
}

// An entry whose chunk is of another stream is dropped (size 0, no read);
// on a size mismatch the chunk header wins, unless it runs past the next
// chunk; the last sample always takes its header's size.
TEST(AVIIndexTest, InvalidFrameIsDroppedAndSizeMismatchResolved) {
    AVIFile f;
    int v = f.addVideo("MJPG", 1, 25);
    int a = f.addAudio(waveFormat(0x55, 1, 44100, 1, 0), 1152, 44100, 0);
    f.addSample(v, Bytes(10, 0));
    f.addSample(v, Bytes(11, 1), true, "01wb", "00dc");
    f.addSample(v, Bytes(12, 2), true, "", "", 30);
    f.addSample(v, Bytes(13, 3), true, "", "", 5);
    f.addSample(a, Bytes(4, 0));
    std::vector<uint64_t> positions;
    Bytes bytes = f.build(AVIFile::kIdx1Relative, &positions);
    LogCapture log;
    sp<ZIRKAVIExtractor> ex = openBytes(bytes);
    ASSERT_EQ(ex->initCheck(), OK);
    EXPECT_EQ(sampleInfo(ex, 0, 1).size, 0u);
    EXPECT_TRUE(log.contains("!!! drop one invalid frame, type: 1 !!!", ANDROID_LOG_WARN));
    EXPECT_EQ(sampleInfo(ex, 0, 2).size, 12u);
    EXPECT_TRUE(log.contains(" Stream data size is mismatched with it in 'idx1'/'indx' chunk", ANDROID_LOG_WARN));
    std::vector<int64_t> times;
    std::vector<Bytes> r = readAll(ex->getTrack(0), &times);
    EXPECT_EQ(r, (std::vector<Bytes>{Bytes(10, 0), Bytes(12, 2), Bytes(13, 3)}));
    EXPECT_EQ(times, (std::vector<int64_t>{0, 80000, 120000}));
    EXPECT_EQ(sampleInfo(ex, 0, 4).status, -34);
    EXPECT_EQ(sampleInfo(ex, 2, 0).status, -34);
    setLE32(&bytes, positions[0] + 4, 500);  // past the next chunk
    EXPECT_EQ(sampleInfo(openBytes(bytes), 0, 0).size, 10u);
}

// The distance to the next entry is unsigned: a next entry before this one
// is far away (the header's 101 stands), one at the same offset is 0 away (a
// zero-size header stands). Sample 1 is indexed as 5 bytes.
TEST(AVIIndexTest, SizeMismatchMeasuresTheDistanceToTheNextEntryUnsigned) {
    AVIFile f;
    int v = f.addVideo("MJPG", 1, 25);
    for (int i = 0; i < 3; ++i) f.addSample(v, Bytes(100 + i, static_cast<uint8_t>(i)), true, "", "", i == 1 ? 5 : -1);
    std::vector<uint64_t> positions;
    const Bytes good = f.build(AVIFile::kIdx1Relative, &positions);
    const size_t offsetField = findFourcc(good, "idx1") + 8 + 8;  // entry 0's offset
    const struct { const char* name; size_t nextTakes; uint32_t header; uint32_t size; } cases[] = {
        {"next entry before", 0, 101, 101},
        {"next entry at the same offset, empty header", 1, 0, 0},
        {"next entry at the same offset", 1, 101, 5},
    };
    for (const auto& c : cases) {
        Bytes b = good;
        std::copy_n(good.begin() + offsetField + 16 * c.nextTakes, 4, b.begin() + offsetField + 32);
        setLE32(&b, positions[1] + 4, c.header);
        SampleInfo s = sampleInfo(openBytes(b), 0, 1);
        EXPECT_TRUE(s.status == OK && s.size == c.size) << c.name;
    }
}

// A RIFF or movi list of 2 GiB or more is read (legacy 2-4 GiB files): the
// movi list here spans 3 GiB of zeros after its chunks.
TEST(AVIIndexTest, ListsOfTwoGigabytesOrMoreOpen) {
    const uint64_t gap = 3ull << 30;
    Bytes b = mjpegFile(3).build();
    const size_t idx1 = findFourcc(b, "idx1"), movi = findFourcc(b, "movi") - 4;
    for (size_t at : {size_t(4), movi}) setLE32(&b, at, getLE32(b, at) + gap);
    sp<ZIRKAVIExtractor> ex = new ZIRKAVIExtractor(new GapSource(b, idx1, gap));
    ASSERT_EQ(ex->initCheck(), OK);
    EXPECT_EQ(readAll(ex->getTrack(0)).size(), 3u);
}

// Sample times and seek targets. 11 MJPEG frames at 40 ms, key frames 2, 4
// and 8: a closest-sync tie goes to the later key frame. Fixed-size audio
// times come from the first chunk and the average of the rest (16000
// bytes/s; chunks of 1000, 1000, 2000, 3000 bytes average 2000). Every audio
// chunk is a sync point, and t / scale truncates first: (200000 / 3) * 75 /
// 1e6 = 4.99.. -> 4. One fixed-size chunk (average 0/0) and zero scale and
// rate give times of 0, and every seek finds sample 0.
TEST(AVIIndexTest, SampleTimesAndSeekTargets) {
    const Bytes pcmStrh = strh("auds", "", 2, 16000, 2), pcm = waveFormat(1, 1, 8000, 2, 16);
    std::map<std::string, sp<ZIRKAVIExtractor>> files = {
        {"keys", openBytes(mjpegFile(11, {0, 0, 1, 0, 1, 0, 0, 0, 1, 0, 0}).build())},
        {"fixed", openBytes(oneTrack(pcmStrh, pcm, "wb", {1000, 1000, 2000, 3000}).build())},
        {"oneChunk", openBytes(oneTrack(pcmStrh, pcm, "wb", {100}).build())},
        {"zeroRate", openBytes(oneTrack(strh("vids", "MJPG", 0, 0), bitmapInfo(8, 8, "MJPG"), "dc", {10, 10}).build())},
        {"vbr", openBytes(oneTrack(strh("auds", "", 3, 75), waveFormat(0x55, 1, 44100, 1, 0), "wb",
                                   std::vector<size_t>(10, 10), std::vector<bool>(10, false)).build())}};
    for (const auto& f : files) ASSERT_EQ(f.second->initCheck(), OK) << f.first;
    const struct { const char* file; uint32_t sample; int64_t timeUs; } times[] = {
        {"fixed", 0, 0}, {"fixed", 1, 62500}, {"fixed", 2, 187500}, {"fixed", 3, 312500},
        {"oneChunk", 0, 0}, {"zeroRate", 1, 0},
    };
    for (const auto& c : times) {
        int64_t t = -1;
        EXPECT_EQ(files[c.file]->getSampleTime(0, c.sample, &t), OK);
        EXPECT_EQ(t, c.timeUs) << c.file << " " << c.sample;
    }
    const struct { const char* file; int64_t timeUs; SeekMode mode; status_t status; uint32_t index; } seeks[] = {
        {"keys", 0, kClosest, OK, 0}, {"keys", 200000, kClosest, OK, 5}, {"keys", 239999, kClosest, OK, 5},
        {"keys", 99000000, kClosest, OK, 10}, {"keys", -40000, kClosest, OK, 0}, {"keys", 200000, kPrev, OK, 4},
        {"keys", 200000, kNext, OK, 8}, {"keys", 0, kPrev, UNKNOWN_ERROR, static_cast<uint32_t>(-1)},
        {"keys", 360000, kNext, UNKNOWN_ERROR, 11}, {"keys", 0, kCloseSync, OK, 2}, {"keys", 360000, kCloseSync, OK, 8},
        {"keys", 120000, kCloseSync, OK, 4}, {"keys", 240000, kCloseSync, OK, 8}, {"keys", 200000, kCloseSync, OK, 4},
        {"keys", 280000, kCloseSync, OK, 8},
        {"fixed", 0, kPrev, OK, 0}, {"fixed", 62500, kPrev, OK, 0}, {"fixed", 62563, kPrev, OK, 1},
        {"fixed", 200000, kPrev, OK, 2}, {"fixed", 10000000, kPrev, OK, 3},
        {"vbr", 200000, kNext, OK, 4}, {"vbr", 200000, kPrev, OK, 4},
        {"oneChunk", 5000000, kClosest, OK, 0}, {"zeroRate", 5000000, kClosest, OK, 0},
    };
    for (const auto& c : seeks) {
        SCOPED_TRACE(testing::Message() << c.file << " " << c.timeUs << " mode " << c.mode);
        uint32_t index = 12345;
        EXPECT_EQ(files[c.file]->getSampleIndexAtTime(0, c.timeUs, c.mode, &index), c.status);
        EXPECT_TRUE((c.status != OK && c.mode == kCloseSync) || index == c.index) << index;
    }
    uint32_t index;
    EXPECT_EQ(files["keys"]->getSampleIndexAtTime(1, 0, kClosest, &index), -34);
}

// Descriptor lengths are written least significant 7 bits first.
// L = 200: lengths 222 (0xDE 0x01) and 216 (0xD8 0x01).
// Pins a heap overflow: the three lengths change encoded width at different
// configuration lengths (108..125 and 16,362.. among them), and the buffer
// was sized one byte short there. Every length within reach of the 128 and
// 16,384 steps is swept, plus the far end; the descriptor must be exactly
// the bytes written, end in the configuration, and read back through the
// ESDS parser wherever its lengths are one byte (the parser reads longer
// ones most significant group first).
TEST(AVICodecDataTest, MPEG4DescriptorFillsItsBufferExactlyForEveryLength) {
    const std::pair<size_t, Bytes> heads[] = {{3, {0x03, 23, 0, 0, 0, 0x04, 18, 0x01}},
                                              {200, {0x03, 0xDE, 0x01, 0, 0, 0, 0x04, 0xD8, 0x01, 0x01}}};
    Bytes config(300000);
    for (size_t i = 0; i < config.size(); ++i) config[i] = static_cast<uint8_t>(i * 7 + 1);
    for (const auto& h : heads) {
        sp<ABuffer> out = MakeMPEG4VideoCodecSpecificData(new ABuffer(config.data(), h.first));
        ASSERT_NE(out, nullptr);
        EXPECT_EQ(Bytes(out->data(), out->data() + h.second.size()), h.second);
    }
    std::vector<size_t> lengths;
    for (size_t L = 0; L <= 300; ++L) lengths.push_back(L);
    for (size_t L = 16300; L <= 16420; ++L) lengths.push_back(L);
    lengths.push_back(config.size());
    for (size_t L : lengths) {
        sp<ABuffer> out = MakeMPEG4VideoCodecSpecificData(new ABuffer(config.data(), L));
        ASSERT_NE(out, nullptr);
        ASSERT_EQ(out->size(), out->capacity()) << L;
        ASSERT_TRUE(std::equal(config.begin(), config.begin() + L, out->data() + out->size() - L)) << L;
        if (L <= 107) {
            EXPECT_EQ(out->size(), L + 22) << L;
            ESDS esds(out->data(), out->size());
            const void* csd = nullptr;
            size_t csdSize = 0;
            ASSERT_EQ(esds.getCodecSpecificInfo(&csd, &csdSize), OK) << L;
            ASSERT_EQ(csdSize, L);
            EXPECT_TRUE(std::equal(config.begin(), config.begin() + L, static_cast<const uint8_t*>(csd))) << L;
        }
    }
}

// 4-byte lengths become start codes in place; a length running past the
// buffer (or with no payload) ends the rewrite; start codes stay. A read
// hands out the rewritten frame (configuration from 'strf', see AVIOpenTest).
TEST(AVICodecDataTest, AVCLengthsBecomeStartCodes) {
    const std::pair<Bytes, Bytes> cases[] = {
        {{0, 0, 0, 2, 0x65, 0x88, 0, 0, 0, 1, 0x41}, {0, 0, 0, 1, 0x65, 0x88, 0, 0, 0, 1, 0x41}},
        {{0, 0, 0, 1, 0x67, 0, 0, 0, 5}, {0, 0, 0, 1, 0x67, 0, 0, 0, 5}},  // already start codes
        {{0, 0, 0, 1, 0x41, 0, 0, 0, 9}, {0, 0, 0, 1, 0x41, 0, 0, 0, 9}},  // a last length with no payload
        {{0, 0, 0, 2, 0x65, 0x88, 0, 0, 0x10, 0, 0x41, 0x42}, {0, 0, 0, 1, 0x65, 0x88, 0, 0, 0, 1, 0x41, 0x42}},
        {{0, 0, 0, 9}, {0, 0, 0, 9}},
    };
    for (const auto& c : cases) {
        Bytes b = c.first;
        ZIRKAVIRewriteAVCLengths(b.data(), b.size());
        EXPECT_EQ(b, c.second);
    }
    EXPECT_EQ(readAll(openBytes(h264File(kAVCConfig))->getTrack(0)),
              (std::vector<Bytes>{{0, 0, 0, 1, 0x65, 0x88, 0x84}}));
}

// Seeks through the source, the end of the stream after a seek, restart
// after stop(), the format object shared with the extractor, no track past
// the last; buffers sized to the largest frame (105); the thumbnail is the
// largest key frame (3, not the larger non-key 4 and 5, nor the first). A
// chunk that reads short (1) fails its read only; the next read moves on.
TEST(AVISourceTest, SeeksEndOfStreamAndShortReads) {
    AVIFile f = mjpegFile(6, {1, 0, 0, 1, 0, 0});
    sp<ZIRKAVIExtractor> ex =
            new ZIRKAVIExtractor(new FaultySource(f.build(), FaultySource::kHole, f.samplePositions()[1] + 12));
    sp<MediaSource> source = ex->getTrack(0);
    sp<MetaData> meta = source->getFormat();
    EXPECT_EQ(meta.get(), ex->getTrackMetaData(0, 0).get());
    int64_t thumb = 0;
    int32_t maxInput = 0;
    EXPECT_TRUE(meta->findInt32(kKeyMaxInputSize, &maxInput) && maxInput == 105);
    EXPECT_TRUE(meta->findInt64(kKeyThumbnailTime, &thumb) && thumb == 120000);
    EXPECT_TRUE(ex->getTrackMetaData(1, 0) == nullptr && ex->getTrack(1) == nullptr);
    ASSERT_EQ(source->start(), OK);
    MediaSource::ReadOptions options;
    Sample s;
    options.setSeekTo(90000, kNext);
    ASSERT_EQ(readSample(source, &s, &options), OK);
    EXPECT_EQ(s.timeUs, 120000);
    options.setSeekTo(10000000, kNext);
    EXPECT_EQ(readSample(source, &s, &options), ERROR_END_OF_STREAM);
    options.setSeekTo(200000, kClosest);
    ASSERT_EQ(readSample(source, &s, &options), OK);
    EXPECT_EQ(s.data.size(), 105u);
    EXPECT_EQ(readSample(source, &s), ERROR_END_OF_STREAM);
    EXPECT_EQ(source->stop(), OK);
    ASSERT_EQ(source->start(), OK);
    for (status_t expected : {status_t(OK), status_t(ERROR_MALFORMED), status_t(OK)}) {
        ASSERT_EQ(readSample(source, &s), expected);
    }
    EXPECT_EQ(s.timeUs, 80000);
    EXPECT_EQ(source->stop(), OK);
}

sp<MediaSource> mjpegTrack() { return openBytes(mjpegFile(3).build())->getTrack(0); }

// One row per named check. The text stream's format (0 bytes) is accepted
// unread; its index entries would be dropped, so it has none and the finish
// check ends the process.
const struct {
    const char* mName;
    void (*mBody)();
    int mLine;
    const char* mCheck;
} kDeathCases[] = {
    {"TrackWithoutSamples", [] {
         AVIFile f = mjpegFile(1);
         f.addStream(strh("txts", "", 1, 25), Bytes(), "tx");
         openBytes(f.build());
     }, 2122, "CHECK_EQ( (status_t)OK,getSampleTime(i, track->mSamples.size() - 1, &durationUs)) failed: 0 vs. -34"},
    {"EmptyOpenDMLTrack", [] { openBytes(mjpegFile(0).build(AVIFile::kOpenDML)); }, 2378,
     "CHECK_EQ( (status_t)OK,getSampleTime(trackIndex, track->mSamples.size() - 1, &durationUs)) failed: 0 vs. -34"},
    {"UnknownSeekMode", [] {
         uint32_t index;
         openBytes(mjpegFile(3).build())->getSampleIndexAtTime(0, 0, static_cast<SeekMode>(7), &index);
     }, 2787, "CHECK(!\"Should not be here.\") failed."},
    {"ReadBeforeStart", [] { MediaBuffer* buffer; mjpegTrack()->read(&buffer); }, 300, "CHECK(mBufferGroup) failed."},
    {"StopBeforeStart", [] { mjpegTrack()->stop(); }, 284, "CHECK(mBufferGroup) failed."},
    {"StartTwice", [] { sp<MediaSource> s = mjpegTrack(); s->start(); s->start(); }, 236,
     "CHECK(!mBufferGroup) failed."},
};

TEST(AVIDeathTest, ChecksStayFatal) {
    for (const auto& c : kDeathCases) EXPECT_DEATH(c.mBody(), checkMessageAt(kSource, c.mLine, c.mCheck)) << c.mName;
}

}  // namespace
