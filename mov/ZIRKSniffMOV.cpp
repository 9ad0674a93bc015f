#define LOG_TAG "ZIRKMOVExtractor"

#include <string.h>

#include <algorithm>

#include <media/stagefright/MediaDefs.h>
#include <utils/Log.h>

#include <zirk/ZIRKByteReader.h>

#include "mov/ZIRKMOVExtractor.h"

namespace android {

namespace {

// Boxes that start a file of the QuickTime brand and are walked past:
// a header later than this is not looked for.
constexpr off64_t kSniffWalkEnd = 128;
constexpr float kBrandConfidence = 0.7f;
constexpr float kFirstBoxConfidence = 0.5f;
constexpr uint32_t kQuickTimeBrand = 'qt  ';
// Brand words looked at in one 'ftyp': real files list a handful; a box that
// claims gigabytes of brands would otherwise cost a read per word.
constexpr off64_t kMaxBrandWords = 1024;

// Reads `size` bytes at `offset`, all or nothing.
bool readAll(const sp<DataSource>& source, off64_t offset, void* data, size_t size) {
    return source->readAt(offset, data, size) == static_cast<ssize_t>(size);
}

uint32_t be32(const uint8_t* p) {
    uint32_t v = 0;
    ZIRKByteReader(p, 4).readBE32(&v);
    return v;
}

// The box walk over the first 128 bytes: true when an 'ftyp' names the
// QuickTime brand (as its major or any compatible brand) and nothing in the
// walk fails; *headerEnd is where a 'moov' met on the way ends, else -1.
bool betterSniff(const sp<DataSource>& source, off64_t* headerEnd) {
    bool goodBrand = false;
    *headerEnd = -1;
    off64_t offset = 0;
    while (offset < kSniffWalkEnd) {
        uint8_t header[8];
        if (!readAll(source, offset, header, sizeof(header))) return false;
        uint64_t size = be32(header);
        const uint32_t type = be32(header + 4);
        off64_t payload = offset + 8;
        if (size == 1) {
            uint8_t large[8];
            if (!readAll(source, offset + 8, large, sizeof(large))) return false;
            ZIRKByteReader(large, sizeof(large)).readBE64(&size);
            payload = offset + 16;
            if (size < 16) return false;
        } else if (size < 8) {
            return false;
        }
        // offset < 128, so only a size past INT64_MAX - 128 could wrap.
        if (size > static_cast<uint64_t>(INT64_MAX - kSniffWalkEnd)) return false;
        const off64_t end = offset + static_cast<off64_t>(size);

        if (type == 'ftyp') {
            const off64_t dataSize = end - payload;
            if (dataSize < 8) return false;
            // The major brand, then every compatible brand; the minor version
            // (word 1) is not a brand.
            bool found = false;
            const off64_t words = std::min<off64_t>((dataSize - 8) / 4 + 2, kMaxBrandWords);
            for (off64_t i = 0; i < words; ++i) {
                if (i == 1) continue;
                uint8_t word[4];
                if (!readAll(source, payload + 4 * i, word, sizeof(word))) return false;
                if (be32(word) == kQuickTimeBrand) {
                    found = true;
                    break;
                }
            }
            if (found) goodBrand = true;
            if (!goodBrand) return false;
        } else if (type == 'moov') {
            *headerEnd = end;
            break;
        }
        offset = end;
    }
    return goodBrand;
}

}  // namespace

bool ZIRKSniffMOV(const sp<DataSource>& source, String8* mimeType, float* confidence, sp<AMessage>* meta) {
    off64_t headerEnd;
    if (betterSniff(source, &headerEnd)) {
        mimeType->setTo(MEDIA_MIMETYPE_CONTAINER_MOV);
        *confidence = kBrandConfidence;
        if (headerEnd >= 0 && meta != nullptr) {
            *meta = new AMessage;
            (*meta)->setInt64("meta-data-size", headerEnd);
        }
        ALOGW("Identified supported MOV through BetterSniffMOV.");
        return true;
    }

    uint8_t brand[8];
    if (readAll(source, 4, brand, sizeof(brand)) && !memcmp(brand, "ftypqt  ", 8)) {
        mimeType->setTo(MEDIA_MIMETYPE_CONTAINER_MOV);
        *confidence = kBrandConfidence;
        ALOGW("Identified supported MOV through LegacySniffMOV.");
        return true;
    }

    uint8_t first[12];
    if (!readAll(source, 0, first, sizeof(first))) return false;
    static const char* const kFirstBoxes[] = {"moov", "mdat", "free", "skip", "wide", "pnot"};
    for (const char* name : kFirstBoxes) {
        if (!memcmp(first + 4, name, 4)) {
            mimeType->setTo(MEDIA_MIMETYPE_CONTAINER_MOV);
            *confidence = kFirstBoxConfidence;
            ALOGW("dentified supported MOV through finding %s", name);
            return true;
        }
    }
    return false;
}

}  // namespace android
