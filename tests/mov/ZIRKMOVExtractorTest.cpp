// ZIRKMOVExtractor's box walk over synthetic movies: the track list, sample
// entries and codec configurations, several stsd entries, mdat before moov,
// size-0 boxes, rotation, the compressed movie header, file metadata, and the
// fatal checks that files can reach.
#include <zlib.h>

#include <ostream>
#include <string>

#include <gtest/gtest.h>

#include <media/stagefright/MediaDefs.h>
#include <media/stagefright/MediaErrors.h>

#include "CheckMatchers.h"
#include "LogCapture.h"
#include "MOVBuilder.h"
#include "TestDataSources.h"
#include "mov/ZIRKMOVExtractor.h"

using namespace android;
using namespace android::test;
using namespace android::test::mov;

namespace {

// AAC LC: 44100 Hz stereo; 22050 Hz mono; frequency index 15 in 4 bytes.
const Bytes kAAC44Stereo = {0x12, 0x10};
const Bytes kAAC22Mono = {0x13, 0x88};
const Bytes kAACExplicitRateShort = {0x17, 0x80, 0x00, 0x00};
const Bytes kAVCC = {1, 0x42, 0xC0, 0x1E, 0xFF, 0xE0, 0x00};

Bytes avcTrack(const Bytes& config = box("avcC", kAVCC), uint32_t id = 1, Matrix m = kIdentity) {
    return trak(id, "vide", stbl(visualEntry("avc1", 160, 120, config), 1), 1000, 3000, m);
}
Bytes aacTrack(const Bytes& entry = soundEntry("mp4a", 0, 2, 44100, esds(0x40, kAAC44Stereo)), uint32_t id = 2) {
    return trak(id, "soun", stbl(entry, 1));
}
Bytes movie(const Bytes& traks, const Bytes& extra = {}) {
    return cat({box("ftyp", Bytes(8, 'q')), box("moov", cat({fullBox("mvhd", 0, 0, Bytes(96, 0)), traks, extra})),
                box("mdat", Bytes(64, 0))});
}
Bytes zlib(const Bytes& in) {
    uLongf n = compressBound(in.size());
    Bytes out(n);
    compress(out.data(), &n, in.data(), in.size());
    out.resize(n);
    return out;
}
Bytes cmov(const Bytes& header) {
    Bytes dcom = box("dcom", {'z', 'l', 'i', 'b'});
    Bytes cmvd;
    putBE32(&cmvd, header.size());
    append(&cmvd, zlib(header));
    return box("moov", box("cmov", cat({dcom, box("cmvd", cmvd)})));
}
Bytes ilstItem(const std::string& item, uint32_t indicator, const Bytes& value) {
    Bytes data;
    putBE(&data, 4, {indicator, 0});
    append(&data, value);
    return box("udta", fullBox("meta", 0, 0, box("ilst", box(item, box("data", data)))));
}

// What a row pins: a key of track `track` (-1: the file) and its value;
// kAbsent for a key that must not be there, a data key's size in `number`.
enum Kind { kInt, kInt64, kText, kDataSize, kAbsent };
struct Expect {
    int track;
    uint32_t key;
    Kind kind;
    int64_t number;
    const char* text = nullptr;
};

struct Row {
    const char* name;
    Bytes bytes;
    size_t tracks;
    std::vector<Expect> expects;
    const char* log = nullptr;  // a line that must have been logged
};

void PrintTo(const Row& row, std::ostream* os) { *os << row.name; }

class ZIRKMOVExtractorTest : public ::testing::TestWithParam<Row> {};

TEST_P(ZIRKMOVExtractorTest, WalksBoxes) {
    const Row& row = GetParam();
    LogCapture log;
    sp<ZIRKMOVExtractor> extractor = new ZIRKMOVExtractor(new MemorySource(row.bytes));
    ASSERT_EQ(extractor->countTracks(), row.tracks);
    for (const Expect& e : row.expects) {
        sp<MetaData> meta = e.track < 0 ? extractor->getMetaData() : extractor->getTrackMetaData(e.track, 0);
        ASSERT_NE(meta, nullptr);
        SCOPED_TRACE(std::string(1, e.key >> 24) + char(e.key >> 16) + char(e.key >> 8) + char(e.key));
        int32_t i32 = 0;
        int64_t i64 = 0;
        const char* s = "";
        uint32_t type;
        const void* data;
        size_t size = 0;
        switch (e.kind) {
            case kInt: EXPECT_TRUE(meta->findInt32(e.key, &i32)); EXPECT_EQ(i32, e.number); break;
            case kInt64: EXPECT_TRUE(meta->findInt64(e.key, &i64)); EXPECT_EQ(i64, e.number); break;
            case kText: EXPECT_TRUE(meta->findCString(e.key, &s)); EXPECT_STREQ(s, e.text); break;
            case kDataSize: EXPECT_TRUE(meta->findData(e.key, &type, &data, &size)); EXPECT_EQ(size, e.number); break;
            case kAbsent: EXPECT_FALSE(meta->hasData(e.key)); break;
        }
    }
    if (row.log != nullptr) {
        EXPECT_TRUE(log.contains(row.log)) << row.log;
    }
}

Bytes waveAAC() {
    Bytes wave = box("wave", cat({box("frma", {'m', 'p', '4', 'a'}), box("mp4a", Bytes(4, 0)),
                                  esds(0x40, kAAC22Mono), box(std::string(4, '\0'), {})}));
    return aacTrack(soundEntry("mp4a", 1, 2, 44100, wave, Bytes(16, 0)));
}
Bytes imaInWave(uint16_t blockAlign) {
    Bytes wfx(18, 0);
    setLE16(&wfx, 0, 0x11);
    setLE16(&wfx, 12, blockAlign);
    const std::string ima("ms\0\x11", 4);
    Bytes wave = box("wave", cat({box("frma", {'m', 's', 0, 0x11}), box(ima, wfx), box(std::string(4, '\0'), {})}));
    return aacTrack(soundEntry(ima, 1, 1, 8000, wave, Bytes(16, 0)));
}
Bytes v2Sound() {
    Bytes ext(36, 0);
    setBE64(&ext, 4, 0x40E7700000000000ULL);  // 48000.0
    setBE32(&ext, 12, 6);
    return aacTrack(soundEntry("twos", 2, 2, 0, {}, ext));
}
Bytes textTrack() {
    return trak(3, "text", stbl(cat({box("tx3g", Bytes(30, 1)), box("tx3g", Bytes(40, 2))}), 2));
}
Bytes largeSizeBelow16() {
    Bytes b = largeBox("free", {}, 8);
    append(&b, movie(avcTrack()));
    return b;
}

const uint32_t kExt = kKeyMaxInputSize;
const char* kAudioMP4 = "audio/mp4";

INSTANTIATE_TEST_SUITE_P(Movies, ZIRKMOVExtractorTest, ::testing::Values(
    Row{"avc_and_aac", movie(cat({avcTrack(), aacTrack()})), 2,
        {{-1, kKeyMIMEType, kText, 0, "video/quicktime"}, {-1, kKeyDate, kText, 0, "19040101T000000.000Z"},
         {0, kKeyMIMEType, kText, 0, "video/avc"}, {0, kKeyWidth, kInt, 160}, {0, kKeyAVCC, kDataSize, 7},
         {0, kKeyFrameRate, kInt, 1}, {0, kKeyDuration, kInt64, 3000000}, {0, 'lang', kText, 0, "eng"},
         {0, kExt, kInt, 30}, {1, kKeyMIMEType, kText, 0, "audio/mp4a-latm"}, {1, kKeySampleRate, kInt, 44100},
         {1, kKeyChannelCount, kInt, 2}, {1, kKeyTrackID, kInt, 2}, {1, kKeyFrameRate, kAbsent, 0}}},
    Row{"audio_only_is_audio_mp4", movie(aacTrack()), 1, {{-1, kKeyMIMEType, kText, 0, kAudioMP4}}},
    Row{"mdat_before_moov", cat({box("mdat", Bytes(100, 7)), movie(aacTrack())}), 1, {}},
    Row{"size_0_steps_4_bytes", cat({Bytes(4, 0), movie(aacTrack())}), 1, {}},
    Row{"large_size_below_16", largeSizeBelow16(), 0, {}, "countTracks:error in readMetaData, err=fffffc11"},
    Row{"rotation_90", movie(avcTrack(box("avcC", kAVCC), 1, {0, 0x10000, -0x10000, 0})), 1, {{0, kKeyRotation, kInt, 90}}},
    Row{"rotation_180", movie(avcTrack(box("avcC", kAVCC), 1, {-0x10000, 0, 0, -0x10000})), 1, {{0, kKeyRotation, kInt, 180}}},
    Row{"identity_sets_no_rotation", movie(avcTrack()), 1, {{0, kKeyRotation, kAbsent, 0}}},
    Row{"mirror_logs", movie(avcTrack(box("avcC", kAVCC), 1, {-0x10000, 0, 0, 0x10000})), 1, {{0, kKeyRotation, kAbsent, 0}},
        "We only support 0,90,180,270 degree rotation matrices"},
    Row{"two_video_entries_first_used", movie(trak(1, "vide", stbl(cat({visualEntry("mp4v", 0, 0, esds(0x20, {1, 2})),
                                                                        visualEntry("avc1", 64, 64)}), 2))), 1,
        {{0, kKeyMIMEType, kText, 0, "video/mp4v-es"}, {0, kKeyWidth, kInt, 352}, {0, kKeyHeight, kInt, 288}},
        "Track has multiple (2) sample descriptions, use the first"},
    Row{"text_track_keeps_all_entries", movie(textTrack()), 1,
        {{0, kKeyMIMEType, kText, 0, "text/3gpp-tt"}, {0, kKeyTextFormatData, kDataSize, 38 + 48}}},
    Row{"pcm_v1_block_align_default", movie(aacTrack(soundEntry("twos", 1, 2, 8000, {}, Bytes(16, 0)))), 1,
        {{0, kKeyMIMEType, kText, 0, "audio/raw"}, {0, kExt, kInt, 2048 + 20}}},
    Row{"sound_v2_rate_is_double", movie(v2Sound()), 1, {{0, kKeySampleRate, kInt, 48000}, {0, kKeyChannelCount, kInt, 6}}},
    Row{"sound_v3_read_as_v0", movie(aacTrack(soundEntry("samr", 3, 2, 44100))), 1,
        {{0, kKeySampleRate, kInt, 8000}, {0, kKeyChannelCount, kInt, 1}},
        "unsupported sample description entry version 3, only support 0, 1, 2"},
    Row{"wave_esds_updates_audio", movie(waveAAC()), 1, {{0, kKeySampleRate, kInt, 22050}, {0, kKeyChannelCount, kInt, 1}}},
    Row{"ima_block_align_from_wave", movie(imaInWave(1024)), 1, {{0, kExt, kInt, 4 * 1024 + 20}}},
    Row{"esds_9000_bytes", movie(aacTrack(soundEntry("mp4a", 0, 2, 44100, box("esds", Bytes(9000, 0))))), 0, {},
        "ESDS chunk size 9000 too large!"},
    Row{"aac_explicit_rate_too_short", movie(aacTrack(soundEntry("mp4a", 0, 2, 44100, esds(0x40, kAACExplicitRateShort)))), 0, {}},
    Row{"d263_15_bytes", movie(trak(1, "vide", stbl(visualEntry("s263", 176, 144, box("d263", Bytes(15, 0))), 1))), 0, {},
        "Incorrect D263 box size 15"},
    Row{"d263_7_bytes", movie(trak(1, "vide", stbl(visualEntry("s263", 176, 144, box("d263", Bytes(7, 0))), 1))), 1,
        {{0, kKeyD263, kDataSize, 7}}},
    Row{"glbl_under_avc1_skipped", movie(avcTrack(cat({box("avcC", kAVCC), box("glbl", Bytes(20, 0))}))), 1,
        {{0, 'rcsd', kAbsent, 0}}},
    Row{"glbl_under_xvid_kept", movie(trak(1, "vide", stbl(visualEntry("XVID", 64, 64, box("glbl", Bytes(20, 0))), 1))), 1,
        {{0, 'rcsd', kDataSize, 16}, {0, kKeyMIMEType, kText, 0, "video/divx"}}},
    Row{"empty_avcc_dropped", movie(avcTrack(box("avcC", {}))), 1, {{0, kKeyAVCC, kAbsent, 0}},
        "!!! No 'avcC' data is found for mp4 file"},
    Row{"avcc_over_256", movie(avcTrack(box("avcC", Bytes(257, 1)))), 0, {}},
    Row{"max_size_0_defaults", movie(trak(1, "vide", stbl(visualEntry("jpeg", 8, 8), 1, 3, 0))), 1,
        {{0, kExt, kInt, 524288 + 20}}, "max_size=0 is wrong, set default value 512k\n"},
    Row{"ilst_title_and_3gp_year", movie(aacTrack(), cat({ilstItem("\xA9nam", 1, {'H', 'i'}),
                                                         box("udta", fullBox("yrrc", 0, 0, {0x07, 0xDD}))})), 1,
        {{-1, kKeyTitle, kText, 0, "Hi"}, {-1, kKeyYear, kText, 0, "2013"}}},
    // iTunes items and 3GPP strings by their own rules (values at payload offset 8, resp. 6).
    Row{"trkn_16_bytes", movie(aacTrack(), ilstItem("trkn", 0, {0, 0, 0, 3, 0, 12, 0, 0})), 1, {{-1, kKeyCDTrackNumber, kText, 0, "3/12"}}},
    Row{"trkn_indicator_1_ignored", movie(aacTrack(), ilstItem("trkn", 1, {0, 0, 0, 3, 0, 12, 0, 0})), 1, {{-1, kKeyCDTrackNumber, kAbsent, 0}}},
    Row{"binary_genre_is_number_less_1", movie(aacTrack(), ilstItem("gnre", 0, {0, 1})), 1, {{-1, kKeyGenre, kText, 0, "0"}}},
    Row{"albm_hides_track_number", movie(aacTrack(), box("udta", fullBox("albm", 0, 0, cat({{0x15, 0xC7}, {'A', 'l', 'b', 'u', 'm', 0, 7}})))), 1,
        {{-1, kKeyAlbum, kText, 0, "Album"}, {-1, kKeyCDTrackNumber, kText, 0, "7"}}},
    Row{"udta_string_of_2048_ignored", movie(aacTrack(), box("udta", fullBox("titl", 0, 0, Bytes(2044, 'a')))), 1, {{-1, kKeyTitle, kAbsent, 0}}},
    // UTF-16 is kept unconverted: the C string ends at the first zero byte.
    Row{"udta_utf16_kept", movie(aacTrack(), box("udta", fullBox("titl", 0, 0, {0x15, 0xC7, 0xFE, 0xFF, 0, 'A', 0, 'B'}))), 1,
        {{-1, kKeyTitle, kText, 0, "\xFE\xFF"}}},
    Row{"meta_hdlr_before_any_track", cat({box("moov", cat({box("udta", fullBox("meta", 0, 0, hdlr("mdir"))), aacTrack()}))}), 1, {}},
    Row{"old_quicktime_meta_skipped", movie(aacTrack(), box("udta", fullBox("meta", 1, 0, box("ilst", Bytes(3, 0))))), 1, {}},
    Row{"compressed_header", cmov(box("moov", cat({fullBox("mvhd", 0, 0, Bytes(96, 0)), avcTrack(), aacTrack()}))), 2,
        {{1, kKeySampleRate, kInt, 44100}}},
    Row{"zero_type_box_ends_walk", cat({box(std::string(4, '\0'), {}), movie(aacTrack())}), 0, {}, "receive pure 0 FOURCC!"}),
    [](const ::testing::TestParamInfo<Row>& info) { return std::string(info.param.name); });

TEST(ZIRKMOVExtractorQueries, ThumbnailTrackLookupAndReadSize) {
    sp<ZIRKMOVExtractor> extractor = new ZIRKMOVExtractor(new MemorySource(movie(cat({avcTrack(), aacTrack()}))));
    ASSERT_NE(extractor->getTrack(0), nullptr);
    EXPECT_EQ(extractor->getTrack(2), nullptr);
    int64_t thumbnailUs;
    EXPECT_TRUE(extractor->getTrackMetaData(0, MediaExtractor::kIncludeExtensiveMetaData)
                        ->findInt64(kKeyThumbnailTime, &thumbnailUs));
    EXPECT_EQ(thumbnailUs, 0);
    EXPECT_EQ(extractor->getTrackMetaData(2, 0), nullptr);
    ASSERT_NE(extractor->findTrackByMimePrefix("AUDIO/"), nullptr);
    EXPECT_EQ(extractor->findTrackByMimePrefix("AUDIO/")->timescale, 1000u);
    EXPECT_EQ(extractor->findTrackByMimePrefix("text/"), nullptr);

    const struct { Bytes bytes; int32_t value; uint8_t length; } sizes[] = {
        {{0x7F}, 127, 1}, {{0x81, 0x01}, 129, 2}, {{0x80, 0x80, 0x80, 0x05}, 5, 4}, {{0x80}, -1, 1}};
    for (const auto& c : sizes) {
        uint8_t n;
        EXPECT_EQ(readSize(0, new MemorySource(c.bytes), &n), c.value);
        EXPECT_EQ(n, c.length);
    }
}

// A caching source: each track's stbl is read into memory, and the tables
// still read right from there.
class CachingSource : public MemorySource {
public:
    using MemorySource::MemorySource;
    uint32_t flags() override { return kIsCachingDataSource; }
};

TEST(ZIRKMOVExtractorQueries, SampleTablesCachedForCachingSources) {
    sp<ZIRKMOVExtractor> extractor = new ZIRKMOVExtractor(new CachingSource(movie(cat({avcTrack(), aacTrack()}))));
    ASSERT_EQ(extractor->countTracks(), 2u);
    int32_t maxInput;
    EXPECT_TRUE(extractor->getTrackMetaData(1, 0)->findInt32(kKeyMaxInputSize, &maxInput));
    EXPECT_EQ(maxInput, 30);
}

TEST(ZIRKMOVExtractorDeathTest, FileReachableChecks) {
    const struct { Bytes bytes; const char* check; } cases[] = {
        {movie(box("trak", cat({fullBox("tkhd", 2, 0, Bytes(80, 0))}))), "CHECK_EQ( (unsigned)version,0u) failed: 2 vs. 0"},
        // An esds under an iTunes item named mp4a, in a track without audio.
        {movie(avcTrack(), box("udta", fullBox("meta", 0, 0, box("ilst", box("mp4a", esds(0x40, kAAC44Stereo)))))),
         "CHECK(mLastTrack->meta->findInt32(kKeySampleRate, &prevSampleRate)) failed."},
    };
    for (const auto& c : cases) {
        EXPECT_DEATH(sp<ZIRKMOVExtractor>(new ZIRKMOVExtractor(new MemorySource(c.bytes)))->countTracks(),
                     checkMessage("mov/ZIRKMOVExtractor", c.check));
    }
}

}  // namespace
