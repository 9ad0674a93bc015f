// ZIRKMOVSource through ZIRKMOVExtractor: where the four seek modes land on a
// real file (per-sample video and chunk-based audio), AVC samples whose last
// NAL or length field is cut by the sample's end, the QuickTime sniffer, the
// file metadata of the real M4A and 3GP files, and the source's fatal checks.
#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <media/stagefright/MediaDefs.h>
#include <media/stagefright/MediaErrors.h>
#include <media/stagefright/foundation/AMessage.h>

#include "CheckMatchers.h"
#include "LogCapture.h"
#include "MOVBuilder.h"
#include "TestDataSources.h"
#include "TrackReader.h"
#include "mov/ZIRKMOVExtractor.h"
#include "mov/ZIRKMOVDataSource.h"
#include "mov/ZIRKMOVSampleTable.h"
#include "mov/ZIRKMOVSource.h"

using namespace android;
using namespace android::test;
using namespace android::test::mov;

namespace {

using Mode = MediaSource::ReadOptions::SeekMode;

sp<MediaExtractor> openFile(const char* name) {
    return new ZIRKMOVExtractor(new MemorySource(readFileBytes(testdataPath(name))));
}

// Starts the track, seeks once, and reads up to `reads` buffers.
TrackRead seekAndRead(const sp<MediaSource>& source, int64_t timeUs, Mode mode, size_t reads) {
    TrackRead out;
    EXPECT_EQ(source->start(), OK);
    MediaSource::ReadOptions options;
    options.setSeekTo(timeUs, mode);
    Sample s;
    out.end = readSample(source, &s, &options);
    if (out.end == OK) out.samples.push_back(s);
    while (out.end == OK && out.samples.size() < reads) {
        out.end = readSample(source, &s);
        if (out.end == OK) out.samples.push_back(s);
    }
    source->stop();
    return out;
}

// mov_h264_aac.mov's video: 50 frames at 25 fps with B-frames, composition
// times 80 ms to 2 s, sync samples 0 (80 ms) and 25 (1.08 s) in decoding order.
TEST(ZIRKMOVSourceTest, VideoSeeksLandWhereTheModeSays) {
    struct Row { Mode mode; int64_t targetUs; int64_t firstUs; int64_t tarT; };  // firstUs -1: end of stream
    const Row rows[] = {
            {Mode::SEEK_PREVIOUS_SYNC, 500000, 80000, -1},  {Mode::SEEK_PREVIOUS_SYNC, 1100000, 1080000, -1},
            {Mode::SEEK_NEXT_SYNC, 510000, 1080000, -1},    {Mode::SEEK_NEXT_SYNC, 1990000, -1, -1},
            {Mode::SEEK_CLOSEST_SYNC, 200000, 80000, -1},   {Mode::SEEK_CLOSEST_SYNC, 1900000, 1080000, -1},
            // Decoding starts at the sync sample before; the target is the closest sample's time.
            {Mode::SEEK_CLOSEST, 510000, 80000, 520000},    {Mode::SEEK_CLOSEST, 1500000, 1080000, 1520000},
            {Mode::SEEK_CLOSEST_SYNC, 9000000, 1080000, -1},
    };
    sp<MediaExtractor> extractor = openFile("mov_h264_aac.mov");
    for (const Row& row : rows) {
        SCOPED_TRACE(std::to_string(row.mode) + " @" + std::to_string(row.targetUs));
        sp<MediaSource> video = extractor->getTrack(0);
        TrackRead read = seekAndRead(video, row.targetUs, row.mode, 1);
        if (row.firstUs < 0) {
            EXPECT_EQ(read.end, ERROR_END_OF_STREAM);
            continue;
        }
        ASSERT_EQ(read.samples.size(), 1u);
        EXPECT_EQ(read.samples[0].timeUs, row.firstUs);
        EXPECT_EQ(read.samples[0].sync, 1);
        int64_t tarT = -1;
        if (row.tarT >= 0) {
            MediaSource::ReadOptions options;
            options.setSeekTo(row.targetUs, row.mode);
            ASSERT_EQ(video->start(), OK);
            MediaBuffer* buffer = nullptr;
            ASSERT_EQ(video->read(&buffer, &options), OK);
            buffer->meta_data()->findInt64(kKeyTargetTime, &tarT);
            buffer->release();
            video->stop();
        }
        EXPECT_EQ(tarT, row.tarT);
    }
}

// Chunk-based audio: every mode lands on the buffer that holds the target
// (it starts at or before it, the next one after it), and reading goes on
// from there without a gap.
TEST(ZIRKMOVSourceTest, ChunkAudioSeeksLandOnTheFrameHoldingTheTarget) {
    for (const char* name : {"mov_mpeg4_twos.mov", "mov_mp3.mov", "mov_ima_adpcm.mov", "mov_ms_adpcm.mov"}) {
        sp<MediaExtractor> extractor = openFile(name);
        const size_t track = extractor->countTracks() - 1;
        const TrackRead all = readTrack(extractor->getTrack(track));
        ASSERT_EQ(all.end, ERROR_END_OF_STREAM) << name;
        for (int64_t targetUs : {int64_t(0), int64_t(333333), int64_t(1234567)}) {
            for (Mode mode : {Mode::SEEK_PREVIOUS_SYNC, Mode::SEEK_NEXT_SYNC, Mode::SEEK_CLOSEST}) {
                SCOPED_TRACE(std::string(name) + " @" + std::to_string(targetUs) + " mode " + std::to_string(mode));
                TrackRead read = seekAndRead(extractor->getTrack(track), targetUs, mode, 3);
                ASSERT_EQ(read.samples.size(), 3u);
                EXPECT_LE(read.samples[0].timeUs, targetUs);
                EXPECT_GT(read.samples[1].timeUs, targetUs);
                // The same buffers as a read from the start (times restart
                // from the chunk's time: they may differ by a rounding).
                size_t at = 0;
                while (at < all.samples.size() && std::abs(all.samples[at].timeUs - read.samples[0].timeUs) > 1) ++at;
                ASSERT_LT(at + 2, all.samples.size());
                for (size_t i = 0; i < 3; ++i) EXPECT_EQ(read.samples[i].data, all.samples[at + i].data);
            }
        }
    }
}

// One AVC track (4-byte NAL lengths) whose samples lie in an mdat before moov.
Bytes avcMovie(const std::vector<Bytes>& samples) {
    Bytes data;
    std::vector<uint64_t> sizes;
    for (const Bytes& s : samples) {
        append(&data, s);
        sizes.push_back(s.size());
    }
    const Bytes kAVCC = {1, 0x42, 0xC0, 0x1E, 0xFF, 0xE0, 0x00};
    Bytes sd;
    putBE(&sd, 4, {0, 1});
    append(&sd, visualEntry("avc1", 64, 64, box("avcC", kAVCC)));
    const uint32_t n = static_cast<uint32_t>(samples.size());
    Bytes sampleTable = box("stbl", cat({box("stsd", sd), box("stts", mov::table({n, 1000}, 2)),
                                   box("stsc", mov::table({1, n, 1}, 3)), box("stsz", stsz(0, sizes)),
                                   box("stco", mov::table({8}))}));
    return cat({box("mdat", data), box("moov", cat({fullBox("mvhd", 0, 0, Bytes(96, 0)), trak(1, "vide", sampleTable)}))});
}

// A NAL whose length runs past its sample is cut at the sample's end, and a
// length field cut by the end becomes a NAL of its own bytes; both warn.
TEST(ZIRKMOVSourceTest, AVCSamplesCutByTheirEndAreDeliveredWithAWarning) {
    const Bytes overrun = {0, 0, 0, 3, 'a', 'b', 'c', 0, 0, 0, 9, 'x', 'y'};
    const Bytes cutField = {0, 0, 0, 2, 'a', 'b', 0, 0};
    LogCapture log;
    sp<MediaExtractor> extractor = new ZIRKMOVExtractor(new MemorySource(avcMovie({overrun, cutField})));
    const TrackRead read = readTrack(extractor->getTrack(0));
    ASSERT_EQ(read.samples.size(), 2u);
    EXPECT_EQ(read.samples[0].data, Bytes({0, 0, 0, 1, 'a', 'b', 'c', 0, 0, 0, 1, 'x', 'y'}));
    EXPECT_EQ(read.samples[1].data, Bytes({0, 0, 0, 1, 'a', 'b', 0, 0, 0, 1, 0, 0}));
    EXPECT_TRUE(log.contains("Video sample malformed: @11 + 9 > 13"));
    EXPECT_TRUE(log.contains("Video sample malformed: @6 + 0 > 8"));

    // NAL fragments asked for: the samples as stored.
    sp<MediaSource> source = extractor->getTrack(0);
    sp<MetaData> params = new MetaData;
    params->setInt32(kKeyWantsNALFragments, 1);
    ASSERT_EQ(source->start(params.get()), OK);
    const TrackRead whole = readTrack(source, false);
    source->stop();
    ASSERT_EQ(whole.samples.size(), 2u);
    EXPECT_EQ(whole.samples[0].data, overrun);
}

TEST(ZIRKMOVSourceDeathTest, FatalChecks) {
    sp<MediaExtractor> extractor = new ZIRKMOVExtractor(new MemorySource(avcMovie({{0, 0, 0, 1, 'a'}})));
    const std::string source = "mov/ZIRKMOVSource";
    EXPECT_DEATH({ sp<MediaSource> s = extractor->getTrack(0); s->start(); s->start(); },
                 checkMessage(source, "CHECK(!mStarted) failed."));
    EXPECT_DEATH(extractor->getTrack(0)->stop(), checkMessage(source, "CHECK(mStarted) failed."));
    EXPECT_DEATH({ MediaBuffer* b; extractor->getTrack(0)->read(&b); }, checkMessage(source, "CHECK(mStarted) failed."));
    EXPECT_DEATH(
            {
                sp<MediaSource> s = extractor->getTrack(0);
                s->start();
                MediaSource::ReadOptions options;
                options.setSeekTo(0, static_cast<Mode>(7));
                MediaBuffer* b;
                s->read(&b, &options);
            },
            checkMessage(source, "CHECK(!\"Should not be here.\") failed."));
    sp<MetaData> format = new MetaData(*extractor->getTrackMetaData(0, 0));
    format->remove(kKeyMaxInputSize);
    EXPECT_DEATH(
            {
                sp<MediaSource> s = new ZIRKMOVSource(format, new MemorySource(Bytes()), 1000, nullptr, nullptr, -1, 0, 0, 0);
                s->start();
            },
            checkMessage(source, "CHECK(mFormat->findInt32(kKeyMaxInputSize, &max_size)) failed."));
}

// The sniffer's three methods. `metaSize` -1: no "meta-data-size" message.
TEST(ZIRKSniffMOVTest, ClaimsQuickTimeFilesOnly) {
    const Bytes qtFtyp = box("ftyp", cat({{'q', 't', ' ', ' '}, Bytes(4, 0)}));
    const Bytes isoFtyp = box("ftyp", cat({{'i', 's', 'o', 'm'}, Bytes(4, 0), {'m', 'p', '4', '2'}}));
    const Bytes compatQt = box("ftyp", cat({{'i', 's', 'o', 'm'}, Bytes(4, 0), {'m', 'p', '4', '2', 'q', 't', ' ', ' '}}));
    const Bytes moov = box("moov", Bytes(40, 0));
    struct Row { const char* name; Bytes bytes; float confidence; int64_t metaSize; const char* log; };
    const Row rows[] = {
            {"brand_and_moov_early", cat({qtFtyp, moov}), 0.7f, 16 + 48, "Identified supported MOV through BetterSniffMOV."},
            {"compatible_brand", cat({compatQt, moov}), 0.7f, 24 + 48, "Identified supported MOV through BetterSniffMOV."},
            {"moov_past_128", cat({qtFtyp, box("mdat", Bytes(200, 0)), moov}), 0.7f, -1,
             "Identified supported MOV through BetterSniffMOV."},
            {"iso_brands", cat({isoFtyp, moov}), 0, -1, nullptr},
            {"legacy_brand_bad_walk", cat({box("ftyp", {'q', 't', ' ', ' '}), Bytes(8, 0)}), 0.7f, -1,
             "Identified supported MOV through LegacySniffMOV."},
            {"old_file_mdat_first", cat({box("mdat", Bytes(4, 0)), moov}), 0.5f, -1,
             "dentified supported MOV through finding mdat"},
            {"wide_first", cat({box("wide", {}), Bytes(8, 0)}), 0.5f, -1, "dentified supported MOV through finding wide"},
            {"eleven_bytes", Bytes({0, 0, 0, 8, 'w', 'i', 'd', 'e', 0, 0, 0}), 0, -1, nullptr},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        LogCapture log;
        String8 mime;
        float confidence = 0;
        sp<AMessage> meta;
        const bool claimed = ZIRKSniffMOV(new MemorySource(row.bytes), &mime, &confidence, &meta);
        EXPECT_EQ(claimed, row.confidence > 0);
        if (!claimed) continue;
        EXPECT_STREQ(mime.c_str(), MEDIA_MIMETYPE_CONTAINER_MOV);
        EXPECT_FLOAT_EQ(confidence, row.confidence);
        int64_t size = -1;
        if (meta != nullptr) EXPECT_TRUE(meta->findInt64("meta-data-size", &size));
        EXPECT_EQ(size, row.metaSize);
        EXPECT_TRUE(log.contains(row.log, ANDROID_LOG_WARN)) << row.log;
    }
}

// The tags ffprobe -show_format reports for the same files, except where
// this system has its own rule: the 3GPP strings (ffprobe shows none of
// them) are checked against what the muxer was given, and the iTunSMPB item
// gives the encoder delay and padding to the last track.
TEST(ZIRKMOVSourceTest, RealFileMetadata) {
    sp<MediaExtractor> m4a = openFile("m4a_aac_tags.m4a");
    sp<MetaData> meta = m4a->getMetaData();
    const std::vector<std::pair<uint32_t, const char*>> m4aTags = {
            {kKeyTitle, "Test Title"}, {kKeyArtist, "Test Artist"}, {kKeyAlbum, "Test Album"},
            {kKeyYear, "2014"},        {kKeyCDTrackNumber, "3/12"}, {kKeyGenre, "Jazz"}};
    const char* text;
    for (const auto& tag : m4aTags) {
        ASSERT_TRUE(meta->findCString(tag.first, &text)) << tag.second;
        EXPECT_STREQ(text, tag.second);
    }
    uint32_t type;
    const Bytes art = findBytes(meta, kKeyAlbumArt, &type);
    ASSERT_GE(art.size(), 8u);
    EXPECT_EQ(Bytes(art.begin(), art.begin() + 4), Bytes({0x89, 'P', 'N', 'G'}));
    int32_t delay = 0, padding = 0;
    EXPECT_TRUE(m4a->getTrackMetaData(0, 0)->findInt32(kKeyEncoderDelay, &delay));
    EXPECT_TRUE(m4a->getTrackMetaData(0, 0)->findInt32(kKeyEncoderPadding, &padding));
    EXPECT_EQ(delay, 0x840);
    EXPECT_EQ(padding, 0x1CA);

    // MPEG-2 without esds: the source hands on the first frame's sequence
    // header (and its extension), up to the GOP header that follows it.
    sp<MediaSource> mpeg2 = openFile("mov_mpeg2.mov")->getTrack(0);
    const Bytes esds = findBytes(mpeg2->getFormat(), kKeyESDS);
    const Bytes frame = readTrack(mpeg2, true, 1).samples.at(0).data;
    const Bytes kSequence = {0, 0, 1, 0xB3};
    auto header = std::search(esds.begin(), esds.end(), kSequence.begin(), kSequence.end());
    ASSERT_NE(header, esds.end());
    const Bytes fromFrame(frame.begin(), frame.begin() + (esds.end() - header));
    EXPECT_EQ(Bytes(header, esds.end()), fromFrame);
    EXPECT_EQ(Bytes(frame.begin() + fromFrame.size(), frame.begin() + fromFrame.size() + 4), Bytes({0, 0, 1, 0xB8}));

    meta = openFile("3gp_h263_aac.3gp")->getMetaData();
    const std::vector<std::pair<uint32_t, const char*>> udta = {
            {kKeyTitle, "Test Title"}, {kKeyArtist, "Test Artist"}, {kKeyAuthor, "Test Author"},
            {kKeyAlbum, "Test Album"}, {kKeyYear, "2013"},          {kKeyGenre, "Rock"}};
    for (const auto& tag : udta) {
        ASSERT_TRUE(meta->findCString(tag.first, &text)) << tag.second;
        EXPECT_STREQ(text, tag.second);
    }
}

}  // namespace
