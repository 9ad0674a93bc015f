// The entries of a track's stsd box and the boxes nested in them: audio and
// video sample entries, their codec configurations (avcC, esds, glbl, d263)
// and QuickTime's wave extension with its WAVEFORMATEX child. Part of
// ZIRKMOVExtractor's box walk; everything goes to the track being parsed.
#define LOG_TAG "ZIRKMOVExtractor"
#include <string.h>
#include <strings.h>

#include <vector>

#include <media/stagefright/MediaDefs.h>
#include <media/stagefright/MediaErrors.h>
#include <media/stagefright/Utils.h>
#include <media/stagefright/foundation/ABitReader.h>
#include <media/stagefright/foundation/ESDS.h>
#include <utils/Log.h>

#include "common/ZIRKESDescriptor.h"
#include "common/ZIRKMetaKeys.h"
#include "common/ZIRKSafeMath.h"
#include "common/ZIRKWaveFormat.h"
#include "mov/ZIRKMOVExtractor.h"
#include "mov/ZIRKMOVExtractorInternal.h"

namespace android {

namespace {

constexpr uint32_t kMSADPCM = 0x6D730002;  // 'ms' 0x00 0x02
constexpr uint32_t kIMAADPCM = 0x6D730011;  // 'ms' 0x00 0x11
constexpr uint32_t kMSMP3 = 0x6D730055;     // 'ms' 0x00 0x55

constexpr size_t kSoundDescriptionSize = 28;
constexpr size_t kSoundDescriptionV1Size = 44;
constexpr size_t kSoundDescriptionV2Size = 64;
constexpr size_t kVisualSampleEntrySize = 78;
constexpr size_t kWaveFormatExSize = 18;  // WAVEFORMATEX with cbSize
constexpr uint16_t kCompressionIdVariable = 0xFFFE;

// Configuration boxes larger than these are refused as ERROR_BUFFER_TOO_SMALL:
// the decoders' configuration buffers are this large.
constexpr off64_t kMaxAVCCSize = 256;
constexpr off64_t kMaxESDSSize = 8192;
constexpr off64_t kMaxGlblSize = 8192;

struct SampleEntryCode {
    uint32_t code;
    const char* const* mime;  // the framework's imported string, read at look-up
    bool isVideo;
    int32_t audioFormat;
};

// hdv4 is deliberately absent.
const SampleEntryCode kSampleEntryCodes[] = {
        {'mp4v', &MEDIA_MIMETYPE_VIDEO_MPEG4, true, -1},  {'avc1', &MEDIA_MIMETYPE_VIDEO_AVC, true, -1},
        {'s263', &MEDIA_MIMETYPE_VIDEO_H263, true, -1},   {'H263', &MEDIA_MIMETYPE_VIDEO_H263, true, -1},
        {'h263', &MEDIA_MIMETYPE_VIDEO_H263, true, -1},   {'DX50', &MEDIA_MIMETYPE_VIDEO_DIVX, true, -1},
        {'DIVX', &MEDIA_MIMETYPE_VIDEO_DIVX, true, -1},   {'XVID', &MEDIA_MIMETYPE_VIDEO_DIVX, true, -1},
        {'AVmp', &MEDIA_MIMETYPE_VIDEO_MPEG2, true, -1},  {'m2v1', &MEDIA_MIMETYPE_VIDEO_MPEG2, true, -1},
        {'mpg2', &MEDIA_MIMETYPE_VIDEO_MPEG2, true, -1},  {'hdv1', &MEDIA_MIMETYPE_VIDEO_MPEG2, true, -1},
        {'hdv2', &MEDIA_MIMETYPE_VIDEO_MPEG2, true, -1},  {'hdv3', &MEDIA_MIMETYPE_VIDEO_MPEG2, true, -1},
        {'hdv5', &MEDIA_MIMETYPE_VIDEO_MPEG2, true, -1},  {'hdv6', &MEDIA_MIMETYPE_VIDEO_MPEG2, true, -1},
        {'xdv2', &MEDIA_MIMETYPE_VIDEO_MPEG2, true, -1},  {'mx3n', &MEDIA_MIMETYPE_VIDEO_MPEG2, true, -1},
        {'mx3p', &MEDIA_MIMETYPE_VIDEO_MPEG2, true, -1},  {'mx4n', &MEDIA_MIMETYPE_VIDEO_MPEG2, true, -1},
        {'mx4p', &MEDIA_MIMETYPE_VIDEO_MPEG2, true, -1},  {'mx5n', &MEDIA_MIMETYPE_VIDEO_MPEG2, true, -1},
        {'mx5p', &MEDIA_MIMETYPE_VIDEO_MPEG2, true, -1},  {'jpeg', &MEDIA_MIMETYPE_VIDEO_MJPEG, true, -1},
        {'mp4a', &MEDIA_MIMETYPE_AUDIO_AAC, false, -1},   {'samr', &MEDIA_MIMETYPE_AUDIO_AMR_NB, false, -1},
        {'sawb', &MEDIA_MIMETYPE_AUDIO_AMR_WB, false, -1}, {'ec-3', &MEDIA_MIMETYPE_AUDIO_AC3, false, -1},
        {'.mp3', &MEDIA_MIMETYPE_AUDIO_MPEG, false, 5},   {kMSMP3, &MEDIA_MIMETYPE_AUDIO_MPEG, false, 5},
        {kMSADPCM, &MEDIA_MIMETYPE_AUDIO_RAW, false, 4},  {kIMAADPCM, &MEDIA_MIMETYPE_AUDIO_RAW, false, 3},
        {'twos', &MEDIA_MIMETYPE_AUDIO_RAW, false, 1},    {'sowt', &MEDIA_MIMETYPE_AUDIO_RAW, false, 0},
};

const SampleEntryCode* findSampleEntryCode(uint32_t type) {
    for (const SampleEntryCode& entry : kSampleEntryCodes) {
        if (entry.code == type) return &entry;
    }
    return nullptr;
}

const char* FourCC2MIME(uint32_t fourcc) {
    const SampleEntryCode* entry = findSampleEntryCode(fourcc);
    // Must stay fatal; only codes of the table are routed here.
    ZIRK_CHECK_HERE(movchecks::kExtractor, "!\"should not be here.\"", entry != nullptr);
    return *entry->mime;
}

// ISO/IEC 14496-3 sampling frequency table, indexes 0-12.
const uint32_t kAACSampleRates[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                    22050, 16000, 12000, 11025, 8000,  7350};

}  // namespace

status_t ZIRKMOVExtractor::parseSampleEntryBox(uint32_t type, off64_t* offset, off64_t boxEnd, off64_t dataOffset,
                                               off64_t dataSize, int depth) {
    if (const SampleEntryCode* entry = findSampleEntryCode(type)) {
        if (mLastTrack == nullptr) return ERROR_MALFORMED;
        return entry->isVideo ? parseVideoSampleEntry(type, offset, boxEnd, dataOffset, dataSize, depth)
                              : parseAudioSampleEntry(type, offset, boxEnd, dataOffset, dataSize, depth);
    }

    switch (type) {
        case 'avcC': {
            if (mLastTrack == nullptr) return ERROR_MALFORMED;
            if (dataSize > kMaxAVCCSize) return ERROR_BUFFER_TOO_SMALL;
            if (dataSize == 0) {
                // verifyTrack drops the empty record with its warning.
                mLastTrack->meta->setData(kKeyAVCC, kTypeAVCC, nullptr, 0);
                *offset = boxEnd;
                return OK;
            }
            if (dataSize < 7) return ERROR_MALFORMED;
            uint8_t buffer[kMaxAVCCSize];
            if (!readExact(dataOffset, buffer, static_cast<size_t>(dataSize))) return ERROR_IO;
            if (buffer[0] != 1) return ERROR_MALFORMED;
            mLastTrack->meta->setData(kKeyAVCC, kTypeAVCC, buffer, static_cast<size_t>(dataSize));
            *offset = boxEnd;
            return OK;
        }

        case 'esds': {
            if (mLastTrack == nullptr) return ERROR_MALFORMED;
            if (dataSize < 4) return ERROR_MALFORMED;
            if (dataSize > kMaxESDSSize) {
                ALOGW("ESDS chunk size %lld too large!", static_cast<long long>(dataSize));
                return ERROR_BUFFER_TOO_SMALL;
            }
            // On the heap: this frame stays on the stack while wave's
            // children are parsed.
            std::vector<uint8_t> payload;
            if (readPayload(dataOffset, static_cast<uint64_t>(dataSize), &payload) != OK) return ERROR_IO;
            const uint8_t* buffer = payload.data();
            if (U32_AT(buffer) != 0) return ERROR_MALFORMED;
            mLastTrack->meta->setData(kKeyESDS, kTypeESDS, buffer + 4, static_cast<size_t>(dataSize - 4));
            const size_t n = mPath.size();
            if ((n >= 2 && mPath[n - 2] == 'mp4a') || (n > 2 && mPath[n - 3] == 'mp4a')) {
                status_t err = updateAudioTrackInfoFromESDS_MPEG4Audio(buffer + 4, static_cast<size_t>(dataSize - 4));
                if (err != OK) return err;
            }
            *offset = boxEnd;
            return OK;
        }

        case 'glbl': {
            const size_t n = mPath.size();
            const uint32_t parent = n >= 2 ? mPath[n - 2] : 0;
            if (parent == 'DX50' || parent == 'DIVX' || parent == 'XVID') {
                if (mLastTrack == nullptr) return ERROR_MALFORMED;
                if (dataSize < 4) return ERROR_MALFORMED;
                if (dataSize > kMaxGlblSize) {
                    ALOGW(" glbl chunk size %lld too large!", static_cast<long long>(dataSize));
                    return ERROR_BUFFER_TOO_SMALL;
                }
                std::vector<uint8_t> payload;
                if (readPayload(dataOffset, static_cast<uint64_t>(dataSize), &payload) != OK) return ERROR_IO;
                mLastTrack->meta->setData(kKeyRawCodecSpecificData, 0, payload.data() + 4, static_cast<size_t>(dataSize - 4));
            }
            *offset = boxEnd;
            return OK;
        }

        case 'd263': {
            if (mLastTrack == nullptr) return ERROR_MALFORMED;
            if (dataSize != 7 && dataSize != 23) {
                ALOGE("Incorrect D263 box size %lld", static_cast<long long>(dataSize));
                return ERROR_MALFORMED;
            }
            uint8_t buffer[23];
            if (!readExact(dataOffset, buffer, static_cast<size_t>(dataSize))) return ERROR_IO;
            mLastTrack->meta->setData(kKeyD263, kTypeD263, buffer, static_cast<size_t>(dataSize));
            *offset = boxEnd;
            return OK;
        }

        case 'wave': {
            if (dataSize < 8) return ERROR_MALFORMED;
            mInWave = true;
            *offset = dataOffset;
            while (*offset < boxEnd && !mWaveEnded) {
                const off64_t before = *offset;
                status_t err = parseChunk(offset, depth + 1, boxEnd);
                if (err != OK) return err;
                // A zero-type child ends wave; any other that does not
                // advance ends the walk as if the data had ended.
                if (*offset == before && !mWaveEnded) return ERROR_IO;
            }
            if (mWaveEnded) {
                *offset = boxEnd;
                mWaveEnded = false;
                return OK;
            }
            if (*offset > boxEnd) return ERROR_MALFORMED;
            return OK;
        }

        case 0:
            if (mInWave) {
                // The terminator of a wave box.
                *offset = boxEnd;
                mInWave = false;
                mWaveEnded = true;
                return OK;
            }
            // Kept as found: not stepped over. Every loop that parses boxes
            // ends when a box leaves the offset where it was.
            ALOGW("receive pure 0 FOURCC!");
            return OK;

        default:
            return NAME_NOT_FOUND;
    }
}

status_t ZIRKMOVExtractor::parseAudioSampleEntry(uint32_t type, off64_t* offset, off64_t boxEnd,
                                                 off64_t dataOffset, off64_t dataSize, int depth) {
    if (mInWave && !mWaveEnded && (type == kIMAADPCM || type == kMSADPCM || type == kMSMP3)) {
        // A WAVEFORMATEX inside wave.
        std::vector<uint8_t> payload;
        status_t err = readPayload(dataOffset, static_cast<uint64_t>(dataSize), &payload);
        if (err != OK) return err;
        *offset = boxEnd;
        ZIRKWaveFormat format;
        if (payload.size() >= kWaveFormatExSize && ZIRKReadWaveFormat(payload.data(), payload.size(), &format)) {
            mLastTrack->blockAlign = format.blockAlign;
        }
        return OK;
    }

    if (dataSize < static_cast<off64_t>(kSoundDescriptionSize)) {
        if (type == 'mp4a') {
            // The format marker inside wave.
            *offset = boxEnd;
            return OK;
        }
        return ERROR_MALFORMED;
    }

    uint8_t buffer[kSoundDescriptionSize];
    if (!readExact(dataOffset, buffer, sizeof(buffer))) return ERROR_IO;
    const uint16_t version = U16_AT(buffer + 8);
    uint32_t channelCount = U16_AT(buffer + 16);
    uint32_t sampleRate = U32_AT(buffer + 24) >> 16;
    const uint16_t compressionId = U16_AT(buffer + 20);
    const char* mime = FourCC2MIME(type);
    if (!strcasecmp(mime, MEDIA_MIMETYPE_AUDIO_AMR_NB)) {
        sampleRate = 8000;
        channelCount = 1;
    } else if (!strcasecmp(mime, MEDIA_MIMETYPE_AUDIO_AMR_WB)) {
        sampleRate = 16000;
        channelCount = 1;
    }
    mLastTrack->audioFormat = findSampleEntryCode(type)->audioFormat;
    mLastTrack->bitsPerSample = U16_AT(buffer + 18);

    size_t childrenAt = kSoundDescriptionSize;
    if (version == 1 || version == 2) {
        childrenAt = version == 1 ? kSoundDescriptionV1Size : kSoundDescriptionV2Size;
        // The extension must lie in this box, not in the next one.
        if (dataSize < static_cast<off64_t>(childrenAt)) return ERROR_MALFORMED;
    }
    if (version == 1) {
        uint8_t ext[16];
        if (!readExact(dataOffset + 28, ext, sizeof(ext))) return ERROR_IO;
        if (compressionId != kCompressionIdVariable) {
            mLastTrack->samplesPerPacket = static_cast<uint16_t>(U32_AT(ext));
            mLastTrack->bytesPerFrame = static_cast<uint16_t>(U32_AT(ext + 8));
        }
    } else if (version == 2) {
        uint8_t ext[32];
        if (!readExact(dataOffset + 32, ext, sizeof(ext))) return ERROR_IO;
        const uint64_t bits = U64_AT(ext);
        double rate;
        memcpy(&rate, &bits, sizeof(rate));
        sampleRate = zirkSaturateCast<uint32_t>(rate);
        channelCount = U32_AT(ext + 8);
        mLastTrack->bitsPerSample = static_cast<uint16_t>(U32_AT(ext + 16));
        mLastTrack->bytesPerFrame = static_cast<uint16_t>(U32_AT(ext + 24));
        mLastTrack->samplesPerPacket = static_cast<uint16_t>(U32_AT(ext + 28));
    } else if (version != 0) {
        ALOGE("unsupported sample description entry version %d, only support 0, 1, 2", version);
    }

    mLastTrack->meta->setCString(kKeyMIMEType, mime);
    mLastTrack->meta->setInt32(kKeyChannelCount, static_cast<int32_t>(channelCount));
    mLastTrack->meta->setInt32(kKeySampleRate, static_cast<int32_t>(sampleRate));
    return parseContainerChildren(offset, dataOffset + static_cast<off64_t>(childrenAt), boxEnd, depth);
}

status_t ZIRKMOVExtractor::parseVideoSampleEntry(uint32_t type, off64_t* offset, off64_t boxEnd,
                                                 off64_t dataOffset, off64_t dataSize, int depth) {
    mHasVideo = true;
    if (dataSize < static_cast<off64_t>(kVisualSampleEntrySize)) return ERROR_MALFORMED;
    uint8_t buffer[kVisualSampleEntrySize];
    if (!readExact(dataOffset, buffer, sizeof(buffer))) return ERROR_IO;
    uint16_t width = U16_AT(buffer + 24);
    uint16_t height = U16_AT(buffer + 26);
    // Deliberate defaults (CIF) for entries that leave the size out.
    if (width == 0) width = 352;
    if (height == 0) height = 288;
    mLastTrack->meta->setCString(kKeyMIMEType, FourCC2MIME(type));
    mLastTrack->meta->setInt32(kKeyWidth, width);
    mLastTrack->meta->setInt32(kKeyHeight, height);
    return parseContainerChildren(offset, dataOffset + static_cast<off64_t>(kVisualSampleEntrySize), boxEnd, depth);
}

status_t ZIRKMOVExtractor::updateAudioTrackInfoFromESDS_MPEG4Audio(const void* esdsData, size_t esdsSize) {
    ESDS esds(esdsData, esdsSize);
    uint8_t objectTypeIndication;
    if (esds.getObjectTypeIndication(&objectTypeIndication) != OK) return ERROR_MALFORMED;
    if (objectTypeIndication == 0xE1) {
        mLastTrack->meta->setCString(kKeyMIMEType, MEDIA_MIMETYPE_AUDIO_QCELP);
        return OK;
    }
    if (objectTypeIndication == 0x6B) {
        mLastTrack->meta->setCString(kKeyMIMEType, MEDIA_MIMETYPE_AUDIO_MPEG);
        return OK;
    }

    const void* csd;
    size_t csdSize;
    if (esds.getCodecSpecificInfo(&csd, &csdSize) != OK) return ERROR_MALFORMED;
    if (csdSize == 0) return OK;
    if (csdSize == 1) return ERROR_MALFORMED;

    // A configuration that ends inside these fields is refused rather than
    // read as zeros.
    ABitReader bits(static_cast<const uint8_t*>(csd), csdSize);
    uint32_t objectType;
    uint32_t skipped;
    uint32_t freqIndex;
    if (!bits.getBitsGraceful(5, &objectType)) return ERROR_MALFORMED;
    if (objectType == 31 && !bits.getBitsGraceful(6, &skipped)) return ERROR_MALFORMED;
    if (!bits.getBitsGraceful(4, &freqIndex)) return ERROR_MALFORMED;
    uint32_t sampleRate;
    if (freqIndex == 15) {
        if (csdSize <= 4) return ERROR_MALFORMED;
        if (!bits.getBitsGraceful(24, &sampleRate)) return ERROR_MALFORMED;
    } else if (freqIndex == 13 || freqIndex == 14) {
        return ERROR_MALFORMED;
    } else {
        sampleRate = kAACSampleRates[freqIndex];
    }
    uint32_t numChannels;
    if (!bits.getBitsGraceful(4, &numChannels)) return ERROR_MALFORMED;
    if (numChannels == 0) ALOGW("numChannels in ESDS is 0, ignore the error!");

    int32_t prevSampleRate;
    // Must stay fatal.
    ZIRK_CHECK_HERE(movchecks::kExtractor, "mLastTrack->meta->findInt32(kKeySampleRate, &prevSampleRate)",
                    mLastTrack->meta->findInt32(kKeySampleRate, &prevSampleRate));
    mLastTrack->meta->setInt32(kKeySampleRate, static_cast<int32_t>(sampleRate));
    int32_t prevChannelCount;
    // Must stay fatal.
    ZIRK_CHECK_HERE(movchecks::kExtractor, "mLastTrack->meta->findInt32(kKeyChannelCount, &prevChannelCount)",
                    mLastTrack->meta->findInt32(kKeyChannelCount, &prevChannelCount));
    if (numChannels != 0 && static_cast<int32_t>(numChannels) != prevChannelCount) {
        mLastTrack->meta->setInt32(kKeyChannelCount, static_cast<int32_t>(numChannels));
    }
    return OK;
}

}  // namespace android
