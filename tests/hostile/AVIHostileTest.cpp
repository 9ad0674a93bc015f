// ZIRKAVIExtractor on crafted files, one row per hostile construct (see
// HostileRow.h).
#include "AVIBuilder.h"
#include "HostileRow.h"

using namespace android;
using namespace android::test;
using namespace android::test::avi;

namespace {

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
Bytes pcmWith(const Bytes& format, uint32_t scale = 1, uint32_t rate = 8000) {
    return av(format, scale, rate, 2, Bytes(320, 0));
}

// IMA ADPCM, 256-byte mono blocks.
Bytes imaFile(uint16_t channels, uint32_t rate, uint16_t align) {
    return av(waveFormat(0x0011, channels, rate, align, 4), 505, 8000, 256, Bytes(256, 0x17));
}

// Five MPEG-1 layer III frames (128 kbit/s, 44.1 kHz: 417 bytes each), enough
// for the four-frame resync; the WAVEFORMATEX is all zeros but the tag.
Bytes mp3ZeroFormatFile() {
    Bytes frames;
    for (int i = 0; i < 5; ++i) append(&frames, cat({{0xFF, 0xFB, 0x90}, Bytes(414, 0)}));
    return av(waveFormat(0x0055, 0, 0, 0, 0), 1152, 44100, 0, frames);
}

// MJPEG alone, three key frames; with idx1 (plain) or OpenDML indexes.
AVIFile videoOnly() {
    AVIFile f;
    int v = f.addVideo("MJPG", 1, 25);
    for (int i = 0; i < 3; ++i) f.addSample(v, Bytes(64 + i, static_cast<uint8_t>(i)));
    return f;
}
Bytes plain() { return videoOnly().build(); }
Bytes odml() { return videoOnly().build(AVIFile::kOpenDML); }

// One MJPEG stream from the given strh and strf, with one frame.
Bytes oneStream(const Bytes& strhData, const Bytes& strfData) {
    AVIFile f;
    f.addStream(strhData, strfData, "dc");
    f.addSample(0, Bytes(64, 1));
    return f.build();
}
Bytes cut(const Bytes& b, size_t size) { return Bytes(b.begin(), b.begin() + size); }

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
const char* const kEmptyIxFatal =
        "CHECK_EQ( (status_t)OK,getSampleTime(trackIndex, track->mSamples.size() - 1, &durationUs)) failed: ";

std::vector<HostileRow> rows() {
    const Bytes hugeRiff = patched(pcmFile(), "RIFF", 4, 0xFFFFFFF0);
    AVIFile f = videoOnly();
    const size_t lastChunk = static_cast<size_t>(f.samplePositions()[2]);
    AVIFile single;
    single.addSample(single.addAudio(pcmFormat(), 1, 8000, 2), Bytes(320, 0x80));
    AVIFile streams101;
    for (int i = 0; i < 101; ++i) streams101.addVideo("MJPG", 1, 25);
    streams101.addSample(0, Bytes(64, 1));
    const HostileRow idx1Huge{"idx1_size_huge", patched(hugeRiff, "idx1", 4, 0xFFFF0000)};
    const Bytes h = strh("vids", "MJPG", 1, 25), bmi = bitmapInfo(64, 48, "MJPG");
    return {
        // Controls: the files every row mutates open and read cleanly.
        {"control_idx1", pcmFile(), 2, 0, 3, kEOS},
        {"control_opendml", odml(), 1, 0, 3, kEOS},
        {"control_pcm_track", pcmFile(), 2, 1, 3, kEOS},

        // 0xFFFFFFFF lengths in tiny objects. The top-level RIFF has no bound,
        // so its walk reads on to the end of the file and fails there.
        {"riff_size_ffffffff", patched(pcmFile(), "RIFF", 4, 0xFFFFFFFF)},
        {"avih_size_ffffffff", patched(pcmFile(), "avih", 4, 0xFFFFFFFF)},
        {"strh_size_ffffffff", patched(pcmFile(), "strh", 4, 0xFFFFFFFF)},
        // idx1 claiming ~4 GiB inside a RIFF that claims as much: held to the
        // file's size, or (size unknown) read in blocks until the short read.
        idx1Huge,
        sizeUnknown(idx1Huge, "idx1_size_huge_size_unknown"),
        {"idx1_size_not_entry_multiple", patched(pcmFile(), "idx1", 4, 16 * 6 - 1)},

        // The entry loops are bounded by the bytes read, never by the counts:
        // 0xFFFFFFFF, and counts whose product with the 16- or 8-byte entry
        // wraps 32 bits to 0 (0x10000000 x 16, 0x20000000 x 8).
        {"indx_entries_ffffffff", patched(odml(), "indx", 12, 0xFFFFFFFF), 1, 0, 3, kEOS},
        {"indx_entries_x16_wraps", patched(odml(), "indx", 12, 0x10000000), 1, 0, 3, kEOS},
        {"ix_entries_ffffffff", patched(odml(), "ix00", 12, 0xFFFFFFFF), 1, 0, 3, kEOS},
        {"ix_entries_x8_wraps", patched(odml(), "ix00", 12, 0x20000000), 1, 0, 3, kEOS},

        // wLongsPerEntry is read but never used to size anything.
        {"indx_longs_per_entry_odd", patched(odml(), "indx", 8, 0xFFFF, 0, 2), 1, 0, 3, kEOS},
        {"ix_longs_per_entry_odd", patched(odml(), "ix00", 8, 3, 0, 2), 1, 0, 3, kEOS},

        // An ix## that claims no entries leaves the track empty: fatal by rule.
        fatalRow("ix_entries_zero", patched(odml(), "ix00", 12, 0), kEmptyIxFatal),
        {"indx_dwsize_ffffffff", patched(odml(), "indx", 40, 0xFFFFFFFF)},
        {"indx_dwsize_below_ix_header", patched(odml(), "indx", 40, 16)},
        {"indx_qwoffset_past_end", patched(odml(), "indx", 32, kFarAway)},
        {"indx_qwoffset_above_int64", patched(odml(), "indx", 36, 0x80000000)},
        {"ix_chunk_size_above_dwsize", patched(odml(), "ix00", 4, 0x1000)},

        // qwBaseOffset + dwOffset - 8 outside 64 bits is stored wrapped and only
        // its own sample fails, at read: base 0 + dwOffset 0 (sample 0 before the
        // file's start), base 2^64 - 16 (every sum wraps to 24 bytes before the
        // chunk's data: sample 0 is refused, the rest dropped as foreign chunks),
        // base 2^63 (no sum fits a file offset: the duration look-up is fatal).
        {"ix_entry_offset_underflows", patched(odml(), "ix00", ixEntry(0), 0), 1, 0, 0, kEOS},
        {"ix_base_offset_wraps", patched(patched(odml(), "ix00", 20, 0xFFFFFFF0), "ix00", 24, 0xFFFFFFFF), 1, 0, 0,
         kEOS},
        fatalRow("ix_base_offset_past_int64", patched(odml(), "ix00", 24, 0x80000000), kEmptyIxFatal),

        // Sizes smaller than their header. A LIST of 0..3 bytes is an empty
        // list (its "type" is the next chunk's bytes) and the walk goes on at its
        // rounded size; but a LIST needs 12 bytes of room, so one of 10 bytes
        // (size 1, pad) at the end of its parent is malformed. An hdrl of 3 hands
        // its children to the RIFF walk, which parses them all the same.
        {"list_size_0", pcmFile({chunk("LIST", Bytes(0)), chunk("JUNK", Bytes(4))}), 2, 0, 3, kEOS},
        {"list_size_1", pcmFile({chunk("LIST", Bytes(1, 'x')), chunk("JUNK", Bytes(4))}), 2, 0, 3, kEOS},
        {"list_size_2", pcmFile({chunk("LIST", Bytes(2, 'x')), chunk("JUNK", Bytes(4))}), 2, 0, 3, kEOS},
        {"list_size_3", pcmFile({chunk("LIST", Bytes(3, 'x')), chunk("JUNK", Bytes(4))}), 2, 0, 3, kEOS},
        {"list_size_1_ends_parent", pcmFile({chunk("LIST", Bytes(1, 'x'))})},
        {"hdrl_size_3", patched(pcmFile(), "hdrl", -4, 3), 2, 0, 3, kEOS},
        {"strh_40_bytes", oneStream(cut(h, 40), bmi)},
        {"strf_video_39_bytes", oneStream(h, cut(bmi, 39))},
        {"strf_audio_15_bytes", pcmWith(cut(pcmFormat(), 15))},
        // 16 bytes is a whole WAVEFORMATEX without cbSize: accepted.
        {"strf_audio_16_bytes", pcmWith(waveFormat(1, 1, 8000, 2, 16, {}, false)), 2, 1, 3, kEOS},

        // Children larger than their parent: one byte over, and far over.
        {"strf_one_byte_past_strl", patched(pcmFile(), "strf", 4, 41)},
        {"movi_list_past_riff", patched(pcmFile(), "movi", -4, kFarAway)},

        // The last sample's chunk header claims more than the file: its read
        // fails, the ones before it do not.
        {"movi_chunk_past_file", patched(f.build(), "00dc", 4, kFarAway, lastChunk), 1, 0, 2, ERROR_MALFORMED},

        // Nesting: the walk is iterative and refuses more than 4096 open lists.
        {"nested_4000_lists", pcmFile({nestedLists(4000)}), 2, 0, 3, kEOS},
        {"nested_20000_lists", pcmFile({nestedLists(20000)})},
        {"nested_50000_lists", pcmFile({nestedLists(50000)})},

        // Zero scale, rate, channels, sample rate, block align. Times fall to 0
        // rather than dividing; a PCM or ADPCM stream that cannot be cut is
        // malformed at read.
        {"vids_scale_0", patched(pcmFile(), "strh", 28, 0), 2, 0, 3, kEOS},
        {"vids_rate_0", patched(pcmFile(), "strh", 32, 0), 2, 0, 3, kEOS},
        {"auds_scale_0", pcmWith(pcmFormat(), 0), 2, 1, 3, kEOS},
        {"auds_rate_0", pcmWith(pcmFormat(), 1, 0), 2, 1, 3, kEOS},
        {"pcm_channels_0", pcmWith(pcmFormat(0)), 2, 1, 0, ERROR_MALFORMED},
        {"pcm_sample_rate_0", pcmWith(pcmFormat(1, 0)), 2, 1, 0, ERROR_MALFORMED},
        {"pcm_block_align_0", pcmWith(pcmFormat(1, 8000, 0)), 2, 1, 3, kEOS},
        {"mp3_all_zero_format", mp3ZeroFormatFile(), 2, 1, kUnchecked, kEOS},
        {"ima_block_align_0", imaFile(1, 8000, 0), 2, 1, 0, ERROR_MALFORMED},
        {"ima_channels_0", imaFile(0, 8000, 256), 2, 1, 0, ERROR_MALFORMED},
        {"ima_sample_rate_0", imaFile(1, 0, 256), 2, 1, 3, kEOS},
        // Nine channels: the decoder's per-channel state is kept for 8 at a time.
        {"ima_9_channels", imaFile(9, 8000, 72), 2, 1, kUnchecked, kEOS},
        // One fixed-size chunk: its average chunk size is 0/0, which every time
        // estimate and seek must survive.
        {"pcm_single_chunk", single.build(), 1, 0, 1, kEOS},
        // 101 stream headers: the 101st is refused (-34) and so is the file.
        {"streams_101", streams101.build()},

        // Index entries past the end of the file. Sample 0 decides the offset
        // base and fails the file; a later one ends the reads there; the last
        // one is read for the duration, which must succeed (fatal by rule).
        {"idx1_first_offset_past_end", patched(plain(), "idx1", idx1Entry(0) + 8, kFarAway)},
        {"idx1_middle_offset_past_end", patched(plain(), "idx1", idx1Entry(1) + 8, kFarAway), 1, 0, 1, kEOS},
        fatalRow("idx1_last_offset_past_end", patched(plain(), "idx1", idx1Entry(2) + 8, kFarAway),
                 "CHECK_EQ( (status_t)OK,getSampleTime(i, track->mSamples.size() - 1, &durationUs)) failed: "),
        // A size past the file sizes the buffers: start() refuses it.
        {"idx1_size_past_end", patched(plain(), "idx1", idx1Entry(1) + 12, kFarAway), 1, 0, kStartFails,
         ERROR_MALFORMED},
        {"ix_middle_offset_past_end", patched(odml(), "ix00", ixEntry(1), kFarAway), 1, 0, 1, kEOS},
        fatalRow("ix_last_offset_past_end", patched(odml(), "ix00", ixEntry(2), kFarAway), kEmptyIxFatal),
        {"ix_size_past_end", patched(odml(), "ix00", ixEntry(1) + 4, kFarAway), 1, 0, kStartFails, ERROR_MALFORMED},
    };
}

ZIRK_HOSTILE_SUITE(AVIHostileTest, MEDIA_MIMETYPE_CONTAINER_AVI, rows);

}  // namespace
