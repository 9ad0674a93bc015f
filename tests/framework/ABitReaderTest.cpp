// ABitReader edges that header parsers lean on: the reader must never touch
// memory past its array and must report running out instead of aborting.
#include <gtest/gtest.h>

#include <media/stagefright/foundation/ABitReader.h>

using namespace android;

namespace {

// Distinct nibbles so that any misaligned read shows up as a wrong value.
const uint8_t kBytes[] = {0x12, 0x34, 0x56, 0x78, 0x9A};

class ABitReaderTest : public ::testing::Test {
protected:
    ABitReader mReader{kBytes, sizeof(kBytes)};
};

TEST_F(ABitReaderTest, ZeroBitsReadsNothing) {
    EXPECT_EQ(mReader.getBits(0), 0u);
    EXPECT_EQ(mReader.numBitsLeft(), 40u);
    EXPECT_FALSE(mReader.overRead());
}

TEST_F(ABitReaderTest, ThirtyTwoBitsAtOnce) {
    EXPECT_EQ(mReader.getBits(32), 0x12345678u);
    EXPECT_EQ(mReader.numBitsLeft(), 8u);
    EXPECT_EQ(mReader.data(), kBytes + 4);
}

TEST_F(ABitReaderTest, ReadsAcrossByteBoundaries) {
    EXPECT_EQ(mReader.getBits(4), 0x1u);
    EXPECT_EQ(mReader.getBits(12), 0x234u);
    EXPECT_EQ(mReader.getBits(3), 0x2u);   // 010 of 0x56
    EXPECT_EQ(mReader.getBits(13), 0x1678u);  // 1 0110 0111 1000
    EXPECT_EQ(mReader.getBits(1), 1u);
    EXPECT_EQ(mReader.numBitsLeft(), 7u);
    // Mid-byte, data() is the byte still being read.
    EXPECT_EQ(mReader.data(), kBytes + 4);
}

TEST_F(ABitReaderTest, ReadPastTheEndPadsWithZerosAndFlags) {
    mReader.skipBits(36);
    EXPECT_EQ(mReader.getBits(8), 0xA0u);  // last nibble 0xA, then four zero bits
    EXPECT_TRUE(mReader.overRead());
    EXPECT_EQ(mReader.numBitsLeft(), 0u);
    EXPECT_EQ(mReader.getBits(32), 0u);
    EXPECT_EQ(mReader.numBitsLeft(), 0u);
    EXPECT_EQ(mReader.data(), kBytes + sizeof(kBytes));
}

TEST_F(ABitReaderTest, SkipPastTheEndEmptiesAndFlags) {
    mReader.skipBits(41);
    EXPECT_TRUE(mReader.overRead());
    EXPECT_EQ(mReader.numBitsLeft(), 0u);
    EXPECT_EQ(mReader.getBits(1), 0u);
}

TEST_F(ABitReaderTest, SkipToExactlyTheEndIsNotAnOverRead) {
    mReader.skipBits(40);
    EXPECT_FALSE(mReader.overRead());
    EXPECT_EQ(mReader.numBitsLeft(), 0u);
}

TEST_F(ABitReaderTest, GracefulFailureLeavesStateUnchanged) {
    mReader.skipBits(30);
    uint32_t v = 0xDEADBEEF;
    EXPECT_FALSE(mReader.getBitsGraceful(11, &v));
    EXPECT_EQ(v, 0xDEADBEEFu);
    EXPECT_EQ(mReader.numBitsLeft(), 10u);
    EXPECT_FALSE(mReader.overRead());
    EXPECT_FALSE(mReader.getBitsGraceful(33, &v));  // wider than a result
    EXPECT_EQ(mReader.numBitsLeft(), 10u);
    ASSERT_TRUE(mReader.getBitsGraceful(10, &v));
    EXPECT_EQ(v, 0x09Au);  // last two bits of 0x78, then 0x9A
}

TEST(ABitReaderEmptyTest, EmptyArrayReadsZero) {
    ABitReader reader(nullptr, 0);
    uint32_t v;
    EXPECT_FALSE(reader.getBitsGraceful(1, &v));
    EXPECT_TRUE(reader.getBitsGraceful(0, &v));
    EXPECT_EQ(reader.getBits(7), 0u);
    EXPECT_TRUE(reader.overRead());
}

}  // namespace
