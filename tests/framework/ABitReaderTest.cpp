// ABitReader edges that header parsers lean on: never touch memory past the
// array, and report running out instead of aborting. (Reads across byte
// boundaries are checked by every exact value of the codec-helper, FLV tag
// and AC-3 header tests.)
#include <gtest/gtest.h>

#include <media/stagefright/foundation/ABitReader.h>

using namespace android;

namespace {

// Distinct nibbles so that any misaligned read shows up as a wrong value.
const uint8_t kBytes[] = {0x12, 0x34, 0x56, 0x78, 0x9A};

TEST(ABitReaderTest, EndEdgesAndGracefulFailure) {
    ABitReader exact(kBytes, sizeof(kBytes)), past(kBytes, sizeof(kBytes)), skipped(kBytes, sizeof(kBytes));
    exact.skipBits(40);  // exactly the end is not an over-read
    EXPECT_TRUE(!exact.overRead() && exact.numBitsLeft() == 0u);
    past.skipBits(36);
    EXPECT_EQ(past.getBits(8), 0xA0u);  // last nibble, then zeros
    EXPECT_TRUE(past.overRead());
    EXPECT_EQ(past.getBits(32), 0u);
    EXPECT_EQ(past.data(), kBytes + sizeof(kBytes));
    skipped.skipBits(41);
    EXPECT_TRUE(skipped.overRead() && skipped.numBitsLeft() == 0u);
    ABitReader empty(nullptr, 0);
    EXPECT_EQ(empty.getBits(7), 0u);
    EXPECT_TRUE(empty.overRead());
    ABitReader r(kBytes, sizeof(kBytes));  // a graceful failure leaves the state unchanged
    r.skipBits(30);
    uint32_t v = 0xDEADBEEF;
    EXPECT_FALSE(r.getBitsGraceful(11, &v) || r.getBitsGraceful(33, &v));  // 33: wider than a result
    EXPECT_EQ(v, 0xDEADBEEFu);
    EXPECT_EQ(r.numBitsLeft(), 10u);
    EXPECT_FALSE(r.overRead());
    ASSERT_TRUE(r.getBitsGraceful(10, &v));
    EXPECT_EQ(v, 0x09Au);
}

}  // namespace
