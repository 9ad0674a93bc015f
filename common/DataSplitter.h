// DataSplitter: re-frames an audio track whose chunks are cut where the
// muxer chose (AVI chunks, whole MOV chunks). A splitter buffers their bytes
// and hands out one buffer per codec frame (or per 20 ms of PCM, or per ADPCM
// block), time-stamped from the first chunk since the last clear() plus the
// samples emitted.
// Owner: the track's source (sp<>), created in start, dropped in stop.
// Threads: used only from its source's reading thread.
// Its fatal checks and log lines are its owner's: the owner hands in a table
// (ZIRKSplitterChecks) with static storage.
#ifndef ZIRK_COMMON_DATA_SPLITTER_H_
#define ZIRK_COMMON_DATA_SPLITTER_H_

#include <stdint.h>

#include <media/stagefright/MediaBuffer.h>
#include <media/stagefright/foundation/ABuffer.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>

#include "common/ZIRKCheckSites.h"

namespace android {

// Audio coding classes a splitter knows, kept by a track as its audio type.
enum ZIRKAudioType : uint32_t {
    kAudioAAC = 0,
    kAudioWMA = 1,
    kAudioPCM = 2,
    kAudioAC3 = 3,
    kAudioEAC3 = 4,
    kAudioMP3 = 5,
    kAudioMPEG = 6,
    kAudioIMAADPCM = 7,
    kAudioMSADPCM = 8,
    kAudioALAW = 9,
    kAudioMULAW = 10,
    kAudioUnknown = 65535,
};

// What read() returns when it needs another chunk (-EAGAIN).
enum { kSplitterNeedsMoreInput = -11 };

// The owner's fatal-check sites of its splitters.
struct ZIRKSplitterChecks {
    ZIRKCheckComponent component;
    ZIRKCheckSite appendEmpty;     // a first append after clear() finds bytes buffered
    ZIRKCheckSite appendTime;      // a chunk without kKeyTime
    ZIRKCheckSite mimeType;        // AudioSplitter: the format has no MIME type
    ZIRKCheckSite ac3SampleRate;   // AudioSplitter: AC-3 fscod 3
    ZIRKCheckSite eac3StreamType;  // AudioSplitter: E-AC-3 strmtyp 3
};

struct DataSplitter : public RefBase {
    explicit DataSplitter(const ZIRKSplitterChecks& checks);

    // Forgets all buffered bytes and the time base (on start and every seek).
    virtual void clear();
    // Copies the chunk's bytes in; the caller keeps and releases `buffer`.
    virtual status_t append(MediaBuffer* buffer) = 0;
    // OK with a new buffer in *out (the caller releases it), -11 when another
    // chunk is needed, or an error. *out is always set first.
    virtual status_t read(MediaBuffer** out, int64_t* seekTimeUs) = 0;

protected:
    ~DataSplitter() override {}

    // The steps every append shares.
    status_t appendBytes(MediaBuffer* buffer);

    size_t bufferedSize() const { return mBuffer == nullptr ? 0 : mBuffer->size(); }
    const uint8_t* bufferedData() const { return mBuffer->data(); }
    void consume(size_t n);
    // mBaseTimeUs + mNumSamplesRead / rate, before this frame is counted.
    int64_t currentTimeUs(int32_t sampleRate) const;
    static status_t newOutputBuffer(size_t size, int64_t timeUs, MediaBuffer** out);

    const ZIRKSplitterChecks& mChecks;
    bool mFindSync;
    int64_t mBaseTimeUs;
    int64_t mNumSamplesRead;
    sp<ABuffer> mBuffer;
};

}  // namespace android

#endif
