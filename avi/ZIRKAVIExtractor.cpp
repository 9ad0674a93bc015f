#define LOG_TAG "ZIRKAVIExtractor"
#define CHECK_SOURCE_PATH "avi/ZIRKAVIExtractor"

// The extractor object, the RIFF walk that drives header, format and index
// parsing, the track finishing after an index, and the sniffer.
#include "avi/ZIRKAVIExtractor.h"

#include <string.h>
#include <strings.h>

#include <media/stagefright/MediaDefs.h>
#include <media/stagefright/MediaErrors.h>
#include <utils/Log.h>

#include "avi/ZIRKAVIChecks.h"
#include "avi/ZIRKAVIInternal.h"
#include <media/stagefright/foundation/ADebug.h>

#include "common/ZIRKFourCC.h"
#include "common/ZIRKMetaKeys.h"
#include "common/ZIRKNALRewrite.h"
#include "common/ZIRKReadWhole.h"

namespace android {

using namespace avichecks;
using namespace avi_internal;

namespace {

// Deepest RIFF list nesting the walk follows. Muxers write 4 levels
// (RIFF > hdrl > strl > chunk); the cap only bounds the walk's own memory on
// crafted input, it is not a recursion limit (the walk is iterative).
constexpr size_t kMaxListDepth = 4096;

// Most index entries accepted over all tracks: 16M entries (a 256 MiB table)
// is more than a day of 60 fps video plus audio. Files of known size are also
// held to one entry per 8 bytes of file (the smallest index entry).
constexpr uint64_t kMaxSamples = 16 * 1024 * 1024;
constexpr uint64_t kMinIndexEntryBytes = 8;

// Chunk headers probed by the fixed-size-audio averaging pass: samples 0..256.
constexpr uint32_t kMaxAveragedChunks = 256;

const char* const kVersion = "QVX_libaviextractor_Rev10016_build_on_Nov 21 2013";

}  // namespace

// ---------------------------------------------------------------------------
// Extractor object

ZIRKAVIExtractor::ZIRKAVIExtractor(const sp<DataSource>& dataSource)
    : mDataSource(dataSource),
      mInitCheck(NO_INIT),
      mMovieOffset(0),
      mFoundIndex(false),
      mOffsetsAreAbsolute(false),
      mFileSize(-1) {
    mInitCheck = parseHeaders();
    if (mInitCheck != OK) mTracks.clear();
}

ZIRKAVIExtractor::~ZIRKAVIExtractor() {}

size_t ZIRKAVIExtractor::countTracks() { return mTracks.size(); }

sp<MetaData> ZIRKAVIExtractor::getTrackMetaData(size_t index, uint32_t /*flags*/) {
    if (index >= mTracks.size()) return nullptr;
    return mTracks[index].mMeta;
}

sp<MetaData> ZIRKAVIExtractor::getMetaData() {
    sp<MetaData> meta = new MetaData;
    if (mInitCheck == OK) meta->setCString(kKeyMIMEType, MEDIA_MIMETYPE_CONTAINER_AVI);
    return meta;
}

sp<MediaSource> ZIRKAVIExtractor::getTrack(size_t index) {
    if (index >= mTracks.size()) return nullptr;
    return new AVISource(this, index);
}

// ---------------------------------------------------------------------------
// RIFF walk

status_t ZIRKAVIExtractor::parseHeaders() {
    mTracks.clear();
    mMovieOffset = 0;
    mFoundIndex = false;
    mOffsetsAreAbsolute = false;
    mFileSize = ZIRKFileSizeOf(mDataSource);
    mSampleLimit.reset(mFileSize, kMinIndexEntryBytes, kMaxSamples);

    int32_t res = parseChunk(0, -1, 0);
    if (res < 0) return res;
    if (mMovieOffset == 0) return ERROR_MALFORMED;
    if (!mFoundIndex) return ERROR_MALFORMED;
    return OK;
}

// Walks the chunk at `offset` and, for lists, all chunks below it. The walk
// keeps the open lists on a heap stack instead of recursing, so a crafted
// file cannot exhaust the thread's stack however deep it nests.
int32_t ZIRKAVIExtractor::parseChunk(int64_t offset, int64_t size, int depth) {
    struct OpenList {
        int64_t mEnd;      // first byte after the list's data
        int64_t mPos;      // next sub-chunk
        int64_t mRounded;  // bytes the list occupies in its parent
        int mDepth;        // depth of its sub-chunks
    };
    Vector<OpenList> open;
    int64_t rootRounded = -1;

    for (;;) {
        // Visit one chunk.
        if (size >= 0 && size < 8) return ERROR_MALFORMED;
        uint8_t header[8];
        ssize_t n = mDataSource->readAt(offset, header, sizeof(header));
        if (n < static_cast<ssize_t>(sizeof(header))) return ZIRKShortReadStatus(n);
        uint32_t id, chunkSize;
        readChunkHeader(header, &id, &chunkSize);
        if (size >= 0 && size < static_cast<int64_t>(chunkSize) + 8) return ERROR_MALFORMED;
        int64_t rounded = static_cast<int64_t>(chunkSize) + (chunkSize & 1) + 8;
        if (rootRounded < 0) rootRounded = rounded;

        bool descended = false;
        if (id == fourcc('R', 'I', 'F', 'F') || id == fourcc('L', 'I', 'S', 'T')) {
            if (size >= 0 && size < 12) return ERROR_MALFORMED;
            uint8_t listType[4];
            n = mDataSource->readAt(offset + 8, listType, sizeof(listType));
            if (n < static_cast<ssize_t>(sizeof(listType))) return ZIRKShortReadStatus(n);
            if (!memcmp(listType, "movi", 4)) {
                mMovieOffset = offset;
            } else {
                if (open.size() >= kMaxListDepth) return ERROR_MALFORMED;
                OpenList list = {offset + 8 + static_cast<int64_t>(chunkSize), offset + 12, rounded,
                                 depth + 1};
                if (open.add(list) < 0) return NO_MEMORY;
                descended = true;
            }
        } else {
            status_t err = parseLeafChunk(id, offset + 8, chunkSize);
            if (err < 0) return err;
        }

        if (!descended) {
            if (open.isEmpty()) break;  // the root chunk was not a list
            open.editTop().mPos += rounded;
        }

        // Find the next chunk to visit: the next sub-chunk of the innermost
        // list that has room for one; finished lists advance their parent.
        // A trailing stretch of 8 bytes or fewer ends a list.
        bool haveNext = false;
        while (!open.isEmpty()) {
            OpenList& top = open.editTop();
            if (top.mPos + 8 < top.mEnd) {
                offset = top.mPos;
                size = top.mEnd - top.mPos;
                depth = top.mDepth;
                haveNext = true;
                break;
            }
            int64_t finished = top.mRounded;
            open.pop();
            if (!open.isEmpty()) open.editTop().mPos += finished;
        }
        if (!haveNext) break;
    }
    // Only the sign of the root's result is looked at. A RIFF chunk of 2 GiB
    // or more saturates rather than turning negative and failing the walk, so
    // that legacy AVI files of 2 to 4 GiB in one RIFF are read.
    return rootRounded > INT32_MAX ? INT32_MAX : static_cast<int32_t>(rootRounded);
}

status_t ZIRKAVIExtractor::parseLeafChunk(uint32_t id, int64_t dataOffset, uint32_t chunkSize) {
    switch (id) {
        case fourcc('s', 't', 'r', 'h'):
            return parseStreamHeader(dataOffset, chunkSize);
        case fourcc('s', 't', 'r', 'f'):
            return parseStreamFormat(dataOffset, chunkSize);
        case fourcc('i', 'n', 'd', 'x'):
            return parseSuperIndex(dataOffset, chunkSize);
        case fourcc('i', 'd', 'x', '1'):
            if (!mFoundIndex) return parseIndex(dataOffset, chunkSize);
            return OK;
        default:
            return OK;
    }
}

status_t ZIRKAVIExtractor::finishTrack(size_t trackIndex, bool fromSuperIndex) {
    Track* track = &mTracks.editItemAt(trackIndex);

    if (track->mBytesPerSample != 0 && !track->mSamples.isEmpty()) {
        size_t last = track->mSamples.size() - 1;
        uint32_t n = last < kMaxAveragedChunks ? static_cast<uint32_t>(last) : kMaxAveragedChunks;
        double total = 0.0;
        for (uint32_t s = 0; s <= n; ++s) {
            int64_t offset, timeUs;
            uint32_t size;
            bool isKey;
            status_t err = getSampleInfo(trackIndex, s, &offset, &size, &isKey, &timeUs);
            if (err != OK) return err;
            if (s == 0) {
                track->mFirstChunkSize = size;
            } else {
                total += size;
            }
        }
        // One chunk leaves 0.0 / 0 (NaN) here; every use of the average
        // goes through zirkSaturateCast or the seek clamp, which pin it.
        track->mAvgChunkSize = total / n;
    }

    int64_t durationUs = 0;
    // Must stay fatal: a track without samples ends the process.
    ZIRK_CHECK_EQ_SITE(kAVI, fromSuperIndex ? kDurationIndx : kDurationIdx1, (status_t)OK,
                       getSampleTime(trackIndex, track->mSamples.size() - 1, &durationUs));
    track->mMeta->setInt64(kKeyDuration, durationUs);
    track->mMeta->setInt32(kKeyMaxInputSize, static_cast<int32_t>(track->mMaxSampleSize));

    const char* tmp;
    // Must stay fatal.
    CHECK(track->mMeta->findCString(kKeyMIMEType, &tmp));
    if (!isVideoMime(tmp)) return OK;

    if (track->mThumbnailSampleIndex >= 0) {
        int64_t thumbnailTimeUs = 0;
        // Must stay fatal.
        ZIRK_CHECK_EQ_SITE(kAVI, fromSuperIndex ? kThumbnailIndx : kThumbnailIdx1, (status_t)OK,
                           getSampleTime(trackIndex, track->mThumbnailSampleIndex, &thumbnailTimeUs));
        track->mMeta->setInt64(kKeyThumbnailTime, thumbnailTimeUs);
    }

    if (!strcasecmp(tmp, MEDIA_MIMETYPE_VIDEO_MPEG4)) return addMPEG4CodecSpecificData(trackIndex);
    if (!strcasecmp(tmp, MEDIA_MIMETYPE_VIDEO_AVC)) return addH264CodecSpecificData(trackIndex);
    return OK;
}

void ZIRKAVIRewriteAVCLengths(uint8_t* data, size_t size) {
    // 4-byte lengths, in place. Data already in start-code form from a unit
    // on are left as they are; an overrunning length still becomes a start
    // code and ends the walk.
    ZIRKNALRewriteOptions options;
    options.overrun = ZIRKNALOverrun::kStop;
    options.stopAtStartCode = true;
    options.stopWithoutPayload = true;
    ZIRKNALRewriteResult result;
    ZIRKRewriteNALLengthsInBuffer(data, size, 0, size, options, &result);
}

// ---------------------------------------------------------------------------
// Sniffer

bool ZIRKSniffAVI(const sp<DataSource>& source, String8* mimeType, float* confidence,
                  sp<AMessage>* /*meta*/) {
    uint8_t header[12];
    if (source->readAt(0, header, sizeof(header)) < static_cast<ssize_t>(sizeof(header))) return false;
    if (memcmp(header, "RIFF", 4) || memcmp(header + 8, "AVI ", 4)) return false;
    mimeType->setTo(MEDIA_MIMETYPE_CONTAINER_AVI);
    *confidence = 0.21f;
    return true;
}

}  // namespace android

const char* getZirkAviExtractorVersion() { return android::kVersion; }
