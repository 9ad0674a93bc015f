// ZIRKFLVExtractor on crafted files: one row per hostile construct. A row
// states the outcome it pins (track count and how the chosen track reads, or
// the fatal check that must fire: some FLV checks are reachable from file
// content by rule) and is also run through the fuzz harness, which reads
// every track to the end and seeks in every mode. Run in both the plain and
// the sanitizer build.
#include <math.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <media/stagefright/MediaBuffer.h>
#include <media/stagefright/MediaDefs.h>
#include <media/stagefright/MediaErrors.h>
#include <media/stagefright/MetaData.h>

#include "FLVBuilder.h"
#include "CheckMatchers.h"
#include "TestDataSources.h"
#include "entry/ZIRKExtractorEntry.h"
#include "fuzz/ZIRKFuzzHarness.h"

using namespace android;
using namespace android::test;

namespace {

using B = FLVBuilder;
using Bytes = B::Bytes;

// A fatal check fires in the extractor (scan) or the source (read).
const char* const kSources[] = {"flv/ZIRKFLVExtractor", "flv/ZIRKFLVSource"};
const int64_t kUnchecked = -1;

Bytes cat(Bytes a, const Bytes& b) { return B::cat(a, b); }

// A 40-byte H.264 unit behind a 4-byte length: a 49-byte tag, so the read
// buffers (1.2 x the largest tag) hold more than the 13-byte preload.
const Bytes kKeyNAL = B::lengthPrefixed(4, {Bytes(40, 0x65)});
// 40 bytes of Sorenson frame, 40 of MP3, 30 of raw AAC.
const Bytes kFrame(40, 0x11);
const Bytes kMP3(40, 0xFF);
const Bytes kAAC(30, 0x21);

// onMetaData, H.264 (configuration, a key and an inter frame) and AAC
// (configuration and two frames).
B control() {
    B f;
    f.header().script(B::onMetaData({{"duration", B::amfNumber(1.0)}}));
    f.avc(0, B::kKey, 0, B::avcc(4)).avc(0, B::kKey, 1, kKeyNAL);
    f.avc(40, B::kInter, 1, B::lengthPrefixed(4, {Bytes(20, 0x41)}));
    return f.aac(0, 0, {0x12, 0x10}).aac(0, 1, kAAC).aac(23, 1, kAAC);
}

// H.264 with a configuration of `nalLengthSize`, then one tag of `nalData`.
Bytes avcWith(size_t nalLengthSize, const Bytes& nalData) {
    return B().header().avc(0, B::kKey, 0, B::avcc(nalLengthSize)).avc(0, B::kKey, 1, nalData).bytes();
}

// One Sorenson key frame at `timeMs`.
Bytes keyFrameAt(uint32_t timeMs) { return B().header().video(timeMs, B::kKey, B::kSorenson, kFrame).bytes(); }

// MP3 tags at 0 and 26 ms.
B mp3() { return B().header().audio(0, B::kMP3Mono22k, kMP3).audio(26, B::kMP3Mono22k, kMP3); }


struct Row {
    const char* id;
    Bytes (*build)();
    size_t tracks;       // countTracks()
    size_t track;        // the track read
    int reads;           // OK reads before the first failure
    status_t end;        // the first failing read()
    int64_t firstTimeUs; // kKeyTime of the first buffer (kUnchecked: not looked at)
    const char* fatal;   // or the check that must fire instead of all the above
    bool sizeKnown;
};

void PrintTo(const Row& row, std::ostream* os) { *os << row.id; }

const Row kRows[] = {
    // Controls: the files the rows mutate open and read cleanly.
    {"control_video", [] { return control().bytes(); }, 2, 0, 2, ERROR_END_OF_STREAM, 0, nullptr, true},
    {"control_audio", [] { return control().bytes(); }, 2, 1, 2, ERROR_END_OF_STREAM, 0, nullptr, true},

    // PreviousTagSize lies anywhere make the whole file unreadable.
    {"prev_tag_size0_nonzero", [] { return B().header(0x05, 9, 1, 1).audio(0, B::kMP3Mono22k, kMP3).bytes(); }, 0, 0, 0, OK, kUnchecked, nullptr, true},
    {"prev_tag_size_lies", [] { return B().header().tagWithPrevSize(B::kAudio, 0, cat({B::kMP3Mono22k}, kMP3), 12).bytes(); }, 0, 0, 0, OK, kUnchecked, nullptr, true},
    {"prev_tag_size_missing_at_end", [] { Bytes b = mp3().bytes(); b.resize(b.size() - 4); return b; }, 0, 0, 0, OK, kUnchecked, nullptr, true},

    // dataSize 0xFFFFFF in a file of a few dozen bytes: never allocated from,
    // and the PreviousTagSize 16 MiB on is not there.
    {"video_datasize_ffffff", [] { return B().header().tagHeader(B::kVideo, 0xFFFFFF).raw({0x12, 0}).bytes(); }, 0, 0, 0, OK, kUnchecked, nullptr, true},
    {"avc_config_datasize_ffffff", [] { return B().header().tagHeader(B::kVideo, 0xFFFFFF).raw(cat({0x17, 0, 0, 0, 0}, B::avcc(4))).bytes(); }, 0, 0, 0, OK, kUnchecked, nullptr, true},
    {"aac_config_datasize_ffffff", [] { return B().header().tagHeader(B::kAudio, 0xFFFFFF).raw({0xAF, 0, 0x12, 0x10}).bytes(); }, 0, 0, 0, OK, kUnchecked, nullptr, true},
    {"script_claims_16mib", [] { return B().header().tagHeader(B::kScript, 0xFFFFFF).raw(B::onMetaData({{"duration", B::amfNumber(1)}})).bytes(); }, 0, 0, 0, OK, kUnchecked, nullptr, true},
    {"script_claims_16mib_size_unknown", [] { return B().header().tagHeader(B::kScript, 0xFFFFFF).raw(B::onMetaData({{"duration", B::amfNumber(1)}})).bytes(); }, 0, 0, 0, OK, kUnchecked, nullptr, false},
    {"audio_datasize_beyond_file", [] { return mp3().tagHeader(B::kAudio, 1000, 52).raw(cat({B::kMP3Mono22k}, kMP3)).bytes(); }, 0, 0, 0, OK, kUnchecked, nullptr, true},

    // Tags smaller than their own headers: 0 or 1 byte of audio or video
    // fails the file; an empty script tag is accepted.
    {"video_datasize_0", [] { return mp3().tag(B::kVideo, 0, {}).bytes(); }, 0, 0, 0, OK, kUnchecked, nullptr, true},
    {"video_datasize_1", [] { return mp3().tag(B::kVideo, 0, {0x12}).bytes(); }, 0, 0, 0, OK, kUnchecked, nullptr, true},
    {"audio_datasize_0", [] { return mp3().tag(B::kAudio, 52, {}).bytes(); }, 0, 0, 0, OK, kUnchecked, nullptr, true},
    {"audio_datasize_1", [] { return mp3().tag(B::kAudio, 52, {B::kMP3Mono22k}).bytes(); }, 0, 0, 0, OK, kUnchecked, nullptr, true},
    {"script_datasize_0", [] { return mp3().script({}).bytes(); }, 1, 0, 2, ERROR_END_OF_STREAM, 0, nullptr, true},
    // An H.264 tag of 3 bytes: without a configuration its NAL read comes up
    // short (ERROR_IO, and the read does not move on); with one, the NAL walk
    // starts 2 bytes short, which is fatal.
    {"avc_tag_below_headers_no_config", [] { return B().header().tag(B::kVideo, 0, {0x17, 1, 0}).avc(40, B::kKey, 1, kKeyNAL).bytes(); }, 1, 0, 0, ERROR_IO, kUnchecked, nullptr, true},
    {"avc_tag_below_headers", [] { return B().header().avc(0, B::kKey, 0, B::avcc(4)).tag(B::kVideo, 0, {0x17, 1, 0}).avc(40, B::kKey, 1, kKeyNAL).bytes(); }, 0, 0, 0, OK, kUnchecked,
     "CHECK(size == 0) failed.", true},
    // Video whose every tag is under 11 bytes gets read buffers no larger
    // than the 13-byte preload (1.2 x 10 = 12).
    {"video_tags_below_preload", [] { return B().header().video(0, B::kKey, B::kSorenson, Bytes(9, 0)).bytes(); }, 0, 0, 0, OK, kUnchecked,
     "CHECK(pBuffer->size() > preLoadLen) failed.", true},

    // H.264 NAL length fields that claim more than the tag holds.
    {"avc_nal_length_lies", [] { return avcWith(4, cat({0, 0, 1, 0}, Bytes(40, 0x65))); }, 0, 0, 0, OK, kUnchecked, "CHECK(size == 0) failed.", true},
    {"avc_nal_length_field_cut", [] { return avcWith(2, cat(B::lengthPrefixed(2, {Bytes(40, 0x65)}), {0})); }, 0, 0, 0, OK, kUnchecked, "CHECK(size == 0) failed.", true},
    {"avc_nal_lengths_zero", [] { return avcWith(4, Bytes(44, 0)); }, 1, 0, 1, ERROR_END_OF_STREAM, 0, nullptr, true},
    // 1-byte lengths grow by 3 bytes a unit when rewritten to start codes:
    // 44 empty units need 132 more bytes than the 58-byte buffer has.
    {"avc_1byte_lengths_outgrow_buffer", [] { return avcWith(1, Bytes(44, 0)); }, 1, 0, 0, ERROR_MALFORMED, kUnchecked, nullptr, true},
    // An AAC configuration and no frame leaves the audio track empty.
    {"aac_config_without_frames", [] { return B().header().aac(0, 0, {0x12, 0x10}).bytes(); }, 0, 0, 0, OK, kUnchecked,
     "CHECK_GT( bufferNum,0) failed: 0 vs. 0", true},
    // Configuration records the source refuses when it is made.
    {"avcc_version_2", [] { return B().header().avc(0, B::kKey, 0, B::avcc(4, 2)).avc(0, B::kKey, 1, kKeyNAL).bytes(); }, 0, 0, 0, OK, kUnchecked,
     "CHECK_EQ( (unsigned)ptr[0],1u) failed: 2 vs. 1", true},
    {"avcc_6_bytes", [] { Bytes c = B::avcc(4); c.pop_back(); return B().header().avc(0, B::kKey, 0, c).avc(0, B::kKey, 1, kKeyNAL).bytes(); }, 0, 0, 0, OK, kUnchecked,
     "CHECK(size >= 7) failed.", true},
    {"video_without_key_frame", [] { return B().header().video(0, B::kInter, B::kSorenson, kFrame).video(40, B::kInter, B::kSorenson, kFrame).bytes(); }, 0, 0, 0, OK, kUnchecked,
     "CHECK_GE( syncBufferNum,1) failed: 0 vs. 1", true},
    // AAC tags must say 16-bit; the scan does not look, the read does.
    {"aac_sound_size_8bit", [] { return B().header().aac(0, 1, kAAC, 0xAD).bytes(); }, 0, 0, 0, OK, kUnchecked,
     "CHECK_EQ( tagHeaderReader.getBits(1),1) failed: 0 vs. 1", true},
    {"aac_rate_22khz", [] { return B().header().aac(0, 1, kAAC, 0xAB).bytes(); }, 0, 0, 0, OK, kUnchecked, nullptr, true},

    // onMetaData numbers: out of every integer range, and the last one cut
    // to 7 of its 8 bytes at the end of the tag (its last byte reads as 0).
    {"metadata_numbers_out_of_range", [] {
         return mp3().script(B::onMetaData({{"duration", B::amfNumber(NAN)}, {"width", B::amfNumber(1e300)},
                                            {"height", B::amfNumber(-1e300)}, {"framerate", B::amfNumber(INFINITY)}})).bytes(); },
     1, 0, 2, ERROR_END_OF_STREAM, 0, nullptr, true},
    {"metadata_number_cut_at_tag_end", [] {
         Bytes body = cat(cat(B::amfString("onMetaData"), {0x08, 0, 0, 0, 1}), B::amfName("duration"));
         Bytes number = B::amfNumber(2.0);
         return mp3().script(cat(body, Bytes(number.begin(), number.end() - 1))).bytes(); },
     1, 0, 2, ERROR_END_OF_STREAM, 0, nullptr, true},

    // Time: tags out of order are read in time order; buffer times are 32-bit
    // microseconds (0xFFFFFFFF ms and 80 min both wrap).
    {"timestamps_decreasing", [] { return B().header().video(2000, B::kKey, B::kSorenson, kFrame).video(1000, B::kKey, B::kSorenson, kFrame).video(0, B::kKey, B::kSorenson, kFrame).bytes(); },
     1, 0, 3, ERROR_END_OF_STREAM, 0, nullptr, true},
    {"time_ffffffff_ms", [] { return keyFrameAt(0xFFFFFFFF); }, 1, 0, 1, ERROR_END_OF_STREAM, 4294966296LL, nullptr, true},
    {"time_80_minutes", [] { return keyFrameAt(80 * 60 * 1000); }, 1, 0, 1, ERROR_END_OF_STREAM, 505032704LL, nullptr, true},

    // A damaged tag header or an unknown (encrypted) tag type ends the scan
    // early, keeping what came before.
    {"stream_id_nonzero_ends_scan", [] { return mp3().tag(B::kAudio, 52, cat({B::kMP3Mono22k}, kMP3), 1).bytes(); }, 1, 0, 2, ERROR_END_OF_STREAM, 0, nullptr, true},
    {"encrypted_tag_ends_scan", [] { return mp3().tag(static_cast<uint8_t>(B::kAudio | 0x20), 52, cat({B::kMP3Mono22k}, kMP3)).bytes(); }, 1, 0, 2, ERROR_END_OF_STREAM, 0, nullptr, true},
};

class FLVHostileTest : public ::testing::TestWithParam<Row> {};

TEST_P(FLVHostileTest, FailsAsPinned) {
    const Row& row = GetParam();
    fuzz::initHarness();
    const Bytes bytes = row.build();
    std::string fired;
    size_t tracks = 0;
    int reads = 0;
    status_t end = OK;
    int64_t firstTimeUs = kUnchecked;
    try {
        sp<MediaExtractor> extractor = getInstance(
                new FaultySource(bytes, FaultySource::kNone, 0, row.sizeKnown), MEDIA_MIMETYPE_CONTAINER_FLV);
        ASSERT_NE(extractor, nullptr);
        tracks = extractor->countTracks();
        if (tracks > row.track) {
            sp<MediaSource> source = extractor->getTrack(row.track);
            ASSERT_EQ(source->start(), OK);
            for (; reads < 1000; ++reads) {
                MediaBuffer* buffer = nullptr;
                end = source->read(&buffer);
                if (end != OK) break;
                if (reads == 0) buffer->meta_data()->findInt64(kKeyTime, &firstTimeUs);
                buffer->release();
            }
            source->stop();
        }
    } catch (const fuzz::FatalCheck& check) {
        fired = check.message;
    }
    if (row.fatal != nullptr) {
        EXPECT_TRUE(isCheckMessage(fired, kSources[0], row.fatal) || isCheckMessage(fired, kSources[1], row.fatal))
            << "fired: " << fired;
    } else {
        EXPECT_EQ(fired, "");
        EXPECT_EQ(tracks, row.tracks);
        if (row.tracks > 0) {
            EXPECT_EQ(reads, row.reads);
            EXPECT_EQ(end, row.end);
            if (row.firstTimeUs != kUnchecked) {
                EXPECT_EQ(firstTimeUs, row.firstTimeUs);
            }
        }
    }
    // Every track to the end, and every seek mode, under the sanitizers.
    fuzz::runExtractor(bytes.data(), bytes.size(), MEDIA_MIMETYPE_CONTAINER_FLV);
}

INSTANTIATE_TEST_SUITE_P(Rows, FLVHostileTest, ::testing::ValuesIn(kRows),
                         [](const ::testing::TestParamInfo<Row>& info) { return std::string(info.param.id); });

}  // namespace
