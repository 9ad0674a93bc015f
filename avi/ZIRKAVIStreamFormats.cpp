#define LOG_TAG "ZIRKAVIExtractor"

// Stream headers (strh), stream formats (strf: BITMAPINFOHEADER or
// WAVEFORMATEX) and the codec-specific data taken from a track's first frame.
#include "avi/ZIRKAVIExtractor.h"

#include <string.h>
#include <strings.h>

#include <media/stagefright/MediaDefs.h>
#include <media/stagefright/MediaErrors.h>
#include <utils/Log.h>

#include "avi/ZIRKAVIChecks.h"
#include "avi/ZIRKAVIInternal.h"
#include <media/stagefright/foundation/avc_utils.h>

#include <zirk/ZIRKByteReader.h>
#include "common/ZIRKESDescriptor.h"
#include "common/ZIRKFourCC.h"
#include "common/ZIRKMetaKeys.h"
#include "common/ZIRKReadWhole.h"
#include "common/ZIRKWaveFormat.h"

namespace android {

using namespace avichecks;
using namespace avi_internal;

namespace {

constexpr size_t kStreamHeaderSize = 56;
constexpr size_t kMaxStreams = 100;

const char* const kVideoUnknownMime = "video/unknown";
const char* const kOctetStreamMime = "application/octet-stream";

}  // namespace

// Sizes come from the file: held to the file's end and kMaxWholeReadBytes.
status_t ZIRKAVIExtractor::readWhole(int64_t offset, int64_t size, sp<ABuffer>* out) {
    return ZIRKReadWhole(mDataSource, offset, size, mFileSize, kMaxWholeReadBytes, out);
}

status_t ZIRKAVIExtractor::parseStreamHeader(int64_t dataOffset, int64_t size) {
    if (size != static_cast<int64_t>(kStreamHeaderSize)) return ERROR_MALFORMED;
    if (mTracks.size() > kMaxStreams - 1) return kAVIErrorOutOfRange;

    uint8_t data[kStreamHeaderSize];
    ssize_t n = mDataSource->readAt(dataOffset, data, sizeof(data));
    if (n < static_cast<ssize_t>(sizeof(data))) return ZIRKShortReadStatus(n);

    // fccType, fccHandler; dwScale, dwRate at 20; dwSampleSize at 44.
    ZIRKByteReader r(data, sizeof(data));
    uint32_t type = 0, handler = 0, scale = 0, rate = 0, sampleSize = 0;
    r.readBE32(&type);
    r.readBE32(&handler);
    r.seek(20);
    r.readLE32(&scale);
    r.readLE32(&rate);
    r.seek(44);
    r.readLE32(&sampleSize);
    Track::Kind kind;
    const char* mime;
    if (type == fourcc('v', 'i', 'd', 's')) {
        kind = Track::VIDEO;
        mime = ZIRKVideoMimeForFourcc(handler);
        if (mime != nullptr) {
            if (!isVideoMime(mime)) return ERROR_MALFORMED;
        } else {
            ALOGW("Unsupported video format '%c%c%c%c'", static_cast<char>(handler >> 24),
                  static_cast<char>((handler >> 16) & 0xFF), static_cast<char>((handler >> 8) & 0xFF),
                  static_cast<char>(handler & 0xFF));
            mime = kVideoUnknownMime;
        }
    } else if (type == fourcc('a', 'u', 'd', 's')) {
        kind = Track::AUDIO;
        mime = kOctetStreamMime;
    } else {
        kind = Track::OTHER;
        mime = kOctetStreamMime;
    }

    Track track;
    track.mMeta = new MetaData;
    track.mMeta->setCString(kKeyMIMEType, mime);
    track.mScale = scale;
    track.mRate = rate;
    track.mBytesPerSample = sampleSize;
    track.mKind = kind;
    track.mNumSyncSamples = 0;
    track.mThumbnailSampleSize = 0;
    track.mThumbnailSampleIndex = -1;
    track.mMaxSampleSize = 0;
    track.mAvgChunkSize = 1.0;
    track.mFirstChunkSize = 0;
    track.mFormatTag = 0;
    track.mAudioType = kAudioUnknown;
    track.mBlockAlign = 0;
    track.mBitsPerSample = 0;
    if (mTracks.add(track) < 0) return NO_MEMORY;
    return OK;
}

status_t ZIRKAVIExtractor::parseStreamFormat(int64_t dataOffset, int64_t size) {
    if (mTracks.isEmpty()) return ERROR_MALFORMED;
    Track* track = &mTracks.editTop();
    if (track->mKind == Track::OTHER) return OK;

    bool isVideo = track->mKind == Track::VIDEO;
    if (size < static_cast<int64_t>(isVideo ? kZIRKBitmapInfoHeaderSize : kZIRKWaveFormatSize)) {
        return ERROR_MALFORMED;
    }
    sp<ABuffer> buffer;
    status_t err = readWhole(dataOffset, size, &buffer);
    if (err != OK) return err;
    const uint8_t* data = buffer->data();
    size_t length = buffer->size();

    if (isVideo) {
        ZIRKBitmapInfo bmi;
        if (!ZIRKReadBitmapInfoHeader(data, length, &bmi)) return ERROR_MALFORMED;
        track->mMeta->setInt32(kKeyWidth, bmi.width);
        track->mMeta->setInt32(kKeyHeight, bmi.height);
        const char* found = ZIRKVideoMimeForFourcc(bmi.compression);
        if (found == nullptr) return OK;
        const char* current = nullptr;
        if (!track->mMeta->findCString(kKeyMIMEType, &current) ||
            !strcasecmp(current, kVideoUnknownMime)) {
            track->mMeta->setCString(kKeyMIMEType, found);
        } else if (strcasecmp(current, found)) {
            ALOGW("The video format information is mismatched in 'strh' and 'strf' ");
        }
        if (bmi.extraSize > 0) {
            if (!strcasecmp(found, MEDIA_MIMETYPE_VIDEO_WMV3) ||
                !strcasecmp(found, MEDIA_MIMETYPE_VIDEO_WMV2) ||
                !strcasecmp(found, MEDIA_MIMETYPE_VIDEO_WMV1) ||
                !strcasecmp(found, MEDIA_MIMETYPE_VIDEO_WVC1)) {
                track->mMeta->setData(kKeyRawCodecSpecificData, 0, bmi.extra, bmi.extraSize);
            } else if (!strcasecmp(found, MEDIA_MIMETYPE_VIDEO_AVC)) {
                track->mMeta->setData(kKeyAVCC, kTypeAVCC, bmi.extra, bmi.extraSize);
            }
        }
        return OK;
    }

    return parseWaveFormat(data, length, track);
}

// Audio: WAVEFORMATEX, or WAVEFORMATEXTENSIBLE whose sub-format names a tag
// or one of the coded formats.
status_t ZIRKAVIExtractor::parseWaveFormat(const uint8_t* data, size_t length, Track* track) {
    ZIRKWaveFormat wfx;
    if (!ZIRKReadWaveFormat(data, length, &wfx)) return ERROR_MALFORMED;
    track->mFormatTag = wfx.formatTag;
    track->mAudioType = kAudioUnknown;
    uint32_t subTag = 0;
    switch (ZIRKReadSubFormat(wfx, &subTag)) {
        case ZIRKSubFormat::kFormatTag:
            track->mFormatTag = subTag;
            break;
        case ZIRKSubFormat::kAC3:
            track->mAudioType = kAudioAC3;
            track->mMeta->setCString(kKeyMIMEType, MEDIA_MIMETYPE_AUDIO_AC3);
            break;
        case ZIRKSubFormat::kEAC3:
            track->mAudioType = kAudioEAC3;
            track->mMeta->setCString(kKeyMIMEType, MEDIA_MIMETYPE_AUDIO_AC3);
            break;
        case ZIRKSubFormat::kMPEG2Audio:
            track->mAudioType = kAudioMPEG;
            track->mMeta->setCString(kKeyMIMEType, MEDIA_MIMETYPE_AUDIO_MPEG_LAYER_II);
            break;
        case ZIRKSubFormat::kNone:
            break;
    }
    if (track->mAudioType == kAudioUnknown) {
        const ZIRKAudioFormat* format = ZIRKAudioFormatForTag(track->mFormatTag);
        if (format == nullptr) {
            ALOGW("Unsupported audio format = 0x%04x", track->mFormatTag);
        } else {
            track->mAudioType = format->type;
            if (format->keepsBitsPerSample) track->mBitsPerSample = wfx.bitsPerSample;
            track->mMeta->setCString(kKeyMIMEType, *format->mime);
            if (format->type == kAudioAAC) setAACDescriptor(wfx, track);
            // WMA decoders take the whole WAVEFORMATEX.
            if (format->type == kAudioWMA) track->mMeta->setData(kKeyRawCodecSpecificData, 0, data, length);
        }
    }

    track->mMeta->setInt32(kKeyChannelCount, wfx.channels);
    track->mMeta->setInt32(kKeySampleRate, static_cast<int32_t>(wfx.sampleRate));
    if (track->mBytesPerSample != 0 && track->mBytesPerSample != wfx.blockAlign) {
        ALOGW("nBlockAlign is not same as dwSampleSize in AVI stream header %d vs. %d ", wfx.blockAlign,
              track->mBytesPerSample);
        track->mBytesPerSample = 0;
    }
    track->mBlockAlign = wfx.blockAlign;
    return OK;
}

// The AudioSpecificConfig after cbSize when it lies inside the chunk and fits
// the descriptor's one-byte lengths; otherwise one built from the rate and
// channels (none for a rate outside the AAC table).
void ZIRKAVIExtractor::setAACDescriptor(const ZIRKWaveFormat& wfx, Track* track) {
    uint8_t built[2];
    const uint8_t* config = wfx.extra;
    size_t configSize = wfx.cbSize;
    if (wfx.cbSize < 2 || wfx.cbSize > kZIRKMaxAdjustedAACConfig || wfx.cbSize > wfx.extraSize) {
        if (!ZIRKMakeAACConfigFromRate(wfx.sampleRate, wfx.channels, built)) return;
        config = built;
        configSize = sizeof(built);
    }
    sp<ABuffer> esds = ZIRKMakeAACESDSAdjustedLengths(config, configSize);
    if (esds != nullptr) track->mMeta->setData(kKeyESDS, kTypeESDS, esds->data(), esds->size());
}

// Codec-specific data from the first video frame.

status_t ZIRKAVIExtractor::readFirstNonEmptySample(size_t trackIndex, sp<ABuffer>* out) {
    size_t count = mTracks[trackIndex].mSamples.size();
    for (size_t i = 0; i < count; ++i) {
        int64_t offset, timeUs;
        uint32_t size;
        bool isKey;
        status_t err = getSampleInfo(trackIndex, i, &offset, &size, &isKey, &timeUs);
        if (err != OK) return err;
        if (size == 0) continue;
        return readWhole(offset, size, out);
    }
    // Every chunk of the track is empty: the look-up past the last sample
    // answers out of range, and that is what fails the file.
    return kAVIErrorOutOfRange;
}

status_t ZIRKAVIExtractor::addMPEG4CodecSpecificData(size_t trackIndex) {
    sp<ABuffer> frame;
    status_t err = readFirstNonEmptySample(trackIndex, &frame);
    if (err != OK) return err;
    const uint8_t* data = frame->data();
    size_t size = frame->size();
    size_t vop = 0;
    bool found = false;
    for (size_t p = 0; size > 3 && p < size - 3; ++p) {
        if (data[p] == 0 && data[p + 1] == 0 && data[p + 2] == 1 && data[p + 3] == 0xB6) {
            vop = p;
            found = true;
            break;
        }
    }
    if (!found) return ERROR_MALFORMED;

    sp<ABuffer> config = new ABuffer(frame->data(), vop);
    sp<ABuffer> esds = MakeMPEG4VideoCodecSpecificData(config);
    if (esds == nullptr) return NO_MEMORY;
    mTracks.editItemAt(trackIndex).mMeta->setData(kKeyESDS, kTypeESDS, esds->data(), esds->size());
    return OK;
}

status_t ZIRKAVIExtractor::addH264CodecSpecificData(size_t trackIndex) {
    sp<ABuffer> frame;
    status_t err = readFirstNonEmptySample(trackIndex, &frame);
    if (err != OK) return err;
    ZIRKAVIRewriteAVCLengths(frame->data(), frame->size());

    Track* track = &mTracks.editItemAt(trackIndex);
    sp<MetaData> meta = MakeAVCCodecSpecificData(frame);
    if (meta != nullptr) {
        int32_t width, height;
        uint32_t type;
        const void* csd;
        size_t csdSize;
        // Must stay fatal: the helper promised these keys.
        ZIRK_CHECK_SITE(kAVI, kAVCWidth, meta->findInt32(kKeyWidth, &width));
        ZIRK_CHECK_SITE(kAVI, kAVCHeight, meta->findInt32(kKeyHeight, &height));
        ZIRK_CHECK_SITE(kAVI, kAVCConfig, meta->findData(kKeyAVCC, &type, &csd, &csdSize));
        track->mMeta->setInt32(kKeyWidth, width);
        track->mMeta->setInt32(kKeyHeight, height);
        track->mMeta->setData(kKeyAVCC, type, csd, csdSize);
        return OK;
    }
    if (track->mMeta->hasData(kKeyAVCC)) {
        ALOGI("Unable to extract AVC codec specific data in sample data. The AVC specific data has already been found in 'strf'");
        return OK;
    }
    ALOGE("Unable to extract AVC codec specific data");
    return ERROR_MALFORMED;
}

}  // namespace android
