// Codec-configuration facts read from configuration records and first
// frames, shared by the demultiplexers. Stateless; safe from any thread.
#ifndef ZIRK_CODEC_CONFIG_H_
#define ZIRK_CODEC_CONFIG_H_

#include <stddef.h>
#include <stdint.h>

#include <media/stagefright/MetaData.h>

namespace android {

// The fixed part of an AVCDecoderConfigurationRecord ('avcC'): bytes 0-5
// and the SPS count; lengthSizeMinusOne sits in byte 4.
constexpr size_t kZIRKAVCCMinSize = 7;

struct ZIRKAVCCInfo {
    uint8_t version;       // configurationVersion, 1 in every valid record
    size_t nalLengthSize;  // 1 to 4
};
// False for a record shorter than kZIRKAVCCMinSize.
bool ZIRKReadAVCC(const uint8_t* data, size_t size, ZIRKAVCCInfo* out);

// The first-frame probes look at no more than this many bytes of the frame.
constexpr size_t kZIRKFirstFrameProbeBytes = 2048;

// MPEG-4 visual without a descriptor: the GMC warp-point count of the first
// frame, stored as kKeyGMCWarpPoints (never negative). H.263: the advanced-
// feature flags, stored as kKey263AdvancedFeatures when the helper finds
// them. Both log their findings under `tag`, the caller's component.
void ZIRKProbeMPEG4GMCWarpPoints(uint8_t* frame, size_t length, const sp<MetaData>& meta, const char* tag);
void ZIRKProbeH263Features(uint8_t* frame, size_t length, const sp<MetaData>& meta, const char* tag);

}  // namespace android

#endif
