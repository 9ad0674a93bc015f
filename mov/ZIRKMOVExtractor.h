// ZIRKMOVExtractor: the MediaExtractor for QuickTime and ISO base media
// (MP4/3GPP) files. It walks the file's boxes once, on the first query, into
// a list of tracks (one per trak box), each with its format and its
// ZIRKMOVSampleTable, and the file-level metadata.
//
// Owner: the framework, through sp<>. Tracks are plain records owned by the
// extractor and freed with it; their sample tables are shared (sp<>) with
// the track sources.
// Lifetime: nothing is parsed by the constructor; the first of countTracks,
// getTrack, getTrackMetaData or getMetaData parses, and a failed parse is not
// retried. After that the track list, the metadata and mDataSource no longer
// change (getTrackMetaData may add the thumbnail time to a track's format).
// Threads: the extractor is queried from one thread.
//
// The walk reads every box within its declared size and its parent's: a
// child that claims to end past its parent is ERROR_MALFORMED at once (the
// parent would have refused the overrun on finishing anyway), and a field
// that would lie outside its own box is ERROR_MALFORMED rather than read from
// the next box. Nesting is held to kMaxBoxDepth.
#ifndef ZIRK_MOV_EXTRACTOR_H_
#define ZIRK_MOV_EXTRACTOR_H_

#include <stdint.h>
#include <sys/types.h>

#include <vector>

#include <media/stagefright/DataSource.h>
#include <media/stagefright/MediaExtractor.h>
#include <media/stagefright/MediaSource.h>
#include <media/stagefright/MetaData.h>
#include <media/stagefright/foundation/AMessage.h>
#include <utils/RefBase.h>
#include <utils/String8.h>
#include <utils/Vector.h>

#include "common/ZIRKExport.h"

namespace android {

// A protected track's IPMP data (raw bytes), as getDrmTrackInfo hands them out.
constexpr uint32_t kKeyDrmTrackInfo = 'ipmp';

class ZIRKMOVDataSource;
class ZIRKMOVSampleTable;

class ZIRKMOVExtractor : public MediaExtractor {
public:
    explicit ZIRKMOVExtractor(const sp<DataSource>& source);

    size_t countTracks() override;
    sp<MediaSource> getTrack(size_t index) override;
    sp<MetaData> getTrackMetaData(size_t index, uint32_t flags) override;
    sp<MetaData> getMetaData() override;
    char* getDrmTrackInfo(size_t trackID, int* len) override;

    // Boxes nested deeper than this end the walk with ERROR_MALFORMED. Real
    // files need about ten levels (moov/trak/mdia/minf/stbl/stsd/mp4a/wave/
    // esds; moov/udta/meta/ilst/item/data); 64 leaves room for odd writers
    // while keeping the recursion's stack small.
    static constexpr int kMaxBoxDepth = 64;

    struct Track {
        Track* next;
        sp<MetaData> meta;
        uint32_t timescale;
        sp<ZIRKMOVSampleTable> sampleTable;
        bool includesExpensiveMetadata;
        bool skipTrack;
        // Framing class of PCM/ADPCM/MP3 audio: 0 'sowt', 1 'twos', 3 and 4
        // the Microsoft ADPCM entries, 5 MP3, -1 anything else.
        int32_t audioFormat;
        int32_t blockAlign;
        uint16_t samplesPerPacket;
        uint16_t bytesPerFrame;
        // The sound description's sample size (bits of one channel's
        // sample): how the track source reads PCM.
        uint16_t bitsPerSample;
    };

    // The first track whose MIME type begins with `prefix` (case-insensitive).
    Track* findTrackByMimePrefix(const char* prefix);

protected:
    ~ZIRKMOVExtractor() override;

private:
    sp<DataSource> mDataSource;
    sp<ZIRKMOVDataSource> mCompressedSource;
    status_t mInitCheck;
    bool mHasVideo;
    Track* mFirstTrack;
    Track* mLastTrack;
    sp<MetaData> mFileMetaData;
    Vector<uint32_t> mPath;
    String8 mFreeformMean;
    String8 mFreeformName;
    String8 mFreeformData;
    bool mWaveEnded;
    bool mInWave;
    // Set when the movie's initial object descriptor (iods) points at IPMP
    // descriptors: the walk then goes on past moov to read the protection
    // data at the start of mdat (parseDrmSINF).
    bool mIsDrm;
    bool mReserved[4];
    // Boxes open on the C++ stack right now; the `depth` arguments restart
    // at 0 inside an expanded compressed header, this does not.
    int mNesting;

    status_t readMetaData();
    status_t parseChunk(off64_t* offset, int depth);
    // `parentEnd` is where the enclosing box ends (INT64_MAX at the top).
    status_t parseChunk(off64_t* offset, int depth, off64_t parentEnd);
    status_t parseBox(uint32_t type, off64_t* offset, off64_t boxStart, off64_t boxEnd, off64_t dataOffset,
                      off64_t dataSize, int depth);
    status_t parseContainerChildren(off64_t* offset, off64_t start, off64_t end, int depth);
    status_t parseTrackHeader(off64_t dataOffset, off64_t dataSize);
    status_t parseMediaHeader(off64_t dataOffset, off64_t dataSize);
    status_t parseSampleSizes(uint32_t type, off64_t dataOffset, off64_t dataSize);
    status_t parseDcom(off64_t* offset, int depth);
    status_t parseDcom(off64_t* offset, int depth, off64_t boxEnd);
    status_t verifyTrack(Track* track);

    // Sample descriptions and codec configuration (ZIRKMOVSampleEntries.cpp).
    // Each returns NAME_NOT_FOUND when `type` is not one it handles.
    status_t parseSampleEntryBox(uint32_t type, off64_t* offset, off64_t boxEnd, off64_t dataOffset,
                                 off64_t dataSize, int depth);
    status_t parseAudioSampleEntry(uint32_t type, off64_t* offset, off64_t boxEnd, off64_t dataOffset,
                                   off64_t dataSize, int depth);
    status_t parseVideoSampleEntry(uint32_t type, off64_t* offset, off64_t boxEnd, off64_t dataOffset,
                                   off64_t dataSize, int depth);
    status_t updateAudioTrackInfoFromESDS_MPEG4Audio(const void* esdsData, size_t esdsSize);

    // File metadata (ZIRKMOVMetaData.cpp).
    status_t parseMetaData(off64_t offset, off64_t size);
    status_t parse3gpUdtaMetaData(uint32_t type, off64_t offset, off64_t size);
    // The protection data: parseIods sets mIsDrm; parseDrmSINF reads the
    // object and IPMP descriptor updates at the start of mdat, from
    // dataOffset up to *offset (the box end, where *offset is left).
    status_t parseIods(off64_t dataOffset, off64_t dataSize);
    status_t parseDrmSINF(off64_t* offset, off64_t dataOffset);

    // Reads exactly `size` bytes at `offset` into *out, growing it only by
    // what has been read; ERROR_IO when the data ends first.
    status_t readPayload(off64_t offset, uint64_t size, std::vector<uint8_t>* out);
    bool readExact(off64_t offset, void* data, size_t size);

    ZIRKMOVExtractor(const ZIRKMOVExtractor&) = delete;
    ZIRKMOVExtractor& operator=(const ZIRKMOVExtractor&) = delete;
};

// Reads an MPEG-4 expandable length at `offset`: 7 bits a byte while the top
// bit is set, without a limit on the number of bytes (the loop ends where
// the data does); *numOfBytes counts the bytes read, modulo 256. -1 when a
// byte cannot be read. The value wraps at 32 bits.
int32_t readSize(off64_t offset, const sp<DataSource>& source, uint8_t* numOfBytes);

// Claims QuickTime movies (not ISO files without the "qt  " brand, unless
// their first box is one of QuickTime's); may hand back the end of the movie
// header as "meta-data-size". Stateless; safe from any thread.
bool ZIRKSniffMOV(const sp<DataSource>& source, String8* mimeType, float* confidence, sp<AMessage>* meta);

}  // namespace android

extern "C" ZIRK_EXPORT const char* getZirkMovExtractorVersion();

#endif
