// Objects die with their last strong reference (or, never made strong, their
// last weak one); weak references see that; onFirstRef runs once. Under ASan.
#include <gtest/gtest.h>

#include <utils/RefBase.h>

using namespace android;

namespace {

struct Tracked : public RefBase {
    explicit Tracked(int* counts) : mCounts(counts) {}
    ~Tracked() override { ++mCounts[1]; }
    void onFirstRef() override { ++mCounts[0]; }
    int* mCounts;  // first refs, destructions
};

TEST(RefBaseTest, StrongAndWeakLifetimes) {
    int counts[2] = {0, 0};
    sp<Tracked> a = new Tracked(counts);
    wp<Tracked> w = a;
    {
        sp<Tracked> moved = std::move(sp<Tracked>(a));
        ASSERT_NE(w.promote(), nullptr);
        EXPECT_EQ(a->getStrongCount(), 2);
    }
    a.clear();
    EXPECT_TRUE(counts[0] == 1 && counts[1] == 1);
    EXPECT_EQ(wp<Tracked>(w).promote(), nullptr);  // the counts outlive the object
    { wp<Tracked> weakOnly = new Tracked(counts); }
    EXPECT_EQ(counts[1], 2);
    wp<Tracked> w2 = new Tracked(counts);
    EXPECT_NE(w2.promote(), nullptr);  // its first and last strong reference
    EXPECT_TRUE(counts[0] == 2 && counts[1] == 3);
    EXPECT_EQ(w2.promote(), nullptr);
}

}  // namespace
