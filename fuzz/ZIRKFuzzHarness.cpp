#include "fuzz/ZIRKFuzzHarness.h"

#include <stdio.h>
#include <string.h>

#include <stdlib.h>

#include <map>
#include <mutex>

#include <log/log.h>
#include <log/log_host.h>
#include <media/stagefright/DataSource.h>
#include <media/stagefright/MediaBuffer.h>
#include <media/stagefright/MediaExtractor.h>
#include <media/stagefright/MediaSource.h>
#include <media/stagefright/MetaData.h>
#include <media/stagefright/foundation/AMessage.h>

#include "entry/ZIRKExtractorEntry.h"

namespace android {
namespace fuzz {

namespace {

// Reads of the first pass over a track: every sample of any input the
// fuzzer keeps (a 200 KB file cut into 4-byte PCM pieces has 50,000), and a
// bound on the time a long sample table can take under the sanitizers.
const size_t kMaxReadsFirstPass = 50000;
// Reads after each seek: enough to leave the seek target and cross a few
// chunks; the whole track was already read once.
const size_t kMaxReadsAfterSeek = 256;

// Seek targets in microseconds: the start, inside the first seconds, and far
// past the end.
const int64_t kSeekTimesUs[] = {0, 1500000, INT64_C(1) << 40};

class FuzzSource : public DataSource {
public:
    FuzzSource(const uint8_t* data, size_t size) : mData(data), mSize(size) {}
    status_t initCheck() const override { return OK; }
    ssize_t readAt(off64_t offset, void* out, size_t size) override {
        if (offset < 0) return ERROR_IO;
        if (static_cast<uint64_t>(offset) >= mSize) return 0;
        size_t n = mSize - static_cast<size_t>(offset);
        if (size < n) n = size;
        memcpy(out, mData + offset, n);
        return static_cast<ssize_t>(n);
    }
    status_t getSize(off64_t* size) override {
        *size = static_cast<off64_t>(mSize);
        return OK;
    }

private:
    const uint8_t* mData;
    size_t mSize;
};

void throwingAssertHook(void*, const char*, const char* message) {
    throw FatalCheck{message};
}

// "<source>:<line> CHECK_EQ( a,b) failed: 1 vs. 2" → "<source>:<line> CHECK_EQ( a,b) failed",
// so that one check is one entry whatever values it saw.
std::string checkKey(const std::string& message) {
    size_t failed = message.find(" failed");
    return failed == std::string::npos ? message : message.substr(0, failed + 7);
}

std::mutex gChecksLock;
std::map<std::string, uint64_t>* gChecksFired = nullptr;

void printCheckSummary() {
    std::lock_guard<std::mutex> guard(gChecksLock);
    if (gChecksFired == nullptr || gChecksFired->empty()) return;
    fprintf(stderr, "fatal checks fired (expected outcomes), by count:\n");
    for (const auto& entry : *gChecksFired) {
        fprintf(stderr, "  %10llu  %s\n", static_cast<unsigned long long>(entry.second), entry.first.c_str());
    }
}

// Returns the buffers read before the first failure.
int readAll(const sp<MediaSource>& source, const MediaSource::ReadOptions* firstOptions, size_t maxReads) {
    const MediaSource::ReadOptions* options = firstOptions;
    int buffers = 0;
    for (size_t i = 0; i < maxReads; ++i) {
        MediaBuffer* buffer = nullptr;
        status_t err = source->read(&buffer, options);
        options = nullptr;
        if (buffer != nullptr) {
            // Touch the range so that a bad one shows up under ASan.
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

void exercise(const sp<MediaExtractor>& extractor, RunOutcome* outcome) {
    sp<MetaData> fileMeta = extractor->getMetaData();
    outcome->tracks = extractor->countTracks();
    for (size_t i = 0; i < outcome->tracks; ++i) {
        sp<MetaData> format = extractor->getTrackMetaData(i, 0);
        sp<MediaSource> source = extractor->getTrack(i);
        if (source == nullptr || source->start() != OK) {
            outcome->samples.push_back(-1);
            continue;
        }
        sp<MetaData> sourceFormat = source->getFormat();
        outcome->samples.push_back(readAll(source, nullptr, kMaxReadsFirstPass));
        for (int mode = MediaSource::ReadOptions::SEEK_PREVIOUS_SYNC;
             mode <= MediaSource::ReadOptions::SEEK_CLOSEST; ++mode) {
            for (int64_t t : kSeekTimesUs) {
                MediaSource::ReadOptions options;
                options.setSeekTo(t, static_cast<MediaSource::ReadOptions::SeekMode>(mode));
                readAll(source, &options, kMaxReadsAfterSeek);
            }
        }
        source->stop();
    }
}

}  // namespace

void initHarness() {
    static std::once_flag once;
    std::call_once(once, [] {
        zirk_log_set_min_priority(ANDROID_LOG_SILENT);
        zirk_log_set_assert_hook(&throwingAssertHook, nullptr);
    });
}

void noteFatalCheck(const FatalCheck& check) {
    std::lock_guard<std::mutex> guard(gChecksLock);
    if (gChecksFired == nullptr) {
        gChecksFired = new std::map<std::string, uint64_t>;
        atexit(&printCheckSummary);
    }
    if ((*gChecksFired)[checkKey(check.message)]++ == 0) {
        fprintf(stderr, "[fatal check fired, expected] %s\n", check.message.c_str());
    }
}

sp<DataSource> makeFuzzSource(const uint8_t* data, size_t size) { return new FuzzSource(data, size); }

int runSniffAndCreate(const uint8_t* data, size_t size) {
    initHarness();
    try {
        sp<DataSource> source = new FuzzSource(data, size);
        String8 mime;
        float confidence = 0;
        sp<AMessage> meta = new AMessage;
        if (!sniffZIRKExtractor(source, &mime, &confidence, &meta)) return 0;
        sp<MediaExtractor> extractor = getInstance(source, mime.c_str());
        if (extractor == nullptr) return 0;
        sp<MetaData> fileMeta = extractor->getMetaData();
        for (size_t i = 0; i < extractor->countTracks(); ++i) {
            sp<MetaData> format = extractor->getTrackMetaData(i, 0);
        }
    } catch (const FatalCheck& check) {
        noteFatalCheck(check);
    }
    return 0;
}

int runExtractor(const uint8_t* data, size_t size, const char* containerMime) {
    runExtractor(new FuzzSource(data, size), containerMime);
    return 0;
}

RunOutcome runExtractor(const sp<DataSource>& source, const char* containerMime) {
    initHarness();
    RunOutcome outcome;
    try {
        sp<MediaExtractor> extractor = getInstance(source, containerMime);
        if (extractor != nullptr) exercise(extractor, &outcome);
    } catch (const FatalCheck& check) {
        noteFatalCheck(check);
        outcome.fatal = check.message;
    }
    return outcome;
}

}  // namespace fuzz
}  // namespace android
