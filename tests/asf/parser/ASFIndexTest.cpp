// The ASF seek index: Index and Simple Index Objects (the key-frame and
// thumbnail rules, entries refused or failing; the counts no object could
// hold are rows of tests/hostile/ASFHostileTest.cpp), the seek lookup in every
// mode with its exact-match rule, the no-index estimate and walks, the audio
// index thread's life and the fatal allocation checks.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "ASFBuilder.h"
#include "CheckMatchers.h"
#include "LogCapture.h"
#include "TestDataSources.h"
#include "asf/parser/ASFParser.h"
#include "media/stagefright/MediaErrors.h"

// Sanitizer runtimes own operator new: the allocation-failure death test replaces it, so it is left out there.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define ZIRK_TEST_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define ZIRK_TEST_SANITIZED 1
#endif
#endif

namespace {

using namespace android;
using namespace android::test;
using namespace android::test::asf;
using Mode = MediaSource::ReadOptions::SeekMode;

// Counts reads; slow ones sleep, so that an index pass outlasts the test's steps.
struct CountingSource : MemorySource {
    explicit CountingSource(Bytes b) : MemorySource(std::move(b)) {}
    ssize_t readAt(off64_t o, void* d, size_t n) override {
        if (++reads, slow) std::this_thread::sleep_for(std::chrono::microseconds(200));
        return MemorySource::readAt(o, d, n);
    }
    std::atomic<int> reads{0};
    std::atomic<bool> slow{false};
};

// `n` packets of 100 ms, packet i: audio (stream 1, track 0) and video (stream 2, track 1; key frame when bit
// i % 64 of `keys` is set; 30 bytes at i % 6 == 2, else 10) at 100 i ms, and with `audio2` audio stream 3
// (track 2); then `tail`.
Bytes file(int n, uint64_t keys, const Bytes& tail, bool audio2 = false) {
    std::vector<Packet> packets;
    for (uint32_t i = 0; i < uint32_t(n); ++i) {
        const uint32_t len = i % 6 == 2 ? 30 : 10;
        const uint8_t video = 2 | (keys >> i % 64 & 1) << 7;
        packets.push_back({{part(1, 0, 10, 100 * i, 10, 1), part(video, 0, len, 100 * i, len, 2)}});
        if (audio2) packets.back().payloads.push_back(part(3, 0, 10, 100 * i, 10, 3));
    }
    std::vector<Bytes> streams = {streamProps(kGuidAudioMedia, 1), streamProps(kGuidVideoMedia, 2)};
    if (audio2) streams.push_back(streamProps(kGuidAudioMedia, 3));
    return asfFile(streams, packets, 200, n * 1000000ull, 0, tail);
}
// A track's seek points: " ms@packet/slot" each.
std::string points(const sp<ASFParser>& p, size_t track) {
    std::string s;
    for (const AsfTrack::SampleInfo& i : p->asfTracks()[track].mSampleInfos) {
        s += " " + std::to_string(i.timeUs / 1000) + "@" + std::to_string(i.packetIndex) + "/" +
             std::to_string(i.payloadIndex);
    }
    return s;
}
// The seek's status, then the time (K: key frame) of the payload the next read hands out.
std::string seek(const sp<ASFParser>& p, uint32_t track, int64_t ms, int mode) {
    const status_t err = p->getDataPacketIndexAtTime(track, ms * 1000, Mode(mode));
    PayloadEntry e = {};
    if (err != OK || p->getDataPacket(track, &e) != OK) return std::to_string(err);
    return "0 t" + std::to_string(e.timeMs) + (e.keyFrame ? "K" : "");
}
bool waitDone(const sp<ASFParser>& p) {
    for (int i = 0; i < 10000 && !p->indexDone(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return p->indexDone();
}

TEST(ASFIndexTest, IndexObjects) {
    // Which entries of either index become seek points (video: key frames only; audio: any), the thumbnail
    // (the largest key frame), and the entry counts and positions that fail the parse. Six packets, key frames
    // at 0, 2 and 4; the video frame of packet 2 is the largest.
    const std::string none = "-1007 v: a: th0";
    const struct { const char* name; Bytes index; std::string want; } kRows[] = {
        {"SimpleKeyFramesOnly", simpleIndex({0, 1, 2, 3, 4, 5}), "0 v: 0@0/0 200@2/0 400@4/0 a: th200"},
        {"SimpleRepeatsAndEarlierVisitOnce", simpleIndex({0, 0, 1, 1, 0, 4}), "0 v: 0@0/0 400@4/0 a: th0"},
        {"SimplePacketPastTheData", simpleIndex({9}), none + "|parseSimpleIndexObject,line:900"},
        {"BothStreamsAudioNeedsNoKeyFrame", indexObject({2, 1}, {{{0, 0}, {0, 0, 200, 200, 400, 400, 600, 600}}}),
         "0 v: 0@0/0 200@2/0 a: 0@0/0 100@1/0 200@2/0 300@3/0 th200"},
        {"NoEntryValueAndRepeatsSkipped", indexObject({1}, {{{0}, {0xFFFFFFFF, 0, 100, 200, 0xFFFFFFFF}}}),
         "0 v: a: 0@0/0 100@1/0 th0"},
        {"BlockPositionIsAdded", indexObject({1}, {{{400}, {0}}}), "0 v: a: 200@2/0 th0"},
        {"FirstBlockOfAStreamWins", indexObject({1}, {{{0}, {0}}, {{0}, {400}}}), "0 v: a: 0@0/0 th0"},
        {"UnknownStreamSkipped", indexObject({9}, {{{0}, {0}}}), "0 v: a: th0"},
        {"EntryCountRefusedBeforeAllocating", indexObject({1, 2}, {{{0, 0}, {}, 0xFFFFFFFF}}),
         none + "|parseIndexObject,line:757"},
        {"EntryPastTheData", indexObject({1}, {{{0}, {5000}}}), none + "|parseIndexObject,line:800"},
    };
    for (const auto& row : kRows) {
        LogCapture log;
        sp<ASFParser> p = new ASFParser(new MemorySource(file(6, 0x15, row.index)));
        EXPECT_EQ(row.want, std::to_string(p->initCheck()) + " v:" + points(p, 1) + " a:" + points(p, 0) + " th" +
                                    std::to_string(p->tracks()[1].thumbnailTimeUs / 1000) + log.joined(6))
                << row.name;
    }
}

TEST(ASFIndexTest, Seek) {
    // Each mode around, at and between seek points, the exact-match rule (an exact hit on point k takes k - 1
    // before / k + 1 after, but not for the first point), the no-index estimate and its forward walk (the real
    // file's test walks back, and seeks audio to exact times), audio seeks through the video points, and the
    // failures. Sixteen packets: A with video seek points at 0, 200, ... 1400 ms (point 5 at 1000), B with two
    // (200, 400), C and D without index (D's one key frame at 500), E without any key frame; Z without packets.
    // Modes: 0 previous, 1 next, 2 closest sync, 3 closest.
    const Bytes a = file(16, 0x5555, simpleIndex({0, 2, 4, 6, 8, 10, 12, 14}));
    const Bytes b = file(16, 0x5555, simpleIndex({2, 4})), c = file(16, 0x5555, {}), d = file(16, 1 << 5, {});
    const Bytes e = file(16, 0, {}), z = file(0, 0, {});
    const struct { const char* name; const Bytes& file; uint32_t track; int64_t ms; int mode; std::string want; }
    kRows[] = {
        {"ExactPrevious", a, 1, 1000, 0, "0 t800K"}, {"ExactNext", a, 1, 1000, 1, "0 t1200K"},
        {"ExactClosestSync", a, 1, 1000, 2, "0 t1000K"}, {"ExactClosest", a, 1, 1000, 3, "0 t1000K"},
        {"ExactFirstPointPrevious", a, 1, 0, 0, "0 t0K"}, {"ExactPoint3Previous", a, 1, 600, 0, "0 t400K"},
        {"BetweenPrevious", a, 1, 1050, 0, "0 t1000K"}, {"BetweenNext", a, 1, 1050, 1, "0 t1200K"},
        {"BetweenNearerEarlier", a, 1, 1099, 3, "0 t1000K"}, {"BetweenMidpointEarlier", a, 1, 1100, 2, "0 t1000K"},
        {"BetweenNearerLater", a, 1, 1101, 2, "0 t1200K"}, {"PastTheLastPoint", a, 1, 99999, 1, "0 t1400K"},
        {"BeforeFirstOfTwoNext", b, 1, 100, 1, "0 t400K"}, {"BeforeFirstOfTwoPrevious", b, 1, 100, 0, "0 t200K"},
        {"NoIndexPastTheEnd", c, 1, 99999, 0, "0 t1400K"}, {"NoIndexWalksForward", d, 1, 100, 0, "0 t500K"},
        {"NoKeyFrameAtAll", e, 1, 100, 0, "-1011|getDataPacketIndexAtTime,line:1591"},
        {"AudioNearestVideoPoint", a, 0, 730, 0, "0 t700"}, {"AudioByEstimate", c, 0, 730, 0, "0 t700"},
        {"AudioPastTheEnd", c, 0, 99999, 2, "0 t1500"},
        {"AudioNothingToFind", z, 0, 0, 0, "-1011|searchPayload,line:497|getDataPacketIndexAtTime,line:1573"},
        {"NegativeTime", a, 1, -1, 0, "-34"}, {"TrackOutOfRange", a, 2, 0, 0, "-34"},
    };
    for (const auto& row : kRows) {
        LogCapture log;
        const std::string got = seek(new ASFParser(new MemorySource(row.file)), row.track, row.ms, row.mode);
        EXPECT_EQ(row.want, got + log.joined(6)) << row.name;
    }
    // A seek point whose packet can no longer be read (the file cut after the index was read), a track of no
    // type (which no file makes), and a read of a track past the last.
    LogCapture log;
    sp<FaultySource> cut = new FaultySource(a, FaultySource::kNone, 0);
    sp<ASFParser> p = new ASFParser(cut), q = new ASFParser(new MemorySource(a));
    cut->setFault(FaultySource::kShortRead, 0);
    const_cast<AsfTrack&>(q->asfTracks()[1]).type = 7;
    std::string got = seek(p, 1, 0, 0);
    got += " " + seek(q, 1, 0, 0);
    EXPECT_EQ("-1011 -22|getPayload,line:1257|getDataPacketIndexAtTime,line:1535|Bad track type", got + log.joined(6));
    PayloadEntry entry;
    EXPECT_EQ(ASFParser::kErrorOutOfRange, q->getDataPacket(2, &entry));
}

#ifndef ZIRK_TEST_SANITIZED
// From this size on, nothrow array allocations (the parser's index blocks) fail as they would out of memory.
std::atomic<size_t> gFailArraysFrom{SIZE_MAX};

TEST(ASFIndexTest, AllocationFailuresStayFatal) {
    // A failed index allocation must stay a fatal check. Counts the object holds, so the allocations are tried:
    // 512 KiB of block positions, 800 KB of entries. (Left out under the sanitizers: they own operator new.)
    const struct { Bytes index; size_t from; int line; const char* check; } kRows[] = {
        {indexObject(std::vector<uint64_t>(0xFFFF, 9), {}, 1), 0xFFFF * 8, 735,
         "CHECK(indexBlock.blockPositions != NULL) failed."},
        {indexObject({9}, {{{0}, std::vector<uint64_t>(200000, 0)}}), 800000, 753,
         "CHECK(indexBlock.indexEntries != NULL) failed."}};
    for (const auto& row : kRows) {
        const sp<DataSource> source = new MemorySource(file(2, 1, row.index));
        EXPECT_DEATH((gFailArraysFrom = row.from, sp<ASFParser>(new ASFParser(source))),
                     checkMessageAt("asf/parser/ASFParser", row.line, row.check));
    }
}
#endif

// The audio index thread, with readers on other threads; run under ThreadSanitizer.
TEST(ASFIndexConcurrentTest, ThreadLifeWithSeveralReaders) {
    // No thread before the first audio read: an audio seek takes the nearest video point (800 ms) and searches
    // (700 ms). The first reads of two audio tracks, on two threads, start one pass (for the first audio track)
    // while those tracks and the video track seek and read, each on its own thread. Once done, the audio list (a
    // point per video point) is used. Without video points no thread is needed: the index is done at the first
    // audio read.
    sp<ASFParser> p = new ASFParser(new MemorySource(file(64, ~0ull / 3, simpleIndex({0, 8, 16, 24, 32, 40, 48, 56}),
                                                          true)));
    sp<ASFParser> none = new ASFParser(new MemorySource(file(16, ~0ull / 3, {})));
    EXPECT_EQ("0 t700", seek(p, 0, 730, 2));
    std::vector<std::thread> readers;
    std::atomic<int> failures{0};
    for (uint32_t track = 0; track < 3; ++track) {
        readers.emplace_back([&, track] {
            PayloadEntry e;
            for (int i = 0; i < 40; ++i) {
                failures += (p->getDataPacket(track, &e) != OK) +
                            (p->getDataPacketIndexAtTime(track, (i * 1531 % 6400) * 1000, Mode(i % 4)) != OK);
            }
        });
    }
    for (std::thread& t : readers) t.join();
    EXPECT_EQ(0, failures.load());
    ASSERT_TRUE(waitDone(p));
    EXPECT_EQ(" 0@0/0 800@8/0 1600@16/0 2400@24/0 3200@32/0 4000@40/0 4800@48/0 5600@56/0|0 t800",
              points(p, 0) + points(p, 2) + "|" + seek(p, 0, 730, 2));
    PayloadEntry e;
    EXPECT_FALSE(none->indexDone());
    ASSERT_EQ(OK, none->getDataPacket(0, &e));
    EXPECT_TRUE(none->indexDone());
}

TEST(ASFIndexConcurrentTest, DestructionMidPassStopsAndJoins) {
    // A slow source: a parser released just after starting its pass makes far fewer reads than a full pass, and
    // none once released (the thread was stopped and joined).
    std::vector<uint64_t> all(200);
    for (int i = 0; i < 200; ++i) all[i] = 2 * i;
    const Bytes bytes = file(400, ~0ull / 3, simpleIndex(all));
    int reads[2];
    for (int cancel = 0; cancel < 2; ++cancel) {
        sp<CountingSource> source = new CountingSource(bytes);
        sp<ASFParser> p = new ASFParser(source);
        PayloadEntry e;
        source->slow = true;
        const int before = source->reads;
        ASSERT_EQ(OK, p->getDataPacket(0, &e));
        if (!cancel) {
            ASSERT_TRUE(waitDone(p));
        }
        p.clear();
        reads[cancel] = source->reads - before;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        EXPECT_EQ(reads[cancel], source->reads - before);
    }
    EXPECT_LT(reads[1] * 4, reads[0]);
}

}  // namespace

#ifndef ZIRK_TEST_SANITIZED
void* operator new[](size_t n, const std::nothrow_t&) noexcept {
    return n >= gFailArraysFrom ? nullptr : malloc(n ? n : 1);
}
#endif
