#define LOG_TAG "ZIRKAVIExtractor"
#define CHECK_SOURCE_PATH "avi/ZIRKAVIExtractor"

#include "avi/ZIRKAVIExtractor.h"

#include <math.h>
#include <string.h>
#include <strings.h>

#include <media/stagefright/MediaDefs.h>
#include <media/stagefright/MediaErrors.h>
#include <media/stagefright/Utils.h>
#include <media/stagefright/foundation/ADebug.h>
#include <media/stagefright/foundation/avc_utils.h>
#include <utils/Log.h>

#include "avi/ZIRKAVIChecks.h"
#include "common/ZIRKByteReader.h"
#include "common/ZIRKESDescriptor.h"
#include "common/ZIRKFourCC.h"
#include "common/ZIRKWaveFormat.h"
#include "common/ZIRKNALRewrite.h"
#include "common/ZIRKMetaKeys.h"
#include "common/ZIRKSafeMath.h"

namespace android {

using namespace avichecks;

namespace {

// Deepest RIFF list nesting the walk follows. Muxers write 4 levels
// (RIFF > hdrl > strl > chunk); the cap only bounds the walk's own memory on
// crafted input, it is not a recursion limit (the walk is iterative).
constexpr size_t kMaxListDepth = 4096;

// Largest chunk read whole into memory (stream formats, OpenDML indexes,
// first video frames). Far above any real header or index chunk; it bounds
// the allocation when the source cannot tell its size.
constexpr int64_t kMaxWholeReadBytes = 64 * 1024 * 1024;

// idx1 is streamed in blocks of this many bytes (a multiple of the 16-byte
// entry), so a large index never needs one large allocation.
constexpr size_t kIndexReadBlockBytes = 16 * 65536;

// Most index entries accepted over all tracks: 16M entries (a 256 MiB table)
// is more than a day of 60 fps video plus audio. Files of known size are also
// held to one entry per 8 bytes of file (the smallest index entry).
constexpr uint64_t kMaxSamples = 16 * 1024 * 1024;

// Chunk headers probed by the fixed-size-audio averaging pass: samples 0..256.
constexpr uint32_t kMaxAveragedChunks = 256;

// Only the first 20 key frames compete to be the thumbnail.
constexpr uint32_t kThumbnailCandidates = 20;

constexpr uint32_t kIndexFlagKeyFrame = 0x10;

constexpr size_t kStreamHeaderSize = 56;
constexpr size_t kMaxStreams = 100;

const char* const kVersion = "QVX_libaviextractor_Rev10016_build_on_Nov 21 2013";

const char* const kVideoUnknownMime = "video/unknown";
const char* const kOctetStreamMime = "application/octet-stream";

bool isDigit(uint8_t c) { return c >= '0' && c <= '9'; }

// The stream number in the first two characters of a chunk identifier.
bool streamNumber(uint32_t chunkType, uint32_t* number) {
    uint8_t tens = chunkType >> 24;
    uint8_t units = (chunkType >> 16) & 0xFF;
    if (!isDigit(tens) || !isDigit(units)) return false;
    *number = (tens - '0') * 10 + (units - '0');
    return true;
}

bool isVideoMime(const char* mime) { return mime && !strncasecmp(mime, "video/", 6); }

status_t shortReadStatus(ssize_t n) { return n < 0 ? static_cast<status_t>(n) : ERROR_MALFORMED; }

}  // namespace

// ---------------------------------------------------------------------------
// Extractor object

ZIRKAVIExtractor::ZIRKAVIExtractor(const sp<DataSource>& dataSource)
    : mDataSource(dataSource),
      mInitCheck(NO_INIT),
      mMovieOffset(0),
      mFoundIndex(false),
      mOffsetsAreAbsolute(false),
      mFileSize(-1),
      mSampleLimit(kMaxSamples),
      mTotalSamples(0) {
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
    mTotalSamples = 0;
    mSampleLimit = kMaxSamples;
    mFileSize = -1;
    off64_t fileSize;
    if (mDataSource->getSize(&fileSize) == OK && fileSize >= 0) {
        mFileSize = fileSize;
        uint64_t bySize = static_cast<uint64_t>(fileSize) / 8;
        if (bySize < mSampleLimit) mSampleLimit = bySize;
    }

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
        if (n < static_cast<ssize_t>(sizeof(header))) return shortReadStatus(n);
        uint32_t id = U32_AT(header);
        uint32_t chunkSize = U32LE_AT(header + 4);
        if (size >= 0 && size < static_cast<int64_t>(chunkSize) + 8) return ERROR_MALFORMED;
        int64_t rounded = static_cast<int64_t>(chunkSize) + (chunkSize & 1) + 8;
        if (rootRounded < 0) rootRounded = rounded;

        bool descended = false;
        if (id == fourcc('R', 'I', 'F', 'F') || id == fourcc('L', 'I', 'S', 'T')) {
            if (size >= 0 && size < 12) return ERROR_MALFORMED;
            uint8_t listType[4];
            n = mDataSource->readAt(offset + 8, listType, sizeof(listType));
            if (n < static_cast<ssize_t>(sizeof(listType))) return shortReadStatus(n);
            if (U32_AT(listType) == fourcc('m', 'o', 'v', 'i')) {
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

// Reads `size` bytes at `offset` into a new buffer. Sizes come from the file,
// so they are held to the file's end (when known) and to kMaxWholeReadBytes
// before anything is allocated; a size past the end fails as the short read
// it would have been.
status_t ZIRKAVIExtractor::readWhole(int64_t offset, int64_t size, sp<ABuffer>* out) {
    if (offset < 0 || size < 0 || size > kMaxWholeReadBytes) return ERROR_MALFORMED;
    if (mFileSize >= 0 && (offset > mFileSize || size > mFileSize - offset)) return ERROR_MALFORMED;
    sp<ABuffer> buffer = new ABuffer(static_cast<size_t>(size));
    if (size > 0 && buffer->base() == nullptr) return NO_MEMORY;
    ssize_t n = mDataSource->readAt(offset, buffer->data(), static_cast<size_t>(size));
    if (n < size) return shortReadStatus(n);
    *out = buffer;
    return OK;
}

// ---------------------------------------------------------------------------
// Stream header and format

status_t ZIRKAVIExtractor::parseStreamHeader(int64_t dataOffset, int64_t size) {
    if (size != static_cast<int64_t>(kStreamHeaderSize)) return ERROR_MALFORMED;
    if (mTracks.size() > kMaxStreams - 1) return kAVIErrorOutOfRange;

    uint8_t data[kStreamHeaderSize];
    ssize_t n = mDataSource->readAt(dataOffset, data, sizeof(data));
    if (n < static_cast<ssize_t>(sizeof(data))) return shortReadStatus(n);

    uint32_t type = U32_AT(data);
    uint32_t handler = U32_AT(data + 4);
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
    track.mScale = U32LE_AT(data + 20);
    track.mRate = U32LE_AT(data + 24);
    track.mBytesPerSample = U32LE_AT(data + 44);
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

// ---------------------------------------------------------------------------
// Indexes

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
    if (mTotalSamples >= mSampleLimit) return ERROR_MALFORMED;
    SampleInfo info = {offset, size, isKey};
    ssize_t index = track->mSamples.add(info);
    if (index < 0) return NO_MEMORY;
    ++mTotalSamples;
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
        if (n < static_cast<ssize_t>(want)) return shortReadStatus(n);
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

// ---------------------------------------------------------------------------
// Sample look-ups

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
    if (n < static_cast<ssize_t>(sizeof(header))) return shortReadStatus(n);
    uint32_t chunkType = U32_AT(header);

    if (!IsCorrectChunkType(static_cast<int>(trackIndex), track.mKind, chunkType)) {
        if (sampleIndex == 0) return ERROR_MALFORMED;
        ALOGW("!!! drop one invalid frame, type: %d !!!", track.mKind);
        return OK;
    }

    *offset = position + 8;
    *isKey = info.mIsKey;
    uint32_t headerSize = U32LE_AT(header + 4);
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

    int64_t prev = estimate;
    int64_t next = estimate;
    if (track.mKind != Track::AUDIO) {
        while (prev >= 0 && !track.mSamples[prev].mIsKey) --prev;
        while (next < static_cast<int64_t>(count) && !track.mSamples[next].mIsKey) ++next;
    }

    switch (mode) {
        case MediaSource::ReadOptions::SEEK_NEXT_SYNC:
            *sampleIndex = static_cast<uint32_t>(next);
            return next < static_cast<int64_t>(count) ? OK : UNKNOWN_ERROR;
        case MediaSource::ReadOptions::SEEK_PREVIOUS_SYNC:
            *sampleIndex = static_cast<uint32_t>(prev);
            return prev >= 0 ? OK : UNKNOWN_ERROR;
        case MediaSource::ReadOptions::SEEK_CLOSEST_SYNC: {
            bool havePrev = prev >= 0;
            bool haveNext = next < static_cast<int64_t>(count);
            if (havePrev && haveNext) {
                *sampleIndex = static_cast<uint32_t>(estimate - prev < next - estimate ? prev : next);
            } else if (havePrev) {
                *sampleIndex = static_cast<uint32_t>(prev);
            } else if (haveNext) {
                *sampleIndex = static_cast<uint32_t>(next);
            } else {
                return UNKNOWN_ERROR;
            }
            return OK;
        }
        default:
            // Must stay fatal: an unknown seek mode.
            ZIRK_CHECK_SITE(kAVI, kSeekMode, false);
            return UNKNOWN_ERROR;
    }
}

// ---------------------------------------------------------------------------
// Codec-specific data from the first video frame

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
