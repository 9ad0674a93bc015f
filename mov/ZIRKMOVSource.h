// ZIRKMOVSource: the MediaSource of one MOV/MP4 track. It hands out the
// track's samples in decoding order, one buffer each, stamped with their
// composition time and sync flag; AVC samples leave in start-code form
// unless the caller asks for NAL fragments. Audio tracks whose samples are
// not codec frames (PCM 'sowt'/'twos', IMA and MS ADPCM, MP3: audioFormat
// 0-5) are read a chunk at a time instead and cut into frames by the shared
// splitters (see readOneAudioFrame).
//
// Owner: the framework, through sp<>; getTrack makes a new one on every call.
// It shares the track's format, sample table and the file with the extractor
// and the other sources (sp<>), so it may outlive the extractor.
// Threads: start, stop and read take mLock; the framework calls them from
// one thread. Sources of different tracks meet only in the sample table and
// the data sources, which lock on their own.
#ifndef ZIRK_MOV_SOURCE_H_
#define ZIRK_MOV_SOURCE_H_

#include <stdint.h>

#include <mutex>

#include <media/stagefright/DataSource.h>
#include <media/stagefright/MediaBufferGroup.h>
#include <media/stagefright/MediaSource.h>
#include <media/stagefright/MetaData.h>

#include "common/DataSplitter.h"

namespace android {

class ZIRKMOVDataSource;
class ZIRKMOVSampleTable;

class ZIRKMOVSource : public MediaSource {
public:
    // The audio framing values are the track's (audioFormat -1 for every
    // track read a sample at a time). `compressedSource` is set when the
    // movie header was expanded from a compressed one: sample bytes are then
    // read through its readSampleAt.
    ZIRKMOVSource(const sp<MetaData>& format, const sp<DataSource>& dataSource, int32_t timeScale,
                  const sp<ZIRKMOVSampleTable>& sampleTable, const sp<ZIRKMOVDataSource>& compressedSource,
                  int32_t audioFormat, int32_t blockAlign, uint16_t samplesPerPacket, uint16_t bytesPerFrame,
                  uint16_t bitsPerSample = 0);

    status_t start(MetaData* params = nullptr) override;
    status_t stop() override;
    sp<MetaData> getFormat() override;
    status_t read(MediaBuffer** out, const ReadOptions* options = nullptr) override;

    // Bytes of a chunk read at a time by the chunk-based audio path: a
    // chunk larger than this (a whole track of PCM in one chunk is common)
    // goes to the splitter in pieces, so memory stays bounded. Divisible by
    // every PCM sample width (1-4 bytes), so no piece cuts a sample.
    static constexpr size_t kChunkPieceBytes = 192 * 1024;

protected:
    ~ZIRKMOVSource() override;

private:
    std::mutex mLock;
    sp<MetaData> mFormat;
    sp<DataSource> mDataSource;
    int32_t mTimescale;
    sp<ZIRKMOVSampleTable> mSampleTable;
    sp<ZIRKMOVDataSource> mCompressedSource;
    uint32_t mCurrentSampleIndex;
    bool mIsAVC;
    // Read from the format once, at construction: reads never touch the
    // shared format, which the extractor's thread may be adding to.
    bool mIsDRM;
    int32_t mChannelCount;
    uint32_t mNALLengthSize;
    bool mStarted;
    MediaBufferGroup* mGroup;
    MediaBuffer* mBuffer;
    bool mWantsNALFragments;
    uint8_t* mSrcBuffer;
    size_t mSrcBufferSize;
    int32_t mAudioFormat;
    int32_t mBlockAlign;
    uint16_t mSamplesPerPacket;
    uint16_t mBytesPerFrame;
    uint16_t mBitsPerSample;

    // Chunk-based audio (audioFormat 0-5).
    sp<DataSplitter> mSplitter;
    MediaBuffer* mChunkBuffer;  // kChunkPieceBytes, reused for every piece
    uint32_t mCurrentChunkIndex;
    off64_t mChunkOffset;       // the next piece of the current chunk
    size_t mChunkRemaining;     // bytes of the current chunk not yet read
    size_t mPCMSampleBytes;     // PCM: bytes of one channel's sample (1-4)
    // A frame came out since start or the last seek: an MP3 track that ends
    // without one never found a frame sync, which is logged.
    bool mAudioFrameFound;
    // After a seek, frames are read on until the one that holds the target:
    // mHeldFrame is the latest frame that starts at or before it, and
    // mNextFrame the frame after it, handed out by the next read.
    bool mSeekingAudio;
    int64_t mAudioSeekTimeUs;
    MediaBuffer* mHeldFrame;
    MediaBuffer* mNextFrame;

    bool isChunkAudio() const { return static_cast<uint32_t>(mAudioFormat) <= 5; }
    status_t readOneAudioFrame(MediaBuffer** out, const ReadOptions* options);
    status_t appendChunkData();
    void convertPCM(uint8_t* data, size_t size) const;
    void releaseAudioFrames();
    ssize_t readSample(off64_t offset, void* data, size_t size);
    status_t readAVCSample(off64_t offset, size_t size);
    void getSeqHeaderIfNecessary();

    ZIRKMOVSource(const ZIRKMOVSource&) = delete;
    ZIRKMOVSource& operator=(const ZIRKMOVSource&) = delete;
};

}  // namespace android

#endif
