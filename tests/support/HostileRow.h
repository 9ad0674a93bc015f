// One row per hostile construct, for every container: a small valid file
// with one field made to lie, opened through the entry points as its
// container MIME type (ASF with its Windows Media streams shown). The row
// pins the outcome (track count and how the chosen track reads, or the fatal
// check that must fire instead); every track's format must then be there,
// and the file goes through the fuzz harness, which reads every track to the
// end and seeks in every mode. Run in the plain and the sanitizer builds: a
// row that "passes" with an out-of-bounds read or a division by zero fails
// there. Only for test programs that link the fuzz harness; rows are built
// when the suite is instantiated and owned by the test parameter.
#ifndef ZIRK_TEST_HOSTILE_ROW_H_
#define ZIRK_TEST_HOSTILE_ROW_H_

#include <ostream>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include <cutils/properties.h>
#include <media/stagefright/MediaDefs.h>
#include <media/stagefright/MediaErrors.h>

#include "CheckMatchers.h"
#include "TestDataSources.h"
#include "TrackReader.h"
#include "entry/ZIRKExtractorEntry.h"
#include "fuzz/ZIRKFuzzHarness.h"

namespace android {
namespace test {

const int kUnchecked = -1;    // a count or time the row does not pin
const int kStartFails = -2;   // `reads` of a row whose track refuses start()
const status_t kEOS = ERROR_END_OF_STREAM;

// The defaults are a file that opens with no track.
struct HostileRow {
    const char* id;
    Bytes bytes;
    size_t tracks = 0;                 // countTracks()
    size_t track = 0;                  // the track read
    int reads = 0;                     // OK reads before the first failure, kUnchecked or kStartFails
    status_t end = OK;                 // the status that ended the reading
    int64_t firstTimeUs = kUnchecked;  // kKeyTime of the first buffer
    const char* fatal = nullptr;       // or the check that must fire instead of all the above
    bool sizeKnown = true;             // whether the source tells its size
};

// A row whose opening must end in the check `text` (values may be left out).
inline HostileRow fatalRow(const char* id, Bytes bytes, const char* text) {
    HostileRow row{id, std::move(bytes)};
    row.fatal = text;
    return row;
}
// The same row behind a source that cannot tell its size.
inline HostileRow sizeUnknown(HostileRow row, const char* id) {
    row.id = id;
    row.sizeKnown = false;
    return row;
}

inline void PrintTo(const HostileRow& row, std::ostream* os) { *os << row.id; }
inline std::string hostileRowName(const ::testing::TestParamInfo<HostileRow>& info) { return info.param.id; }

// Opens, reads and checks `row` as described at the top of this file.
inline void runHostileRow(const HostileRow& row, const char* containerMime) {
    fuzz::initHarness();
    property_set("media.tamelordecode.supportwmva", "1");
    auto source = [&row] { return new FaultySource(row.bytes, FaultySource::kNone, 0, row.sizeKnown); };
    std::string fired;
    size_t tracks = 0;
    TrackRead read;
    try {
        sp<MediaExtractor> extractor = getInstance(source(), containerMime);
        ASSERT_NE(extractor, nullptr);
        tracks = extractor->countTracks();
        ASSERT_NE(extractor->getMetaData(), nullptr);
        for (size_t i = 0; i < tracks; ++i) {
            EXPECT_NE(extractor->getTrackMetaData(i, MediaExtractor::kIncludeExtensiveMetaData), nullptr) << i;
        }
        if (tracks > row.track) read = readTrack(extractor->getTrack(row.track), true, 1000);
    } catch (const fuzz::FatalCheck& check) {
        fired = check.message;
    }
    const fuzz::RunOutcome run = fuzz::runExtractor(source(), containerMime);
    if (row.fatal != nullptr) {
        EXPECT_TRUE(isCheckMessage(fired, row.fatal)) << "fired: " << fired;
        return;
    }
    EXPECT_EQ(fired, "");
    EXPECT_EQ(run.fatal, "");
    EXPECT_EQ(tracks, row.tracks);
    EXPECT_EQ(run.tracks, row.tracks);
    if (row.tracks == 0) return;
    const int reads = read.startFailed ? kStartFails : static_cast<int>(read.samples.size());
    if (row.reads != kUnchecked) {
        EXPECT_EQ(reads, row.reads);
    }
    EXPECT_EQ(read.end, row.end);
    if (row.firstTimeUs != kUnchecked) {
        ASSERT_FALSE(read.samples.empty());
        EXPECT_EQ(read.samples[0].timeUs, row.firstTimeUs);
    }
}

}  // namespace test
}  // namespace android

// The suite `Suite`, one test per row of `rows()`, each opened as `mime`.
#define ZIRK_HOSTILE_SUITE(Suite, mime, rows)                                           \
    class Suite : public ::testing::TestWithParam<::android::test::HostileRow> {};      \
    TEST_P(Suite, FailsAsPinned) { ::android::test::runHostileRow(GetParam(), mime); } \
    INSTANTIATE_TEST_SUITE_P(Rows, Suite, ::testing::ValuesIn(rows()), ::android::test::hostileRowName)

#endif
