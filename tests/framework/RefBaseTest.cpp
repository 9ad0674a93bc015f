// Reference counting: objects die with their last strong reference, weak
// references see that, and onFirstRef runs once. A fault here is a leak or
// a use-after-free everywhere, so these run under ASan as well.
#include <gtest/gtest.h>

#include <utils/RefBase.h>

using namespace android;

namespace {

struct Counters {
    int mFirstRefs = 0;
    int mDestroyed = 0;
};

class Tracked : public RefBase {
public:
    explicit Tracked(Counters* counters) : mCounters(counters) {}
    int mValue = 7;

protected:
    ~Tracked() override { ++mCounters->mDestroyed; }
    void onFirstRef() override { ++mCounters->mFirstRefs; }

private:
    Counters* mCounters;
};

TEST(RefBaseTest, StrongAndWeakLifetimes) {
    Counters c;
    sp<Tracked> a = new Tracked(&c);
    wp<Tracked> w = a;
    {
        sp<Tracked> b = a;
        sp<Tracked> moved = std::move(b);
        sp<Tracked> p = w.promote();
        ASSERT_NE(p, nullptr);
        EXPECT_EQ(p->mValue, 7);
        EXPECT_EQ(a->getStrongCount(), 3);
    }
    EXPECT_EQ(c.mFirstRefs, 1);
    EXPECT_EQ(c.mDestroyed, 0);
    a.clear();
    EXPECT_EQ(c.mDestroyed, 1);
    // The weak reference outlives the object; its counts must still be valid
    // (ASan reports a use-after-free otherwise).
    EXPECT_EQ(w.promote(), nullptr);
    wp<Tracked> copy = w;
    EXPECT_EQ(copy.promote(), nullptr);
}

TEST(RefBaseTest, WeakOnlyObjects) {
    Counters c;
    {
        wp<Tracked> w = new Tracked(&c);
        EXPECT_EQ(c.mFirstRefs, 0);
    }
    EXPECT_EQ(c.mDestroyed, 1);  // went with its last weak reference
    wp<Tracked> w = new Tracked(&c);
    {
        sp<Tracked> p = w.promote();  // its first strong reference
        ASSERT_NE(p, nullptr);
        EXPECT_EQ(c.mFirstRefs, 1);
    }
    EXPECT_EQ(c.mDestroyed, 2);
    EXPECT_EQ(w.promote(), nullptr);
}

}  // namespace
