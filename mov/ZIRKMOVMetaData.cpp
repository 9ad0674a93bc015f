// File metadata of ZIRKMOVExtractor: the items of an iTunes-style
// moov/udta/meta/ilst list and the 3GPP string boxes under moov/udta.
#define LOG_TAG "ZIRKMOVExtractor"
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <utility>
#include <vector>

#include <media/stagefright/MediaErrors.h>
#include <media/stagefright/Utils.h>
#include <utils/Log.h>
#include <zirk/ZIRKByteReader.h>

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

// Protection data are MPEG-4 Systems descriptors: a tag byte, a size of one
// to four bytes (seven bits each, high bit "more"), then the body.
// - iods: version/flags, then the InitialObjectDescriptor (tag 0x02 or
//   0x10): 16 bits of ID and flags (URL flag 0x20), five profile bytes, and
//   sub-descriptors. An IPMP descriptor pointer (0x0A) or IPMP descriptor
//   (0x0B) among them marks the movie as protected.
// - mdat then starts with an ObjectDescriptorUpdate (0x01) of object
//   descriptors (0x01 or 0x11: 16 bits of ID and flags, then sub-descriptors),
//   each naming its track by an ES_ID_Ref (0x0F, 16 bits, read as the
//   track's ID) and its protection by an IPMP descriptor pointer (0x0A, an
//   8-bit IPMP ID); and an IPMP_DescriptorUpdate (0x05) of IPMP descriptors
//   (0x0B: the 8-bit IPMP ID, a 16-bit scheme type, and the scheme's data;
//   type 0 means a URL instead, which is not data).
// Each track so named gets its IPMP data as kKeyDrmTrackInfo and kKeyIsDRM
// set. Anything that does not fit this layout ends the walk as if the data
// had ended; what was found before it stands.
namespace {

// The descriptors are read from memory, at most this much of the box: they
// are a few dozen bytes a track, and the rest of mdat is media.
constexpr uint64_t kMaxDrmDescriptorBytes = 64 * 1024;
constexpr uint8_t kTagInitialOD = 0x02, kTagMP4InitialOD = 0x10;
constexpr uint8_t kTagODUpdate = 0x01, kTagOD = 0x01, kTagMP4OD = 0x11;
constexpr uint8_t kTagIPMPUpdate = 0x05, kTagIPMPPointer = 0x0A, kTagIPMP = 0x0B, kTagESIDRef = 0x0F;
constexpr uint8_t kURLFlag = 0x20;

// The next descriptor: its tag and a reader over its body.
bool nextDescriptor(ZIRKByteReader& r, uint8_t* tag, ZIRKByteReader* body) {
    uint32_t size = 0;
    uint8_t byte = 0x80;
    if (!r.readU8(tag)) return false;
    for (int i = 0; i < 4 && (byte & 0x80); ++i) {
        if (!r.readU8(&byte)) return false;
        size = size << 7 | (byte & 0x7F);
    }
    return !(byte & 0x80) && r.subReader(size, body);
}

}  // namespace

status_t ZIRKMOVExtractor::parseIods(off64_t dataOffset, off64_t dataSize) {
    std::vector<uint8_t> bytes;
    status_t err = readPayload(dataOffset, std::min<uint64_t>(dataSize, kMaxDrmDescriptorBytes), &bytes);
    if (err != OK) return err;
    ZIRKByteReader r(bytes.data(), bytes.size()), od;
    uint8_t tag;
    uint16_t idAndFlags;
    if (!r.skip(4) || !nextDescriptor(r, &tag, &od) || (tag != kTagInitialOD && tag != kTagMP4InitialOD) ||
        !od.readBE16(&idAndFlags)) {
        return ERROR_MALFORMED;
    }
    if ((idAndFlags & kURLFlag) || !od.skip(5)) return OK;
    ZIRKByteReader sub;
    while (nextDescriptor(od, &tag, &sub)) {
        if (tag == kTagIPMPPointer || tag == kTagIPMP) mIsDrm = true;
    }
    return OK;
}

status_t ZIRKMOVExtractor::parseDrmSINF(off64_t* offset, off64_t dataOffset) {
    std::vector<uint8_t> bytes;
    status_t err = readPayload(dataOffset, std::min<uint64_t>(*offset - dataOffset, kMaxDrmDescriptorBytes), &bytes);
    if (err != OK) return err;
    ZIRKByteReader r(bytes.data(), bytes.size()), update, desc, sub;
    std::vector<std::pair<uint16_t, uint8_t>> pointers;  // track ID, IPMP ID
    uint8_t tag;
    if (!nextDescriptor(r, &tag, &update) || tag != kTagODUpdate) return OK;
    while (nextDescriptor(update, &tag, &desc)) {
        uint16_t idAndFlags, trackId = 0, value16;
        uint8_t ipmpId = 0, value8;
        bool named = false, pointed = false;
        if ((tag != kTagOD && tag != kTagMP4OD) || !desc.readBE16(&idAndFlags) || (idAndFlags & kURLFlag)) continue;
        while (nextDescriptor(desc, &tag, &sub)) {
            if (tag == kTagESIDRef && sub.readBE16(&value16)) named = true, trackId = value16;
            if (tag == kTagIPMPPointer && sub.readU8(&value8)) pointed = true, ipmpId = value8;
        }
        if (named && pointed) pointers.emplace_back(trackId, ipmpId);
    }
    if (!nextDescriptor(r, &tag, &update) || tag != kTagIPMPUpdate) return OK;
    while (nextDescriptor(update, &tag, &desc)) {
        uint8_t ipmpId;
        uint16_t scheme;
        if (tag != kTagIPMP || !desc.readU8(&ipmpId) || !desc.readBE16(&scheme) || scheme == 0) continue;
        for (const auto& p : pointers) {
            if (p.second != ipmpId) continue;
            for (Track* t = mFirstTrack; t != nullptr; t = t->next) {
                int32_t id;
                if (!t->meta->findInt32(kKeyTrackID, &id) || id != p.first) continue;
                t->meta->setData(kKeyDrmTrackInfo, MetaData::TYPE_NONE, desc.current(), desc.remaining());
                t->meta->setInt32(kKeyIsDRM, 1);
            }
        }
    }
    return OK;
}

// `trackID` is the track's index, as getTrack takes it. The bytes belong to
// the track's format: valid while the extractor lives.
char* ZIRKMOVExtractor::getDrmTrackInfo(size_t trackID, int* len) {
    if (readMetaData() != OK) return nullptr;
    Track* track = mFirstTrack;
    for (size_t i = 0; track != nullptr && i < trackID; ++i) track = track->next;
    uint32_t type;
    const void* data;
    size_t size;
    if (track == nullptr || len == nullptr || !track->meta->findData(kKeyDrmTrackInfo, &type, &data, &size) ||
        size > INT32_MAX) {
        return nullptr;
    }
    *len = static_cast<int>(size);
    return static_cast<char*>(const_cast<void*>(data));
}

}  // namespace android
