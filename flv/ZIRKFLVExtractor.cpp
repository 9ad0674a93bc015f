#define LOG_TAG "ZIRKFLVExtractor"
#define CHECK_SOURCE_PATH "flv/ZIRKFLVExtractor"

#include <media/stagefright/foundation/ADebug.h>

#include "flv/ZIRKFLVExtractor.h"

#include <math.h>
#include <string.h>
#include <strings.h>

#include <new>

#include <cutils/properties.h>
#include <media/stagefright/MediaDefs.h>
#include <media/stagefright/MediaErrors.h>
#include <media/stagefright/Utils.h>
#include <media/stagefright/foundation/ABuffer.h>
#include <utils/Log.h>

#include <zirk/ZIRKByteReader.h>

#include "common/ZIRKESDescriptor.h"
#include "common/ZIRKSafeMath.h"
#include "common/ZIRKMetaKeys.h"
#include "flv/ZIRKFLVSource.h"

namespace android {

namespace {

const char kIllegal[] = "illegal";

// FLV file header: "FLV", version, flags, DataOffset.
const size_t kFileHeaderSize = 9;
const uint32_t kFileSignature = 0x464C56;
const uint32_t kFileVersion = 1;
// Offset of the first tag: the file header plus PreviousTagSize0.
const int64_t kFirstTagOffset = 13;
const size_t kTagHeaderSize = 11;
const size_t kPrevTagSizeSize = 4;
// Frame/codec byte plus AVCPacketType, or sound byte plus AACPacketType.
const size_t kTagDataPreviewSize = 2;
// Frame/codec byte, AVCPacketType and the 24-bit CompositionTime in front of
// an AVC decoder configuration.
const size_t kAVCConfigPrefixSize = 5;
// Sound byte and AACPacketType in front of an AudioSpecificConfig.
const size_t kAACConfigPrefixSize = 2;
// The scan's read-ahead, freed when the scan ends. Where tags are small the
// scan touches every page, and 64 KiB refills keep the data source's per-read
// cost out of it; where the scan has just jumped over a large tag, a one-page
// refill reads little more than the next header instead of the tag's data.
const size_t kScanWindowSize = 64 * 1024;
const size_t kScanSparseRefill = 1024;

// Defaults of a video track when onMetaData does not give its size.
const int32_t kDefaultWidth = 640;
const int32_t kDefaultHeight = 480;
// Video buffers get 20% over the largest tag, room for the start codes.
const double kVideoInputSizeMargin = 1.2;

const float kSniffConfidence = 0.71f;
const char kVersion[] = "QVX_libflvextractor_Rev10005_build_on_Aug 28 2013";
const char kSorensonProperty[] = "debug.media.disableFlvSorensen";

const int32_t kSampleRates[4] = {5500, 11025, 22050, 44100};

// The numeric onMetaData properties, searched in this order.
enum MetaProperty { kPropDuration, kPropWidth, kPropHeight, kPropVideoDataRate, kPropFrameRate };
struct MetaPropertyInfo {
    MetaProperty property;
    const char* name;
};
const MetaPropertyInfo kMetaProperties[] = {
        {kPropDuration, "duration"},  {kPropWidth, "width"},         {kPropHeight, "height"},
        {kPropVideoDataRate, "videodatarate"}, {kPropFrameRate, "framerate"},
};

// AMF0 type markers with the size of their fixed value (0: variable/none).
struct AMF0TypeInfo {
    const char* name;
    uint32_t valueSize;
};
const uint8_t kAMF0Number = 0;
AMF0TypeInfo gAMF0Types[16];

ZIRKFLVCodecInfo gVideoCodecs[16];
ZIRKFLVCodecInfo gAudioFormats[16];

void setRow(ZIRKFLVCodecInfo* row, const char* name, const char* mime, bool supported) {
    row->name = name;
    row->mime = mime;
    row->supported.store(supported, std::memory_order_relaxed);
}

// Fills the tables at load time: the MIME strings are imported variables.
__attribute__((constructor)) void initFLVTables() {
    static const char* const kAudioNames[16] = {
            "Linear PCM, platform endian", "ADPCM", "MP3", "Linear PCM, little endian",
            "Nellymoser 16-kHz mono", "Nellymoser 8-kHz mono", "Nellymoser",
            "G711 A-law logarithmic PCM", "G711 mu-law logarithmic PCM", "reserved", "AAC",
            "Speex", kIllegal, kIllegal, "MP3-8K", "Device-specific sound"};
    for (size_t i = 0; i < 16; ++i) setRow(&gAudioFormats[i], kAudioNames[i], kIllegal, false);
    setRow(&gAudioFormats[2], kAudioNames[2], MEDIA_MIMETYPE_AUDIO_MPEG, true);
    setRow(&gAudioFormats[10], kAudioNames[10], MEDIA_MIMETYPE_AUDIO_AAC, true);

    static const char* const kVideoNames[8] = {
            kIllegal, "JPEG(Unused)", "Sorenson H.263", "Screen video", "VP6",
            "VP6 with alpha channel", "Screen video version 2", "AVC"};
    for (size_t i = 0; i < 16; ++i) {
        setRow(&gVideoCodecs[i], i < 8 ? kVideoNames[i] : kIllegal, kIllegal, false);
    }
    setRow(&gVideoCodecs[FLV_VIDEO_CODEC_SORENSON], kVideoNames[2], MEDIA_MIMETYPE_VIDEO_SORENSEN,
           true);
    setRow(&gVideoCodecs[FLV_VIDEO_CODEC_AVC], kVideoNames[7], MEDIA_MIMETYPE_VIDEO_AVC, true);

    static const AMF0TypeInfo kAMF0[13] = {
            {"Number Type", 8}, {"Boolean Type", 1}, {"String Type", 0},
            {"Object Type", 0}, {"Movie Clip Type", 0}, {"Null Type", 0},
            {"Undefined Type", 0}, {"Reference Type", 2}, {"ECMA Array Type", 0},
            {kIllegal, 0}, {"Strict Array Type", 0}, {"Date Type", 10},
            {"Long String Type", 0}};
    for (size_t i = 0; i < 16; ++i) gAMF0Types[i] = i < 13 ? kAMF0[i] : AMF0TypeInfo{kIllegal, 0};
}

// The audio and video tag steps of the scan: their names and the fixed lines
// their failure lines report for a tag too short and a short preview read.
const ZIRKFLVTagStep kVideoTagStep = {"readAndRegisterVideoTag", 840, 843};
const ZIRKFLVTagStep kAudioTagStep = {"readAndRegisterAudioTag", 785, 789};

// The one "failed step" log line of the scan.
void reportFailure(status_t status, int line, const char* step) {
    ALOGE("Fail (%d): %s(%d)[%s]", status, CHECK_SOURCE_PATH, line, step);
}

double readBEDouble(const uint8_t* p) {
    uint64_t bits = 0;
    for (size_t i = 0; i < 8; ++i) bits = (bits << 8) | p[i];
    double v;
    memcpy(&v, &bits, sizeof(v));
    return v;
}

// Finds `key` in the unread range of `buffer` and moves the range's start
// just past it. The last possible end of a match is one byte before the end
// of the range, so a key must be followed by at least one byte.
status_t findAndSkipKey(const sp<ABuffer>& buffer, const char* key) {
    CHECK(key);  // must stay fatal
    const size_t n = strlen(key);
    const uint8_t* data = buffer->data();
    const size_t size = buffer->size();
    if (n == 0 || size <= n) return UNKNOWN_ERROR;
    // Candidate starts are 0 .. size - n - 1.
    const size_t lastStart = size - n - 1;
    size_t start = 0;
    while (start <= lastStart) {
        const void* hit = memchr(data + start, key[0], lastStart - start + 1);
        if (hit == nullptr) break;
        start = static_cast<const uint8_t*>(hit) - data;
        if (memcmp(data + start, key, n) == 0) {
            const size_t end = start + n;
            buffer->setRange(buffer->offset() + end, size - end);
            return OK;
        }
        ++start;
    }
    return UNKNOWN_ERROR;
}

}  // namespace

const ZIRKFLVCodecInfo& zirkFLVVideoCodec(uint32_t codecId) { return gVideoCodecs[codecId & 15]; }

const ZIRKFLVCodecInfo& zirkFLVAudioFormat(uint32_t soundFormat) {
    return gAudioFormats[soundFormat & 15];
}

ZIRKFLVExtractor::Track::Track(bool audio) : isAudio(audio), meta(new MetaData) {}

ZIRKFLVExtractor::ZIRKFLVExtractor(const sp<DataSource>& source)
    : mDataSource(source),
      mInitCheck(NO_INIT),
      mHasVideo(false),
      mHasAudio(false),
      mTrackCount(0),
      mFileMetaData(new MetaData),
      mOffset(0),
      mWarnUnsupportedAudio(true),
      mWarnUnsupportedVideo(true),
      mMaxAudioTimeUs(0),
      mMaxAudioTagSize(0),
      mMaxVideoTimeUs(0),
      mMaxVideoTagSize(0),
      mThumbnailTimeUs(0),
      mScanWindowOffset(0),
      mScanWindowLength(0) {
    CHECK_EQ(mDataSource->initCheck(),(status_t)OK);  // must stay fatal

    // Switching Sorenson off is process-wide and sticky: the table row is
    // shared by every FLV extractor and nothing turns it back on.
    char value[PROPERTY_VALUE_MAX];
    if (property_get(kSorensonProperty, value, nullptr) > 0 &&
        (!strcmp(value, "1") || !strcasecmp(value, "true"))) {
        gVideoCodecs[FLV_VIDEO_CODEC_SORENSON].supported.store(false, std::memory_order_relaxed);
    }
}

ZIRKFLVExtractor::~ZIRKFLVExtractor() {}

size_t ZIRKFLVExtractor::countTracks() {
    if (readMetaData() != OK) return 0;
    return static_cast<size_t>(mTrackCount);
}

sp<MediaSource> ZIRKFLVExtractor::getTrack(size_t index) {
    if (readMetaData() != OK || index >= static_cast<size_t>(mTrackCount)) return nullptr;
    return new ZIRKFLVSource(mDataSource, mTracks[index]);
}

sp<MetaData> ZIRKFLVExtractor::getTrackMetaData(size_t index, uint32_t /*flags*/) {
    if (readMetaData() != OK || index >= static_cast<size_t>(mTrackCount)) return nullptr;
    return mTracks[index]->meta;
}

sp<MetaData> ZIRKFLVExtractor::getMetaData() {
    if (readMetaData() != OK) return new MetaData;
    return mFileMetaData;
}

status_t ZIRKFLVExtractor::readMetaData() {
    if (mInitCheck != NO_INIT) return mInitCheck;
    // Any early return below leaves the file recorded as unreadable.
    mInitCheck = ERROR_MALFORMED;

    mScanWindow.assign(kScanWindowSize, 0);
    mScanWindowLength = 0;
    status_t err = readFileHeader();
    if (err != OK) {
        reportFailure(err, 617, "readMetaData");
        return ERROR_MALFORMED;
    }
    mFileMetaData->setCString(kKeyMIMEType, MEDIA_MIMETYPE_CONTAINER_FLV);
    err = readAndCheckPrevTagSize(0);
    if (err != OK) {
        reportFailure(err, 619, "readMetaData");
        return ERROR_MALFORMED;
    }
    err = readFileBody();
    std::vector<uint8_t>().swap(mScanWindow);
    mScanWindowLength = 0;
    if (err != OK) {
        reportFailure(err, 620, "readMetaData");
        return ERROR_MALFORMED;
    }

    if (mHasVideo) finishVideoTrack();
    if (mHasAudio) finishAudioTrack();

    if (!mHasVideo) {
        mTracks[FLV_TRACK_VIDEO] = mTracks[FLV_TRACK_AUDIO];
        mTracks[FLV_TRACK_AUDIO] = nullptr;
    }
    const int32_t trackCount = (mHasVideo ? 1 : 0) + (mHasAudio ? 1 : 0);
    CHECK_EQ(trackCount,mTrackCount);  // must stay fatal

    int64_t durationUs;
    if (!mFileMetaData->findInt64(kKeyDuration, &durationUs)) {
        mFileMetaData->setInt64(kKeyDuration,
                                mMaxAudioTimeUs > mMaxVideoTimeUs ? mMaxAudioTimeUs : mMaxVideoTimeUs);
    }
    mInitCheck = OK;
    return OK;
}

void ZIRKFLVExtractor::finishVideoTrack() {
    const sp<Track>& track = mTracks[FLV_TRACK_VIDEO];
    const int32_t bufferNum = static_cast<int32_t>(track->sampleTable.size());
    const int32_t syncBufferNum = static_cast<int32_t>(track->syncTable.size());
    CHECK_GT(bufferNum,0);        // must stay fatal
    CHECK_GE(syncBufferNum,1);    // must stay fatal: a video track without key frame aborts

    int32_t width, height;
    if (!mFileMetaData->findInt32(kKeyWidth, &width)) width = kDefaultWidth;
    if (!mFileMetaData->findInt32(kKeyHeight, &height)) height = kDefaultHeight;
    int64_t durationUs;
    if (!mFileMetaData->findInt64(kKeyDuration, &durationUs)) durationUs = mMaxVideoTimeUs;

    const char* mime = nullptr;
    CHECK(!mTracks[FLV_TRACK_VIDEO]->isAudio);  // must stay fatal
    CHECK(mTracks[FLV_TRACK_VIDEO]->meta->findCString(kKeyMIMEType, &mime));  // must stay fatal

    // The tag size goes through single precision before the margin, as the
    // consumers of this value were tuned against.
    const double maxInput =
            static_cast<double>(static_cast<float>(mMaxVideoTagSize)) * kVideoInputSizeMargin;
    const sp<MetaData>& meta = track->meta;
    meta->setInt32(kKeyWidth, width);
    meta->setInt32(kKeyHeight, height);
    meta->setInt32(kKeyDisplayWidth, width);
    meta->setInt32(kKeyDisplayHeight, height);
    meta->setInt32(kKeyMaxInputSize, static_cast<int32_t>(maxInput));
    meta->setInt64(kKeyDuration, durationUs);
    meta->setInt32(kKeyBufferCount, bufferNum);
    meta->setInt64(kKeyThumbnailTime, mThumbnailTimeUs);
    ALOGD("Video %s [%d/%d] <%d>: %dx%d, Thumb@%lld us", mime, syncBufferNum, bufferNum,
          static_cast<int>(mMaxVideoTagSize), width, height,
          static_cast<long long>(mThumbnailTimeUs));
}

void ZIRKFLVExtractor::finishAudioTrack() {
    const sp<Track>& track = mTracks[FLV_TRACK_AUDIO];
    const int32_t bufferNum = static_cast<int32_t>(track->sampleTable.size());
    const int32_t syncBufferNum = static_cast<int32_t>(track->syncTable.size());
    CHECK_GT(bufferNum,0);      // must stay fatal
    CHECK_EQ(syncBufferNum,0);  // must stay fatal

    int64_t durationUs;
    if (!mFileMetaData->findInt64(kKeyDuration, &durationUs)) durationUs = mMaxAudioTimeUs;

    const char* mime = nullptr;
    int32_t sampleRate = 0;
    int32_t channelCount = 0;
    // All four must stay fatal.
    CHECK(mTracks[FLV_TRACK_AUDIO]->isAudio);
    CHECK(mTracks[FLV_TRACK_AUDIO]->meta->findCString(kKeyMIMEType, &mime));
    CHECK(mTracks[FLV_TRACK_AUDIO]->meta->findInt32(kKeySampleRate, &sampleRate));
    CHECK(mTracks[FLV_TRACK_AUDIO]->meta->findInt32(kKeyChannelCount, &channelCount));

    const sp<MetaData>& meta = track->meta;
    meta->setInt64(kKeyDuration, durationUs);
    // No margin for audio: its payload is never longer than the tag.
    meta->setInt32(kKeyMaxInputSize, static_cast<int32_t>(mMaxAudioTagSize));
    meta->setInt32(kKeyBufferCount, bufferNum);
    ALOGD("Audio %s [%d/%d] <%d>: %d Hz => %d Channels", mime, syncBufferNum, bufferNum,
          static_cast<int>(mMaxAudioTagSize), sampleRate, channelCount);
}

ssize_t ZIRKFLVExtractor::readScanBytes(off64_t offset, void* data, size_t size) {
    if (mScanWindowLength > 0 && offset >= mScanWindowOffset) {
        const uint64_t skip = static_cast<uint64_t>(offset - mScanWindowOffset);
        if (skip <= mScanWindowLength && size <= mScanWindowLength - skip) {
            memcpy(data, mScanWindow.data() + skip, size);
            return static_cast<ssize_t>(size);
        }
    }
    if (size <= mScanWindow.size()) {
        const bool jumped = mScanWindowLength > 0 && offset > mScanWindowOffset &&
                            static_cast<uint64_t>(offset - mScanWindowOffset) >
                                    mScanWindowLength + kScanSparseRefill;
        const size_t refill = jumped && size <= kScanSparseRefill ? kScanSparseRefill : mScanWindow.size();
        const ssize_t n = mDataSource->readAt(offset, mScanWindow.data(), refill);
        if (n >= 0 && static_cast<size_t>(n) >= size) {
            mScanWindowOffset = offset;
            mScanWindowLength = static_cast<size_t>(n);
            memcpy(data, mScanWindow.data(), size);
            return static_cast<ssize_t>(size);
        }
        mScanWindowLength = 0;
    }
    // Near the end of the data, or on a failing source, the plain read decides
    // what the caller sees.
    return mDataSource->readAt(offset, data, size);
}

bool ZIRKFLVExtractor::fileHasBytes(off64_t offset, uint64_t size) {
    off64_t fileSize;
    if (mDataSource->getSize(&fileSize) != OK) return true;
    return offset <= fileSize && size <= static_cast<uint64_t>(fileSize - offset);
}

status_t ZIRKFLVExtractor::readFileHeader() {
    static const char kStep[] = "readFileHeader";
    if (mOffset != 0) {
        reportFailure(ERROR_MALFORMED, 705, kStep);
        return ERROR_MALFORMED;
    }
    uint8_t header[kFileHeaderSize];
    if (readScanBytes(mOffset, header, sizeof(header)) != static_cast<ssize_t>(sizeof(header))) {
        reportFailure(ERROR_MALFORMED, 706, kStep);
        return ERROR_MALFORMED;
    }
    ZIRKByteReader fields(header, sizeof(header));
    uint32_t signature = 0, headerSize = 0;
    uint8_t version = 0, flags = 0;
    fields.readBE24(&signature);
    fields.readU8(&version);
    fields.readU8(&flags);
    fields.readBE32(&headerSize);
    if (signature != kFileSignature) {
        reportFailure(ERROR_MALFORMED, 708, kStep);
        return ERROR_MALFORMED;
    }
    if (version != kFileVersion) {
        reportFailure(ERROR_MALFORMED, 709, kStep);
        return ERROR_MALFORMED;
    }
    const uint32_t typeFlagsReserved = flags >> 3;
    if (typeFlagsReserved != 0) {
        ALOGW("Invalid TypeFlagsReserved, expect 0, but %d", static_cast<int>(typeFlagsReserved));
    }
    if (flags & 0x04) ALOGI("File Header indicate audio track existence");
    if (flags & 0x02) {
        reportFailure(ERROR_MALFORMED, 716, kStep);
        return ERROR_MALFORMED;
    }
    // The type flags only inform: tracks come from the tags actually found.
    if (flags & 0x01) ALOGI("File Header indicate video track existence");
    if (headerSize != kFileHeaderSize) {
        reportFailure(ERROR_MALFORMED, 720, kStep);
        return ERROR_MALFORMED;
    }
    mOffset += kFileHeaderSize;
    return OK;
}

status_t ZIRKFLVExtractor::readAndCheckPrevTagSize(uint32_t expected) {
    static const char kStep[] = "readAndCheckPrevTagSize";
    uint8_t field[kPrevTagSizeSize];
    if (readScanBytes(mOffset, field, sizeof(field)) != static_cast<ssize_t>(sizeof(field))) {
        reportFailure(ERROR_IO, 776, kStep);
        return ERROR_IO;
    }
    uint32_t previousTagSize = 0;
    ZIRKByteReader(field, sizeof(field)).readBE32(&previousTagSize);
    if (previousTagSize != expected) {
        reportFailure(ERROR_MALFORMED, 778, kStep);
        return ERROR_MALFORMED;
    }
    mOffset += kPrevTagSizeSize;
    return OK;
}

status_t ZIRKFLVExtractor::readTagHeader(uint32_t& dataSize, uint32_t& tagType, int64_t& timeUs) {
    // A short header is decoded all the same; its missing bytes read as zero.
    uint8_t header[kTagHeaderSize] = {};
    if (readScanBytes(mOffset, header, sizeof(header)) <= 0) return ERROR_END_OF_STREAM;
    ZIRKByteReader fields(header, sizeof(header));
    uint8_t type = 0, timestampExtended = 0;
    uint32_t timestamp = 0, streamId = 0;
    fields.readU8(&type);
    fields.readBE24(&dataSize);
    fields.readBE24(&timestamp);
    fields.readU8(&timestampExtended);
    fields.readBE24(&streamId);
    tagType = type;
    timeUs = static_cast<int64_t>((static_cast<uint64_t>(timestampExtended) << 24) | timestamp) *
             1000;
    if (streamId != 0) {
        reportFailure(ERROR_MALFORMED, 766, "readTagHeader");
        return ERROR_MALFORMED;
    }
    mOffset += kTagHeaderSize;
    return OK;
}

status_t ZIRKFLVExtractor::readFileBody() {
    static const char kStep[] = "readFileBody";
    if (mOffset != kFirstTagOffset) {
        reportFailure(ERROR_MALFORMED, 728, kStep);
        return ERROR_MALFORMED;
    }
    for (;;) {
        uint32_t dataSize = 0;
        uint32_t tagType = 0;
        int64_t timeUs = 0;
        // End of data or a damaged tag header ends the file early, keeping
        // everything registered so far.
        if (readTagHeader(dataSize, tagType, timeUs) != OK) return OK;

        status_t err;
        if (tagType == FLV_TAG_TYPE_VIDEO) {
            err = readAndRegisterVideoTag(dataSize, timeUs);
        } else if (tagType == FLV_TAG_TYPE_AUDIO) {
            err = readAndRegisterAudioTag(dataSize, timeUs);
        } else if (tagType == FLV_TAG_TYPE_SCRIPT) {
            err = readAndRegisterScriptTag(dataSize);
        } else {
            // Also where an encrypted tag (filter bit set) ends the scan.
            ALOGW("Unrecognized tag type: %d, guess it's OK to finish", static_cast<int>(tagType));
            return OK;
        }
        if (err != OK) {
            reportFailure(err, 750, kStep);
            return ERROR_MALFORMED;
        }
        err = readAndCheckPrevTagSize(dataSize + kTagHeaderSize);
        if (err != OK) {
            reportFailure(err, 752, kStep);
            return ERROR_MALFORMED;
        }
    }
}

// The first two data bytes of an audio or video tag, which need a tag of at
// least two bytes.
status_t ZIRKFLVExtractor::readTagPreview(const ZIRKFLVTagStep& step, uint32_t dataSize, uint8_t* preview) {
    if (dataSize <= 1) {
        reportFailure(ERROR_MALFORMED, step.tooShortLine, step.name);
        return ERROR_MALFORMED;
    }
    if (readScanBytes(mOffset, preview, kTagDataPreviewSize) != static_cast<ssize_t>(kTagDataPreviewSize)) {
        reportFailure(ERROR_IO, step.readLine, step.name);
        return ERROR_IO;
    }
    return OK;
}

// Skips a tag of a codec that is not read, warning once per kind of track.
status_t ZIRKFLVExtractor::skipUnsupportedTag(bool audio, const char* name, uint32_t dataSize) {
    bool& warn = audio ? mWarnUnsupportedAudio : mWarnUnsupportedVideo;
    if (warn) {
        if (audio) {
            ALOGW("Unsupported sound Format: %s, ignore", name);
        } else {
            ALOGW("Unsupported video format: %s, ignore", name);
        }
        warn = false;
    }
    mOffset += dataSize;
    return OK;
}

// Adds the tag whose data starts at mOffset to the track's sample table and
// raises the track's largest tag size and latest time; false when out of
// memory.
bool ZIRKFLVExtractor::registerSample(const sp<Track>& track, int64_t timeUs, uint32_t dataSize,
                                      uint32_t* maxTagSize, int64_t* maxTimeUs) {
    const int64_t tagOffset = mOffset - static_cast<int64_t>(kTagHeaderSize);
    if (track->sampleTable.add(key_value_pair_t<int64_t, int64_t>(timeUs, tagOffset)) < 0) return false;
    if (dataSize > *maxTagSize) *maxTagSize = dataSize;
    if (timeUs > *maxTimeUs) *maxTimeUs = timeUs;
    return true;
}

status_t ZIRKFLVExtractor::readAndRegisterVideoTag(uint32_t dataSize, int64_t timeUs) {
    uint8_t preview[kTagDataPreviewSize];
    status_t err = readTagPreview(kVideoTagStep, dataSize, preview);
    if (err != OK) return err;
    const uint32_t frameType = preview[0] >> 4;
    const uint32_t codecId = preview[0] & 0x0f;
    const ZIRKFLVCodecInfo& codec = zirkFLVVideoCodec(codecId);
    if (!codec.supported.load(std::memory_order_relaxed)) return skipUnsupportedTag(false, codec.name, dataSize);

    if (!mHasVideo) {
        mTracks[FLV_TRACK_VIDEO] = new Track(false);
        ++mTrackCount;
        mHasVideo = true;
        mTracks[FLV_TRACK_VIDEO]->meta->setCString(kKeyMIMEType, codec.mime);
    }
    const sp<Track>& track = mTracks[FLV_TRACK_VIDEO];

    if (codecId == FLV_VIDEO_CODEC_AVC && preview[1] == FLV_AVC_SEQUENCE_HEADER) {
        // The configuration follows the 5 bytes of tag and packet header; a
        // header with nothing after them stores an empty configuration.
        std::vector<uint8_t> config;
        if (dataSize > kAVCConfigPrefixSize) {
            // A size beyond the end of the file stores nothing: the
            // PreviousTagSize read after this tag fails the scan anyway.
            if (!fileHasBytes(mOffset, dataSize)) {
                mOffset += dataSize;
                return OK;
            }
            // The count read is not checked; the zero fill keeps a short read
            // from storing stale memory.
            config.assign(dataSize - kAVCConfigPrefixSize, 0);
            mDataSource->readAt(mOffset + kAVCConfigPrefixSize, config.data(), config.size());
        }
        track->meta->setData(kKeyAVCC, 0, config.data(), config.size());
        mOffset += dataSize;
        return OK;
    }

    if (!registerSample(track, timeUs, dataSize, &mMaxVideoTagSize, &mMaxVideoTimeUs)) return NO_MEMORY;
    if (frameType == FLV_VIDEO_FRAME_KEY) {
        if (track->syncTable.add(timeUs) < 0) return NO_MEMORY;
        // The thumbnail is the latest key frame at least as large as every
        // video tag before it.
        if (dataSize >= mMaxVideoTagSize) mThumbnailTimeUs = timeUs;
    }
    mOffset += dataSize;
    return OK;
}

status_t ZIRKFLVExtractor::readAndRegisterAudioTag(uint32_t dataSize, int64_t timeUs) {
    const char* const kStep = kAudioTagStep.name;
    uint8_t preview[kTagDataPreviewSize];
    status_t err = readTagPreview(kAudioTagStep, dataSize, preview);
    if (err != OK) return err;
    const uint32_t soundFormat = preview[0] >> 4;
    const ZIRKFLVCodecInfo& format = zirkFLVAudioFormat(soundFormat);
    if (!format.supported.load(std::memory_order_relaxed)) return skipUnsupportedTag(true, format.name, dataSize);
    const uint32_t soundRate = (preview[0] >> 2) & 3;
    const uint32_t soundType = preview[0] & 1;

    if (!mHasAudio) {
        mTracks[FLV_TRACK_AUDIO] = new Track(true);
        ++mTrackCount;
        mHasAudio = true;
        const sp<MetaData>& meta = mTracks[FLV_TRACK_AUDIO]->meta;
        meta->setInt32(kKeySampleRate, kSampleRates[soundRate]);
        meta->setInt32(kKeyChannelCount, soundType == 1 ? 2 : 1);
        meta->setCString(kKeyMIMEType, format.mime);
    }
    const sp<Track>& track = mTracks[FLV_TRACK_AUDIO];

    if (soundFormat == FLV_AUDIO_FORMAT_AAC) {
        // AAC tags always declare 44 kHz stereo, whatever the stream is.
        if (soundRate != 3) {
            reportFailure(ERROR_MALFORMED, 811, kStep);
            return ERROR_MALFORMED;
        }
        if (soundType != 1) {
            reportFailure(ERROR_MALFORMED, 812, kStep);
            return ERROR_MALFORMED;
        }
        if (preview[1] == FLV_AAC_SEQUENCE_HEADER) {
            const uint32_t configSize = dataSize - kAACConfigPrefixSize;
            // Checked against the file before the allocation it sizes.
            if (!fileHasBytes(mOffset + kAACConfigPrefixSize, configSize)) {
                reportFailure(ERROR_IO, 816, kStep);
                return ERROR_IO;
            }
            std::vector<uint8_t> config(configSize);
            if (mDataSource->readAt(mOffset + kAACConfigPrefixSize, config.data(), configSize) !=
                static_cast<ssize_t>(configSize)) {
                reportFailure(ERROR_IO, 816, kStep);
                return ERROR_IO;
            }
            // The descriptor's lengths stay fixed whatever the config's size.
            sp<ABuffer> esds = ZIRKMakeAACESDSFixedLengths(config.data(), configSize);
            if (esds == nullptr) return NO_MEMORY;
            track->meta->setData(kKeyESDS, 0, esds->data(), esds->size());
            mOffset += dataSize;
            return OK;
        }
    }

    if (!registerSample(track, timeUs, dataSize, &mMaxAudioTagSize, &mMaxAudioTimeUs)) return NO_MEMORY;
    mOffset += dataSize;
    return OK;
}

status_t ZIRKFLVExtractor::readAndRegisterScriptTag(uint32_t dataSize) {
    static const char kStep[] = "readAndRegisterScriptTag";
    if (dataSize == 0) return OK;

    // dataSize is 24-bit (at most 16 MiB) and is checked against the file
    // before it sizes the allocation. One zero byte beyond the data lets a
    // Number that ends one byte short of the tag be read without leaving the
    // buffer (its last byte then reads as zero).
    if (!fileHasBytes(mOffset, dataSize)) {
        reportFailure(ERROR_IO, 893, kStep);
        return ERROR_IO;
    }
    sp<ABuffer> buffer = new ABuffer(static_cast<size_t>(dataSize) + 1);
    if (buffer->base() == nullptr) {
        reportFailure(NO_MEMORY, 893, kStep);
        return NO_MEMORY;
    }
    buffer->base()[dataSize] = 0;
    buffer->setRange(0, dataSize);
    if (mDataSource->readAt(mOffset, buffer->data(), dataSize) != static_cast<ssize_t>(dataSize)) {
        reportFailure(ERROR_IO, 893, kStep);
        return ERROR_IO;
    }

    if (findAndSkipKey(buffer, "onMetaData") != OK) {
        ALOGW("onMetaData not found in the script tag");
        mOffset += dataSize;
        return OK;
    }

    const uint32_t numberSize = gAMF0Types[kAMF0Number].valueSize;
    for (size_t i = 0; i < sizeof(kMetaProperties) / sizeof(kMetaProperties[0]); ++i) {
        const MetaPropertyInfo& prop = kMetaProperties[i];
        // Each hit moves the search start: properties are found only in
        // this order.
        if (findAndSkipKey(buffer, prop.name) != OK) {
            ALOGW("onMetaData has no [%s]", prop.name);
            continue;
        }
        const uint8_t* value = buffer->data();
        // At least 1 after a hit; the marker and 7 value bytes must be there.
        const size_t left = buffer->size();
        if (value[0] != kAMF0Number || left < numberSize) {
            reportFailure(ERROR_MALFORMED, 898, kStep);
            return ERROR_MALFORMED;
        }
        const double number = readBEDouble(value + 1);
        switch (prop.property) {
            case kPropDuration: {
                const int64_t durationUs = zirkSaturateCast<int64_t>(number * 1000000.0);
                mFileMetaData->setInt64(kKeyDuration, durationUs);
                ALOGD("onMetaData [%s]: %lld usec", prop.name, static_cast<long long>(durationUs));
                break;
            }
            case kPropWidth:
            case kPropHeight: {
                const int32_t v = zirkSaturateCast<int32_t>(number);
                mFileMetaData->setInt32(prop.property == kPropWidth ? kKeyWidth : kKeyHeight, v);
                ALOGD("onMetaData [%s]: %d", prop.name, v);
                break;
            }
            case kPropVideoDataRate: {
                const int32_t v = zirkSaturateCast<int32_t>(number);
                mFileMetaData->setInt32(kKeyBitRate, v);
                ALOGD("onMetaData [%s]: %d bps", prop.name, v);
                break;
            }
            case kPropFrameRate: {
                const int32_t v = zirkSaturateCast<int32_t>(number);
                mFileMetaData->setInt32(kKeyFrameRate, v);
                ALOGD("onMetaData [%s]: %d fps", prop.name, v);
                break;
            }
            default:
                ALOGE("Unrecognized meta data key: %d", static_cast<int>(i));
                CHECK_AT(928, false);  // must stay fatal
        }
    }
    mOffset += dataSize;
    return OK;
}

bool ZIRKSniffFLV(const sp<DataSource>& source, String8* mimeType, float* confidence,
                  sp<AMessage>* /*meta*/) {
    uint8_t header[4];
    if (source->readAt(0, header, sizeof(header)) < static_cast<ssize_t>(sizeof(header))) {
        return false;
    }
    if (memcmp(header, "FLV", 3) != 0) return false;
    mimeType->setTo(MEDIA_MIMETYPE_CONTAINER_FLV);
    *confidence = kSniffConfidence;
    return true;
}

}  // namespace android

extern "C" const char* getZirkFlvExtractorVersion() { return android::kVersion; }
