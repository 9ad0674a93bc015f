// ZIRKAVIExtractor on crafted files: one row per hostile construct, each
// a small valid file with one field made to lie. A row states the outcome it
// pins (track count and how the chosen track reads, or the fatal check that
// must fire) and is also run through the fuzz harness, which reads every
// track to the end and seeks in every mode. Run in both the plain and the
// sanitizer build: a row that "passes" with an out-of-bounds read or a
// division by zero fails there.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <media/stagefright/MediaBuffer.h>
#include <media/stagefright/MediaDefs.h>
#include <media/stagefright/MediaErrors.h>

#include "AVIBuilder.h"
#include "CheckMatchers.h"
#include "TestDataSources.h"
#include "entry/ZIRKExtractorEntry.h"
#include "fuzz/ZIRKFuzzHarness.h"

using namespace android;
using namespace android::test;
using namespace android::test::avi;

namespace {

const char kSource[] = "avi/ZIRKAVIExtractor";
const int kUnchecked = -1;

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
        Bytes frame(417, 0);
        frame[0] = 0xFF, frame[1] = 0xFB, frame[2] = 0x90;
        append(&frames, frame);
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

// Writes `value` at `delta` bytes after the first `id` in the file.
Bytes patched(Bytes b, const std::string& id, ptrdiff_t delta, uint32_t value, size_t from = 0) {
    size_t at = findFourcc(b, id, from) + delta;
    if (at + 4 > b.size()) ADD_FAILURE() << id << " not in the file";
    else setLE32(&b, at, value);
    return b;
}
Bytes patched16(Bytes b, const std::string& id, size_t delta, uint16_t value) {
    size_t at = findFourcc(b, id);
    b.at(at + delta) = value & 0xFF;
    b.at(at + delta + 1) = value >> 8;
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


struct Row {
    const char* id;
    Bytes (*build)();
    size_t tracks;       // countTracks()
    size_t track;        // the track read
    int reads;           // OK reads before the first failure (kUnchecked: not counted)
    status_t end;        // start()'s failure, else the first failing read()
    const char* fatal;   // or the check that must fire instead of all the above
    bool sizeKnown;
};

void PrintTo(const Row& row, std::ostream* os) { *os << row.id; }

const Row kRows[] = {
    // Controls: the files every row mutates open and read cleanly.
    {"control_idx1", [] { return pcmFile(); }, 2, 0, 3, ERROR_END_OF_STREAM, nullptr, true},
    {"control_opendml", [] { return videoOnly().build(AVIFile::kOpenDML); }, 1, 0, 3, ERROR_END_OF_STREAM, nullptr, true},
    {"control_pcm_track", [] { return pcmFile(); }, 2, 1, 3, ERROR_END_OF_STREAM, nullptr, true},

    // 0xFFFFFFFF lengths in tiny objects. The top-level RIFF has no bound,
    // so its walk reads on to the end of the file and fails there.
    {"riff_size_ffffffff", [] { return patched(pcmFile(), "RIFF", 4, 0xFFFFFFFF); }, 0, 0, 0, OK, nullptr, true},
    {"avih_size_ffffffff", [] { return patched(pcmFile(), "avih", 4, 0xFFFFFFFF); }, 0, 0, 0, OK, nullptr, true},
    {"strh_size_ffffffff", [] { return patched(pcmFile(), "strh", 4, 0xFFFFFFFF); }, 0, 0, 0, OK, nullptr, true},
    // idx1 claiming ~4 GiB inside a RIFF that claims as much: held to the
    // file's size, or (size unknown) read in blocks until the short read.
    {"idx1_size_huge", [] { return patched(patched(pcmFile(), "RIFF", 4, 0xFFFFFFF0), "idx1", 4, 0xFFFF0000); }, 0, 0, 0, OK, nullptr, true},
    {"idx1_size_huge_size_unknown", [] { return patched(patched(pcmFile(), "RIFF", 4, 0xFFFFFFF0), "idx1", 4, 0xFFFF0000); }, 0, 0, 0, OK, nullptr, false},
    {"idx1_size_not_entry_multiple", [] { return patched(pcmFile(), "idx1", 4, 16 * 6 - 1); }, 0, 0, 0, OK, nullptr, true},
    // The entry loops are bounded by the bytes read, never by the counts:
    // 0xFFFFFFFF, and counts whose product with the 16- or 8-byte entry
    // wraps 32 bits to 0 (0x10000000 x 16, 0x20000000 x 8).
    {"indx_entries_ffffffff", [] { return patched(videoOnly().build(AVIFile::kOpenDML), "indx", 12, 0xFFFFFFFF); }, 1, 0, 3, ERROR_END_OF_STREAM, nullptr, true},
    {"indx_entries_x16_wraps", [] { return patched(videoOnly().build(AVIFile::kOpenDML), "indx", 12, 0x10000000); }, 1, 0, 3, ERROR_END_OF_STREAM, nullptr, true},
    {"ix_entries_ffffffff", [] { return patched(videoOnly().build(AVIFile::kOpenDML), "ix00", 12, 0xFFFFFFFF); }, 1, 0, 3, ERROR_END_OF_STREAM, nullptr, true},
    {"ix_entries_x8_wraps", [] { return patched(videoOnly().build(AVIFile::kOpenDML), "ix00", 12, 0x20000000); }, 1, 0, 3, ERROR_END_OF_STREAM, nullptr, true},
    // wLongsPerEntry is read but never used to size anything.
    {"indx_longs_per_entry_odd", [] { return patched16(videoOnly().build(AVIFile::kOpenDML), "indx", 8, 0xFFFF); }, 1, 0, 3, ERROR_END_OF_STREAM, nullptr, true},
    {"ix_longs_per_entry_odd", [] { return patched16(videoOnly().build(AVIFile::kOpenDML), "ix00", 8, 3); }, 1, 0, 3, ERROR_END_OF_STREAM, nullptr, true},
    // An ix## that claims no entries leaves the track empty: fatal by rule.
    {"ix_entries_zero", [] { return patched(videoOnly().build(AVIFile::kOpenDML), "ix00", 12, 0); }, 0, 0, 0, OK,
     "CHECK_EQ( (status_t)OK,getSampleTime(trackIndex, track->mSamples.size() - 1, &durationUs)) failed: ", true},
    {"indx_dwsize_ffffffff", [] { return patched(videoOnly().build(AVIFile::kOpenDML), "indx", 40, 0xFFFFFFFF); }, 0, 0, 0, OK, nullptr, true},
    {"indx_dwsize_below_ix_header", [] { return patched(videoOnly().build(AVIFile::kOpenDML), "indx", 40, 16); }, 0, 0, 0, OK, nullptr, true},
    {"indx_qwoffset_past_end", [] { return patched(videoOnly().build(AVIFile::kOpenDML), "indx", 32, kFarAway); }, 0, 0, 0, OK, nullptr, true},
    {"indx_qwoffset_above_int64", [] { return patched(videoOnly().build(AVIFile::kOpenDML), "indx", 36, 0x80000000); }, 0, 0, 0, OK, nullptr, true},
    {"ix_chunk_size_above_dwsize", [] { return patched(videoOnly().build(AVIFile::kOpenDML), "ix00", 4, 0x1000); }, 0, 0, 0, OK, nullptr, true},
    // qwBaseOffset + dwOffset - 8 outside 64 bits is stored wrapped and only
    // its own sample fails, at read: base 0 + dwOffset 0 (sample 0 before the
    // file's start), base 2^64 - 16 (every sum wraps to 24 bytes before the
    // chunk's data: sample 0 is refused, the rest dropped as foreign chunks),
    // base 2^63 (no sum fits a file offset: the duration look-up is fatal).
    {"ix_entry_offset_underflows", [] { return patched(videoOnly().build(AVIFile::kOpenDML), "ix00", ixEntry(0), 0); }, 1, 0, 0, ERROR_END_OF_STREAM, nullptr, true},
    {"ix_base_offset_wraps", [] { return patched(patched(videoOnly().build(AVIFile::kOpenDML), "ix00", 20, 0xFFFFFFF0), "ix00", 24, 0xFFFFFFFF); }, 1, 0, 0, ERROR_END_OF_STREAM, nullptr, true},
    {"ix_base_offset_past_int64", [] { return patched(videoOnly().build(AVIFile::kOpenDML), "ix00", 24, 0x80000000); }, 0, 0, 0, OK,
     "CHECK_EQ( (status_t)OK,getSampleTime(trackIndex, track->mSamples.size() - 1, &durationUs)) failed: ", true},

    // Sizes smaller than their header. A LIST of 0..3 bytes is an empty
    // list (its "type" is the next chunk's bytes) and the walk goes on at its
    // rounded size; but a LIST needs 12 bytes of room, so one of 10 bytes
    // (size 1, pad) at the end of its parent is malformed. An hdrl of 3 hands
    // its children to the RIFF walk, which parses them all the same.
    {"list_size_0", [] { return pcmFile({chunk("LIST", Bytes(0)), chunk("JUNK", Bytes(4))}); }, 2, 0, 3, ERROR_END_OF_STREAM, nullptr, true},
    {"list_size_1", [] { return pcmFile({chunk("LIST", Bytes(1, 'x')), chunk("JUNK", Bytes(4))}); }, 2, 0, 3, ERROR_END_OF_STREAM, nullptr, true},
    {"list_size_2", [] { return pcmFile({chunk("LIST", Bytes(2, 'x')), chunk("JUNK", Bytes(4))}); }, 2, 0, 3, ERROR_END_OF_STREAM, nullptr, true},
    {"list_size_3", [] { return pcmFile({chunk("LIST", Bytes(3, 'x')), chunk("JUNK", Bytes(4))}); }, 2, 0, 3, ERROR_END_OF_STREAM, nullptr, true},
    {"list_size_1_ends_parent", [] { return pcmFile({chunk("LIST", Bytes(1, 'x'))}); }, 0, 0, 0, OK, nullptr, true},
    {"hdrl_size_3", [] { return patched(pcmFile(), "hdrl", -4, 3); }, 2, 0, 3, ERROR_END_OF_STREAM, nullptr, true},
    {"strh_40_bytes", [] {
         AVIFile f;
         Bytes h = strh("vids", "MJPG", 1, 25);
         f.addStream(Bytes(h.begin(), h.begin() + 40), bitmapInfo(64, 48, "MJPG"), "dc");
         f.addSample(0, Bytes(64, 1));
         return f.build(); }, 0, 0, 0, OK, nullptr, true},
    {"strf_video_39_bytes", [] {
         AVIFile f;
         Bytes bmi = bitmapInfo(64, 48, "MJPG");
         f.addStream(strh("vids", "MJPG", 1, 25), Bytes(bmi.begin(), bmi.begin() + 39), "dc");
         f.addSample(0, Bytes(64, 1));
         return f.build(); }, 0, 0, 0, OK, nullptr, true},
    {"strf_audio_15_bytes", [] { Bytes w = pcmFormat(); return av(Bytes(w.begin(), w.begin() + 15), 1, 8000, 2, Bytes(320, 0)); }, 0, 0, 0, OK, nullptr, true},
    // 16 bytes is a whole WAVEFORMATEX without cbSize: accepted.
    {"strf_audio_16_bytes", [] { return av(waveFormat(1, 1, 8000, 2, 16, {}, false), 1, 8000, 2, Bytes(320, 0)); }, 2, 1, 3, ERROR_END_OF_STREAM, nullptr, true},

    // Children larger than their parent: one byte over, and far over.
    {"strf_one_byte_past_strl", [] { return patched(pcmFile(), "strf", 4, 41); }, 0, 0, 0, OK, nullptr, true},
    {"movi_list_past_riff", [] { return patched(pcmFile(), "movi", -4, kFarAway); }, 0, 0, 0, OK, nullptr, true},
    // The last sample's chunk header claims more than the file: its read
    // fails, the ones before it do not.
    {"movi_chunk_past_file", [] {
         AVIFile f = videoOnly();
         return patched(f.build(), "00dc", 4, kFarAway, static_cast<size_t>(f.samplePositions()[2])); },
     1, 0, 2, ERROR_MALFORMED, nullptr, true},

    // Nesting: the walk is iterative and refuses more than 4096 open lists.
    {"nested_4000_lists", [] { return pcmFile({nestedLists(4000)}); }, 2, 0, 3, ERROR_END_OF_STREAM, nullptr, true},
    {"nested_20000_lists", [] { return pcmFile({nestedLists(20000)}); }, 0, 0, 0, OK, nullptr, true},
    {"nested_50000_lists", [] { return pcmFile({nestedLists(50000)}); }, 0, 0, 0, OK, nullptr, true},

    // Zero scale, rate, channels, sample rate, block align. Times fall to 0
    // rather than dividing; a PCM or ADPCM stream that cannot be cut is
    // malformed at read.
    {"vids_scale_0", [] { return patched(pcmFile(), "strh", 28, 0); }, 2, 0, 3, ERROR_END_OF_STREAM, nullptr, true},
    {"vids_rate_0", [] { return patched(pcmFile(), "strh", 32, 0); }, 2, 0, 3, ERROR_END_OF_STREAM, nullptr, true},
    {"auds_scale_0", [] { return av(pcmFormat(), 0, 8000, 2, Bytes(320, 0)); }, 2, 1, 3, ERROR_END_OF_STREAM, nullptr, true},
    {"auds_rate_0", [] { return av(pcmFormat(), 1, 0, 2, Bytes(320, 0)); }, 2, 1, 3, ERROR_END_OF_STREAM, nullptr, true},
    {"pcm_channels_0", [] { return av(pcmFormat(0), 1, 8000, 2, Bytes(320, 0)); }, 2, 1, 0, ERROR_MALFORMED, nullptr, true},
    {"pcm_sample_rate_0", [] { return av(pcmFormat(1, 0), 1, 8000, 2, Bytes(320, 0)); }, 2, 1, 0, ERROR_MALFORMED, nullptr, true},
    {"pcm_block_align_0", [] { return av(pcmFormat(1, 8000, 0), 1, 8000, 2, Bytes(320, 0)); }, 2, 1, 3, ERROR_END_OF_STREAM, nullptr, true},
    {"mp3_all_zero_format", [] { return mp3ZeroFormatFile(); }, 2, 1, kUnchecked, ERROR_END_OF_STREAM, nullptr, true},
    {"ima_block_align_0", [] { return imaFile(1, 8000, 0); }, 2, 1, 0, ERROR_MALFORMED, nullptr, true},
    {"ima_channels_0", [] { return imaFile(0, 8000, 256); }, 2, 1, 0, ERROR_MALFORMED, nullptr, true},
    {"ima_sample_rate_0", [] { return imaFile(1, 0, 256); }, 2, 1, 3, ERROR_END_OF_STREAM, nullptr, true},
    // Nine channels: the decoder's per-channel state is kept for 8 at a time.
    {"ima_9_channels", [] { return imaFile(9, 8000, 72); }, 2, 1, kUnchecked, ERROR_END_OF_STREAM, nullptr, true},
    // One fixed-size chunk: its average chunk size is 0/0, which every time
    // estimate and seek must survive.
    {"pcm_single_chunk", [] {
         AVIFile f;
         int a = f.addAudio(pcmFormat(), 1, 8000, 2);
         f.addSample(a, Bytes(320, 0x80));
         return f.build(); }, 1, 0, 1, ERROR_END_OF_STREAM, nullptr, true},
    // 101 stream headers: the 101st is refused (-34) and so is the file.
    {"streams_101", [] {
         AVIFile f;
         for (int i = 0; i < 101; ++i) f.addVideo("MJPG", 1, 25);
         f.addSample(0, Bytes(64, 1));
         return f.build(); }, 0, 0, 0, OK, nullptr, true},

    // Index entries past the end of the file. Sample 0 decides the offset
    // base and fails the file; a later one ends the reads there; the last
    // one is read for the duration, which must succeed (fatal by rule).
    {"idx1_first_offset_past_end", [] { return patched(videoOnly().build(), "idx1", idx1Entry(0) + 8, kFarAway); }, 0, 0, 0, OK, nullptr, true},
    {"idx1_middle_offset_past_end", [] { return patched(videoOnly().build(), "idx1", idx1Entry(1) + 8, kFarAway); }, 1, 0, 1, ERROR_END_OF_STREAM, nullptr, true},
    {"idx1_last_offset_past_end", [] { return patched(videoOnly().build(), "idx1", idx1Entry(2) + 8, kFarAway); }, 0, 0, 0, OK,
     "CHECK_EQ( (status_t)OK,getSampleTime(i, track->mSamples.size() - 1, &durationUs)) failed: ", true},
    // A size past the file sizes the buffers: start() refuses it.
    {"idx1_size_past_end", [] { return patched(videoOnly().build(), "idx1", idx1Entry(1) + 12, kFarAway); }, 1, 0, 0, ERROR_MALFORMED, nullptr, true},
    {"ix_middle_offset_past_end", [] { return patched(videoOnly().build(AVIFile::kOpenDML), "ix00", ixEntry(1), kFarAway); }, 1, 0, 1, ERROR_END_OF_STREAM, nullptr, true},
    {"ix_last_offset_past_end", [] { return patched(videoOnly().build(AVIFile::kOpenDML), "ix00", ixEntry(2), kFarAway); }, 0, 0, 0, OK,
     "CHECK_EQ( (status_t)OK,getSampleTime(trackIndex, track->mSamples.size() - 1, &durationUs)) failed: ", true},
    {"ix_size_past_end", [] { return patched(videoOnly().build(AVIFile::kOpenDML), "ix00", ixEntry(1) + 4, kFarAway); }, 1, 0, 0, ERROR_MALFORMED, nullptr, true},
};

// Start and read `track` until the first failure; the OK count and status.
std::pair<int, status_t> readUntilFailure(const sp<MediaSource>& source) {
    status_t err = source->start();
    if (err != OK) return {0, err};
    int reads = 0;
    for (; reads < 1000; ++reads) {
        MediaBuffer* buffer = nullptr;
        err = source->read(&buffer);
        if (buffer != nullptr) buffer->release();
        if (err != OK) break;
    }
    source->stop();
    return {reads, err};
}

class AVIHostileTest : public ::testing::TestWithParam<Row> {};

TEST_P(AVIHostileTest, FailsAsPinned) {
    const Row& row = GetParam();
    fuzz::initHarness();
    const Bytes bytes = row.build();
    std::string fired;
    size_t tracks = 0;
    std::pair<int, status_t> result{0, OK};
    try {
        sp<MediaExtractor> extractor = getInstance(
                new FaultySource(bytes, FaultySource::kNone, 0, row.sizeKnown), MEDIA_MIMETYPE_CONTAINER_AVI);
        ASSERT_NE(extractor, nullptr);
        tracks = extractor->countTracks();
        if (row.tracks > 0 && tracks > row.track) result = readUntilFailure(extractor->getTrack(row.track));
    } catch (const fuzz::FatalCheck& check) {
        fired = check.message;
    }
    if (row.fatal != nullptr) {
        EXPECT_TRUE(isCheckMessage(fired, kSource, row.fatal)) << "fired: " << fired;
    } else {
        EXPECT_EQ(fired, "");
        EXPECT_EQ(tracks, row.tracks);
        if (row.tracks > 0) {
            if (row.reads != kUnchecked) {
                EXPECT_EQ(result.first, row.reads);
            }
            EXPECT_EQ(result.second, row.end);
        }
    }
    // Every track to the end, and every seek mode, under the sanitizers.
    fuzz::runExtractor(bytes.data(), bytes.size(), MEDIA_MIMETYPE_CONTAINER_AVI);
}

INSTANTIATE_TEST_SUITE_P(Rows, AVIHostileTest, ::testing::ValuesIn(kRows),
                         [](const ::testing::TestParamInfo<Row>& info) { return std::string(info.param.id); });

}  // namespace
