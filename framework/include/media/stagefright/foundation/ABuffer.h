// ABuffer: a byte array with a current range (offset, size). Owns its bytes
// unless built over caller memory with ABuffer(data, capacity), in which case
// the caller keeps that memory alive for the buffer's lifetime.
// Reference-counted; not thread-safe.
#ifndef A_BUFFER_H_
#define A_BUFFER_H_

#include <stddef.h>
#include <stdint.h>

#include <utils/RefBase.h>

namespace android {

struct AMessage;

struct ABuffer : public RefBase {
    // Allocates `capacity` bytes. On allocation failure base() is null and
    // capacity() is 0; callers that size from untrusted input check base().
    explicit ABuffer(size_t capacity);
    ABuffer(void* data, size_t capacity);

    uint8_t* base() { return mData; }
    uint8_t* data() { return mData + mRangeOffset; }
    size_t capacity() const { return mCapacity; }
    size_t size() const { return mRangeLength; }
    size_t offset() const { return mRangeOffset; }

    // The range must lie inside the capacity; a range outside it is a caller
    // error and aborts, as on the platform.
    void setRange(size_t offset, size_t size);

    sp<AMessage> meta();

protected:
    virtual ~ABuffer();

private:
    sp<AMessage> mMeta;
    uint8_t* mData;
    size_t mCapacity;
    size_t mRangeOffset;
    size_t mRangeLength;
    bool mOwnsData;

    ABuffer(const ABuffer&) = delete;
    ABuffer& operator=(const ABuffer&) = delete;
};

}  // namespace android

#endif
