#define LOG_TAG "ZIRKAVIExtractor"

// The legacy idx1 index and the OpenDML two-level index (indx super indexes
// pointing at ix## standard indexes), turned into each track's sample table.
#include "avi/ZIRKAVIExtractor.h"

#include <string.h>
#include <strings.h>

#include <media/stagefright/MediaDefs.h>
#include <media/stagefright/MediaErrors.h>
#include <utils/Log.h>

#include "avi/ZIRKAVIChecks.h"
#include "avi/ZIRKAVIInternal.h"

#include <zirk/ZIRKByteReader.h>
#include "common/ZIRKReadWhole.h"

namespace android {

using namespace avi_internal;

namespace {

// idx1 is streamed in blocks of this many bytes (a multiple of the 16-byte
// entry), so a large index never needs one large allocation.
constexpr size_t kIndexReadBlockBytes = 16 * 65536;

// Only the first 20 key frames compete to be the thumbnail.
constexpr uint32_t kThumbnailCandidates = 20;

constexpr uint32_t kIndexFlagKeyFrame = 0x10;

}  // namespace

bool ZIRKAVIExtractor::IsCorrectChunkType(int trackIndex, Track::Kind kind, uint32_t chunkType) {
    uint32_t suffix = chunkType & 0xFFFF;
    switch (kind) {
        case Track::AUDIO:
            if (suffix != ('w' << 8 | 'b')) return false;
            break;
        case Track::VIDEO:
            if (suffix != ('d' << 8 | 'b') && suffix != ('d' << 8 | 'c')) return false;
            break;
        default:
            break;
    }
    if (trackIndex < 0) return true;
    uint32_t number;
    if (!streamNumber(chunkType, &number)) return false;
    return number == static_cast<uint32_t>(trackIndex);
}

status_t ZIRKAVIExtractor::addSample(Track* track, uint64_t offset, uint32_t size, bool isKey) {
    if (!mSampleLimit.admit()) return ERROR_MALFORMED;
    SampleInfo info = {offset, size, isKey};
    ssize_t index = track->mSamples.add(info);
    if (index < 0) return NO_MEMORY;
    if (size > track->mMaxSampleSize) track->mMaxSampleSize = size;
    if (isKey) {
        if (track->mNumSyncSamples < kThumbnailCandidates && size > track->mThumbnailSampleSize) {
            track->mThumbnailSampleSize = size;
            track->mThumbnailSampleIndex = static_cast<int32_t>(index);
        }
        ++track->mNumSyncSamples;
    }
    return OK;
}

status_t ZIRKAVIExtractor::parseIndex(int64_t dataOffset, int64_t size) {
    if (size % 16 != 0) return ERROR_MALFORMED;
    // An index running past the end fails as its short read would.
    if (mFileSize >= 0 && (dataOffset > mFileSize || size > mFileSize - dataOffset)) {
        return ERROR_MALFORMED;
    }
    size_t blockSize = size < static_cast<int64_t>(kIndexReadBlockBytes)
                           ? static_cast<size_t>(size)
                           : kIndexReadBlockBytes;
    sp<ABuffer> block = new ABuffer(blockSize);
    if (blockSize > 0 && block->base() == nullptr) return NO_MEMORY;

    int64_t done = 0;
    while (done < size) {
        size_t want = size - done < static_cast<int64_t>(blockSize) ? static_cast<size_t>(size - done)
                                                                     : blockSize;
        ssize_t n = mDataSource->readAt(dataOffset + done, block->data(), want);
        if (n < static_cast<ssize_t>(want)) return ZIRKShortReadStatus(n);
        ZIRKByteReader entries(block->data(), want);
        while (entries.remaining() >= 16) {
            uint32_t chunkType = 0, flags = 0, offset = 0, chunkSize = 0;
            entries.readBE32(&chunkType);
            entries.readLE32(&flags);
            entries.readLE32(&offset);
            entries.readLE32(&chunkSize);
            uint32_t number;
            if (!streamNumber(chunkType, &number) || number >= mTracks.size()) return ERROR_MALFORMED;
            Track* track = &mTracks.editItemAt(number);
            if (!IsCorrectChunkType(-1, track->mKind, chunkType)) return ERROR_MALFORMED;
            if (track->mKind == Track::OTHER) continue;
            status_t err = addSample(track, offset, chunkSize, (flags & kIndexFlagKeyFrame) != 0);
            if (err != OK) return err;
        }
        done += static_cast<int64_t>(want);
    }

    // Offsets are relative to the movi list exactly when that reading makes
    // the first sample of track 0 land on a matching chunk header.
    int64_t offset, timeUs;
    uint32_t sampleSize;
    bool isKey;
    status_t err = getSampleInfo(0, 0, &offset, &sampleSize, &isKey, &timeUs);
    if (err != OK) {
        mOffsetsAreAbsolute = true;
        err = getSampleInfo(0, 0, &offset, &sampleSize, &isKey, &timeUs);
        if (err != OK) return err;
    }

    for (size_t i = 0; i < mTracks.size(); ++i) {
        err = finishTrack(i, false);
        if (err != OK) return err;
    }
    mFoundIndex = true;
    return OK;
}

status_t ZIRKAVIExtractor::parseSuperIndex(int64_t dataOffset, int64_t size) {
    sp<ABuffer> buffer;
    status_t err = readWhole(dataOffset, size, &buffer);
    if (err != OK) return err;
    ZIRKByteReader reader(buffer->data(), buffer->size());
    uint16_t longsPerEntry;
    uint32_t entriesInUse, chunkId;
    if (!reader.readLE16(&longsPerEntry) || !reader.skip(2) || !reader.readLE32(&entriesInUse) ||
        !reader.readBE32(&chunkId) || !reader.skip(12)) {
        return ERROR_MALFORMED;
    }
    uint32_t trackIndex;
    if (!streamNumber(chunkId, &trackIndex) || trackIndex >= mTracks.size()) return ERROR_MALFORMED;
    if (!IsCorrectChunkType(-1, mTracks[trackIndex].mKind, chunkId)) return ERROR_MALFORMED;

    for (uint32_t taken = 0; reader.remaining() >= 16 && taken < entriesInUse; ++taken) {
        uint64_t ixOffset = 0;
        uint32_t ixSize = 0, duration = 0;
        reader.readLE64(&ixOffset);
        reader.readLE32(&ixSize);
        reader.readLE32(&duration);
        if (ixOffset > static_cast<uint64_t>(INT64_MAX)) return ERROR_MALFORMED;
        err = parseStandardIndex(static_cast<int64_t>(ixOffset), ixSize);
        if (err != OK) return err;
    }

    err = finishTrack(trackIndex, true);
    if (err != OK) return err;
    mFoundIndex = true;
    return OK;
}

status_t ZIRKAVIExtractor::parseStandardIndex(int64_t chunkOffset, int64_t size) {
    sp<ABuffer> buffer;
    status_t err = readWhole(chunkOffset, size, &buffer);
    if (err != OK) return err;
    ZIRKByteReader reader(buffer->data(), buffer->size());
    uint32_t id, chunkSize, entriesInUse, chunkId;
    uint16_t longsPerEntry;
    uint64_t baseOffset;
    if (!reader.readBE32(&id) || !reader.readLE32(&chunkSize) || !reader.readLE16(&longsPerEntry) ||
        !reader.skip(2) || !reader.readLE32(&entriesInUse) || !reader.readBE32(&chunkId) ||
        !reader.readLE64(&baseOffset) || !reader.skip(4)) {
        return ERROR_MALFORMED;
    }
    if (chunkSize > size) return ERROR_MALFORMED;
    if ((id >> 16) != ('i' << 8 | 'x')) return ERROR_MALFORMED;
    uint8_t tens = (id >> 8) & 0xFF, units = id & 0xFF;
    if (!isDigit(tens) || !isDigit(units)) return ERROR_MALFORMED;
    uint32_t trackIndex = (tens - '0') * 10 + (units - '0');
    if (trackIndex >= mTracks.size()) {
        ALOGD("Invalid track index!");
        return ERROR_MALFORMED;
    }
    uint32_t idNumber;
    if (!streamNumber(chunkId, &idNumber)) return ERROR_MALFORMED;
    if (idNumber != trackIndex) {
        ALOGE("Mismatch track index in FOURCC and CHUNK_ID!");
        return ERROR_MALFORMED;
    }
    Track* track = &mTracks.editItemAt(trackIndex);
    if (!IsCorrectChunkType(-1, track->mKind, chunkId)) return ERROR_MALFORMED;

    for (uint32_t taken = 0; reader.remaining() > 7 && taken < entriesInUse; ++taken) {
        uint32_t dataOffset = 0, dataSize = 0;
        reader.readLE32(&dataOffset);
        reader.readLE32(&dataSize);
        // The entry points at the data; the table keeps the header position.
        // A base + offset - 8 outside 64 bits is stored wrapped (deliberately
        // unsigned): the look-up refuses any position past INT64_MAX, so only
        // this sample fails, when it is read.
        uint64_t position = baseOffset + dataOffset - 8;
        err = addSample(track, position, dataSize & 0x7FFFFFFF, (dataSize & 0x80000000) == 0);
        if (err != OK) return err;
    }
    mOffsetsAreAbsolute = true;
    return OK;
}

}  // namespace android
