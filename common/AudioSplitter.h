// AudioSplitter: the DataSplitter of every AVI audio type other than MPEG
// audio: ADTS or raw AAC, WMA, PCM (converted to 16-bit), AC-3/E-AC-3,
// IMA and MS ADPCM (decoded to 16-bit PCM) and G.711.
// Owner: the track's source (sp<>). Threads: its reading thread only.
#ifndef ZIRK_COMMON_AUDIO_SPLITTER_H_
#define ZIRK_COMMON_AUDIO_SPLITTER_H_

#include <media/stagefright/MetaData.h>

#include "common/DataSplitter.h"

namespace android {

struct AudioSplitter : public DataSplitter {
    AudioSplitter(const ZIRKSplitterChecks& checks, const sp<MetaData>& meta, uint32_t audioType,
                  uint32_t bytesPerSample, uint32_t blockAlign);

    status_t append(MediaBuffer* buffer) override;
    status_t read(MediaBuffer** out, int64_t* seekTimeUs) override;

    struct FrameInfo {
        size_t mFrameSize;
        size_t mHeaderSize;  // ADTS only
        int32_t mSampleRate;
        int32_t mChannels;
        uint32_t mSamples;
    };
    // Header parsers, shared with the tests. Each reads only `size` bytes and
    // answers false when no header parses there (or too few bytes are given).
    static bool ParseADTSHeader(const uint8_t* data, size_t size, FrameInfo* info);
    // AC-3 reports its reserved values through the owner's fatal checks.
    static bool ParseAC3Header(const ZIRKSplitterChecks& checks, const uint8_t* data, size_t size,
                               FrameInfo* info);
    enum HeaderCheck { kHeaderGood, kHeaderBad, kHeaderShort };
    // kHeaderShort: right as far as the `size` bytes go, too short to finish.
    static HeaderCheck CheckADTSHeader(const uint8_t* data, size_t size, FrameInfo* info);
    // Decodes one IMA ADPCM block of `channels` channels and `samples`
    // samples (all channels) into interleaved 16-bit PCM of `samples` slots,
    // every one of them written.
    static void DecodeIMABlock(const uint8_t* block, size_t blockBytes, int32_t channels,
                               size_t samples, int16_t* out);

protected:
    ~AudioSplitter() override {}

private:
    int32_t mAudioType;
    bool mIsADTS;
    uint32_t mBytesPerSample;
    uint32_t mBlockAlign;
    int32_t mSampleRate;
    int32_t mChannelCount;

    bool resync();
    status_t readAAC(MediaBuffer** out);
    status_t readWMA(MediaBuffer** out);
    status_t readPCM(MediaBuffer** out, const int64_t* seekTimeUs, bool g711);
    status_t readAC3(MediaBuffer** out);
    status_t readADPCM(MediaBuffer** out);
};

}  // namespace android

#endif
