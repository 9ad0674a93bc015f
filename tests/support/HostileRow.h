// One row per hostile construct, for every container: a small valid file
// with one field made to lie, opened through the entry points as its
// container MIME type. The row pins the outcome (track count and how the
// chosen track reads, or the fatal check that must fire instead), and the
// file then goes through the fuzz harness, which reads every track to the
// end and seeks in every mode. Run in the plain and the sanitizer builds: a
// row that "passes" with an out-of-bounds read or a division by zero fails
// there. Only for test programs that link the fuzz harness.
#ifndef ZIRK_TEST_HOSTILE_ROW_H_
#define ZIRK_TEST_HOSTILE_ROW_H_

#include <ostream>
#include <string>

#include <gtest/gtest.h>

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

struct HostileRow {
    const char* id;
    const char* containerMime;
    Bytes (*build)();
    size_t tracks;             // countTracks()
    size_t track;              // the track read
    int reads;                 // OK reads before the first failure, kUnchecked or kStartFails
    status_t end;              // the status that ended the reading
    const char* fatal = nullptr;  // or the check that must fire instead of all the above
    int64_t firstTimeUs = kUnchecked;  // kKeyTime of the first buffer
    bool sizeKnown = true;     // whether the source tells its size
};

inline void PrintTo(const HostileRow& row, std::ostream* os) { *os << row.id; }
inline std::string hostileRowName(const ::testing::TestParamInfo<HostileRow>& info) { return info.param.id; }

inline void runHostileRow(const HostileRow& row) {
    fuzz::initHarness();
    const Bytes bytes = row.build();
    std::string fired;
    size_t tracks = 0;
    TrackRead read;
    try {
        sp<MediaExtractor> extractor =
                getInstance(new FaultySource(bytes, FaultySource::kNone, 0, row.sizeKnown), row.containerMime);
        ASSERT_NE(extractor, nullptr);
        tracks = extractor->countTracks();
        if (tracks > row.track) read = readTrack(extractor->getTrack(row.track), true, 1000);
    } catch (const fuzz::FatalCheck& check) {
        fired = check.message;
    }
    if (row.fatal != nullptr) {
        // A check message names the file it is in.
        bool matched = false;
        for (const char* source : {"avi/ZIRKAVIExtractor", "flv/ZIRKFLVExtractor", "flv/ZIRKFLVSource"}) {
            matched = matched || isCheckMessage(fired, source, row.fatal);
        }
        EXPECT_TRUE(matched) << "fired: " << fired;
    } else {
        EXPECT_EQ(fired, "");
        EXPECT_EQ(tracks, row.tracks);
        if (row.tracks > 0) {
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
    }
    fuzz::runExtractor(bytes.data(), bytes.size(), row.containerMime);
}

}  // namespace test
}  // namespace android

#endif
