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
using namespace android::test;

namespace {

// Pins a failed open that is remembered (it is retried, and logged, on every
// request), a missing symbol that crashes instead of logging, the factory or
// sniffer of the library not reached through the case-insensitive MIME type
// or the sniff chain, and the caller's meta handed to the RealMedia sniffer.
TEST(RealMediaBridgeTest, FactoryAndSnifferFollowTheLibrary) {
    const char kFailedToOpen[] = "Failed to open librealmediaextractor.so";
    // Each logged line: two factory calls, a RealMedia file and other bytes sniffed.
    const struct { const char* mVariant; bool mFactory, mSniffer; const char* mLog; size_t mLogged; } kRows[] = {
        {"absent", false, false, kFailedToOpen, 4},
        {"present", true, true, kFailedToOpen, 0},
        {"nofactory", false, true, "getZIRKRealMediaExtractorInstance not found in librealmediaextractor.so", 2},
        {"nosniffer", true, false, "Can't found ZIRKSniffRealMedia in librealmediaextractor.so", 2},
    };
    const char* variant = getenv("ZIRK_REALMEDIA_VARIANT");
    for (const auto& row : kRows) {
        if (strcmp(row.mVariant, variant ? variant : "absent") != 0) continue;
        LogCapture log;
        std::string mime = MEDIA_MIMETYPE_CONTAINER_REALMEDIA;
        for (char& c : mime) c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
        const Bytes rmf = {'.', 'R', 'M', 'F', 0, 0, 0, 0x12, 0, 0, 0, 0};
        for (int i = 0; i < 2; ++i) {
            sp<MediaExtractor> e = getInstance(new MemorySource(rmf), mime.c_str());
            const char* container = "";
            EXPECT_EQ(e != nullptr, row.mFactory);
            EXPECT_TRUE(!e || (e->getMetaData()->findCString(kKeyMIMEType, &container) &&
                               !strcmp(container, MEDIA_MIMETYPE_CONTAINER_REALMEDIA)));
        }
        String8 found;
        float confidence = 0.0f;
        sp<AMessage> meta = new AMessage;
        EXPECT_EQ(sniffZIRKExtractor(new MemorySource(rmf), &found, &confidence, &meta), row.mSniffer);
        EXPECT_TRUE(!row.mSniffer || (found == String8(MEDIA_MIMETYPE_CONTAINER_REALMEDIA) && confidence == 0.5f));
        EXPECT_EQ(meta->countEntries(), 0u);
        EXPECT_FALSE(sniffZIRKExtractor(new MemorySource(Bytes(64, 0x5A)), &found, &confidence, nullptr));
        EXPECT_EQ(log.count(row.mLog, ANDROID_LOG_DEBUG), row.mLogged);
        EXPECT_EQ(gZIRKRealMediaExtractorLibHandle != nullptr, strcmp(row.mVariant, "absent") != 0);
        return;
    }
    FAIL() << "unknown variant " << variant;
}

}  // namespace
