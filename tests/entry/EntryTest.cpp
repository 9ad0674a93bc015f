// The factory's dispatch and the sniffers' order, with the containers of this
// build. RealMedia is absent here (see RealMediaBridgeTest for the bridge).
#include <ctype.h>

#include <string>

#include <gtest/gtest.h>

#include <media/stagefright/MediaDefs.h>

#include "LogCapture.h"
#include "TestDataSources.h"
#include "avi/ZIRKAVIExtractor.h"
#include "entry/ZIRKExtractorEntry.h"
#include "flv/ZIRKFLVExtractor.h"

using namespace android;
using android::test::MemorySource;

namespace {

enum class Built { kNothing, kAVI, kFLV };

std::string upper(const char* s) {
    std::string out(s);
    for (char& c : out) c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
    return out;
}

std::string mixed(const char* s) {
    std::string out(s);
    for (size_t i = 0; i < out.size(); i += 2) out[i] = static_cast<char>(toupper(static_cast<unsigned char>(out[i])));
    return out;
}

Built kindOf(MediaExtractor* e) {
    if (e == nullptr) return Built::kNothing;
    if (dynamic_cast<ZIRKAVIExtractor*>(e)) return Built::kAVI;
    if (dynamic_cast<ZIRKFLVExtractor*>(e)) return Built::kFLV;
    ADD_FAILURE() << "an extractor of an unexpected class";
    return Built::kNothing;
}

TEST(EntryTest, FactoryMatchesContainerTypesIgnoringCase) {
    sp<DataSource> source = new MemorySource(std::vector<uint8_t>(16, 0));
    struct Row {
        std::string mime;
        Built want;
    } rows[] = {
        {MEDIA_MIMETYPE_CONTAINER_AVI, Built::kAVI},
        {upper(MEDIA_MIMETYPE_CONTAINER_AVI), Built::kAVI},
        {mixed(MEDIA_MIMETYPE_CONTAINER_AVI), Built::kAVI},
        {MEDIA_MIMETYPE_CONTAINER_FLV, Built::kFLV},
        {upper(MEDIA_MIMETYPE_CONTAINER_FLV), Built::kFLV},
        // ASF (and WMA, which goes to the same demultiplexer) and MOV are
        // not in this build: the factory makes nothing for them.
        {MEDIA_MIMETYPE_CONTAINER_ASF, Built::kNothing},
        {MEDIA_MIMETYPE_CONTAINER_WMA, Built::kNothing},
        {MEDIA_MIMETYPE_CONTAINER_MOV, Built::kNothing},
        // Exact strings only: no prefix or substring matches.
        {std::string(MEDIA_MIMETYPE_CONTAINER_AVI) + " ", Built::kNothing},
        {"video/x-unknown", Built::kNothing},
        {"", Built::kNothing},
    };
    for (const Row& row : rows) {
        sp<MediaExtractor> e = getInstance(source, row.mime.c_str());
        EXPECT_EQ(kindOf(e.get()), row.want) << "for '" << row.mime << "'";
    }
    EXPECT_EQ(getInstance(source, nullptr), nullptr);
}

struct SniffCase {
    const char* file;
    const char* mime;
    float confidence;
};

class EntrySniffTest : public ::testing::TestWithParam<SniffCase> {};

TEST_P(EntrySniffTest, RealFilesAreClaimedByTheirSniffer) {
    const SniffCase& c = GetParam();
    sp<DataSource> source = new MemorySource(test::readFileBytes(test::testdataPath(c.file)));
    String8 mime;
    float confidence = 0;
    // A caller's meta with an entry of its own: neither the AVI nor the FLV
    // sniffer adds to it (the AVI one is never even handed it).
    sp<AMessage> meta = new AMessage;
    meta->setInt32("caller", 7);
    sp<AMessage> before = meta;
    ASSERT_TRUE(sniffZIRKExtractor(source, &mime, &confidence, &meta));
    EXPECT_STREQ(mime.c_str(), c.mime);
    EXPECT_FLOAT_EQ(confidence, c.confidence);
    EXPECT_EQ(meta, before);
    EXPECT_EQ(meta->countEntries(), 1u);
    sp<MediaExtractor> extractor = getInstance(source, mime.c_str());
    ASSERT_NE(extractor, nullptr);
    EXPECT_GT(extractor->countTracks(), 0u);
}

INSTANTIATE_TEST_SUITE_P(Containers, EntrySniffTest,
                         ::testing::Values(SniffCase{"avi_xvid_mp3.avi", "video/avi", 0.21f},
                                           SniffCase{"flv_h264_aac.flv", "video/x-flv", 0.71f}));

TEST(EntryTest, AviIsTriedBeforeFlv) {
    // "RIFF....AVI " with "FLV" further on: the AVI sniffer answers first.
    std::vector<uint8_t> bytes = {'R', 'I', 'F', 'F', 4, 0, 0, 0, 'A', 'V', 'I', ' ', 'F', 'L', 'V', 1};
    sp<DataSource> source = new MemorySource(bytes);
    String8 mime;
    float confidence = 0;
    ASSERT_TRUE(sniffZIRKExtractor(source, &mime, &confidence, nullptr));
    EXPECT_STREQ(mime.c_str(), MEDIA_MIMETYPE_CONTAINER_AVI);
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
