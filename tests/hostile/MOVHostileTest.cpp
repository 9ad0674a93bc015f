// ZIRKMOVExtractor on crafted files, one row per hostile construct. Each row
// pins what the box walk ends in (the track count, or the fatal check that
// must fire), then goes through the entry points as the framework would:
// every track read and sought in the four modes. Every row must also end
// (no walk that stops advancing), and run clean in the sanitizer build.
#include <ostream>
#include <string>

#include <gtest/gtest.h>

#include <media/stagefright/MediaDefs.h>
#include <media/stagefright/MediaErrors.h>

#include "CheckMatchers.h"
#include "MOVBuilder.h"
#include "TestDataSources.h"
#include "fuzz/ZIRKFuzzHarness.h"
#include "mov/ZIRKMOVExtractor.h"

using namespace android;
using namespace android::test;
using namespace android::test::mov;

namespace {

Bytes withTrack(const Bytes& more) { return movie(avcTrack(), more); }
Bytes sound(const Bytes& entry) { return movie(trak(1, "soun", stbl(entry, 1))); }
Bytes truncated() {
    Bytes b = withTrack({});
    b.resize(b.size() - 30);
    return b;
}

// `depth` boxes, each the only child of the one before, cycling through the
// containers the walk descends into (meta with its full-box word).
Bytes nested(size_t depth) {
    static const char* const kTypes[] = {"moov", "trak", "udta", "meta"};
    std::vector<size_t> ends(depth + 1, 0);
    for (size_t i = depth; i-- > 0;) ends[i] = ends[i + 1] + (i % 4 == 3 ? 12 : 8);
    Bytes b;
    b.reserve(ends[0]);
    for (size_t i = 0; i < depth; ++i) {
        putBE32(&b, ends[i]);
        putFourcc(&b, kTypes[i % 4]);
        if (i % 4 == 3) putBE32(&b, 0);
    }
    return b;
}

// `fatal`: the check that must fire instead of the walk ending.
struct Row { const char* name; Bytes bytes; size_t tracks; const char* fatal = nullptr; bool sizeKnown = true; };

void PrintTo(const Row& row, std::ostream* os) { *os << row.name; }

class MOVHostileTest : public ::testing::TestWithParam<Row> {};

TEST_P(MOVHostileTest, WalkEnds) {
    const Row& row = GetParam();
    fuzz::initHarness();
    std::string fired;
    size_t tracks = 0;
    try {
        sp<ZIRKMOVExtractor> extractor =
                new ZIRKMOVExtractor(new FaultySource(row.bytes, FaultySource::kNone, 0, row.sizeKnown));
        tracks = extractor->countTracks();
        ASSERT_NE(extractor->getMetaData(), nullptr);
        for (size_t i = 0; i < tracks; ++i) {
            EXPECT_NE(extractor->getTrackMetaData(i, MediaExtractor::kIncludeExtensiveMetaData), nullptr);
        }
    } catch (const fuzz::FatalCheck& check) {
        fired = check.message;
    }
    if (row.fatal != nullptr) {
        EXPECT_TRUE(isCheckMessage(fired, "mov/ZIRKMOVExtractor", row.fatal)) << "fired: " << fired;
    } else {
        EXPECT_EQ(fired, "");
        EXPECT_EQ(tracks, row.tracks);
        const fuzz::RunOutcome run = fuzz::runExtractor(
                new FaultySource(row.bytes, FaultySource::kNone, 0, row.sizeKnown), MEDIA_MIMETYPE_CONTAINER_MOV);
        EXPECT_EQ(run.fatal, "");
        EXPECT_EQ(run.tracks, row.tracks);
    }
}

INSTANTIATE_TEST_SUITE_P(Rows, MOVHostileTest, ::testing::Values(
    Row{"control", withTrack({}), 1},
    // Nesting: the walk gives up at its depth cap, far above real files.
    Row{"nested_100000", nested(100000), 0},
    // Sizes below their header, 64-bit sizes that overflow the offset or
    // int64, and children that claim more than their parent.
    Row{"box_size_4", withTrack(box("free", {}, 4)), 0},
    Row{"large_size_past_int64", withTrack([] {
            Bytes b = largeBox("free", {});
            setBE64(&b, 8, 0xFFFFFFFFFFFFFFF0);
            return b; }()), 0},
    Row{"large_size_wraps_offset", withTrack(largeBox("free", {}, 0x7FFFFFFFFFFFFFF0)), 0},
    Row{"mdat_huge_before_moov", cat({largeBox("mdat", {}, 0x7000000000000000), withTrack({})}), 0},
    Row{"child_past_parent", withTrack(box("udta", box("free", Bytes(4, 0), 100))), 0},
    Row{"stsd_entry_past_stsd", movie(trak(1, "vide", stbl(box("avc1", Bytes(78, 0), 4000), 1))), 0},
    // Counts past their box: the sample-table setters refuse them, the
    // entry loop of stsd stops at its end (size-0 entries step 4 bytes).
    Row{"stco_count_past_box", withTrack(trak(3, "vide", box("stbl", box("stco", table({0}, 1, 4, 0x40000000))))), 0},
    Row{"stsd_count_ffffffff_zero_entries", movie(trak(2, "text", stbl(Bytes(16, 0), 0xFFFFFFFF))), 1},
    Row{"esds_length_past_box", sound(soundEntry("mp4a", 0, 2, 8000, fullBox("esds", 0, 0, {0x03, 0x7F, 0, 1}))), 0},
    // Small fields that would be read from the next box, or divide by zero.
    Row{"meta_size_below_4", withTrack(box("udta", box("meta", Bytes(2, 0)))), 0},
    Row{"udta_size_below_8", withTrack(box("udta", Bytes(4, 0))), 1},
    Row{"tkhd_size_not_84_or_96", movie(box("trak", fullBox("tkhd", 1, 0, Bytes(80, 0)))), 0},
    Row{"mdhd_timescale_0", movie(trak(1, "vide", stbl(visualEntry("avc1", 8, 8, box("avcC", kAVCC)), 1), 0)), 0},
    Row{"mdhd_truncated", movie(box("trak", box("mdia", fullBox("mdhd", 0, 0, Bytes(8, 0))))), 0},
    Row{"hdlr_truncated", movie(box("trak", box("mdia", fullBox("hdlr", 0, 0, {})))), 0},
    Row{"location_18_bytes", withTrack(box("udta", box("\xA9xyz", Bytes(23, '1')))), 0},
    Row{"covr_below_16", withTrack(box("udta", box("covr", Bytes(5, 0)))), 1},
    Row{"ilst_data_below_4", withTrack(box("udta", fullBox("meta", 0, 0, box("ilst", box("trkn", box("data", {0})))))),
        0},
    Row{"sound_v1_extension_past_box", sound(soundEntry("twos", 1, 1, 8000)), 0},
    Row{"wave_without_terminator", sound(soundEntry("twos", 0, 1, 8000, box("wave", box("frma", Bytes(4, 0))))), 1},
    // Boxes outside any track.
    Row{"stbl_outside_trak", movie(box("stbl", {})), 0},
    Row{"stco_outside_stbl", movie(box("trak", box("stco", table({0})))), 0},
    // Walks that would not end: a zero-type box (kept in place) in moov and
    // at the top, a file of zeros (size-0 boxes, 4 bytes a step).
    Row{"zero_type_in_moov", withTrack(box(std::string(4, '\0'), {})), 0},
    Row{"zero_type_top_level", cat({box(std::string(4, '\0'), {}), withTrack({})}), 0},
    Row{"all_zeros", Bytes(1 << 20, 0), 0},
    Row{"truncated_in_stbl", truncated(), 0},
    Row{"truncated_size_unknown", truncated(), 0, nullptr, false},
    // Compressed headers: a claimed size past the cap, a stream that expands
    // past its claim (16 MiB of zeros claimed as 1000 bytes), sizes below
    // the cmvd header, and a stream claimed past its cmov box.
    Row{"cmov_expanded_size_huge", compressedMovie(0xFFFFFFFF, zlib(Bytes(100, 0))), 0},
    Row{"cmov_zip_bomb", compressedMovie(1000, zlib(Bytes(16 << 20, 0))), 0},
    Row{"cmvd_size_below_12", compressedMovie(100, zlib(Bytes(100, 0)), 8), 0},
    Row{"cmvd_past_cmov", compressedMovie(100, zlib(Bytes(100, 0)), 0x7FFFFFFF), 0},
    // A compressed header inside an expanded one is refused, and with it
    // the header that holds it (were it expanded, its moov would open).
    Row{"cmov_inside_cmov", [] {
            const Bytes innermost = box("moov", avcTrack());
            Bytes header = box("moov", cat({avcTrack(), compressedMovie(innermost.size(), zlib(innermost))}));
            // The file is made larger than the expanded header, whose offsets
            // the data source holds to the file's size.
            return cat({compressedMovie(header.size(), zlib(header)), box("free", Bytes(4096, 0))}); }(), 0},
    Row{"cmov_wrong_compression",
        box("moov", box("cmov", cat({box("dcom", {'g', 'z', 'i', 'p'}), box("cmvd", Bytes(16, 0))}))), 0},
    // Checks that stay fatal.
    Row{"tkhd_version_2", movie(box("trak", fullBox("tkhd", 2, 0, Bytes(80, 0)))), 0,
        "CHECK_EQ( (unsigned)version,0u) failed: "}),
    [](const ::testing::TestParamInfo<Row>& info) { return std::string(info.param.name); });

}  // namespace
