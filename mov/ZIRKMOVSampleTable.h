// ZIRKMOVSampleTable: one MOV/MP4 track's sample table (the children of its
// stbl box). It answers where a sample or chunk lies, how large it is, when it
// is presented, and which sample a seek starts from.
//
// Owner: the box parser creates one per track over the track's byte source
// and hands each stbl child's payload to a setter, once, before any query;
// the track's sources then share it (sp<>). Chunk offsets and sample sizes
// stay in the file and are read on demand through the table's own
// ZIRKMOVSampleIterator; the time-to-sample, composition, sample-to-chunk and
// sync tables are loaded. The time-sorted sample and chunk arrays are built
// on the first time search and kept for the table's life.
// Threads: sources of one track may query at once. Every setter, query and
// lazy build holds mLock, and the iterator is used only under it. The
// composition cursor has a lock of its own (the builders use it under mLock,
// getCompositionTimeOffset without).
//
// Where damaged tables are met (each rule is also stated where it applies):
// - A setter that fails still marks its box as given, so a second box of the
//   kind is refused, but keeps none of the box's counts: queries then see an
//   empty table. stts and ctts count as loaded only once read in full.
// - Every count is checked against its box's data size in 64 bits before
//   anything is read or allocated (stts and stss too); a count that needs
//   more bytes than the box has is ERROR_MALFORMED.
// - Loaded tables are read in pieces and grow only by what has been read: a
//   table cut short by the end of the data is the short read (ERROR_IO) and
//   was never allocated whole. The source's size is not used for this: under
//   an expanded compressed movie header, offsets are not file offsets.
// - stsc: a run of chunks with 0 samples per chunk holds no samples and is
//   passed over; a sample that could only lie in one (the last run) is
//   ERROR_MALFORMED. An entry that starts before the one it follows makes
//   every sample from there on ERROR_MALFORMED, and ends the chunk times.
// - Times are 32-bit media-timescale values computed in 64 bits, with
//   composition offsets read as signed; a time below 0 or past 32 bits is
//   held at the nearest bound.
// - A sample whose bytes would end past the largest file offset is
//   ERROR_MALFORMED. Chunk offsets past the end of the file are reported as
//   they are: the table cannot tell them from a file cut short, and the
//   sample's read finds out (ERROR_IO).
// - An empty sample or chunk time array answers every time search with
//   ERROR_OUT_OF_RANGE; findSyncSampleNear refuses flags other than the three
//   with ERROR_UNSUPPORTED.
#ifndef ZIRK_MOV_SAMPLE_TABLE_H_
#define ZIRK_MOV_SAMPLE_TABLE_H_

#include <stdint.h>
#include <sys/types.h>

#include <memory>
#include <mutex>

#include <media/stagefright/DataSource.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>
#include <utils/Vector.h>

namespace android {

class ZIRKMOVSampleIterator;

class ZIRKMOVSampleTable : public RefBase {
public:
    explicit ZIRKMOVSampleTable(const sp<DataSource>& source);

    bool isValid() const;

    static constexpr uint32_t kChunkOffsetType32 = 'stco';
    static constexpr uint32_t kChunkOffsetType64 = 'co64';
    static constexpr uint32_t kSampleSizeType32 = 'stsz';
    static constexpr uint32_t kSampleSizeTypeCompact = 'stz2';

    // Each takes a box's payload position and data size (64-bit, so that a
    // large box reaches the size checks unshortened).
    status_t setChunkOffsetParams(uint32_t type, off64_t dataOffset, uint64_t dataSize);
    status_t setSampleToChunkParams(off64_t dataOffset, uint64_t dataSize);
    status_t setSampleSizeParams(uint32_t type, off64_t dataOffset, uint64_t dataSize);
    status_t setTimeToSampleParams(off64_t dataOffset, uint64_t dataSize);
    status_t setCompositionTimeToSampleParams(off64_t dataOffset, uint64_t dataSize);
    status_t setSyncSampleParams(off64_t dataOffset, uint64_t dataSize);

    // The track's audio framing class (-1 when it has none), which picks the
    // byte-size rule of getMetaDataForChunk.
    void setAudioFormat(int32_t audioFormat);

    uint32_t countChunkOffsets() const;
    uint32_t countSamples() const;
    status_t getMaxSampleSize(size_t* size);

    // Any output pointer may be null.
    status_t getMetaDataForSample(uint32_t sampleIndex, off64_t* offset, size_t* size, uint32_t* compositionTime,
                                  bool* isSyncSample = nullptr);
    // The bytes and time of a whole chunk, for audio read a chunk at a time.
    // Chunk sizes: with a constant sample size, samples x size, except for the
    // framed audio classes (0-5) when the size is 1 (QuickTime then counts
    // uncompressed frames): one blockAlign-byte block per samplesPerPacket
    // frames, rounded up (PCM passes its frame size and 1); with listed
    // sizes, their sum. An MP3 chunk (5) must start on
    // a frame sync. The time is that of the chunk's first sample.
    status_t getMetaDataForChunk(uint32_t chunkIndex, off64_t* offset, size_t* size, uint32_t* compositionTime,
                                 uint32_t* samplesInChunk, int32_t blockAlign, int32_t samplesPerPacket);

    enum { kFlagBefore, kFlagAfter, kFlagClosest };
    // `time` is in media-timescale units; 64-bit so that a request past the
    // 32-bit tables is not cut short on the way in.
    status_t findSampleAtTime(int64_t time, uint32_t* sampleIndex, uint32_t flags);
    // Also gives the time of the chunk found.
    status_t findChunkAtTime(int64_t time, uint32_t* chunkIndex, uint32_t* chunkTime, uint32_t flags);
    status_t findSyncSampleNear(uint32_t startSampleIndex, uint32_t* sampleIndex, uint32_t flags);
    status_t findThumbnailSample(uint32_t* sampleIndex);

    // The composition offset of a sample as stored (two's complement when
    // negative).
    uint32_t getCompositionTimeOffset(uint32_t sampleIndex);

    struct SampleTimeEntry {
        uint32_t mIndex;  // sample or chunk index
        uint32_t mTime;   // composition time, media timescale
    };
    static int CompareIncreasingTime(const SampleTimeEntry* a, const SampleTimeEntry* b);

protected:
    ~ZIRKMOVSampleTable() override;

private:
    friend class ZIRKMOVSampleIterator;

    struct TimeToSampleEntry {
        uint32_t mCount;
        uint32_t mDelta;
    };
    struct CompositionDeltaEntry {
        uint32_t mCount;
        uint32_t mOffset;
    };
    struct SampleToChunkEntry {
        uint32_t startChunk;  // zero-based
        uint32_t samplesPerChunk;
        uint32_t chunkDesc;
    };

    // Cursor over the ctts table: monotone queries cost little.
    class CompositionDeltaLookup {
    public:
        CompositionDeltaLookup();
        void setEntries(const CompositionDeltaEntry* entries, size_t numEntries);
        uint32_t getCompositionTimeOffset(uint32_t sampleIndex);

    private:
        std::mutex mLock;
        const CompositionDeltaEntry* mDeltaEntries;
        size_t mNumDeltaEntries;
        size_t mCurrentDeltaEntry;
        uint64_t mCurrentEntrySampleIndex;  // 64-bit: counts may add up past 32 bits

        CompositionDeltaLookup(const CompositionDeltaLookup&) = delete;
        CompositionDeltaLookup& operator=(const CompositionDeltaLookup&) = delete;
    };

    // The decoding time plus the composition offset of `sampleIndex`, held to
    // the 32-bit range.
    uint32_t compositionTime(uint64_t decodingTime, uint32_t sampleIndex);

    status_t buildSampleEntriesTable();
    status_t buildChunkEntriesTable();
    status_t findTimeIn(const Vector<SampleTimeEntry>& entries, int64_t time, uint32_t flags, bool chunks,
                        size_t* position);
    // The chunk's first sample and samples per chunk from the stsc table.
    status_t findChunkSamples(uint32_t chunkIndex, uint64_t* firstSample, uint32_t* samplesPerChunk);
    status_t chunkByteSize(uint32_t firstSample, uint32_t samples, int32_t blockAlign, int32_t samplesPerPacket,
                           uint64_t* bytes);
    bool isSyncSampleLocked(uint32_t sampleIndex);

    sp<DataSource> mDataSource;
    mutable std::mutex mLock;

    off64_t mChunkOffsetOffset;
    uint32_t mChunkOffsetType;
    uint32_t mNumChunkOffsets;

    off64_t mSampleToChunkOffset;
    uint32_t mNumSampleToChunkOffsets;

    off64_t mSampleSizeOffset;
    uint32_t mSampleSizeFieldSize;
    uint32_t mDefaultSampleSize;
    uint32_t mNumSampleSizes;

    bool mTimeToSampleLoaded;
    uint32_t mTimeToSampleCount;
    Vector<TimeToSampleEntry> mTimeToSample;

    bool mChunkEntriesBuilt;
    Vector<SampleTimeEntry> mChunkEntries;

    bool mCompositionDeltasLoaded;
    Vector<CompositionDeltaEntry> mCompositionTimeDeltaEntries;
    uint32_t mNumCompositionTimeDeltaEntries;
    std::unique_ptr<CompositionDeltaLookup> mCompositionDeltaLookup;

    off64_t mSyncSampleOffset;
    uint32_t mNumSyncSamples;
    Vector<uint32_t> mSyncSamples;

    std::unique_ptr<ZIRKMOVSampleIterator> mSampleIterator;

    bool mSampleEntriesBuilt;
    Vector<SampleTimeEntry> mSampleTimeEntries;

    Vector<SampleToChunkEntry> mSampleToChunkEntries;
    uint32_t mLastSyncSampleIndex;

    // Where findChunkSamples last stopped: an stsc entry and its first
    // sample, so that reading chunk after chunk walks the table once.
    uint32_t mChunkLookupEntry;
    uint64_t mChunkLookupFirstSample;

    int32_t mAudioFormat;

    ZIRKMOVSampleTable(const ZIRKMOVSampleTable&) = delete;
    ZIRKMOVSampleTable& operator=(const ZIRKMOVSampleTable&) = delete;
};

}  // namespace android

#endif
