// ZIRKFLVSource: the MediaSource of one FLV track.
//
// Walks the track's time-sorted sample table one tag per read, re-reading
// each tag's header from the file, and hands out the payload with its time
// and key-frame flag; H.264 length prefixes become start codes. Seeks pick a
// key frame (video) or a sample (audio) from the scan's tables.
//
// Ownership: created by ZIRKFLVExtractor::getTrack; holds the DataSource and
// the Track (not the extractor). Owns its buffer group while started.
// Threads: mLock serialises start, stop, read and getFormat.
#ifndef ZIRK_FLV_SOURCE_H_
#define ZIRK_FLV_SOURCE_H_

#include <stdint.h>

#include <mutex>

#include <media/stagefright/DataSource.h>
#include <media/stagefright/MediaBufferGroup.h>
#include <media/stagefright/MediaSource.h>

#include "flv/ZIRKFLVExtractor.h"

namespace android {

class ZIRKFLVSource : public MediaSource {
public:
    ZIRKFLVSource(const sp<DataSource>& source, sp<ZIRKFLVExtractor::Track>& track);

    status_t start(MetaData* params = nullptr) override;
    status_t stop() override;
    sp<MetaData> getFormat() override;
    status_t read(MediaBuffer** out, const ReadOptions* options = nullptr) override;

protected:
    ~ZIRKFLVSource() override;

private:
    status_t getTagData(MediaBuffer* pBuffer, uint32_t index);
    status_t handleSeek(int64_t seekTimeUs, ReadOptions::SeekMode mode);
    // Reads an AVC tag's NAL data (dataSize - 5 bytes at `nalOffset`) into
    // pBuffer in start-code form; *payloadLength is the range to deliver.
    status_t readPayload(MediaBuffer* pBuffer, off64_t offset, uint32_t dataSize, size_t prefix, const char* kind,
                         size_t* payloadLength);
    status_t loadAVCPacket(MediaBuffer* pBuffer, off64_t nalOffset, uint32_t dataSize,
                           size_t* payloadLength);

    std::mutex mLock;
    sp<DataSource> mDataSource;
    sp<ZIRKFLVExtractor::Track> mTrack;
    uint32_t mCurrentSampleIndex;
    MediaBuffer* mBuffer;
    bool mStarted;
    MediaBufferGroup* mGroup;
    bool mIsAVC;
    uint32_t mNALLengthSize;

    ZIRKFLVSource(const ZIRKFLVSource&) = delete;
    ZIRKFLVSource& operator=(const ZIRKFLVSource&) = delete;
};

}  // namespace android

#endif
