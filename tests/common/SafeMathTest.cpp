// Overflow edges of the checked arithmetic that guards every size, count
// and offset read from a file.
#include <gtest/gtest.h>

#include <limits>

#include "common/ZIRKSafeMath.h"

using namespace android;

namespace {

TEST(ZIRKSafeMathTest, AddAtTheEdges) {
    uint32_t u32;
    EXPECT_TRUE(zirkAdd(UINT32_MAX - 1, 1u, &u32));
    EXPECT_EQ(u32, UINT32_MAX);
    EXPECT_FALSE(zirkAdd(UINT32_MAX, 1u, &u32));
    // Mixed widths: the check is against the result type.
    EXPECT_FALSE(zirkAdd(uint64_t(UINT32_MAX), uint64_t(1), &u32));
    uint64_t u64;
    EXPECT_TRUE(zirkAdd(uint32_t(UINT32_MAX), uint32_t(1), &u64));
    EXPECT_EQ(u64, uint64_t(1) << 32);
    int64_t s64;
    EXPECT_FALSE(zirkAdd(INT64_MAX, int64_t(1), &s64));
    EXPECT_FALSE(zirkAdd(INT64_MIN, int64_t(-1), &s64));
    EXPECT_TRUE(zirkAdd(INT64_MIN, INT64_MAX, &s64));
    EXPECT_EQ(s64, -1);
    size_t sz;
    EXPECT_FALSE(zirkAdd(int64_t(-1), size_t(0), &sz));  // negative into unsigned
}

TEST(ZIRKSafeMathTest, SubAtTheEdges) {
    size_t sz;
    EXPECT_FALSE(zirkSub(size_t(3), size_t(4), &sz));
    EXPECT_TRUE(zirkSub(size_t(4), size_t(4), &sz));
    EXPECT_EQ(sz, 0u);
}

TEST(ZIRKSafeMathTest, MulAtTheEdges) {
    uint32_t u32;
    EXPECT_TRUE(zirkMul(65535u, 65537u, &u32));  // exactly UINT32_MAX
    EXPECT_EQ(u32, UINT32_MAX);
    EXPECT_FALSE(zirkMul(65536u, 65536u, &u32));
    uint64_t u64;
    EXPECT_FALSE(zirkMul(uint64_t(1) << 32, uint64_t(1) << 32, &u64));
    EXPECT_TRUE(zirkMul(uint64_t(0), UINT64_MAX, &u64));
    EXPECT_EQ(u64, 0u);
    int32_t s32;
    EXPECT_FALSE(zirkMul(INT32_MIN, -1, &s32));
    EXPECT_TRUE(zirkFitsIn(4, 8, 32));
    EXPECT_FALSE(zirkFitsIn(5, 8, 32));
    EXPECT_FALSE(zirkFitsIn(UINT64_MAX, 2, UINT64_MAX));  // product wraps to below
}

TEST(ZIRKSafeMathTest, MulDiv) {
    struct Case {
        int64_t mValue, mNum, mDen;
        bool mOk;
        int64_t mResult;
    };
    const Case kCases[] = {
        // A 64-bit product that only fits after the division (time scaling).
        {INT64_MAX, 1000000, 1000000, true, INT64_MAX},
        {INT64_C(1) << 62, 90000, 1000000, true, (INT64_C(1) << 62) / 1000000 * 90000 +
                                                     ((INT64_C(1) << 62) % 1000000) * 90000 / 1000000},
        {3, 10, 4, true, 7},     // truncates toward zero
        {-3, 10, 4, true, -7},
        {INT64_MAX, 2, 1, false, 0},
        {INT64_MIN, -1, 1, false, 0},
        {INT64_MIN, 1, 1, true, INT64_MIN},
        {5, 1, 0, false, 0},
    };
    for (const Case& c : kCases) {
        int64_t out = 0;
        EXPECT_EQ(zirkMulDiv(c.mValue, c.mNum, c.mDen, &out), c.mOk)
            << c.mValue << "*" << c.mNum << "/" << c.mDen;
        if (c.mOk) {
            EXPECT_EQ(out, c.mResult);
        }
    }
}

}  // namespace
