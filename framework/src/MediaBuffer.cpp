#include <media/stagefright/MediaBuffer.h>
#include <media/stagefright/MediaBufferGroup.h>
#include <media/stagefright/MetaData.h>
#include <media/stagefright/foundation/ADebug.h>

#include <new>

namespace android {

MediaBuffer::MediaBuffer(size_t size)
    : mObserver(nullptr),
      mRefCount(0),
      mData(new (std::nothrow) uint8_t[size == 0 ? 1 : size]),
      mSize(mData ? size : 0),
      mRangeOffset(0),
      mRangeLength(mSize),
      mOwnsData(true),
      mMetaData(new MetaData),
      mOriginal(nullptr) {}

MediaBuffer::MediaBuffer(void* data, size_t size)
    : mObserver(nullptr),
      mRefCount(0),
      mData(data),
      mSize(size),
      mRangeOffset(0),
      mRangeLength(size),
      mOwnsData(false),
      mMetaData(new MetaData),
      mOriginal(nullptr) {}

MediaBuffer::~MediaBuffer() {
    if (mOwnsData) delete[] static_cast<uint8_t*>(mData);
    if (mOriginal != nullptr) mOriginal->release();
}

void MediaBuffer::release() {
    if (mObserver == nullptr) {
        // Not pooled: gone with its last reference (a fresh buffer holds none).
        int prev = mRefCount.fetch_sub(1);
        if (prev <= 1) delete this;
        return;
    }
    int prev = mRefCount.fetch_sub(1);
    CHECK(prev > 0);
    if (prev == 1) mObserver->signalBufferReturned(this);
}

void MediaBuffer::add_ref() { mRefCount.fetch_add(1); }

void MediaBuffer::set_range(size_t offset, size_t length) {
    CHECK_LE(offset, mSize);
    CHECK_LE(length, mSize - offset);
    mRangeOffset = offset;
    mRangeLength = length;
}

sp<MetaData> MediaBuffer::meta_data() { return mMetaData; }

void MediaBuffer::reset() {
    mMetaData->clear();
    set_range(0, mSize);
}

void MediaBuffer::setObserver(MediaBufferObserver* observer) { mObserver = observer; }

MediaBuffer* MediaBuffer::clone() {
    MediaBuffer* buffer = new MediaBuffer(mData, mSize);
    buffer->set_range(mRangeOffset, mRangeLength);
    buffer->mMetaData = new MetaData(*mMetaData.get());
    add_ref();
    buffer->mOriginal = this;
    return buffer;
}

// ---- MediaBufferGroup ----

MediaBufferGroup::MediaBufferGroup() {}

MediaBufferGroup::~MediaBufferGroup() {
    std::lock_guard<std::mutex> lock(mLock);
    for (MediaBuffer* buffer : mBuffers) {
        buffer->setObserver(nullptr);
        if (buffer->refcount() == 0) {
            delete buffer;
        }
        // A buffer still held by a caller deletes itself on its last release.
    }
}

void MediaBufferGroup::add_buffer(MediaBuffer* buffer) {
    std::lock_guard<std::mutex> lock(mLock);
    buffer->setObserver(this);
    mBuffers.push_back(buffer);
}

status_t MediaBufferGroup::acquire_buffer(MediaBuffer** out, bool nonBlocking) {
    std::unique_lock<std::mutex> lock(mLock);
    *out = nullptr;
    if (mBuffers.empty()) return NO_INIT;
    for (;;) {
        for (MediaBuffer* buffer : mBuffers) {
            if (buffer->refcount() == 0) {
                buffer->add_ref();
                buffer->reset();
                *out = buffer;
                return OK;
            }
        }
        if (nonBlocking) return NO_INIT;
        mCondition.wait(lock);
    }
}

void MediaBufferGroup::signalBufferReturned(MediaBuffer*) {
    std::lock_guard<std::mutex> lock(mLock);
    mCondition.notify_all();
}

}  // namespace android
