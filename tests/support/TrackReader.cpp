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

std::string describeKeys(const sp<MetaData>& meta, std::initializer_list<uint32_t> keys) {
    std::string s;
    for (uint32_t key : keys) {
        const char* text;
        int32_t i32 = 0;  // of the two, the one not found stays 0
        int64_t i64 = 0;
        uint32_t type = 0;
        const size_t size = findBytes(meta, key, &type).size();
        s += size > 0 ? std::string{' ', char(key >> 24), char(key >> 16), char(key >> 8), char(key)} : "";
        if (meta->findCString(key, &text)) s += std::string("=") + text;
        if (meta->findInt32(key, &i32) || meta->findInt64(key, &i64)) s += "=" + std::to_string(i32 + i64);
        if (size > 0 && (type == 0 || type == MetaData::TYPE_NONE)) s += ":" + std::to_string(size);
    }
    return s;
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
