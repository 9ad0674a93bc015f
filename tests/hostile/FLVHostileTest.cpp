// ZIRKFLVExtractor on crafted files, one row per hostile construct (see
// HostileRow.h). Some FLV fatal checks are reachable from file content by
// rule; their rows pin the check.
#include <math.h>

#include "FLVBuilder.h"
#include "HostileRow.h"

using namespace android;
using namespace android::test;

namespace {

using B = FLVBuilder;
const char* const kFLV = MEDIA_MIMETYPE_CONTAINER_FLV;

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


const HostileRow kRows[] = {
    // Controls: the files the rows mutate open and read cleanly.
    {"control_video", kFLV, [] { return control().bytes(); }, 2, 0, 2, ERROR_END_OF_STREAM, nullptr, 0},
    {"control_audio", kFLV, [] { return control().bytes(); }, 2, 1, 2, ERROR_END_OF_STREAM, nullptr, 0},

    // PreviousTagSize lies anywhere make the whole file unreadable.
    {"prev_tag_size0_nonzero", kFLV, [] { return B().header(0x05, 9, 1, 1).audio(0, B::kMP3Mono22k, kMP3).bytes(); }, 0, 0, 0, OK},
    {"prev_tag_size_lies", kFLV, [] { return B().header().tagWithPrevSize(B::kAudio, 0, cat({{B::kMP3Mono22k}, kMP3}), 12).bytes(); }, 0, 0, 0, OK},
    {"prev_tag_size_missing_at_end", kFLV, [] { Bytes b = mp3().bytes(); b.resize(b.size() - 4); return b; }, 0, 0, 0, OK},

    // dataSize 0xFFFFFF in a file of a few dozen bytes: never allocated from,
    // and the PreviousTagSize 16 MiB on is not there.
    {"video_datasize_ffffff", kFLV, [] { return B().header().tagHeader(B::kVideo, 0xFFFFFF).raw({0x12, 0}).bytes(); }, 0, 0, 0, OK},
    {"avc_config_datasize_ffffff", kFLV, [] { return B().header().tagHeader(B::kVideo, 0xFFFFFF).raw(cat({{0x17, 0, 0, 0, 0}, B::avcc(4)})).bytes(); }, 0, 0, 0, OK},
    {"aac_config_datasize_ffffff", kFLV, [] { return B().header().tagHeader(B::kAudio, 0xFFFFFF).raw({0xAF, 0, 0x12, 0x10}).bytes(); }, 0, 0, 0, OK},
    {"script_claims_16mib", kFLV, [] { return B().header().tagHeader(B::kScript, 0xFFFFFF).raw(B::onMetaData({{"duration", B::amfNumber(1)}})).bytes(); }, 0, 0, 0, OK},
    {"script_claims_16mib_size_unknown", kFLV, [] { return B().header().tagHeader(B::kScript, 0xFFFFFF).raw(B::onMetaData({{"duration", B::amfNumber(1)}})).bytes(); }, 0, 0, 0, OK, nullptr, kUnchecked, false},
    {"audio_datasize_beyond_file", kFLV, [] { return mp3().tagHeader(B::kAudio, 1000, 52).raw(cat({{B::kMP3Mono22k}, kMP3})).bytes(); }, 0, 0, 0, OK},

    // Tags smaller than their own headers: 0 or 1 byte of audio or video
    // fails the file; an empty script tag is accepted.
    {"video_datasize_0", kFLV, [] { return mp3().tag(B::kVideo, 0, {}).bytes(); }, 0, 0, 0, OK},
    {"video_datasize_1", kFLV, [] { return mp3().tag(B::kVideo, 0, {0x12}).bytes(); }, 0, 0, 0, OK},
    {"audio_datasize_0", kFLV, [] { return mp3().tag(B::kAudio, 52, {}).bytes(); }, 0, 0, 0, OK},
    {"audio_datasize_1", kFLV, [] { return mp3().tag(B::kAudio, 52, {B::kMP3Mono22k}).bytes(); }, 0, 0, 0, OK},
    {"script_datasize_0", kFLV, [] { return mp3().script({}).bytes(); }, 1, 0, 2, ERROR_END_OF_STREAM, nullptr, 0},
    // An H.264 tag of 3 bytes: without a configuration its NAL read comes up
    // short (ERROR_IO, and the read does not move on); with one, the NAL walk
    // starts 2 bytes short, which is fatal.
    {"avc_tag_below_headers_no_config", kFLV, [] { return B().header().tag(B::kVideo, 0, {0x17, 1, 0}).avc(40, B::kKey, 1, kKeyNAL).bytes(); }, 1, 0, 0, ERROR_IO},
    {"avc_tag_below_headers", kFLV, [] { return B().header().avc(0, B::kKey, 0, B::avcc(4)).tag(B::kVideo, 0, {0x17, 1, 0}).avc(40, B::kKey, 1, kKeyNAL).bytes(); }, 0, 0, 0, OK,
     "CHECK(size == 0) failed."},
    // Video whose every tag is under 11 bytes gets read buffers no larger
    // than the 13-byte preload (1.2 x 10 = 12).
    {"video_tags_below_preload", kFLV, [] { return B().header().video(0, B::kKey, B::kSorenson, Bytes(9, 0)).bytes(); }, 0, 0, 0, OK,
     "CHECK(pBuffer->size() > preLoadLen) failed."},

    // H.264 NAL length fields that claim more than the tag holds.
    {"avc_nal_length_lies", kFLV, [] { return avcWith(4, cat({{0, 0, 1, 0}, Bytes(40, 0x65)})); }, 0, 0, 0, OK, "CHECK(size == 0) failed."},
    {"avc_nal_length_field_cut", kFLV, [] { return avcWith(2, cat({B::lengthPrefixed(2, {Bytes(40, 0x65)}), {0}})); }, 0, 0, 0, OK, "CHECK(size == 0) failed."},
    {"avc_nal_lengths_zero", kFLV, [] { return avcWith(4, Bytes(44, 0)); }, 1, 0, 1, ERROR_END_OF_STREAM, nullptr, 0},
    // 1-byte lengths grow by 3 bytes a unit when rewritten to start codes:
    // 44 empty units need 132 more bytes than the 58-byte buffer has.
    {"avc_1byte_lengths_outgrow_buffer", kFLV, [] { return avcWith(1, Bytes(44, 0)); }, 1, 0, 0, ERROR_MALFORMED},
    // An AAC configuration and no frame leaves the audio track empty.
    {"aac_config_without_frames", kFLV, [] { return B().header().aac(0, 0, {0x12, 0x10}).bytes(); }, 0, 0, 0, OK,
     "CHECK_GT( bufferNum,0) failed: 0 vs. 0"},
    // Configuration records the source refuses when it is made.
    {"avcc_version_2", kFLV, [] { return B().header().avc(0, B::kKey, 0, B::avcc(4, 2)).avc(0, B::kKey, 1, kKeyNAL).bytes(); }, 0, 0, 0, OK,
     "CHECK_EQ( (unsigned)ptr[0],1u) failed: 2 vs. 1"},
    {"avcc_6_bytes", kFLV, [] { Bytes c = B::avcc(4); c.pop_back(); return B().header().avc(0, B::kKey, 0, c).avc(0, B::kKey, 1, kKeyNAL).bytes(); }, 0, 0, 0, OK,
     "CHECK(size >= 7) failed."},
    {"video_without_key_frame", kFLV, [] { return B().header().video(0, B::kInter, B::kSorenson, kFrame).video(40, B::kInter, B::kSorenson, kFrame).bytes(); }, 0, 0, 0, OK,
     "CHECK_GE( syncBufferNum,1) failed: 0 vs. 1"},
    // AAC tags must say 16-bit; the scan does not look, the read does.
    {"aac_sound_size_8bit", kFLV, [] { return B().header().aac(0, 1, kAAC, 0xAD).bytes(); }, 0, 0, 0, OK,
     "CHECK_EQ( tagHeaderReader.getBits(1),1) failed: 0 vs. 1"},
    {"aac_rate_22khz", kFLV, [] { return B().header().aac(0, 1, kAAC, 0xAB).bytes(); }, 0, 0, 0, OK},

    // onMetaData numbers: out of every integer range, and the last one cut
    // to 7 of its 8 bytes at the end of the tag (its last byte reads as 0).
    {"metadata_numbers_out_of_range", kFLV, [] {
         return mp3().script(B::onMetaData({{"duration", B::amfNumber(NAN)}, {"width", B::amfNumber(1e300)},
                                            {"height", B::amfNumber(-1e300)}, {"framerate", B::amfNumber(INFINITY)}})).bytes(); },
     1, 0, 2, ERROR_END_OF_STREAM, nullptr, 0},
    {"metadata_number_cut_at_tag_end", kFLV, [] {
         Bytes body = cat({B::amfString("onMetaData"), {0x08, 0, 0, 0, 1}, B::amfName("duration")});
         Bytes number = B::amfNumber(2.0);
         return mp3().script(cat({body, Bytes(number.begin(), number.end() - 1)})).bytes(); },
     1, 0, 2, ERROR_END_OF_STREAM, nullptr, 0},

    // Time: tags out of order are read in time order; buffer times are 32-bit
    // microseconds (0xFFFFFFFF ms and 80 min both wrap).
    {"timestamps_decreasing", kFLV, [] { return B().header().video(2000, B::kKey, B::kSorenson, kFrame).video(1000, B::kKey, B::kSorenson, kFrame).video(0, B::kKey, B::kSorenson, kFrame).bytes(); },
     1, 0, 3, ERROR_END_OF_STREAM, nullptr, 0},
    {"time_ffffffff_ms", kFLV, [] { return keyFrameAt(0xFFFFFFFF); }, 1, 0, 1, ERROR_END_OF_STREAM, nullptr, 4294966296LL},
    {"time_80_minutes", kFLV, [] { return keyFrameAt(80 * 60 * 1000); }, 1, 0, 1, ERROR_END_OF_STREAM, nullptr, 505032704LL},

    // A damaged tag header or an unknown (encrypted) tag type ends the scan
    // early, keeping what came before.
    {"stream_id_nonzero_ends_scan", kFLV, [] { return mp3().tag(B::kAudio, 52, cat({{B::kMP3Mono22k}, kMP3}), 1).bytes(); }, 1, 0, 2, ERROR_END_OF_STREAM, nullptr, 0},
    {"encrypted_tag_ends_scan", kFLV, [] { return mp3().tag(static_cast<uint8_t>(B::kAudio | 0x20), 52, cat({{B::kMP3Mono22k}, kMP3})).bytes(); }, 1, 0, 2, ERROR_END_OF_STREAM, nullptr, 0},
};

class FLVHostileTest : public ::testing::TestWithParam<HostileRow> {};

TEST_P(FLVHostileTest, FailsAsPinned) { runHostileRow(GetParam()); }

INSTANTIATE_TEST_SUITE_P(Rows, FLVHostileTest, ::testing::ValuesIn(kRows), hostileRowName);

}  // namespace
