// The factory's dispatch and the sniffers' order, driven by the container
// registry, with the containers of this build. RealMedia is absent here (see
// RealMediaBridgeTest for the bridge).
#include <ctype.h>
#include <string.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <cutils/properties.h>
#include <media/stagefright/MediaDefs.h>

#include "LogCapture.h"
#include "TestDataSources.h"
#include "asf/extractor/ASFExtractor.h"
#include "avi/ZIRKAVIExtractor.h"
#include "entry/ZIRKContainerRegistry.h"
#include "entry/ZIRKExtractorEntry.h"
#include "flv/ZIRKFLVExtractor.h"
#include "mov/ZIRKMOVExtractor.h"

using namespace android;
using android::test::MemorySource;

namespace {

enum class Built { kNothing, kASF, kAVI, kFLV, kMOV };

// Every `step`-th character upper-cased (1: all of them).
std::string upper(const char* s, size_t step = 1) {
    std::string out(s);
    for (size_t i = 0; i < out.size(); i += step) out[i] = static_cast<char>(toupper(static_cast<unsigned char>(out[i])));
    return out;
}

Built kindOf(MediaExtractor* e) {
    if (e == nullptr) return Built::kNothing;
    if (dynamic_cast<ASFExtractor*>(e)) return Built::kASF;
    if (dynamic_cast<ZIRKAVIExtractor*>(e)) return Built::kAVI;
    if (dynamic_cast<ZIRKFLVExtractor*>(e)) return Built::kFLV;
    if (dynamic_cast<ZIRKMOVExtractor*>(e)) return Built::kMOV;
    ADD_FAILURE() << "an extractor of an unexpected class";
    return Built::kNothing;
}

// What each registered container's factory builds here: RealMedia's library
// is absent from this test's process.
Built builtFor(const ZIRKContainerInfo& c) {
    if (!strcmp(c.name, "ASF")) return Built::kASF;
    if (!strcmp(c.name, "AVI")) return Built::kAVI;
    if (!strcmp(c.name, "FLV")) return Built::kFLV;
    if (!strcmp(c.name, "MOV")) return Built::kMOV;
    return Built::kNothing;
}

TEST(EntryTest, FactoryTakesEveryRegisteredTypeIgnoringCase) {
    sp<DataSource> source = new MemorySource(std::vector<uint8_t>(16, 0));
    for (const ZIRKContainerInfo& c : kZIRKContainers) {
        for (size_t i = 0; i < ZIRKContainerInfo::kMaxListed && c.mimeTypes[i] != nullptr; ++i) {
            for (const std::string& mime : {std::string(*c.mimeTypes[i]), upper(*c.mimeTypes[i]),
                                            upper(*c.mimeTypes[i], 2)}) {
                sp<MediaExtractor> e = getInstance(source, mime.c_str());
                EXPECT_EQ(kindOf(e.get()), builtFor(c)) << "for '" << mime << "'";
            }
        }
    }
    // Exact strings only: no prefix or substring matches.
    for (const std::string& mime : {std::string(MEDIA_MIMETYPE_CONTAINER_AVI) + " ",
                                    std::string("video/x-unknown"), std::string()}) {
        EXPECT_EQ(getInstance(source, mime.c_str()), nullptr) << "for '" << mime << "'";
    }
    EXPECT_EQ(getInstance(source, nullptr), nullptr);
}

TEST(EntryTest, RegistryKeepsTheSniffOrderAndDistinctNames) {
    // The sniff order: ASF, AVI, MOV, FLV, then RealMedia.
    const char* const order[] = {MEDIA_MIMETYPE_CONTAINER_ASF, MEDIA_MIMETYPE_CONTAINER_AVI,
                                 MEDIA_MIMETYPE_CONTAINER_MOV, MEDIA_MIMETYPE_CONTAINER_FLV,
                                 MEDIA_MIMETYPE_CONTAINER_REALMEDIA};
    ASSERT_EQ(kZIRKContainerCount, std::size(order));
    // A MIME type, --container name or extension in two rows would make the
    // later row unreachable through it.
    std::set<std::string> seen;
    for (size_t row = 0; row < kZIRKContainerCount; ++row) {
        const ZIRKContainerInfo& c = kZIRKContainers[row];
        EXPECT_STREQ(c.mimeType(), order[row]);
        auto once = [&](const char* kind, const char* text) {
            if (text != nullptr) {
                EXPECT_TRUE(seen.insert(kind + upper(text)).second) << kind << text << " in " << c.name;
            }
        };
        for (size_t i = 0; i < ZIRKContainerInfo::kMaxListed; ++i) {
            once("MIME type ", c.mimeTypes[i] ? *c.mimeTypes[i] : nullptr);
            once("--container ", c.cliNames[i]);
            once("extension ", c.extensions[i]);
        }
    }
}

// Every bundled file with a registered extension: claimed by its container's
// sniffer when that demultiplexer is built, by none while it is pending.
class EntrySniffTest : public ::testing::TestWithParam<std::string> {};

std::vector<std::string> registeredFiles() {
    std::vector<std::string> files;
    for (const auto& entry : std::filesystem::directory_iterator(test::testdataPath(""))) {
        std::string ext = entry.path().extension().string();
        if (!ext.empty() && ZIRKContainerForExtension(ext.c_str() + 1)) files.push_back(entry.path().filename());
    }
    std::sort(files.begin(), files.end());
    return files;
}

TEST_P(EntrySniffTest, RealFilesAreClaimedByTheirSniffer) {
    const std::string file = GetParam();
    const ZIRKContainerInfo& c = *ZIRKContainerForExtension(file.substr(file.rfind('.') + 1).c_str());
    // The confidence each sniffer reports.
    const std::map<std::string, float> kConfidence = {{"ASF", 0.8f}, {"AVI", 0.21f}, {"FLV", 0.71f}, {"MOV", 0.7f}};
    sp<DataSource> source = new MemorySource(test::readFileBytes(test::testdataPath(file)));
    String8 mime;
    float confidence = 0;
    // A caller's meta with an entry of its own: neither the AVI nor the FLV
    // sniffer adds to it (the AVI one is never even handed it), nor the MOV
    // one when the movie header lies past its 128-byte walk, as in these files.
    sp<AMessage> meta = new AMessage;
    meta->setInt32("caller", 7);
    sp<AMessage> before = meta;
    const bool claimed = sniffZIRKExtractor(source, &mime, &confidence, &meta);
    // ISO files (brands without "qt  ", first box 'ftyp') are opened by
    // container type, never claimed by the MOV sniffer.
    const bool isoFile = !strcmp(c.name, "MOV") && file.substr(file.rfind('.')) != ".mov";
    if (builtFor(c) == Built::kNothing || isoFile) {
        EXPECT_FALSE(claimed) << "claimed as " << mime.c_str();
        return;
    }
    ASSERT_TRUE(claimed);
    EXPECT_STREQ(mime.c_str(), c.mimeType());
    EXPECT_FLOAT_EQ(confidence, kConfidence.at(c.name));
    EXPECT_EQ(meta, before);
    EXPECT_EQ(meta->countEntries(), 1u);
    // ASF's test file holds Windows Media streams: they show only with the
    // property set, read when the extractor is made.
    const bool windowsMedia = !strcmp(c.name, "ASF");
    if (windowsMedia) property_set(ASFExtractor::kSupportWMVAProperty, "1");
    sp<MediaExtractor> extractor = getInstance(source, mime.c_str());
    if (windowsMedia) property_set(ASFExtractor::kSupportWMVAProperty, "0");
    ASSERT_NE(extractor, nullptr);
    EXPECT_GT(extractor->countTracks(), 0u);
}

INSTANTIATE_TEST_SUITE_P(Containers, EntrySniffTest, ::testing::ValuesIn(registeredFiles()),
                         [](const ::testing::TestParamInfo<std::string>& info) {
                             return test::testNameFor(info.param);
                         });

// "RIFF....AVI " with "FLV" further on: the AVI sniffer answers first.
// Bytes no sniffer claims (none at all, or no header) leave every output alone.
TEST(EntryTest, SniffOrderAndUnclaimedBytes) {
    const std::pair<std::vector<uint8_t>, const char*> kCases[] = {
        {{'R', 'I', 'F', 'F', 4, 0, 0, 0, 'A', 'V', 'I', ' ', 'F', 'L', 'V', 1}, MEDIA_MIMETYPE_CONTAINER_AVI},
        {std::vector<uint8_t>(4096, 0xA5), nullptr},
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
