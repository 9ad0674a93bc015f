// Seek-point resolution shared by the demultiplexers. Each finds, its own
// way, the candidate at or before a seek target and the one at or after it
// (either may be missing); this picks the one a seek mode takes, with the
// container's own rule for a closest-mode tie. Stateless.
#ifndef ZIRK_SEEK_INDEX_H_
#define ZIRK_SEEK_INDEX_H_

#include <stdint.h>

#include <media/stagefright/MediaSource.h>

namespace android {

// Which candidate a closest-mode seek takes when both are equally far away:
// AVI takes the later one, FLV the earlier.
enum class ZIRKSeekTie { kEarlier, kLater };

struct ZIRKSeekCandidates {
    bool havePrev;
    bool haveNext;
    int64_t prev;  // index of the candidate at or before the target
    int64_t next;  // index of the candidate at or after it
    uint64_t prevDistance;
    uint64_t nextDistance;
};

// SEEK_CLOSEST is resolved like SEEK_CLOSEST_SYNC here (callers that seek
// to any frame for it decide so before asking). False when the mode's side
// has no candidate, and for a value that is no seek mode (callers keep their
// own fatal check for that).
inline bool ZIRKChooseSeekPoint(const ZIRKSeekCandidates& c, MediaSource::ReadOptions::SeekMode mode,
                                ZIRKSeekTie tie, int64_t* chosen) {
    switch (mode) {
        case MediaSource::ReadOptions::SEEK_PREVIOUS_SYNC:
            *chosen = c.prev;
            return c.havePrev;
        case MediaSource::ReadOptions::SEEK_NEXT_SYNC:
            *chosen = c.next;
            return c.haveNext;
        case MediaSource::ReadOptions::SEEK_CLOSEST_SYNC:
        case MediaSource::ReadOptions::SEEK_CLOSEST:
            if (c.havePrev && c.haveNext) {
                bool takeNext = tie == ZIRKSeekTie::kLater ? !(c.prevDistance < c.nextDistance)
                                                           : c.nextDistance < c.prevDistance;
                *chosen = takeNext ? c.next : c.prev;
                return true;
            }
            *chosen = c.havePrev ? c.prev : c.next;
            return c.havePrev || c.haveNext;
        default:
            return false;
    }
}

}  // namespace android

#endif
