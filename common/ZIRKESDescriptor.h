// MPEG-4 elementary-stream descriptors as the demultiplexers hand them out
// in 'esds': the MPEG-4 visual form AVI builds from the first frame, and the
// two AAC forms (FLV's with fixed lengths, AVI's with lengths adjusted to the
// configuration). Also the AAC sampling-frequency table. Stateless.
#ifndef ZIRK_ES_DESCRIPTOR_H_
#define ZIRK_ES_DESCRIPTOR_H_

#include <stddef.h>
#include <stdint.h>

#include <media/stagefright/foundation/ABuffer.h>
#include <utils/RefBase.h>

namespace android {

// AAC sampling_frequency_index 0..11 (ISO 14496-3 table 1.18).
extern const int32_t kZIRKAACSampleRates[12];
constexpr size_t kZIRKAACSampleRateCount = 12;

// An ES descriptor around an MPEG-4 visual configuration (the bytes before
// the first VOP). Lengths are written least significant 7-bit group first
// and the object type is 0x01: both are what this system emits. Null when
// the allocation fails.
sp<ABuffer> MakeMPEG4VideoCodecSpecificData(const sp<ABuffer>& config);

// 22 descriptor bytes, then the AudioSpecificConfig. The fixed form keeps the
// lengths 0x16, 0x11 and 0x02 whatever the config's size (the consumers of
// FLV's 'esds' expect exactly these bytes); the adjusted form fits them to a
// config of at most kZIRKMaxAdjustedAACConfig bytes (so each stays one byte)
// and returns null for a longer one.
constexpr size_t kZIRKAACDescriptorHeader = 22;
constexpr size_t kZIRKMaxAdjustedAACConfig = 107;
sp<ABuffer> ZIRKMakeAACESDSFixedLengths(const uint8_t* config, size_t size);
sp<ABuffer> ZIRKMakeAACESDSAdjustedLengths(const uint8_t* config, size_t size);

// The two-byte AudioSpecificConfig built from a rate and channel count, with
// 0x30 (object type 6) in the top bits as this system has always emitted;
// false for a rate not in the table.
bool ZIRKMakeAACConfigFromRate(uint32_t sampleRate, uint32_t channels, uint8_t out[2]);

}  // namespace android

#endif
