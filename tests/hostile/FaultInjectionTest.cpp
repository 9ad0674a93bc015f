// Every real FLV and AVI test file behind a failing DataSource: reads that
// touch a byte at or past a fault offset come back short, negative or empty,
// at offsets 0, 1, 2, 3, ... growing by a quarter, and a few just before the
// end. The extractor is opened, every track listed, read to the end and
// sought in every mode, as the fuzz harness does, but over the faulty source. A fault may lose
// tracks or samples, or stop at one of the deliberate fatal checks; it may
// not crash, trip a sanitizer, or invent a track. A source that cannot tell
// its size must change nothing: both extractors only use the size to bound
// what they allocate.

#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <media/stagefright/MediaBuffer.h>
#include <media/stagefright/MediaDefs.h>
#include <media/stagefright/MediaSource.h>

#include "TestDataSources.h"
#include "entry/ZIRKExtractorEntry.h"
#include "fuzz/ZIRKFuzzHarness.h"

using namespace android;
using namespace android::test;

namespace {

// Reads per track and pass, as in the harness: bounds a source that keeps
// answering without moving on.
const int kMaxReadsPerPass = 20000;
const int64_t kSeekTimesUs[] = {0, 1500000, INT64_C(1) << 40};




// 0, then offsets growing by a quarter (1, 2, 3, 4, 5, 6, 7, 8, 10, ...)
// below the size, then a few that cut the last tag, chunk or index entry.
std::vector<uint64_t> faultOffsets(uint64_t size) {
    std::vector<uint64_t> offsets = {0};
    for (uint64_t o = 1; o < size; o = std::max(o + 1, o * 5 / 4)) offsets.push_back(o);
    for (uint64_t back : {256, 16, 4, 1}) {
        if (back < size) offsets.push_back(size - back);
    }
    return offsets;
}

struct Outcome {
    size_t tracks = 0;
    std::vector<int> samples;  // buffers read by each track's first pass
    std::string fatal;         // the fatal check that ended the run, if any
};

int readPass(const sp<MediaSource>& source, const MediaSource::ReadOptions* options) {
    int buffers = 0;
    for (int i = 0; i < kMaxReadsPerPass; ++i) {
        MediaBuffer* buffer = nullptr;
        status_t err = source->read(&buffer, i == 0 ? options : nullptr);
        if (buffer != nullptr) {
            // Touch both ends of the range so that a bad one shows under ASan.
            const uint8_t* p = static_cast<const uint8_t*>(buffer->data()) + buffer->range_offset();
            volatile uint8_t sink = 0;
            if (buffer->range_length() > 0) sink ^= p[0] ^ p[buffer->range_length() - 1];
            (void)sink;
            buffer->release();
        }
        if (err != OK) break;
        ++buffers;
    }
    return buffers;
}

Outcome run(const sp<DataSource>& source, const char* mime) {
    fuzz::initHarness();
    Outcome outcome;
    try {
        sp<MediaExtractor> extractor = getInstance(source, mime);
        if (extractor == nullptr) return outcome;
        sp<MetaData> fileMeta = extractor->getMetaData();
        outcome.tracks = extractor->countTracks();
        for (size_t i = 0; i < outcome.tracks; ++i) {
            sp<MetaData> format = extractor->getTrackMetaData(i, 0);
            sp<MediaSource> track = extractor->getTrack(i);
            if (track == nullptr || track->start() != OK) {
                outcome.samples.push_back(-1);
                continue;
            }
            outcome.samples.push_back(readPass(track, nullptr));
            for (int mode = MediaSource::ReadOptions::SEEK_PREVIOUS_SYNC;
                 mode <= MediaSource::ReadOptions::SEEK_CLOSEST; ++mode) {
                for (int64_t t : kSeekTimesUs) {
                    MediaSource::ReadOptions options;
                    options.setSeekTo(t, static_cast<MediaSource::ReadOptions::SeekMode>(mode));
                    readPass(track, &options);
                }
            }
            track->stop();
        }
    } catch (const fuzz::FatalCheck& check) {
        fuzz::noteFatalCheck(check);
        outcome.fatal = check.message;
    }
    return outcome;
}

class FaultInjectionTest : public ::testing::TestWithParam<test::MediaFile> {};

TEST_P(FaultInjectionTest, FaultsFailCleanly) {
    const test::MediaFile& file = GetParam();
    const std::vector<uint8_t> bytes = readFileBytes(testdataPath(file.name));
    ASSERT_FALSE(bytes.empty());
    const Outcome intact = run(new MemorySource(bytes), file.containerMime);
    ASSERT_EQ(intact.fatal, "");
    ASSERT_GT(intact.tracks, 0u);

    const FaultySource::Mode kModes[] = {FaultySource::kShortRead, FaultySource::kNegativeRead,
                                         FaultySource::kZeroRead};
    for (uint64_t offset : faultOffsets(bytes.size())) {
        for (FaultySource::Mode mode : kModes) {
            SCOPED_TRACE("fault at " + std::to_string(offset) + ", mode " + std::to_string(mode));
            const Outcome faulty = run(new FaultySource(bytes, mode, offset), file.containerMime);
            EXPECT_LE(faulty.tracks, intact.tracks);
            // Nothing readable at all: no header, no tracks, and no check.
            if (offset == 0) {
                EXPECT_EQ(faulty.tracks, 0u);
                EXPECT_EQ(faulty.fatal, "");
            }
        }
    }

    // Size unknown, no fault: the same tracks, each with the same samples.
    const Outcome unsized = run(new FaultySource(bytes, FaultySource::kNone, 0, false), file.containerMime);
    EXPECT_EQ(unsized.fatal, "");
    EXPECT_EQ(unsized.tracks, intact.tracks);
    EXPECT_EQ(unsized.samples, intact.samples);
}

std::string fileName(const ::testing::TestParamInfo<test::MediaFile>& info) {
    return test::testNameFor(info.param.name);
}

INSTANTIATE_TEST_SUITE_P(RealFiles, FaultInjectionTest, ::testing::ValuesIn(test::mediaTestFiles()), fileName);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(FaultInjectionTest);

}  // namespace
