#define LOG_TAG "ASFExtractor"

#include "asf/extractor/ASFExtractor.h"

#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include <cutils/properties.h>
#include <media/stagefright/MediaDefs.h>
#include <media/stagefright/MediaErrors.h>
#include <media/stagefright/foundation/ABuffer.h>
#include <utils/Log.h>
#include <zirk/ZIRKByteReader.h>

#include "asf/extractor/ASFSource.h"
#include "asf/extractor/ZIRKASFExtractorChecks.h"
#include "common/ZIRKFourCC.h"
#include "common/ZIRKMetaKeys.h"
#include "common/ZIRKReadWhole.h"
#include "common/ZIRKSafeMath.h"
#include "common/ZIRKWaveFormat.h"

namespace android {

namespace {

// WAVEFORMATEX up to and including cbSize.
constexpr uint32_t kWaveFormatExBytes = kZIRKWaveFormatSize + 2;
// Video type-specific data: encoded width and height (u32 each), reserved
// flags (u8) and format data size (u16), then the BITMAPINFOHEADER; codec
// extra data follows at kVideoFormatBytes.
constexpr uint32_t kBitmapInfoOffset = 11;
constexpr uint32_t kVideoFormatBytes = kBitmapInfoOffset + kZIRKBitmapInfoHeaderSize;

// The MIME strings are the framework's imported variables: the table keeps
// their addresses and reads them at look-up time, never at static init.
struct CodecMime {
    uint32_t codec;
    const char* const* mime;
    bool gated;  // Windows Media: mapped only while the property allows it
};

const CodecMime kCodecMimes[] = {
        {0x0001, &MEDIA_MIMETYPE_AUDIO_RAW, false},
        {0x0055, &MEDIA_MIMETYPE_AUDIO_MPEG, false},
        {0x000A, &MEDIA_MIMETYPE_AUDIO_WMA, true},
        {0x0160, &MEDIA_MIMETYPE_AUDIO_WMA, true},
        {0x0161, &MEDIA_MIMETYPE_AUDIO_WMA, true},
        {0x0162, &MEDIA_MIMETYPE_AUDIO_WMA, true},
        {0x0163, &MEDIA_MIMETYPE_AUDIO_WMA, true},
        {fourcc('H', '2', '6', '4'), &MEDIA_MIMETYPE_VIDEO_AVC, false},
        {fourcc('D', 'I', 'V', 'X'), &MEDIA_MIMETYPE_VIDEO_DIVX, false},
        {fourcc('M', 'P', '4', '3'), &MEDIA_MIMETYPE_VIDEO_DIVX3, false},
        {fourcc('W', 'M', 'V', '1'), &MEDIA_MIMETYPE_VIDEO_WMV1, true},
        {fourcc('W', 'M', 'V', '2'), &MEDIA_MIMETYPE_VIDEO_WMV2, true},
        {fourcc('W', 'M', 'V', '3'), &MEDIA_MIMETYPE_VIDEO_WMV3, true},
        {fourcc('W', 'M', 'V', 'A'), &MEDIA_MIMETYPE_VIDEO_WMVA, true},
        {fourcc('W', 'V', 'C', '1'), &MEDIA_MIMETYPE_VIDEO_WVC1, true},
};

// The property is read on every look-up, so a change takes effect for the
// next file without a restart.
bool windowsMediaSupported() {
    char value[PROPERTY_VALUE_MAX];
    property_get(ASFExtractor::kSupportWMVAProperty, value, "0");
    return atoi(value) != 0;
}

// kKeyMaxInputSize is an int32 that each source sizes its buffer from: a
// larger value would read back negative, so such a track is not offered.
bool fitsInputSize(uint32_t size) { return size <= static_cast<uint32_t>(INT32_MAX); }

bool hasPrefix(const char* mime, const char* prefix) { return !strncasecmp(mime, prefix, strlen(prefix)); }

}  // namespace

ASFExtractor::ASFExtractor(const sp<DataSource>& source) : mDataSource(source), mParser(new ASFParser(source)) {
    // Must stay fatal.
    ZIRK_CHECK_SITE(asfchecks::kExtractor, asfchecks::kParserCreated, mParser != nullptr);
    // The parse result is not consulted: tracks met before a parse error
    // are still offered.
    for (size_t i = 0; i < mParser->tracks().size(); ++i) (void)setMetaData(static_cast<unsigned int>(i));
}

ASFExtractor::~ASFExtractor() {}

const char* ASFExtractor::codecToMime(uint32_t codec) {
    for (const CodecMime& entry : kCodecMimes) {
        if (entry.codec != codec) continue;
        if (entry.gated && !windowsMediaSupported()) return nullptr;
        return *entry.mime;
    }
    return nullptr;
}

bool ASFExtractor::rawTrackIndex(size_t index, size_t* raw) const {
    const Vector<ASFParser::Track>& tracks = mParser->tracks();
    for (size_t i = 0; i < tracks.size(); ++i) {
        if (tracks[i].mMeta == nullptr) continue;
        if (index-- == 0) {
            *raw = i;
            return true;
        }
    }
    return false;
}

size_t ASFExtractor::countTracks() {
    size_t n = 0;
    for (const ASFParser::Track& track : mParser->tracks()) n += track.mMeta != nullptr;
    return n;
}

sp<MediaSource> ASFExtractor::getTrack(size_t index) {
    size_t raw;
    if (!rawTrackIndex(index, &raw)) return nullptr;
    return new ASFSource(mParser, mDataSource, static_cast<unsigned int>(raw));
}

sp<MetaData> ASFExtractor::getTrackMetaData(size_t index, uint32_t /*flags*/) {
    size_t raw;
    if (!rawTrackIndex(index, &raw)) return nullptr;
    return mParser->tracks()[raw].mMeta;
}

sp<MetaData> ASFExtractor::getMetaData() {
    const size_t n = countTracks();
    // The parser's own file metadata (title, artist, album art...) receives
    // the container type, as long as there is a track to describe.
    sp<MetaData> meta = mParser->fileMeta();
    if (meta == nullptr || n < 1) meta = new MetaData;
    const char* container = MEDIA_MIMETYPE_CONTAINER_WMA;
    for (size_t i = 0; i < n; ++i) {
        sp<MetaData> trackMeta = getTrackMetaData(i, 0);
        const char* trackMIME = nullptr;
        // Must stay fatal.
        ZIRK_CHECK_SITE(asfchecks::kExtractor, asfchecks::kTrackMime,
                        trackMeta->findCString(kKeyMIMEType, &trackMIME));
        if (hasPrefix(trackMIME, "video/")) {
            container = MEDIA_MIMETYPE_CONTAINER_ASF;
            break;
        }
    }
    meta->setCString(kKeyMIMEType, container);
    return meta;
}

status_t ASFExtractor::setMetaData(unsigned int trackIndex) {
    ASFParser::Track* track = mParser->editTrack(trackIndex);
    if (track == nullptr) return ASFParser::kErrorOutOfRange;
    track->mMeta.clear();
    sp<MetaData> meta = new MetaData;
    status_t err = OK;
    if (track->type == ASFParser::kTypeAudio) {
        err = setAudioMetaData(track, meta);
    } else if (track->type == ASFParser::kTypeVideo) {
        err = setVideoMetaData(track, meta);
    }
    if (err != OK) return err;
    track->mMeta = meta;
    return OK;
}

// Type-specific data is read only within the length its stream declares
// (held by the parser to its object): a structure that claims more than that
// is refused as malformed, the same status as a short read of the file.
status_t ASFExtractor::setAudioMetaData(ASFParser::Track* track, const sp<MetaData>& meta) {
    const int64_t offset = track->typeSpecificOffset;
    uint8_t head[kWaveFormatExBytes];
    ZIRKWaveFormat wfx;
    if (track->typeSpecificLength < kWaveFormatExBytes ||
        mDataSource->readAt(offset, head, sizeof(head)) != static_cast<ssize_t>(sizeof(head)) ||
        !ZIRKReadWaveFormat(head, sizeof(head), &wfx)) {
        return ERROR_MALFORMED;
    }
    // cbSize is 16-bit, so the whole structure is at most 65553 bytes.
    const uint32_t wholeSize = kWaveFormatExBytes + wfx.cbSize;
    sp<ABuffer> whole;
    if (wholeSize > track->typeSpecificLength ||
        ZIRKReadWhole(mDataSource, offset, wholeSize, ZIRKFileSizeOf(mDataSource), wholeSize, &whole) != OK) {
        return ERROR_MALFORMED;
    }

    const char* mime = codecToMime(wfx.formatTag);
    if (mime == nullptr) {
        ALOGW("Unsupported audio format %x", static_cast<unsigned>(wfx.formatTag));
        return ERROR_MALFORMED;
    }
    if (!hasPrefix(mime, "audio/") || !fitsInputSize(track->maxSampleSize)) return ERROR_MALFORMED;
    // WMA decoders take the whole WAVEFORMATEX with its extra data.
    if (!strcmp(mime, MEDIA_MIMETYPE_AUDIO_WMA)) {
        meta->setData(kKeyRawCodecSpecificData, 0, whole->data(), whole->size());
    }
    meta->setInt32(kKeySampleRate, static_cast<int32_t>(wfx.sampleRate));
    meta->setInt32(kKeyChannelCount, wfx.channels);
    // A byte rate past 2^28 would wrap the int32 bit rate negative; it is
    // held at the largest value instead.
    const int64_t bitRate = static_cast<int64_t>(wfx.avgBytesPerSec) * 8;
    meta->setInt32(kKeyBitRate, bitRate > INT32_MAX ? INT32_MAX : static_cast<int32_t>(bitRate));
    meta->setInt64(kKeyDuration, track->durationUs);
    meta->setInt32(kKeyMaxInputSize, static_cast<int32_t>(track->maxSampleSize));
    meta->setCString(kKeyMIMEType, mime);
    return OK;
}

status_t ASFExtractor::setVideoMetaData(ASFParser::Track* track, const sp<MetaData>& meta) {
    const int64_t offset = track->typeSpecificOffset;
    uint8_t head[kVideoFormatBytes];
    uint32_t bitmapInfoSize = 0;
    ZIRKBitmapInfo bmi;
    if (track->typeSpecificLength < kVideoFormatBytes ||
        mDataSource->readAt(offset, head, sizeof(head)) != static_cast<ssize_t>(sizeof(head)) ||
        !ZIRKByteReader(head + kBitmapInfoOffset, 4).readLE32(&bitmapInfoSize) ||
        !ZIRKReadBitmapInfoHeader(head + kBitmapInfoOffset, kZIRKBitmapInfoHeaderSize, &bmi)) {
        return ERROR_MALFORMED;
    }

    const uint32_t code = bmi.compression;
    const char* mime = codecToMime(code);
    if (mime == nullptr) {
        ALOGW("Unsupported video format '%c%c%c%c'", static_cast<char>(code >> 24), static_cast<char>(code >> 16),
              static_cast<char>(code >> 8), static_cast<char>(code));
        return ERROR_MALFORMED;
    }
    if (!hasPrefix(mime, "video/")) return ERROR_MALFORMED;
    meta->setInt32(kKeyWidth, bmi.width);
    meta->setInt32(kKeyHeight, bmi.height);
    meta->setInt64(kKeyThumbnailTime, track->thumbnailTimeUs);

    if (track->maxSampleSize == 0) {
        // Without an extended stream properties object a frame is allowed
        // three quarters of a byte per pixel. A size that does not fit 32
        // bits (or a negative, top-down height) cannot be buffered: the
        // track is not offered rather than given a wrapped size.
        uint32_t pixels;
        if (!zirkMul(static_cast<uint32_t>(bmi.width), static_cast<uint32_t>(bmi.height), &pixels) ||
            !zirkMul(pixels, 3u, &pixels)) {
            return ERROR_MALFORMED;
        }
        track->maxSampleSize = pixels / 4;
    }
    if (!fitsInputSize(track->maxSampleSize)) return ERROR_MALFORMED;
    meta->setInt32(kKeyMaxInputSize, static_cast<int32_t>(track->maxSampleSize));
    meta->setInt64(kKeyDuration, track->durationUs);

    // Codec extra data follows the 40-byte BITMAPINFOHEADER, as long as its
    // size field says; a size below 40 declares no valid structure.
    if (bitmapInfoSize < kZIRKBitmapInfoHeaderSize) return ERROR_MALFORMED;
    const uint32_t extraSize = bitmapInfoSize - kZIRKBitmapInfoHeaderSize;
    if (extraSize != 0) {
        sp<ABuffer> extra;
        if (extraSize > track->typeSpecificLength - kVideoFormatBytes ||
            ZIRKReadWhole(mDataSource, offset + kVideoFormatBytes, extraSize, ZIRKFileSizeOf(mDataSource), extraSize,
                          &extra) != OK) {
            return ERROR_MALFORMED;
        }
        meta->setData(kKeyRawCodecSpecificData, 0, extra->data(), extra->size());
    }
    meta->setCString(kKeyMIMEType, mime);
    return OK;
}

}  // namespace android
