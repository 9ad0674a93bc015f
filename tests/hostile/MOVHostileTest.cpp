// ZIRKMOVExtractor on crafted files, one row per hostile construct (see
// HostileRow.h). Every box walk must end (none that stops advancing).
#include "HostileRow.h"
#include "MOVBuilder.h"

using namespace android;
using namespace android::test;
using namespace android::test::mov;

namespace {

Bytes withTrack(const Bytes& more) { return movie(avcTrack(), more); }
Bytes sound(const Bytes& entry) { return movie(trak(1, "soun", stbl(entry, 1))); }
Bytes udta(const Bytes& child) { return withTrack(box("udta", child)); }
Bytes truncated() {
    const Bytes b = withTrack({});
    return Bytes(b.begin(), b.end() - 30);
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

// A compressed header inside an expanded one. The file is made larger than
// the expanded header, whose offsets the data source holds to the file's size.
Bytes cmovInsideCmov() {
    const Bytes innermost = box("moov", avcTrack());
    Bytes header = box("moov", cat({avcTrack(), compressedMovie(innermost.size(), zlib(innermost))}));
    return cat({compressedMovie(header.size(), zlib(header)), box("free", Bytes(4096, 0))});
}

std::vector<HostileRow> rows() {
    Bytes largePastInt64 = largeBox("free", {});
    setBE64(&largePastInt64, 8, 0xFFFFFFFFFFFFFFF0);
    const std::string zeroType(4, '\0');
    return {
        {"control", withTrack({}), 1, 0, 3, kEOS},
        // Nesting: the walk gives up at its depth cap, far above real files.
        {"nested_100000", nested(100000)},
        // Sizes below their header, 64-bit sizes that overflow the offset or
        // int64, and children that claim more than their parent.
        {"box_size_4", withTrack(box("free", {}, 4))},
        {"large_size_past_int64", withTrack(largePastInt64)},
        {"large_size_wraps_offset", withTrack(largeBox("free", {}, 0x7FFFFFFFFFFFFFF0))},
        {"mdat_huge_before_moov", cat({largeBox("mdat", {}, 0x7000000000000000), withTrack({})})},
        {"child_past_parent", udta(box("free", Bytes(4, 0), 100))},
        {"stsd_entry_past_stsd", movie(trak(1, "vide", stbl(box("avc1", Bytes(78, 0), 4000), 1)))},
        // Counts past their box: the sample-table setters refuse them, the
        // entry loop of stsd stops at its end (size-0 entries step 4 bytes).
        {"stco_count_past_box", withTrack(trak(3, "vide", box("stbl", box("stco", table({0}, 1, 4, 0x40000000)))))},
        {"stsd_count_ffffffff_zero_entries", movie(trak(2, "text", stbl(Bytes(16, 0), 0xFFFFFFFF))), 1, 0, 3, kEOS},
        {"esds_length_past_box", sound(soundEntry("mp4a", 0, 2, 8000, fullBox("esds", 0, 0, {0x03, 0x7F, 0, 1})))},
        // Small fields that would be read from the next box, or divide by zero.
        {"meta_size_below_4", udta(box("meta", Bytes(2, 0)))},
        {"udta_size_below_8", withTrack(box("udta", Bytes(4, 0))), 1, 0, 3, kEOS},
        {"tkhd_size_not_84_or_96", movie(box("trak", fullBox("tkhd", 1, 0, Bytes(80, 0))))},
        {"mdhd_timescale_0", movie(trak(1, "vide", stbl(visualEntry("avc1", 8, 8, box("avcC", kAVCC)), 1), 0))},
        {"mdhd_truncated", movie(box("trak", box("mdia", fullBox("mdhd", 0, 0, Bytes(8, 0)))))},
        {"hdlr_truncated", movie(box("trak", box("mdia", fullBox("hdlr", 0, 0, {}))))},
        {"location_18_bytes", udta(box("\xA9xyz", Bytes(23, '1')))},
        {"covr_below_16", udta(box("covr", Bytes(5, 0))), 1, 0, 3, kEOS},
        {"ilst_data_below_4", udta(fullBox("meta", 0, 0, box("ilst", box("trkn", box("data", {0})))))},
        {"sound_v1_extension_past_box", sound(soundEntry("twos", 1, 1, 8000))},
        {"wave_without_terminator", sound(soundEntry("twos", 0, 1, 8000, box("wave", box("frma", Bytes(4, 0))))), 1, 0,
         1, kEOS},
        // Boxes outside any track.
        {"stbl_outside_trak", movie(box("stbl", {}))},
        {"stco_outside_stbl", movie(box("trak", box("stco", table({0}))))},
        // Walks that would not end: a zero-type box (kept in place) in moov and
        // at the top, a file of zeros (size-0 boxes, 4 bytes a step).
        {"zero_type_in_moov", withTrack(box(zeroType, {}))},
        {"zero_type_top_level", cat({box(zeroType, {}), withTrack({})})},
        {"all_zeros", Bytes(1 << 20, 0)},
        {"truncated_in_stbl", truncated()},
        sizeUnknown({"", truncated()}, "truncated_size_unknown"),
        // Compressed headers: a claimed size past the cap, a stream that expands
        // past its claim (16 MiB of zeros claimed as 1000 bytes), sizes below
        // the cmvd header, and a stream claimed past its cmov box.
        {"cmov_expanded_size_huge", compressedMovie(0xFFFFFFFF, zlib(Bytes(100, 0)))},
        {"cmov_zip_bomb", compressedMovie(1000, zlib(Bytes(16 << 20, 0)))},
        {"cmvd_size_below_12", compressedMovie(100, zlib(Bytes(100, 0)), 8)},
        {"cmvd_past_cmov", compressedMovie(100, zlib(Bytes(100, 0)), 0x7FFFFFFF)},
        // A compressed header inside an expanded one is refused, and with it
        // the header that holds it (were it expanded, its moov would open).
        {"cmov_inside_cmov", cmovInsideCmov()},
        {"cmov_wrong_compression", box("moov", box("cmov", cat({box("dcom", {'g', 'z', 'i', 'p'}),
                                                                box("cmvd", Bytes(16, 0))})))},
        // Checks that stay fatal.
        fatalRow("tkhd_version_2", movie(box("trak", fullBox("tkhd", 2, 0, Bytes(80, 0)))),
                 "CHECK_EQ( (unsigned)version,0u) failed: "),
    };
}

ZIRK_HOSTILE_SUITE(MOVHostileTest, MEDIA_MIMETYPE_CONTAINER_MOV, rows);

}  // namespace
