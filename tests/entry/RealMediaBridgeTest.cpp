// The RealMedia bridge against a missing library and three stand-ins. The
// variant under test comes from ZIRK_REALMEDIA_VARIANT; the build points the
// library search path at the matching stand-in (none for "absent").
#include <stdlib.h>
#include <string.h>

#include <string>

#include <gtest/gtest.h>

#include <media/stagefright/MediaDefs.h>

#include "LogCapture.h"
#include "TestDataSources.h"
#include "entry/ZIRKExtractorEntry.h"

using namespace android;
using android::test::LogCapture;
using android::test::MemorySource;

namespace {

const char kFailedToOpen[] = "Failed to open librealmediaextractor.so";
const char kNoFactory[] = "getZIRKRealMediaExtractorInstance not found in librealmediaextractor.so";
const char kNoSniffer[] = "Can't found ZIRKSniffRealMedia in librealmediaextractor.so";

std::string variant() {
    const char* v = getenv("ZIRK_REALMEDIA_VARIANT");
    return v ? v : "absent";
}

sp<DataSource> realMediaBytes() {
    return new MemorySource({'.', 'R', 'M', 'F', 0, 0, 0, 0x12, 0, 0, 0, 0});
}

class RealMediaBridgeTest : public ::testing::Test {
protected:
    LogCapture mLog;
};

TEST_F(RealMediaBridgeTest, FactoryFollowsTheLibrary) {
    // Upper case on purpose: the factory matches MIME types case-insensitively.
    std::string mime = MEDIA_MIMETYPE_CONTAINER_REALMEDIA;
    for (char& c : mime) c = static_cast<char>(toupper(c));
    sp<MediaExtractor> first = getInstance(realMediaBytes(), mime.c_str());
    sp<MediaExtractor> second = getInstance(realMediaBytes(), mime.c_str());
    const std::string v = variant();
    if (v == "present" || v == "nosniffer") {
        ASSERT_NE(first, nullptr);
        const char* container = nullptr;
        sp<MetaData> fileMeta = first->getMetaData();
        ASSERT_TRUE(fileMeta->findCString(kKeyMIMEType, &container));
        EXPECT_STREQ(container, MEDIA_MIMETYPE_CONTAINER_REALMEDIA);
        EXPECT_EQ(mLog.count(kFailedToOpen), 0u);
        EXPECT_NE(gZIRKRealMediaExtractorLibHandle, nullptr);
    } else {
        EXPECT_EQ(first, nullptr);
        EXPECT_EQ(second, nullptr);
    }
    if (v == "absent") {
        // A failed open is retried (and logged) on every request.
        EXPECT_EQ(mLog.count(kFailedToOpen, ANDROID_LOG_DEBUG), 2u);
        EXPECT_EQ(gZIRKRealMediaExtractorLibHandle, nullptr);
    }
    if (v == "nofactory") {
        EXPECT_EQ(mLog.count(kNoFactory, ANDROID_LOG_DEBUG), 2u);
    }
}

TEST_F(RealMediaBridgeTest, SnifferFollowsTheLibrary) {
    String8 mime;
    float confidence = 0.0f;
    sp<AMessage> meta = new AMessage;
    bool found = sniffZIRKExtractor(realMediaBytes(), &mime, &confidence, &meta);
    const std::string v = variant();
    if (v == "present" || v == "nofactory") {
        EXPECT_TRUE(found);
        EXPECT_STREQ(mime.c_str(), MEDIA_MIMETYPE_CONTAINER_REALMEDIA);
        EXPECT_FLOAT_EQ(confidence, 0.5f);
        // The RealMedia sniffer is always handed a null meta.
        EXPECT_EQ(meta->countEntries(), 0u);
    } else {
        EXPECT_FALSE(found);
    }
    if (v == "absent") {
        EXPECT_EQ(mLog.count(kFailedToOpen, ANDROID_LOG_DEBUG), 1u);
    }
    if (v == "nosniffer") {
        EXPECT_EQ(mLog.count(kNoSniffer, ANDROID_LOG_DEBUG), 1u);
    }
}

TEST_F(RealMediaBridgeTest, NonRealMediaBytesAreNotClaimed) {
    String8 mime;
    float confidence = 0.0f;
    sp<DataSource> other = new MemorySource(std::vector<uint8_t>(64, 0x5A));
    EXPECT_FALSE(sniffZIRKExtractor(other, &mime, &confidence, nullptr));
}

}  // namespace
