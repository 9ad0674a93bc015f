#include "TrackReader.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <media/stagefright/MediaBuffer.h>
#include <media/stagefright/MetaData.h>

namespace android {
namespace test {

uint32_t crc32Of(const Bytes& bytes) {
    return static_cast<uint32_t>(crc32(0, bytes.data(), static_cast<uInt>(bytes.size())));
}

Bytes findBytes(const sp<MetaData>& meta, uint32_t key, uint32_t* type) {
    uint32_t unused;
    const void* data = nullptr;
    size_t size = 0;
    if (meta == nullptr || !meta->findData(key, type ? type : &unused, &data, &size)) return {};
    return Bytes(static_cast<const uint8_t*>(data), static_cast<const uint8_t*>(data) + size);
}

status_t readSample(const sp<MediaSource>& source, Sample* out, const MediaSource::ReadOptions* options) {
    MediaBuffer* buffer = nullptr;
    status_t err = source->read(&buffer, options);
    if (err != OK) {
        EXPECT_EQ(buffer, nullptr);
        return err;
    }
    const uint8_t* base = static_cast<const uint8_t*>(buffer->data());
    out->data.assign(base + buffer->range_offset(), base + buffer->range_offset() + buffer->range_length());
    out->written.assign(base, base + buffer->size());
    out->timeUs = out->sync = -1;
    buffer->meta_data()->findInt32(kKeyIsSyncFrame, &out->sync);
    EXPECT_TRUE(buffer->meta_data()->findInt64(kKeyTime, &out->timeUs));
    buffer->release();
    return OK;
}

TrackRead readTrack(const sp<MediaSource>& source, bool startAndStop, size_t maxReads) {
    TrackRead r;
    if (startAndStop && (r.end = source->start()) != OK) {
        r.startFailed = true;
        return r;
    }
    Sample s;
    while (r.samples.size() < maxReads && (r.end = readSample(source, &s)) == OK) r.samples.push_back(s);
    if (startAndStop) {
        EXPECT_EQ(source->stop(), OK);
    }
    return r;
}

void expectSameRead(const TrackRead& got, const TrackRead& want, const std::string& what) {
    EXPECT_EQ(got.end, want.end) << what;
    ASSERT_EQ(got.samples.size(), want.samples.size()) << what;
    for (size_t i = 0; i < got.samples.size(); ++i) {
        const Sample &a = got.samples[i], &b = want.samples[i];
        ASSERT_TRUE(a.timeUs == b.timeUs && a.sync == b.sync && a.data == b.data) << what << ", sample " << i;
    }
}

}  // namespace test
}  // namespace android
