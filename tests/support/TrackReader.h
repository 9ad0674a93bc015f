// Reading a track the way a player does, for tests that compare what came
// out: each buffer's time, sync flag and bytes, and the status that ended
// the reading.
#ifndef ZIRK_TEST_TRACK_READER_H_
#define ZIRK_TEST_TRACK_READER_H_

#include <stdint.h>

#include <string>
#include <vector>

#include <media/stagefright/MediaSource.h>
#include <media/stagefright/MetaData.h>

#include "ByteWriter.h"

namespace android {
namespace test {

struct Sample {
    int64_t timeUs = -1;  // kKeyTime, which every buffer must carry
    int32_t sync = -1;    // kKeyIsSyncFrame, -1 when absent
    Bytes data;           // the buffer's range
    Bytes written;        // the whole buffer, from data() to size()
};

struct TrackRead {
    std::vector<Sample> samples;
    status_t end = OK;         // start()'s failure, else the first failing read()
    bool startFailed = false;
};

uint32_t crc32Of(const Bytes& bytes);

// The data stored under `key` (empty when there is none) and its type.
Bytes findBytes(const sp<MetaData>& meta, uint32_t key, uint32_t* type = nullptr);
// " code=value" for each of `keys` held as a string or an integer, " code:size" for each held as untyped data
// (the code: the key's four characters).
std::string describeKeys(const sp<MetaData>& meta, std::initializer_list<uint32_t> keys);

// One read(); a failed read must hand out no buffer.
status_t readSample(const sp<MediaSource>& source, Sample* out, const MediaSource::ReadOptions* options = nullptr);

// Reads until the first failure or `maxReads` buffers. With `startAndStop`
// the source is started first (a failure ends the reading) and stopped after.
TrackRead readTrack(const sp<MediaSource>& source, bool startAndStop = true, size_t maxReads = SIZE_MAX);

// Expects `got` to hold the buffers of `want` (time, sync flag and range
// bytes) and to have ended the same way; `what` names the reading in failures.
void expectSameRead(const TrackRead& got, const TrackRead& want, const std::string& what);

}  // namespace test
}  // namespace android

#endif
