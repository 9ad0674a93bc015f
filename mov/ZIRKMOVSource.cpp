#define LOG_TAG "ZIRKMOVExtractor"
#include "mov/ZIRKMOVSource.h"

#include <string.h>
#include <strings.h>

#include <media/stagefright/MediaDefs.h>
#include <media/stagefright/MediaErrors.h>
#include <utils/Log.h>

#include "common/AudioSplitter.h"
#include "common/MP3Splitter.h"
#include "common/ZIRKCodecConfig.h"
#include "common/ZIRKESDescriptor.h"
#include "common/ZIRKMetaKeys.h"
#include "common/ZIRKNALRewrite.h"
#include "common/ZIRKSafeMath.h"
#include "mov/ZIRKMOVChecks.h"
#include "mov/ZIRKMOVDataSource.h"
#include "mov/ZIRKMOVSampleTable.h"

namespace android {

using movchecks::kSource;

namespace {

enum : int32_t { kFormatSowt = 0, kFormatTwos = 1, kFormatIMA = 3, kFormatMS = 4, kFormatMP3 = 5 };

// A NAL length size when the track has no 'avcC' to give one (verifyTrack
// drops an empty record): the ISO default of 4 bytes.
constexpr uint32_t kDefaultNALLengthSize = 4;

int64_t ticksToUs(uint32_t ticks, int32_t timescale) {
    return static_cast<int64_t>(ticks) * 1000000 / timescale;
}

// The ISO/IEC 13818-2 sequence header of an MPEG-2 frame and the extensions
// and user data that follow it, up to the GOP or picture that ends it (or
// the end of the bytes given). False when there is none.
bool findSequenceHeader(const uint8_t* data, size_t size, size_t* start, size_t* length) {
    size_t at = 0;
    for (; at + 4 <= size; ++at) {
        if (data[at] == 0 && data[at + 1] == 0 && data[at + 2] == 1 && data[at + 3] == 0xB3) break;
    }
    if (at + 4 > size) return false;
    size_t end = at + 4;
    for (; end + 4 <= size; ++end) {
        if (data[end] == 0 && data[end + 1] == 0 && data[end + 2] == 1 &&
            (data[end + 3] == 0xB8 || data[end + 3] == 0x00)) {
            break;
        }
    }
    if (end + 4 > size) end = size;
    *start = at;
    *length = end - at;
    return true;
}

}  // namespace

ZIRKMOVSource::ZIRKMOVSource(const sp<MetaData>& format, const sp<DataSource>& dataSource, int32_t timeScale,
                             const sp<ZIRKMOVSampleTable>& sampleTable,
                             const sp<ZIRKMOVDataSource>& compressedSource, int32_t audioFormat,
                             int32_t blockAlign, uint16_t samplesPerPacket, uint16_t bytesPerFrame,
                             uint16_t bitsPerSample)
    : mFormat(format),
      mDataSource(dataSource),
      mTimescale(timeScale),
      mSampleTable(sampleTable),
      mCompressedSource(compressedSource),
      mCurrentSampleIndex(0),
      mIsAVC(false),
      mIsDRM(false),
      mChannelCount(0),
      mNALLengthSize(kDefaultNALLengthSize),
      mStarted(false),
      mGroup(nullptr),
      mBuffer(nullptr),
      mWantsNALFragments(false),
      mSrcBuffer(nullptr),
      mSrcBufferSize(0),
      mAudioFormat(audioFormat),
      mBlockAlign(blockAlign),
      mSamplesPerPacket(samplesPerPacket),
      mBytesPerFrame(bytesPerFrame),
      mBitsPerSample(bitsPerSample),
      mChunkBuffer(nullptr),
      mCurrentChunkIndex(0),
      mChunkOffset(0),
      mChunkRemaining(0),
      mPCMSampleBytes(0),
      mAudioFrameFound(false),
      mSeekingAudio(false),
      mAudioSeekTimeUs(0),
      mHeldFrame(nullptr),
      mNextFrame(nullptr) {
    const char* mime = "";
    mFormat->findCString(kKeyMIMEType, &mime);
    mIsAVC = !strcasecmp(mime, MEDIA_MIMETYPE_VIDEO_AVC);
    mIsDRM = mFormat->hasData(kKeyIsDRM);
    mFormat->findInt32(kKeyChannelCount, &mChannelCount);
    uint32_t type;
    const void* data;
    size_t size;
    if (mIsAVC && mFormat->findData(kKeyAVCC, &type, &data, &size)) {
        ZIRKAVCCInfo info;
        if (ZIRKReadAVCC(static_cast<const uint8_t*>(data), size, &info)) {
            mNALLengthSize = static_cast<uint32_t>(info.nalLengthSize);
        }
    }
    getSeqHeaderIfNecessary();
}

ZIRKMOVSource::~ZIRKMOVSource() {
    std::lock_guard<std::mutex> lock(mLock);
    if (mStarted) {
        // The framework stops a source before dropping it; this is for
        // owners that do not.
        if (mBuffer != nullptr) mBuffer->release();
        mBuffer = nullptr;
        releaseAudioFrames();
        if (mChunkBuffer != nullptr) mChunkBuffer->release();
        delete mGroup;
        delete[] mSrcBuffer;
    }
}

// The first frame of an MPEG-2 or H.263 track tells what the track's format
// does not: the MPEG-2 sequence header (handed on as the track's 'esds' when
// it has none) and the H.263 advanced features. Failures are logged and
// leave the format as it was.
void ZIRKMOVSource::getSeqHeaderIfNecessary() {
    const char* mime = "";
    mFormat->findCString(kKeyMIMEType, &mime);
    const bool mpeg2 = !strcasecmp(mime, MEDIA_MIMETYPE_VIDEO_MPEG2) && !mFormat->hasData(kKeyESDS);
    // Once a source has added the key, later sources of the track leave the
    // shared format alone (sources of a track may be reading it by then).
    const bool h263 = !strcasecmp(mime, MEDIA_MIMETYPE_VIDEO_H263) && !mFormat->hasData(kKey263AdvancedFeatures);
    if (!mpeg2 && !h263) return;

    off64_t offset;
    size_t size;
    if (mSampleTable->getMetaDataForSample(0, &offset, &size, nullptr) != OK) {
        ALOGE(mpeg2 ? "Fail to seek the 1st frame, abort!" : "Fail to seek the 1st H263 frame, abort!");
        return;
    }
    uint8_t bytes[kZIRKFirstFrameProbeBytes];
    const size_t want = size < sizeof(bytes) ? size : sizeof(bytes);
    if (readSample(offset, bytes, want) != static_cast<ssize_t>(want)) {
        ALOGE(mpeg2 ? "Fail to read the 1st frame, abort!" : "Fail to read the 1st H263 frame, abort!");
        return;
    }
    if (h263) {
        ZIRKProbeH263Features(bytes, want, mFormat, LOG_TAG);
        return;
    }
    size_t start;
    size_t length;
    if (!findSequenceHeader(bytes, want, &start, &length)) {
        ALOGW("No sequence header in the 1st frame");
        return;
    }
    sp<ABuffer> config = new ABuffer(length);
    memcpy(config->data(), bytes + start, length);
    sp<ABuffer> esds = MakeMPEG4VideoCodecSpecificData(config);
    if (esds != nullptr) mFormat->setData(kKeyESDS, kTypeESDS, esds->data(), esds->size());
}

status_t ZIRKMOVSource::start(MetaData* params) {
    std::lock_guard<std::mutex> lock(mLock);
    // Must stay fatal.
    ZIRK_CHECK_HERE(kSource, "!mStarted", !mStarted);

    int32_t value;
    mWantsNALFragments = params != nullptr && params->findInt32(kKeyWantsNALFragments, &value) && value != 0;

    int32_t max_size;
    // Must stay fatal.
    ZIRK_CHECK_HERE(kSource, "mFormat->findInt32(kKeyMaxInputSize, &max_size)",
                    mFormat->findInt32(kKeyMaxInputSize, &max_size));
    // The extractor sets it from the largest sample, held below 3 MiB; only
    // a format edited by someone else can hold a size that is no size.
    if (max_size <= 0) return ERROR_MALFORMED;
    const size_t bufferSize = static_cast<size_t>(max_size);
    MediaBuffer* buffer = new MediaBuffer(bufferSize);
    uint8_t* src = new (std::nothrow) uint8_t[bufferSize];
    if (buffer->data() == nullptr || src == nullptr) {
        buffer->release();
        delete[] src;
        return NO_MEMORY;
    }

    if (isChunkAudio()) {
        mChunkBuffer = new MediaBuffer(kChunkPieceBytes);
        if (mChunkBuffer->data() == nullptr) {
            mChunkBuffer->release();
            mChunkBuffer = nullptr;
            buffer->release();
            delete[] src;
            return NO_MEMORY;
        }
        if (mAudioFormat == kFormatMP3) {
            mSplitter = new MP3Splitter(movchecks::kSplitter);
        } else {
            ZIRKAudioType type = kAudioPCM;
            if (mAudioFormat == kFormatIMA) type = kAudioIMAADPCM;
            if (mAudioFormat == kFormatMS) type = kAudioMSADPCM;
            const int32_t channels = mChannelCount;
            // PCM sample width: the sound description's sample size, else
            // the frame size of a version 1/2 description over the channels.
            mPCMSampleBytes = mBitsPerSample / 8;
            if (mPCMSampleBytes == 0 && channels > 0) mPCMSampleBytes = mBytesPerFrame / channels;
            mSplitter = new AudioSplitter(movchecks::kSplitter, mFormat, type,
                                          static_cast<uint32_t>(mPCMSampleBytes),
                                          static_cast<uint32_t>(mBlockAlign < 0 ? 0 : mBlockAlign));
        }
        mSampleTable->setAudioFormat(mAudioFormat);
    }

    mGroup = new MediaBufferGroup;
    mGroup->add_buffer(buffer);
    mSrcBuffer = src;
    mSrcBufferSize = bufferSize;
    mCurrentSampleIndex = 0;
    mCurrentChunkIndex = 0;
    mChunkRemaining = 0;
    mAudioFrameFound = false;
    mSeekingAudio = false;
    mStarted = true;
    return OK;
}

status_t ZIRKMOVSource::stop() {
    std::lock_guard<std::mutex> lock(mLock);
    // Must stay fatal.
    ZIRK_CHECK_HERE(kSource, "mStarted", mStarted);
    if (mBuffer != nullptr) {
        mBuffer->release();
        mBuffer = nullptr;
    }
    releaseAudioFrames();
    if (mChunkBuffer != nullptr) {
        mChunkBuffer->release();
        mChunkBuffer = nullptr;
    }
    mSplitter.clear();
    delete mGroup;
    mGroup = nullptr;
    delete[] mSrcBuffer;
    mSrcBuffer = nullptr;
    mSrcBufferSize = 0;
    mStarted = false;
    return OK;
}

sp<MetaData> ZIRKMOVSource::getFormat() { return mFormat; }

ssize_t ZIRKMOVSource::readSample(off64_t offset, void* data, size_t size) {
    return mCompressedSource != nullptr ? mCompressedSource->readSampleAt(offset, data, size)
                                        : mDataSource->readAt(offset, data, size);
}

status_t ZIRKMOVSource::read(MediaBuffer** out, const ReadOptions* options) {
    std::lock_guard<std::mutex> lock(mLock);
    // Must stay fatal.
    ZIRK_CHECK_HERE(kSource, "mStarted", mStarted);
    *out = nullptr;
    if (isChunkAudio()) return readOneAudioFrame(out, options);

    bool hasTargetTime = false;
    int64_t targetTimeUs = 0;
    int64_t seekTimeUs;
    ReadOptions::SeekMode mode;
    if (options != nullptr && options->getSeekTo(&seekTimeUs, &mode)) {
        uint32_t flag = ZIRKMOVSampleTable::kFlagClosest;
        switch (mode) {
            case ReadOptions::SEEK_PREVIOUS_SYNC:
                flag = ZIRKMOVSampleTable::kFlagBefore;
                break;
            case ReadOptions::SEEK_NEXT_SYNC:
                flag = ZIRKMOVSampleTable::kFlagAfter;
                break;
            case ReadOptions::SEEK_CLOSEST_SYNC:
            case ReadOptions::SEEK_CLOSEST:
                break;
            default:
                // Must stay fatal.
                ZIRK_CHECK_HERE(kSource, "!\"Should not be here.\"", false);
        }
        const int64_t time = zirkSaturateToInt64(static_cast<__int128>(seekTimeUs) * mTimescale / 1000000);
        uint32_t sampleIndex;
        status_t err = mSampleTable->findSampleAtTime(time, &sampleIndex, flag);
        uint32_t syncSampleIndex = 0;
        if (err == OK) {
            err = mSampleTable->findSyncSampleNear(
                    sampleIndex, &syncSampleIndex,
                    mode == ReadOptions::SEEK_CLOSEST ? static_cast<uint32_t>(ZIRKMOVSampleTable::kFlagBefore) : flag);
        }
        uint32_t sampleTime = 0;
        if (err == OK) err = mSampleTable->getMetaDataForSample(sampleIndex, nullptr, nullptr, &sampleTime);
        if (err != OK) return err == ERROR_OUT_OF_RANGE ? ERROR_END_OF_STREAM : err;
        if (mode == ReadOptions::SEEK_CLOSEST) {
            hasTargetTime = true;
            targetTimeUs = ticksToUs(sampleTime, mTimescale);
        }
        if (mBuffer != nullptr) {
            mBuffer->release();
            mBuffer = nullptr;
        }
        mCurrentSampleIndex = syncSampleIndex;
    }

    off64_t offset = 0;
    size_t size = 0;
    uint32_t cts = 0;
    bool isSyncSample = false;
    if (mBuffer == nullptr) {
        status_t err = mSampleTable->getMetaDataForSample(mCurrentSampleIndex, &offset, &size, &cts, &isSyncSample);
        if (err != OK) return err;
        err = mGroup->acquire_buffer(&mBuffer);
        if (err != OK) {
            // Must stay fatal.
            ZIRK_CHECK_HERE(kSource, "mBuffer == NULL", mBuffer == nullptr);
            return err;
        }
    }

    // A protected track's samples after the first are read whole.
    const bool wholeForDrm = mIsDRM && mCurrentSampleIndex != 0;
    if (!mIsAVC || mWantsNALFragments || wholeForDrm) {
        if (size > mBuffer->size()) {
            ALOGE("Actual frame size %d is greater than buffer size %d\n", static_cast<int>(size),
                  static_cast<int>(mBuffer->size()));
            mBuffer->release();
            mBuffer = nullptr;
            return ERROR_MALFORMED;
        }
        if (readSample(offset, mBuffer->data(), size) != static_cast<ssize_t>(size)) {
            mBuffer->release();
            mBuffer = nullptr;
            return ERROR_IO;
        }
        mBuffer->set_range(0, size);
    } else {
        status_t err = readAVCSample(offset, size);
        if (err != OK) {
            mBuffer->release();
            mBuffer = nullptr;
            return err;
        }
    }

    sp<MetaData> meta = mBuffer->meta_data();
    meta->clear();
    meta->setInt64(kKeyTime, ticksToUs(cts, mTimescale));
    if (hasTargetTime) meta->setInt64(kKeyTargetTime, targetTimeUs);
    if (isSyncSample) meta->setInt32(kKeyIsSyncFrame, 1);
    ++mCurrentSampleIndex;
    *out = mBuffer;
    mBuffer = nullptr;
    return OK;
}

// Reads the sample at `offset` and hands it out in mBuffer in start-code
// form. A NAL whose length runs past the sample is cut at the
// sample's end (and a length field cut by the end becomes a NAL of its own
// bytes), with a warning; the sample is still delivered.
status_t ZIRKMOVSource::readAVCSample(off64_t offset, size_t size) {
    ZIRKNALRewriteOptions options;
    options.lengthSize = mNALLengthSize;
    options.overrun = ZIRKNALOverrun::kClamp;
    options.cutLengthIsUnit = true;
    ZIRKNALRewriteResult result;
    uint8_t* dst = static_cast<uint8_t*>(mBuffer->data());
    const size_t capacity = mBuffer->size();
    // The scratch buffer is as large as the group's buffer; a sample
    // larger than both cannot be read whole.
    if (size > mSrcBufferSize) return ERROR_MALFORMED;
    bool fits;
    if (mNALLengthSize == 4) {
        // 4-byte lengths become start codes of the same size: the sample is
        // rewritten where it was read, unless a length field cut by the end
        // would grow it (then it takes the scratch buffer's way below).
        if (readSample(offset, dst, size) != static_cast<ssize_t>(size)) return ERROR_IO;
        fits = ZIRKRewriteNALLengthsInBuffer(dst, capacity, 0, size, options, &result);
        if (!fits) {
            memcpy(mSrcBuffer, dst, size);
            fits = ZIRKRewriteNALLengths(mSrcBuffer, size, dst, capacity, options, &result);
        }
    } else {
        if (readSample(offset, mSrcBuffer, size) != static_cast<ssize_t>(size)) return ERROR_IO;
        fits = ZIRKRewriteNALLengths(mSrcBuffer, size, dst, capacity, options, &result);
    }
    if (result.overrunBytes > 0) {
        ALOGW("Video sample malformed: @%d + %d > %d", static_cast<int>(result.overrunAt),
              static_cast<int>(result.overrunLength), static_cast<int>(size));
    }
    if (!fits) {
        // Units of 1- and 2-byte lengths grow by their start codes. Where
        // the next start code has no room the check below must stay fatal;
        // where only its NAL's bytes would not fit (they would be written
        // past the buffer) the sample is refused instead.
        const size_t dstOffset = result.written;
        ZIRK_CHECK_HERE(kSource, "dstOffset + 4 <= mBuffer->size()", dstOffset + 4 <= capacity);
        return ERROR_MALFORMED;
    }
    const size_t srcOffset = result.consumed;
    // Must stay fatal.
    ZIRK_CHECK_EQ_HERE(kSource, " srcOffset,size", srcOffset, size);
    mBuffer->set_range(0, result.written);
    return OK;
}

// Chunk-based audio. Whole chunks are read through getMetaDataForChunk (in
// pieces of kChunkPieceBytes), handed to the track's splitter and cut into
// frames: PCM into 20 ms pieces of 16-bit little-endian samples ('twos' is
// turned little-endian and 8-bit samples unsigned before the splitter sees
// them), ADPCM into one decoded block each, MP3 into one MPEG audio frame
// each (with resync). A frame's time is that of the first chunk read since
// start or the last seek plus the samples handed out before it. Every frame
// is a sync frame, so all four seek modes land on the frame that holds the
// target time: the chunk that starts at or before the target is found, and
// its frames are read on until the next one would start after the target.
status_t ZIRKMOVSource::readOneAudioFrame(MediaBuffer** out, const ReadOptions* options) {
    if ((mAudioFormat == kFormatSowt || mAudioFormat == kFormatTwos) &&
        (mPCMSampleBytes < 1 || mPCMSampleBytes > 3)) {
        ALOGE("Unsupported PCM format!");
        return ERROR_UNSUPPORTED;
    }

    int64_t seekTimeUs;
    ReadOptions::SeekMode mode;
    if (options != nullptr && options->getSeekTo(&seekTimeUs, &mode)) {
        releaseAudioFrames();
        mSplitter->clear();
        mChunkRemaining = 0;
        if (seekTimeUs < 0) seekTimeUs = 0;
        const int64_t time = zirkSaturateToInt64(static_cast<__int128>(seekTimeUs) * mTimescale / 1000000);
        uint32_t chunkIndex;
        uint32_t chunkTime;
        status_t err = mSampleTable->findChunkAtTime(time, &chunkIndex, &chunkTime, ZIRKMOVSampleTable::kFlagBefore);
        if (err != OK) return err == ERROR_OUT_OF_RANGE ? ERROR_END_OF_STREAM : err;
        mCurrentChunkIndex = chunkIndex;
        mAudioFrameFound = false;
        mSeekingAudio = true;
        mAudioSeekTimeUs = seekTimeUs;
    } else if (mNextFrame != nullptr) {
        *out = mNextFrame;
        mNextFrame = nullptr;
        return OK;
    }

    for (;;) {
        MediaBuffer* frame = nullptr;
        status_t err = mSplitter->read(&frame, nullptr);
        if (err == kSplitterNeedsMoreInput) {
            err = appendChunkData();
            if (err == OK) continue;
            if (mAudioFormat == kFormatMP3 && !mAudioFrameFound) ALOGE("Can't find the MP3 sync code !!!");
            // The track ended while looking for the target: the last frame
            // is the one that holds it.
            if (mHeldFrame != nullptr) {
                mSeekingAudio = false;
                *out = mHeldFrame;
                mHeldFrame = nullptr;
                return OK;
            }
            return err;
        }
        if (err != OK) return err;
        mAudioFrameFound = true;
        frame->meta_data()->setInt32(kKeyIsSyncFrame, 1);
        if (mSeekingAudio) {
            int64_t timeUs = 0;
            frame->meta_data()->findInt64(kKeyTime, &timeUs);
            if (timeUs <= mAudioSeekTimeUs) {
                if (mHeldFrame != nullptr) mHeldFrame->release();
                mHeldFrame = frame;
                continue;
            }
            mSeekingAudio = false;
            if (mHeldFrame != nullptr) {
                mNextFrame = frame;
                frame = mHeldFrame;
                mHeldFrame = nullptr;
            }
        }
        *out = frame;
        return OK;
    }
}

// Hands the splitter the next piece of the current chunk, moving to the next
// chunk when this one is done. ERROR_END_OF_STREAM after the last chunk.
status_t ZIRKMOVSource::appendChunkData() {
    // Chunks of no bytes are passed over; each turn moves to the next chunk,
    // of which the table has a bounded number.
    while (mChunkRemaining == 0) {
        off64_t offset;
        size_t size;
        uint32_t time;
        uint32_t samples;
        // PCM chunks counted in frames of 1 byte are measured by whole
        // frames; ADPCM by blocks; MP3 by packets (see getMetaDataForChunk).
        int32_t blockBytes = mBlockAlign;
        int32_t packetFrames = mSamplesPerPacket;
        if (mAudioFormat == kFormatSowt || mAudioFormat == kFormatTwos) {
            blockBytes = mChannelCount > 0 ? static_cast<int32_t>(mPCMSampleBytes) * mChannelCount : 0;
            packetFrames = 1;
        } else if (mAudioFormat == kFormatMP3) {
            blockBytes = mBytesPerFrame;
        }
        status_t err = mSampleTable->getMetaDataForChunk(mCurrentChunkIndex, &offset, &size, &time, &samples,
                                                         blockBytes, packetFrames);
        if (err == ERROR_OUT_OF_RANGE) return ERROR_END_OF_STREAM;
        if (err != OK) return err;
        ++mCurrentChunkIndex;
        mChunkOffset = offset;
        mChunkRemaining = size;
        mChunkBuffer->meta_data()->setInt64(kKeyTime, ticksToUs(time, mTimescale));
    }

    const size_t piece = mChunkRemaining < kChunkPieceBytes ? mChunkRemaining : kChunkPieceBytes;
    ssize_t n = readSample(mChunkOffset, mChunkBuffer->data(), piece);
    if (n != static_cast<ssize_t>(piece)) return ERROR_IO;
    if (mAudioFormat == kFormatSowt || mAudioFormat == kFormatTwos) {
        convertPCM(static_cast<uint8_t*>(mChunkBuffer->data()), piece);
    }
    mChunkBuffer->set_range(0, piece);
    mChunkOffset += static_cast<off64_t>(piece);
    mChunkRemaining -= piece;
    return mSplitter->append(mChunkBuffer);
}

// The splitter reads PCM as WAVE data: 8-bit samples unsigned, wider ones
// little-endian. QuickTime's 8-bit samples are signed, and 'twos' is
// big-endian. Whole samples only: a damaged chunk's odd tail stays as read.
void ZIRKMOVSource::convertPCM(uint8_t* data, size_t size) const {
    const size_t width = mPCMSampleBytes;
    if (width == 1) {
        for (size_t i = 0; i < size; ++i) data[i] ^= 0x80;
        return;
    }
    if (mAudioFormat != kFormatTwos) return;
    for (size_t at = 0; width <= size - at && at < size; at += width) {
        for (size_t i = 0; i < width / 2; ++i) {
            uint8_t t = data[at + i];
            data[at + i] = data[at + width - 1 - i];
            data[at + width - 1 - i] = t;
        }
    }
}

void ZIRKMOVSource::releaseAudioFrames() {
    if (mHeldFrame != nullptr) mHeldFrame->release();
    if (mNextFrame != nullptr) mNextFrame->release();
    mHeldFrame = nullptr;
    mNextFrame = nullptr;
    mSeekingAudio = false;
}

}  // namespace android
