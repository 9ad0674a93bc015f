// MediaBufferGroup hands out pooled buffers, blocks readers when all are out,
// and must survive buffers outliving it. Run under ASan for lifetime faults.
#include <gtest/gtest.h>

#include <string.h>

#include <chrono>
#include <future>

#include <media/stagefright/MediaBuffer.h>
#include <media/stagefright/MediaBufferGroup.h>
#include <media/stagefright/MetaData.h>

using namespace android;

namespace {

class MediaBufferGroupTest : public ::testing::Test {
protected:
    void SetUp() override {
        mGroup->add_buffer(new MediaBuffer(64));
        mGroup->add_buffer(new MediaBuffer(64));
    }
    void TearDown() override { delete mGroup; }
    MediaBufferGroup* mGroup = new MediaBufferGroup;
};

TEST_F(MediaBufferGroupTest, ThirdAcquireBlocksUntilAReleaseAndGetsItReset) {
    MediaBuffer *a = nullptr, *b = nullptr, *c = reinterpret_cast<MediaBuffer*>(0x1);
    ASSERT_EQ(mGroup->acquire_buffer(&a), OK);
    ASSERT_EQ(mGroup->acquire_buffer(&b, true), OK);
    EXPECT_TRUE(mGroup->acquire_buffer(&c, true) == NO_INIT && c == nullptr);  // non-blocking
    a->set_range(8, 16);
    a->meta_data()->setInt64(kKeyTime, 1234);
    std::future<MediaBuffer*> result = std::async(std::launch::async, [this] {
        MediaBuffer* c = nullptr;
        return mGroup->acquire_buffer(&c) == OK ? c : nullptr;
    });
    EXPECT_EQ(result.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    a->release();
    ASSERT_EQ(result.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    c = result.get();
    ASSERT_EQ(c, a);  // the only free buffer
    EXPECT_EQ(std::make_pair(c->range_offset(), c->range_length()), std::make_pair(size_t(0), size_t(64)));
    EXPECT_TRUE(c->meta_data()->countEntries() == 0u && c->refcount() == 1);
    c->release();
    b->release();
    MediaBufferGroup empty;  // nothing to wait for
    EXPECT_EQ(empty.acquire_buffer(&c), NO_INIT);
}

TEST_F(MediaBufferGroupTest, HeldBufferOutlivesItsGroup) {
    MediaBuffer* held;
    ASSERT_EQ(mGroup->acquire_buffer(&held), OK);
    delete mGroup;  // frees the free buffer, detaches the held one
    mGroup = nullptr;
    memset(held->data(), 0xAB, held->size());  // ASan: use after free if it went too
    held->meta_data()->setInt32(kKeyIsSyncFrame, 1);
    held->release();  // deletes it; LeakSanitizer reports it otherwise
}

}  // namespace
