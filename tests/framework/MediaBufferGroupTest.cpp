// MediaBufferGroup hands out pooled buffers, blocks readers when all are
// out, and must survive buffers outliving it (a player may still hold a
// buffer when a source stops). Run under ASan to catch the lifetime faults.
#include <gtest/gtest.h>

#include <string.h>

#include <chrono>
#include <future>
#include <thread>

#include <media/stagefright/MediaBuffer.h>
#include <media/stagefright/MediaBufferGroup.h>
#include <media/stagefright/MetaData.h>

using namespace android;

namespace {

// Long enough for a wrongly unblocked acquire to return, short enough to
// keep the suite fast.
constexpr auto kBlockedProbe = std::chrono::milliseconds(50);
// Generous bound for something that must happen promptly; never reached
// when the code is right.
constexpr auto kMustHappen = std::chrono::seconds(10);

class MediaBufferGroupTest : public ::testing::Test {
protected:
    void SetUp() override {
        mGroup = new MediaBufferGroup;
        mGroup->add_buffer(new MediaBuffer(64));
        mGroup->add_buffer(new MediaBuffer(64));
    }
    void TearDown() override { delete mGroup; }

    MediaBufferGroup* mGroup = nullptr;
};

TEST_F(MediaBufferGroupTest, ThirdAcquireBlocksUntilARelease) {
    MediaBuffer* a = nullptr;
    MediaBuffer* b = nullptr;
    ASSERT_EQ(mGroup->acquire_buffer(&a), OK);
    ASSERT_EQ(mGroup->acquire_buffer(&b), OK);
    ASSERT_NE(a, b);

    // Dirty `a` so that its reuse shows whether it was reset.
    a->set_range(8, 16);
    a->meta_data()->setInt64(kKeyTime, 1234);

    std::promise<MediaBuffer*> acquired;
    std::future<MediaBuffer*> result = acquired.get_future();
    std::thread reader([this, &acquired] {
        MediaBuffer* c = nullptr;
        status_t err = mGroup->acquire_buffer(&c);
        acquired.set_value(err == OK ? c : nullptr);
    });

    EXPECT_EQ(result.wait_for(kBlockedProbe), std::future_status::timeout)
        << "acquire_buffer returned while every buffer was held";
    a->release();
    ASSERT_EQ(result.wait_for(kMustHappen), std::future_status::ready);
    reader.join();

    MediaBuffer* c = result.get();
    ASSERT_EQ(c, a);  // the only free buffer
    EXPECT_EQ(c->range_offset(), 0u);
    EXPECT_EQ(c->range_length(), 64u);
    EXPECT_EQ(c->meta_data()->countEntries(), 0u);
    EXPECT_EQ(c->refcount(), 1);
    c->release();
    b->release();
}

TEST_F(MediaBufferGroupTest, NonBlockingAcquireAnswersNoInitWhenAllHeld) {
    MediaBuffer* a;
    MediaBuffer* b;
    MediaBuffer* c = reinterpret_cast<MediaBuffer*>(0x1);
    ASSERT_EQ(mGroup->acquire_buffer(&a, true), OK);
    ASSERT_EQ(mGroup->acquire_buffer(&b, true), OK);
    EXPECT_EQ(mGroup->acquire_buffer(&c, true), NO_INIT);
    EXPECT_EQ(c, nullptr);
    b->release();
    EXPECT_EQ(mGroup->acquire_buffer(&c, true), OK);
    EXPECT_EQ(c, b);
    a->release();
    c->release();
}

TEST(MediaBufferGroupEmptyTest, GroupWithoutBuffersDoesNotWaitForever) {
    MediaBufferGroup group;
    MediaBuffer* out;
    EXPECT_EQ(group.acquire_buffer(&out), NO_INIT);
}

TEST(MediaBufferGroupLifetimeTest, HeldBufferOutlivesItsGroup) {
    MediaBufferGroup* group = new MediaBufferGroup;
    group->add_buffer(new MediaBuffer(32));
    group->add_buffer(new MediaBuffer(32));
    MediaBuffer* held;
    ASSERT_EQ(group->acquire_buffer(&held), OK);
    delete group;  // frees the free buffer, detaches the held one

    // Still usable: ASan reports a use-after-free here if it was deleted.
    memset(held->data(), 0xAB, held->size());
    held->meta_data()->setInt32(kKeyIsSyncFrame, 1);
    held->release();  // deletes it; LeakSanitizer reports it otherwise
}

TEST(MediaBufferGroupLifetimeTest, CloneKeepsThePooledOriginalOut) {
    MediaBufferGroup group;
    group.add_buffer(new MediaBuffer(16));
    MediaBuffer* original;
    ASSERT_EQ(group.acquire_buffer(&original), OK);
    static_cast<uint8_t*>(original->data())[0] = 0x5A;
    original->set_range(2, 4);
    MediaBuffer* clone = original->clone();
    original->release();

    // The clone shares the bytes, so the original must not be handed out.
    MediaBuffer* again;
    EXPECT_EQ(group.acquire_buffer(&again, true), NO_INIT);
    EXPECT_EQ(static_cast<uint8_t*>(clone->data())[0], 0x5A);
    EXPECT_EQ(clone->range_offset(), 2u);
    EXPECT_EQ(clone->range_length(), 4u);
    clone->release();
    ASSERT_EQ(group.acquire_buffer(&again, true), OK);
    EXPECT_EQ(again, original);
    again->release();
}

}  // namespace
