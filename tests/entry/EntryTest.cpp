// The factory's dispatch and the sniffers' order, with the containers of this
// build. RealMedia is absent here (see RealMediaBridgeTest for the bridge).
#include <gtest/gtest.h>

#include <media/stagefright/MediaDefs.h>

#include "LogCapture.h"
#include "TestDataSources.h"
#include "entry/ZIRKExtractorEntry.h"

using namespace android;
using android::test::MemorySource;

namespace {

TEST(EntryTest, UnknownOrMissingContainerTypeYieldsNoExtractor) {
    sp<DataSource> source = new MemorySource(std::vector<uint8_t>(16, 0));
    EXPECT_EQ(getInstance(source, "video/x-unknown"), nullptr);
    EXPECT_EQ(getInstance(source, ""), nullptr);
    EXPECT_EQ(getInstance(source, nullptr), nullptr);
}

TEST(EntryTest, UnrecognisedBytesAreNotClaimedAndLeaveOutputsAlone) {
    sp<DataSource> source = new MemorySource(std::vector<uint8_t>(4096, 0xA5));
    String8 mime("untouched");
    float confidence = -1.0f;
    sp<AMessage> meta = new AMessage;
    EXPECT_FALSE(sniffZIRKExtractor(source, &mime, &confidence, &meta));
    EXPECT_STREQ(mime.c_str(), "untouched");
    EXPECT_EQ(confidence, -1.0f);
    EXPECT_EQ(meta->countEntries(), 0u);
}

TEST(EntryTest, EmptySourceIsNotClaimed) {
    sp<DataSource> source = new MemorySource({});
    String8 mime;
    float confidence = 0;
    EXPECT_FALSE(sniffZIRKExtractor(source, &mime, &confidence, nullptr));
}

}  // namespace
