// Vector over both storages (the realloc'd block for plain items, std::vector
// for items with constructors). Growth, copies and sorted tables are what the
// demultiplexers' sample, track and time tables exercise on every file; what
// they do not reach is an item of the vector itself added when it is full:
// the growth moves the block the argument points into.
#include <gtest/gtest.h>

#include <string>

#include <utils/Vector.h>

using namespace android;

namespace {

template <typename T>
T item(int i);
template <>
int64_t item<int64_t>(int i) { return i; }
template <>
std::string item<std::string>(int i) { return "item-" + std::to_string(i); }

template <typename T>
class VectorTest : public ::testing::Test {};
using ItemTypes = ::testing::Types<int64_t, std::string>;
TYPED_TEST_SUITE(VectorTest, ItemTypes);

TYPED_TEST(VectorTest, AddingAnItemOfTheSameVectorWhenFull) {
    Vector<TypeParam> v;
    for (int i = 0; i < 8; ++i) v.add(item<TypeParam>(i));
    ASSERT_EQ(v.size(), v.capacity());
    v.add(v[3]);
    v.insertAt(v[0], 0);
    EXPECT_EQ(v.top(), item<TypeParam>(3));
    EXPECT_EQ(v[0], item<TypeParam>(0));
}

}  // namespace
