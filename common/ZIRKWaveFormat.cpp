#include "common/ZIRKWaveFormat.h"

#include <string.h>

#include <media/stagefright/MediaDefs.h>

#include <zirk/ZIRKByteReader.h>

namespace android {

namespace {

// WAVEFORMATEXTENSIBLE after cbSize: wValidBitsPerSample (2), dwChannelMask
// (4), then the SubFormat GUID (16), stored with its first three groups
// little-endian.
constexpr size_t kSubFormatOffset = 6;
constexpr size_t kGUIDSize = 16;
// A sub-format is read only from a structure longer than 39 bytes whose
// cbSize claims more than 21 extension bytes.
constexpr size_t kMinExtensibleSize = 40;
constexpr uint16_t kMinExtensibleCbSize = 22;

const uint8_t kFormatTagGUIDTail[12] = {0x00, 0x00, 0x10, 0x00, 0x80, 0x00,
                                        0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71};
const uint8_t kAC3GUID[kGUIDSize] = {0x2C, 0x80, 0x6D, 0xE0, 0x46, 0xDB, 0xCF, 0x11,
                                     0xB4, 0xD1, 0x00, 0x80, 0x5F, 0x6C, 0xBB, 0xEA};
const uint8_t kEAC3GUID[kGUIDSize] = {0xAF, 0x87, 0xFB, 0xA7, 0x02, 0x2D, 0xFB, 0x42,
                                      0xA4, 0xD4, 0x05, 0xCD, 0x93, 0x84, 0x3B, 0xDD};
const uint8_t kMPEG2GUID[kGUIDSize] = {0x2B, 0x80, 0x6D, 0xE0, 0x46, 0xDB, 0xCF, 0x11,
                                       0xB4, 0xD1, 0x00, 0x80, 0x5F, 0x6C, 0xBB, 0xEA};

}  // namespace

bool ZIRKReadWaveFormat(const uint8_t* data, size_t size, ZIRKWaveFormat* out) {
    ZIRKByteReader r(data, size);
    if (!r.readLE16(&out->formatTag) || !r.readLE16(&out->channels) || !r.readLE32(&out->sampleRate) ||
        !r.readLE32(&out->avgBytesPerSec) || !r.readLE16(&out->blockAlign) ||
        !r.readLE16(&out->bitsPerSample)) {
        return false;
    }
    out->cbSize = 0;
    r.readLE16(&out->cbSize);
    out->extra = r.current();
    out->extraSize = r.remaining();
    return true;
}

ZIRKSubFormat ZIRKReadSubFormat(const ZIRKWaveFormat& format, uint32_t* formatTag) {
    if (format.formatTag != kZIRKWaveFormatExtensible || format.cbSize < kMinExtensibleCbSize ||
        kZIRKWaveFormatSize + 2 + format.extraSize < kMinExtensibleSize) {
        return ZIRKSubFormat::kNone;
    }
    ZIRKByteReader r(format.extra, format.extraSize);
    uint8_t guid[kGUIDSize];
    if (!r.skip(kSubFormatOffset) || !r.readBytes(guid, sizeof(guid))) return ZIRKSubFormat::kNone;
    if (!memcmp(guid + 4, kFormatTagGUIDTail, sizeof(kFormatTagGUIDTail))) {
        ZIRKByteReader(guid, 4).readLE32(formatTag);
        return ZIRKSubFormat::kFormatTag;
    }
    if (!memcmp(guid, kAC3GUID, kGUIDSize)) return ZIRKSubFormat::kAC3;
    if (!memcmp(guid, kEAC3GUID, kGUIDSize)) return ZIRKSubFormat::kEAC3;
    if (!memcmp(guid, kMPEG2GUID, kGUIDSize)) return ZIRKSubFormat::kMPEG2Audio;
    return ZIRKSubFormat::kNone;
}

const ZIRKAudioFormat* ZIRKAudioFormatForTag(uint32_t formatTag) {
    static const ZIRKAudioFormat kFormats[] = {
            {0x0001, &MEDIA_MIMETYPE_AUDIO_RAW, kAudioPCM, true},
            {0x0002, &MEDIA_MIMETYPE_AUDIO_RAW, kAudioMSADPCM, true},
            {0x0011, &MEDIA_MIMETYPE_AUDIO_RAW, kAudioIMAADPCM, true},
            {0x0006, &MEDIA_MIMETYPE_AUDIO_G711_ALAW, kAudioALAW, true},
            {0x0007, &MEDIA_MIMETYPE_AUDIO_G711_MLAW, kAudioMULAW, true},
            {0x0050, &MEDIA_MIMETYPE_AUDIO_MPEG_LAYER_II, kAudioMPEG, false},
            {0x0055, &MEDIA_MIMETYPE_AUDIO_MPEG, kAudioMP3, false},
            {0x00FF, &MEDIA_MIMETYPE_AUDIO_AAC, kAudioAAC, false},
            {0x0161, &MEDIA_MIMETYPE_AUDIO_WMA, kAudioWMA, false},
            {0x2000, &MEDIA_MIMETYPE_AUDIO_AC3, kAudioAC3, false},
    };
    for (const ZIRKAudioFormat& f : kFormats) {
        if (f.formatTag == formatTag) return &f;
    }
    return nullptr;
}

}  // namespace android
