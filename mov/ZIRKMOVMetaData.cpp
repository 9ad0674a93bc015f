// File metadata of ZIRKMOVExtractor: the items of an iTunes-style
// moov/udta/meta/ilst list and the 3GPP string boxes under moov/udta.
#define LOG_TAG "ZIRKMOVExtractor"
#include <stdio.h>
#include <string.h>

#include <vector>

#include <media/stagefright/MediaErrors.h>
#include <media/stagefright/Utils.h>
#include <utils/Log.h>

#include "mov/ZIRKMOVExtractor.h"
#include "mov/ZIRKMOVExtractorInternal.h"

namespace android {

namespace {

// 3GPP string boxes longer than this are refused.
constexpr off64_t kMax3gpStringBoxSize = 2047;

}  // namespace

status_t ZIRKMOVExtractor::parseMetaData(off64_t offset, off64_t size) {
    if (size < 4) return ERROR_MALFORMED;
    std::vector<uint8_t> buffer;
    status_t err = readPayload(offset, static_cast<uint64_t>(size), &buffer);
    if (err != OK) return err;
    const size_t n = buffer.size();
    buffer.push_back(0);  // strings below end at the payload's end
    const uint8_t* data = buffer.data();
    const uint32_t flags = U32_AT(data);
    const char* text = reinterpret_cast<const char*>(data) + 8;

    uint32_t metadataKey = 0;
    const uint32_t item = mPath[4];
    switch (item) {
        case 0xA96E616D: metadataKey = kKeyTitle; break;        // ©nam
        case 0xA9415254: metadataKey = kKeyArtist; break;       // ©ART
        case 'aART': metadataKey = kKeyAlbumArtist; break;
        case 0xA9616C62: metadataKey = kKeyAlbum; break;        // ©alb
        case 0xA9777274: metadataKey = kKeyWriter; break;       // ©wrt
        case 0xA9646179: metadataKey = kKeyYear; break;         // ©day
        case 0xA967656E:                                        // ©gen
        case 'gnre':
            if (n < 8) break;
            if (flags == 0) {
                char genre[10];
                snprintf(genre, sizeof(genre), "%d", static_cast<uint8_t>(data[n - 1] - 1));
                mFileMetaData->setCString(kKeyGenre, genre);
            } else if (flags == 1) {
                mFileMetaData->setCString(kKeyGenre, text);
            }
            break;
        case 'trkn':
            if (n == 16 && flags == 0) {
                char number[16];
                snprintf(number, sizeof(number), "%d/%d", data[11], data[13]);
                mFileMetaData->setCString(kKeyCDTrackNumber, number);
            }
            break;
        case 'disk':
            if (n == 14 && flags == 0) {
                char number[16];
                snprintf(number, sizeof(number), "%d/%d", data[11], data[13]);
                mFileMetaData->setCString(kKeyDiscNumber, number);
            }
            break;
        case 'cpil':
            if (n == 9 && flags == 0x15) {
                char value[4];
                snprintf(value, sizeof(value), "%d", data[8]);
                mFileMetaData->setCString(kKeyCompilation, value);
            }
            break;
        case 'covr':
            if (n >= 8) mFileMetaData->setData(kKeyAlbumArt, MetaData::TYPE_NONE, data + 8, n - 8);
            break;
        case '----': {
            const uint32_t box = mPath[5];
            if (box == 'mean' && n >= 4) {
                mFreeformMean.setTo(reinterpret_cast<const char*>(data) + 4);
            } else if (box == 'name' && n >= 4) {
                mFreeformName.setTo(reinterpret_cast<const char*>(data) + 4);
            } else if (box == 'data' && n >= 8) {
                mFreeformData.setTo(text);
            }
            if (!strcmp(mFreeformMean.c_str(), "com.apple.iTunes") && !strcmp(mFreeformName.c_str(), "iTunSMPB") &&
                !mFreeformData.isEmpty()) {
                unsigned int delay;
                unsigned int padding;
                if (sscanf(mFreeformData.c_str(), " %*x %x %x %*x", &delay, &padding) == 2 && mLastTrack != nullptr) {
                    mLastTrack->meta->setInt32(kKeyEncoderDelay, static_cast<int32_t>(delay));
                    mLastTrack->meta->setInt32(kKeyEncoderPadding, static_cast<int32_t>(padding));
                }
                mFreeformMean.clear();
                mFreeformName.clear();
                mFreeformData.clear();
            }
            break;
        }
        default:
            break;
    }
    if (metadataKey != 0 && n >= 8) mFileMetaData->setCString(metadataKey, text);
    return OK;
}

status_t ZIRKMOVExtractor::parse3gpUdtaMetaData(uint32_t type, off64_t offset, off64_t size) {
    if (size < 6 || size > kMax3gpStringBoxSize) return ERROR_MALFORMED;
    std::vector<uint8_t> buffer;
    status_t err = readPayload(offset, static_cast<uint64_t>(size), &buffer);
    if (err != OK) return err;
    const size_t n = buffer.size();
    buffer.push_back(0);
    const uint8_t* data = buffer.data();

    uint32_t metadataKey = 0;
    switch (type) {
        case 'titl': metadataKey = kKeyTitle; break;
        case 'perf': metadataKey = kKeyArtist; break;
        case 'auth': metadataKey = kKeyAuthor; break;
        case 'gnre': metadataKey = kKeyGenre; break;
        case 'albm':
            metadataKey = kKeyAlbum;
            if (data[n - 1] != 0 && data[n - 2] == 0) {
                char number[16];
                snprintf(number, sizeof(number), "%d", data[n - 1]);
                mFileMetaData->setCString(kKeyCDTrackNumber, number);
            }
            break;
        case 'yrrc':
            if (n == 6) {
                char year[16];
                snprintf(year, sizeof(year), "%d", U16_AT(data + 4));
                mFileMetaData->setCString(kKeyYear, year);
            }
            return OK;
        default:
            // dscp, cprt, rtng, clsf, kywd, loci: read and not kept.
            return OK;
    }

    if (n == 6) return OK;
    if (data[6] == 0xFE && data[7] == 0xFF) {
        // Kept as UTF-16 with its byte-order mark, unconverted.
        if (n > 9 && (data[8] != 0 || data[9] != 0)) {
            mFileMetaData->setCString(metadataKey, reinterpret_cast<const char*>(data) + 6);
        } else {
            ALOGD("UTF16 string content in udta metadata is zero length(sz %d), not set metadata key %d",
                  static_cast<int>(n), metadataKey);
        }
    } else if (data[6] == 0) {
        ALOGD("string content in udta metadata is zero length(sz %d), not set metadata key %d", static_cast<int>(n),
              metadataKey);
    } else {
        mFileMetaData->setCString(metadataKey, reinterpret_cast<const char*>(data) + 6);
    }
    return OK;
}

// The protection-descriptor parse: mIsDrm is never set in this build (its
// descriptor layout is not read yet), so mdat never reaches here.
status_t ZIRKMOVExtractor::parseDrmSINF(off64_t* /*offset*/, off64_t /*dataOffset*/) { return ERROR_UNSUPPORTED; }

// Not in this build yet: no track carries protection data.
char* ZIRKMOVExtractor::getDrmTrackInfo(size_t /*trackID*/, int* /*len*/) { return nullptr; }

}  // namespace android
