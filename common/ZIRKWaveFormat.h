// WAVEFORMATEX and WAVEFORMATEXTENSIBLE, as AVI 'strf' chunks and ASF stream
// properties carry them, and the table of the format tags the library reads.
// Stateless; safe from any thread.
#ifndef ZIRK_WAVE_FORMAT_H_
#define ZIRK_WAVE_FORMAT_H_

#include <stddef.h>
#include <stdint.h>

#include "common/DataSplitter.h"

namespace android {

constexpr size_t kZIRKWaveFormatSize = 16;  // without cbSize
constexpr uint16_t kZIRKWaveFormatExtensible = 0xFFFE;

// The fields of a WAVEFORMATEX. `extra` views the caller's bytes after
// cbSize (extraSize of them, whatever cbSize says: callers decide how far to
// trust it); cbSize is 0 when the structure stops before it.
struct ZIRKWaveFormat {
    uint16_t formatTag;
    uint16_t channels;
    uint32_t sampleRate;
    uint32_t avgBytesPerSec;
    uint16_t blockAlign;
    uint16_t bitsPerSample;
    uint16_t cbSize;
    const uint8_t* extra;
    size_t extraSize;
};

// False when fewer than kZIRKWaveFormatSize bytes are given.
bool ZIRKReadWaveFormat(const uint8_t* data, size_t size, ZIRKWaveFormat* out);

// What a WAVEFORMATEXTENSIBLE's SubFormat GUID names: a plain format tag
// (the GUID of the form xxxxxxxx-0000-0010-8000-00AA00389B71, whose tag is in
// *formatTag), one of the three coded formats it is read for, or nothing
// (not extensible, too short, or another GUID).
enum class ZIRKSubFormat { kNone, kFormatTag, kAC3, kEAC3, kMPEG2Audio };
ZIRKSubFormat ZIRKReadSubFormat(const ZIRKWaveFormat& format, uint32_t* formatTag);

// A format tag the library reads: its MIME type (the framework's imported
// string, read at look-up time), the splitter's audio type, and whether the
// track keeps the bits per sample (PCM-like formats that are converted).
struct ZIRKAudioFormat {
    uint32_t formatTag;
    const char* const* mime;
    ZIRKAudioType type;
    bool keepsBitsPerSample;
};
// Null for a tag not in the table.
const ZIRKAudioFormat* ZIRKAudioFormatForTag(uint32_t formatTag);

}  // namespace android

#endif
