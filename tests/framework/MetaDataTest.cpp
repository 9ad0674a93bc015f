// MetaData keeps each value's type code: a typed finder must not hand out a value
// stored under another type (an 'avcc' blob read as an int32 is a silent misparse).
// Blobs and their type codes are checked wherever the demultiplexer tests read
// codec data; this is what they do not reach.
#include <gtest/gtest.h>

#include <media/stagefright/MetaData.h>

using namespace android;

namespace {

TEST(MetaDataTest, TypedFindersRejectOtherTypesAndCopiesAreDeep) {
    sp<MetaData> meta = new MetaData;
    meta->setInt32(kKeyWidth, 176);
    EXPECT_FALSE(meta->setInt32(kKeyDuration, 5));
    EXPECT_TRUE(meta->setInt64(kKeyDuration, 5));  // replaced, as another type
    meta->setCString(kKeyMIMEType, "video/avc");
    const int32_t raw = 42;
    meta->setData('263A', 0, &raw, sizeof(raw));  // right size, wrong type code
    int32_t i32;
    int64_t i64;
    const char* s;
    EXPECT_FALSE(meta->findInt64(kKeyWidth, &i64) || meta->findCString(kKeyWidth, &s) ||
                 meta->findInt32(kKeyDuration, &i32) || meta->findInt32(kKeyMIMEType, &i32) ||
                 meta->findInt32('263A', &i32) || meta->findInt32('none', &i32));
    sp<MetaData> copy = new MetaData(*meta.get());
    meta->setInt32(kKeyWidth, 2);
    EXPECT_TRUE(meta->remove(kKeyDuration) && !meta->remove(kKeyDuration));
    meta->clear();
    EXPECT_EQ(meta->countEntries(), 0u);
    ASSERT_TRUE(copy->findInt32(kKeyWidth, &i32) && copy->findInt64(kKeyDuration, &i64));
    EXPECT_EQ(std::make_pair(i32, i64), std::make_pair(176, int64_t(5)));
    EXPECT_EQ(copy->countEntries(), 4u);
}

}  // namespace
