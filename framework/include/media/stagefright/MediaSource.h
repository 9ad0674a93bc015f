// MediaSource: the per-track sample source handed out by an extractor.
// Calling order: start once, any number of reads, stop once; getFormat at any
// time. The framework never calls start/read/stop of one source
// concurrently. Reference-counted (virtually, as on the platform).
#ifndef MEDIA_SOURCE_H_
#define MEDIA_SOURCE_H_

#include <stdint.h>

#include <media/stagefright/MediaBuffer.h>
#include <media/stagefright/MediaErrors.h>
#include <media/stagefright/MetaData.h>
#include <utils/RefBase.h>
#include <utils/Vector.h>

namespace android {

class MediaSource : public virtual RefBase {
public:
    MediaSource() {}

    virtual status_t start(MetaData* params = nullptr) = 0;
    virtual status_t stop() = 0;
    virtual sp<MetaData> getFormat() = 0;

    struct ReadOptions;

    // Returns OK with a buffer in *buffer, or an error (ERROR_END_OF_STREAM
    // after the last sample) with *buffer null.
    virtual status_t read(MediaBuffer** buffer, const ReadOptions* options = nullptr) = 0;

    // Optional operations the library never overrides.
    virtual status_t pause() { return ERROR_UNSUPPORTED; }
    virtual status_t setBuffers(const Vector<MediaBuffer*>& /*buffers*/) { return ERROR_UNSUPPORTED; }
    virtual status_t setStopTimeUs(int64_t /*stopTimeUs*/) { return ERROR_UNSUPPORTED; }

    struct ReadOptions {
        // Fixed underlying type: a mode value outside the four is still a
        // valid value, which a source must be able to receive and reject.
        enum SeekMode : int32_t {
            SEEK_PREVIOUS_SYNC = 0,
            SEEK_NEXT_SYNC = 1,
            SEEK_CLOSEST_SYNC = 2,
            SEEK_CLOSEST = 3,
        };

        ReadOptions() { reset(); }

        void reset() {
            mOptions = 0;
            mSeekTimeUs = 0;
            mSeekMode = SEEK_CLOSEST_SYNC;
            mLatenessUs = 0;
        }
        void setSeekTo(int64_t timeUs, SeekMode mode = SEEK_CLOSEST_SYNC) {
            mOptions |= kSeekTo_Option;
            mSeekTimeUs = timeUs;
            mSeekMode = mode;
        }
        void clearSeekTo() {
            mOptions &= ~kSeekTo_Option;
            mSeekTimeUs = 0;
            mSeekMode = SEEK_CLOSEST_SYNC;
        }
        bool getSeekTo(int64_t* timeUs, SeekMode* mode) const {
            *timeUs = mSeekTimeUs;
            *mode = mSeekMode;
            return (mOptions & kSeekTo_Option) != 0;
        }
        void setLateBy(int64_t lateness_us) { mLatenessUs = lateness_us; }
        int64_t getLateBy() const { return mLatenessUs; }

    private:
        enum Options { kSeekTo_Option = 1 };
        uint32_t mOptions;
        int64_t mSeekTimeUs;
        SeekMode mSeekMode;
        int64_t mLatenessUs;
    };

protected:
    virtual ~MediaSource() {}

private:
    MediaSource(const MediaSource&) = delete;
    MediaSource& operator=(const MediaSource&) = delete;
};

}  // namespace android

#endif
