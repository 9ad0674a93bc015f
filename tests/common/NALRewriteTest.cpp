// Length-prefix to start-code rewriting, shared by the containers: into a
// separate buffer sized from the sample, and inside one buffer (in place, or
// growing forwards from input placed at its end). Every overrun path must be
// closed; exact-size heap buffers for ASan.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "common/ZIRKNALRewrite.h"

using namespace android;

namespace {

typedef std::vector<uint8_t> Bytes;

const std::vector<Bytes> kUnits = {{0x65, 0x88, 0x84}, {0x41}, {}, {0x06, 0x05, 0x00, 0x80}};

// kUnits with `lengthSize`-byte big-endian lengths, or with start codes (0).
Bytes framed(size_t lengthSize) {
    Bytes out;
    for (const auto& u : kUnits) {
        for (size_t i = lengthSize; i > 0; --i) out.push_back(uint8_t(u.size() >> (8 * (i - 1))));
        if (lengthSize == 0) out.insert(out.end(), {0, 0, 0, 1});
        out.insert(out.end(), u.begin(), u.end());
    }
    return out;
}

ZIRKNALRewriteOptions withLengthSize(size_t n) {
    ZIRKNALRewriteOptions o;
    o.lengthSize = n;
    return o;
}

// Every length size; every smaller destination fails, having written whole
// units only; measuring alone gives the same counts.
TEST(ZIRKNALRewriteTest, EachLengthSizeAndEveryShortDestination) {
    const Bytes want = framed(0);
    for (size_t lengthSize = 1; lengthSize <= 4; ++lengthSize) {
        const Bytes src = framed(lengthSize);
        ZIRKNALRewriteResult measured;
        ASSERT_TRUE(ZIRKRewriteNALLengths(src.data(), src.size(), nullptr, 0, withLengthSize(lengthSize), &measured));
        EXPECT_TRUE(measured.written == want.size() && measured.units == kUnits.size() && measured.overrunBytes == 0);
        for (size_t cap = 0; cap <= want.size(); ++cap) {
            // new[] of exactly cap bytes: non-null even for 0, and ASan sees any byte past it.
            std::unique_ptr<uint8_t[]> dst(new uint8_t[cap]);
            ZIRKNALRewriteResult r;
            bool ok = ZIRKRewriteNALLengths(src.data(), src.size(), dst.get(), cap, withLengthSize(lengthSize), &r);
            EXPECT_EQ(ok, cap == want.size()) << lengthSize << " " << cap;
            EXPECT_LE(r.written, cap);
            EXPECT_TRUE(std::equal(dst.get(), dst.get() + r.written, want.begin()));
            EXPECT_TRUE(!ok || (r.written == want.size() && r.consumed == src.size() && r.overrunBytes == 0));
        }
    }
}

// The default policy on damaged input: an overlong length is cut at the end,
// a cut trailing length field is dropped, both counted as overrun. (The stop
// policy's only user is AVI: see AVICodecDataTest.AVCLengthsBecomeStartCodes.)
TEST(ZIRKNALRewriteTest, ClampPolicyInPlace) {
    const struct { const char* name; Bytes in, out; uint64_t overrun; } kCases[] = {
        {"clamped unit", {0, 0, 0, 0x10, 0x65, 0xAA}, {0, 0, 0, 1, 0x65, 0xAA}, 14},
        {"cut length field", {0, 0, 0, 1, 0x41, 0, 0}, {0, 0, 0, 1, 0x41, 0, 0}, 2},
        {"empty", {}, {}, 0},
    };
    for (const auto& c : kCases) {
        Bytes buf = c.in;
        ZIRKNALRewriteResult r;
        EXPECT_TRUE(ZIRKRewriteNALLengthsInBuffer(buf.data(), buf.size(), 0, buf.size(), {}, &r)) << c.name;
        EXPECT_EQ(buf, c.out) << c.name;
        EXPECT_EQ(r.overrunBytes, c.overrun) << c.name;
    }
}

// Shorter length fields grow the output: it needs the input placed far enough
// into the buffer, and is refused (untouched) otherwise.
TEST(ZIRKNALRewriteTest, GrowingInsideOneBuffer) {
    const Bytes want = framed(0);
    for (size_t lengthSize = 1; lengthSize <= 3; ++lengthSize) {
        const Bytes in = framed(lengthSize);
        const size_t growth = kUnits.size() * (4 - lengthSize);
        for (size_t offset : {growth, growth + 5, growth - 1, size_t(0)}) {
            Bytes buf(offset + in.size(), 0xEE);
            std::copy(in.begin(), in.end(), buf.begin() + offset);
            const Bytes before = buf;
            ZIRKNALRewriteResult r;
            const bool ok = ZIRKRewriteNALLengthsInBuffer(buf.data(), buf.size(), offset, in.size(),
                                                          withLengthSize(lengthSize), &r);
            EXPECT_EQ(ok, offset >= growth) << lengthSize << " @" << offset;
            EXPECT_EQ(r.written, want.size());
            if (ok) {
                EXPECT_TRUE(std::equal(want.begin(), want.end(), buf.begin())) << lengthSize << " @" << offset;
            } else {
                EXPECT_EQ(buf, before);
            }
        }
    }
}

// Pins rewrites of input the functions must refuse, leaving it untouched.
TEST(ZIRKNALRewriteTest, Refusals) {
    Bytes buf = framed(2), dst(64);
    ZIRKNALRewriteResult r;
    for (size_t bad : {size_t(0), size_t(5)}) {
        EXPECT_FALSE(ZIRKRewriteNALLengths(buf.data(), buf.size(), dst.data(), dst.size(), withLengthSize(bad), &r));
        EXPECT_FALSE(ZIRKRewriteNALLengthsInBuffer(buf.data(), buf.size(), 0, buf.size(), withLengthSize(bad), &r));
    }
    // Overlapping buffers belong to the in-buffer form.
    EXPECT_FALSE(ZIRKRewriteNALLengths(buf.data() + 2, buf.size() - 2, buf.data(), buf.size(), withLengthSize(2), &r));
    // A range outside the buffer.
    EXPECT_FALSE(ZIRKRewriteNALLengthsInBuffer(buf.data(), buf.size(), 1, buf.size(), withLengthSize(4), &r));
    EXPECT_FALSE(ZIRKRewriteNALLengthsInBuffer(buf.data(), buf.size(), buf.size() + 1, 0, withLengthSize(4), &r));
    EXPECT_EQ(buf, framed(2));
}

}  // namespace
