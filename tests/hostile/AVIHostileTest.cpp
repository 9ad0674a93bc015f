// ZIRKAVIExtractor on crafted files, one row per hostile construct (see
// HostileRow.h).
#include "AVIBuilder.h"
#include "HostileRow.h"

using namespace android;
using namespace android::test;
using namespace android::test::avi;

namespace {

const char* const kAVI = MEDIA_MIMETYPE_CONTAINER_AVI;

// ---- files the rows start from

// 25 fps MJPEG (stream 0, three key frames of 64..66 bytes) and one audio
// stream (stream 1) of three `chunk`s, indexed by idx1.
Bytes av(const Bytes& format, uint32_t scale, uint32_t rate, uint32_t sampleSize, const Bytes& chunk,
         const std::vector<Bytes>& extraHeaderChunks = {}) {
    AVIFile f;
    int v = f.addVideo("MJPG", 1, 25);
    int a = f.addAudio(format, scale, rate, sampleSize);
    for (int i = 0; i < 3; ++i) {
        f.addSample(v, Bytes(64 + i, static_cast<uint8_t>(i)));
        f.addSample(a, chunk);
    }
    f.mExtraHeaderChunks = extraHeaderChunks;
    return f.build();
}

// 8 kHz mono 16-bit PCM: one 320-byte chunk is one 20 ms piece.
Bytes pcmFormat(uint16_t channels = 1, uint32_t rate = 8000, uint16_t align = 2) {
    return waveFormat(0x0001, channels, rate, align, 16);
}
Bytes pcmFile(const std::vector<Bytes>& extra = {}) { return av(pcmFormat(), 1, 8000, 2, Bytes(320, 0x80), extra); }

// IMA ADPCM, 256-byte mono blocks.
Bytes imaFile(uint16_t channels, uint32_t rate, uint16_t align) {
    return av(waveFormat(0x0011, channels, rate, align, 4), 505, 8000, 256, Bytes(256, 0x17));
}

// Five MPEG-1 layer III frames (128 kbit/s, 44.1 kHz: 417 bytes each), enough
// for the four-frame resync; the WAVEFORMATEX is all zeros but the tag.
Bytes mp3ZeroFormatFile() {
    Bytes frames;
    for (int i = 0; i < 5; ++i) {
        append(&frames, {0xFF, 0xFB, 0x90});
        append(&frames, Bytes(414, 0));
    }
    return av(waveFormat(0x0055, 0, 0, 0, 0), 1152, 44100, 0, frames);
}

// MJPEG alone, three key frames, with either index kind.
AVIFile videoOnly() {
    AVIFile f;
    int v = f.addVideo("MJPG", 1, 25);
    for (int i = 0; i < 3; ++i) f.addSample(v, Bytes(64 + i, static_cast<uint8_t>(i)));
    return f;
}

// `value` in `width` bytes, `delta` bytes after the first `id` at or after `from`.
Bytes patched(Bytes b, const std::string& id, ptrdiff_t delta, uint32_t value, size_t from = 0, int width = 4) {
    setLE(&b, findFourcc(b, id, from) + delta, width, value);
    return b;
}

// `depth` LISTs, each the only child of the one before (12 bytes a level).
Bytes nestedLists(size_t depth) {
    Bytes b;
    b.reserve(12 * depth);
    for (size_t i = 0; i < depth; ++i) {
        putFourcc(&b, "LIST");
        putLE32(&b, static_cast<uint32_t>(4 + 12 * (depth - 1 - i)));
        putFourcc(&b, "nest");
    }
    return b;
}

// Field offsets from the chunk id: idx1 entry k at 8 + 16k (offset +8, size
// +12); indx nEntriesInUse 12, dwSize of entry 0 at 40, qwOffset at 32;
// ix## nEntriesInUse 12, entry k at 32 + 8k; strh dwScale 28, dwRate 32.
size_t idx1Entry(size_t k) { return 8 + 16 * k; }
size_t ixEntry(size_t k) { return 32 + 8 * k; }
const uint32_t kFarAway = 0x7FFFFFF0;

const HostileRow kRows[] = {
    // Controls: the files every row mutates open and read cleanly.
    {"control_idx1", kAVI, [] { return pcmFile(); }, 2, 0, 3, ERROR_END_OF_STREAM},
    {"control_opendml", kAVI, [] { return videoOnly().build(AVIFile::kOpenDML); }, 1, 0, 3, ERROR_END_OF_STREAM},
    {"control_pcm_track", kAVI, [] { return pcmFile(); }, 2, 1, 3, ERROR_END_OF_STREAM},

    // 0xFFFFFFFF lengths in tiny objects. The top-level RIFF has no bound,
    // so its walk reads on to the end of the file and fails there.
    {"riff_size_ffffffff", kAVI, [] { return patched(pcmFile(), "RIFF", 4, 0xFFFFFFFF); }, 0, 0, 0, OK},
    {"avih_size_ffffffff", kAVI, [] { return patched(pcmFile(), "avih", 4, 0xFFFFFFFF); }, 0, 0, 0, OK},
    {"strh_size_ffffffff", kAVI, [] { return patched(pcmFile(), "strh", 4, 0xFFFFFFFF); }, 0, 0, 0, OK},
    // idx1 claiming ~4 GiB inside a RIFF that claims as much: held to the
    // file's size, or (size unknown) read in blocks until the short read.
    {"idx1_size_huge", kAVI, [] { return patched(patched(pcmFile(), "RIFF", 4, 0xFFFFFFF0), "idx1", 4, 0xFFFF0000); }, 0, 0, 0, OK},
    {"idx1_size_huge_size_unknown", kAVI, [] { return patched(patched(pcmFile(), "RIFF", 4, 0xFFFFFFF0), "idx1", 4, 0xFFFF0000); }, 0, 0, 0, OK, nullptr, kUnchecked, false},
    {"idx1_size_not_entry_multiple", kAVI, [] { return patched(pcmFile(), "idx1", 4, 16 * 6 - 1); }, 0, 0, 0, OK},
    // The entry loops are bounded by the bytes read, never by the counts:
    // 0xFFFFFFFF, and counts whose product with the 16- or 8-byte entry
    // wraps 32 bits to 0 (0x10000000 x 16, 0x20000000 x 8).
    {"indx_entries_ffffffff", kAVI, [] { return patched(videoOnly().build(AVIFile::kOpenDML), "indx", 12, 0xFFFFFFFF); }, 1, 0, 3, ERROR_END_OF_STREAM},
    {"indx_entries_x16_wraps", kAVI, [] { return patched(videoOnly().build(AVIFile::kOpenDML), "indx", 12, 0x10000000); }, 1, 0, 3, ERROR_END_OF_STREAM},
    {"ix_entries_ffffffff", kAVI, [] { return patched(videoOnly().build(AVIFile::kOpenDML), "ix00", 12, 0xFFFFFFFF); }, 1, 0, 3, ERROR_END_OF_STREAM},
    {"ix_entries_x8_wraps", kAVI, [] { return patched(videoOnly().build(AVIFile::kOpenDML), "ix00", 12, 0x20000000); }, 1, 0, 3, ERROR_END_OF_STREAM},
    // wLongsPerEntry is read but never used to size anything.
    {"indx_longs_per_entry_odd", kAVI, [] { return patched(videoOnly().build(AVIFile::kOpenDML), "indx", 8, 0xFFFF, 0, 2); }, 1, 0, 3, ERROR_END_OF_STREAM},
    {"ix_longs_per_entry_odd", kAVI, [] { return patched(videoOnly().build(AVIFile::kOpenDML), "ix00", 8, 3, 0, 2); }, 1, 0, 3, ERROR_END_OF_STREAM},
    // An ix## that claims no entries leaves the track empty: fatal by rule.
    {"ix_entries_zero", kAVI, [] { return patched(videoOnly().build(AVIFile::kOpenDML), "ix00", 12, 0); }, 0, 0, 0, OK,
     "CHECK_EQ( (status_t)OK,getSampleTime(trackIndex, track->mSamples.size() - 1, &durationUs)) failed: "},
    {"indx_dwsize_ffffffff", kAVI, [] { return patched(videoOnly().build(AVIFile::kOpenDML), "indx", 40, 0xFFFFFFFF); }, 0, 0, 0, OK},
    {"indx_dwsize_below_ix_header", kAVI, [] { return patched(videoOnly().build(AVIFile::kOpenDML), "indx", 40, 16); }, 0, 0, 0, OK},
    {"indx_qwoffset_past_end", kAVI, [] { return patched(videoOnly().build(AVIFile::kOpenDML), "indx", 32, kFarAway); }, 0, 0, 0, OK},
    {"indx_qwoffset_above_int64", kAVI, [] { return patched(videoOnly().build(AVIFile::kOpenDML), "indx", 36, 0x80000000); }, 0, 0, 0, OK},
    {"ix_chunk_size_above_dwsize", kAVI, [] { return patched(videoOnly().build(AVIFile::kOpenDML), "ix00", 4, 0x1000); }, 0, 0, 0, OK},
    // qwBaseOffset + dwOffset - 8 outside 64 bits is stored wrapped and only
    // its own sample fails, at read: base 0 + dwOffset 0 (sample 0 before the
    // file's start), base 2^64 - 16 (every sum wraps to 24 bytes before the
    // chunk's data: sample 0 is refused, the rest dropped as foreign chunks),
    // base 2^63 (no sum fits a file offset: the duration look-up is fatal).
    {"ix_entry_offset_underflows", kAVI, [] { return patched(videoOnly().build(AVIFile::kOpenDML), "ix00", ixEntry(0), 0); }, 1, 0, 0, ERROR_END_OF_STREAM},
    {"ix_base_offset_wraps", kAVI, [] { return patched(patched(videoOnly().build(AVIFile::kOpenDML), "ix00", 20, 0xFFFFFFF0), "ix00", 24, 0xFFFFFFFF); }, 1, 0, 0, ERROR_END_OF_STREAM},
    {"ix_base_offset_past_int64", kAVI, [] { return patched(videoOnly().build(AVIFile::kOpenDML), "ix00", 24, 0x80000000); }, 0, 0, 0, OK,
     "CHECK_EQ( (status_t)OK,getSampleTime(trackIndex, track->mSamples.size() - 1, &durationUs)) failed: "},

    // Sizes smaller than their header. A LIST of 0..3 bytes is an empty
    // list (its "type" is the next chunk's bytes) and the walk goes on at its
    // rounded size; but a LIST needs 12 bytes of room, so one of 10 bytes
    // (size 1, pad) at the end of its parent is malformed. An hdrl of 3 hands
    // its children to the RIFF walk, which parses them all the same.
    {"list_size_0", kAVI, [] { return pcmFile({chunk("LIST", Bytes(0)), chunk("JUNK", Bytes(4))}); }, 2, 0, 3, ERROR_END_OF_STREAM},
    {"list_size_1", kAVI, [] { return pcmFile({chunk("LIST", Bytes(1, 'x')), chunk("JUNK", Bytes(4))}); }, 2, 0, 3, ERROR_END_OF_STREAM},
    {"list_size_2", kAVI, [] { return pcmFile({chunk("LIST", Bytes(2, 'x')), chunk("JUNK", Bytes(4))}); }, 2, 0, 3, ERROR_END_OF_STREAM},
    {"list_size_3", kAVI, [] { return pcmFile({chunk("LIST", Bytes(3, 'x')), chunk("JUNK", Bytes(4))}); }, 2, 0, 3, ERROR_END_OF_STREAM},
    {"list_size_1_ends_parent", kAVI, [] { return pcmFile({chunk("LIST", Bytes(1, 'x'))}); }, 0, 0, 0, OK},
    {"hdrl_size_3", kAVI, [] { return patched(pcmFile(), "hdrl", -4, 3); }, 2, 0, 3, ERROR_END_OF_STREAM},
    {"strh_40_bytes", kAVI, [] {
         AVIFile f;
         Bytes h = strh("vids", "MJPG", 1, 25);
         f.addStream(Bytes(h.begin(), h.begin() + 40), bitmapInfo(64, 48, "MJPG"), "dc");
         f.addSample(0, Bytes(64, 1));
         return f.build(); }, 0, 0, 0, OK},
    {"strf_video_39_bytes", kAVI, [] {
         AVIFile f;
         Bytes bmi = bitmapInfo(64, 48, "MJPG");
         f.addStream(strh("vids", "MJPG", 1, 25), Bytes(bmi.begin(), bmi.begin() + 39), "dc");
         f.addSample(0, Bytes(64, 1));
         return f.build(); }, 0, 0, 0, OK},
    {"strf_audio_15_bytes", kAVI, [] { Bytes w = pcmFormat(); return av(Bytes(w.begin(), w.begin() + 15), 1, 8000, 2, Bytes(320, 0)); }, 0, 0, 0, OK},
    // 16 bytes is a whole WAVEFORMATEX without cbSize: accepted.
    {"strf_audio_16_bytes", kAVI, [] { return av(waveFormat(1, 1, 8000, 2, 16, {}, false), 1, 8000, 2, Bytes(320, 0)); }, 2, 1, 3, ERROR_END_OF_STREAM},

    // Children larger than their parent: one byte over, and far over.
    {"strf_one_byte_past_strl", kAVI, [] { return patched(pcmFile(), "strf", 4, 41); }, 0, 0, 0, OK},
    {"movi_list_past_riff", kAVI, [] { return patched(pcmFile(), "movi", -4, kFarAway); }, 0, 0, 0, OK},
    // The last sample's chunk header claims more than the file: its read
    // fails, the ones before it do not.
    {"movi_chunk_past_file", kAVI, [] {
         AVIFile f = videoOnly();
         return patched(f.build(), "00dc", 4, kFarAway, static_cast<size_t>(f.samplePositions()[2])); },
     1, 0, 2, ERROR_MALFORMED},

    // Nesting: the walk is iterative and refuses more than 4096 open lists.
    {"nested_4000_lists", kAVI, [] { return pcmFile({nestedLists(4000)}); }, 2, 0, 3, ERROR_END_OF_STREAM},
    {"nested_20000_lists", kAVI, [] { return pcmFile({nestedLists(20000)}); }, 0, 0, 0, OK},
    {"nested_50000_lists", kAVI, [] { return pcmFile({nestedLists(50000)}); }, 0, 0, 0, OK},

    // Zero scale, rate, channels, sample rate, block align. Times fall to 0
    // rather than dividing; a PCM or ADPCM stream that cannot be cut is
    // malformed at read.
    {"vids_scale_0", kAVI, [] { return patched(pcmFile(), "strh", 28, 0); }, 2, 0, 3, ERROR_END_OF_STREAM},
    {"vids_rate_0", kAVI, [] { return patched(pcmFile(), "strh", 32, 0); }, 2, 0, 3, ERROR_END_OF_STREAM},
    {"auds_scale_0", kAVI, [] { return av(pcmFormat(), 0, 8000, 2, Bytes(320, 0)); }, 2, 1, 3, ERROR_END_OF_STREAM},
    {"auds_rate_0", kAVI, [] { return av(pcmFormat(), 1, 0, 2, Bytes(320, 0)); }, 2, 1, 3, ERROR_END_OF_STREAM},
    {"pcm_channels_0", kAVI, [] { return av(pcmFormat(0), 1, 8000, 2, Bytes(320, 0)); }, 2, 1, 0, ERROR_MALFORMED},
    {"pcm_sample_rate_0", kAVI, [] { return av(pcmFormat(1, 0), 1, 8000, 2, Bytes(320, 0)); }, 2, 1, 0, ERROR_MALFORMED},
    {"pcm_block_align_0", kAVI, [] { return av(pcmFormat(1, 8000, 0), 1, 8000, 2, Bytes(320, 0)); }, 2, 1, 3, ERROR_END_OF_STREAM},
    {"mp3_all_zero_format", kAVI, [] { return mp3ZeroFormatFile(); }, 2, 1, kUnchecked, ERROR_END_OF_STREAM},
    {"ima_block_align_0", kAVI, [] { return imaFile(1, 8000, 0); }, 2, 1, 0, ERROR_MALFORMED},
    {"ima_channels_0", kAVI, [] { return imaFile(0, 8000, 256); }, 2, 1, 0, ERROR_MALFORMED},
    {"ima_sample_rate_0", kAVI, [] { return imaFile(1, 0, 256); }, 2, 1, 3, ERROR_END_OF_STREAM},
    // Nine channels: the decoder's per-channel state is kept for 8 at a time.
    {"ima_9_channels", kAVI, [] { return imaFile(9, 8000, 72); }, 2, 1, kUnchecked, ERROR_END_OF_STREAM},
    // One fixed-size chunk: its average chunk size is 0/0, which every time
    // estimate and seek must survive.
    {"pcm_single_chunk", kAVI, [] {
         AVIFile f;
         int a = f.addAudio(pcmFormat(), 1, 8000, 2);
         f.addSample(a, Bytes(320, 0x80));
         return f.build(); }, 1, 0, 1, ERROR_END_OF_STREAM},
    // 101 stream headers: the 101st is refused (-34) and so is the file.
    {"streams_101", kAVI, [] {
         AVIFile f;
         for (int i = 0; i < 101; ++i) f.addVideo("MJPG", 1, 25);
         f.addSample(0, Bytes(64, 1));
         return f.build(); }, 0, 0, 0, OK},

    // Index entries past the end of the file. Sample 0 decides the offset
    // base and fails the file; a later one ends the reads there; the last
    // one is read for the duration, which must succeed (fatal by rule).
    {"idx1_first_offset_past_end", kAVI, [] { return patched(videoOnly().build(), "idx1", idx1Entry(0) + 8, kFarAway); }, 0, 0, 0, OK},
    {"idx1_middle_offset_past_end", kAVI, [] { return patched(videoOnly().build(), "idx1", idx1Entry(1) + 8, kFarAway); }, 1, 0, 1, ERROR_END_OF_STREAM},
    {"idx1_last_offset_past_end", kAVI, [] { return patched(videoOnly().build(), "idx1", idx1Entry(2) + 8, kFarAway); }, 0, 0, 0, OK,
     "CHECK_EQ( (status_t)OK,getSampleTime(i, track->mSamples.size() - 1, &durationUs)) failed: "},
    // A size past the file sizes the buffers: start() refuses it.
    {"idx1_size_past_end", kAVI, [] { return patched(videoOnly().build(), "idx1", idx1Entry(1) + 12, kFarAway); }, 1, 0, kStartFails, ERROR_MALFORMED},
    {"ix_middle_offset_past_end", kAVI, [] { return patched(videoOnly().build(AVIFile::kOpenDML), "ix00", ixEntry(1), kFarAway); }, 1, 0, 1, ERROR_END_OF_STREAM},
    {"ix_last_offset_past_end", kAVI, [] { return patched(videoOnly().build(AVIFile::kOpenDML), "ix00", ixEntry(2), kFarAway); }, 0, 0, 0, OK,
     "CHECK_EQ( (status_t)OK,getSampleTime(trackIndex, track->mSamples.size() - 1, &durationUs)) failed: "},
    {"ix_size_past_end", kAVI, [] { return patched(videoOnly().build(AVIFile::kOpenDML), "ix00", ixEntry(1) + 4, kFarAway); }, 1, 0, kStartFails, ERROR_MALFORMED},
};

class AVIHostileTest : public ::testing::TestWithParam<HostileRow> {};

TEST_P(AVIHostileTest, FailsAsPinned) { runHostileRow(GetParam()); }

INSTANTIATE_TEST_SUITE_P(Rows, AVIHostileTest, ::testing::ValuesIn(kRows), hostileRowName);

}  // namespace
