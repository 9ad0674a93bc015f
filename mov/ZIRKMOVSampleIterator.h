// ZIRKMOVSampleIterator: finds one sample's file offset, size and
// presentation time in a ZIRKMOVSampleTable. It reads chunk offsets and
// sample sizes straight from the table's boxes and keeps cursors into the
// stsc and stts tables, so walking forward costs little: a chunk's sample
// sizes are read once, when the chunk becomes current.
//
// Owner: the table it walks makes one for itself; a test may make its own
// over a table that outlives it. Not thread-safe: the table calls it only
// under its lock.
// A seek changes the current sample only when it succeeds in full, and a
// chunk whose offset or sizes could not be read is not kept, so a failed seek
// never leaves sizes of one chunk standing for another.
#ifndef ZIRK_MOV_SAMPLE_ITERATOR_H_
#define ZIRK_MOV_SAMPLE_ITERATOR_H_

#include <stdint.h>
#include <sys/types.h>

#include <utils/Errors.h>
#include <utils/Vector.h>

namespace android {

class ZIRKMOVSampleTable;

class ZIRKMOVSampleIterator {
public:
    explicit ZIRKMOVSampleIterator(ZIRKMOVSampleTable* table);

    // Makes the sample current: ERROR_END_OF_STREAM past the last sample.
    status_t seekTo(uint32_t sampleIndex);

    // The current sample, after a successful seekTo.
    uint32_t getChunkIndex() const { return mCurrentChunkIndex; }
    uint32_t getDescIndex() const { return mChunkDesc; }
    off64_t getSampleOffset() const { return mCurrentSampleOffset; }
    uint32_t getSampleSize() const { return mCurrentSampleSize; }
    uint32_t getSampleTime() const { return mCurrentSampleTime; }

    status_t getChunkOffset(uint32_t chunk, uint64_t* offset);
    status_t getSampleSizeDirect(uint32_t sampleIndex, uint32_t* size);
    // The sizes of `count` samples from `first` on, into out[0 .. count): one
    // read per few thousand samples instead of one per sample.
    status_t getSampleSizes(uint32_t first, uint32_t count, uint32_t* out);
    status_t findChunkRange(uint32_t sampleIndex);
    status_t findSampleTime(uint32_t sampleIndex, uint32_t* time);
    void reset();

private:
    // Makes `chunk`, whose first sample is `first`, current: reads its
    // offset and (listed) sample sizes.
    status_t loadChunk(uint32_t chunk, uint32_t first);
    // The offset of the sample at `position` within the current chunk.
    status_t sampleOffsetInChunk(uint32_t position, uint64_t* offset);

    // The last bytes read of one of the tables that stay in the file (chunk
    // offsets, sample sizes). Reading a track visits them in order a few
    // bytes at a time; a window serves those from one read of a page, so an
    // interleaved file costs the source one read per page of each table
    // rather than one per chunk.
    static constexpr size_t kTableWindowBytes = 4096;
    struct TableWindow {
        off64_t start = -1;
        size_t length = 0;
        uint8_t bytes[kTableWindowBytes];
    };
    // Exactly `length` bytes at `at`: from the window, else from the source
    // (through the window when they fit in one); ERROR_IO when short. The
    // window never reads past `tableEnd`: an expanded movie header serves
    // nothing beyond itself.
    status_t readTable(TableWindow* window, off64_t at, off64_t tableEnd, void* out, size_t length);
    TableWindow mChunkOffsetWindow;
    TableWindow mSampleSizeWindow;

    ZIRKMOVSampleTable* mTable;
    bool mInitialized;

    // Sample-to-chunk cursor: the range of chunks [mFirstChunk, mStopChunk)
    // holding samples [mFirstChunkSampleIndex, mStopChunkSampleIndex).
    uint32_t mSampleToChunkIndex;
    uint32_t mFirstChunk;
    uint32_t mFirstChunkSampleIndex;
    uint32_t mStopChunk;
    uint32_t mStopChunkSampleIndex;
    uint32_t mSamplesPerChunk;
    uint32_t mChunkDesc;

    bool mCurrentChunkValid;
    uint32_t mCurrentChunkIndex;
    uint64_t mCurrentChunkOffset;
    uint32_t mCurrentChunkFirstSample;
    Vector<uint32_t> mCurrentChunkSampleSizes;  // left empty with a constant sample size
    // A running sum over the current chunk, so that samples visited in order
    // cost no re-summing: the sample at mPrefixPosition starts at mPrefixOffset.
    uint32_t mPrefixPosition;
    uint64_t mPrefixOffset;

    // Time cursor: the next stts entry, and the first sample, its decoding
    // time, count and delta of the current one (64-bit: counts and times may
    // add up past 32 bits).
    uint32_t mTimeToSampleIndex;
    uint64_t mTTSSampleIndex;
    uint64_t mTTSSampleTime;
    uint32_t mTTSCount;
    uint32_t mTTSDuration;

    uint32_t mCurrentSampleIndex;
    off64_t mCurrentSampleOffset;
    uint32_t mCurrentSampleSize;
    uint32_t mCurrentSampleTime;

    ZIRKMOVSampleIterator(const ZIRKMOVSampleIterator&) = delete;
    ZIRKMOVSampleIterator& operator=(const ZIRKMOVSampleIterator&) = delete;
};

}  // namespace android

#endif
