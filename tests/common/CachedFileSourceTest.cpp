// ZIRKCachedFileSource must return exactly what a plain pread returns, for
// every read pattern the extractors use (small header reads walking forward,
// reads straddling window edges, large direct reads, reads past the end), and
// stay exact with several threads reading at once.
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <media/stagefright/FileSource.h>

#include "TestDataSources.h"
#include "common/ZIRKCachedFileSource.h"

using namespace android;

namespace {


struct Read {
    off64_t offset;
    size_t size;
};

// The patterns: a forward walk of small reads (a tag scan), two walks taking
// turns, an index walk, reads around every window edge, direct reads at and around the bypass threshold, direct
// reads followed by the small reads of an interleaved file (inside and across
// the end of the page a direct read brings along), the end of the file, and
// random reads.
std::vector<Read> readPattern(size_t fileSize, uint32_t seed) {
    const size_t window = ZIRKCachedFileSource::kWindowBytes;
    const size_t direct = ZIRKCachedFileSource::kDirectReadBytes;
    std::vector<Read> reads;
    for (size_t at = 0; at < fileSize; at += 4093) reads.push_back({static_cast<off64_t>(at), 13});
    for (size_t edge = window; edge < fileSize + window; edge += window) {
        reads.push_back({static_cast<off64_t>(edge) - 5, 11});
        reads.push_back({static_cast<off64_t>(edge), 1});
    }
    reads.push_back({0, direct - 1});
    reads.push_back({1, direct});
    reads.push_back({3, direct + 1});
    const size_t page = ZIRKCachedFileSource::kSparseRefillBytes;
    for (size_t at = 0; at + direct + page < fileSize; at += 3 * direct + 77) {
        reads.push_back({static_cast<off64_t>(at), direct + 5});
        reads.push_back({static_cast<off64_t>(at + direct + 9), 11});
        reads.push_back({static_cast<off64_t>(at + direct + 5 + page - 3), 8});
    }
    if (fileSize > direct + 100) {
        // Direct reads whose following page is cut short by the end of the file.
        reads.push_back({static_cast<off64_t>(fileSize - direct - 100), direct + 90});
        reads.push_back({static_cast<off64_t>(fileSize - 10), 10});
        reads.push_back({static_cast<off64_t>(fileSize - direct), direct});
        reads.push_back({static_cast<off64_t>(fileSize - 3), 5});
    }
    // Two walks a little apart taking turns (one per track: a refill stops
    // where the other's window starts), and an index walk: a few small steps
    // after each jump (refills growing from a few pages).
    for (size_t at = 0; at + 100000 < fileSize; at += 3001) {
        reads.push_back({static_cast<off64_t>(at + 100000), 17});
        reads.push_back({static_cast<off64_t>(at), 17});
    }
    for (size_t at = 0; at + 4 * 1601 < fileSize; at += 17600) {
        for (size_t step = 0; step < 4; ++step) reads.push_back({static_cast<off64_t>(at + step * 1601), 128});
    }
    reads.push_back({static_cast<off64_t>(fileSize) - 7, 100});
    reads.push_back({static_cast<off64_t>(fileSize), 10});
    reads.push_back({static_cast<off64_t>(fileSize) + 1000, 10});
    reads.push_back({0, 0});
    std::mt19937 rng(seed);
    for (int i = 0; i < 300; ++i) {
        size_t size = (i % 10 == 0) ? rng() % (3 * direct) : rng() % 600;
        reads.push_back({static_cast<off64_t>(rng() % (fileSize + 64)), size});
    }
    return reads;
}

void expectSameReads(const sp<DataSource>& plain, const sp<DataSource>& cached, size_t fileSize,
                     uint32_t seed, const std::string& name) {
    std::vector<uint8_t> a, b;
    for (const Read& r : readPattern(fileSize, seed)) {
        a.assign(r.size, 0xAA);
        b.assign(r.size, 0x55);
        ssize_t na = plain->readAt(r.offset, a.data(), r.size);
        ssize_t nb = cached->readAt(r.offset, b.data(), r.size);
        ASSERT_EQ(na, nb) << name << " @" << r.offset << "+" << r.size;
        if (na > 0) {
            ASSERT_TRUE(std::equal(a.begin(), a.begin() + na, b.begin())) << name << " @" << r.offset << "+" << r.size;
        }
    }
}

// Pins reads that differ from pread for a file smaller than a direct read,
// one within a window and one spanning several (reads cross window edges and
// windows are evicted under readers): sizes agree, and so do the reads of one
// reader and of more readers than windows at once, some of them reading past
// the windows.
TEST(CachedFileSourceTest, ReadsEqualPlainPreadAlsoConcurrently) {
    const size_t kDirect = ZIRKCachedFileSource::kDirectReadBytes, kWindow = ZIRKCachedFileSource::kWindowBytes;
    for (size_t size : {size_t(1000), 3 * kDirect + 333, 5 * kWindow + 12345}) {
        std::vector<uint8_t> bytes(size);
        std::mt19937 rng(static_cast<uint32_t>(size));
        for (uint8_t& b : bytes) b = static_cast<uint8_t>(rng());
        char path[] = "/tmp/zirk-cached-XXXXXX";
        int fd = mkstemp(path);
        ASSERT_GE(fd, 0);
        ASSERT_EQ(write(fd, bytes.data(), size), static_cast<ssize_t>(size));
        close(fd);
        sp<DataSource> plain = new FileSource(path), cached = new ZIRKCachedFileSource(path);
        off64_t cachedSize = 0;
        EXPECT_TRUE(cached->getSize(&cachedSize) == OK && cachedSize == off64_t(size));
        expectSameReads(plain, cached, size, 1, std::to_string(size));
        std::vector<std::thread> threads;
        for (uint32_t t = 0; t < ZIRKCachedFileSource::kWindowCount + 2; ++t) {
            // Odd threads read past the windows, as a background index pass does.
            threads.emplace_back([&, t] {
                std::unique_ptr<ZIRKCachedFileSource::ScatteredReads> scattered(
                        t % 2 ? new ZIRKCachedFileSource::ScatteredReads : nullptr);
                expectSameReads(plain, cached, size, 100 + t, std::to_string(size));
            });
        }
        for (std::thread& t : threads) t.join();
        unlink(path);
    }
}

// Pins a missing file or a directory taken as open, and a negative offset read.
TEST(CachedFileSourceEdgeTest, BadPathsAndOffsets) {
    sp<DataSource> missing = new ZIRKCachedFileSource("/nonexistent/zirk");
    EXPECT_EQ(missing->initCheck(), NO_INIT);
    uint8_t byte;
    EXPECT_EQ(missing->readAt(0, &byte, 1), NO_INIT);
    sp<DataSource> directory = new ZIRKCachedFileSource(test::testdataPath("").c_str());
    EXPECT_EQ(directory->initCheck(), NO_INIT);
    sp<DataSource> file = new ZIRKCachedFileSource(test::testdataPath("flv_aac_only.flv").c_str());
    EXPECT_EQ(file->readAt(-1, &byte, 1), ERROR_IO);
}

}  // namespace
