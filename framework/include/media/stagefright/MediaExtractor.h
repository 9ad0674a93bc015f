// MediaExtractor: one container file's tracks, formats and file metadata.
// Reference-counted; queried from one framework thread, while its sources
// may be read from others.
#ifndef MEDIA_EXTRACTOR_H_
#define MEDIA_EXTRACTOR_H_

#include <stddef.h>
#include <stdint.h>

#include <media/stagefright/MediaSource.h>
#include <media/stagefright/MetaData.h>
#include <utils/RefBase.h>

namespace android {

class MediaExtractor : public RefBase {
public:
    virtual size_t countTracks() = 0;
    virtual sp<MediaSource> getTrack(size_t index) = 0;

    enum GetTrackMetaDataFlags {
        kIncludeExtensiveMetaData = 1,
    };
    virtual sp<MetaData> getTrackMetaData(size_t index, uint32_t flags = 0) = 0;

    // File-level metadata; the default is an empty MetaData.
    virtual sp<MetaData> getMetaData();

    enum Flags {
        CAN_SEEK_BACKWARD = 1,
        CAN_SEEK_FORWARD = 2,
        CAN_PAUSE = 4,
        CAN_SEEK = 8,
    };
    // The default: every capability.
    virtual uint32_t flags() const;

    // DRM track information; the default has none (null).
    virtual char* getDrmTrackInfo(size_t /*trackID*/, int* /*len*/) { return nullptr; }

protected:
    MediaExtractor() {}
    virtual ~MediaExtractor() {}

private:
    MediaExtractor(const MediaExtractor&) = delete;
    MediaExtractor& operator=(const MediaExtractor&) = delete;
};

}  // namespace android

#endif
