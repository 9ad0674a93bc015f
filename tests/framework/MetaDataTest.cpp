// MetaData keeps each value's type code: a typed finder must not hand out a value
// stored under another type (an 'avcc' blob read as an int32 is a silent misparse).
#include <gtest/gtest.h>

#include <string.h>

#include <media/stagefright/MetaData.h>

using namespace android;

namespace {

TEST(MetaDataTest, SetDataRoundTripsTypeSizeAndACopyOfTheBytes) {
    sp<MetaData> meta = new MetaData;
    uint32_t type = 1;
    const void* data = nullptr;
    size_t size = 0;
    // 0 is what FLV stores its avcc/esds blobs with, 'none' the album-art type.
    for (uint32_t setType : {0u, uint32_t(MetaData::TYPE_NONE), uint32_t(kTypeAVCC), 0xFFFFFFFFu}) {
        uint8_t bytes[] = {0x01, 0x64, 0x00, 0x1F, 0xFF, 0xE1};
        meta->setData(kKeyAVCC, setType, bytes, sizeof(bytes));
        bytes[0] = 9;
        ASSERT_TRUE(meta->findData(kKeyAVCC, &type, &data, &size));
        EXPECT_EQ(std::make_pair(type, size), std::make_pair(setType, sizeof(bytes)));
        EXPECT_EQ(memcmp(data, "\x01\x64\x00\x1F\xFF\xE1", sizeof(bytes)), 0);
    }
    meta->setCString(kKeyTitle, "abc");
    ASSERT_TRUE(meta->findData(kKeyTitle, &type, &data, &size));
    EXPECT_EQ(std::make_pair(type, size), std::make_pair(uint32_t(MetaData::TYPE_C_STRING), size_t(4)));  // with NUL
}

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
