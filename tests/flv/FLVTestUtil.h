// Helpers shared by the FLV tests: opening bytes, draining a track, and a
// source whose bytes can be changed after the scan.
#ifndef ZIRK_TEST_FLV_TEST_UTIL_H_
#define ZIRK_TEST_FLV_TEST_UTIL_H_

#include <gtest/gtest.h>

#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

#include <media/stagefright/MediaSource.h>
#include <media/stagefright/MetaData.h>

#include "FLVBuilder.h"
#include "TestDataSources.h"
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

// A MemorySource whose bytes may be changed, or cut to `truncate` bytes,
// after the scan, as if the file were rewritten under a running extractor.
class MutableSource : public MemorySource {
public:
    explicit MutableSource(std::vector<uint8_t> bytes) : MemorySource(std::move(bytes)), mVisible(mBytes.size()) {}
    void poke(size_t offset, uint8_t value) { mBytes.at(offset) = value; }
    void truncate(size_t size) { mVisible = std::min(size, mBytes.size()); }
    ssize_t readAt(off64_t offset, void* data, size_t size) override {
        if (offset < 0 || static_cast<uint64_t>(offset) >= mVisible) return 0;
        const size_t n = std::min(size, mVisible - static_cast<size_t>(offset));
        memcpy(data, mBytes.data() + offset, n);
        return static_cast<ssize_t>(n);
    }
    status_t getSize(off64_t* size) override {
        *size = static_cast<off64_t>(mVisible);
        return OK;
    }

private:
    size_t mVisible;
};

inline sp<ZIRKFLVExtractor> openFLV(const std::vector<uint8_t>& bytes) {
    return new ZIRKFLVExtractor(new MemorySource(bytes));
}

struct Sample {
    int64_t timeUs = -1;
    bool sync = false;
    std::vector<uint8_t> data;     // the buffer's range
    std::vector<uint8_t> written;  // from the start of the buffer to its end
};

inline status_t readSample(const sp<MediaSource>& source, Sample* out,
                           const MediaSource::ReadOptions* options = nullptr) {
    MediaBuffer* buffer = nullptr;
    status_t err = source->read(&buffer, options);
    if (err != OK) {
        EXPECT_EQ(buffer, nullptr);
        return err;
    }
    const uint8_t* base = static_cast<const uint8_t*>(buffer->data());
    out->data.assign(base + buffer->range_offset(), base + buffer->range_offset() + buffer->range_length());
    out->written.assign(base, base + buffer->size());
    int32_t sync = 0;
    out->sync = buffer->meta_data()->findInt32(kKeyIsSyncFrame, &sync) && sync == 1;
    EXPECT_TRUE(buffer->meta_data()->findInt64(kKeyTime, &out->timeUs));
    buffer->release();
    return OK;
}

// Every sample of a started source; the first error must be the end.
inline std::vector<Sample> readAll(const sp<MediaSource>& source) {
    std::vector<Sample> samples;
    Sample s;
    status_t err;
    while ((err = readSample(source, &s)) == OK) samples.push_back(s);
    EXPECT_EQ(err, ERROR_END_OF_STREAM);
    return samples;
}

inline std::vector<uint8_t> bytesOf(const sp<MetaData>& meta, uint32_t key) {
    uint32_t type = 0;
    const void* data = nullptr;
    size_t size = 0;
    if (!meta->findData(key, &type, &data, &size)) return {};
    EXPECT_EQ(type, 0u);
    const uint8_t* p = static_cast<const uint8_t*>(data);
    return std::vector<uint8_t>(p, p + size);
}

}  // namespace test
}  // namespace android

#endif
