#include "common/MP3Splitter.h"

#include <string.h>

#include <media/stagefright/MetaData.h>
#include <media/stagefright/Utils.h>
#include <media/stagefright/foundation/avc_utils.h>
#include <utils/Log.h>
#include <zirk/ZIRKByteReader.h>

namespace android {

namespace {

// Header bits that must agree between consecutive frames of one stream:
// sync, version, layer and sample rate. Everything under the mask may vary.
constexpr uint32_t kVariableHeaderBits = 0x0001F3FF;

// Frames that must follow a candidate header for a resync to accept it.
constexpr int kResyncFollowingFrames = 3;

// A frame size below the header's own 4 bytes could never advance the
// stream; such a header counts as invalid.
uint32_t wordAt(const uint8_t* data, size_t size, size_t at) {
    uint32_t word = 0;
    ZIRKByteReader r(data, size);
    if (r.skip(at)) r.readBE32(&word);
    return word;
}

bool frameSizeOf(uint32_t header, size_t* frameSize, int* sampleRate, int* samplesPerFrame) {
    int channels, bitrate;
    if (!GetMPEGAudioFrameSize(header, frameSize, sampleRate, &channels, &bitrate, samplesPerFrame)) {
        return false;
    }
    return *frameSize >= 4;
}

}  // namespace

MP3Splitter::MP3Splitter(const ZIRKSplitterChecks& checks) : DataSplitter(checks) {}

status_t MP3Splitter::append(MediaBuffer* buffer) { return appendBytes(buffer); }

bool MP3Splitter::resync() {
    size_t length = bufferedSize();
    if (length < 4) return false;
    const uint8_t* data = bufferedData();
    for (size_t i = 0; length - i > 3; ++i) {
        uint32_t first = wordAt(data, length, i);
        size_t frameSize;
        int rate, samples;
        if (!frameSizeOf(first, &frameSize, &rate, &samples)) continue;
        size_t j = i;
        int matched = 0;
        while (matched < kResyncFollowingFrames) {
            if (frameSize > length - j) break;
            j += frameSize;
            if (length - j <= 3) break;
            uint32_t header = wordAt(data, length, j);
            if ((header & ~kVariableHeaderBits) != (first & ~kVariableHeaderBits)) break;
            if (!frameSizeOf(header, &frameSize, &rate, &samples)) break;
            ++matched;
        }
        if (matched == kResyncFollowingFrames) {
            consume(i);
            return true;
        }
    }
    return false;
}

status_t MP3Splitter::read(MediaBuffer** out, int64_t* /*seekTimeUs*/) {
    *out = nullptr;
    if (mFindSync) {
        if (!resync()) return kSplitterNeedsMoreInput;
        mFindSync = false;
    }
    size_t length = bufferedSize();
    if (length < 4) return kSplitterNeedsMoreInput;
    const uint8_t* data = bufferedData();
    size_t frameSize;
    int rate, samples;
    if (!frameSizeOf(wordAt(data, length, 0), &frameSize, &rate, &samples)) {
        __android_log_print(ANDROID_LOG_WARN, mChecks.component.tag, "!!! invalid frame, resync for valid frame !!!");
        mFindSync = true;
        return kSplitterNeedsMoreInput;
    }
    if (length < frameSize) return kSplitterNeedsMoreInput;

    MediaBuffer* buffer;
    status_t err = newOutputBuffer(frameSize, currentTimeUs(rate), &buffer);
    if (err != OK) return err;
    memcpy(buffer->data(), data, frameSize);
    mNumSamplesRead += samples;
    consume(frameSize);
    *out = buffer;
    return OK;
}

}  // namespace android
