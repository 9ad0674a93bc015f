// The library's thread contract, checked against single-threaded runs on the
// real files: the tracks of an extractor read to the end on a thread each
// (two extractors sharing one data source), and sniffing plus getInstance on
// several threads at once, give exactly what one thread gets. The
// ThreadSanitizer build (ZIRK_SANITIZE=thread scripts/test.sh) runs these.
#include <zlib.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <media/stagefright/FileSource.h>

#include "TestDataSources.h"
#include "TrackReader.h"
#include "common/ZIRKCachedFileSource.h"
#include "entry/ZIRKExtractorEntry.h"

using namespace android;
using namespace android::test;

namespace {

sp<DataSource> openSource(bool cached, const std::string& path) {
    if (cached) return new ZIRKCachedFileSource(path.c_str());
    return new FileSource(path.c_str());
}

// job(0) .. job(count - 1), each on its own thread, all released together
// so that they overlap.
void runTogether(size_t count, const std::function<void(size_t)>& job) {
    std::atomic<size_t> waiting{count};
    std::vector<std::thread> threads;
    for (size_t i = 0; i < count; ++i) {
        threads.emplace_back([&waiting, &job, i] {
            waiting.fetch_sub(1);
            while (waiting.load() != 0) std::this_thread::yield();
            job(i);
        });
    }
    for (std::thread& t : threads) t.join();
}

// Bounded: a looping track must not hang the suite (the files hold hundreds).
TrackRead readToEnd(const sp<MediaSource>& track) { return readTrack(track, true, 100000); }

class ConcurrentTrackReadTest : public ::testing::TestWithParam<MediaFile> {};

TEST_P(ConcurrentTrackReadTest, TracksOnSeparateThreadsEqualOneThread) {
    const std::string path = testdataPath(GetParam().name);
    const char* mime = GetParam().containerMime;
    for (bool cached : {true, false}) {
        SCOPED_TRACE(cached ? "ZIRKCachedFileSource" : "FileSource");
        std::vector<TrackRead> want;
        sp<MediaExtractor> alone = getInstance(openSource(cached, path), mime);
        ASSERT_NE(alone, nullptr);
        for (size_t i = 0; i < alone->countTracks(); ++i) want.push_back(readToEnd(alone->getTrack(i)));
        ASSERT_FALSE(want.empty());
        for (const TrackRead& w : want) EXPECT_EQ(w.end, ERROR_END_OF_STREAM);

        // Several rounds, for different interleavings; two extractors share
        // the source, and each of their tracks has a thread.
        for (int round = 0; round < 10; ++round) {
            sp<DataSource> source = openSource(cached, path);
            std::vector<sp<MediaExtractor>> extractors;
            std::vector<sp<MediaSource>> tracks;
            for (int copy = 0; copy < 2; ++copy) {
                extractors.push_back(getInstance(source, mime));
                ASSERT_NE(extractors.back(), nullptr);
                ASSERT_EQ(extractors.back()->countTracks(), want.size());
                for (size_t i = 0; i < want.size(); ++i) tracks.push_back(extractors.back()->getTrack(i));
            }
            std::vector<TrackRead> got(tracks.size());
            runTogether(tracks.size(), [&](size_t i) { got[i] = readToEnd(tracks[i]); });
            for (size_t i = 0; i < got.size(); ++i) {
                expectSameRead(got[i], want[i % want.size()], "round " + std::to_string(round) + ", thread " +
                               std::to_string(i));
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(RealFiles, ConcurrentTrackReadTest, ::testing::ValuesIn(mediaTestFiles()), MediaFileName());

// Every entry of a metadata set as text; pointers by type only (they differ
// from run to run), other values by size and checksum.
std::string describe(const sp<MetaData>& meta) {
    std::string out;
    for (size_t i = 0; meta != nullptr && i < meta->countEntries(); ++i) {
        uint32_t key = 0, type = 0;
        const void* data = nullptr;
        size_t size = 0;
        meta->getEntryAt(i, &key, &type, &data, &size);
        uLong crc = type == MetaData::TYPE_POINTER ? 0 : crc32(0, static_cast<const Bytef*>(data), uInt(size));
        out += std::to_string(key) + ":" + std::to_string(type) + ":" + std::to_string(size) + ":" +
               std::to_string(crc) + " ";
    }
    return out;
}

// What a framework learns from sniffing a source and opening an extractor
// for what the sniffer said, as text.
std::string openFile(const sp<DataSource>& source) {
    String8 mime;
    float confidence = 0;
    sp<AMessage> meta;
    if (!sniffZIRKExtractor(source, &mime, &confidence, &meta)) return "unclaimed";
    std::string out = std::string(mime.c_str()) + " @" + std::to_string(confidence);
    sp<MediaExtractor> extractor = getInstance(source, mime.c_str());
    if (extractor == nullptr) return out + " no extractor";
    out += " file " + describe(extractor->getMetaData());
    for (size_t i = 0; i < extractor->countTracks(); ++i) {
        out += " | " + describe(extractor->getTrackMetaData(i, MediaExtractor::kIncludeExtensiveMetaData));
    }
    return out;
}

TEST(ConcurrentOpenTest, SniffAndGetInstanceOnManyThreadsEqualOneThread) {
    std::vector<std::string> names;
    for (const MediaFile& f : mediaTestFiles()) names.push_back(f.name);
    // Files no sniffer claims, so that the RealMedia bridge is asked too.
    names.insert(names.end(), {"aac_mono_44100.m4a", "mp3_44100_stereo.mp3"});
    std::vector<std::string> want;
    std::vector<sp<DataSource>> shared;
    for (const std::string& name : names) {
        want.push_back(openFile(openSource(false, testdataPath(name))));
        shared.push_back(openSource(true, testdataPath(name)));
    }
    EXPECT_TRUE(std::any_of(want.begin(), want.end(), [](const std::string& w) { return w != "unclaimed"; }));
    EXPECT_EQ(want.back(), "unclaimed");

    // Pass 0: all threads start at the same file; later passes: each at its
    // own. Even threads share one source per file, odd ones open their own.
    constexpr size_t kThreads = 4, kPasses = 4;
    std::vector<std::vector<std::pair<size_t, std::string>>> got(kThreads);
    runTogether(kThreads, [&](size_t t) {
        for (size_t pass = 0; pass < kPasses; ++pass) {
            for (size_t k = 0; k < names.size(); ++k) {
                size_t f = (k + pass * t * names.size() / kThreads) % names.size();
                sp<DataSource> source = t % 2 ? openSource(false, testdataPath(names[f])) : shared[f];
                got[t].emplace_back(f, openFile(source));
            }
        }
    });
    for (size_t t = 0; t < kThreads; ++t) {
        for (const auto& [f, opened] : got[t]) EXPECT_EQ(opened, want[f]) << names[f] << ", thread " << t;
    }
}

}  // namespace
