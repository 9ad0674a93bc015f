// Length-prefix to start-code rewriting into a caller buffer sized from the
// sample: every overrun path must be closed. Exact-size heap buffers for ASan.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "common/ZIRKNALRewrite.h"

using namespace android;

namespace {

typedef std::vector<uint8_t> Bytes;

const std::vector<Bytes> kUnits = {{0x65, 0x88, 0x84}, {0x41}, {0x06, 0x05, 0x00, 0x80}};

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

// Every length size; every smaller destination fails, having written whole units only.
TEST(ZIRKNALRewriteTest, EachLengthSizeAndEveryShortDestination) {
    const Bytes want = framed(0);
    for (size_t lengthSize = 1; lengthSize <= 4; ++lengthSize) {
        const Bytes src = framed(lengthSize);
        for (size_t cap = 0; cap <= want.size(); ++cap) {
            Bytes dst(cap);
            ZIRKNALRewriteResult r;
            bool ok = ZIRKRewriteNALLengths(src.data(), src.size(), lengthSize, dst.data(), cap, &r);
            EXPECT_EQ(ok, cap == want.size()) << lengthSize << " " << cap;
            EXPECT_LE(r.written, cap);
            EXPECT_TRUE(std::equal(dst.begin(), dst.begin() + r.written, want.begin()));
            EXPECT_TRUE(!ok || (r.written == want.size() && r.consumed == src.size() && !r.clamped && !r.truncated));
        }
    }
}

// An overlong length is clamped to what is left; a cut trailing length field
// is dropped; an empty unit still gets a start code; in place with 4-byte
// lengths works; growing in place, or length sizes 0 and 5, are refused.
TEST(ZIRKNALRewriteTest, ClampTruncationInPlaceAndRefusals) {
    const struct { Bytes mSrc; size_t mLengthSize; Bytes mOut; bool mClamped, mTruncated; } kCases[] = {
        {{0x00, 0x00, 0x00, 0x10, 0x65, 0xAA}, 4, {0, 0, 0, 1, 0x65, 0xAA}, true, false},
        {{0x00, 0x00, 0x00, 0x01, 0x41, 0x00, 0x00}, 4, {0, 0, 0, 1, 0x41}, false, true},
        {{0x00, 0x00, 0x00, 0x01, 0x09}, 2, {0, 0, 0, 1, 0, 0, 0, 1, 0x09}, false, false},
        {{}, 4, {}, false, false},
    };
    for (const auto& c : kCases) {
        Bytes dst(c.mOut.size());
        ZIRKNALRewriteResult r;
        ASSERT_TRUE(ZIRKRewriteNALLengths(c.mSrc.data(), c.mSrc.size(), c.mLengthSize, dst.data(), dst.size(), &r));
        EXPECT_EQ(dst, c.mOut);
        EXPECT_TRUE(r.written == c.mOut.size() && r.clamped == c.mClamped && r.truncated == c.mTruncated);
    }
    Bytes buf = framed(4), dst(64);
    ZIRKNALRewriteResult r;
    ASSERT_TRUE(ZIRKRewriteNALLengths(buf.data(), buf.size(), 4, buf.data(), buf.size(), &r));
    EXPECT_EQ(buf, framed(0));
    buf = framed(2);
    EXPECT_FALSE(ZIRKRewriteNALLengths(buf.data(), buf.size(), 2, buf.data(), buf.size(), &r));
    EXPECT_EQ(buf, framed(2));  // untouched
    EXPECT_FALSE(ZIRKRewriteNALLengths(buf.data(), buf.size(), 0, dst.data(), dst.size(), &r) ||
                 ZIRKRewriteNALLengths(buf.data(), buf.size(), 5, dst.data(), dst.size(), &r));
}

}  // namespace
