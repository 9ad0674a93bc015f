// Helpers shared by the FLV tests: opening bytes, draining a track, the
// scan's failure reports.
#ifndef ZIRK_TEST_FLV_TEST_UTIL_H_
#define ZIRK_TEST_FLV_TEST_UTIL_H_

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <media/stagefright/MediaSource.h>
#include <media/stagefright/MetaData.h>

#include "FLVBuilder.h"
#include "TestDataSources.h"
#include "TrackReader.h"
#include "flv/ZIRKFLVExtractor.h"

namespace android {
namespace test {

// Fatal checks name the file they are in.
const char kFLVExtractorFile[] = "flv/ZIRKFLVExtractor";
const char kFLVSourceFile[] = "flv/ZIRKFLVSource";

// "Fail (status): flv/ZIRKFLVExtractor(line)[step]"
inline std::string failLine(int status, int line, const std::string& step) {
    return "Fail (" + std::to_string(status) + "): flv/ZIRKFLVExtractor(" + std::to_string(line) +
           ")[" + step + "]";
}

inline sp<ZIRKFLVExtractor> openFLV(const std::vector<uint8_t>& bytes) {
    return new ZIRKFLVExtractor(new MemorySource(bytes));
}

// Every sample of a started source, which must end at the end of the stream.
inline std::vector<Sample> readAll(const sp<MediaSource>& source) {
    TrackRead r = readTrack(source, false);
    EXPECT_EQ(r.end, ERROR_END_OF_STREAM);
    return r.samples;
}

// FLV stores its codec data with type 0.
inline Bytes bytesOf(const sp<MetaData>& meta, uint32_t key) {
    uint32_t type = 0;
    Bytes data = findBytes(meta, key, &type);
    EXPECT_EQ(type, 0u);
    return data;
}

}  // namespace test
}  // namespace android

#endif
