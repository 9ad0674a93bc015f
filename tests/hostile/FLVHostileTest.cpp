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

// A 40-byte H.264 unit behind a 4-byte length: a 49-byte tag, so the read
// buffers (1.2 x the largest tag) hold more than the 13-byte preload.
const Bytes kKeyNAL = B::lengthPrefixed(4, {Bytes(40, 0x65)});
// 40 bytes of Sorenson frame, 40 of MP3 (also with its sound byte), 30 of raw AAC.
const Bytes kFrame(40, 0x11);
const Bytes kMP3(40, 0xFF);
const Bytes kMP3Tag = cat({{B::kMP3Mono22k}, kMP3});
const Bytes kAAC(30, 0x21);

B flv() { return B().header(); }

// onMetaData, H.264 (configuration, a key and an inter frame) and AAC
// (configuration and two frames).
Bytes control() {
    B f = flv();
    f.script(B::onMetaData({{"duration", B::amfNumber(1.0)}}));
    f.avc(0, B::kKey, 0, B::avcc(4)).avc(0, B::kKey, 1, kKeyNAL);
    f.avc(40, B::kInter, 1, B::lengthPrefixed(4, {Bytes(20, 0x41)}));
    return f.aac(0, 0, {0x12, 0x10}).aac(0, 1, kAAC).aac(23, 1, kAAC).bytes();
}

// H.264 with a configuration `config` (of `nalLengthSize`), then one key tag of `nalData`.
Bytes avcWith(size_t nalLengthSize, const Bytes& nalData, const Bytes& config = {}) {
    return flv().avc(0, B::kKey, 0, config.empty() ? B::avcc(nalLengthSize) : config)
            .avc(0, B::kKey, 1, nalData).bytes();
}

// Sorenson frames of the given type at the given times.
Bytes sorenson(std::initializer_list<uint32_t> timesMs, uint8_t frameType = B::kKey) {
    B f = flv();
    for (uint32_t t : timesMs) f.video(t, frameType, B::kSorenson, kFrame);
    return f.bytes();
}

// MP3 tags at 0 and 26 ms.
B mp3() { return flv().audio(0, B::kMP3Mono22k, kMP3).audio(26, B::kMP3Mono22k, kMP3); }

// A tag header claiming 16 MiB in front of `data`.
Bytes claims16MiB(uint8_t type, const Bytes& data) { return flv().tagHeader(type, 0xFFFFFF).raw(data).bytes(); }

Bytes withoutLast(const Bytes& b, size_t n) { return Bytes(b.begin(), b.end() - n); }

std::vector<HostileRow> rows() {
    const Bytes script16MiB = claims16MiB(B::kScript, B::onMetaData({{"duration", B::amfNumber(1)}}));
    const Bytes cutNumber = cat({B::amfString("onMetaData"), {0x08, 0, 0, 0, 1}, B::amfName("duration"),
                                 withoutLast(B::amfNumber(2.0), 1)});
    const Bytes outOfRange = B::onMetaData({{"duration", B::amfNumber(NAN)}, {"width", B::amfNumber(1e300)},
                                            {"height", B::amfNumber(-1e300)}, {"framerate", B::amfNumber(INFINITY)}});
    return {
        // Controls: the files the rows mutate open and read cleanly.
        {"control_video", control(), 2, 0, 2, kEOS, 0},
        {"control_audio", control(), 2, 1, 2, kEOS, 0},

        // PreviousTagSize lies anywhere make the whole file unreadable.
        {"prev_tag_size0_nonzero", B().header(0x05, 9, 1, 1).audio(0, B::kMP3Mono22k, kMP3).bytes()},
        {"prev_tag_size_lies", flv().tagWithPrevSize(B::kAudio, 0, kMP3Tag, 12).bytes()},
        {"prev_tag_size_missing_at_end", withoutLast(mp3().bytes(), 4)},

        // dataSize 0xFFFFFF in a file of a few dozen bytes: never allocated from,
        // and the PreviousTagSize 16 MiB on is not there.
        {"video_datasize_ffffff", claims16MiB(B::kVideo, {0x12, 0})},
        {"avc_config_datasize_ffffff", claims16MiB(B::kVideo, cat({{0x17, 0, 0, 0, 0}, B::avcc(4)}))},
        {"aac_config_datasize_ffffff", claims16MiB(B::kAudio, {0xAF, 0, 0x12, 0x10})},
        {"script_claims_16mib", script16MiB},
        sizeUnknown({"", script16MiB}, "script_claims_16mib_size_unknown"),
        {"audio_datasize_beyond_file", mp3().tagHeader(B::kAudio, 1000, 52).raw(kMP3Tag).bytes()},

        // Tags smaller than their own headers: 0 or 1 byte of audio or video
        // fails the file; an empty script tag is accepted.
        {"video_datasize_0", mp3().tag(B::kVideo, 0, {}).bytes()},
        {"video_datasize_1", mp3().tag(B::kVideo, 0, {0x12}).bytes()},
        {"audio_datasize_0", mp3().tag(B::kAudio, 52, {}).bytes()},
        {"audio_datasize_1", mp3().tag(B::kAudio, 52, {B::kMP3Mono22k}).bytes()},
        {"script_datasize_0", mp3().script({}).bytes(), 1, 0, 2, kEOS, 0},
        // An H.264 tag of 3 bytes: without a configuration its NAL read comes up
        // short (ERROR_IO, and the read does not move on); with one, the NAL walk
        // starts 2 bytes short, which is fatal.
        {"avc_tag_below_headers_no_config",
         flv().tag(B::kVideo, 0, {0x17, 1, 0}).avc(40, B::kKey, 1, kKeyNAL).bytes(), 1, 0, 0, ERROR_IO},
        fatalRow("avc_tag_below_headers", flv().avc(0, B::kKey, 0, B::avcc(4)).tag(B::kVideo, 0, {0x17, 1, 0})
                         .avc(40, B::kKey, 1, kKeyNAL).bytes(), "CHECK(size == 0) failed."),
        // Video whose every tag is under 11 bytes gets read buffers no larger
        // than the 13-byte preload (1.2 x 10 = 12).
        fatalRow("video_tags_below_preload", flv().video(0, B::kKey, B::kSorenson, Bytes(9, 0)).bytes(),
                 "CHECK(pBuffer->size() > preLoadLen) failed."),

        // H.264 NAL length fields that claim more than the tag holds.
        fatalRow("avc_nal_length_lies", avcWith(4, cat({{0, 0, 1, 0}, Bytes(40, 0x65)})), "CHECK(size == 0) failed."),
        fatalRow("avc_nal_length_field_cut", avcWith(2, cat({B::lengthPrefixed(2, {Bytes(40, 0x65)}), {0}})),
                 "CHECK(size == 0) failed."),
        {"avc_nal_lengths_zero", avcWith(4, Bytes(44, 0)), 1, 0, 1, kEOS, 0},
        // 1-byte lengths grow by 3 bytes a unit when rewritten to start codes:
        // 44 empty units need 132 more bytes than the 58-byte buffer has.
        {"avc_1byte_lengths_outgrow_buffer", avcWith(1, Bytes(44, 0)), 1, 0, 0, ERROR_MALFORMED},
        // An AAC configuration and no frame leaves the audio track empty.
        fatalRow("aac_config_without_frames", flv().aac(0, 0, {0x12, 0x10}).bytes(),
                 "CHECK_GT( bufferNum,0) failed: 0 vs. 0"),
        // Configuration records the source refuses when it is made.
        fatalRow("avcc_version_2", avcWith(4, kKeyNAL, B::avcc(4, 2)),
                 "CHECK_EQ( (unsigned)ptr[0],1u) failed: 2 vs. 1"),
        fatalRow("avcc_6_bytes", avcWith(4, kKeyNAL, withoutLast(B::avcc(4), 1)), "CHECK(size >= 7) failed."),
        fatalRow("video_without_key_frame", sorenson({0, 40}, B::kInter), "CHECK_GE( syncBufferNum,1) failed: 0 vs. 1"),
        // AAC tags must say 16-bit; the scan does not look, the read does.
        fatalRow("aac_sound_size_8bit", flv().aac(0, 1, kAAC, 0xAD).bytes(),
                 "CHECK_EQ( tagHeaderReader.getBits(1),1) failed: 0 vs. 1"),
        {"aac_rate_22khz", flv().aac(0, 1, kAAC, 0xAB).bytes()},

        // onMetaData numbers: out of every integer range, and the last one cut
        // to 7 of its 8 bytes at the end of the tag (its last byte reads as 0).
        {"metadata_numbers_out_of_range", mp3().script(outOfRange).bytes(), 1, 0, 2, kEOS, 0},
        {"metadata_number_cut_at_tag_end", mp3().script(cutNumber).bytes(), 1, 0, 2, kEOS, 0},

        // Time: tags out of order are read in time order; buffer times are 32-bit
        // microseconds (0xFFFFFFFF ms and 80 min both wrap).
        {"timestamps_decreasing", sorenson({2000, 1000, 0}), 1, 0, 3, kEOS, 0},
        {"time_ffffffff_ms", sorenson({0xFFFFFFFF}), 1, 0, 1, kEOS, 4294966296LL},
        {"time_80_minutes", sorenson({80 * 60 * 1000}), 1, 0, 1, kEOS, 505032704LL},

        // A damaged tag header or an unknown (encrypted) tag type ends the scan
        // early, keeping what came before.
        {"stream_id_nonzero_ends_scan", mp3().tag(B::kAudio, 52, kMP3Tag, 1).bytes(), 1, 0, 2, kEOS, 0},
        {"encrypted_tag_ends_scan", mp3().tag(static_cast<uint8_t>(B::kAudio | 0x20), 52, kMP3Tag).bytes(), 1, 0, 2,
         kEOS, 0},
    };
}

ZIRK_HOSTILE_SUITE(FLVHostileTest, MEDIA_MIMETYPE_CONTAINER_FLV, rows);

}  // namespace
