// The factory's dispatch and the sniffers through the container registry, with
// the containers of this build. RealMedia's library is absent from this
// process (RealMediaBridgeTest drives the bridge).
#include <ctype.h>
#include <string.h>

#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <media/stagefright/MediaDefs.h>

#include "TestDataSources.h"
#include "asf/extractor/ASFExtractor.h"
#include "avi/ZIRKAVIExtractor.h"
#include "entry/ZIRKContainerRegistry.h"
#include "entry/ZIRKExtractorEntry.h"
#include "flv/ZIRKFLVExtractor.h"
#include "mov/ZIRKMOVExtractor.h"

using namespace android;
using namespace android::test;

namespace {

// The registry row whose demultiplexer `e` is ("" for none).
std::string builtBy(const sp<MediaExtractor>& e) {
    if (e == nullptr) return "";
    if (dynamic_cast<ASFExtractor*>(e.get())) return "ASF";
    if (dynamic_cast<ZIRKAVIExtractor*>(e.get())) return "AVI";
    if (dynamic_cast<ZIRKFLVExtractor*>(e.get())) return "FLV";
    return dynamic_cast<ZIRKMOVExtractor*>(e.get()) ? "MOV" : "an unexpected class";
}

// Every `step`-th character upper-cased (0: none).
std::string upper(std::string s, size_t step = 1) {
    for (size_t i = 0; step > 0 && i < s.size(); i += step) s[i] = char(toupper(static_cast<unsigned char>(s[i])));
    return s;
}

// Pins a case-sensitive or prefix match of the MIME type, a row dispatched to
// another row's factory (so also a MIME type listed twice), a null type
// dereferenced, and a --container name or extension listed in two rows (the
// later row would be unreachable through it).
TEST(EntryTest, FactoryTakesEveryRegisteredTypeIgnoringCase) {
    sp<DataSource> source = new MemorySource(Bytes(16, 0));
    std::set<std::string> names;
    for (const ZIRKContainerInfo& c : kZIRKContainers) {
        const std::string want = strcmp(c.name, "RealMedia") ? c.name : "";
        for (size_t i = 0; i < ZIRKContainerInfo::kMaxListed; ++i) {
            EXPECT_TRUE(!c.cliNames[i] || names.insert(upper(std::string("--") + c.cliNames[i])).second) << c.name;
            EXPECT_TRUE(!c.extensions[i] || names.insert(upper(c.extensions[i])).second) << c.extensions[i];
            for (size_t step = 0; c.mimeTypes[i] != nullptr && step < 3; ++step) {
                const std::string mime = upper(*c.mimeTypes[i], step);
                EXPECT_EQ(builtBy(getInstance(source, mime.c_str())), want) << mime;
            }
        }
    }
    const std::string spaced = std::string(MEDIA_MIMETYPE_CONTAINER_AVI) + " ";
    for (const char* mime : {spaced.c_str(), "video/x-unknown", "", static_cast<const char*>(nullptr)}) {
        EXPECT_EQ(builtBy(getInstance(source, mime)), "") << (mime ? mime : "null");
    }
}

// Pins a sniffer that misses its own files or claims another's, a wrong
// confidence, ISO files claimed by the MOV sniffer (they open by container
// type) and sniffers writing into the caller's meta (AVI and FLV never do;
// MOV not when the movie header lies past its 128-byte walk, as here).
TEST(EntrySniffTest, RealFilesAreClaimedByTheirSniffer) {
    const std::map<std::string, float> kConfidence = {{"ASF", 0.8f}, {"AVI", 0.21f}, {"FLV", 0.71f}, {"MOV", 0.7f}};
    size_t files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(testdataPath(""))) {
        const std::string ext = entry.path().extension();
        const ZIRKContainerInfo* c = ext.empty() ? nullptr : ZIRKContainerForExtension(ext.c_str() + 1);
        if (c == nullptr) continue;
        SCOPED_TRACE(entry.path().filename());
        ++files;
        String8 mime;
        float confidence = 0;
        sp<AMessage> meta = new AMessage, before = meta;
        meta->setInt32("caller", 7);
        sp<DataSource> source = new MemorySource(readFileBytes(entry.path()));
        const bool claimed = sniffZIRKExtractor(source, &mime, &confidence, &meta);
        ASSERT_EQ(claimed, kConfidence.count(c->name) && (strcmp(c->name, "MOV") || ext == ".mov")) << mime.c_str();
        EXPECT_TRUE(meta == before && meta->countEntries() == 1u);
        if (!claimed) continue;
        // ASF reports its second type for audio-only files.
        EXPECT_EQ(ZIRKContainerForMimeType(mime.c_str()), c) << mime.c_str();
        EXPECT_FLOAT_EQ(confidence, kConfidence.at(c->name));
    }
    EXPECT_GT(files, 20u);
}

// Pins the sniff order ("RIFF....AVI " with "FLV" further on: the AVI sniffer
// answers first) and outputs written although no sniffer claims the bytes.
TEST(EntrySniffTest, SniffOrderAndUnclaimedBytes) {
    const std::pair<Bytes, const char*> kCases[] = {
        {{'R', 'I', 'F', 'F', 4, 0, 0, 0, 'A', 'V', 'I', ' ', 'F', 'L', 'V', 1}, MEDIA_MIMETYPE_CONTAINER_AVI},
        {Bytes(4096, 0xA5), nullptr},
        {{}, nullptr},
    };
    for (const auto& c : kCases) {
        String8 mime("untouched");
        float confidence = -1.0f;
        sp<AMessage> meta = new AMessage;
        EXPECT_EQ(sniffZIRKExtractor(new MemorySource(c.first), &mime, &confidence, &meta), c.second != nullptr);
        EXPECT_STREQ(mime.c_str(), c.second ? c.second : "untouched");
        EXPECT_TRUE(c.second || (confidence == -1.0f && meta->countEntries() == 0u)) << c.first.size();
    }
}

}  // namespace
