// Every real test file cut short: at every byte of its first 4 KiB and at
// geometric steps after. Each cut is opened through the entry points, and for
// the container of the whole file through the forced extractor with every
// track read and sought. A cut file may fail to open, end early, or stop at
// one of the extractors' deliberate fatal checks; it may not crash, trip a
// sanitizer or leak. Run under the sanitizer build in CI.

#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <media/stagefright/MediaDefs.h>

#include "TestDataSources.h"
#include "fuzz/ZIRKFuzzHarness.h"

using namespace android;

namespace {

// Every byte of the first 4 KiB: headers, first index entries and first
// samples are where cuts change the parse most.
const size_t kDenseCutBytes = 4096;
// Beyond that, cuts at sizes growing by this factor.
const double kGeometricStep = 1.07;




std::vector<size_t> cutSizes(size_t fileSize) {
    std::vector<size_t> cuts;
    for (size_t n = 0; n < std::min(kDenseCutBytes, fileSize); ++n) cuts.push_back(n);
    for (double n = kDenseCutBytes; n < fileSize; n *= kGeometricStep) cuts.push_back(static_cast<size_t>(n));
    return cuts;
}

class TruncationSweepTest : public ::testing::TestWithParam<test::MediaFile> {};

TEST_P(TruncationSweepTest, EveryCutFailsCleanly) {
    const test::MediaFile& file = GetParam();
    std::vector<uint8_t> bytes = test::readFileBytes(test::testdataPath(file.name));
    ASSERT_FALSE(bytes.empty());
    for (size_t cut : cutSizes(bytes.size())) {
        // Exact-size copy: a read past the cut is a read past an allocation.
        std::vector<uint8_t> prefix(bytes.begin(), bytes.begin() + cut);
        fuzz::runSniffAndCreate(prefix.data(), prefix.size());
        fuzz::runExtractor(prefix.data(), prefix.size(), file.containerMime);
    }
}

std::string fileName(const ::testing::TestParamInfo<test::MediaFile>& info) {
    return test::testNameFor(info.param.name);
}

INSTANTIATE_TEST_SUITE_P(RealFiles, TruncationSweepTest, ::testing::ValuesIn(test::mediaTestFiles()), fileName);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(TruncationSweepTest);

}  // namespace
