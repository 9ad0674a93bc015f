// AsfTrack: the payload reader's state for one ASF stream, one per
// ASFParser::Track at the same index, held by value in the parser. The
// header parser creates it with the stream's number and type and packet 0;
// ASFParser::getPayload fills its payload table from one data packet and
// ASFParser::getDataPacket hands the table out in order. Payload data are
// never copied: a PayloadEntry says where the bytes lie in the file. Owned
// by its parser; used by one reader thread at a time.
#ifndef ZIRK_ASF_TRACK_H_
#define ZIRK_ASF_TRACK_H_

#include <stdint.h>

#include <utils/Vector.h>

namespace android {

// Where one payload (or sub-payload) of a data packet lies, for one stream.
struct PayloadEntry {
    // Where the payload lies in its media object. Bit 0 set: it starts the
    // object; bit 1 set: it ends it.
    enum Kind : uint8_t {
        kMiddle = 0,
        kFirst = 1,
        kLast = 2,
        kWhole = 3,
    };

    int64_t offset;       // absolute file offset of the payload data
    uint32_t timeMs;      // presentation time less the file preroll, clamped at 0
    uint32_t length;      // payload data bytes
    uint32_t objectSize;  // size of the whole media object
    uint32_t keyFrame;    // 1 when bit 7 of the payload's stream number byte is set
    uint8_t kind;         // a Kind
};

// Bytes of the file the packet reader fetched last for one walk: packet and
// payload headers are parsed from here, and payload data that lie inside are
// copied from here (ASFParser::readPayload). The file is taken not to change
// while it is read, so bytes once fetched stay those of their offsets.
struct PacketBytes {
    // A whole packet of the usual sizes (ffmpeg writes 3,200 bytes, Windows
    // Media encoders at most a few KiB); larger packets are fetched in parts.
    static constexpr size_t kCapacity = 4096;

    // The n bytes at pos when all are held, else null.
    const uint8_t* at(int64_t pos, size_t n) const {
        if (length == 0 || pos < start || static_cast<uint64_t>(pos - start) > length) return nullptr;
        return n <= length - static_cast<size_t>(pos - start) ? bytes + (pos - start) : nullptr;
    }

    uint8_t bytes[kCapacity] = {};
    int64_t start = -1;  // file offset of bytes[0]
    size_t length = 0;   // bytes held
};

struct AsfTrack {
    // One seek point: a payload that starts a media object (for video, a
    // key frame), found through an index or by the audio index thread.
    struct SampleInfo {
        int64_t timeUs;         // the payload's time in ms x 1000
        int64_t packetIndex;    // the data packet holding it
        uint32_t payloadIndex;  // its slot in that packet's payload table for this stream
    };

    // Payloads one packet may hold for one stream. A packet declares at most
    // 63 payloads, but each compressed payload carries any number of
    // sub-payloads; this system keeps 256 slots and fails a packet with more.
    static constexpr uint32_t kPayloadCapacity = 256;

    AsfTrack() = default;
    AsfTrack(uint32_t stream, uint32_t trackType) : streamNumber(stream), type(trackType) {}
    virtual ~AsfTrack() = default;

    // The next descriptor to hand out, advancing the cursor; null when the
    // table is used up. The fields are open to the seek code, so the slot
    // operations also hold them to the array.
    const PayloadEntry* takeNext() { return cursor < filled() ? &payloads[cursor++] : nullptr; }
    // A fresh slot at the end of the table; null when it is full.
    PayloadEntry* append() {
        return count < capacity && count < kPayloadCapacity ? &payloads[count++] : nullptr;
    }
    void clearPayloads() { cursor = count = 0; }

    // Points the cursor at the payload whose time is nearest `targetMs` and
    // returns true, when the target lies within the table's first and last
    // times; otherwise puts the cursor at the end it lies beyond (the last
    // slot when after the first time, else slot 0) and returns false. Of two
    // equally near payloads the earlier wins. Times are compared in 64 bits,
    // so the sum of two neighbours cannot wrap.
    bool findNearestTime(int64_t targetMs);

    int64_t nextPacket = 0;     // index of the next data packet to parse
    uint32_t streamNumber = 0;  // ASF stream number (1-127)
    uint32_t type = 0;          // ASFParser::kTypeAudio or kTypeVideo
    // The seek index, in the order built (file order). Video lists are
    // complete when the parser is constructed. An audio list may be filled
    // by the parser's index thread: it is read only once the parser says the
    // index is done (ASFParser::indexDone), which publishes it.
    Vector<SampleInfo> mSampleInfos;
    uint32_t capacity = kPayloadCapacity;
    PayloadEntry payloads[kPayloadCapacity] = {};  // the last parsed packet's payloads of this stream
    uint32_t cursor = 0;        // next slot to hand out
    uint32_t count = 0;         // slots filled
    PacketBytes fetched;
    // Set when the last packet parsed held more than two payloads: the next
    // one is then fetched whole, one read for all its payload headers.
    bool wideFetch = false;
    // This track's bit in the parser's packet marks; 0 for none.
    uint8_t markBit = 0;

private:
    uint32_t filled() const { return count < kPayloadCapacity ? count : kPayloadCapacity; }
};

inline bool AsfTrack::findNearestTime(int64_t targetMs) {
    const uint32_t n = filled();
    if (n == 0) return false;
    const int64_t first = payloads[0].timeMs, last = payloads[n - 1].timeMs;
    // Times need not rise through a packet; a table whose last time is below
    // its first matches nothing, and the cursor goes by the first time only.
    if (targetMs < first || targetMs > last) {
        cursor = targetMs > first ? n - 1 : 0;
        return false;
    }
    for (uint32_t i = 0; i < n; ++i) {
        const int64_t time = payloads[i].timeMs;
        if (time < targetMs) continue;
        if (time == targetMs || i == 0) {
            cursor = i;
        } else {
            cursor = time + payloads[i - 1].timeMs < 2 * targetMs ? i : i - 1;
        }
        return true;
    }
    // Unreachable: the last time is at least the target.
    cursor = n - 1;
    return true;
}

}  // namespace android

#endif
