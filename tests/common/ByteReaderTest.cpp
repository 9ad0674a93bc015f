// ZIRKByteReader is the only way parsers touch file bytes: reads ending on the
// last byte succeed, one more fails without moving. Exact-size heap buffers.
// And the overflow edges of the checked arithmetic that guards every size,
// count and offset read from a file.
#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include <zirk/ZIRKByteReader.h>

#include "common/ZIRKSafeMath.h"

using namespace android;

namespace {

class ZIRKByteReaderTest : public ::testing::Test {
protected:
    std::vector<uint8_t> mBytes{0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 0x09};
    ZIRKByteReader mReader{mBytes.data(), mBytes.size()};
};

typedef std::function<bool(ZIRKByteReader&, uint64_t*)> Read;
template <typename T>
Read read(bool (ZIRKByteReader::*method)(T*)) {
    return [method](ZIRKByteReader& r, uint64_t* v) { T x = T(*v); bool ok = (r.*method)(&x); *v = x; return ok; };
}

// Each read starts `skip` bytes in and ends on the last byte; one byte further
// in, it must fail without moving or writing.
TEST_F(ZIRKByteReaderTest, ReadsEndingExactlyAtTheEndAndOnePast) {
    const struct { size_t mSkip; uint64_t mValue; Read mRead; } kCases[] = {
        {8, 0x09, read(&ZIRKByteReader::readU8)},
        {7, 0x0809, read(&ZIRKByteReader::readBE16)}, {7, 0x0908, read(&ZIRKByteReader::readLE16)},
        {6, 0x070809, read(&ZIRKByteReader::readBE24)},
        {5, 0x06070809, read(&ZIRKByteReader::readBE32)}, {5, 0x09080706, read(&ZIRKByteReader::readLE32)},
        {1, 0x0203040506070809ull, read(&ZIRKByteReader::readBE64)},
        {1, 0x0908070605040302ull, read(&ZIRKByteReader::readLE64)},
    };
    for (const auto& c : kCases) {
        ZIRKByteReader atEnd(mBytes.data(), mBytes.size()), past(mBytes.data(), mBytes.size());
        uint64_t v = 0, untouched = 0xAA;
        ASSERT_TRUE(atEnd.skip(c.mSkip) && past.skip(c.mSkip + 1));
        EXPECT_TRUE(c.mRead(atEnd, &v) && atEnd.atEnd()) << c.mSkip;
        EXPECT_EQ(v, c.mValue);
        EXPECT_FALSE(c.mRead(past, &untouched)) << c.mSkip;
        EXPECT_TRUE(untouched == 0xAA && past.position() == c.mSkip + 1) << c.mSkip;
    }
    ASSERT_TRUE(mReader.skip(6));
    uint8_t buf[4], b;
    EXPECT_FALSE(mReader.readBytes(buf, 4));
    EXPECT_TRUE(mReader.readBytes(buf, 3) && mReader.readBytes(buf, 0) && mReader.skip(0));
    EXPECT_FALSE(mReader.readU8(&b) || mReader.peekU8(&b) || mReader.skip(1));
}

// Pins a skip that wraps past SIZE_MAX, a seek past the end that moves, a
// peek that moves, and a null buffer taken as readable.
TEST_F(ZIRKByteReaderTest, SkipAndSeekBounds) {
    ASSERT_TRUE(mReader.skip(2));
    EXPECT_FALSE(mReader.skip(SIZE_MAX) || mReader.skip(SIZE_MAX - 1));  // no wrap
    EXPECT_EQ(mReader.position(), 2u);
    EXPECT_TRUE(mReader.seek(9) && mReader.atEnd());  // the end itself is a position
    EXPECT_FALSE(mReader.seek(10));
    EXPECT_EQ(mReader.position(), 9u);
    uint8_t b;
    ASSERT_TRUE(mReader.seek(3) && mReader.peekU8(&b));
    EXPECT_EQ(b, 0x04);
    EXPECT_EQ(mReader.position(), 3u);
    EXPECT_EQ(*mReader.current(), 0x04);
    ZIRKByteReader null(nullptr, 100);
    EXPECT_TRUE(null.size() == 0u && null.atEnd() && !null.readU8(&b) && !ZIRKByteReader().skip(1));
}

// Pins a sub-reader that reads its parent's bytes past its range, one larger
// than the rest that is granted (or moves the parent), and a clamped one that
// does not stop at the end.
TEST_F(ZIRKByteReaderTest, SubReadersAreConfinedToTheirRange) {
    ASSERT_TRUE(mReader.skip(2));
    ZIRKByteReader sub, rest, empty;
    ASSERT_TRUE(mReader.subReader(3, &sub));
    EXPECT_TRUE(mReader.position() == 5u && sub.size() == 3u);
    uint32_t v;
    EXPECT_FALSE(sub.readBE32(&v));  // the parent still has bytes; the child may not use them
    ASSERT_TRUE(sub.readBE24(&v));
    EXPECT_EQ(v, 0x030405u);
    EXPECT_FALSE(mReader.subReader(5, &rest));
    EXPECT_EQ(mReader.position(), 5u);
    EXPECT_TRUE(mReader.subReader(4, &rest) && mReader.atEnd());  // exactly the rest
    EXPECT_TRUE(mReader.subReader(0, &empty) && empty.size() == 0u);
    ZIRKByteReader tail(mBytes.data(), mBytes.size());
    ASSERT_TRUE(tail.skip(7));
    ZIRKByteReader clamped = tail.clampedSubReader(SIZE_MAX);
    EXPECT_TRUE(clamped.size() == 2u && tail.atEnd() && tail.clampedSubReader(4).size() == 0u);
    uint16_t v16;
    EXPECT_TRUE(clamped.readBE16(&v16) && v16 == 0x0809);
}

// Pins overflow missed at the edges of each type: checked against the result
// type, negative into unsigned, a product that wraps to below the limit.
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

// Pins a scaling that overflows where only the product does not fit, rounds
// away from zero, or divides by zero.
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
