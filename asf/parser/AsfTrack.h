// AsfTrack: the payload reader's state for one ASF stream, one per
// ASFParser::Track at the same index, held by value in the parser. The
// header parser creates it with the stream's number and type and packet 0;
// the payload table and the seek points come with the packet reader and the
// index. Owned by its parser; used by one reader thread at a time.
#ifndef ZIRK_ASF_TRACK_H_
#define ZIRK_ASF_TRACK_H_

#include <stdint.h>

namespace android {

struct AsfTrack {
    AsfTrack() = default;
    AsfTrack(uint32_t stream, uint32_t trackType) : streamNumber(stream), type(trackType) {}
    virtual ~AsfTrack() = default;

    int64_t nextPacket = 0;     // index of the next data packet to parse
    uint32_t streamNumber = 0;  // ASF stream number (1-127)
    uint32_t type = 0;          // ASFParser::kTypeAudio or kTypeVideo
};

}  // namespace android

#endif
