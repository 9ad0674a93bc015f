// ASFParser: reads an ASF (WMV/WMA) file's objects through a DataSource and
// holds what the rest of the ASF demultiplexer works from: one Track (and
// one AsfTrack) per audio or video stream, the File Properties, the file
// duration, the offset of the first data packet and the file metadata. It
// also reads the data packets, on demand, into each AsfTrack's payload table.
//
// The whole header is parsed once, in the constructor, on the caller's
// thread; initCheck() gives the result. A parser is shared by sp<> between
// the extractor and its sources and lives as long as the last of them.
// After construction the header state is only read; each track's packet
// reading (getDataPacket) belongs to that track's one reader thread.
#ifndef ZIRK_ASF_PARSER_H_
#define ZIRK_ASF_PARSER_H_

#include <stdint.h>

#include <media/stagefright/DataSource.h>
#include <media/stagefright/MetaData.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>
#include <utils/Vector.h>

#include "asf/parser/AsfTrack.h"
#include "common/ZIRKExport.h"

namespace android {

class ASFParser : public RefBase {
public:
    enum TrackType : uint32_t {
        kTypeAudio = 0,
        kTypeVideo = 1,
    };

    // At most this many streams become tracks; the next one fails the parse
    // with kErrorTooManyStreams (ASF stream numbers are 7-bit; the track
    // list is capped at 100).
    static constexpr size_t kMaxStreams = 100;
    // The negated ERANGE errno value.
    static constexpr status_t kErrorTooManyStreams = -34;
    // The same value, for a track index (or a packet reader argument) out of
    // range.
    static constexpr status_t kErrorOutOfRange = -34;

    // One accepted audio or video stream.
    struct Track {
        sp<MetaData> mMeta;          // format, set by the extractor; a track left without one is hidden
        uint32_t streamNumber;       // Stream Properties flags & 0x7F
        uint32_t type;               // kTypeAudio or kTypeVideo
        uint32_t maxSampleSize;      // audio: the file's maximum packet size; video: see parseObject
        int64_t durationUs;          // the file duration when the stream was met
        int64_t thumbnailTimeUs;     // 0 until the index sets it
        int64_t typeSpecificOffset;  // absolute offset of WAVEFORMATEX/BITMAPINFOHEADER data, 0 if none
    };

    // What an Extended Stream Properties Object says of a stream's largest
    // media object, kept only when it is at least the maximum packet size.
    struct TrackExt {
        uint32_t streamNumber;
        uint32_t maxObjectSize;
    };

    // The 64 bytes of the File Properties Object after its File ID, in file
    // order. Play and send durations are in 100 ns units, preroll in ms.
    struct FileProps {
        uint64_t fileSize;
        uint64_t creationDate;
        uint64_t dataPacketsCount;
        uint64_t playDuration;
        uint64_t sendDuration;
        uint64_t preroll;
        uint32_t flags;
        uint32_t minDataPacketSize;
        uint32_t maxDataPacketSize;
        uint32_t maxBitrate;
    };

    explicit ASFParser(const sp<DataSource>& source);

    status_t initCheck() const { return mInitCheck; }
    const sp<MetaData>& fileMeta() const { return mFileMeta; }
    const Vector<Track>& tracks() const { return mTracks; }
    const Vector<AsfTrack>& asfTracks() const { return mAsfTracks; }
    const Vector<TrackExt>& trackExts() const { return mTrackExts; }
    int64_t durationUs() const { return mDurationUs; }
    int64_t dataPacketsOffset() const { return mDataPacketsOffset; }
    const FileProps& fileProps() const { return mFileProps; }

    // Reads a variable-width packet field: length type 0/1/2/3 means 0/1/2/4
    // bytes (anything else 0), read little-endian into the low bytes of
    // *value, which is zeroed first. Returns the width.
    uint32_t getTypeLength(uint8_t lengthType, int64_t offset, uint32_t* value);

    // Parses data packets from *packetIndex on, moving by `step` (+1 or -1)
    // past packets that hold nothing of the track's stream, until one does:
    // fills the track's payload table with that packet's payloads of the
    // stream and leaves *packetIndex at it. Returns OK, kErrorOutOfRange for
    // a null track (or a null index or another step), or ERROR_MALFORMED for
    // a damaged packet or a walk that leaves the data packets.
    status_t getPayload(AsfTrack* track, int64_t* packetIndex, int step);
    // Copies the track's next payload descriptor to *entry, parsing the
    // track's next packet when its table is used up. Returns OK,
    // kErrorOutOfRange for a bad track index (or a null entry), or the error
    // of getPayload.
    status_t getDataPacket(uint32_t trackIndex, PayloadEntry* entry);

protected:
    ~ASFParser() override;

private:
    // Each object parser takes the absolute offset of the object's 24-byte
    // header, the size the object declares and `limit`, the end of the bytes
    // its parent may be read up to. The object is read only within its
    // declared size clamped to that limit.
    status_t parseObject();
    status_t parseHeaderObject(int64_t offset, int64_t size, int64_t limit);
    status_t parseFilePropObject(int64_t offset, int64_t size, int64_t limit);
    status_t parseStreamPropObject(int64_t offset, int64_t size, int64_t limit);
    status_t parseHeaderExtObject(int64_t offset, int64_t size, int64_t limit);
    status_t parseExtStreamPropObject(int64_t offset, int64_t size, int64_t limit);
    status_t parseContentDescriptionObject(int64_t offset, int64_t size, int64_t limit);
    status_t parseExtContentDescriptionObject(int64_t offset, int64_t size, int64_t limit);

    // Walks the objects of [pos, pos + remaining), readable up to `end`,
    // calling handle(header, offset, size, &step) for each with its 24 header
    // bytes; the handler may change how far the walk steps past it. At top
    // level a size below 24 ends the walk (logged, not an error).
    template <typename Handler>
    status_t walkObjects(int64_t pos, int64_t remaining, int64_t end, bool topLevel, Handler&& handle);
    // Appends to the track's table the payloads of its stream in the data
    // packet starting at `start`; see getPayload.
    status_t parseDataPacket(AsfTrack* track, int64_t start);
    // True when all n bytes at pos lie below `end` and were read.
    bool readIn(int64_t pos, int64_t end, void* data, size_t n);

    sp<MetaData> mFileMeta;
    Vector<Track> mTracks;
    Vector<AsfTrack> mAsfTracks;
    Vector<TrackExt> mTrackExts;
    sp<DataSource> mDataSource;
    int64_t mDurationUs;
    int64_t mDataPacketsOffset;
    FileProps mFileProps;
    status_t mInitCheck;

    ASFParser(const ASFParser&) = delete;
    ASFParser& operator=(const ASFParser&) = delete;
};

}  // namespace android

// The parser's build string.
extern "C" ZIRK_EXPORT const char* getAsfParserVer();

#endif
