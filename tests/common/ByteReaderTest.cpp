// ZIRKByteReader is the only way parsers touch file bytes; every boundary
// must hold exactly (reads ending on the last byte succeed, one more fails
// without moving). Exact-size heap buffers make ASan catch any overrun.
#include <gtest/gtest.h>

#include <vector>

#include "common/ZIRKByteReader.h"

using namespace android;

namespace {

class ZIRKByteReaderTest : public ::testing::Test {
protected:
    std::vector<uint8_t> mBytes{0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x08, 0x09};
    ZIRKByteReader mReader{mBytes.data(), mBytes.size()};
};

TEST_F(ZIRKByteReaderTest, ReadsEndingExactlyAtTheEnd) {
    struct Case {
        size_t mSkip;
        int mWidth;
        uint64_t mBE;
        uint64_t mLE;
    };
    const Case kCases[] = {
        {8, 1, 0x09, 0x09},
        {7, 2, 0x0809, 0x0908},
        {6, 3, 0x070809, 0x090807},
        {5, 4, 0x06070809, 0x09080706},
        {1, 8, 0x0203040506070809ull, 0x0908070605040302ull},
    };
    for (const Case& c : kCases) {
        SCOPED_TRACE(c.mWidth);
        for (bool bigEndian : {true, false}) {
            if (c.mWidth == 3 && !bigEndian) continue;  // no 24-bit LE reader
            ZIRKByteReader r(mBytes.data(), mBytes.size());
            ASSERT_TRUE(r.skip(c.mSkip));
            uint64_t v = 0;
            bool ok = false;
            switch (c.mWidth) {
                case 1: { uint8_t x = 0; ok = r.readU8(&x); v = x; break; }
                case 2: { uint16_t x = 0; ok = bigEndian ? r.readBE16(&x) : r.readLE16(&x); v = x; break; }
                case 3: { uint32_t x = 0; ok = r.readBE24(&x); v = x; break; }
                case 4: { uint32_t x = 0; ok = bigEndian ? r.readBE32(&x) : r.readLE32(&x); v = x; break; }
                case 8: { uint64_t x = 0; ok = bigEndian ? r.readBE64(&x) : r.readLE64(&x); v = x; break; }
            }
            ASSERT_TRUE(ok);
            EXPECT_EQ(v, bigEndian ? c.mBE : c.mLE);
            EXPECT_TRUE(r.atEnd());
        }
    }
}

TEST_F(ZIRKByteReaderTest, ReadOnePastTheEndFailsWithoutMoving) {
    ASSERT_TRUE(mReader.skip(6));
    uint32_t v32 = 0xAAAAAAAA;
    EXPECT_FALSE(mReader.readBE32(&v32));
    EXPECT_FALSE(mReader.readLE32(&v32));
    EXPECT_EQ(v32, 0xAAAAAAAAu);
    uint64_t v64;
    EXPECT_FALSE(mReader.readBE64(&v64));
    EXPECT_EQ(mReader.position(), 6u);
    uint8_t buf[4];
    EXPECT_FALSE(mReader.readBytes(buf, 4));
    EXPECT_TRUE(mReader.readBytes(buf, 3));
    EXPECT_TRUE(mReader.readBytes(buf, 0));
    uint8_t b;
    EXPECT_FALSE(mReader.readU8(&b));
    EXPECT_FALSE(mReader.peekU8(&b));
    EXPECT_FALSE(mReader.skip(1));
    EXPECT_TRUE(mReader.skip(0));
}

TEST_F(ZIRKByteReaderTest, SkipNearSizeMaxDoesNotWrap) {
    ASSERT_TRUE(mReader.skip(2));
    EXPECT_FALSE(mReader.skip(SIZE_MAX));
    EXPECT_FALSE(mReader.skip(SIZE_MAX - 1));
    EXPECT_EQ(mReader.position(), 2u);
}

TEST_F(ZIRKByteReaderTest, Seek) {
    EXPECT_TRUE(mReader.seek(9));  // the end itself is a valid position
    EXPECT_TRUE(mReader.atEnd());
    EXPECT_FALSE(mReader.seek(10));
    EXPECT_EQ(mReader.position(), 9u);
    EXPECT_TRUE(mReader.seek(3));
    uint8_t b;
    ASSERT_TRUE(mReader.peekU8(&b));
    EXPECT_EQ(b, 0x04);
    EXPECT_EQ(mReader.position(), 3u);
    EXPECT_EQ(*mReader.current(), 0x04);
}

TEST_F(ZIRKByteReaderTest, SubReaderIsConfinedToItsRange) {
    ASSERT_TRUE(mReader.skip(2));
    ZIRKByteReader sub;
    ASSERT_TRUE(mReader.subReader(3, &sub));
    EXPECT_EQ(mReader.position(), 5u);
    EXPECT_EQ(sub.size(), 3u);
    uint32_t v;
    EXPECT_FALSE(sub.readBE32(&v));  // the parent still has bytes; the child may not use them
    ASSERT_TRUE(sub.readBE24(&v));
    EXPECT_EQ(v, 0x030405u);

    ZIRKByteReader tooBig;
    EXPECT_FALSE(mReader.subReader(5, &tooBig));
    EXPECT_EQ(mReader.position(), 5u);
    ASSERT_TRUE(mReader.subReader(4, &tooBig));  // exactly the rest
    EXPECT_TRUE(mReader.atEnd());
    ZIRKByteReader empty;
    EXPECT_TRUE(mReader.subReader(0, &empty));
    EXPECT_EQ(empty.size(), 0u);
}

TEST_F(ZIRKByteReaderTest, ClampedSubReaderTakesWhatIsLeft) {
    ASSERT_TRUE(mReader.skip(7));
    ZIRKByteReader sub = mReader.clampedSubReader(SIZE_MAX);
    EXPECT_EQ(sub.size(), 2u);
    EXPECT_TRUE(mReader.atEnd());
    uint16_t v;
    ASSERT_TRUE(sub.readBE16(&v));
    EXPECT_EQ(v, 0x0809);
    EXPECT_EQ(mReader.clampedSubReader(4).size(), 0u);
}

TEST(ZIRKByteReaderNullTest, NullDataIsEmpty) {
    ZIRKByteReader r(nullptr, 100);
    EXPECT_EQ(r.size(), 0u);
    EXPECT_TRUE(r.atEnd());
    uint8_t b;
    EXPECT_FALSE(r.readU8(&b));
    ZIRKByteReader def;
    EXPECT_FALSE(def.skip(1));
}

}  // namespace
