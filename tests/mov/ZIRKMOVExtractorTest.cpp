// ZIRKMOVExtractor and ZIRKMOVSource. The box walk over synthetic movies:
// the track list, sample entries and codec configurations, several stsd
// entries, mdat before moov, size-0 boxes, rotation, the compressed movie
// header, file metadata, and the fatal checks that files can reach. Then the
// source: where the four seek modes land on a real file (per-sample video and
// chunk-based audio), AVC samples whose last NAL or length field is cut by
// the sample's end, the QuickTime sniffer, the file metadata of the real M4A
// and 3GP files, the source's fatal checks, and the sample tables of the real
// files against ffprobe's packet lists.
#include <algorithm>
#include <cstdlib>
#include <functional>
#include <ostream>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include <media/stagefright/MediaDefs.h>
#include <media/stagefright/MediaErrors.h>
#include <media/stagefright/foundation/AMessage.h>

#include "CheckMatchers.h"
#include "LogCapture.h"
#include "MOVBuilder.h"
#include "TestDataSources.h"
#include "TrackReader.h"
#include "mov/ZIRKMOVDataSource.h"
#include "mov/ZIRKMOVExtractor.h"
#include "mov/ZIRKMOVSampleTable.h"
#include "mov/ZIRKMOVSource.h"

using namespace android;
using namespace android::test;
using namespace android::test::mov;

namespace {

// AAC LC: 44100 Hz stereo; 22050 Hz mono; frequency index 15 in 4 bytes.
const Bytes kAAC44Stereo = {0x12, 0x10};
const Bytes kAAC22Mono = {0x13, 0x88};
const Bytes kAACExplicitRateShort = {0x17, 0x80, 0x00, 0x00};
Bytes aacTrack(const Bytes& entry = soundEntry("mp4a", 0, 2, 44100, esds(0x40, kAAC44Stereo)), uint32_t id = 2) {
    return trak(id, "soun", stbl(entry, 1));
}
Bytes ilstItem(const std::string& item, uint8_t indicator, const Bytes& value) {
    const Bytes data = cat({{0, 0, 0, indicator, 0, 0, 0, 0}, value});
    return box("udta", fullBox("meta", 0, 0, box("ilst", box(item, box("data", data)))));
}

// A key's value as rows pin it: a C string as it is, an int32 in decimal, an
// int64 with "L" after it, other data as "<size> bytes", "-" when absent.
std::string valueOf(const sp<MetaData>& meta, uint32_t key) {
    const char* s;
    int32_t i32;
    int64_t i64;
    if (meta->findCString(key, &s)) return s;
    if (meta->findInt32(key, &i32)) return std::to_string(i32);
    if (meta->findInt64(key, &i64)) return std::to_string(i64) + "L";
    return meta->hasData(key) ? std::to_string(findBytes(meta, key).size()) + " bytes" : "-";
}

// What a row pins: key `key` of track `track` (-1: the file) reads `value`.
struct Expect { int track; uint32_t key; std::string value; };

// `log`: a line that must have been logged.
struct Row { const char* name; Bytes bytes; size_t tracks; std::vector<Expect> expects; const char* log = nullptr; };

void PrintTo(const Row& row, std::ostream* os) { *os << row.name; }

class ZIRKMOVExtractorTest : public ::testing::TestWithParam<Row> {};

TEST_P(ZIRKMOVExtractorTest, WalksBoxes) {
    const Row& row = GetParam();
    LogCapture log;
    sp<ZIRKMOVExtractor> extractor = new ZIRKMOVExtractor(new MemorySource(row.bytes));
    ASSERT_EQ(extractor->countTracks(), row.tracks);
    for (const Expect& e : row.expects) {
        const uint32_t kExtensive = MediaExtractor::kIncludeExtensiveMetaData;
        sp<MetaData> meta = e.track < 0 ? extractor->getMetaData() : extractor->getTrackMetaData(e.track, kExtensive);
        ASSERT_NE(meta, nullptr);
        EXPECT_EQ(valueOf(meta, e.key), e.value)
                << std::string(1, e.key >> 24) + char(e.key >> 16) + char(e.key >> 8) + char(e.key);
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
    Bytes wfx;
    putLE(&wfx, 2, {0x11, 0, 0, 0, 0, 0, blockAlign, 0, 0});  // IMA ADPCM's format tag, nBlockAlign
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
Bytes rotated(Matrix m) { return movie(avcTrack(box("avcC", kAVCC), 1, m)); }
Bytes video(const Bytes& entry) { return movie(trak(1, "vide", stbl(entry, 1))); }
Bytes withAAC(const Bytes& more) { return movie(aacTrack(), more); }
// A udta holding one 3GPP full box.
Bytes udta(const std::string& type, const Bytes& payload) { return box("udta", fullBox(type, 0, 0, payload)); }

const uint32_t kExt = kKeyMaxInputSize;

// MPEG-4 Systems descriptors (one size byte) for the protection data.
Bytes desc(uint8_t tag, const Bytes& body) { return cat({{tag, static_cast<uint8_t>(body.size())}, body}); }
// An avc track (ID 1) whose iods points at IPMP and whose mdat starts with
// the descriptor updates: `od` names track `trackId` and IPMP ID `pointer`;
// the IPMP descriptor (ID 7, scheme `scheme`) carries "DRM".
Bytes protectedMovie(bool ipmpInIods = true, uint16_t trackId = 1, uint8_t pointer = 7, uint16_t scheme = 0x1234) {
    const Bytes ipmpRef = ipmpInIods ? desc(0x0A, {7}) : desc(0x0E, {0, 0, 0, 1});
    const Bytes iods = fullBox("iods", 0, 0, desc(0x10, cat({{0x00, 0x4F, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}, ipmpRef})));
    const Bytes od = desc(0x11, cat({{0x00, 0x5F}, desc(0x0F, {uint8_t(trackId >> 8), uint8_t(trackId)}),
                                     desc(0x0A, {pointer})}));
    const Bytes ipmp = desc(0x0B, {7, uint8_t(scheme >> 8), uint8_t(scheme), 'D', 'R', 'M'});
    return cat({movie(cat({iods, avcTrack()})), box("mdat", cat({desc(0x01, od), desc(0x05, ipmp), Bytes(64, 0)}))});
}

INSTANTIATE_TEST_SUITE_P(Movies, ZIRKMOVExtractorTest, ::testing::Values(
    Row{"avc_and_aac", movie(cat({avcTrack(), aacTrack()})), 2,
        {{-1, kKeyMIMEType, "video/quicktime"}, {-1, kKeyDate, "19040101T000000.000Z"}, {0, kKeyMIMEType, "video/avc"},
         {0, kKeyWidth, "160"}, {0, kKeyAVCC, "7 bytes"}, {0, kKeyFrameRate, "1"}, {0, kKeyDuration, "3000000L"},
         {0, 'lang', "eng"}, {0, kExt, "30"}, {1, kKeyMIMEType, "audio/mp4a-latm"}, {1, kKeySampleRate, "44100"},
         {1, kKeyChannelCount, "2"}, {1, kKeyTrackID, "2"}, {1, kKeyFrameRate, "-"}, {0, kKeyThumbnailTime, "0L"},
         {0, kKeyRotation, "-"}}},
    // Audio only: the file is audio/mp4.
    Row{"mdat_before_moov", cat({box("mdat", Bytes(100, 7)), movie(aacTrack())}), 1, {{-1, kKeyMIMEType, "audio/mp4"}}},
    Row{"size_0_steps_4_bytes", cat({Bytes(4, 0), movie(aacTrack())}), 1, {}},
    Row{"large_size_below_16", cat({largeBox("free", {}, 8), movie(avcTrack())}), 0, {},
        "countTracks:error in readMetaData, err=fffffc11"},
    Row{"rotation_90", rotated({0, 0x10000, -0x10000, 0}), 1, {{0, kKeyRotation, "90"}}},
    Row{"rotation_180", rotated({-0x10000, 0, 0, -0x10000}), 1, {{0, kKeyRotation, "180"}}},
    Row{"mirror_logs", rotated({-0x10000, 0, 0, 0x10000}), 1, {{0, kKeyRotation, "-"}},
        "We only support 0,90,180,270 degree rotation matrices"},
    Row{"two_video_entries_first_used", movie(trak(1, "vide", stbl(cat({visualEntry("mp4v", 0, 0, esds(0x20, {1, 2})),
                                                                        visualEntry("avc1", 64, 64)}), 2))), 1,
        {{0, kKeyMIMEType, "video/mp4v-es"}, {0, kKeyWidth, "352"}, {0, kKeyHeight, "288"}},
        "Track has multiple (2) sample descriptions, use the first"},
    Row{"text_track_keeps_all_entries",  // both entries less their 8-byte headers, each with a 16-byte one
        movie(trak(3, "text", stbl(cat({box("tx3g", Bytes(30, 1)), box("tx3g", Bytes(40, 2))}), 2))), 1,
        {{0, kKeyMIMEType, "text/3gpp-tt"}, {0, kKeyTextFormatData, "86 bytes"}}},
    // Max input sizes: the block (2048 for PCM, 4 x 1024 for IMA) + 20.
    Row{"pcm_v1_block_align_default", movie(aacTrack(soundEntry("twos", 1, 2, 8000, {}, Bytes(16, 0)))), 1,
        {{0, kKeyMIMEType, "audio/raw"}, {0, kExt, "2068"}}},
    Row{"sound_v2_rate_is_double", movie(v2Sound()), 1, {{0, kKeySampleRate, "48000"}, {0, kKeyChannelCount, "6"}}},
    Row{"sound_v3_read_as_v0", movie(aacTrack(soundEntry("samr", 3, 2, 44100))), 1,
        {{0, kKeySampleRate, "8000"}, {0, kKeyChannelCount, "1"}},
        "unsupported sample description entry version 3, only support 0, 1, 2"},
    Row{"wave_esds_updates_audio", movie(waveAAC()), 1, {{0, kKeySampleRate, "22050"}, {0, kKeyChannelCount, "1"}}},
    Row{"ima_block_align_from_wave", movie(imaInWave(1024)), 1, {{0, kExt, "4116"}}},
    Row{"esds_9000_bytes", movie(aacTrack(soundEntry("mp4a", 0, 2, 44100, box("esds", Bytes(9000, 0))))), 0, {},
        "ESDS chunk size 9000 too large!"},
    Row{"aac_explicit_rate_too_short",
        movie(aacTrack(soundEntry("mp4a", 0, 2, 44100, esds(0x40, kAACExplicitRateShort)))), 0, {}},
    Row{"d263_15_bytes", video(visualEntry("s263", 176, 144, box("d263", Bytes(15, 0)))), 0, {},
        "Incorrect D263 box size 15"},
    Row{"d263_7_bytes", video(visualEntry("s263", 176, 144, box("d263", Bytes(7, 0)))), 1, {{0, kKeyD263, "7 bytes"}}},
    Row{"glbl_under_avc1_skipped", movie(avcTrack(cat({box("avcC", kAVCC), box("glbl", Bytes(20, 0))}))), 1,
        {{0, 'rcsd', "-"}}},
    Row{"glbl_under_xvid_kept", video(visualEntry("XVID", 64, 64, box("glbl", Bytes(20, 0)))), 1,
        {{0, 'rcsd', "16 bytes"}, {0, kKeyMIMEType, "video/divx"}}},
    Row{"empty_avcc_dropped", movie(avcTrack(box("avcC", {}))), 1, {{0, kKeyAVCC, "-"}},
        "!!! No 'avcC' data is found for mp4 file"},
    Row{"avcc_over_256", movie(avcTrack(box("avcC", Bytes(257, 1)))), 0, {}},
    Row{"max_size_0_defaults", movie(trak(1, "vide", stbl(visualEntry("jpeg", 8, 8), 1, {0, 0, 0}))), 1,
        {{0, kExt, "524308"}}, "max_size=0 is wrong, set default value 512k\n"},
    Row{"ilst_title_and_3gp_year", withAAC(cat({ilstItem("\xA9nam", 1, {'H', 'i'}), udta("yrrc", {0x07, 0xDD})})), 1,
        {{-1, kKeyTitle, "Hi"}, {-1, kKeyYear, "2013"}}},
    // iTunes items and 3GPP strings by their own rules (values at payload offset 8, resp. 6).
    Row{"trkn_16_bytes", withAAC(ilstItem("trkn", 0, {0, 0, 0, 3, 0, 12, 0, 0})), 1, {{-1, kKeyCDTrackNumber, "3/12"}}},
    Row{"trkn_indicator_1_ignored", withAAC(ilstItem("trkn", 1, {0, 0, 0, 3, 0, 12, 0, 0})), 1,
        {{-1, kKeyCDTrackNumber, "-"}}},
    Row{"binary_genre_is_number_less_1", withAAC(ilstItem("gnre", 0, {0, 1})), 1, {{-1, kKeyGenre, "0"}}},
    Row{"albm_hides_track_number", withAAC(udta("albm", {0x15, 0xC7, 'A', 'l', 'b', 'u', 'm', 0, 7})), 1,
        {{-1, kKeyAlbum, "Album"}, {-1, kKeyCDTrackNumber, "7"}}},
    Row{"udta_string_of_2048_ignored", withAAC(udta("titl", Bytes(2044, 'a'))), 1, {{-1, kKeyTitle, "-"}}},
    // UTF-16 is kept unconverted: the C string ends at the first zero byte.
    Row{"udta_utf16_kept", withAAC(udta("titl", {0x15, 0xC7, 0xFE, 0xFF, 0, 'A', 0, 'B'})), 1,
        {{-1, kKeyTitle, "\xFE\xFF"}}},
    Row{"meta_hdlr_before_any_track", box("moov", cat({box("udta", fullBox("meta", 0, 0, hdlr("mdir"))), aacTrack()})),
        1, {}},
    Row{"old_quicktime_meta_skipped", withAAC(box("udta", fullBox("meta", 1, 0, box("ilst", Bytes(3, 0))))), 1, {}},
    Row{"compressed_header", [] {
            const Bytes header = box("moov", cat({fullBox("mvhd", 0, 0, Bytes(96, 0)), avcTrack(), aacTrack()}));
            return compressedMovie(header.size(), zlib(header)); }(), 2, {{1, kKeySampleRate, "44100"}}},
    // Protection data reach the track only when iods points at IPMP and the
    // mdat's object descriptor and IPMP descriptor agree on the track and ID.
    Row{"protected_track", protectedMovie(), 1, {{0, kKeyIsDRM, "1"}, {0, kKeyDrmTrackInfo, "3 bytes"}}},
    Row{"iods_without_ipmp", protectedMovie(false), 1, {{0, kKeyIsDRM, "-"}}},
    Row{"ipmp_for_another_track", protectedMovie(true, 9), 1, {{0, kKeyIsDRM, "-"}}},
    Row{"ipmp_id_mismatch", protectedMovie(true, 1, 8), 1, {{0, kKeyIsDRM, "-"}}},
    Row{"ipmp_url_scheme", protectedMovie(true, 1, 7, 0), 1, {{0, kKeyIsDRM, "-"}}},
    Row{"zero_type_box_ends_walk", cat({box(std::string(4, '\0'), {}), movie(aacTrack())}), 0, {},
        "receive pure 0 FOURCC!"},
    // The tags ffprobe -show_format reports for two real files, except where
    // this system has its own rule: the 3GPP strings (ffprobe shows none of
    // them) are checked against what the muxer was given, and the iTunSMPB item
    // gives the encoder delay and padding to the last track.
    Row{"m4a_file_tags", readFileBytes(testdataPath("m4a_aac_tags.m4a")), 1,
        {{-1, kKeyTitle, "Test Title"}, {-1, kKeyArtist, "Test Artist"}, {-1, kKeyAlbum, "Test Album"},
         {-1, kKeyYear, "2014"}, {-1, kKeyCDTrackNumber, "3/12"}, {-1, kKeyGenre, "Jazz"},
         {0, kKeyEncoderDelay, "2112"}, {0, kKeyEncoderPadding, "458"}}},
    Row{"3gp_file_tags", readFileBytes(testdataPath("3gp_h263_aac.3gp")), 2,
        {{-1, kKeyTitle, "Test Title"}, {-1, kKeyArtist, "Test Artist"}, {-1, kKeyAuthor, "Test Author"},
         {-1, kKeyAlbum, "Test Album"}, {-1, kKeyYear, "2013"}, {-1, kKeyGenre, "Rock"}}}),
    [](const ::testing::TestParamInfo<Row>& info) { return std::string(info.param.name); });

// A caching source: each track's stbl is read into memory, and the tables
// still read right from there.
class CachingSource : public MemorySource {
public:
    using MemorySource::MemorySource;
    uint32_t flags() override { return kIsCachingDataSource; }
};

TEST(ZIRKMOVExtractorQueries, ProtectionDataStayWithinTheirDescriptors) {
    // getDrmTrackInfo hands out the IPMP data of track 0 and nothing for a track the file lacks. Every
    // descriptor byte set to 0xFF (sizes that overrun their parent or never end, unknown tags) and every
    // cut of the file inside mdat still open the track, and what is handed out is at most those 3 bytes.
    const Bytes file = protectedMovie();
    int len = 0;
    sp<ZIRKMOVExtractor> e = new ZIRKMOVExtractor(new MemorySource(file));
    const char* info = e->getDrmTrackInfo(0, &len);
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(std::string(info, len), "DRM");
    EXPECT_EQ(e->getDrmTrackInfo(1, &len), nullptr);
    const size_t mdatData = file.size() - 64 - 28;  // the two updates: 28 bytes
    for (size_t i = mdatData; i < file.size() - 64; ++i) {
        Bytes corrupt = file;
        corrupt[i] = 0xFF;
        Bytes cut(file.begin(), file.begin() + i);
        for (const Bytes& bytes : {corrupt, cut}) {
            sp<ZIRKMOVExtractor> x = new ZIRKMOVExtractor(new MemorySource(bytes));
            ASSERT_EQ(x->countTracks(), 1u) << i;
            if (x->getDrmTrackInfo(0, &len) != nullptr) {
                EXPECT_LE(len, 3) << i;
            }
        }
    }
}

// Indexes past the last track give nothing; the tables read through a caching
// source; a descriptor size ends at the first byte without the high bit (-1
// when the source ends first).
TEST(ZIRKMOVExtractorQueries, TrackLookupAndReadSize) {
    sp<ZIRKMOVExtractor> extractor = new ZIRKMOVExtractor(new CachingSource(movie(cat({avcTrack(), aacTrack()}))));
    ASSERT_NE(extractor->getTrack(0), nullptr);
    EXPECT_EQ(extractor->getTrack(2), nullptr);
    EXPECT_EQ(extractor->getTrackMetaData(2, 0), nullptr);
    EXPECT_EQ(valueOf(extractor->getTrackMetaData(1, 0), kKeyMaxInputSize), "30");
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

using Mode = MediaSource::ReadOptions::SeekMode;

sp<ZIRKMOVExtractor> openFile(const std::string& name) {
    return new ZIRKMOVExtractor(new MemorySource(readFileBytes(testdataPath(name))));
}

// mov_h264_aac.mov's video: 50 frames at 25 fps with B-frames, composition
// times 80 ms to 2 s, sync samples 0 (80 ms) and 25 (1.08 s) in decoding order.
TEST(ZIRKMOVSourceTest, VideoSeeksLandWhereTheModeSays) {
    struct Row { Mode mode; int64_t targetUs; int64_t firstUs; int64_t tarT; };  // firstUs -1: end of stream
    const Row rows[] = {
            {Mode::SEEK_PREVIOUS_SYNC, 500000, 80000, -1},  {Mode::SEEK_PREVIOUS_SYNC, 1100000, 1080000, -1},
            {Mode::SEEK_NEXT_SYNC, 510000, 1080000, -1},    {Mode::SEEK_NEXT_SYNC, 1990000, -1, -1},
            {Mode::SEEK_CLOSEST_SYNC, 200000, 80000, -1},   {Mode::SEEK_CLOSEST_SYNC, 1900000, 1080000, -1},
            // Decoding starts at the sync sample before; the target is the closest sample's time.
            {Mode::SEEK_CLOSEST, 510000, 80000, 520000},    {Mode::SEEK_CLOSEST, 1500000, 1080000, 1520000},
            {Mode::SEEK_CLOSEST_SYNC, 9000000, 1080000, -1},
    };
    sp<MediaExtractor> extractor = openFile("mov_h264_aac.mov");
    for (const Row& row : rows) {
        SCOPED_TRACE(std::to_string(row.mode) + " @" + std::to_string(row.targetUs));
        sp<MediaSource> video = extractor->getTrack(0);
        ASSERT_EQ(video->start(), OK);
        MediaSource::ReadOptions options;
        options.setSeekTo(row.targetUs, row.mode);
        MediaBuffer* buffer = nullptr;
        ASSERT_EQ(video->read(&buffer, &options), row.firstUs < 0 ? status_t(ERROR_END_OF_STREAM) : OK);
        int64_t timeUs = -1, tarT = -1;
        int32_t sync = 0;
        if (buffer != nullptr) {
            buffer->meta_data()->findInt64(kKeyTime, &timeUs);
            buffer->meta_data()->findInt32(kKeyIsSyncFrame, &sync);
            buffer->meta_data()->findInt64(kKeyTargetTime, &tarT);
            buffer->release();
        }
        video->stop();
        EXPECT_EQ(std::make_tuple(timeUs, sync, tarT), std::make_tuple(row.firstUs, row.firstUs < 0 ? 0 : 1, row.tarT));
    }
}

// Chunk-based audio: every mode lands on the buffer that holds the target
// (it starts at or before it, the next one after it), and reading goes on
// from there without a gap.
TEST(ZIRKMOVSourceTest, ChunkAudioSeeksLandOnTheFrameHoldingTheTarget) {
    for (const char* name : {"mov_mpeg4_twos.mov", "mov_mp3.mov", "mov_ima_adpcm.mov", "mov_ms_adpcm.mov"}) {
        sp<MediaExtractor> extractor = openFile(name);
        const size_t track = extractor->countTracks() - 1;
        const TrackRead all = readTrack(extractor->getTrack(track));
        ASSERT_EQ(all.end, ERROR_END_OF_STREAM) << name;
        for (int64_t targetUs : {int64_t(0), int64_t(333333), int64_t(1234567)}) {
            for (Mode mode : {Mode::SEEK_PREVIOUS_SYNC, Mode::SEEK_NEXT_SYNC, Mode::SEEK_CLOSEST}) {
                SCOPED_TRACE(std::string(name) + " @" + std::to_string(targetUs) + " mode " + std::to_string(mode));
                sp<MediaSource> source = extractor->getTrack(track);
                ASSERT_EQ(source->start(), OK);
                MediaSource::ReadOptions options;
                options.setSeekTo(targetUs, mode);
                Sample read[3];
                for (Sample& s : read) ASSERT_EQ(readSample(source, &s, &s == read ? &options : nullptr), OK);
                source->stop();
                EXPECT_LE(read[0].timeUs, targetUs);
                EXPECT_GT(read[1].timeUs, targetUs);
                // The same buffers as a read from the start (times restart
                // from the chunk's time: they may differ by a rounding).
                size_t at = 0;
                while (at < all.samples.size() && std::abs(all.samples[at].timeUs - read[0].timeUs) > 1) ++at;
                ASSERT_LT(at + 2, all.samples.size());
                for (size_t i = 0; i < 3; ++i) EXPECT_EQ(read[i].data, all.samples[at + i].data);
            }
        }
    }
}

// One AVC track (4-byte NAL lengths) whose samples lie in an mdat before moov.
Bytes avcMovie(const std::vector<Bytes>& samples) {
    return mdatFirst("vide", visualEntry("avc1", 64, 64, box("avcC", kAVCC)), samples);
}

// A NAL whose length runs past its sample is cut at the sample's end, and a
// length field cut by the end becomes a NAL of its own bytes; both warn.
TEST(ZIRKMOVSourceTest, AVCSamplesCutByTheirEndAreDeliveredWithAWarning) {
    const Bytes overrun = {0, 0, 0, 3, 'a', 'b', 'c', 0, 0, 0, 9, 'x', 'y'};
    const Bytes cutField = {0, 0, 0, 2, 'a', 'b', 0, 0};
    LogCapture log;
    sp<MediaExtractor> extractor = new ZIRKMOVExtractor(new MemorySource(avcMovie({overrun, cutField})));
    const TrackRead read = readTrack(extractor->getTrack(0));
    ASSERT_EQ(read.samples.size(), 2u);
    EXPECT_EQ(read.samples[0].data, Bytes({0, 0, 0, 1, 'a', 'b', 'c', 0, 0, 0, 1, 'x', 'y'}));
    EXPECT_EQ(read.samples[1].data, Bytes({0, 0, 0, 1, 'a', 'b', 0, 0, 0, 1, 0, 0}));
    EXPECT_TRUE(log.contains("Video sample malformed: @11 + 9 > 13"));
    EXPECT_TRUE(log.contains("Video sample malformed: @6 + 0 > 8"));

    // NAL fragments asked for: the samples as stored.
    sp<MediaSource> source = extractor->getTrack(0);
    sp<MetaData> params = new MetaData;
    params->setInt32(kKeyWantsNALFragments, 1);
    ASSERT_EQ(source->start(params.get()), OK);
    const TrackRead whole = readTrack(source, false);
    source->stop();
    ASSERT_EQ(whole.samples.size(), 2u);
    EXPECT_EQ(whole.samples[0].data, overrun);
}

// MP3 chunks without a frame: one that does not start on a frame sync is
// refused by the table, one whose sync opens no frame by the source.
TEST(ZIRKMOVSourceTest, MP3ChunksWithoutAFrameEndTheTrackWithTheirLog) {
    const std::pair<uint8_t, const char*> kCases[] = {{0x00, "Can't find the first sync code for MP3 !!!"},
                                                      {0xFF, "Can't find the MP3 sync code !!!"}};
    for (const auto& [first, line] : kCases) {
        LogCapture log;
        const Bytes file = mdatFirst("soun", soundEntry(".mp3", 0, 1, 22050), {cat({{first, 0xE0}, Bytes(62, 0)})});
        const TrackRead read = readTrack(sp<MediaExtractor>(new ZIRKMOVExtractor(new MemorySource(file)))->getTrack(0));
        EXPECT_TRUE(read.samples.empty());
        EXPECT_EQ(read.end, ERROR_END_OF_STREAM);
        EXPECT_TRUE(log.contains(line)) << line;
    }
}

// The fatal checks of the box walk that files can reach, and the source's.
TEST(ZIRKMOVExtractorDeathTest, ChecksStayFatal) {
    sp<MediaExtractor> extractor = new ZIRKMOVExtractor(new MemorySource(avcMovie({{0, 0, 0, 1, 'a'}})));
    sp<MetaData> format = new MetaData(*extractor->getTrackMetaData(0, 0));
    format->remove(kKeyMaxInputSize);
    auto walk = [](const Bytes& b) { sp<ZIRKMOVExtractor>(new ZIRKMOVExtractor(new MemorySource(b)))->countTracks(); };
    const std::string kWalk = "mov/ZIRKMOVExtractor", kSource = "mov/ZIRKMOVSource";
    const Bytes mp4aItem = box("mp4a", esds(0x40, kAAC44Stereo));
    const struct { std::function<void()> body; std::string source; const char* check; } kRows[] = {
        {[&] { walk(movie(box("trak", fullBox("tkhd", 2, 0, Bytes(80, 0))))); }, kWalk,
         "CHECK_EQ( (unsigned)version,0u) failed: 2 vs. 0"},
        // An esds under an iTunes item named mp4a, in a track without audio.
        {[&] { walk(movie(avcTrack(), box("udta", fullBox("meta", 0, 0, box("ilst", mp4aItem))))); }, kWalk,
         "CHECK(mLastTrack->meta->findInt32(kKeySampleRate, &prevSampleRate)) failed."},
        {[&] { sp<MediaSource> s = extractor->getTrack(0); s->start(); s->start(); }, kSource,
         "CHECK(!mStarted) failed."},
        {[&] { extractor->getTrack(0)->stop(); }, kSource, "CHECK(mStarted) failed."},
        {[&] { MediaBuffer* b; extractor->getTrack(0)->read(&b); }, kSource, "CHECK(mStarted) failed."},
        {[&] {
             sp<MediaSource> s = extractor->getTrack(0);
             s->start();
             MediaSource::ReadOptions options;
             options.setSeekTo(0, static_cast<Mode>(7));
             MediaBuffer* b;
             s->read(&b, &options);
         }, kSource, "CHECK(!\"Should not be here.\") failed."},
        {[&] {
             sp<MediaSource>(new ZIRKMOVSource(format, new MemorySource({}), 1000, nullptr, nullptr, -1, 0, 0, 0))
                     ->start();
         }, kSource, "CHECK(mFormat->findInt32(kKeyMaxInputSize, &max_size)) failed."},
    };
    for (const auto& row : kRows) EXPECT_DEATH(row.body(), checkMessage(row.source, row.check));
}

// The sniffer's three methods. `metaSize` -1: no "meta-data-size" message.
// EntrySniffTest.RealFilesAreClaimedByTheirSniffer pins ISO brands refused
// and a moov past the 128-byte walk claimed without that message.
TEST(ZIRKSniffMOVTest, ClaimsQuickTimeFilesOnly) {
    const Bytes qtFtyp = box("ftyp", cat({{'q', 't', ' ', ' '}, Bytes(4, 0)}));
    const Bytes compatQt =
            box("ftyp", cat({{'i', 's', 'o', 'm'}, Bytes(4, 0), {'m', 'p', '4', '2'}, {'q', 't', ' ', ' '}}));
    const char* kBetter = "Identified supported MOV through BetterSniffMOV.";
    const Bytes moov = box("moov", Bytes(40, 0));
    struct Row { const char* name; Bytes bytes; float confidence; int64_t metaSize; const char* log; };
    const Row rows[] = {
            {"brand_and_moov_early", cat({qtFtyp, moov}), 0.7f, 16 + 48, kBetter},
            {"compatible_brand", cat({compatQt, moov}), 0.7f, 24 + 48, kBetter},
            {"legacy_brand_bad_walk", cat({box("ftyp", {'q', 't', ' ', ' '}), Bytes(8, 0)}), 0.7f, -1,
             "Identified supported MOV through LegacySniffMOV."},
            {"old_file_mdat_first", cat({box("mdat", Bytes(4, 0)), moov}), 0.5f, -1,
             "dentified supported MOV through finding mdat"},
            {"wide_first", cat({box("wide", {}), Bytes(8, 0)}), 0.5f, -1,
             "dentified supported MOV through finding wide"},
            {"eleven_bytes", Bytes({0, 0, 0, 8, 'w', 'i', 'd', 'e', 0, 0, 0}), 0, -1, nullptr},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        LogCapture log;
        String8 mime;
        float confidence = 0;
        sp<AMessage> meta;
        const bool claimed = ZIRKSniffMOV(new MemorySource(row.bytes), &mime, &confidence, &meta);
        EXPECT_EQ(claimed, row.confidence > 0);
        if (!claimed) continue;
        EXPECT_STREQ(mime.c_str(), MEDIA_MIMETYPE_CONTAINER_MOV);
        EXPECT_FLOAT_EQ(confidence, row.confidence);
        int64_t size = -1;
        EXPECT_TRUE(meta == nullptr || meta->findInt64("meta-data-size", &size));
        EXPECT_EQ(size, row.metaSize);
        EXPECT_TRUE(log.contains(row.log, ANDROID_LOG_WARN)) << row.log;
    }
}

// The real M4A file's cover art, and the MPEG-2 sequence header of a file
// without esds.
TEST(ZIRKMOVSourceTest, RealFileMetadata) {
    const Bytes art = findBytes(openFile("m4a_aac_tags.m4a")->getMetaData(), kKeyAlbumArt);
    ASSERT_GE(art.size(), 8u);
    EXPECT_EQ(Bytes(art.begin(), art.begin() + 4), Bytes({0x89, 'P', 'N', 'G'}));

    // MPEG-2 without esds: the source hands on the first frame's sequence
    // header (and its extension), up to the GOP header that follows it.
    sp<MediaSource> mpeg2 = openFile("mov_mpeg2.mov")->getTrack(0);
    const Bytes esds = findBytes(mpeg2->getFormat(), kKeyESDS);
    const Bytes frame = readTrack(mpeg2, true, 1).samples.at(0).data;
    const Bytes kSequence = {0, 0, 1, 0xB3};
    auto header = std::search(esds.begin(), esds.end(), kSequence.begin(), kSequence.end());
    ASSERT_NE(header, esds.end());
    const Bytes fromFrame(frame.begin(), frame.begin() + (esds.end() - header));
    EXPECT_EQ(Bytes(header, esds.end()), fromFrame);
    EXPECT_EQ(Bytes(frame.begin() + fromFrame.size(), frame.begin() + fromFrame.size() + 4), Bytes({0, 0, 1, 0xB8}));
}

// The MOV test files of testdata/ through the box parser and the sample
// table, against ffprobe's packet lists: the count and every video, AAC and
// AMR sample's file offset and size (times and sync flags, read through the
// source, are compared by tests/tools/probe_crosscheck.py). PCM tracks are
// listed per chunk by ffprobe and per frame here, so only their presence is
// checked.
// In the fragmented file the moov indexes only the first fragment: its
// samples must be the first ones listed, and the fragments after it are
// walked but not played.
class ZIRKMOVRealFileTest : public ::testing::TestWithParam<std::string> {};

TEST_P(ZIRKMOVRealFileTest, SampleTablesMatchTheListedPackets) {
    const std::string name = GetParam();
    sp<ZIRKMOVExtractor> ex = openFile(name);
    ASSERT_GT(ex->countTracks(), 0u);
    const std::vector<CsvRow> packets = readTestdataCsv(name + ".packets.csv");
    for (const char* kind : {"video", "audio"}) {
        ZIRKMOVExtractor::Track* track = ex->findTrackByMimePrefix((std::string(kind) + "/").c_str());
        std::vector<const CsvRow*> rows;
        for (const CsvRow& r : packets) {
            if (r.at("codec_type") == kind && r.at("pts") != "N/A") rows.push_back(&r);
        }
        SCOPED_TRACE(kind);
        if (rows.empty()) {
            EXPECT_EQ(track, nullptr);
            continue;
        }
        ASSERT_NE(track, nullptr);
        const char* mime = "";
        track->meta->findCString(kKeyMIMEType, &mime);
        if (!strcasecmp(mime, MEDIA_MIMETYPE_AUDIO_RAW)) continue;
        const sp<ZIRKMOVSampleTable>& table = track->sampleTable;
        if (name.find("fragmented") != std::string::npos) {
            ASSERT_TRUE(table->countSamples() > 0 && table->countSamples() < rows.size()) << table->countSamples();
            rows.resize(table->countSamples());
        }
        ASSERT_EQ(table->countSamples(), rows.size());
        for (size_t i = 0; i < rows.size(); ++i) {
            off64_t offset;
            size_t size;
            ASSERT_EQ(table->getMetaDataForSample(i, &offset, &size, nullptr), OK) << i;
            EXPECT_EQ(std::make_pair(offset, size), std::make_pair(off64_t(std::stoll(rows[i]->at("pos"))),
                                                                 size_t(std::stoul(rows[i]->at("size"))))) << i;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Files, ZIRKMOVRealFileTest,
                         ::testing::Values("mov_h264_aac.mov", "mov_mpeg4_twos.mov", "mov_mjpeg_sowt.mov",
                                           "3gp_h263_aac.3gp", "3gp_h263_amrnb.3gp", "m4a_aac_tags.m4a",
                                           "mp4_h264_faststart.mp4",
                                           "mp4_h264_fragmented.mp4"),
                         [](const ::testing::TestParamInfo<std::string>& info) { return testNameFor(info.param); });

}  // namespace
