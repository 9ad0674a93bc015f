// MediaBuffer: one output sample: a byte array, a range within it and a
// MetaData. Buffers from a MediaBufferGroup go back to their group when their
// last reference is released; a buffer without a group deletes itself then.
// The caller of MediaSource::read owns the returned buffer and must call
// release() exactly once. Not thread-safe, but release() may run on another
// thread than the group's acquire_buffer.
#ifndef MEDIA_BUFFER_H_
#define MEDIA_BUFFER_H_

#include <stddef.h>
#include <stdint.h>

#include <atomic>

#include <utils/RefBase.h>

namespace android {

class MediaBuffer;
class MetaData;

class MediaBufferObserver {
public:
    MediaBufferObserver() {}
    virtual ~MediaBufferObserver() {}
    virtual void signalBufferReturned(MediaBuffer* buffer) = 0;
};

class MediaBuffer {
public:
    // Owns `size` bytes (data() is null when the allocation failed).
    explicit MediaBuffer(size_t size);
    // Over caller memory, which must outlive the buffer.
    MediaBuffer(void* data, size_t size);

    void release();
    void add_ref();

    void* data() const { return mData; }
    size_t size() const { return mSize; }
    size_t range_offset() const { return mRangeOffset; }
    size_t range_length() const { return mRangeLength; }
    // The range must lie inside size(); outside it is a caller error.
    void set_range(size_t offset, size_t length);

    sp<MetaData> meta_data();

    // Clears the metadata and resets the range to the whole buffer.
    void reset();

    void setObserver(MediaBufferObserver* group);

    // A new buffer sharing this one's bytes (which stay alive until the
    // clone is released), with a copy of its range and metadata.
    MediaBuffer* clone();

    int refcount() const { return mRefCount.load(); }

protected:
    virtual ~MediaBuffer();

private:
    friend class MediaBufferGroup;

    MediaBufferObserver* mObserver;
    std::atomic<int> mRefCount;
    void* mData;
    size_t mSize;
    size_t mRangeOffset;
    size_t mRangeLength;
    bool mOwnsData;
    sp<MetaData> mMetaData;
    MediaBuffer* mOriginal;

    MediaBuffer(const MediaBuffer&) = delete;
    MediaBuffer& operator=(const MediaBuffer&) = delete;
};

}  // namespace android

#endif
