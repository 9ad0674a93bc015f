#define LOG_TAG "ZIRKAVIExtractor"

// The look-ups the sources use: sample to position, size, key flag and time,
// and time to sample for each seek mode.
#include "avi/ZIRKAVIExtractor.h"

#include <string.h>
#include <strings.h>

#include <media/stagefright/MediaDefs.h>
#include <media/stagefright/MediaErrors.h>
#include <utils/Log.h>

#include "avi/ZIRKAVIChecks.h"
#include "avi/ZIRKAVIInternal.h"

#include "common/ZIRKReadWhole.h"
#include "common/ZIRKSafeMath.h"
#include "common/ZIRKSeekIndex.h"

namespace android {

using namespace avichecks;
using namespace avi_internal;

status_t ZIRKAVIExtractor::getSampleInfo(size_t trackIndex, size_t sampleIndex, int64_t* offset,
                                         uint32_t* size, bool* isKey, int64_t* timeUs) {
    if (trackIndex >= mTracks.size()) return kAVIErrorOutOfRange;
    const Track& track = mTracks[trackIndex];
    if (sampleIndex >= track.mSamples.size()) return kAVIErrorOutOfRange;
    const SampleInfo& info = track.mSamples[sampleIndex];

    // A position that does not fit a file offset cannot be read; it fails as
    // a read past the end would.
    int64_t position;
    if (mOffsetsAreAbsolute) {
        if (info.mOffset > static_cast<uint64_t>(INT64_MAX)) return ERROR_MALFORMED;
        position = static_cast<int64_t>(info.mOffset);
    } else {
        if (info.mOffset > static_cast<uint64_t>(INT64_MAX) ||
            !zirkAdd(mMovieOffset + 8, static_cast<int64_t>(info.mOffset), &position)) {
            return ERROR_MALFORMED;
        }
    }

    *size = 0;
    uint8_t header[8];
    ssize_t n = mDataSource->readAt(position, header, sizeof(header));
    if (n < static_cast<ssize_t>(sizeof(header))) return ZIRKShortReadStatus(n);
    uint32_t chunkType, headerSize;
    readChunkHeader(header, &chunkType, &headerSize);

    if (!IsCorrectChunkType(static_cast<int>(trackIndex), track.mKind, chunkType)) {
        if (sampleIndex == 0) return ERROR_MALFORMED;
        ALOGW("!!! drop one invalid frame, type: %d !!!", track.mKind);
        return OK;
    }

    *offset = position + 8;
    *isKey = info.mIsKey;
    *size = headerSize;
    if (headerSize != info.mSize) {
        if (sampleIndex + 1 < track.mSamples.size()) {
            // Unsigned distance: a next entry before this one is a huge
            // distance and keeps the header's size, one at the same offset is
            // 0 and takes the index's size unless the header says 0.
            uint64_t distance = track.mSamples[sampleIndex + 1].mOffset - info.mOffset;
            if (distance < headerSize) *size = info.mSize;
        }
        ALOGW(" Stream data size is mismatched with it in 'idx1'/'indx' chunk");
    }

    uint32_t k = static_cast<uint32_t>(sampleIndex);
    if (track.mBytesPerSample != 0) {
        uint32_t bytePosition = 0;
        if (sampleIndex != 0) {
            bytePosition = zirkSaturateCast<uint32_t>(track.mFirstChunkSize +
                                         static_cast<double>(sampleIndex - 1) * track.mAvgChunkSize);
        }
        k = bytePosition / track.mBytesPerSample;
    }
    // A zero rate would divide by zero: such a track has all its times at 0.
    // The 128-bit product cannot overflow; a time past the int64 range
    // saturates.
    if (track.mRate == 0) {
        *timeUs = 0;
    } else {
        *timeUs = zirkSaturateToInt64(static_cast<__int128>(k) * 1000000 * track.mScale / track.mRate);
    }
    return OK;
}

status_t ZIRKAVIExtractor::getSampleTime(size_t trackIndex, size_t sampleIndex, int64_t* timeUs) {
    int64_t offset;
    uint32_t size;
    bool isKey;
    return getSampleInfo(trackIndex, sampleIndex, &offset, &size, &isKey, timeUs);
}

status_t ZIRKAVIExtractor::getSampleIndexAtTime(size_t trackIndex, int64_t timeUs,
                                                MediaSource::ReadOptions::SeekMode mode,
                                                uint32_t* sampleIndex) {
    if (trackIndex >= mTracks.size()) return kAVIErrorOutOfRange;
    const Track& track = mTracks[trackIndex];
    size_t count = track.mSamples.size();
    // Finished tracks always have samples; this only guards the clamp below.
    if (count == 0) return kAVIErrorOutOfRange;

    // A zero scale would divide by zero: the estimate is then sample 0.
    int64_t estimate = 0;
    if (track.mScale != 0) {
        if (track.mBytesPerSample != 0) {
            int64_t scaled = zirkSaturateToInt64(static_cast<__int128>(timeUs) * track.mBytesPerSample /
                                           track.mScale);
            // Unsigned 64-bit, then kept as 32 bits: wrap-around is the
            // defined behaviour of this estimate.
            uint32_t position = static_cast<uint32_t>(static_cast<uint64_t>(scaled) * track.mRate /
                                                      1000000);
            if (position > track.mFirstChunkSize) {
                // NaN for a one-chunk track: pinned like any value out of range.
                estimate = zirkSaturateCast<int32_t>((position - track.mFirstChunkSize) / track.mAvgChunkSize + 1.0);
            }
        } else {
            // Dividing by the scale first truncates early; that is the
            // estimate this system has always made.
            estimate = zirkSaturateToInt64(static_cast<__int128>(timeUs / track.mScale) * track.mRate /
                                     1000000);
        }
    }
    if (estimate < 0) estimate = 0;
    if (estimate > static_cast<int64_t>(count - 1)) estimate = static_cast<int64_t>(count - 1);

    if (mode == MediaSource::ReadOptions::SEEK_CLOSEST) {
        *sampleIndex = static_cast<uint32_t>(estimate);
        return OK;
    }

    if (mode != MediaSource::ReadOptions::SEEK_NEXT_SYNC && mode != MediaSource::ReadOptions::SEEK_PREVIOUS_SYNC &&
        mode != MediaSource::ReadOptions::SEEK_CLOSEST_SYNC) {
        // Must stay fatal: an unknown seek mode.
        ZIRK_CHECK_SITE(kAVI, kSeekMode, false);
    }
    // Every audio chunk is a sync point; video searches the key frames on
    // both sides of the estimate.
    int64_t prev = estimate;
    int64_t next = estimate;
    if (track.mKind != Track::AUDIO) {
        while (prev >= 0 && !track.mSamples[prev].mIsKey) --prev;
        while (next < static_cast<int64_t>(count) && !track.mSamples[next].mIsKey) ++next;
    }
    ZIRKSeekCandidates candidates = {prev >= 0, next < static_cast<int64_t>(count), prev, next,
                                     static_cast<uint64_t>(estimate - prev), static_cast<uint64_t>(next - estimate)};
    int64_t chosen;
    bool found = ZIRKChooseSeekPoint(candidates, mode, ZIRKSeekTie::kLater, &chosen);
    // A previous- or next-sync seek that finds nothing still moves the source
    // to where its search ended (before the start, or the end): the index is
    // written either way.
    if (found || mode != MediaSource::ReadOptions::SEEK_CLOSEST_SYNC) *sampleIndex = static_cast<uint32_t>(chosen);
    return found ? OK : UNKNOWN_ERROR;
}

}  // namespace android
