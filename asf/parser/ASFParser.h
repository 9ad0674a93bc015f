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
// reading (getDataPacket, getDataPacketIndexAtTime) belongs to that track's
// one reader thread.
//
// The constructor also reads the Index or Simple Index Object into the
// tracks' seek lists. When the file has a video index but no audio one, the
// first audio read starts one background thread that builds the audio list
// by searching the audio stream near every video seek point. That thread
// reads packets only through its own scratch AsfTrack and appends only to
// the audio track's mSampleInfos, which readers use only after indexDone()
// (an acquire load of the release store that ends the pass). No lock guards
// the list: no reader touches it before that store, and a lock around the
// list measured about 5% slower per audio seek from memory. The destructor
// asks a running pass to stop at its next seek point and joins the thread.
#ifndef ZIRK_ASF_PARSER_H_
#define ZIRK_ASF_PARSER_H_

#include <pthread.h>
#include <stdint.h>

#include <atomic>
#include <memory>

#include <media/stagefright/DataSource.h>
#include <media/stagefright/MediaSource.h>
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
    // A seek on a track of neither type: BAD_VALUE, the negated EINVAL.
    static constexpr status_t kErrorBadTrackType = -22;

    // One accepted audio or video stream.
    struct Track {
        sp<MetaData> mMeta;          // format, set by the extractor; a track left without one is hidden
        uint32_t streamNumber;       // Stream Properties flags & 0x7F
        uint32_t type;               // kTypeAudio or kTypeVideo
        uint32_t maxSampleSize;      // audio: the file's maximum packet size; video: see parseObject
        int64_t durationUs;          // the file duration when the stream was met
        int64_t thumbnailTimeUs;     // 0 until the index sets it
        int64_t typeSpecificOffset;  // absolute offset of WAVEFORMATEX/BITMAPINFOHEADER data, 0 if none
        // Bytes of type-specific data the stream declares, held to what its
        // Stream Properties Object (within its parent) holds; 0 if none.
        uint32_t typeSpecificLength;
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

    // For the extractor and its sources.
    // The track at `index` for the extractor to set its format (mMeta) and,
    // for video, its maxSampleSize; null when out of range. Called only
    // while the extractor is constructed, before any source reads.
    Track* editTrack(size_t index) { return index < mTracks.size() ? &mTracks.editItemAt(index) : nullptr; }

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
    // Reads the entry's payload data (handed out by getDataPacket for that
    // track) into data, which holds entry.length bytes: from the bytes the
    // track's packet reader holds when they cover it, else from the source.
    // Returns what DataSource::readAt returns. Same thread rules as
    // getDataPacket.
    ssize_t readPayload(uint32_t trackIndex, const PayloadEntry& entry, void* data);

    // Positions the track so that its next getDataPacket returns the payload
    // chosen for timeUs by `mode`: through the track's seek list when it has
    // one that is ready, else by estimate and packet search. Returns OK,
    // kErrorOutOfRange for a bad track index or a negative time,
    // kErrorBadTrackType for a track of neither type, or ERROR_END_OF_STREAM
    // when no position is found.
    status_t getDataPacketIndexAtTime(uint32_t trackIndex, int64_t timeUs,
                                      MediaSource::ReadOptions::SeekMode mode);
    // Finds, for the track's stream, the object-starting payload nearest
    // timeUs searching from startPacket: fills *info and leaves the track's
    // table at that packet with the cursor on that payload. Returns OK, or
    // kErrorOutOfRange for a null argument or when nothing is found.
    status_t searchPayload(AsfTrack* track, int64_t timeUs, int64_t startPacket, AsfTrack::SampleInfo* info);
    // True once the audio seek list is complete: no index thread was needed,
    // or its pass has ended. Until then an audio track's mSampleInfos may be
    // growing on the index thread and must not be read.
    bool indexDone() const { return mIndexDone.load(std::memory_order_acquire); }

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
    status_t parseDataObject(int64_t offset, int64_t size);
    status_t parseIndexObject(int64_t offset, int64_t size, int64_t limit);
    status_t parseSimpleIndexObject(int64_t offset, int64_t size, int64_t limit);
    // Adds the seek points of the packet now in `track`'s table (track
    // `trackIndex`) under the key-frame rule, and the thumbnail rule for
    // video with *largest, the largest object size seen so far.
    void addSeekPoints(size_t trackIndex, AsfTrack* track, int64_t packet, bool needKeyFrame, uint32_t* largest);

    // The audio index thread: setupThread starts it (or marks the index done
    // when none is needed) on the first audio read; ThreadWrapper is its
    // entry, taking the parser.
    status_t setupThread();
    static void* ThreadWrapper(void* parser);
    void threadFunc();
    // The first video and first audio track, or -1 each.
    void findVideoAndAudio(ssize_t* video, ssize_t* audio) const;

    // Walks the objects of [pos, pos + remaining), readable up to `end`,
    // calling handle(header, offset, size, &step) for each with its 24 header
    // bytes; the handler may change how far the walk steps past it. At top
    // level a size below 24 ends the walk (logged, not an error).
    template <typename Handler>
    status_t walkObjects(int64_t pos, int64_t remaining, int64_t end, bool topLevel, Handler&& handle);
    // Appends to the track's table the payloads of its stream in the data
    // packet starting at `start`; see getPayload.
    // *seen gets the mark bits of the streams met (see mPacketMarks).
    status_t parseDataPacket(AsfTrack* track, int64_t start, uint8_t* seen);
    // Gives the first kMarkedTracks tracks their mark bits and allocates the
    // packet marks; called once the header parse has succeeded.
    void setUpPacketMarks();
    // The packet walk reads its fields through the walk's PacketBytes (one
    // source read for the packet header and each payload header, or for the
    // whole packet, not one for each field); results are those of reading
    // each field alone.
    class PacketWindow;
    uint32_t getTypeLength(PacketWindow& window, uint8_t lengthType, int64_t offset, uint32_t* value);
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

    // One byte per data packet, shared by every walk of the file: bit 7
    // (kPacketParsed) says the packet was parsed without error, bit t (t <
    // kMarkedTracks) that it holds payloads of track t's stream. A walk for a
    // track passes a parsed packet without its bit unread: in a file of large
    // video objects the audio walk then reads only the packets the video walk
    // has not passed yet and those holding audio. Each mark is a pure
    // function of the file's bytes, so relaxed loads and stores suffice.
    static constexpr size_t kMarkedTracks = 7;
    static constexpr uint8_t kPacketParsed = 0x80;
    // One byte each: 4 Mi packets cover 12.5 GiB of 3,200-byte packets
    // within 4 MiB; later packets are parsed by every walk.
    static constexpr uint64_t kMaxPacketMarks = 4u << 20;
    std::unique_ptr<std::atomic<uint8_t>[]> mPacketMarks;
    size_t mPacketMarkCount;
    uint8_t mStreamMarkBits[128];  // by stream number: the bits of its tracks

    pthread_t mThread;
    // Set when the thread is started; cleared only by the destructor, which
    // is what asks a running pass to stop.
    std::atomic<bool> mThreadRunning;
    // Set (release) when no thread is needed or its pass has ended.
    std::atomic<bool> mIndexDone;
    // Claimed by the one call of setupThread that acts, so that two audio
    // tracks' first reads on different threads start at most one thread.
    std::atomic<bool> mThreadSetUp;

    ASFParser(const ASFParser&) = delete;
    ASFParser& operator=(const ASFParser&) = delete;
};

}  // namespace android

// The parser's build string.
extern "C" ZIRK_EXPORT const char* getAsfParserVer();

#endif
