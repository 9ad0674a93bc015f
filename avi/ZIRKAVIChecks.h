// The AVI demultiplexer's fatal checks with fixed places: every message
// names "avi/ZIRKAVIExtractor" and the line given here, whichever file the
// check is in (the splitters report through the same table). Each site must
// stay fatal where it is used.
#ifndef ZIRK_AVI_CHECKS_H_
#define ZIRK_AVI_CHECKS_H_

#include "common/DataSplitter.h"
#include "common/ZIRKCheckSites.h"

namespace android {
namespace avichecks {

constexpr ZIRKCheckComponent kAVI = {"ZIRKAVIExtractor", "avi/ZIRKAVIExtractor"};

// Track finishing: the duration and thumbnail look-ups (idx1, then indx).
constexpr ZIRKCheckSite kDurationIdx1 = {2122, true, "(status_t)OK,getSampleTime(i, track->mSamples.size() - 1, &durationUs)"};
constexpr ZIRKCheckSite kThumbnailIdx1 = {2139, true, "(status_t)OK,getSampleTime(i, track->mThumbnailSampleIndex, &thumbnailTimeUs)"};
constexpr ZIRKCheckSite kDurationIndx = {2378, true, "(status_t)OK,getSampleTime(trackIndex, track->mSamples.size() - 1, &durationUs)"};
constexpr ZIRKCheckSite kThumbnailIndx = {2395, true, "(status_t)OK,getSampleTime(trackIndex, track->mThumbnailSampleIndex, &thumbnailTimeUs)"};
constexpr ZIRKCheckSite kSeekMode = {2787, false, "!\"Should not be here.\""};
constexpr ZIRKCheckSite kAVCWidth = {2580, false, "meta->findInt32(kKeyWidth, &width)"};
constexpr ZIRKCheckSite kAVCHeight = {2581, false, "meta->findInt32(kKeyHeight, &height)"};
constexpr ZIRKCheckSite kAVCConfig = {2586, false, "meta->findData(kKeyAVCC, &type, &csd, &csdSize)"};

// The source.
constexpr ZIRKCheckSite kSourceMime = {157, false, "meta->findCString(kKeyMIMEType, &mime)"};
constexpr ZIRKCheckSite kGMCFrameIndex = {175, true, "mExtractor->getSampleIndexAtTime(mTrackIndex, 0, ReadOptions::SEEK_CLOSEST_SYNC, &mSampleIndex),(status_t)OK"};
constexpr ZIRKCheckSite kGMCFrameInfo = {176, true, "mExtractor->getSampleInfo(mTrackIndex, mSampleIndex, &offset, &size, &isKey, &timeUs),(status_t)OK"};
constexpr ZIRKCheckSite kH263FrameIndex = {204, true, kGMCFrameIndex.text};
constexpr ZIRKCheckSite kH263FrameInfo = {205, true, kGMCFrameInfo.text};
constexpr ZIRKCheckSite kStartTwice = {236, false, "!mBufferGroup"};
constexpr ZIRKCheckSite kStartMime = {245, false, "mTrack.mMeta->findCString(kKeyMIMEType, &mime)"};
constexpr ZIRKCheckSite kStopUnstarted = {284, false, "mBufferGroup"};
constexpr ZIRKCheckSite kReadUnstarted = {300, false, "mBufferGroup"};
constexpr ZIRKCheckSite kAcquireBuffer = {348, true, "mBufferGroup->acquire_buffer(&out),(status_t)OK"};

// The splitters.
constexpr ZIRKSplitterChecks kMP3Splitter = {
        kAVI,
        {417, false, "mBuffer == NULL || mBuffer->size() == 0"},
        {418, false, "buffer->meta_data()->findInt64(kKeyTime, &mBaseTimeUs)"},
        {0, false, ""}, {0, false, ""}, {0, false, ""}};
constexpr ZIRKSplitterChecks kAudioSplitter = {
        kAVI,
        {596, false, "mBuffer == NULL || mBuffer->size() == 0"},
        {597, false, "buffer->meta_data()->findInt64(kKeyTime, &mBaseTimeUs)"},
        {560, false, "meta->findCString(kKeyMIMEType, &mime)"},
        {1086, false, "sampleRateIndex != 3"},
        {1002, false, "strmtyp <= 2"}};

}  // namespace avichecks
}  // namespace android

#endif
