// ZIRKAVIExtractor: the MediaExtractor for AVI (RIFF) files, with the legacy
// idx1 index and the OpenDML two-level index (indx + ix##).
//
// Owner: the framework, through sp<>. Every AVISource holds a strong
// reference to its extractor, so the track tables outlive all sources.
// Lifetime: the whole RIFF tree and every track's sample table are built in
// the constructor; afterwards the tables never change.
// Threads: construction and the MediaExtractor queries run on the caller's
// thread. Sources of one extractor may read concurrently from several
// threads: they only read the (immutable) tables and call readAt, which the
// DataSource contract makes thread-safe.
#ifndef ZIRK_AVI_EXTRACTOR_H_
#define ZIRK_AVI_EXTRACTOR_H_

#include <stdint.h>

#include <media/stagefright/DataSource.h>
#include <media/stagefright/MediaExtractor.h>
#include <media/stagefright/MediaSource.h>
#include <media/stagefright/MetaData.h>
#include <media/stagefright/foundation/ABuffer.h>
#include <media/stagefright/foundation/AMessage.h>
#include <utils/RefBase.h>
#include <utils/String8.h>
#include <utils/Vector.h>

#include "common/DataSplitter.h"
#include "common/ZIRKExport.h"
#include "common/ZIRKReadWhole.h"

namespace android {

class MediaBufferGroup;
struct ZIRKWaveFormat;

// Status of an index or stream number out of range, and of a 101st stream.
enum { kAVIErrorOutOfRange = -34 };

class ZIRKAVIExtractor : public MediaExtractor {
public:
    explicit ZIRKAVIExtractor(const sp<DataSource>& dataSource);

    size_t countTracks() override;
    sp<MediaSource> getTrack(size_t index) override;
    sp<MetaData> getTrackMetaData(size_t index, uint32_t flags) override;
    sp<MetaData> getMetaData() override;

    status_t initCheck() const { return mInitCheck; }

    struct SampleInfo {
        uint64_t mOffset;  // chunk header position (relative to movi for idx1)
        uint32_t mSize;    // data size according to the index
        bool mIsKey;
    };

    struct Track {
        enum Kind { AUDIO = 0, VIDEO = 1, OTHER = 2 };

        sp<MetaData> mMeta;
        Vector<SampleInfo> mSamples;
        uint32_t mScale;
        uint32_t mRate;
        uint32_t mBytesPerSample;
        Kind mKind;
        uint32_t mNumSyncSamples;
        uint32_t mThumbnailSampleSize;
        int32_t mThumbnailSampleIndex;
        uint32_t mMaxSampleSize;
        double mAvgChunkSize;
        uint32_t mFirstChunkSize;
        uint32_t mFormatTag;
        uint32_t mAudioType;  // a ZIRKAudioType
        uint32_t mBlockAlign;
        uint32_t mBitsPerSample;
    };

    static bool IsCorrectChunkType(int trackIndex, Track::Kind kind, uint32_t chunkType);

    status_t getSampleInfo(size_t trackIndex, size_t sampleIndex, int64_t* offset, uint32_t* size,
                           bool* isKey, int64_t* timeUs);
    status_t getSampleTime(size_t trackIndex, size_t sampleIndex, int64_t* timeUs);
    status_t getSampleIndexAtTime(size_t trackIndex, int64_t timeUs,
                                  MediaSource::ReadOptions::SeekMode mode, uint32_t* sampleIndex);

    // Test and tool access to the read-only tables.
    const Track& trackAt(size_t index) const { return mTracks[index]; }
    bool offsetsAreAbsolute() const { return mOffsetsAreAbsolute; }

    class AVISource;

protected:
    ~ZIRKAVIExtractor() override;

private:
    friend class AVISource;

    sp<DataSource> mDataSource;
    status_t mInitCheck;
    Vector<Track> mTracks;
    int64_t mMovieOffset;
    bool mFoundIndex;
    bool mOffsetsAreAbsolute;

    // Bound on the file positions and sample-table sizes the walk accepts,
    // fixed at the start of parseHeaders from the file size (when known).
    int64_t mFileSize;  // -1 when the source cannot tell
    ZIRKSampleLimit mSampleLimit;

    status_t parseHeaders();
    int32_t parseChunk(int64_t offset, int64_t size, int depth);
    status_t parseLeafChunk(uint32_t id, int64_t dataOffset, uint32_t chunkSize);
    status_t parseStreamHeader(int64_t dataOffset, int64_t size);
    status_t parseStreamFormat(int64_t dataOffset, int64_t size);
    status_t parseWaveFormat(const uint8_t* data, size_t length, Track* track);
    void setAACDescriptor(const ZIRKWaveFormat& wfx, Track* track);
    status_t parseIndex(int64_t dataOffset, int64_t size);
    status_t parseSuperIndex(int64_t dataOffset, int64_t size);
    status_t parseStandardIndex(int64_t chunkOffset, int64_t size);
    status_t finishTrack(size_t trackIndex, bool fromSuperIndex);
    status_t addSample(Track* track, uint64_t offset, uint32_t size, bool isKey);
    status_t addMPEG4CodecSpecificData(size_t trackIndex);
    status_t addH264CodecSpecificData(size_t trackIndex);
    status_t readFirstNonEmptySample(size_t trackIndex, sp<ABuffer>* out);
    status_t readWhole(int64_t offset, int64_t size, sp<ABuffer>* out);

    ZIRKAVIExtractor(const ZIRKAVIExtractor&) = delete;
    ZIRKAVIExtractor& operator=(const ZIRKAVIExtractor&) = delete;
};

// ZIRKAVIExtractor::AVISource: the MediaSource of one AVI track. Reads the
// track's chunks in index order, re-frames audio through a DataSplitter and
// rewrites H.264 length prefixes to start codes.
// Owner: the framework (sp<>); holds its extractor alive.
// Lifetime: constructed by getTrack; start → reads → stop, may start again.
// Threads: one reader thread; start/read/stop are never concurrent.
class ZIRKAVIExtractor::AVISource : public MediaSource {
public:
    AVISource(const sp<ZIRKAVIExtractor>& extractor, size_t trackIndex);

    status_t start(MetaData* params = nullptr) override;
    status_t stop() override;
    sp<MetaData> getFormat() override;
    status_t read(MediaBuffer** out, const ReadOptions* options = nullptr) override;

protected:
    ~AVISource() override;

private:
    sp<ZIRKAVIExtractor> mExtractor;
    uint32_t mTrackIndex;
    const Track& mTrack;
    MediaBufferGroup* mBufferGroup;
    uint32_t mSampleIndex;
    sp<DataSplitter> mSplitter;
    bool mIsAVC;

    status_t readFirstFrame(const ZIRKCheckSite& indexCheck, const ZIRKCheckSite& infoCheck, uint8_t* bytes,
                            size_t* length);

    AVISource(const AVISource&) = delete;
    AVISource& operator=(const AVISource&) = delete;
};

// Rewrites 4-byte big-endian NAL length prefixes to 00 00 00 01 in place; stops
// at the first start code already present or at a length that overruns.
void ZIRKAVIRewriteAVCLengths(uint8_t* data, size_t size);

bool ZIRKSniffAVI(const sp<DataSource>& source, String8* mimeType, float* confidence,
                  sp<AMessage>* meta);

}  // namespace android

extern "C" ZIRK_EXPORT const char* getZirkAviExtractorVersion();

#endif
