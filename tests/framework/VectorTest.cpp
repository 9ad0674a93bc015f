// Vector and SortedVector over both storages: the realloc'd block for plain
// items (sample tables) and std::vector for items with constructors. The same
// cases run on each, since a fault in only one storage would otherwise hide.
#include <gtest/gtest.h>

#include <string>

#include <utils/KeyedVector.h>
#include <utils/SortedVector.h>
#include <utils/Vector.h>

using namespace android;

namespace {

struct Sample {  // the shape of a sample table entry
    uint64_t offset;
    uint32_t size;
    bool isKey;
};

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

TYPED_TEST(VectorTest, GrowsKeepsOrderInsertsAndRemoves) {
    Vector<TypeParam> v;
    // Enough items to cross many doublings: a lost or stale block shows up as
    // a wrong item far from the end.
    for (int i = 0; i < 100000; ++i) ASSERT_EQ(v.add(item<TypeParam>(i)), i);
    for (int i = 0; i < 100000; i += 997) ASSERT_EQ(v[i], item<TypeParam>(i));
    EXPECT_EQ(v.insertAt(item<TypeParam>(-1), 0), 0);
    EXPECT_EQ(v.insertAt(item<TypeParam>(-2), 50000), 50000);
    EXPECT_EQ(v.insertAt(item<TypeParam>(-3), v.size() + 1), NO_MEMORY);
    EXPECT_EQ(v.size(), 100002u);
    EXPECT_TRUE(v[0] == item<TypeParam>(-1) && v[1] == item<TypeParam>(0) && v[50000] == item<TypeParam>(-2) &&
                v[50001] == item<TypeParam>(49999) && v.top() == item<TypeParam>(99999));
    EXPECT_EQ(v.removeItemsAt(1, 49999), 1);
    EXPECT_EQ(v.removeItemsAt(v.size() - 1, 2), NAME_NOT_FOUND);
    EXPECT_TRUE(v.size() == 50003u && v[1] == item<TypeParam>(-2) && v[2] == item<TypeParam>(49999));
    v.pop();
    EXPECT_EQ(v.top(), item<TypeParam>(99998));
}

TYPED_TEST(VectorTest, AddingAnItemOfTheSameVectorWhenFull) {
    // The growth moves the block the argument points into.
    Vector<TypeParam> v;
    for (int i = 0; i < 8; ++i) v.add(item<TypeParam>(i));
    ASSERT_EQ(v.size(), v.capacity());
    v.add(v[3]);
    v.insertAt(v[0], 0);
    EXPECT_EQ(v.top(), item<TypeParam>(3));
    EXPECT_EQ(v[0], item<TypeParam>(0));
}

TYPED_TEST(VectorTest, CopiesAreIndependent) {
    Vector<TypeParam> a;
    for (int i = 0; i < 20; ++i) a.add(item<TypeParam>(i));
    Vector<TypeParam> b(a), c;
    c = a;
    c = c;
    a.replaceAt(item<TypeParam>(7), 0);
    a.clear();
    EXPECT_TRUE(a.isEmpty());
    EXPECT_TRUE(b.size() == 20u && c.size() == 20u && b[0] == item<TypeParam>(0) && c[19] == item<TypeParam>(19));
    Vector<TypeParam> d(std::move(b));
    EXPECT_EQ(d.size(), 20u);
}

TYPED_TEST(VectorTest, SortedAddReplacesEqualAndKeepsOrder) {
    SortedVector<TypeParam> s;
    const int order[] = {5, 1, 9, 3, 7, 1, 9, 0, 8};  // out of order, with repeats
    for (int i : order) s.add(item<TypeParam>(i));
    ASSERT_EQ(s.size(), 7u);
    for (size_t i = 1; i < s.size(); ++i) EXPECT_TRUE(s[i - 1] < s[i]);
    EXPECT_EQ(s.indexOf(item<TypeParam>(9)), 6);
    EXPECT_EQ(s.indexOf(item<TypeParam>(4)), NAME_NOT_FOUND);
    EXPECT_EQ(s.orderOf(item<TypeParam>(4)), 3u);
    EXPECT_EQ(s.remove(item<TypeParam>(0)), 0);
    EXPECT_EQ(s.removeAt(6), NAME_NOT_FOUND);
    EXPECT_EQ(s.removeAt(5), 5);
    EXPECT_EQ(s.size(), 5u);
}

TEST(VectorStorageTest, SampleTablesOfPlainStructs) {
    // The in-order append path of a time-keyed table and an index-built
    // table of structs, as the extractors build them.
    SortedVector<key_value_pair_t<int64_t, int64_t>> table;
    for (int64_t t = 0; t < 300000; ++t) ASSERT_EQ(table.add(key_value_pair_t<int64_t, int64_t>(t * 40, t * 1000)), t);
    EXPECT_EQ(table.add(key_value_pair_t<int64_t, int64_t>(80, 7)), 2);  // a repeated time replaces
    EXPECT_EQ(table[2].value, 7);
    EXPECT_EQ(table[299999].value, 299999000);

    Vector<Sample> samples;
    ASSERT_GE(samples.setCapacity(3), 3);
    for (uint32_t i = 0; i < 1000; ++i) samples.add(Sample{i * 16ull, i, i % 10 == 0});
    EXPECT_TRUE(samples[990].offset == 15840u && samples[990].size == 990u && samples[990].isKey);
    Vector<Sample> copy = samples;
    EXPECT_EQ(copy[999].size, 999u);
}

}  // namespace
