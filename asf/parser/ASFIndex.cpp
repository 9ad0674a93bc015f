// ASFParser's seek index: the Index and Simple Index Objects, the seek
// lookup by time, and the background thread that builds the audio seek list
// from the video one. The class comment in ASFParser.h says which thread may
// call what.
#define LOG_TAG "ASFParser"
#include "asf/parser/ASFParser.h"

#include <stdlib.h>

#include <memory>
#include <new>
#include <vector>

#include <media/stagefright/MediaErrors.h>
#include <media/stagefright/Utils.h>
#include <utils/Log.h>

#include "asf/parser/ZIRKASFChecks.h"
#include "common/ZIRKCachedFileSource.h"
#include "common/ZIRKSafeMath.h"

namespace android {

namespace {

// The same "%s,line:%d" form as the packet reader's failures: the function
// and the fixed line each message has always carried.
const char* const kLogAtLine = "%s,line:%d";
const char* const kLogBadTrackType = "Bad track type";
constexpr int kLineIndexEntriesShort = 757;
constexpr int kLineIndexPayload = 800;
constexpr int kLineSimpleIndexPayload = 900;
constexpr int kLineSearchFirst = 497;
constexpr int kLineSearchObjectStart = 551;
constexpr int kLineSeekIndexed = 1535;
constexpr int kLineSeekAudio = 1573;
constexpr int kLineSeekVideo = 1591;

constexpr int64_t kObjectHeaderSize = 24;

// Index Object: header, then Index Entry Time Interval (4), Index
// Specifiers Count (2), Index Blocks Count (4); then the specifiers.
constexpr int64_t kIndexMinLen = 34;
constexpr size_t kIndexFieldBytes = 10;
constexpr uint64_t kSpecifierBytes = 4;      // stream number, index type
constexpr uint64_t kBlockPositionBytes = 8;  // per specifier, in each block
constexpr uint64_t kIndexEntryBytes = 4;     // per specifier and entry
constexpr uint32_t kNoIndexEntry = 0xFFFFFFFF;
// Simple Index Object: header, File ID (16), then interval (8), maximum
// packet count (4), entry count (4); then the entries.
constexpr int64_t kSimpleIndexMinLen = 56;
constexpr int64_t kSimpleIndexFieldsAt = 40;
constexpr size_t kSimpleIndexFieldBytes = 16;
constexpr uint64_t kSimpleIndexEntryBytes = 6;  // packet number (4), packet count (2)

// Only the first seek points of a video track may pick its thumbnail: the
// largest early key frame.
constexpr size_t kThumbnailPoints = 20;

status_t failedAt(const char* function, int line, status_t err) {
    ALOGE(kLogAtLine, function, line);
    return err;
}

int64_t distance(int64_t a, int64_t b) { return a > b ? a - b : b - a; }

}  // namespace

void ASFParser::addSeekPoints(size_t trackIndex, AsfTrack* track, int64_t packet, bool needKeyFrame,
                              uint32_t* largest) {
    const uint32_t n = track->count < AsfTrack::kPayloadCapacity ? track->count : AsfTrack::kPayloadCapacity;
    for (uint32_t i = 0; i < n; ++i) {
        const PayloadEntry& e = track->payloads[i];
        if (!(e.kind & PayloadEntry::kFirst) || (needKeyFrame && !e.keyFrame)) continue;
        const AsfTrack::SampleInfo info = {static_cast<int64_t>(e.timeMs) * 1000, packet, i};
        track->mSampleInfos.push(info);
        // The largest of the early key frames is the thumbnail; a tie keeps
        // the earlier.
        if (track->type == kTypeVideo && track->mSampleInfos.size() < kThumbnailPoints && e.objectSize > *largest &&
            trackIndex < mTracks.size()) {
            *largest = e.objectSize;
            mTracks.editItemAt(trackIndex).thumbnailTimeUs = info.timeUs;
        }
    }
}

status_t ASFParser::parseIndexObject(int64_t offset, int64_t size, int64_t limit) {
    if (size < kIndexMinLen) return ERROR_MALFORMED;
    int64_t end;
    if (!zirkAdd(offset, size, &end) || end > limit) end = limit;
    uint8_t fields[kIndexFieldBytes];
    if (!readIn(offset + kObjectHeaderSize, end, fields, sizeof(fields))) return ERROR_MALFORMED;
    const uint16_t specifierCount = U16LE_AT(fields + 4);
    const uint32_t blockCount = U32LE_AT(fields + 6);
    if (specifierCount == 0 || blockCount == 0) return OK;

    // At most 65535 x 4 bytes, and only once the object is seen to hold them
    // (the fixed fields were read, so specifiersAt <= end).
    const int64_t specifiersAt = offset + kIndexMinLen;
    if (!zirkFitsIn(specifierCount, kSpecifierBytes, static_cast<uint64_t>(end - specifiersAt))) {
        return ERROR_MALFORMED;
    }
    std::vector<uint8_t> specifiers(specifierCount * kSpecifierBytes);
    if (!readIn(specifiersAt, end, specifiers.data(), specifiers.size())) return ERROR_MALFORMED;

    // Raw little-endian fields of the block being read.
    struct {
        std::unique_ptr<uint8_t[]> blockPositions;
        std::unique_ptr<uint8_t[]> indexEntries;
    } indexBlock;
    const size_t positionsBytes = specifierCount * kBlockPositionBytes;  // at most 512 KiB
    indexBlock.blockPositions.reset(new (std::nothrow) uint8_t[positionsBytes]);
    // Must stay fatal.
    ZIRK_CHECK_SITE(asfchecks::kParser, asfchecks::kBlockPositions, indexBlock.blockPositions != NULL);

    const uint32_t packetSize = mFileProps.maxDataPacketSize;
    int64_t pos = specifiersAt + static_cast<int64_t>(specifiers.size());
    // Each block takes at least its 4 + count x 8 bytes, so a count past what
    // the object holds ends at a short read.
    for (uint32_t block = 0; block < blockCount; ++block) {
        uint8_t entryCountBytes[4];
        if (!readIn(pos, end, entryCountBytes, sizeof(entryCountBytes))) break;
        const uint32_t entryCount = U32LE_AT(entryCountBytes);
        if (!readIn(pos + 4, end, indexBlock.blockPositions.get(), positionsBytes)) break;
        const int64_t entriesAt = pos + 4 + static_cast<int64_t>(positionsBytes);

        // Entries the object cannot hold are refused before anything is
        // allocated for them (their read could only come back short). The
        // block positions were read, so entriesAt <= end.
        uint64_t entriesBytes;
        if (!zirkMul(static_cast<uint64_t>(specifierCount) * entryCount, kIndexEntryBytes, &entriesBytes) ||
            entriesBytes > static_cast<uint64_t>(end - entriesAt)) {
            return failedAt("parseIndexObject", kLineIndexEntriesShort, ERROR_MALFORMED);
        }
        // A block bigger than this process can address cannot be held.
        indexBlock.indexEntries.reset(entriesBytes <= SIZE_MAX ? new (std::nothrow) uint8_t[entriesBytes] : nullptr);
        // Must stay fatal.
        ZIRK_CHECK_SITE(asfchecks::kParser, asfchecks::kIndexEntries, indexBlock.indexEntries != NULL);
        if (!readIn(entriesAt, end, indexBlock.indexEntries.get(), entriesBytes)) {
            return failedAt("parseIndexObject", kLineIndexEntriesShort, OK);
        }

        for (uint32_t s = 0; s < specifierCount; ++s) {
            const uint32_t stream = U16LE_AT(&specifiers[s * kSpecifierBytes]);
            // The first track of the stream that has no seek points yet: a
            // later block (or specifier) of the same stream finds none, so the
            // first one wins.
            size_t target = mAsfTracks.size();
            for (size_t i = 0; i < mAsfTracks.size(); ++i) {
                if (mAsfTracks[i].streamNumber == stream && mAsfTracks[i].mSampleInfos.isEmpty()) {
                    target = i;
                    break;
                }
            }
            if (target == mAsfTracks.size()) continue;
            AsfTrack& track = mAsfTracks.editItemAt(target);
            const uint64_t blockPosition = U64LE_AT(indexBlock.blockPositions.get() + s * kBlockPositionBytes);
            uint32_t largest = 0;
            int64_t lastPacket = -1;
            for (uint32_t e = 0; e < entryCount; ++e) {
                const uint32_t value =
                        U32LE_AT(indexBlock.indexEntries.get() + (static_cast<uint64_t>(e) * specifierCount + s) * 4);
                if (value == kNoIndexEntry) continue;
                // Packets of no size hold nothing to index.
                if (packetSize == 0) return failedAt("parseIndexObject", kLineIndexPayload, ERROR_MALFORMED);
                // Offsets are taken as signed 64-bit; one that wraps to a
                // negative packet never passes lastPacket.
                const int64_t packet = static_cast<int64_t>(blockPosition + value) / static_cast<int64_t>(packetSize);
                if (packet <= lastPacket) continue;
                lastPacket = packet;
                // getPayload may move lastPacket on to the next packet of the
                // stream; entries before it are then skipped.
                if (getPayload(&track, &lastPacket, 1) != OK) {
                    return failedAt("parseIndexObject", kLineIndexPayload, ERROR_MALFORMED);
                }
                addSeekPoints(target, &track, lastPacket, track.type == kTypeVideo, &largest);
                track.clearPayloads();
            }
        }
        // entriesAt + entriesBytes <= end, so this cannot wrap.
        pos = entriesAt + static_cast<int64_t>(entriesBytes);
    }
    return OK;
}

status_t ASFParser::parseSimpleIndexObject(int64_t offset, int64_t size, int64_t limit) {
    if (size < kSimpleIndexMinLen) return ERROR_MALFORMED;
    int64_t end;
    if (!zirkAdd(offset, size, &end) || end > limit) end = limit;
    uint8_t fields[kSimpleIndexFieldBytes];
    if (!readIn(offset + kSimpleIndexFieldsAt, end, fields, sizeof(fields))) return ERROR_MALFORMED;
    // The time interval and the maximum packet count are not used: the times
    // come from the payloads.
    const uint32_t entryCount = U32LE_AT(fields + 12);
    if (entryCount == 0) return OK;

    // Entries the object cannot hold are the short read they would be,
    // refused before anything is allocated for them (the fixed fields were
    // read, so entriesAt <= end); so are more than this process can address.
    const int64_t entriesAt = offset + kSimpleIndexMinLen;
    const uint64_t entriesBytes = entryCount * kSimpleIndexEntryBytes;  // < 2^35
    if (entriesBytes > static_cast<uint64_t>(end - entriesAt) || entriesBytes > SIZE_MAX) return ERROR_MALFORMED;
    std::vector<uint8_t> entries(static_cast<size_t>(entriesBytes));
    if (!readIn(entriesAt, end, entries.data(), entries.size())) return ERROR_MALFORMED;

    size_t target = mAsfTracks.size();
    for (size_t i = 0; i < mAsfTracks.size(); ++i) {
        if (mAsfTracks[i].type == kTypeVideo && mAsfTracks[i].mSampleInfos.isEmpty()) {
            target = i;
            break;
        }
    }
    if (target == mAsfTracks.size()) return OK;
    AsfTrack& track = mAsfTracks.editItemAt(target);
    uint32_t largest = 0;
    int64_t lastPacket = -1;
    for (uint32_t e = 0; e < entryCount; ++e) {
        const int64_t packet = U32LE_AT(&entries[e * kSimpleIndexEntryBytes]);
        if (packet <= lastPacket) continue;
        lastPacket = packet;
        if (getPayload(&track, &lastPacket, 1) != OK) {
            return failedAt("parseSimpleIndexObject", kLineSimpleIndexPayload, ERROR_MALFORMED);
        }
        // This index feeds video only, so the key-frame test always applies.
        addSeekPoints(target, &track, lastPacket, true, &largest);
    }
    track.clearPayloads();
    return OK;
}

status_t ASFParser::searchPayload(AsfTrack* track, int64_t timeUs, int64_t startPacket, AsfTrack::SampleInfo* info) {
    if (track == nullptr || info == nullptr) return kErrorOutOfRange;
    *info = AsfTrack::SampleInfo();
    info->packetIndex = startPacket;
    if (getPayload(track, &info->packetIndex, 1) != OK) {
        return failedAt("searchPayload", kLineSearchFirst, kErrorOutOfRange);
    }
    const int64_t targetMs = timeUs / 1000;
    // The lookup leaves the cursor inside the table when there is one.
    auto lookUp = [&]() {
        const bool found = track->findNearestTime(targetMs);
        info->timeUs = static_cast<int64_t>(track->payloads[track->cursor].timeMs) * 1000;
        info->payloadIndex = track->cursor;
        return found;
    };
    if (!lookUp()) {
        const int direction = info->timeUs < timeUs ? 1 : -1;
        int64_t best = distance(timeUs, info->timeUs);
        // Each turn moves at least one packet the same way and a failing
        // getPayload (past either end) stops it, so the walk ends.
        while (true) {
            int64_t cur = info->packetIndex + direction;
            if (getPayload(track, &cur, direction) != OK) break;
            if (lookUp()) {
                info->packetIndex = cur;
                break;
            }
            const int64_t d = distance(timeUs, info->timeUs);
            // Past the target: the packet stays the earlier one while the
            // slot is the later packet's, as this search has always done;
            // the object-start search below holds the slot to its packet.
            if (d >= best) break;
            best = d;
            info->packetIndex = cur;
        }
    }

    // The first object start at or after the found slot. The search is not
    // bounded: it moves one packet a turn and ends where the data end.
    int64_t packet = info->packetIndex;
    uint32_t slot = info->payloadIndex;
    while (true) {
        if (getPayload(track, &packet, 1) != OK) {
            return failedAt("searchPayload", kLineSearchObjectStart, kErrorOutOfRange);
        }
        for (uint32_t i = slot; i < track->count && i < AsfTrack::kPayloadCapacity; ++i) {
            if (track->payloads[i].kind & PayloadEntry::kFirst) {
                track->cursor = i;
                info->payloadIndex = i;
                info->packetIndex = packet;
                info->timeUs = static_cast<int64_t>(track->payloads[i].timeMs) * 1000;
                return OK;
            }
        }
        packet += 1;  // getPayload succeeded, so packet < the packet count
        slot = 0;
    }
}

status_t ASFParser::getDataPacketIndexAtTime(uint32_t trackIndex, int64_t timeUs,
                                             MediaSource::ReadOptions::SeekMode mode) {
    if (trackIndex >= mAsfTracks.size() || timeUs < 0) return kErrorOutOfRange;
    AsfTrack& track = mAsfTracks.editItemAt(trackIndex);

    // An audio list is read only once the index thread has published it.
    const bool listReady = track.type == kTypeVideo || (track.type == kTypeAudio && indexDone());
    if (listReady && track.mSampleInfos.size() > 1) {
        const Vector<AsfTrack::SampleInfo>& points = track.mSampleInfos;
        size_t lo = 0, hi = points.size() - 1, mid = 0;
        bool exact = false;
        while (hi - lo > 1) {
            mid = (lo + hi) / 2;
            if (points[mid].timeUs == timeUs) {
                // lo < mid < hi, so both stay in the list.
                lo = mid - 1;
                hi = mid + 1;
                exact = true;
                break;
            }
            if (points[mid].timeUs >= timeUs) {
                hi = mid;
            } else {
                lo = mid;
            }
        }
        // After an exact match the previous and next modes land one seek
        // point before and after it, and the closest modes on it: required
        // behaviour, kept deliberately. A mode outside the four is taken as
        // a closest one.
        size_t chosen;
        if (mode == MediaSource::ReadOptions::SEEK_PREVIOUS_SYNC) {
            chosen = lo;
        } else if (mode == MediaSource::ReadOptions::SEEK_NEXT_SYNC) {
            chosen = hi;
        } else if (exact) {
            chosen = mid;
        } else {
            // Times are at most 2^32 ms in us: the sum cannot wrap.
            chosen = (points[lo].timeUs + points[hi].timeUs) / 2 >= timeUs ? lo : hi;
        }
        int64_t packet = points[chosen].packetIndex;
        if (getPayload(&track, &packet, 1) != OK) {
            return failedAt("getDataPacketIndexAtTime", kLineSeekIndexed, ERROR_END_OF_STREAM);
        }
        // A slot past the table only makes the next read go on to the next
        // packet: the table hands out nothing past its count.
        track.cursor = points[chosen].payloadIndex;
        track.nextPacket = packet + 1;
        return OK;
    }

    // Without a usable list: the packet the time falls in if packets were
    // spread evenly. A duration of 0 or less gives no proportion; the
    // saturating conversion and the clamp keep the estimate in the data.
    const uint64_t packetCount = mFileProps.dataPacketsCount;
    int64_t estimate = zirkSaturateCast<int64_t>(static_cast<double>(packetCount) * static_cast<double>(timeUs) /
                                                 static_cast<double>(mDurationUs));
    if (estimate < 0) estimate = 0;
    if (static_cast<uint64_t>(estimate) >= packetCount) {
        estimate = packetCount == 0 ? -1 : zirkSaturateToInt64(static_cast<__int128>(packetCount) - 1);
    }
    // A count past any packet offset cannot be read anyway; this keeps the
    // step past the estimate below from wrapping.
    if (estimate == INT64_MAX) estimate -= 1;

    if (track.type == kTypeVideo) {
        // The seek mode is ignored: the key frame at or before the estimate,
        // else the first one after it.
        auto keyFrameSlot = [&]() -> int {
            for (uint32_t i = 0; i < track.count && i < AsfTrack::kPayloadCapacity; ++i) {
                const PayloadEntry& e = track.payloads[i];
                if (e.keyFrame && (e.kind & PayloadEntry::kFirst)) return static_cast<int>(i);
            }
            return -1;
        };
        int slot = -1;
        int64_t packet = estimate;
        // Each turn moves one packet down; getPayload fails below packet 0.
        while (getPayload(&track, &packet, -1) == OK && (slot = keyFrameSlot()) < 0) --packet;
        if (slot < 0) {
            // Every packet from the estimate down to where that walk stopped
            // held no key frame: the forward walk starts past the estimate
            // rather than visit them again.
            packet = estimate + 1;
            while (getPayload(&track, &packet, 1) == OK && (slot = keyFrameSlot()) < 0) ++packet;
        }
        if (slot < 0) return failedAt("getDataPacketIndexAtTime", kLineSeekVideo, ERROR_END_OF_STREAM);
        track.cursor = static_cast<uint32_t>(slot);
        track.nextPacket = packet + 1;
        return OK;
    }

    if (track.type == kTypeAudio) {
        // Start from the video seek point nearest the time (a tie takes the
        // later one), when a video track has a list: video lists are complete
        // from construction on.
        int64_t start = estimate;
        for (const AsfTrack& video : mAsfTracks) {
            if (video.type != kTypeVideo || video.mSampleInfos.size() <= 1) continue;
            const Vector<AsfTrack::SampleInfo>& points = video.mSampleInfos;
            size_t i = 0;
            while (i < points.size() && points[i].timeUs < timeUs) ++i;
            if (i == points.size()) {
                i = points.size() - 1;
            } else if (i > 0 && timeUs - points[i - 1].timeUs < points[i].timeUs - timeUs) {
                i -= 1;
            }
            start = points[i].packetIndex;
            break;
        }
        AsfTrack::SampleInfo info;
        if (searchPayload(&track, timeUs, start, &info) != OK) {
            return failedAt("getDataPacketIndexAtTime", kLineSeekAudio, ERROR_END_OF_STREAM);
        }
        track.nextPacket = info.packetIndex + 1;
        return OK;
    }

    ALOGE("%s", kLogBadTrackType);
    return kErrorBadTrackType;
}

void ASFParser::findVideoAndAudio(ssize_t* video, ssize_t* audio) const {
    *video = *audio = -1;
    for (size_t i = 0; i < mAsfTracks.size(); ++i) {
        if (mAsfTracks[i].type == kTypeVideo && *video < 0) *video = static_cast<ssize_t>(i);
        if (mAsfTracks[i].type == kTypeAudio && *audio < 0) *audio = static_cast<ssize_t>(i);
    }
}

status_t ASFParser::setupThread() {
    // Two audio tracks read first on two threads: one of them acts.
    if (mThreadSetUp.exchange(true)) return OK;
    ssize_t video, audio;
    findVideoAndAudio(&video, &audio);
    if (video >= 0 && audio >= 0 && !mAsfTracks[video].mSampleInfos.isEmpty() &&
        mAsfTracks[audio].mSampleInfos.isEmpty()) {
        mThreadRunning.store(true);
        pthread_attr_t attr;
        pthread_attr_init(&attr);
        pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_JOINABLE);
        const int err = pthread_create(&mThread, &attr, ThreadWrapper, this);
        pthread_attr_destroy(&attr);
        // A thread that could not be created is never joined, and audio
        // seeks keep to the estimate and search, as while a pass runs.
        if (err != 0) {
            mThreadRunning.store(false);
            mIndexDone.store(true, std::memory_order_release);
        }
        return OK;
    }
    mIndexDone.store(true, std::memory_order_release);
    return OK;
}

void* ASFParser::ThreadWrapper(void* parser) {
    static_cast<ASFParser*>(parser)->threadFunc();
    return nullptr;
}

void ASFParser::threadFunc() {
    ssize_t video, audio;
    findVideoAndAudio(&video, &audio);
    if (video < 0 || audio < 0) return;
    // The video list is complete and no longer changes; the audio list is
    // written only here until mIndexDone says it is complete.
    const Vector<AsfTrack::SampleInfo>& points = mAsfTracks[video].mSampleInfos;
    AsfTrack& target = mAsfTracks.editItemAt(audio);
    if (points.isEmpty() || !target.mSampleInfos.isEmpty()) return;
    // Packets are read only through this track, never through one a reader
    // uses.
    std::unique_ptr<AsfTrack> scratch(new AsfTrack(target.streamNumber, target.type));
    scratch->markBit = target.markBit;
    // A few packets at each seek point, while the readers stream through
    // the file: straight from the file, not through the readers' windows.
    ZIRKCachedFileSource::ScatteredReads scattered;
    for (size_t i = 0; i < points.size(); ++i) {
        // A cancelled pass leaves the index not done; the parser is going.
        if (!mThreadRunning.load()) return;
        AsfTrack::SampleInfo info;
        if (searchPayload(scratch.get(), points[i].timeUs, points[i].packetIndex, &info) != OK) break;
        target.mSampleInfos.push(info);
    }
    mIndexDone.store(true, std::memory_order_release);
}

}  // namespace android
