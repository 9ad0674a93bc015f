// ZIRKMOVDataSource: which reads the plain cache and the expanded movie
// header serve, the sizes it refuses before allocating, and readers on
// several threads.
#include <zlib.h>

#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <media/stagefright/MediaErrors.h>

#include "LogCapture.h"
#include "TestDataSources.h"
#include "mov/ZIRKMOVDataSource.h"

using namespace android;
using namespace android::test;

namespace {

using Bytes = std::vector<uint8_t>;

Bytes pattern(size_t n, uint8_t seed) {
    Bytes b(n);
    for (size_t i = 0; i < n; ++i) b[i] = static_cast<uint8_t>(i * 31 + seed);
    return b;
}

Bytes deflate(const Bytes& in) {
    uLongf n = compressBound(in.size());
    Bytes out(n);
    EXPECT_EQ(compress(out.data(), &n, in.data(), in.size()), Z_OK);
    out.resize(n);
    return out;
}

// Reads `size` bytes at `offset`; the bytes, or empty with *status set.
Bytes readAt(const sp<ZIRKMOVDataSource>& s, off64_t offset, size_t size, ssize_t* status) {
    Bytes b(size);
    *status = s->readAt(offset, b.data(), size);
    if (*status != static_cast<ssize_t>(size)) b.clear();
    return b;
}

// The cache is made from a healthy file; then the file fails every read, so
// whatever still reads came from memory.
TEST(ZIRKMOVDataSourceTest, PlainCacheServesOnlyReadsInsideIt) {
    const Bytes file = pattern(4096, 1);
    sp<FaultySource> faulty = new FaultySource(file, FaultySource::kNone, 0);
    sp<ZIRKMOVDataSource> s = new ZIRKMOVDataSource(faulty);
    ASSERT_EQ(s->setCachedRange(1000, 500), OK);
    faulty->setFault(FaultySource::kNegativeRead, 0);
    const struct { off64_t offset; size_t size; ssize_t status; } cases[] = {
        {1000, 500, 500}, {1200, 1, 1}, {1499, 1, 1}, {1400, 101, ERROR_IO} /* straddles: goes whole to the file */,
        {999, 2, ERROR_IO}, {1500, 0, 0}, {-1, 1, ERROR_IO},
    };
    for (const auto& c : cases) {
        ssize_t status;
        Bytes got = readAt(s, c.offset, c.size, &status);
        EXPECT_EQ(status, c.status) << c.offset << "+" << c.size;
        if (status > 0) {
            EXPECT_EQ(got, Bytes(file.begin() + c.offset, file.begin() + c.offset + c.size));
        }
    }
    // readSampleAt always goes to the file.
    uint8_t byte;
    EXPECT_EQ(s->readSampleAt(1200, &byte, 1), ERROR_IO);
    // A short read leaves no cache; a range past the file is refused before
    // any allocation or read.
    faulty->setFault(FaultySource::kShortRead, 1100);
    EXPECT_EQ(s->setCachedRange(1000, 500), ERROR_IO);
    ssize_t status;
    readAt(s, 1000, 10, &status);
    EXPECT_EQ(status, 10);  // from the file, which still has those bytes
    EXPECT_EQ(s->setCachedRange(4000, 97), ERROR_MALFORMED);
    EXPECT_EQ(s->setCachedRange(1, SIZE_MAX), ERROR_MALFORMED);
}

// An expanded header is the whole address space from then on: reads past
// its length fail with the log line even where the file has bytes.
TEST(ZIRKMOVDataSourceTest, ExpandedHeaderAnswersEveryRead) {
    const Bytes header = pattern(3000, 7);
    const Bytes packed = deflate(header);
    Bytes file = pattern(100, 9);
    file.insert(file.end(), packed.begin(), packed.end());
    file.resize(file.size() + 5000, 0xEE);
    sp<ZIRKMOVDataSource> s = new ZIRKMOVDataSource(new MemorySource(file));
    ASSERT_EQ(s->setCompressedCachedRange(100, header.size() + 50, packed.size()), OK);
    LogCapture log;
    ssize_t status;
    EXPECT_EQ(readAt(s, 0, header.size(), &status), header);  // zlib's length, not the declared one
    EXPECT_EQ(readAt(s, 2990, 10, &status), Bytes(header.end() - 10, header.end()));
    readAt(s, 2991, 10, &status);
    EXPECT_EQ(status, ERROR_IO);
    readAt(s, 4000, 1, &status);
    EXPECT_EQ(status, ERROR_IO);
    EXPECT_EQ(log.count("read beyond the compressed cache range, offset(4000), size=1 ", ANDROID_LOG_ERROR), 1u);
    uint8_t byte;
    EXPECT_EQ(s->readSampleAt(4000, &byte, 1), 1);
    EXPECT_EQ(byte, 0xEE);
    // Clearing the expanded buffer does not leave compressed mode.
    s->clearCompressedCache();
    readAt(s, 0, 1, &status);
    EXPECT_EQ(status, ERROR_IO);
}

// Sizes are the file's word. A declared expanded size too small for the
// stream, a zip bomb (64 MiB of zeros declared as 1 MiB), sizes past the caps
// or the file, and a cut stream all fail without a cache.
TEST(ZIRKMOVDataSourceTest, CompressedRangesThatCannotExpandFail) {
    const Bytes header = pattern(3000, 7);
    const Bytes packed = deflate(header);
    Bytes bomb;
    {
        z_stream z = {};
        ASSERT_EQ(deflateInit(&z, 9), Z_OK);
        Bytes zeros(1 << 20, 0), out(1 << 20);
        z.next_out = out.data();
        z.avail_out = static_cast<uInt>(out.size());
        for (int i = 0; i < 64; ++i) {
            z.next_in = zeros.data();
            z.avail_in = static_cast<uInt>(zeros.size());
            ASSERT_EQ(deflate(&z, i == 63 ? Z_FINISH : Z_NO_FLUSH), i == 63 ? Z_STREAM_END : Z_OK);
        }
        out.resize(out.size() - z.avail_out);
        deflateEnd(&z);
        bomb = out;
    }
    const struct { const char* name; Bytes data; size_t declared; size_t compressed; status_t status; } cases[] = {
        {"declared size too small", packed, header.size() - 1, packed.size(), ERROR_IO},
        {"zip bomb", bomb, 1 << 20, bomb.size(), ERROR_IO},
        {"stream cut short", packed, header.size(), packed.size() / 2, ERROR_IO},
        {"expanded size past the cap", packed, size_t(1) << 40, packed.size(), ERROR_MALFORMED},
        {"compressed size past the file", packed, header.size(), packed.size() + 1, ERROR_MALFORMED},
        {"not zlib at all", Bytes(64, 0x55), 4096, 64, ERROR_IO},
    };
    for (const auto& c : cases) {
        sp<ZIRKMOVDataSource> s = new ZIRKMOVDataSource(new MemorySource(c.data));
        EXPECT_EQ(s->setCompressedCachedRange(0, c.declared, c.compressed), c.status) << c.name;
        uint8_t byte;
        EXPECT_EQ(s->readAt(0, &byte, 1), c.data.empty() ? 0 : 1) << c.name << ": still plain";
    }
}

// Track sources read through one wrapper at once: every reader gets exactly
// the bytes of the file, in both modes.
TEST(ZIRKMOVDataSourceTest, ConcurrentReadersGetExactBytes) {
    const Bytes header = pattern(1 << 16, 3);
    const Bytes packed = deflate(header);
    const Bytes file = packed;
    sp<ZIRKMOVDataSource> plain = new ZIRKMOVDataSource(new MemorySource(header));
    ASSERT_EQ(plain->setCachedRange(4096, 8192), OK);
    sp<ZIRKMOVDataSource> expanded = new ZIRKMOVDataSource(new MemorySource(file));
    ASSERT_EQ(expanded->setCompressedCachedRange(0, header.size(), packed.size()), OK);
    std::vector<std::thread> threads;
    std::vector<int> mismatches(4, 0);
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            const sp<ZIRKMOVDataSource>& s = t % 2 ? plain : expanded;
            Bytes buffer(300);
            for (size_t i = 0; i < 2000; ++i) {
                size_t offset = (i * 7919 + t * 131) % (header.size() - buffer.size());
                if (s->readAt(offset, buffer.data(), buffer.size()) != static_cast<ssize_t>(buffer.size()) ||
                    !std::equal(buffer.begin(), buffer.end(), header.begin() + offset)) {
                    ++mismatches[t];
                }
            }
        });
    }
    for (std::thread& t : threads) t.join();
    EXPECT_EQ(mismatches, std::vector<int>(4, 0));
}

}  // namespace
