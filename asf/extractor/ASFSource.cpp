#define LOG_TAG "ASFExtractor"

#include "asf/extractor/ASFSource.h"

#include <stdint.h>
#include <string.h>
#include <strings.h>

#include <media/stagefright/MediaDefs.h>
#include <media/stagefright/MediaErrors.h>
#include <utils/Log.h>

#include "asf/extractor/ZIRKASFExtractorChecks.h"
#include "common/ZIRKMetaKeys.h"

namespace android {

namespace {

// The source's fatal checks; their messages name the extractor's source
// path and these lines. Each must stay fatal where it is used.
constexpr ZIRKCheckSite kStartTwice = {156, false, "!mBufferGroup"};
constexpr ZIRKCheckSite kStartMaxInputSize = {161, false, "mTrack.mMeta->findInt32(kKeyMaxInputSize, &max_size)"};
constexpr ZIRKCheckSite kStopUnstarted = {169, false, "mBufferGroup"};
constexpr ZIRKCheckSite kReadUnstarted = {183, false, "mBufferGroup"};
constexpr ZIRKCheckSite kAcquireBuffer = {211, true, "mBufferGroup->acquire_buffer(&out),(status_t)OK"};

const char* const kLogSeekFailed = "[%c]wanted seekTimeMs=%d";

// The read position of a track is the parser's AsfTrack, one per track and
// not locked by the parser. getTrack hands out a new source per call, so two
// sources of one track may read on different threads: every use of the
// position takes the lock of its (parser, track) pair. The pairs share a
// fixed set of locks (a pair maps to one of them; two pairs on one lock only
// wait for each other), so nothing has to be created or freed per parser.
// Only one of these locks is held at a time, and never while waiting for a
// buffer, so they cannot deadlock with each other or with a consumer.
constexpr size_t kTrackLockCount = 64;

std::mutex& trackLock(const ASFParser* parser, uint32_t trackIndex) {
    static std::mutex locks[kTrackLockCount];
    const uintptr_t key = reinterpret_cast<uintptr_t>(parser) / 16 * 31 + trackIndex;
    return locks[key % kTrackLockCount];
}

bool isVC1(const sp<MetaData>& meta) {
    const char* mime = nullptr;
    if (meta == nullptr || !meta->findCString(kKeyMIMEType, &mime)) return false;
    return !strcasecmp(mime, MEDIA_MIMETYPE_VIDEO_WVC1) || !strcasecmp(mime, MEDIA_MIMETYPE_VIDEO_WMVA);
}

}  // namespace

constexpr uint8_t ASFSource::kVC1StartCode[4];

ASFSource::ASFSource(const sp<ASFParser>& parser, const sp<DataSource>& dataSource, unsigned int trackIndex)
    : mParser(parser),
      mDataSource(dataSource),
      mTrackIndex(trackIndex),
      // trackIndex is a track of the parser: getTrack passes an exposed one.
      mTrack(&parser->tracks()[trackIndex]),
      mBufferGroup(nullptr),
      mPrependStartCode(false) {
    mPrependStartCode = isVC1(mTrack->mMeta);
}

ASFSource::~ASFSource() {
    std::lock_guard<std::mutex> lock(mLock);
    if (mBufferGroup != nullptr) stopLocked();
}

status_t ASFSource::start(MetaData* /*params*/) {
    std::lock_guard<std::mutex> lock(mLock);
    // Must stay fatal.
    ZIRK_CHECK_SITE(asfchecks::kExtractor, kStartTwice, !mBufferGroup);
    int32_t max_size = 0;
    // Must stay fatal.
    ZIRK_CHECK_SITE(asfchecks::kExtractor, kStartMaxInputSize, mTrack->mMeta->findInt32(kKeyMaxInputSize, &max_size));
    // The size is the file's word: a negative one or one past the cap is
    // not allocated, and the source stays stopped.
    if (max_size < 0 || max_size > kMaxBufferBytes) return ERROR_MALFORMED;
    MediaBuffer* buffer = new MediaBuffer(static_cast<size_t>(max_size));
    if (max_size > 0 && buffer->data() == nullptr) {
        buffer->release();
        return NO_MEMORY;
    }
    mBufferGroup = new MediaBufferGroup;
    mBufferGroup->add_buffer(buffer);
    return OK;
}

status_t ASFSource::stop() {
    std::lock_guard<std::mutex> lock(mLock);
    return stopLocked();
}

status_t ASFSource::stopLocked() {
    // Must stay fatal.
    ZIRK_CHECK_SITE(asfchecks::kExtractor, kStopUnstarted, mBufferGroup);
    delete mBufferGroup;
    mBufferGroup = nullptr;
    return OK;
}

sp<MetaData> ASFSource::getFormat() { return mTrack->mMeta; }

status_t ASFSource::read(MediaBuffer** out, const ReadOptions* options) {
    std::lock_guard<std::mutex> lock(mLock);
    return readLocked(out, options);
}

bool ASFSource::skipRestOfObject() {
    PayloadEntry entry;
    // Each call hands out the next payload or fails at the end of the data.
    while (mParser->getDataPacket(mTrackIndex, &entry) == OK) {
        if (entry.kind & PayloadEntry::kLast) return true;
    }
    return false;
}

status_t ASFSource::readLocked(MediaBuffer** out, const ReadOptions* options) {
    // Must stay fatal.
    ZIRK_CHECK_SITE(asfchecks::kExtractor, kReadUnstarted, mBufferGroup);
    *out = nullptr;

    bool afterSeek = false;
    int64_t seekTimeUs;
    ReadOptions::SeekMode mode;
    if (options != nullptr && options->getSeekTo(&seekTimeUs, &mode)) {
        std::lock_guard<std::mutex> position(trackLock(mParser.get(), mTrackIndex));
        if (mParser->getDataPacketIndexAtTime(mTrackIndex, seekTimeUs, mode) != OK) {
            ALOGE(kLogSeekFailed, mTrack->type == ASFParser::kTypeVideo ? 'V' : 'A',
                  static_cast<int>(seekTimeUs / 1000));
            return ERROR_END_OF_STREAM;
        }
        afterSeek = true;
    }

    // Must stay fatal: the one buffer is waited for until its holder
    // releases it; the acquire fails only for a group without buffers.
    ZIRK_CHECK_EQ_SITE(asfchecks::kExtractor, kAcquireBuffer, mBufferGroup->acquire_buffer(out), (status_t)OK);
    MediaBuffer* buffer = *out;
    *out = nullptr;
    uint8_t* data = static_cast<uint8_t*>(buffer->data());
    const size_t capacity = buffer->size();

    // The maximum input size is meant to hold the largest object and the
    // start code; a file whose objects exceed it is malformed. Such an
    // object is dropped whole (the rest of its payloads are read past, so
    // the next read starts at the next object) and ERROR_MALFORMED is
    // returned: no byte is ever written past the buffer.
    std::lock_guard<std::mutex> position(trackLock(mParser.get(), mTrackIndex));
    size_t filled = 0;
    if (mPrependStartCode) {
        if (capacity < sizeof(kVC1StartCode)) {
            // Not even the start code fits: the object is read past all the
            // same, so that reads go on to the end of the stream.
            buffer->release();
            return skipRestOfObject() ? ERROR_MALFORMED : ERROR_END_OF_STREAM;
        }
        memcpy(data, kVC1StartCode, sizeof(kVC1StartCode));
        filled = sizeof(kVC1StartCode);
    }

    // Each turn takes the next payload; the payload reader ends at the end
    // of the data packets.
    for (;;) {
        PayloadEntry entry;
        if (mParser->getDataPacket(mTrackIndex, &entry) != OK) {
            // A partly gathered object is dropped.
            buffer->release();
            return ERROR_END_OF_STREAM;
        }
        if (entry.length > capacity - filled) {
            if (!(entry.kind & PayloadEntry::kLast)) skipRestOfObject();
            buffer->release();
            return ERROR_MALFORMED;
        }
        const ssize_t n = mParser->readPayload(mTrackIndex, entry, data + filled);
        if (n < 0) {
            buffer->release();
            return static_cast<status_t>(n);
        }
        if (static_cast<size_t>(n) != entry.length) {
            buffer->release();
            return ERROR_MALFORMED;
        }
        filled += entry.length;
        if (entry.kind & PayloadEntry::kLast) {
            if (afterSeek) buffer->meta_data()->setInt32(kKeyIsSyncFrame, 1);
            buffer->set_range(0, filled);
            buffer->meta_data()->setInt64(kKeyTime, static_cast<int64_t>(entry.timeMs) * 1000);
            *out = buffer;
            return OK;
        }
    }
}

}  // namespace android
