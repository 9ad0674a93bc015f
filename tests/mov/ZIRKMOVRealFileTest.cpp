// The MOV test files of testdata/ through the box parser and the sample
// table, against ffprobe's packet lists: every video and AAC sample's file
// offset, size and sync flag, and its composition time up to one constant
// offset per track (edit lists are not applied). PCM tracks are listed per
// chunk by ffprobe and per frame here, so only their presence is checked.
// In the fragmented file the moov indexes only the first fragment: its
// samples must be the first ones listed, and the fragments after it are
// walked but not played.
#include <string>

#include <gtest/gtest.h>

#include <media/stagefright/MediaDefs.h>

#include "TestDataSources.h"
#include "mov/ZIRKMOVExtractor.h"
#include "mov/ZIRKMOVSampleTable.h"

using namespace android;
using namespace android::test;

namespace {

class ZIRKMOVRealFileTest : public ::testing::TestWithParam<std::string> {};

TEST_P(ZIRKMOVRealFileTest, SampleTablesMatchTheListedPackets) {
    const std::string name = GetParam();
    sp<ZIRKMOVExtractor> ex = new ZIRKMOVExtractor(new MemorySource(readFileBytes(testdataPath(name))));
    ASSERT_GT(ex->countTracks(), 0u);
    const std::vector<CsvRow> packets = readTestdataCsv(name + ".packets.csv");
    for (const char* kind : {"video", "audio"}) {
        ZIRKMOVExtractor::Track* track = ex->findTrackByMimePrefix((std::string(kind) + "/").c_str());
        std::vector<const CsvRow*> rows;
        for (const CsvRow& r : packets) {
            if (r.at("codec_type") == kind && r.at("pts") != "N/A") rows.push_back(&r);
        }
        SCOPED_TRACE(kind);
        if (rows.empty()) {
            EXPECT_EQ(track, nullptr);
            continue;
        }
        ASSERT_NE(track, nullptr);
        const char* mime = "";
        track->meta->findCString(kKeyMIMEType, &mime);
        if (!strcasecmp(mime, MEDIA_MIMETYPE_AUDIO_RAW)) continue;
        const sp<ZIRKMOVSampleTable>& table = track->sampleTable;
        if (name.find("fragmented") != std::string::npos) {
            ASSERT_TRUE(table->countSamples() > 0 && table->countSamples() < rows.size()) << table->countSamples();
            rows.resize(table->countSamples());
        }
        ASSERT_EQ(table->countSamples(), rows.size());
        int64_t shift = 0;
        for (size_t i = 0; i < rows.size(); ++i) {
            off64_t offset;
            size_t size;
            uint32_t time;
            bool sync;
            ASSERT_EQ(table->getMetaDataForSample(i, &offset, &size, &time, &sync), OK) << i;
            EXPECT_EQ(offset, std::stoll(rows[i]->at("pos"))) << i;
            EXPECT_EQ(size, std::stoul(rows[i]->at("size"))) << i;
            EXPECT_EQ(sync, rows[i]->at("flags")[0] == 'K') << i;
            if (i == 0) shift = int64_t(time) - std::stoll(rows[i]->at("pts"));
            EXPECT_EQ(int64_t(time) - std::stoll(rows[i]->at("pts")), shift) << i;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Files, ZIRKMOVRealFileTest,
                         ::testing::Values("mov_h264_aac.mov", "mov_mpeg4_twos.mov", "mov_mjpeg_sowt.mov",
                                           "3gp_h263_aac.3gp", "m4a_aac_tags.m4a", "mp4_h264_faststart.mp4",
                                           "mp4_h264_fragmented.mp4"),
                         [](const ::testing::TestParamInfo<std::string>& info) { return testNameFor(info.param); });

}  // namespace
