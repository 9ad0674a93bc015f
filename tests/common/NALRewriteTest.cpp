// Length-prefix to start-code rewriting, which writes into a caller buffer
// sized from the sample: every overrun path must be closed. Buffers are
// exact-size heap vectors so that ASan sees one byte too far.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "common/ZIRKNALRewrite.h"

using namespace android;

namespace {

std::vector<uint8_t> lengthPrefixed(size_t lengthSize, const std::vector<std::vector<uint8_t>>& units) {
    std::vector<uint8_t> out;
    for (const auto& u : units) {
        for (size_t i = lengthSize; i > 0; --i) out.push_back(uint8_t(u.size() >> (8 * (i - 1))));
        out.insert(out.end(), u.begin(), u.end());
    }
    return out;
}

std::vector<uint8_t> annexB(const std::vector<std::vector<uint8_t>>& units) {
    std::vector<uint8_t> out;
    for (const auto& u : units) {
        out.insert(out.end(), {0, 0, 0, 1});
        out.insert(out.end(), u.begin(), u.end());
    }
    return out;
}

const std::vector<std::vector<uint8_t>> kUnits = {{0x65, 0x88, 0x84}, {0x41}, {0x06, 0x05, 0x00, 0x80}};

class ZIRKNALRewriteTest : public ::testing::TestWithParam<size_t> {};

TEST_P(ZIRKNALRewriteTest, EachLengthSizeAndEveryShortDestination) {
    size_t lengthSize = GetParam();
    std::vector<uint8_t> src = lengthPrefixed(lengthSize, kUnits);
    std::vector<uint8_t> want = annexB(kUnits);
    std::vector<uint8_t> dst(want.size());
    ZIRKNALRewriteResult r;
    ASSERT_TRUE(ZIRKRewriteNALLengths(src.data(), src.size(), lengthSize, dst.data(), dst.size(), &r));
    EXPECT_EQ(dst, want);
    EXPECT_EQ(r.written, want.size());
    EXPECT_EQ(r.consumed, src.size());
    EXPECT_FALSE(r.clamped || r.truncated);
    // Any smaller destination fails, having written whole units only.
    for (size_t cap = 0; cap < want.size(); ++cap) {
        std::vector<uint8_t> dst(cap);
        ZIRKNALRewriteResult r;
        EXPECT_FALSE(ZIRKRewriteNALLengths(src.data(), src.size(), lengthSize, dst.data(), cap, &r))
            << cap;
        EXPECT_LE(r.written, cap);
        EXPECT_TRUE(std::equal(dst.begin(), dst.begin() + r.written, want.begin()));
    }
}

INSTANTIATE_TEST_SUITE_P(LengthSizes, ZIRKNALRewriteTest, ::testing::Values(1u, 2u, 3u, 4u));

// An overlong length is clamped to what is left; a cut trailing length
// field is dropped; empty units still get a start code.
TEST(ZIRKNALRewriteEdgeTest, ClampedTruncatedAndEmptyUnits) {
    const struct {
        std::vector<uint8_t> src;
        size_t lengthSize;
        std::vector<uint8_t> out;
        bool clamped, truncated;
    } cases[] = {
        {{0x00, 0x00, 0x00, 0x10, 0x65, 0xAA}, 4, {0, 0, 0, 1, 0x65, 0xAA}, true, false},
        {{0x00, 0x00, 0x00, 0x01, 0x41, 0x00, 0x00}, 4, {0, 0, 0, 1, 0x41}, false, true},
        {{0x00, 0x00, 0x00, 0x01, 0x09}, 2, {0, 0, 0, 1, 0, 0, 0, 1, 0x09}, false, false},
    };
    for (const auto& c : cases) {
        std::vector<uint8_t> dst(c.out.size());
        ZIRKNALRewriteResult r;
        ASSERT_TRUE(ZIRKRewriteNALLengths(c.src.data(), c.src.size(), c.lengthSize, dst.data(), dst.size(), &r));
        EXPECT_EQ(dst, c.out);
        EXPECT_EQ(r.written, c.out.size());
        EXPECT_EQ(r.clamped, c.clamped);
        EXPECT_EQ(r.truncated, c.truncated);
    }
    uint8_t none = 0;
    ZIRKNALRewriteResult r;
    ASSERT_TRUE(ZIRKRewriteNALLengths(&none, 0, 4, &none, 0, &r));
    EXPECT_EQ(r.written, 0u);
}

TEST(ZIRKNALRewriteEdgeTest, InPlaceWithFourByteLengths) {
    std::vector<uint8_t> buf = lengthPrefixed(4, kUnits);
    ZIRKNALRewriteResult r;
    ASSERT_TRUE(ZIRKRewriteNALLengths(buf.data(), buf.size(), 4, buf.data(), buf.size(), &r));
    EXPECT_EQ(buf, annexB(kUnits));
}

TEST(ZIRKNALRewriteEdgeTest, RejectsBadArguments) {
    std::vector<uint8_t> buf = lengthPrefixed(2, kUnits);
    std::vector<uint8_t> copy = buf;
    std::vector<uint8_t> dst(64);
    ZIRKNALRewriteResult r;
    // In place with a shorter field would need to grow: refused untouched.
    EXPECT_FALSE(ZIRKRewriteNALLengths(buf.data(), buf.size(), 2, buf.data(), buf.size(), &r));
    EXPECT_EQ(buf, copy);
    EXPECT_FALSE(ZIRKRewriteNALLengths(buf.data(), buf.size(), 0, dst.data(), dst.size(), &r));
    EXPECT_FALSE(ZIRKRewriteNALLengths(buf.data(), buf.size(), 5, dst.data(), dst.size(), &r));
}

}  // namespace
