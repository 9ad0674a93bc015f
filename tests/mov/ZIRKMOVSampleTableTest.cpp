// ZIRKMOVSampleTable and its iterator over synthetic stbl boxes: each setter
// against lying counts and sizes, every sample's offset, size, time and sync
// flag across chunk and stsc boundaries (walked forward, backward and forward
// again), the time and sync searches in every mode, chunk reads, the lazy
// builds under several threads, and the fatal checks. Below them,
// ZIRKMOVDataSource: which reads the plain cache and the expanded movie
// header serve, the sizes it refuses before allocating, and readers on
// several threads.
#include <algorithm>
#include <atomic>
#include <functional>
#include <numeric>
#include <thread>
#include <tuple>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include <media/stagefright/MediaErrors.h>

#include "CheckMatchers.h"
#include "LogCapture.h"
#include "MOVBuilder.h"
#include "TestDataSources.h"
#include "mov/ZIRKMOVDataSource.h"
#include "mov/ZIRKMOVSampleIterator.h"
#include "mov/ZIRKMOVSampleTable.h"

using namespace android;
using namespace android::test;
using namespace android::test::mov;

namespace {

using Values = std::vector<uint64_t>;
using Table = ZIRKMOVSampleTable;

// One track's tables; the defaults: chunks at 100..400, chunks 0-1 of two
// samples and 2-3 of three (sizes 10..19, so samples 0..9 lie at 100, 110,
// 200, 212, 300, 314, 329, 400, 417, 435), decoding times 0, 10, 20, 30, then
// 40 to 140 by 20, sync samples 0, 4 and 7.
struct Tables {
    Values chunks{100, 200, 300, 400};
    bool co64 = false;
    Values stsc{1, 2, 1, 3, 3, 1};
    uint32_t defaultSize = 0;
    int64_t sampleCount = -1;  // the sizes' count unless set
    Values sizes{10, 11, 12, 13, 14, 15, 16, 17, 18, 19};
    uint32_t fieldSize = 32;  // 32: stsz, else stz2
    Values stts{4, 10, 6, 20};
    Values ctts;  // none when empty
    bool hasStss = true;
    Values stss{1, 5, 8};
    Bytes lead = Bytes(64);  // the file's bytes before the boxes

    template <typename V>
    Tables& set(V Tables::*field, std::common_type_t<V> v) { this->*field = std::move(v); return *this; }
};
using T = Tables;  // rows read T().set(&T::stsc, {...})

Values iota(uint64_t n, uint64_t first = 1) {
    Values v(n);
    std::iota(v.begin(), v.end(), first);
    return v;
}

status_t setBox(Table* table, const Payload& p) {
    switch (p.type) {
        case 'stco': case 'co64': return table->setChunkOffsetParams(p.type, p.offset, p.size);
        case 'stsz': case 'stz2': return table->setSampleSizeParams(p.type, p.offset, p.size);
        case 'stsc': return table->setSampleToChunkParams(p.offset, p.size);
        case 'stts': return table->setTimeToSampleParams(p.offset, p.size);
        case 'ctts': return table->setCompositionTimeToSampleParams(p.offset, p.size);
        case 'stss': return table->setSyncSampleParams(p.offset, p.size);
    }
    return UNKNOWN_ERROR;
}

const Tables kBasic;
std::vector<Payload> gLastBoxes;  // where open() put the boxes

sp<Table> open(const Tables& t, std::function<sp<DataSource>(const Bytes&)> make = {}) {
    BoxFile f{t.lead};
    gLastBoxes = {f.add(t.co64 ? "co64" : "stco", table(t.chunks, 1, t.co64 ? 8 : 4)), f.add("stsc", table(t.stsc, 3)),
                  t.fieldSize == 32 ? f.add("stsz", stsz(t.defaultSize, t.sizes, t.sampleCount))
                                    : f.add("stz2", stz2(t.fieldSize, t.sizes)),
                  f.add("stts", table(t.stts, 2))};
    if (!t.ctts.empty()) gLastBoxes.push_back(f.add("ctts", table(t.ctts, 2)));
    if (t.hasStss) gLastBoxes.push_back(f.add("stss", table(t.stss)));
    sp<Table> st = new Table(make ? make(f.bytes) : sp<DataSource>(new MemorySource(f.bytes)));
    for (const Payload& p : gLastBoxes) EXPECT_EQ(setBox(st.get(), p), OK) << std::hex << p.type;
    return st;
}

// One box on its own, its data size `extra` bytes larger than its payload.
TEST(ZIRKMOVSampleTableTest, SettersRefuseCountsTheirBoxCannotHold) {
    const struct { const char* name; const char* type; Bytes payload; uint64_t extra; status_t status; } kRows[] = {
        {"StcoCountPastBox", "stco", table({1, 2}, 1, 4, 3), 0, ERROR_MALFORMED},
        {"Co64CountTimesEightWrapsIn32Bits", "co64", table({1}, 1, 8, 0x20000000), 0, ERROR_MALFORMED},
        {"StscCountTimesTwelveWrapsIn32Bits", "stsc", table({1, 1, 1}, 3, 4, 0x15555556), 0, ERROR_MALFORMED},
        {"StszCountTimesFourWrapsIn32Bits", "stsz", stsz(0, {5}, 0x40000000), 0, ERROR_MALFORMED},
        // A constant size lists no sizes: more samples than the file has bytes
        // is refused (fuzzing found ~790M samples in a 115-byte file building
        // time tables until the cap).
        {"StszConstantSizeCountPastTheFile", "stsz", stsz(4, {}, 1000), 0, ERROR_MALFORMED},
        {"Stz2EightBitTenSamplesIn21Bytes", "stz2", stz2(8, iota(9), 10), 0, ERROR_MALFORMED},
        {"Stz2EightBitTenSamplesIn22Bytes", "stz2", stz2(8, iota(10)), 0, OK},
        {"Stz2FieldSizeFive", "stz2", stz2(5, {}, 0), 0, ERROR_MALFORMED},
        {"Stz2ReservedBitsSet", "stz2", stz2(0x108, {}, 0), 0, ERROR_MALFORMED},
        {"SttsCountPastBox", "stts", table({1, 1}, 2, 4, 2), 0, ERROR_MALFORMED},
        {"SttsCountTimesEightWrapsIn32Bits", "stts", table({1, 1}, 2, 4, 0x20000000), 0, ERROR_MALFORMED},
        {"SttsBoxClaimsTwoGiBTheFileLacks", "stts", table({1, 1}, 2, 4, 0x10000000), 0x80000000, ERROR_IO},
        {"StscEntriesCutByEndOfFile", "stsc", table({1, 1, 1}, 3, 4, 2), 12, ERROR_IO},
        {"StssCountPastBox", "stss", table({1}, 1, 4, 2), 0, ERROR_MALFORMED},
        {"CttsSizeNotExactlyItsCount", "ctts", table({1, 1}, 2), 4, ERROR_MALFORMED},
        {"VersionFlagsNotZero", "stsc", table({}, 3, 4, -1, 0x01000000), 0, ERROR_MALFORMED},
        {"StcoBelowItsHeader", "stco", Bytes(7), 0, ERROR_MALFORMED},
        {"StszBelowItsHeader", "stsz", Bytes(11), 0, ERROR_MALFORMED},
        {"HeaderPastEndOfFile", "stss", Bytes(), 8, ERROR_IO},
        {"Co64OffsetsPast32Bits", "co64", table({1ull << 40}, 1, 8), 0, OK},
    };
    for (const auto& row : kRows) {
        BoxFile f;
        Payload p = f.add(row.type, row.payload);
        p.size += row.extra;
        sp<Table> t = new Table(new MemorySource(f.bytes));
        EXPECT_EQ(setBox(t.get(), p), row.status) << row.name;
    }
}

// A second box of a kind must not replace the table already set; a table
// that was given no boxes is not valid.
TEST(ZIRKMOVSampleTableTest, SecondBoxOfAKindIsRefused) {
    LogCapture log;
    sp<Table> t = open(T().set(&T::ctts, {10, 0}));
    EXPECT_TRUE(log.contains("There are reordered frames present.", ANDROID_LOG_INFO));
    for (const Payload& p : gLastBoxes) EXPECT_EQ(setBox(t.get(), p), ERROR_MALFORMED) << std::hex << p.type;
    EXPECT_TRUE(t->isValid());
    EXPECT_FALSE(sp<Table>(new Table(new MemorySource({})))->isValid());
}

struct Expect { uint32_t index; status_t status; int64_t offset = 0; uint32_t size = 0, time = 0; bool sync = false; };

// Every listed sample, visited forward, backward and forward again, so that
// both cursors are rebuilt after seeking back.
TEST(ZIRKMOVSampleIteratorTest, SamplesAcrossChunksAndAfterSeeks) {
    const uint64_t k4G = 1ull << 32;
    // Each sample: index, status, then offset, size, time and sync flag.
    const struct { const char* name; Tables t; std::vector<Expect> samples; const char* log = nullptr; } kRows[] = {
        {"TwoStscRanges", T(), {{0, OK, 100, 10, 0, true}, {1, OK, 110, 11, 10}, {2, OK, 200, 12, 20},
          {3, OK, 212, 13, 30}, {4, OK, 300, 14, 40, true}, {6, OK, 329, 16, 80}, {7, OK, 400, 17, 100, true},
          {9, OK, 435, 19, 140}, {10, ERROR_END_OF_STREAM}}},
        {"Co64PastFourGiB", T().set(&T::co64, true).set(&T::chunks, {k4G, k4G + 256}).set(&T::stsc, {1, 2, 1})
          .set(&T::sizes, {5, 6, 7, 8}).set(&T::hasStss, false),
         {{1, OK, int64_t(k4G) + 5, 6, 10, true}, {2, OK, int64_t(k4G) + 256, 7, 20, true}}},
        {"Stz2FourBitHighNibbleFirst",
         T().set(&T::fieldSize, 4).set(&T::sizes, {1, 2, 3, 4, 5}).set(&T::stsc, {1, 5, 1}),
         {{0, OK, 100, 1, 0, true}, {1, OK, 101, 2, 10}, {4, OK, 110, 5, 40, true}}},
        {"Stz2SixteenBit", T().set(&T::fieldSize, 16).set(&T::sizes, {300, 65535, 7}).set(&T::stsc, {1, 3, 1}),
         {{1, OK, 400, 65535, 10}, {2, OK, 65935, 7, 20}}},
        {"ConstantSize", T().set(&T::defaultSize, 7).set(&T::sampleCount, 7).set(&T::stss, {2}),
         {{1, OK, 107, 7, 10, true}, {3, OK, 207, 7, 30}, {4, OK, 300, 7, 40}}},
        {"NegativeCompositionOffsets", T().set(&T::ctts, {1, 0xFFFFFFFB, 1, 20, 2, 0xFFFFFFF6}),
         {{0, OK, 100, 10, 0, true}, {1, OK, 110, 11, 30}, {2, OK, 200, 12, 10}, {3, OK, 212, 13, 20},
          {4, OK, 300, 14, 40, true}}},
        {"EmptyChunkRunMidway", T().set(&T::stsc, {1, 2, 1, 2, 0, 1, 3, 1, 1}).set(&T::sizes, {1, 2, 3, 4}),
         {{1, OK, 101, 2, 10}, {2, OK, 300, 3, 20}, {3, OK, 400, 4, 30}}},
        {"EmptyChunkRunLast", T().set(&T::stsc, {1, 2, 1, 2, 0, 1}).set(&T::sizes, {1, 2, 3}),
         {{1, OK, 101, 2, 10}, {2, ERROR_MALFORMED}}},
        {"StscGoesBackwards", T().set(&T::stsc, {1, 1, 1, 3, 1, 1, 2, 1, 1}).set(&T::sizes, {1, 2, 3}),
         {{1, OK, 200, 2, 10}, {2, ERROR_MALFORMED}}, "findChunkRange failed"},
        {"NoStscEntries", T().set(&T::stsc, {}), {{0, ERROR_OUT_OF_RANGE}}, "findChunkRange failed"},
        {"ChunkPastStco", T().set(&T::chunks, {100}).set(&T::stsc, {1, 1, 1}).set(&T::sizes, {1, 2}),
         {{0, OK, 100, 1, 0, true}, {1, ERROR_OUT_OF_RANGE}}, "getChunkOffset return error"},
        {"LastChunkShorterThanStsc", T().set(&T::stsc, {1, 3, 1}).set(&T::sizes, {1, 2, 3, 4}),
         {{2, OK, 103, 3, 20}, {3, ERROR_OUT_OF_RANGE}}, "getSampleSizeDirect return error"},
        {"SttsShorterThanSamples", T().set(&T::stts, {1, 10}), {{0, OK, 100, 10, 0, true}, {1, ERROR_OUT_OF_RANGE}},
         "findSampleTime return error"},
        {"NoSttsEntries", T().set(&T::stts, {}), {{0, ERROR_MALFORMED}}},
        {"SampleEndPastInt64",
         T().set(&T::co64, true).set(&T::chunks, {INT64_MAX - 15}).set(&T::stsc, {1, 2, 1}).set(&T::sizes, {8, 16}),
         {{0, OK, INT64_MAX - 15, 8, 0, true}, {1, ERROR_MALFORMED}}},
        {"SttsCountsPast32Bits", T().set(&T::stts, {0xFFFFFFFF, 0xFFFFFFFF, 0xFFFFFFFF, 1}),
         {{1, OK, 110, 11, 0xFFFFFFFF}, {2, OK, 200, 12, 0xFFFFFFFF}, {0, OK, 100, 10, 0, true}}},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.name);
        LogCapture log;
        sp<Table> t = open(row.t);
        std::vector<Expect> order = row.samples;
        order.insert(order.end(), row.samples.rbegin(), row.samples.rend());
        order.insert(order.end(), row.samples.begin(), row.samples.end());
        for (const Expect& e : order) {
            Expect got = {e.index, OK, -1};
            size_t size = 0;
            ASSERT_EQ(t->getMetaDataForSample(e.index, &got.offset, &size, &got.time, &got.sync), e.status) << e.index;
            if (e.status != OK) continue;
            EXPECT_EQ(std::make_tuple(got.offset, size, got.time, got.sync),
                      std::make_tuple(e.offset, size_t(e.size), e.time, e.sync)) << e.index;
        }
        if (row.log) {
            EXPECT_TRUE(log.contains(row.log, ANDROID_LOG_ERROR)) << row.log;
        }
    }
}

class CountingSource : public FaultySource {
public:
    explicit CountingSource(const Bytes& bytes) : FaultySource(bytes, kNone, 0) {}
    ssize_t readAt(off64_t offset, void* data, size_t size) override {
        ++mReads;
        return FaultySource::readAt(offset, data, size);
    }
    std::atomic<int> mReads{0};
};

// Samples of the cached chunk cost no reads. Pins a fault of a seek that
// failed part-way: its chunk must not stay cached with the sizes of the
// chunk before.
TEST(ZIRKMOVSampleIteratorTest, ChunkCacheHoldsOnlyWholeChunks) {
    sp<CountingSource> source;
    sp<Table> t = open(Tables(), [&](const Bytes& b) { return source = new CountingSource(b); });
    // Set first, so that no read-ahead of the size table holds sample 7's size.
    source->setFault(FaultySource::kShortRead, gLastBoxes[2].offset + 12 + 7 * 4);  // sample 7's size
    ASSERT_EQ(t->getMetaDataForSample(4, nullptr, nullptr, nullptr), OK);
    const int reads = source->mReads;
    for (uint32_t s : {4, 5, 6, 5}) EXPECT_EQ(t->getMetaDataForSample(s, nullptr, nullptr, nullptr), OK);
    EXPECT_EQ(source->mReads, reads);
    EXPECT_EQ(t->getMetaDataForSample(8, nullptr, nullptr, nullptr), ERROR_IO);
    EXPECT_EQ(t->getMetaDataForSample(8, nullptr, nullptr, nullptr), ERROR_IO);
    source->setFault(FaultySource::kNone, 0);
    off64_t offset;
    EXPECT_EQ(t->getMetaDataForSample(8, &offset, nullptr, nullptr), OK);
    EXPECT_EQ(offset, 417);
}

// Composition times 10, 40, 20, 30, 60, 50 (decoding 0..50 by 10, reordered).
const Tables kReordered = T().set(&T::chunks, {100}).set(&T::stsc, {1, 6, 1}).set(&T::sizes, iota(6))
        .set(&T::stts, {6, 10}).set(&T::ctts, {1, 10, 1, 30, 2, 0, 1, 20, 1, 0}).set(&T::hasStss, false);

// Samples by composition time, chunks by decoding time, and sync samples
// near a sample, in every mode.
TEST(ZIRKMOVSampleTableTest, SearchesInEveryMode) {
    const uint32_t B = Table::kFlagBefore, A = Table::kFlagAfter, C = Table::kFlagClosest;
    enum Query { kSample, kChunk, kSync };
    const Tables overrun = T().set(&T::stts, {12, 10}).set(&T::sizes, {1, 2, 3});
    const Tables hugeRun = T().set(&T::stts, {0xFFFFFFFF, 1}).set(&T::sizes, {1, 2, 3});
    const Tables emptyChunk = T().set(&T::stsc, {1, 2, 1, 2, 0, 1, 3, 3, 1});
    const Tables backwards = T().set(&T::stsc, {1, 2, 1, 3, 3, 1, 2, 1, 1});
    const Tables hugeRuns =
            T().set(&T::stsc, {1, 0xFFFFFFFF, 1}).set(&T::stts, {0xFFFFFFFF, 1, 0xFFFFFFFF, 1});
    const Tables noStss = T().set(&T::hasStss, false), emptyStss = T().set(&T::stss, {});
    const struct {
        Query query; const Tables* t; int64_t at; uint32_t flags; status_t status; uint32_t found = 0, time = 0;
    } kRows[] = {
        {kSample, &kReordered, 30, C, OK, 3}, {kSample, &kReordered, 25, C, OK, 3} /* half-way: the later */,
        {kSample, &kReordered, 24, C, OK, 2}, {kSample, &kReordered, 26, B, OK, 2},
        {kSample, &kReordered, 26, A, OK, 3}, {kSample, &kReordered, 5, B, OK, 0}, {kSample, &kReordered, 5, A, OK, 0},
        {kSample, &kReordered, 61, A, ERROR_OUT_OF_RANGE}, {kSample, &kReordered, 61, B, OK, 4},
        {kSample, &kReordered, -100, C, OK, 0},
        {kSample, &kReordered, 1ll << 40, B, OK, 4} /* not cut to 32 bits on the way in */,
        {kSample, &overrun, 40, A, ERROR_OUT_OF_RANGE} /* samples past the count get no entry */,
        {kSample, &overrun, 40, B, OK, 2}, {kSample, &hugeRun, 2, C, OK, 2},
        {kChunk, &kBasic, 50, B, OK, 2, 40}, {kChunk, &kBasic, 99, A, OK, 3, 100}, {kChunk, &kBasic, 69, C, OK, 2, 40},
        {kChunk, &kBasic, 70, C, OK, 3, 100}, {kChunk, &kBasic, 101, A, ERROR_OUT_OF_RANGE},
        {kChunk, &emptyChunk, 20, C, OK, 2, 20} /* chunks 1 and 2 share a time: the later stays */,
        {kChunk, &backwards, 100, B, OK, 2, 40} /* chunk 3 lies past the backwards entry */,
        {kChunk, &hugeRuns, 1ll << 40, B, OK, 2, 0xFFFFFFFF} /* times held at 2^32 - 1, not wrapped */,
        {kSync, &kBasic, 5, B, OK, 4}, {kSync, &kBasic, 5, A, OK, 7}, {kSync, &kBasic, 5, C, OK, 4},
        {kSync, &kBasic, 6, C, OK, 7}, {kSync, &kBasic, 6, B, OK, 4} /* the closer 7 is after: the one before it */,
        {kSync, &kBasic, 4, A, OK, 4}, {kSync, &kBasic, 8, A, ERROR_OUT_OF_RANGE}, {kSync, &kBasic, 8, B, OK, 7},
        {kSync, &noStss, 6, B, OK, 6}, {kSync, &emptyStss, 6, A, OK, 0},
    };
    LogCapture log;
    for (const auto& row : kRows) {
        SCOPED_TRACE(testing::Message() << "query " << row.query << " at " << row.at << " flags " << row.flags);
        sp<Table> t = open(*row.t);
        uint32_t found = 99, time = 99;
        EXPECT_EQ(row.query == kSample  ? t->findSampleAtTime(row.at, &found, row.flags)
                  : row.query == kChunk ? t->findChunkAtTime(row.at, &found, &time, row.flags)
                                        : t->findSyncSampleNear(uint32_t(row.at), &found, row.flags),
                  row.status);
        if (row.status != OK) continue;
        EXPECT_EQ(found, row.found);
        EXPECT_EQ(time, row.query == kChunk ? row.time : 99);
    }
    EXPECT_TRUE(log.contains("tried to find a sync frame after the last one: 3", ANDROID_LOG_ERROR));
    // Past the time-table cap, in a file large enough to hold the samples.
    const Tables tooMany = T().set(&T::defaultSize, 1).set(&T::sampleCount, 0x600001);
    uint32_t sample;
    auto gap = [](const Bytes& b) { return sp<DataSource>(new GapSource(b, b.size(), 0x700000)); };
    EXPECT_EQ(open(tooMany, gap)->findSampleAtTime(0, &sample, C), ERROR_UNSUPPORTED);
}

// The thumbnail is the largest of the first 20 sync samples (the earlier on a
// tie); the largest size over listed, 4-bit and constant sizes.
TEST(ZIRKMOVSampleTableTest, ThumbnailAndLargestSample) {
    const Tables allSync = T().set(&T::chunks, {100}).set(&T::stsc, {1, 25, 1}).set(&T::sizes, iota(25))
            .set(&T::stts, {25, 1}).set(&T::stss, iota(25));
    const struct { const char* name; Tables t; uint32_t thumbnail; size_t largest; } kRows[] = {
        {"NoStssGivesSampleZero", T().set(&T::hasStss, false), 0, 19},
        {"LargestSyncSample", T(), 7, 19},
        {"EqualSizesTheEarlier", T().set(&T::sizes, {9, 9, 9, 9, 9, 9, 9, 9, 9, 9}), 0, 9},
        {"OnlyTheFirstTwentySyncSamples", allSync, 19, 25},
        {"FourBitSizes", T().set(&T::fieldSize, 4).set(&T::sizes, {1, 15, 3, 4, 5, 2, 1, 14, 0, 1}), 7, 15},
        {"ConstantSize", T().set(&T::defaultSize, 7).set(&T::sampleCount, 10), 0, 7},
    };
    for (const auto& row : kRows) {
        sp<Table> t = open(row.t);
        uint32_t thumbnail = 99;
        size_t largest = 0;
        EXPECT_EQ(t->findThumbnailSample(&thumbnail), OK) << row.name;
        EXPECT_EQ(t->getMaxSampleSize(&largest), OK) << row.name;
        EXPECT_EQ(std::make_pair(thumbnail, largest), std::make_pair(row.thumbnail, row.largest)) << row.name;
    }
}

// A chunk's bytes, start time and sample count per audio format. An MP3
// chunk that does not start on a frame sync is pinned, with its log line,
// by ZIRKMOVSourceTest.MP3ChunksWithoutAFrameEndTheTrackWithTheirLog.
TEST(ZIRKMOVSampleTableTest, ChunkBytesAndTimes) {
    const Tables mp3 = T().set(&T::chunks, {0, 4}).set(&T::stsc, {1, 1, 1}).set(&T::sizes, {4, 4})
            .set(&T::stts, {2, 1152}).set(&T::hasStss, false).set(&T::lead, {0xFF, 0xFB, 0x90, 0x64, 0, 0, 0, 0});
    const Tables pcm = T().set(&T::chunks, {0, 400}).set(&T::stsc, {1, 100, 1}).set(&T::defaultSize, 4)
            .set(&T::sampleCount, 150).set(&T::stts, {150, 1});
    const Tables adpcm = T().set(&T::chunks, {0}).set(&T::stsc, {1, 100, 1}).set(&T::defaultSize, 1)
            .set(&T::sampleCount, 100).set(&T::stts, {100, 1});
    const struct {
        const char* name; Tables t; int32_t format, blockAlign, perPacket; uint32_t chunk; status_t status;
        int64_t offset = 0; size_t size = 0; uint32_t time = 0, samples = 0;
    } kRows[] = {
        {"ListedSizes", T(), -1, 0, 0, 2, OK, 300, 45, 40, 3},
        {"PcmLastChunkShort", pcm, 0, 0, 0, 1, OK, 400, 200, 100, 50},
        {"AdpcmWholeBlocks", adpcm, 3, 36, 64, 0, OK, 0, 72, 0, 100},
        {"Mp3StartsOnSync", mp3, 5, 0, 0, 0, OK, 0, 4, 0, 1},
        {"AfterTheLastSample", T().set(&T::chunks, {100, 200, 300, 400, 500}), -1, 0, 0, 4, ERROR_END_OF_STREAM},
        {"PastStco", T(), -1, 0, 0, 4, ERROR_OUT_OF_RANGE},
    };
    for (const auto& row : kRows) {
        sp<Table> t = open(row.t);
        t->setAudioFormat(row.format);
        off64_t offset = -1;
        size_t size = 0;
        uint32_t time = 0, samples = 0;
        ASSERT_EQ(t->getMetaDataForChunk(row.chunk, &offset, &size, &time, &samples, row.blockAlign, row.perPacket),
                  row.status) << row.name;
        if (row.status != OK) continue;
        EXPECT_EQ(std::make_tuple(offset, size, time, samples),
                  std::make_tuple(row.offset, row.size, row.time, row.samples)) << row.name;
    }
}

// The lazy builds race on a fresh table: every thread must see what one
// thread alone sees.
TEST(ZIRKMOVSampleTableTest, ConcurrentLazyBuildsAndQueries) {
    const uint64_t n = 6000;
    Values sizes, ctts, stss;
    for (uint64_t i = 0; i < n; ++i) sizes.push_back(i % 50 + 1);
    for (uint64_t i = 0; i < n; ++i) ctts.insert(ctts.end(), {1, (i % 3) * 7});
    for (uint64_t i = 1; i <= n; i += 12) stss.push_back(i);
    const Tables t = T().set(&T::chunks, iota(n / 10, 1000)).set(&T::stsc, {1, 10, 1}).set(&T::sizes, sizes)
            .set(&T::stts, {n, 3}).set(&T::ctts, ctts).set(&T::stss, stss);
    auto run = [](const sp<Table>& table) {
        std::vector<int64_t> out;
        for (int64_t time = 0; time < 3 * int64_t(n); time += 97) {
            uint32_t sample = 0, sync = 0, chunk = 0, chunkTime = 0, ct = 0;
            off64_t offset = 0;
            out.push_back(table->findSampleAtTime(time, &sample, Table::kFlagClosest));
            out.push_back(table->findSyncSampleNear(sample, &sync, Table::kFlagBefore));
            out.push_back(table->getMetaDataForSample(sync, &offset, nullptr, &ct));
            out.push_back(table->findChunkAtTime(time, &chunk, &chunkTime, Table::kFlagBefore));
            out.insert(out.end(), {sample, sync, offset, ct, chunk, chunkTime});
        }
        return out;
    };
    const std::vector<int64_t> expected = run(open(t));
    sp<Table> shared = open(t);
    std::vector<std::vector<int64_t>> results(4);
    std::vector<std::thread> threads;
    for (auto& r : results) threads.emplace_back([&] { r = run(shared); });
    for (std::thread& th : threads) th.join();
    for (const auto& r : results) EXPECT_EQ(r, expected);
}

// The fatal checks of the table and the iterator, with their exact messages.
TEST(ZIRKMOVSampleTableDeathTest, ChecksStayFatal) {
    const std::string kTable = "ZIRKMOVSampleTable";
    const struct { const char* name; void (*body)(); std::string tag; const char* check; } kRows[] = {
        {"ChunkOffsetBoxType", [] { sp<Table>(new Table(new MemorySource({})))->setChunkOffsetParams('stsz', 0, 16); },
         kTable, "CHECK(type == kChunkOffsetType32 || type == kChunkOffsetType64) failed."},
        {"SampleSizeBoxType", [] { sp<Table>(new Table(new MemorySource({})))->setSampleSizeParams('stco', 0, 16); },
         kTable, "CHECK(type == kSampleSizeType32 || type == kSampleSizeTypeCompact) failed."},
        {"FirstChunkZero", [] { open(T().set(&T::stsc, {1, 2, 1, 0, 3, 1})); },
         kTable, "CHECK(U32_AT(buffer) >= 1) failed."},
        {"SampleTimeFlags", [] { uint32_t s; open(Tables())->findSampleAtTime(0, &s, 7); },
         kTable, "CHECK(flags == kFlagClosest) failed."},
        {"ChunkTimeFlags", [] { uint32_t c, t; open(Tables())->findChunkAtTime(0, &c, &t, 7); },
         kTable, "CHECK(flags == kFlagClosest) failed."},
        {"SyncBeforeTheFirstSyncSample",
         [] { uint32_t s; open(T().set(&T::stss, {3, 6}))->findSyncSampleNear(0, &s, Table::kFlagBefore); },
         kTable, "CHECK(left > 0) failed."},
        {"ChunkRangeBehindTheCursor", [] {
             sp<Table> t = open(Tables());
             ZIRKMOVSampleIterator it(t.get());
             it.seekTo(5);
             it.findChunkRange(0);
         }, "ZIRKMOVSampleIterator", "CHECK(sampleIndex >= mFirstChunkSampleIndex) failed."},
    };
    for (const auto& row : kRows) {
        EXPECT_DEATH(row.body(), "F/" + row.tag + ": " + checkMessage("mov/" + row.tag, row.check)) << row.name;
    }
}

Bytes pattern(size_t n, uint8_t seed) {
    Bytes b(n);
    for (size_t i = 0; i < n; ++i) b[i] = static_cast<uint8_t>(i * 31 + seed);
    return b;
}

// Reads through the two caches. The plain cache is made from a healthy file
// that then fails every read, so whatever still reads came from memory; a
// read that straddles its end goes whole to the file. An expanded header is
// the whole address space from then on: reads past its length (zlib's, not
// the declared one) fail with the log line even where the file has bytes.
TEST(ZIRKMOVDataSourceTest, CachesServeOnlyReadsInsideThem) {
    const Bytes file = pattern(4096, 1);
    sp<FaultySource> faulty = new FaultySource(file, FaultySource::kNone, 0);
    sp<ZIRKMOVDataSource> plain = new ZIRKMOVDataSource(faulty);
    ASSERT_EQ(plain->setCachedRange(1000, 500), OK);
    faulty->setFault(FaultySource::kNegativeRead, 0);
    const Bytes header = pattern(3000, 7);
    const Bytes packed = zlib(header);
    sp<ZIRKMOVDataSource> expanded =
            new ZIRKMOVDataSource(new MemorySource(cat({pattern(100, 9), packed, Bytes(5000, 0xEE)})));
    ASSERT_EQ(expanded->setCompressedCachedRange(100, header.size() + 50, packed.size()), OK);
    const struct { bool plain; off64_t offset; size_t size; ssize_t status; } cases[] = {
        {true, 1000, 500, 500}, {true, 1200, 1, 1}, {true, 1499, 1, 1}, {true, 1400, 101, ERROR_IO},
        {true, 999, 2, ERROR_IO}, {true, 1500, 0, 0}, {true, -1, 1, ERROR_IO}, {false, 0, 3000, 3000},
        {false, 2990, 10, 10}, {false, 2991, 10, ERROR_IO}, {false, 4000, 1, ERROR_IO},
    };
    LogCapture log;
    for (const auto& c : cases) {
        Bytes got(c.size);
        EXPECT_EQ((c.plain ? plain : expanded)->readAt(c.offset, got.data(), c.size), c.status) << c.offset;
        const Bytes& want = c.plain ? file : header;
        if (c.status > 0) {
            EXPECT_EQ(got, Bytes(want.begin() + c.offset, want.begin() + c.offset + c.size)) << c.offset;
        }
    }
    EXPECT_EQ(log.count("read beyond the compressed cache range, offset(4000), size=1 ", ANDROID_LOG_ERROR), 1u);
    // readSampleAt always goes to the file.
    uint8_t bytes[10];
    EXPECT_EQ(plain->readSampleAt(1200, bytes, 1), ERROR_IO);
    EXPECT_EQ(expanded->readSampleAt(4000, bytes, 1), 1);
    EXPECT_EQ(bytes[0], 0xEE);
    // Clearing the expanded buffer does not leave compressed mode.
    expanded->clearCompressedCache();
    EXPECT_EQ(expanded->readAt(0, bytes, 1), ERROR_IO);
    // A short read leaves no cache; a range past the file is refused before
    // any allocation or read.
    faulty->setFault(FaultySource::kShortRead, 1100);
    EXPECT_EQ(plain->setCachedRange(1000, 500), ERROR_IO);
    EXPECT_EQ(plain->readAt(1000, bytes, 10), 10);  // from the file, which still has those bytes
    EXPECT_EQ(plain->setCachedRange(4000, 97), ERROR_MALFORMED);
    EXPECT_EQ(plain->setCachedRange(1, SIZE_MAX), ERROR_MALFORMED);
}

// Sizes are the file's word. A declared expanded size too small for the
// stream, a zip bomb (64 MiB of zeros declared as 1 MiB), sizes past the caps
// or the file, and a cut stream all fail without a cache.
TEST(ZIRKMOVDataSourceTest, CompressedRangesThatCannotExpandFail) {
    const Bytes header = pattern(3000, 7);
    const Bytes packed = zlib(header);
    const Bytes bomb = zlib(Bytes(64 << 20, 0));
    const struct { const char* name; Bytes data; size_t declared; size_t compressed; status_t status; } cases[] = {
        {"declared size too small", packed, header.size() - 1, packed.size(), ERROR_IO},
        {"zip bomb", bomb, 1 << 20, bomb.size(), ERROR_IO},
        {"stream cut short", packed, header.size(), packed.size() / 2, ERROR_IO},
        {"expanded size past the cap", packed, size_t(1) << 40, packed.size(), ERROR_MALFORMED},
        {"compressed size past the file", packed, header.size(), packed.size() + 1, ERROR_MALFORMED},
        {"not zlib at all", Bytes(64, 0x55), 4096, 64, ERROR_IO},
    };
    for (const auto& c : cases) {
        sp<ZIRKMOVDataSource> s = new ZIRKMOVDataSource(new MemorySource(c.data));
        EXPECT_EQ(s->setCompressedCachedRange(0, c.declared, c.compressed), c.status) << c.name;
        uint8_t byte;
        EXPECT_EQ(s->readAt(0, &byte, 1), c.data.empty() ? 0 : 1) << c.name << ": still plain";
    }
}

// Track sources read through one wrapper at once: every reader gets exactly
// the bytes of the file, in both modes.
TEST(ZIRKMOVDataSourceTest, ConcurrentReadersGetExactBytes) {
    const Bytes header = pattern(1 << 16, 3);
    const Bytes packed = zlib(header);
    sp<ZIRKMOVDataSource> plain = new ZIRKMOVDataSource(new MemorySource(header));
    ASSERT_EQ(plain->setCachedRange(4096, 8192), OK);
    sp<ZIRKMOVDataSource> expanded = new ZIRKMOVDataSource(new MemorySource(packed));
    ASSERT_EQ(expanded->setCompressedCachedRange(0, header.size(), packed.size()), OK);
    std::vector<std::thread> threads;
    std::vector<int> mismatches(4, 0);
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            const sp<ZIRKMOVDataSource>& s = t % 2 ? plain : expanded;
            Bytes buffer(300);
            for (size_t i = 0; i < 2000; ++i) {
                size_t offset = (i * 7919 + t * 131) % (header.size() - buffer.size());
                if (s->readAt(offset, buffer.data(), buffer.size()) != static_cast<ssize_t>(buffer.size()) ||
                    !std::equal(buffer.begin(), buffer.end(), header.begin() + offset)) {
                    ++mismatches[t];
                }
            }
        });
    }
    for (std::thread& t : threads) t.join();
    EXPECT_EQ(mismatches, std::vector<int>(4, 0));
}

}  // namespace
