#include "common/DataSplitter.h"

#include <string.h>

#include <media/stagefright/MetaData.h>
#include <media/stagefright/foundation/AMessage.h>
#include <media/stagefright/foundation/ADebug.h>

#include "common/ZIRKSafeMath.h"

namespace android {

namespace {

// Most unread bytes a splitter keeps. A stream that never yields a frame
// (no sync found, an undecodable block layout) would otherwise grow the
// buffer by every chunk of the track; past this the oldest bytes are dropped
// and a resync is asked for. Far above any audio frame (ADTS: 8 KiB, ADPCM
// block: 64 KiB) and any 20 ms PCM piece.
constexpr size_t kMaxPendingBytes = 16 * 1024 * 1024;

constexpr size_t kGrowStep = 1024;

}  // namespace

DataSplitter::DataSplitter(const ZIRKSplitterChecks& checks)
    : mChecks(checks), mFindSync(true), mBaseTimeUs(-1), mNumSamplesRead(0) {}

void DataSplitter::clear() {
    mFindSync = true;
    mBaseTimeUs = -1;
    mNumSamplesRead = 0;
    if (mBuffer != nullptr) mBuffer->setRange(0, 0);
}

void DataSplitter::consume(size_t n) {
    mBuffer->setRange(mBuffer->offset() + n, mBuffer->size() - n);
}

int64_t DataSplitter::currentTimeUs(int32_t sampleRate) const {
    // A rate of 0 (or less) from a damaged header cannot advance time:
    // every frame then carries the base time.
    if (sampleRate <= 0) return mBaseTimeUs;
    return zirkSaturateToInt64(static_cast<__int128>(mNumSamplesRead) * 1000000 / sampleRate + mBaseTimeUs);
}

status_t DataSplitter::newOutputBuffer(size_t size, int64_t timeUs, MediaBuffer** out) {
    MediaBuffer* buffer = new MediaBuffer(size);
    if (size > 0 && buffer->data() == nullptr) {
        buffer->release();
        return NO_MEMORY;
    }
    buffer->meta_data()->setInt64(kKeyTime, timeUs);
    *out = buffer;
    return OK;
}

status_t DataSplitter::appendBytes(MediaBuffer* buffer) {
    if (mBaseTimeUs < 0) {
        // Both must stay fatal: the first chunk after a clear finds nothing
        // buffered, and every chunk carries its time.
        ZIRK_CHECK_SITE(mChecks.component, mChecks.appendEmpty, mBuffer == nullptr || mBuffer->size() == 0);
        ZIRK_CHECK_SITE(mChecks.component, mChecks.appendTime, buffer->meta_data()->findInt64(kKeyTime, &mBaseTimeUs));
        mNumSamplesRead = 0;
    }

    const uint8_t* chunk = static_cast<const uint8_t*>(buffer->data()) + buffer->range_offset();
    size_t chunkSize = buffer->range_length();

    size_t unread = bufferedSize();
    if (unread > kMaxPendingBytes - (chunkSize < kMaxPendingBytes ? chunkSize : kMaxPendingBytes)) {
        size_t excess = unread + chunkSize - kMaxPendingBytes;
        consume(excess < unread ? excess : unread);
        unread = bufferedSize();
        mFindSync = true;
    }

    if (mBuffer != nullptr && unread > 0 && mBuffer->offset() > 0) {
        memmove(mBuffer->base(), mBuffer->data(), unread);
    }
    if (mBuffer != nullptr) mBuffer->setRange(0, unread);

    if (mBuffer == nullptr || chunkSize > mBuffer->capacity() - unread) {
        size_t oldCapacity = mBuffer == nullptr ? 0 : mBuffer->capacity();
        // Grows in 1 KiB steps, but at least doubles, so a run of appends
        // without reads costs linear, not quadratic, copying.
        size_t capacity = (oldCapacity + chunkSize + kGrowStep - 1) / kGrowStep * kGrowStep;
        size_t doubled = (2 * oldCapacity + kGrowStep - 1) / kGrowStep * kGrowStep;
        if (doubled > capacity && doubled <= kMaxPendingBytes + chunkSize + kGrowStep) capacity = doubled;
        sp<ABuffer> grown = new ABuffer(capacity);
        if (grown->base() == nullptr) return NO_MEMORY;
        if (unread > 0) memcpy(grown->base(), mBuffer->data(), unread);
        grown->setRange(0, unread);
        if (mBuffer != nullptr) {
            // The last chunk time lives in the buffer's own message.
            int64_t timeUs;
            if (mBuffer->meta()->findInt64("timeUs", &timeUs)) grown->meta()->setInt64("timeUs", timeUs);
        }
        mBuffer = grown;
    }
    if (chunkSize > 0) memcpy(mBuffer->base() + unread, chunk, chunkSize);
    mBuffer->setRange(0, unread + chunkSize);
    return OK;
}

}  // namespace android
