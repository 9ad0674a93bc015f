// MetaData keeps each value's type code; the typed finders must not hand out
// a value stored under another type (a 4-byte 'avcc' blob read back as an
// int32 would be a silent misparse in every demultiplexer).
#include <gtest/gtest.h>

#include <string.h>

#include <media/stagefright/MetaData.h>

using namespace android;

namespace {

class MetaDataTest : public ::testing::Test {
protected:
    sp<MetaData> mMeta = new MetaData;
};

TEST_F(MetaDataTest, SetDataKeepsTypeSizeAndBytes) {
    // Type code 0 is what FLV stores its avcc/esds blobs with; 'none' is the
    // album-art type; 'avcc' the framework's own.
    const uint32_t kTypes[] = {0u, MetaData::TYPE_NONE, kTypeAVCC, 0xFFFFFFFFu};
    const uint8_t kBytes[] = {0x01, 0x64, 0x00, 0x1F, 0xFF, 0xE1};
    for (uint32_t type : kTypes) {
        SCOPED_TRACE(type);
        mMeta->setData(kKeyAVCC, type, kBytes, sizeof(kBytes));
        uint32_t gotType = 1;
        const void* data = nullptr;
        size_t size = 0;
        ASSERT_TRUE(mMeta->findData(kKeyAVCC, &gotType, &data, &size));
        EXPECT_EQ(gotType, type);
        ASSERT_EQ(size, sizeof(kBytes));
        EXPECT_EQ(memcmp(data, kBytes, size), 0);
    }
}

TEST_F(MetaDataTest, StoredBytesAreACopy) {
    uint8_t bytes[3] = {1, 2, 3};
    mMeta->setData('rcsd', 0, bytes, sizeof(bytes));
    bytes[0] = 9;
    uint32_t type;
    const void* data;
    size_t size;
    ASSERT_TRUE(mMeta->findData('rcsd', &type, &data, &size));
    EXPECT_EQ(static_cast<const uint8_t*>(data)[0], 1);
}

TEST_F(MetaDataTest, TypedFindersRejectOtherTypes) {
    mMeta->setInt32(kKeyWidth, 176);
    mMeta->setInt64(kKeyDuration, 2000000);
    mMeta->setCString(kKeyMIMEType, "video/avc");
    const int32_t raw = 42;
    mMeta->setData('263A', 0, &raw, sizeof(raw));  // right size, wrong type code

    int32_t i32;
    int64_t i64;
    const char* s;
    EXPECT_FALSE(mMeta->findInt64(kKeyWidth, &i64));
    EXPECT_FALSE(mMeta->findCString(kKeyWidth, &s));
    EXPECT_FALSE(mMeta->findInt32(kKeyDuration, &i32));
    EXPECT_FALSE(mMeta->findInt32(kKeyMIMEType, &i32));
    EXPECT_FALSE(mMeta->findInt32('263A', &i32));
    EXPECT_FALSE(mMeta->findInt32('none', &i32));  // absent key

    ASSERT_TRUE(mMeta->findInt32(kKeyWidth, &i32));
    EXPECT_EQ(i32, 176);
    ASSERT_TRUE(mMeta->findInt64(kKeyDuration, &i64));
    EXPECT_EQ(i64, 2000000);
}

TEST_F(MetaDataTest, ReplacingChangesTypeAndReportsOverwrite) {
    EXPECT_FALSE(mMeta->setInt32(kKeyTime, 5));
    EXPECT_TRUE(mMeta->setInt64(kKeyTime, INT64_C(1) << 40));
    int32_t i32;
    int64_t i64;
    EXPECT_FALSE(mMeta->findInt32(kKeyTime, &i32));
    ASSERT_TRUE(mMeta->findInt64(kKeyTime, &i64));
    EXPECT_EQ(i64, INT64_C(1) << 40);

    EXPECT_TRUE(mMeta->remove(kKeyTime));
    EXPECT_FALSE(mMeta->remove(kKeyTime));
    EXPECT_FALSE(mMeta->hasData(kKeyTime));
}

TEST_F(MetaDataTest, CStringIsStoredWithItsTerminator) {
    mMeta->setCString(kKeyTitle, "abc");
    uint32_t type;
    const void* data;
    size_t size;
    ASSERT_TRUE(mMeta->findData(kKeyTitle, &type, &data, &size));
    EXPECT_EQ(type, static_cast<uint32_t>(MetaData::TYPE_C_STRING));
    EXPECT_EQ(size, 4u);
    const char* s;
    ASSERT_TRUE(mMeta->findCString(kKeyTitle, &s));
    EXPECT_STREQ(s, "abc");

    // An empty string is still a string (size 1), and still found.
    mMeta->setCString(kKeyTitle, "");
    ASSERT_TRUE(mMeta->findCString(kKeyTitle, &s));
    EXPECT_STREQ(s, "");
}

TEST_F(MetaDataTest, CopyIsIndependentAndClearEmpties) {
    mMeta->setInt32(kKeyWidth, 1);
    sp<MetaData> copy = new MetaData(*mMeta.get());
    mMeta->setInt32(kKeyWidth, 2);
    int32_t w;
    ASSERT_TRUE(copy->findInt32(kKeyWidth, &w));
    EXPECT_EQ(w, 1);
    mMeta->clear();
    EXPECT_EQ(mMeta->countEntries(), 0u);
    EXPECT_EQ(copy->countEntries(), 1u);
}

}  // namespace
