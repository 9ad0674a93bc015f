// MetaData keeps each value's type code; the typed finders must not hand out
// a value stored under another type (a 4-byte 'avcc' blob read back as an
// int32 would be a silent misparse in every demultiplexer).
#include <gtest/gtest.h>

#include <string.h>

#include <media/stagefright/MetaData.h>

using namespace android;

namespace {

TEST(MetaDataTest, SetDataKeepsTypeSizeAndACopyOfTheBytes) {
    sp<MetaData> meta = new MetaData;
    // 0 is what FLV stores its avcc/esds blobs with, 'none' the album-art type.
    for (uint32_t type : {0u, uint32_t(MetaData::TYPE_NONE), uint32_t(kTypeAVCC), 0xFFFFFFFFu}) {
        uint8_t bytes[] = {0x01, 0x64, 0x00, 0x1F, 0xFF, 0xE1};
        meta->setData(kKeyAVCC, type, bytes, sizeof(bytes));
        bytes[0] = 9;
        uint32_t gotType = 1;
        const void* data = nullptr;
        size_t size = 0;
        ASSERT_TRUE(meta->findData(kKeyAVCC, &gotType, &data, &size));
        EXPECT_EQ(gotType, type);
        ASSERT_EQ(size, sizeof(bytes));
        EXPECT_EQ(memcmp(data, "\x01\x64\x00\x1F\xFF\xE1", size), 0);
    }
    meta->setCString(kKeyTitle, "abc");  // stored with its terminator
    uint32_t type;
    const void* data;
    size_t size;
    ASSERT_TRUE(meta->findData(kKeyTitle, &type, &data, &size));
    EXPECT_EQ(type, uint32_t(MetaData::TYPE_C_STRING));
    EXPECT_EQ(size, 4u);
    const char* s;
    meta->setCString(kKeyTitle, "");  // still a string, still found
    ASSERT_TRUE(meta->findCString(kKeyTitle, &s));
    EXPECT_STREQ(s, "");
}

TEST(MetaDataTest, TypedFindersRejectOtherTypes) {
    sp<MetaData> meta = new MetaData;
    meta->setInt32(kKeyWidth, 176);
    meta->setInt64(kKeyDuration, 2000000);
    meta->setCString(kKeyMIMEType, "video/avc");
    const int32_t raw = 42;
    meta->setData('263A', 0, &raw, sizeof(raw));  // right size, wrong type code
    int32_t i32;
    int64_t i64;
    const char* s;
    EXPECT_FALSE(meta->findInt64(kKeyWidth, &i64));
    EXPECT_FALSE(meta->findCString(kKeyWidth, &s));
    EXPECT_FALSE(meta->findInt32(kKeyDuration, &i32));
    EXPECT_FALSE(meta->findInt32(kKeyMIMEType, &i32));
    EXPECT_FALSE(meta->findInt32('263A', &i32));
    EXPECT_FALSE(meta->findInt32('none', &i32));  // absent key
    ASSERT_TRUE(meta->findInt32(kKeyWidth, &i32) && meta->findInt64(kKeyDuration, &i64));
    EXPECT_EQ(i32, 176);
    EXPECT_EQ(i64, 2000000);
}

TEST(MetaDataTest, ReplaceRemoveCopyAndClear) {
    sp<MetaData> meta = new MetaData;
    EXPECT_FALSE(meta->setInt32(kKeyTime, 5));
    EXPECT_TRUE(meta->setInt64(kKeyTime, INT64_C(1) << 40));  // overwrite changes the type
    int32_t i32;
    int64_t i64;
    EXPECT_FALSE(meta->findInt32(kKeyTime, &i32));
    ASSERT_TRUE(meta->findInt64(kKeyTime, &i64));
    EXPECT_EQ(i64, INT64_C(1) << 40);
    EXPECT_TRUE(meta->remove(kKeyTime));
    EXPECT_FALSE(meta->remove(kKeyTime));
    EXPECT_FALSE(meta->hasData(kKeyTime));
    meta->setInt32(kKeyWidth, 1);
    sp<MetaData> copy = new MetaData(*meta.get());
    meta->setInt32(kKeyWidth, 2);
    ASSERT_TRUE(copy->findInt32(kKeyWidth, &i32));
    EXPECT_EQ(i32, 1);
    meta->clear();
    EXPECT_EQ(meta->countEntries(), 0u);
    EXPECT_EQ(copy->countEntries(), 1u);
}

}  // namespace
