#define LOG_TAG "ZIRKFLVExtractor"
#define CHECK_SOURCE_PATH "flv/ZIRKFLVSource"

#include <media/stagefright/foundation/ADebug.h>

#include "flv/ZIRKFLVSource.h"

#include <string.h>
#include <strings.h>

#include <media/stagefright/MediaDefs.h>
#include <media/stagefright/MediaErrors.h>
#include <media/stagefright/MetaData.h>
#include <media/stagefright/foundation/ABitReader.h>
#include <utils/Log.h>

#include "common/ZIRKCodecConfig.h"
#include "common/ZIRKSeekIndex.h"
#include "common/ZIRKNALRewrite.h"

namespace android {

namespace {

const size_t kTagHeaderSize = 11;
// Frame/codec (or sound) byte in front of every payload.
const size_t kPayloadPrefixSize = 1;
// Sound byte and AACPacketType in front of an AAC frame.
const size_t kAACPrefixSize = 2;
// Frame/codec byte, AVCPacketType and CompositionTime in front of NAL data.
const size_t kAVCPrefixSize = 5;
const size_t kStartCodeSize = 4;
const uint8_t kStartCode[kStartCodeSize] = {0, 0, 0, 1};
const size_t kBufferCount = 2;

void logTagDoesNotFit(off64_t offset, uint64_t needed, size_t capacity) {
    ALOGE("Tag at %lld needs %llu bytes, more than the %zu-byte read buffer",
          static_cast<long long>(offset), static_cast<unsigned long long>(needed), capacity);
}

void logTagTooShort(off64_t offset, uint32_t dataSize) {
    ALOGE("Tag at %lld is too short for its headers (%u bytes)", static_cast<long long>(offset),
          dataSize);
}

uint64_t absDiff(int64_t a, int64_t b) {
    return a > b ? static_cast<uint64_t>(a) - static_cast<uint64_t>(b) : static_cast<uint64_t>(b) - static_cast<uint64_t>(a);
}

// Chooses an index of the ascending times t(0..count-1) for a seek to
// `target`. The narrowing to mid - 1 and "next is lo + 1" are the seek rules
// the players were tuned against, kept as they are (lo is then not always the
// last time at or before the target).
template <typename TimeAt>
size_t chooseSeekIndex(size_t count, TimeAt timeAt, int64_t target,
                       MediaSource::ReadOptions::SeekMode mode) {
    const size_t last = count - 1;
    if (target >= timeAt(last)) return last;
    if (target <= timeAt(0)) return 0;
    size_t lo = 0;
    size_t hi = last;
    while (lo + 1 < hi) {
        const size_t mid = lo + (hi - lo) / 2;
        if (target >= timeAt(mid)) {
            lo = mid;
        } else {
            hi = mid - 1;
        }
    }
    const size_t next = lo < last ? lo + 1 : lo;
    const ZIRKSeekCandidates candidates = {true, true, static_cast<int64_t>(lo), static_cast<int64_t>(next),
                                           absDiff(timeAt(lo), target), absDiff(timeAt(next), target)};
    int64_t chosen;
    if (!ZIRKChooseSeekPoint(candidates, mode, ZIRKSeekTie::kEarlier, &chosen)) {
        ALOGE("Unexpected seek mode: %d", static_cast<int>(mode));
        CHECK(false);  // must stay fatal
    }
    return static_cast<size_t>(chosen);
}

}  // namespace

ZIRKFLVSource::ZIRKFLVSource(const sp<DataSource>& source, sp<ZIRKFLVExtractor::Track>& track)
    : mDataSource(source),
      mTrack(track),
      mCurrentSampleIndex(0),
      mBuffer(nullptr),
      mStarted(false),
      mGroup(nullptr),
      mIsAVC(false),
      mNALLengthSize(0) {
    const char* mime = nullptr;
    const bool success = mTrack->meta->findCString(kKeyMIMEType, &mime);
    CHECK(success);  // must stay fatal
    mIsAVC = !strcasecmp(mime, MEDIA_MIMETYPE_VIDEO_AVC);
    if (mIsAVC) {
        uint32_t type;
        const void* data = nullptr;
        size_t size = 0;
        if (mTrack->meta->findData(kKeyAVCC, &type, &data, &size) && size > 0) {
            const uint8_t* ptr = static_cast<const uint8_t*>(data);
            ZIRKAVCCInfo avcc = {0, 0};
            // Both must stay fatal: a malformed configuration record aborts.
            CHECK(size >= 7);
            ZIRKReadAVCC(ptr, size, &avcc);
            CHECK_EQ((unsigned)ptr[0],1u);
            mNALLengthSize = static_cast<uint32_t>(avcc.nalLengthSize);
        }
    }
}

ZIRKFLVSource::~ZIRKFLVSource() {
    if (mStarted) stop();
}

status_t ZIRKFLVSource::start(MetaData* /*params*/) {
    std::lock_guard<std::mutex> lock(mLock);
    CHECK(!mStarted);  // must stay fatal
    sp<MetaData> meta = mTrack->meta;
    int32_t max_size = 0;
    CHECK(meta->findInt32(kKeyMaxInputSize, &max_size));  // must stay fatal
    mGroup = new MediaBufferGroup;
    const size_t bufferSize = max_size > 0 ? static_cast<size_t>(max_size) : 0;
    for (size_t i = 0; i < kBufferCount; ++i) mGroup->add_buffer(new MediaBuffer(bufferSize));
    mStarted = true;
    return OK;
}

status_t ZIRKFLVSource::stop() {
    std::lock_guard<std::mutex> lock(mLock);
    CHECK(mStarted);  // must stay fatal
    if (mBuffer != nullptr) {
        mBuffer->release();
        mBuffer = nullptr;
    }
    delete mGroup;
    mGroup = nullptr;
    mStarted = false;
    mCurrentSampleIndex = 0;
    return OK;
}

sp<MetaData> ZIRKFLVSource::getFormat() {
    std::lock_guard<std::mutex> lock(mLock);
    return mTrack->meta;
}

status_t ZIRKFLVSource::read(MediaBuffer** out, const ReadOptions* options) {
    std::lock_guard<std::mutex> lock(mLock);
    CHECK(mStarted);  // must stay fatal
    CHECK(mGroup);    // must stay fatal
    *out = nullptr;

    int64_t seekTimeUs;
    ReadOptions::SeekMode mode;
    if (options != nullptr && options->getSeekTo(&seekTimeUs, &mode)) {
        handleSeek(seekTimeUs, mode);
    }

    if (mBuffer == nullptr) {
        status_t err = mGroup->acquire_buffer(&mBuffer);
        if (err != OK) {
            CHECK(mBuffer == NULL);  // must stay fatal
            return err;
        }
        err = getTagData(mBuffer, mCurrentSampleIndex);
        if (err != OK) {
            // The index stays: the next read retries the same tag.
            mBuffer->release();
            mBuffer = nullptr;
            return err;
        }
    }
    ++mCurrentSampleIndex;
    *out = mBuffer;
    mBuffer = nullptr;
    return OK;
}

status_t ZIRKFLVSource::getTagData(MediaBuffer* pBuffer, uint32_t index) {
    const SortedVector<key_value_pair_t<int64_t, int64_t>>& table = mTrack->sampleTable;
    if (index >= table.size()) return ERROR_END_OF_STREAM;
    const off64_t offset = table[index].value;

    // The tag header and the first two data bytes.
    const ssize_t preLoadLen = kTagHeaderSize + 2;
    uint8_t* pBuf = static_cast<uint8_t*>(pBuffer->data());
    CHECK(pBuffer->size() > preLoadLen);  // must stay fatal: tags this small never get a buffer
    CHECK(pBuf);                          // must stay fatal
    CHECK_EQ(mDataSource->readAt(offset, pBuffer->data(), preLoadLen),preLoadLen);  // must stay fatal

    // Everything needed from the preload is decoded before the payload
    // overwrites it.
    ABitReader tagHeaderReader(pBuf, preLoadLen);
    const uint32_t tagType = tagHeaderReader.getBits(8);
    const uint32_t dataSize = tagHeaderReader.getBits(24);
    const uint32_t timestamp = tagHeaderReader.getBits(24);
    const uint32_t timestampExtended = tagHeaderReader.getBits(8);
    // Both must stay fatal: the header was good at scan time.
    CHECK_EQ(tagHeaderReader.getBits(24),0);
    CHECK((tagType == FLV_TAG_TYPE_AUDIO) || (tagType == FLV_TAG_TYPE_VIDEO));

    size_t payloadLength = 0;
    if (tagType == FLV_TAG_TYPE_VIDEO) {
        const uint32_t frameType = tagHeaderReader.getBits(4);
        const uint32_t codecId = tagHeaderReader.getBits(4);
        const ZIRKFLVCodecInfo& codec = zirkFLVVideoCodec(codecId);
        if (!codec.supported.load(std::memory_order_relaxed)) {
            ALOGE("Unsupported video read format: %s", codec.name);
            return ERROR_MALFORMED;
        }
        if (codecId != FLV_VIDEO_CODEC_AVC) {
            status_t err = readPayload(pBuffer, offset, dataSize, kPayloadPrefixSize, "video", &payloadLength);
            if (err != OK) return err;
        } else {
            const uint32_t avcPackType = tagHeaderReader.getBits(8);
            CHECK_NE(avcPackType,0);  // must stay fatal: sequence headers are not samples
            status_t err = loadAVCPacket(pBuffer, offset + kTagHeaderSize + kAVCPrefixSize,
                                         dataSize, &payloadLength);
            if (err != OK) return err;
        }
        if (frameType == FLV_VIDEO_FRAME_KEY) pBuffer->meta_data()->setInt32(kKeyIsSyncFrame, 1);
    } else {
        const uint32_t soundFormat = tagHeaderReader.getBits(4);
        const ZIRKFLVCodecInfo& format = zirkFLVAudioFormat(soundFormat);
        if (!format.supported.load(std::memory_order_relaxed)) {
            ALOGE("Unsupported audio read format: %s", format.name);
            return ERROR_MALFORMED;
        }
        size_t prefix = kPayloadPrefixSize;
        if (soundFormat == FLV_AUDIO_FORMAT_AAC) {
            // All three must stay fatal. The last 8 bits start at the
            // soundType bit, not at AACPacketType.
            CHECK_EQ(tagHeaderReader.getBits(2),3);
            CHECK_EQ(tagHeaderReader.getBits(1),1);
            CHECK_NE(tagHeaderReader.getBits(8),0);
            prefix = kAACPrefixSize;
        }
        status_t err = readPayload(pBuffer, offset, dataSize, prefix, "audio", &payloadLength);
        if (err != OK) return err;
    }

    pBuffer->set_range(0, payloadLength);
    // Buffer times are computed in 32 bits and wrap after 2^32 us (about 71.6
    // minutes), unlike the scan's 64-bit times: the players expect that.
    const uint32_t timeUs = ((timestampExtended << 24) | timestamp) * 1000u;
    pBuffer->meta_data()->setInt64(kKeyTime, static_cast<int64_t>(timeUs));
    return OK;
}

// The payload of a tag that is copied as it is: dataSize - prefix bytes from
// after the tag header and the `prefix` data bytes already decoded. `kind`
// names the track in the short-read log line.
status_t ZIRKFLVSource::readPayload(MediaBuffer* pBuffer, off64_t offset, uint32_t dataSize, size_t prefix,
                                    const char* kind, size_t* payloadLength) {
    if (dataSize < prefix) {
        logTagTooShort(offset, dataSize);
        return ERROR_MALFORMED;
    }
    const size_t length = dataSize - prefix;
    if (length > pBuffer->size()) {
        logTagDoesNotFit(offset, length, pBuffer->size());
        return ERROR_MALFORMED;
    }
    uint8_t* pBuf = static_cast<uint8_t*>(pBuffer->data());
    CHECK(pBuf);  // must stay fatal
    if (mDataSource->readAt(offset + kTagHeaderSize + prefix, pBuf, length) != static_cast<ssize_t>(length)) {
        ALOGE("%s_loadOneTagData() fails with %d", kind, ERROR_IO);
        return ERROR_IO;
    }
    *payloadLength = length;
    return OK;
}

status_t ZIRKFLVSource::loadAVCPacket(MediaBuffer* pBuffer, off64_t nalOffset, uint32_t dataSize,
                                      size_t* payloadLength) {
    uint8_t* pBuf = static_cast<uint8_t*>(pBuffer->data());
    const size_t capacity = pBuffer->size();
    // Negative for a tag too short for its AVC headers.
    const int64_t nalSize = static_cast<int64_t>(dataSize) - static_cast<int64_t>(kAVCPrefixSize);

    if (mNALLengthSize == 0) {
        // Without a configuration the NAL data follow one start code. The range
        // stays dataSize - 5 long, so its last 4 bytes fall outside it.
        // A tag too short for its AVC headers has fewer NAL bytes than
        // none: the read of them comes up short.
        if (nalSize < 0) {
            ALOGE("video_loadOneAVCPacket() fails with %d", ERROR_IO);
            return ERROR_IO;
        }
        if (capacity < kStartCodeSize || static_cast<uint64_t>(nalSize) > capacity - kStartCodeSize) {
            logTagDoesNotFit(nalOffset - kTagHeaderSize - kAVCPrefixSize,
                             static_cast<uint64_t>(nalSize) + kStartCodeSize, capacity);
            return ERROR_MALFORMED;
        }
        CHECK(pBuf);  // must stay fatal
        memcpy(pBuf, kStartCode, kStartCodeSize);
        if (mDataSource->readAt(nalOffset, pBuf + kStartCodeSize, nalSize) !=
            static_cast<ssize_t>(nalSize)) {
            ALOGE("video_loadOneAVCPacket() fails with %d", ERROR_IO);
            return ERROR_IO;
        }
        *payloadLength = static_cast<size_t>(nalSize);
        return OK;
    }
    if (mNALLengthSize > 4) TRESPASS();  // must stay fatal

    const size_t n = mNALLengthSize;
    const size_t inLength = nalSize > 0 ? static_cast<size_t>(nalSize) : 0;
    if (inLength > capacity) {
        logTagDoesNotFit(nalOffset - kTagHeaderSize - kAVCPrefixSize, inLength, capacity);
        return ERROR_MALFORMED;
    }
    // One read for all NAL data. With 4-byte lengths the start codes replace
    // them in place; shorter lengths make the output grow, so the input goes
    // to the end of the buffer and is rewritten forwards from its start.
    const size_t inStart = n == kStartCodeSize ? 0 : capacity - inLength;
    uint8_t* in = pBuf + inStart;
    CHECK(pBuf);  // must stay fatal
    if (inLength > 0 &&
        mDataSource->readAt(nalOffset, in, inLength) != static_cast<ssize_t>(inLength)) {
        ALOGE("video_loadOneAVCPacket() fails with %d", ERROR_IO);
        return ERROR_IO;
    }

    ZIRKNALRewriteOptions options;
    options.lengthSize = n;
    ZIRKNALRewriteResult result;
    const bool fits = ZIRKRewriteNALLengthsInBuffer(pBuf, capacity, inStart, inLength, options, &result);
    // What is left of the tag's NAL bytes after walking the lengths as
    // declared: negative when the tag is too short for its AVC headers or a
    // length field or unit claims more than is left, which must stay fatal.
    const int64_t size = nalSize < 0 ? nalSize : -static_cast<int64_t>(result.overrunBytes);
    CHECK(size == 0);  // must stay fatal
    if (!fits) {
        // The start codes would not fit in front of the input.
        logTagDoesNotFit(nalOffset - kTagHeaderSize - kAVCPrefixSize, result.written, capacity);
        return ERROR_MALFORMED;
    }
    // The range keeps the tag's NAL size even where the rewrite grew.
    *payloadLength = inLength;
    return OK;
}

status_t ZIRKFLVSource::handleSeek(int64_t seekTimeUs, ReadOptions::SeekMode mode) {
    const SortedVector<int64_t>& syncTable = mTrack->syncTable;
    const SortedVector<key_value_pair_t<int64_t, int64_t>>& sampleTable = mTrack->sampleTable;
    const char* trackName;
    int64_t chosenTimeUs;
    if (!syncTable.isEmpty()) {
        const size_t i = chooseSeekIndex(
                syncTable.size(), [&](size_t k) { return syncTable[k]; }, seekTimeUs, mode);
        chosenTimeUs = syncTable[i];
        const ssize_t index =
                sampleTable.indexOf(key_value_pair_t<int64_t, int64_t>(chosenTimeUs));
        CHECK_GE(index,0);  // must stay fatal
        mCurrentSampleIndex = static_cast<uint32_t>(index);
        trackName = "Video";
    } else if (!sampleTable.isEmpty()) {
        const size_t i = chooseSeekIndex(
                sampleTable.size(), [&](size_t k) { return sampleTable[k].key; }, seekTimeUs,
                mode);
        chosenTimeUs = sampleTable[i].key;
        mCurrentSampleIndex = static_cast<uint32_t>(i);
        trackName = "Audio";
    } else {
        return OK;
    }
    ALOGD("Seek (%d) %s Track [%lld us] : [%lld us]", static_cast<int>(mode), trackName,
          static_cast<long long>(seekTimeUs), static_cast<long long>(chosenTimeUs));
    return OK;
}

}  // namespace android
