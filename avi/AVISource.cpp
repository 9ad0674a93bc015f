#define LOG_TAG "ZIRKAVIExtractor"

#include <string.h>
#include <strings.h>

#include <media/stagefright/MediaBufferGroup.h>
#include <media/stagefright/MediaDefs.h>
#include <media/stagefright/MediaErrors.h>
#include <media/stagefright/foundation/ADebug.h>
#include <media/stagefright/foundation/avc_utils.h>
#include <utils/Log.h>

#include "avi/ZIRKAVIChecks.h"
#include "avi/ZIRKAVIExtractor.h"
#include "common/AudioSplitter.h"
#include "common/MP3Splitter.h"
#include "common/ZIRKCodecConfig.h"
#include "common/ZIRKMetaKeys.h"

namespace android {

using namespace avichecks;

namespace {

// Largest sample buffer a source allocates (two are made). Far above any
// compressed frame; an index claiming more is damaged, and start() refuses
// the track instead of allocating from it.
constexpr uint64_t kMaxSampleBufferBytes = 64 * 1024 * 1024;

// Room for the chunk header beyond the largest indexed chunk.
constexpr uint32_t kSampleBufferSlack = 8;

constexpr size_t kSampleBufferCount = 2;

}  // namespace

ZIRKAVIExtractor::AVISource::AVISource(const sp<ZIRKAVIExtractor>& extractor, size_t trackIndex)
    : mExtractor(extractor),
      mTrackIndex(static_cast<uint32_t>(trackIndex)),
      mTrack(extractor->mTracks[trackIndex]),
      mBufferGroup(nullptr),
      mSampleIndex(0),
      mIsAVC(false) {
    const sp<MetaData>& meta = mTrack.mMeta;
    const char* mime;
    // Must stay fatal.
    ZIRK_CHECK_SITE(kAVI, kSourceMime, meta->findCString(kKeyMIMEType, &mime));

    if (!strcasecmp(mime, MEDIA_MIMETYPE_VIDEO_MPEG4) && !meta->hasData(kKeyESDS)) {
        ALOGD("ESDS unavailable, get GMC data from the first frame.");
        uint8_t bytes[kZIRKFirstFrameProbeBytes];
        size_t length;
        if (readFirstFrame(kGMCFrameIndex, kGMCFrameInfo, bytes, &length) == OK) {
            ZIRKProbeMPEG4GMCWarpPoints(bytes, length, meta, LOG_TAG);
        }
    } else if (!strcasecmp(mime, MEDIA_MIMETYPE_VIDEO_H263)) {
        uint8_t bytes[kZIRKFirstFrameProbeBytes];
        size_t length;
        if (readFirstFrame(kH263FrameIndex, kH263FrameInfo, bytes, &length) == OK) {
            ZIRKProbeH263Features(bytes, length, meta, LOG_TAG);
        }
    } else if (!strcasecmp(mime, MEDIA_MIMETYPE_VIDEO_AVC)) {
        mIsAVC = true;
    }
}

ZIRKAVIExtractor::AVISource::~AVISource() {
    delete mBufferGroup;
}

// Reads up to kZIRKFirstFrameProbeBytes of the key frame at time 0 into `bytes`;
// ERROR_IO when the read comes back short (the probes then set nothing).
status_t ZIRKAVIExtractor::AVISource::readFirstFrame(const ZIRKCheckSite& indexCheck,
                                                     const ZIRKCheckSite& infoCheck, uint8_t* bytes,
                                                     size_t* length) {
    // Must stay fatal: a finished track always has a sample at time 0.
    ZIRK_CHECK_EQ_SITE(kAVI, indexCheck, mExtractor->getSampleIndexAtTime(mTrackIndex, 0, ReadOptions::SEEK_CLOSEST_SYNC, &mSampleIndex), (status_t)OK);
    int64_t offset = 0, timeUs;
    uint32_t size = 0;
    bool isKey;
    // Must stay fatal.
    ZIRK_CHECK_EQ_SITE(kAVI, infoCheck, mExtractor->getSampleInfo(mTrackIndex, mSampleIndex, &offset, &size, &isKey, &timeUs), (status_t)OK);
    size_t want = size < kZIRKFirstFrameProbeBytes ? size : kZIRKFirstFrameProbeBytes;
    ssize_t n = mExtractor->mDataSource->readAt(offset, bytes, want);
    if (n < static_cast<ssize_t>(want)) return ERROR_IO;
    *length = want;
    return OK;
}

status_t ZIRKAVIExtractor::AVISource::start(MetaData* /*params*/) {
    // Must stay fatal: start twice.
    ZIRK_CHECK_SITE(kAVI, kStartTwice, !mBufferGroup);

    uint64_t bufferSize = static_cast<uint64_t>(mTrack.mMaxSampleSize) + kSampleBufferSlack;
    if (bufferSize > kMaxSampleBufferBytes) return ERROR_MALFORMED;
    MediaBufferGroup* group = new MediaBufferGroup;
    for (size_t i = 0; i < kSampleBufferCount; ++i) {
        MediaBuffer* buffer = new MediaBuffer(static_cast<size_t>(bufferSize));
        if (buffer->data() == nullptr) {
            buffer->release();
            delete group;
            return NO_MEMORY;
        }
        group->add_buffer(buffer);
    }
    mBufferGroup = group;
    mSampleIndex = 0;

    const char* mime;
    // Must stay fatal.
    ZIRK_CHECK_SITE(kAVI, kStartMime, mTrack.mMeta->findCString(kKeyMIMEType, &mime));
    if (!strncmp(mime, "audio/", 6)) {
        if (mTrack.mAudioType == kAudioMP3 || mTrack.mAudioType == kAudioMPEG) {
            mSplitter = new MP3Splitter(kMP3Splitter);
        } else {
            mSplitter = new AudioSplitter(kAudioSplitter, mTrack.mMeta, mTrack.mAudioType, mTrack.mBitsPerSample / 8,
                                          mTrack.mBlockAlign);
        }
    }
    return OK;
}

status_t ZIRKAVIExtractor::AVISource::stop() {
    // Must stay fatal: stop without start.
    ZIRK_CHECK_SITE(kAVI, kStopUnstarted, mBufferGroup);
    delete mBufferGroup;
    mBufferGroup = nullptr;
    mSplitter.clear();
    return OK;
}

sp<MetaData> ZIRKAVIExtractor::AVISource::getFormat() { return mTrack.mMeta; }

status_t ZIRKAVIExtractor::AVISource::read(MediaBuffer** buffer, const ReadOptions* options) {
    // Must stay fatal: read without start.
    ZIRK_CHECK_SITE(kAVI, kReadUnstarted, mBufferGroup);
    *buffer = nullptr;

    int64_t seekTimeUs;
    ReadOptions::SeekMode mode;
    bool seeking = options != nullptr && options->getSeekTo(&seekTimeUs, &mode);
    if (seeking) {
        if (mExtractor->getSampleIndexAtTime(mTrackIndex, seekTimeUs, mode, &mSampleIndex) != OK) {
            return ERROR_END_OF_STREAM;
        }
        if (mSplitter != nullptr) mSplitter->clear();
    }

    MediaBuffer* out = nullptr;
    for (;;) {
        if (mSplitter != nullptr) {
            status_t r = mSplitter->read(buffer, seeking ? &seekTimeUs : nullptr);
            if (r == OK) return OK;
            if (r != kSplitterNeedsMoreInput) return r;
        }

        int64_t offset, timeUs;
        uint32_t size = 0;
        bool isKey;
        status_t err =
            mExtractor->getSampleInfo(mTrackIndex, mSampleIndex, &offset, &size, &isKey, &timeUs);
        ++mSampleIndex;
        if (err != OK) return ERROR_END_OF_STREAM;
        if (size == 0) continue;

        // Must stay fatal: with both buffers out the acquire waits; it only
        // fails when the group has none.
        ZIRK_CHECK_EQ_SITE(kAVI, kAcquireBuffer, mBufferGroup->acquire_buffer(&out), (status_t)OK);

        // The chunk header may claim more than the largest indexed size the
        // buffers were made for; such a chunk cannot be read and is
        // malformed (the next read goes on with the next sample).
        if (size > out->size()) {
            out->release();
            return ERROR_MALFORMED;
        }
        ssize_t n = mExtractor->mDataSource->readAt(offset, out->data(), size);
        if (n < static_cast<ssize_t>(size)) {
            out->release();
            return n < 0 ? static_cast<status_t>(n) : ERROR_MALFORMED;
        }
        out->set_range(0, size);
        out->meta_data()->setInt64(kKeyTime, timeUs);

        if (mSplitter == nullptr) break;
        err = mSplitter->append(out);
        out->release();
        out = nullptr;
        if (err != OK) return err;
    }

    if (mIsAVC) ZIRKAVIRewriteAVCLengths(static_cast<uint8_t*>(out->data()), out->range_length());
    *buffer = out;
    return OK;
}

}  // namespace android
