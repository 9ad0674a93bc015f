// Codec bitstream helpers of the platform. Every function reads only the
// bytes it is given and never aborts on malformed input.
#ifndef AVC_UTILS_H_
#define AVC_UTILS_H_

#include <stddef.h>
#include <stdint.h>

#include <media/stagefright/foundation/ABuffer.h>
#include <media/stagefright/MetaData.h>
#include <utils/RefBase.h>

namespace android {

// From an Annex-B access unit holding an SPS and a PPS, builds an 'avcC'
// decoder configuration record (4-byte NAL lengths) and returns MetaData
// with kKeyMIMEType (AVC), kKeyAVCC (type kTypeAVCC), kKeyWidth and
// kKeyHeight (display size after frame cropping). Null when there is no SPS
// or PPS, or the SPS cannot be parsed.
sp<MetaData> MakeAVCCodecSpecificData(const sp<ABuffer>& accessUnit);

// Parses the width and height (after cropping) of an SPS NAL unit
// (starting with its NAL header byte). False when it is not a usable SPS.
bool FindAVCDimensions(const uint8_t* sps, size_t size, int32_t* width, int32_t* height);

// Validates a 4-byte MPEG audio frame header (MPEG-1, 2 and 2.5, layers
// I-III) and reports its frame size in bytes and, for each non-null output,
// its sample rate, channel count, bit rate (kbps) and samples per frame.
bool GetMPEGAudioFrameSize(uint32_t header, size_t* frameSize, int* sampleRate = nullptr,
                           int* channels = nullptr, int* bitrate = nullptr,
                           int* samplesPerFrame = nullptr);

// Inspects an H.263 picture header (or an MPEG-4 short-video header) at the
// start of `data`. Returns a bit set of the optional coding modes in use
// (0 for baseline H.263), or a negative value when no picture header is
// found.
int Detect263AdvancedFeatures(uint8_t* data, int size);

// Finds the MPEG-4 Visual VOL header in `data` and returns its number of
// global-motion-compensation warp points (0 when the VOL does not use GMC
// sprites), or a negative value when no VOL header can be parsed.
int ParseMPEG4GMCWarpPoint(uint8_t* data, int size);

}  // namespace android

#endif
