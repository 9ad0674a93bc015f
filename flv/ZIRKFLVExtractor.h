// ZIRKFLVExtractor: the MediaExtractor of FLV files.
//
// On the first query it walks every tag of the file once (header, every
// PreviousTagSize, every audio/video/script tag) and builds at most one video
// and one audio track, each with a time-sorted table of tag offsets; video
// also keeps the times of its key frames. Codec configuration (AVC decoder
// configuration, AAC AudioSpecificConfig) comes from the sequence-header
// tags, width/height/duration from an onMetaData script tag.
//
// Ownership: reference-counted; the tracks are shared (sp<Track>) with the
// ZIRKFLVSources handed out by getTrack, so they outlive the extractor if a
// source does. Threads: queried from one framework thread; after the scan the
// tracks are read-only, so sources may read them from their own threads.
#ifndef ZIRK_FLV_EXTRACTOR_H_
#define ZIRK_FLV_EXTRACTOR_H_

#include <stddef.h>
#include <stdint.h>

#include <atomic>
#include <vector>

#include <media/stagefright/DataSource.h>
#include <media/stagefright/MediaExtractor.h>
#include <media/stagefright/MetaData.h>
#include <media/stagefright/foundation/AMessage.h>
#include <utils/RefBase.h>
#include <utils/SortedVector.h>
#include <utils/String8.h>
#include <utils/TypeHelpers.h>

#include "common/ZIRKExport.h"

namespace android {

struct ABuffer;

enum {
    FLV_TAG_TYPE_AUDIO = 8,
    FLV_TAG_TYPE_VIDEO = 9,
    FLV_TAG_TYPE_SCRIPT = 18,
};

enum {
    FLV_TRACK_VIDEO = 0,
    FLV_TRACK_AUDIO = 1,
    FLV_TRACK_COUNT = 2,
};

enum {
    FLV_VIDEO_CODEC_SORENSON = 2,
    FLV_VIDEO_CODEC_AVC = 7,
    FLV_AUDIO_FORMAT_AAC = 10,
    FLV_VIDEO_FRAME_KEY = 1,
    FLV_AVC_SEQUENCE_HEADER = 0,
    FLV_AAC_SEQUENCE_HEADER = 0,
};

// One row of the process-wide codec tables (indexed by the tag's 4-bit codec
// field). The tables are filled by a load-time initialiser because the MIME
// strings are the framework's imported variables. `supported` is atomic: the
// Sorenson switch may clear it while another thread's extractor reads it.
struct ZIRKFLVCodecInfo {
    const char* name;
    const char* mime;
    std::atomic<bool> supported;
};

// Row `codecId & 15` of the video (CodecID) and audio (SoundFormat) tables.
const ZIRKFLVCodecInfo& zirkFLVVideoCodec(uint32_t codecId);
const ZIRKFLVCodecInfo& zirkFLVAudioFormat(uint32_t soundFormat);

// A step of the tag scan: its name and the fixed lines its failure log
// lines report.
struct ZIRKFLVTagStep {
    const char* name;
    int tooShortLine;
    int readLine;
};

class ZIRKFLVExtractor : public MediaExtractor {
public:
    // One registered track. Built by the scan, read-only afterwards; shared by
    // the extractor and the track's sources.
    struct Track : public RefBase {
        explicit Track(bool audio);

        bool isAudio;
        sp<MetaData> meta;
        // tag time (us) -> file offset of the tag's 11-byte header; an entry
        // with a time already present replaces the older one.
        SortedVector<key_value_pair_t<int64_t, int64_t>> sampleTable;
        // Times (us) of video key frames; empty for audio.
        SortedVector<int64_t> syncTable;

    protected:
        ~Track() override {}
    };

    explicit ZIRKFLVExtractor(const sp<DataSource>& source);

    size_t countTracks() override;
    sp<MediaSource> getTrack(size_t index) override;
    sp<MetaData> getTrackMetaData(size_t index, uint32_t flags = 0) override;
    sp<MetaData> getMetaData() override;

protected:
    ~ZIRKFLVExtractor() override;

private:
    status_t readMetaData();
    status_t readFileHeader();
    status_t readFileBody();
    status_t readTagHeader(uint32_t& dataSize, uint32_t& tagType, int64_t& timeUs);
    status_t readAndCheckPrevTagSize(uint32_t expected);
    status_t readAndRegisterVideoTag(uint32_t dataSize, int64_t timeUs);
    status_t readTagPreview(const ZIRKFLVTagStep& step, uint32_t dataSize, uint8_t* preview);
    status_t skipUnsupportedTag(bool audio, const char* name, uint32_t dataSize);
    bool registerSample(const sp<Track>& track, int64_t timeUs, uint32_t dataSize, uint32_t* maxTagSize,
                        int64_t* maxTimeUs);
    status_t readAndRegisterAudioTag(uint32_t dataSize, int64_t timeUs);
    status_t readAndRegisterScriptTag(uint32_t dataSize);

    void finishVideoTrack();
    void finishAudioTrack();

    // readAt for the scan's small reads (headers, PreviousTagSize, the first
    // data bytes of a tag), served from a read-ahead window. Returns exactly
    // what mDataSource->readAt(offset, data, size) would.
    ssize_t readScanBytes(off64_t offset, void* data, size_t size);
    // False when the file size is known and fewer than `size` bytes remain at
    // `offset`: the guard before allocating from a tag's declared size.
    bool fileHasBytes(off64_t offset, uint64_t size);

    sp<DataSource> mDataSource;
    status_t mInitCheck;
    bool mHasVideo;
    bool mHasAudio;
    int32_t mTrackCount;
    sp<Track> mTracks[FLV_TRACK_COUNT];
    sp<MetaData> mFileMetaData;
    int64_t mOffset;
    bool mWarnUnsupportedAudio;
    bool mWarnUnsupportedVideo;
    int64_t mMaxAudioTimeUs;
    uint32_t mMaxAudioTagSize;
    int64_t mMaxVideoTimeUs;
    uint32_t mMaxVideoTagSize;
    int64_t mThumbnailTimeUs;

    // Read-ahead window of the scan; released when the scan ends.
    std::vector<uint8_t> mScanWindow;
    off64_t mScanWindowOffset;
    size_t mScanWindowLength;

    ZIRKFLVExtractor(const ZIRKFLVExtractor&) = delete;
    ZIRKFLVExtractor& operator=(const ZIRKFLVExtractor&) = delete;
};

bool ZIRKSniffFLV(const sp<DataSource>& source, String8* mimeType, float* confidence,
                  sp<AMessage>* meta);

}  // namespace android

extern "C" ZIRK_EXPORT const char* getZirkFlvExtractorVersion();

#endif
