// Overflow edges of the checked arithmetic that guards every size, count and
// offset read from a file.
#include <gtest/gtest.h>

#include "common/ZIRKSafeMath.h"

using namespace android;

namespace {

TEST(ZIRKSafeMathTest, AddSubMulAtTheEdges) {
    uint32_t u32;
    uint64_t u64;
    int64_t s64;
    int32_t s32;
    size_t sz;
    EXPECT_TRUE(zirkAdd(UINT32_MAX - 1, 1u, &u32) && u32 == UINT32_MAX);
    EXPECT_FALSE(zirkAdd(UINT32_MAX, 1u, &u32));
    EXPECT_FALSE(zirkAdd(uint64_t(UINT32_MAX), uint64_t(1), &u32));  // checked against the result type
    EXPECT_TRUE(zirkAdd(uint32_t(UINT32_MAX), uint32_t(1), &u64) && u64 == uint64_t(1) << 32);
    EXPECT_FALSE(zirkAdd(INT64_MAX, int64_t(1), &s64) || zirkAdd(INT64_MIN, int64_t(-1), &s64));
    EXPECT_TRUE(zirkAdd(INT64_MIN, INT64_MAX, &s64) && s64 == -1);
    EXPECT_FALSE(zirkAdd(int64_t(-1), size_t(0), &sz));  // negative into unsigned
    EXPECT_FALSE(zirkSub(size_t(3), size_t(4), &sz));
    EXPECT_TRUE(zirkSub(size_t(4), size_t(4), &sz) && sz == 0u);
    EXPECT_TRUE(zirkMul(65535u, 65537u, &u32) && u32 == UINT32_MAX);
    EXPECT_FALSE(zirkMul(65536u, 65536u, &u32));
    EXPECT_FALSE(zirkMul(uint64_t(1) << 32, uint64_t(1) << 32, &u64));
    EXPECT_TRUE(zirkMul(uint64_t(0), UINT64_MAX, &u64) && u64 == 0u);
    EXPECT_FALSE(zirkMul(INT32_MIN, -1, &s32));
    EXPECT_TRUE(zirkFitsIn(4, 8, 32));
    EXPECT_FALSE(zirkFitsIn(5, 8, 32));
    EXPECT_FALSE(zirkFitsIn(UINT64_MAX, 2, UINT64_MAX));  // product wraps to below
}

TEST(ZIRKSafeMathTest, MulDiv) {
    const int64_t k62 = INT64_C(1) << 62;
    const struct { int64_t mValue, mNum, mDen; bool mOk; int64_t mResult; } kCases[] = {
        {INT64_MAX, 1000000, 1000000, true, INT64_MAX},  // the product fits only after the division
        {k62, 90000, 1000000, true, k62 / 1000000 * 90000 + (k62 % 1000000) * 90000 / 1000000},
        {3, 10, 4, true, 7},  // truncates toward zero
        {-3, 10, 4, true, -7},
        {INT64_MAX, 2, 1, false, 0},
        {INT64_MIN, -1, 1, false, 0},
        {INT64_MIN, 1, 1, true, INT64_MIN},
        {5, 1, 0, false, 0},
    };
    for (const auto& c : kCases) {
        int64_t out = 0;
        EXPECT_EQ(zirkMulDiv(c.mValue, c.mNum, c.mDen, &out), c.mOk) << c.mValue << "*" << c.mNum << "/" << c.mDen;
        EXPECT_TRUE(!c.mOk || out == c.mResult) << out;
    }
}

}  // namespace
