// Every real test file this build reads, damaged, through the fuzz harness (which
// opens the extractor, lists every track, reads each to the end and seeks in
// every mode). Damage may lose tracks or samples, fail the open, or stop at
// one of the extractors' deliberate fatal checks; it may not crash, trip a
// sanitizer, leak, or invent a track. Run under the sanitizer build in CI.
#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "TestDataSources.h"
#include "fuzz/ZIRKFuzzHarness.h"

using namespace android;
using namespace android::test;

namespace {

// Every byte of the first 4 KiB: headers, first index entries and first
// samples are where cuts change the parse most.
const size_t kDenseCutBytes = 4096;
// Beyond that, cuts at sizes growing by this factor.
const double kGeometricStep = 1.07;

class DamagedRealFileTest : public ::testing::TestWithParam<MediaFile> {
protected:
    const std::vector<uint8_t> mBytes = readFileBytes(testdataPath(GetParam().name));
};

// Cut short at every byte of its first 4 KiB and at geometric steps after;
// opened through the entry points, and through the forced extractor of the
// whole file's container.
TEST_P(DamagedRealFileTest, EveryCutFailsCleanly) {
    std::vector<size_t> cuts;
    for (size_t n = 0; n < std::min(kDenseCutBytes, mBytes.size()); ++n) cuts.push_back(n);
    for (double n = kDenseCutBytes; n < mBytes.size(); n *= kGeometricStep) cuts.push_back(static_cast<size_t>(n));
    for (size_t cut : cuts) {
        // Exact-size copy: a read past the cut is a read past an allocation.
        std::vector<uint8_t> prefix(mBytes.begin(), mBytes.begin() + cut);
        fuzz::runSniffAndCreate(prefix.data(), prefix.size());
        fuzz::runExtractor(prefix.data(), prefix.size(), GetParam().containerMime);
    }
}

// Behind a failing DataSource: reads that touch a byte at or past a fault
// offset come back short, negative or empty, at offsets 0, 1, 2, 3, ...
// growing by a quarter, and a few that cut the last tag, chunk or index
// entry. A source that cannot tell its size must change nothing: both
// extractors only use the size to bound what they allocate.
TEST_P(DamagedRealFileTest, FaultsFailCleanly) {
    const char* mime = GetParam().containerMime;
    const fuzz::RunOutcome intact = fuzz::runExtractor(new MemorySource(mBytes), mime);
    ASSERT_EQ(intact.fatal, "");
    ASSERT_GT(intact.tracks, 0u);
    std::vector<uint64_t> offsets = {0};
    for (uint64_t o = 1; o < mBytes.size(); o = std::max(o + 1, o * 5 / 4)) offsets.push_back(o);
    for (uint64_t back : {256, 16, 4, 1}) {
        if (back < mBytes.size()) offsets.push_back(mBytes.size() - back);
    }
    for (uint64_t offset : offsets) {
        for (auto mode : {FaultySource::kShortRead, FaultySource::kNegativeRead, FaultySource::kZeroRead}) {
            SCOPED_TRACE("fault at " + std::to_string(offset) + ", mode " + std::to_string(mode));
            const fuzz::RunOutcome faulty = fuzz::runExtractor(new FaultySource(mBytes, mode, offset), mime);
            EXPECT_LE(faulty.tracks, intact.tracks);
            // Nothing readable at all: no header, no tracks, and no check.
            if (offset == 0) {
                EXPECT_EQ(faulty.tracks, 0u);
                EXPECT_EQ(faulty.fatal, "");
            }
        }
    }
    // Size unknown, no fault: the same tracks, each with the same samples.
    const fuzz::RunOutcome unsized = fuzz::runExtractor(new FaultySource(mBytes, FaultySource::kNone, 0, false), mime);
    EXPECT_EQ(unsized.fatal, "");
    EXPECT_EQ(unsized.tracks, intact.tracks);
    EXPECT_EQ(unsized.samples, intact.samples);
}

INSTANTIATE_TEST_SUITE_P(RealFiles, DamagedRealFileTest, ::testing::ValuesIn(mediaTestFiles()), MediaFileName());
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(DamagedRealFileTest);

}  // namespace
