// DataSplitter: re-frames an AVI audio track. AVI audio chunks are cut where
// the muxer chose; a splitter buffers their bytes and hands out one buffer
// per codec frame (or per 20 ms of PCM, or per ADPCM block), time-stamped
// from the first chunk since the last clear() plus the samples emitted.
// Owner: the track's AVISource (sp<>), created in start, dropped in stop.
// Threads: used only from its source's reading thread.
#ifndef ZIRK_AVI_DATA_SPLITTER_H_
#define ZIRK_AVI_DATA_SPLITTER_H_

#include <stdint.h>

#include <media/stagefright/MediaBuffer.h>
#include <media/stagefright/foundation/ABuffer.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>

namespace android {

struct DataSplitter : public RefBase {
    DataSplitter();

    // Forgets all buffered bytes and the time base (on start and every seek).
    virtual void clear();
    // Copies the chunk's bytes in; the caller keeps and releases `buffer`.
    virtual status_t append(MediaBuffer* buffer) = 0;
    // OK with a new buffer in *out (the caller releases it), -11 when another
    // chunk is needed, or an error. *out is always set first.
    virtual status_t read(MediaBuffer** out, int64_t* seekTimeUs) = 0;

protected:
    ~DataSplitter() override {}

    // The steps every append shares; the two lines are those of the fatal
    // checks of the caller's kind.
    status_t appendBytes(MediaBuffer* buffer, int emptyCheckLine, int timeCheckLine);

    size_t bufferedSize() const { return mBuffer == nullptr ? 0 : mBuffer->size(); }
    const uint8_t* bufferedData() const { return mBuffer->data(); }
    void consume(size_t n);
    // mBaseTimeUs + mNumSamplesRead / rate, before this frame is counted.
    int64_t currentTimeUs(int32_t sampleRate) const;
    static status_t newOutputBuffer(size_t size, int64_t timeUs, MediaBuffer** out);

    bool mFindSync;
    int64_t mBaseTimeUs;
    int64_t mNumSamplesRead;
    sp<ABuffer> mBuffer;
};

}  // namespace android

#endif
