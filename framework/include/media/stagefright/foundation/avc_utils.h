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

// Optional coding modes reported by Detect263AdvancedFeatures, one bit each.
// The first four come from PTYPE bits 10-13 of a baseline picture header or
// from OPPTYPE bits 5-7 of an extended (PLUSPTYPE) one; the rest exist only
// in OPPTYPE (bits 8-14).
enum {
    kH263UnrestrictedMV = 1 << 0,        // Annex D
    kH263SyntaxArithmeticCoding = 1 << 1, // Annex E
    kH263AdvancedPrediction = 1 << 2,    // Annex F
    kH263PBFrames = 1 << 3,              // Annex G (PTYPE only)
    kH263AdvancedIntraCoding = 1 << 4,   // Annex I
    kH263DeblockingFilter = 1 << 5,      // Annex J
    kH263SliceStructured = 1 << 6,       // Annex K
    kH263ReferencePictureSelection = 1 << 7, // Annex N
    kH263IndependentSegmentDecoding = 1 << 8, // Annex R
    kH263AlternativeInterVLC = 1 << 9,   // Annex S
    kH263ModifiedQuantization = 1 << 10, // Annex T
};

// Inspects an H.263 picture header (or an MPEG-4 short-video header). The
// 22-bit picture start code must begin on one of the first 32 bytes of
// `data`, byte-aligned (only zero stuffing may precede it in practice).
// Returns a set of the kH263* bits above (0 for baseline H.263). An
// extended header whose UFEP is 0 carries no mode information and yields 0.
// Negative when no start code is found, the header is truncated, or its
// fixed bits, source format or UFEP hold forbidden or reserved values.
int Detect263AdvancedFeatures(uint8_t* data, int size);

// Finds the first MPEG-4 Visual video_object_layer start code
// (00 00 01 20..2F) in `data` and parses its header up to the sprite fields.
// The VOL's version id comes from is_object_layer_identifier, else from a
// visual object header (00 00 01 B5) earlier in `data`, else 1.
// Returns no_of_sprite_warping_points (0..63) when sprite_enable is GMC;
// 0 when sprites are off, for static sprites and for binary-only shapes;
// negative when there is no VOL start code, the header is truncated, or it
// holds a zero vop_time_increment_resolution or a reserved sprite_enable.
int ParseMPEG4GMCWarpPoint(uint8_t* data, int size);

}  // namespace android

#endif
