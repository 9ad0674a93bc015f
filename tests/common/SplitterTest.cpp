// The audio splitters: frame cutting, resync, time stamps, PCM width
// conversion, the IMA ADPCM decoder and the header parsers, with the AVI
// demultiplexer's check table (its fatal checks are pinned here).
#include <gtest/gtest.h>

#include <media/stagefright/MediaBuffer.h>
#include <media/stagefright/MediaDefs.h>
#include <media/stagefright/MediaErrors.h>

#include "CheckMatchers.h"
#include "LogCapture.h"
#include "TestDataSources.h"
#include "avi/ZIRKAVIChecks.h"
#include "common/AudioSplitter.h"
#include "common/MP3Splitter.h"

using namespace android;
using namespace android::test;

namespace {

const char* const kSource = "avi/ZIRKAVIExtractor";

MediaBuffer* chunkBuffer(const Bytes& bytes, int64_t timeUs, bool withTime = true) {
    MediaBuffer* b = new MediaBuffer(bytes.size() ? bytes.size() : 1);
    if (!bytes.empty()) memcpy(b->data(), bytes.data(), bytes.size());
    b->set_range(0, bytes.size());
    if (withTime) b->meta_data()->setInt64(kKeyTime, timeUs);
    return b;
}

void feed(const sp<DataSplitter>& s, const Bytes& bytes, int64_t timeUs) {
    MediaBuffer* b = chunkBuffer(bytes, timeUs);
    ASSERT_EQ(s->append(b), OK);
    b->release();
}

Bytes slice(const Bytes& b, size_t from, size_t to = SIZE_MAX) {
    return Bytes(b.begin() + from, b.begin() + std::min(to, b.size()));
}

struct Frame {
    Bytes mData;
    int64_t mTimeUs;
};

// Reads until the splitter asks for more (or fails).
std::vector<Frame> drain(const sp<DataSplitter>& s, status_t* last = nullptr, int64_t* seekTimeUs = nullptr) {
    std::vector<Frame> frames;
    for (;;) {
        MediaBuffer* out = reinterpret_cast<MediaBuffer*>(1);
        status_t err = s->read(&out, frames.empty() ? seekTimeUs : nullptr);
        if (err != OK) {
            EXPECT_EQ(out, nullptr);
            if (last) *last = err;
            return frames;
        }
        const uint8_t* p = static_cast<const uint8_t*>(out->data()) + out->range_offset();
        frames.push_back({Bytes(p, p + out->range_length()), -1});
        EXPECT_TRUE(out->meta_data()->findInt64(kKeyTime, &frames.back().mTimeUs));
        out->release();
    }
}

// Feeds `bytes` in pieces of `chunk` bytes stamped `baseUs` + position,
// draining after each.
std::vector<Frame> feedAll(const sp<DataSplitter>& s, const Bytes& bytes, size_t chunk, int64_t baseUs) {
    std::vector<Frame> all;
    for (size_t pos = 0; pos < bytes.size(); pos += chunk) {
        feed(s, slice(bytes, pos, pos + chunk), baseUs + int64_t(pos));
        std::vector<Frame> got = drain(s);
        all.insert(all.end(), got.begin(), got.end());
    }
    return all;
}

sp<DataSplitter> splitter(const char* mime, int32_t rate, int32_t channels, uint32_t type, uint32_t width,
                          uint32_t align) {
    sp<MetaData> meta = new MetaData;
    meta->setCString(kKeyMIMEType, mime);
    meta->setInt32(kKeySampleRate, rate);
    meta->setInt32(kKeyChannelCount, channels);
    return new AudioSplitter(avichecks::kAudioSplitter, meta, type, width, align);
}

int16_t sampleAt(const Bytes& pcm, size_t i) { return static_cast<int16_t>(pcm[2 * i] | (pcm[2 * i + 1] << 8)); }

// Pins frames cut wrongly across chunk edges: whole frames whatever the
// chunking, each one of ffprobe's packets (so the frame size of every MPEG
// version and layer met in real files); times count frames from the first
// chunk's time.
TEST(AVIMP3SplitterTest, CutsFramesAndStampsFromTheFirstChunk) {
    const struct { const char* file; int rate, samplesPerFrame; } cases[] = {
        {"mp3_44100_stereo.mp3", 44100, 1152}, {"mp3_22050_mono.mp3", 22050, 576}, {"mp3_8000_mono.mp3", 8000, 576},
        {"mp2_48000.mp2", 48000, 1152}, {"mp2_24000.mp2", 24000, 1152}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.file);
        const Bytes bytes = readFileBytes(testdataPath(c.file));
        std::vector<size_t> expected;
        for (const CsvRow& r : readTestdataCsv(std::string(c.file) + ".packets.csv"))
            expected.push_back(std::stoul(r.at("size")));
        ASSERT_FALSE(expected.empty());
        for (size_t chunk : {1000u, 333u, 100000u}) {
            std::vector<Frame> frames = feedAll(new MP3Splitter(avichecks::kMP3Splitter), bytes, chunk, 5000000);
            std::vector<size_t> sizes;
            for (size_t i = 0; i < frames.size(); ++i) {
                EXPECT_EQ(frames[i].mTimeUs, 5000000 + int64_t(i) * c.samplesPerFrame * 1000000 / c.rate);
                sizes.push_back(frames[i].mData.size());
            }
            EXPECT_EQ(sizes, expected) << chunk;
        }
    }
}

// Pins a resync that keeps garbage (with a false sync) before the first frame,
// loses more than the frame with a broken header (logged) or times the rest
// by position, and a clear() that keeps buffered bytes or the time base.
TEST(AVIMP3SplitterTest, ResyncsAfterGarbageAndBrokenHeaders) {
    Bytes mp3 = readFileBytes(testdataPath("mp3_44100_stereo.mp3"));
    ASSERT_EQ(mp3.size(), 8777u);
    const Bytes prefixed = cat({{0x12, 0xFF, 0xFB, 0x90, 0x44, 0x00, 0x01}, mp3});
    sp<DataSplitter> s = new MP3Splitter(avichecks::kMP3Splitter);
    std::vector<Frame> frames = feedAll(s, prefixed, 4096, 0);
    ASSERT_EQ(frames.size(), 21u);
    EXPECT_EQ(frames[0].mData, slice(mp3, 0, 417));
    // A broken header in frame 5 loses that frame only; times count emitted
    // samples, so the frame after the gap takes slot 5.
    mp3[417 + 4 * 418] = 0x00;
    LogCapture log;
    s = new MP3Splitter(avichecks::kMP3Splitter);
    frames = feedAll(s, mp3, 4096, 0);
    ASSERT_EQ(frames.size(), 20u);
    EXPECT_EQ(log.count("!!! invalid frame, resync for valid frame !!!", ANDROID_LOG_WARN), 1u);
    EXPECT_EQ(frames[5].mTimeUs, 5 * 1152 * 1000000LL / 44100);
    // clear() forgets buffered bytes and the time base.
    s->clear();
    feed(s, slice(mp3, 0, 3000), 777);
    frames = drain(s);
    ASSERT_FALSE(frames.empty());
    EXPECT_EQ(frames[0].mTimeUs, 777);
}

// Pins the sample conversion: every PCM width to 16-bit, the channel headers
// alone of a stereo ADPCM block (align 4 x channels): one sample per channel,
// its predictor, interleaved; G.711 copied, not converted.
TEST(AVIPCMSplitterTest, ConvertsToInterleaved16Bit) {
    const struct { uint32_t type, width, align; int32_t channels; Bytes in; std::vector<int16_t> out; } cases[] = {
        {2, 1, 0, 1, {128, 255, 0, 129}, {0, 32512, -32768, 256}},
        {2, 2, 0, 1, {0x34, 0x12, 0xFF, 0xFF}, {0x1234, -1}},
        {2, 0, 0, 1, {0x34, 0x12, 0xFF, 0xFF}, {0x1234, -1}},  // 0 counts as 16-bit
        {2, 3, 0, 1, {0x11, 0x34, 0x12, 0x22, 0xFE, 0xFF}, {0x1234, -2}},
        {2, 4, 0, 1, {1, 2, 3, 4, 5, 6, 7, 8}, {0, 0}},  // not converted: silence
        {7, 0, 8, 2, {0x10, 0, 0, 0, 0xF0, 0xFF, 0, 0}, {16, -16}},
        {9, 1, 2, 2, {1, 2, 3, 4}, {0x0201, 0x0403}},  // G.711: the bytes unchanged
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        sp<DataSplitter> s = splitter(MEDIA_MIMETYPE_AUDIO_RAW, 8000, c.channels, c.type, c.width, c.align);
        feed(s, c.in, 0);
        std::vector<Frame> frames = drain(s);
        ASSERT_EQ(frames.size(), 1u);
        ASSERT_EQ(frames[0].mData.size(), c.out.size() * 2);
        for (size_t i = 0; i < c.out.size(); ++i) EXPECT_EQ(sampleAt(frames[0].mData, i), c.out[i]) << i;
    }
}

// The CRC bytes (0x3F: 48 kHz, reserved size code 63) and the sync word's
// 0x77 (code 55) are what a resync sees as a rate-and-size byte at the
// three positions before a frame: none parses there.
Bytes ac3Frame(uint8_t fscod, uint8_t frmsizecod, size_t size, uint8_t acmod = 2) {
    Bytes f(size, 0x5A);
    f[0] = 0x0B, f[1] = 0x77, f[2] = f[3] = 0x3F;
    f[4] = static_cast<uint8_t>((fscod << 6) | frmsizecod);
    f[5] = 8 << 3;
    f[6] = static_cast<uint8_t>(acmod << 5);
    return f;
}

// Chunk i stamped 1000 x (i + 1), read after each: the pieces (size, time)
// and the status that ends the last reads. Pins, by format: PCM and G.711 cut
// in pieces of at most 20 ms, timed from the first chunk; IMA ADPCM blocks of
// (align - 4 x channels) x 2 + 1 samples a channel and MS ADPCM mono of
// (align - 6) x 2; raw AAC and WMA chunks handed out whole, AAC timed as a
// frame of 1024 samples each, WMA at the chunk's time; AC-3 frames cut across
// chunks after a resync past garbage; an unknown tag taken as its MIME type
// says (logged when that is unknown too, which ends the stream). Pins the
// waits (not an empty piece handed out forever) when less than one 24-bit
// stereo frame is buffered or an AC-3 header is cut after its fifth byte, and
// as malformed the geometries that can never be cut: no frame in 20 ms at
// 49 Hz, an ADPCM block smaller than its headers. Pins the seek drop: pieces
// that end before the seek time are dropped, not the one that spans it.
TEST(AVIAudioSplitterTest, PiecesAndTimesByFormat) {
    const char *raw = MEDIA_MIMETYPE_AUDIO_RAW, *alaw = MEDIA_MIMETYPE_AUDIO_G711_ALAW;
    const char* ac3 = MEDIA_MIMETYPE_AUDIO_AC3;
    const Bytes frame = ac3Frame(0, 12, 384), ac3Stream = cat({{1, 2, 3}, frame, frame, frame});
    const struct {
        const char* mName;
        const char* mMime;
        int32_t mRate, mChannels;
        uint32_t mType, mWidth, mAlign;
        std::vector<Bytes> mChunks;
        std::vector<std::pair<size_t, int64_t>> mPieces;
        status_t mLast;
        int64_t mSeekUs = 0;  // of the first read, 0: none
    } kRows[] = {
        {"PCM16", raw, 44100, 1, 2, 2, 2, {Bytes(4000, 1)}, {{1764, 1000}, {1764, 21000}, {472, 41000}}, -11},
        {"PCM16Seek", raw, 44100, 1, 2, 2, 2, {Bytes(8000, 1)},
         {{1764, 41000}, {1764, 61000}, {944, 81000}}, -11, 50000},
        {"G711Stereo", alaw, 8000, 2, 9, 1, 2, {Bytes(700, 1)}, {{320, 1000}, {320, 21000}, {60, 41000}}, -11},
        {"Below24BitStereoFrame", raw, 8000, 2, 2, 3, 6, {Bytes(5, 1)}, {}, -11},
        {"NoFrameIn20ms", raw, 49, 1, 2, 2, 2, {Bytes(100, 1)}, {}, ERROR_MALFORMED},
        {"IMAStereo", raw, 22050, 2, 7, 0, 2048, {Bytes(4096, 1)}, {{8164, 1000}, {8164, 1000 + 92562}}, -11},
        {"MSADPCMMono", raw, 22050, 1, 8, 0, 1024, {Bytes(2048, 1)}, {{4072, 1000}, {4072, 1000 + 92335}}, -11},
        {"ADPCMBlockBelowHeaders", raw, 22050, 2, 7, 0, 7, {Bytes(100, 1)}, {}, ERROR_MALFORMED},
        {"RawAAC", MEDIA_MIMETYPE_AUDIO_AAC, 44100, 2, 0, 0, 0, {Bytes(300, 1), Bytes(200, 2)},
         {{300, 1000}, {200, 1000 + 23219}}, -11},
        {"WMA", MEDIA_MIMETYPE_AUDIO_WMA, 44100, 2, 1, 0, 0, {Bytes(100, 1), Bytes(100, 2)},
         {{100, 1000}, {100, 2000}}, -11},
        {"UnknownTagRaw", raw, 8000, 1, 65535, 2, 2, {Bytes(100, 1)}, {{100, 1000}}, -11},
        {"AC3AfterGarbage", ac3, 48000, 2, 3, 0, 0, {slice(ac3Stream, 0, 500), slice(ac3Stream, 500)},
         {{384, 1000}, {384, 33000}, {384, 65000}}, -11},
        {"AC3HeaderCutAfterFiveBytes", ac3, 48000, 2, 3, 0, 0, {Bytes(5, 0x3F)}, {}, -11},
        {"UnknownTagAndType", "audio/x-unknown", 44100, 2, 65535, 0, 0, {Bytes(100, 1)}, {}, ERROR_END_OF_STREAM},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.mName);
        LogCapture log;
        sp<DataSplitter> s = splitter(row.mMime, row.mRate, row.mChannels, row.mType, row.mWidth, row.mAlign);
        status_t last = OK;
        std::vector<std::pair<size_t, int64_t>> pieces;
        for (size_t i = 0; i < row.mChunks.size(); ++i) {
            feed(s, row.mChunks[i], 1000 * int64_t(i + 1));
            int64_t seekUs = row.mSeekUs;
            for (const Frame& f : drain(s, &last, seekUs ? &seekUs : nullptr)) {
                pieces.emplace_back(f.mData.size(), f.mTimeUs);
            }
        }
        EXPECT_EQ(pieces, row.mPieces);
        EXPECT_EQ(last, row.mLast);
        EXPECT_EQ(log.contains("Not Supported audio format", ANDROID_LOG_ERROR), row.mLast == ERROR_END_OF_STREAM);
    }
}

// Worked by hand from the IMA tables: {block, expected samples}. Clamped at
// the top (step index 200 is limited to 88, step 32767); the largest down
// step is 32767 - 32767 * 15 / 8, then clamped low.
TEST(AVIADPCMSplitterTest, IMABlockDecodesKnownSamples) {
    const std::pair<Bytes, std::vector<int16_t>> cases[] = {
        {{0x00, 0x00, 0x00, 0x00, 0x07, 0x08, 0x00, 0x00}, {0, 13, 15, 14, 15, 16, 17, 18, 19}},
        {{0xFF, 0x7F, 200, 0x00, 0x77, 0x00}, {32767, 32767, 32767}},
        {{0xFF, 0x7F, 88, 0x00, 0xFF, 0x00}, {32767, -28671, -32768}},
    };
    for (const auto& c : cases) {
        int16_t out[9];
        AudioSplitter::DecodeIMABlock(c.first.data(), c.first.size(), 1, c.first.size() == 8 ? 9 : 5, out);
        EXPECT_EQ(std::vector<int16_t>(out, out + c.second.size()), c.second);
    }
}

// Pins uninitialised output: blocks whose data are not whole 4-byte groups
// per channel (stereo align 2044 left 8 of 4,074 slots) or hold one sample
// fewer than their count (mono MS ADPCM geometry) left trailing slots as they
// were. Every align from 4 x channels to 4096, both geometries: a decode over
// 0x0000 and one over 0xFFFF must agree.
TEST(AVIADPCMSplitterTest, EveryOutputSlotIsWrittenForEveryBlockAlign) {
    Bytes block(4096);
    for (size_t i = 0; i < block.size(); ++i) block[i] = static_cast<uint8_t>(i * 37 + 11);
    for (int64_t ch : {1, 2}) {
        for (int64_t align = 4 * ch; align <= 4096; ++align) {
            for (int64_t samples : {ch + (align - 4 * ch) * 2, (align - 6 * ch) * 2}) {
                if (samples < ch) continue;
                std::vector<int16_t> zeros(samples, 0), ones(samples, -1);
                size_t bytes = static_cast<size_t>(4 * ch + (samples - ch) / 2);
                AudioSplitter::DecodeIMABlock(block.data(), bytes, int32_t(ch), size_t(samples), zeros.data());
                AudioSplitter::DecodeIMABlock(block.data(), bytes, int32_t(ch), size_t(samples), ones.data());
                ASSERT_EQ(zeros, ones) << ch << " channels, align " << align << ", " << samples << " samples";
            }
        }
    }
}

Bytes adtsFrame(size_t payload, uint8_t fill) {
    size_t len = payload + 7;
    Bytes f = {0xFF, 0xF1, (1 << 6) | (4 << 2), static_cast<uint8_t>((2 << 6) | (len >> 11)),
               static_cast<uint8_t>((len >> 3) & 0xFF), static_cast<uint8_t>(((len & 7) << 5) | 0x1F), 0xFC};
    f.insert(f.end(), payload, fill);
    return f;
}

// Pins ADTS sync confirmed before four frames, headers left on the frames,
// frame times, a header cut by the chunk's end refused (it waits while its
// bytes are right so far) and four bytes that are no header not refused.
TEST(AVIAACSplitterTest, ADTSFramesLoseTheirHeader) {
    sp<DataSplitter> s = splitter(MEDIA_MIMETYPE_AUDIO_AAC, 44100, 2, 0, 0, 0);
    Bytes stream;
    for (int i = 0; i < 6; ++i) append(&stream, adtsFrame(20 + i, static_cast<uint8_t>(i)));
    const size_t threeFrames = 27 + 28 + 29;
    feed(s, slice(stream, 0, threeFrames), 100);
    EXPECT_TRUE(drain(s).empty());
    feed(s, slice(stream, threeFrames), 999);
    std::vector<Frame> frames = drain(s);
    ASSERT_EQ(frames.size(), 6u);
    for (int i = 0; i < 6; ++i) {
        EXPECT_EQ(frames[i].mData, Bytes(20 + i, static_cast<uint8_t>(i)));
        EXPECT_EQ(frames[i].mTimeUs, 100 + i * 1024 * 1000000LL / 44100);
    }
    const Bytes next = adtsFrame(20, 7);
    feed(s, slice(next, 0, 4), 0);
    status_t last;
    EXPECT_TRUE(drain(s, &last).empty() && last == -11);
    feed(s, slice(next, 4), 0);
    EXPECT_EQ(drain(s).size(), 1u);
    feed(s, Bytes(4, 0x00), 0);
    drain(s, &last);
    EXPECT_EQ(last, ERROR_MALFORMED);
}

bool parseAC3(const Bytes& header, AudioSplitter::FrameInfo* info) {
    return AudioSplitter::ParseAC3Header(avichecks::kAudioSplitter, header.data(), header.size(), info);
}

// Pins the frame size, rate and channel tables of AC-3 and E-AC-3 (doubled
// rate for fscod2), and the refusals: reserved size code, E-AC-3 reserved
// fscod2, fewer than the header's bytes.
TEST(AVIAC3SplitterTest, HeaderParsing) {
    // E-AC-3, bsid 16: strmtyp 0, frmsiz 0x1FF, fscod 3, fscod2 1, acmod 2, lfeon 1.
    const Bytes eac3 = {0x0B, 0x77, 0x01, 0xFF, 0xD5, 0x80, 0x00};
    const Bytes eac3Reserved = {0x0B, 0x77, 0x01, 0xFF, 0xF5, 0x80, 0x00};  // fscod2 3
    const struct { const char* name; Bytes header; size_t frameSize; int32_t rate, channels; } cases[] = {
        {"48k code 12", ac3Frame(0, 12, 8), 384, 48000, 2},
        {"44.1k code 37", ac3Frame(1, 37, 8, 7), 2788, 44100, 5},
        {"32k code 0 mono", ac3Frame(2, 0, 8, 1), 192, 32000, 1},
        {"E-AC-3 doubled rate", eac3, 1024, 88200, 3},
        {"reserved frame size code", ac3Frame(0, 38, 8), 0, 0, 0},
        {"no sync word: the fields decide", Bytes(8, 0x0B), 320, 48000, 2},
        {"five bytes", Bytes(eac3.begin(), eac3.begin() + 5), 0, 0, 0},
        {"E-AC-3 reserved fscod2", eac3Reserved, 0, 0, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        AudioSplitter::FrameInfo info;
        ASSERT_EQ(parseAC3(c.header, &info), c.frameSize != 0);
        if (c.frameSize == 0) continue;
        EXPECT_TRUE(info.mFrameSize == c.frameSize && info.mSampleRate == c.rate && info.mChannels == c.channels);
        EXPECT_EQ(info.mSamples, 1536u);
    }
}

// A stream that never syncs keeps at most 16 MiB buffered.
TEST(AVIOtherSplitterTest, BufferedBytesAreBounded) {
    sp<DataSplitter> s = new MP3Splitter(avichecks::kMP3Splitter);
    for (int i = 0; i < 20; ++i) {
        feed(s, Bytes(1 << 20, 0), 0);
        EXPECT_TRUE(drain(s).empty());
    }
}

// Pins the fatal checks: an untimed chunk, a format without a MIME type and
// the AC-3 fields no table covers, with their exact messages and lines.
TEST(AVISplitterDeathTest, ChecksStayFatal) {
    static MediaBuffer* untimed = chunkBuffer(Bytes(10, 0), 0, false);
    static const Bytes reservedRate = ac3Frame(3, 12, 8), streamType3 = {0x0B, 0x77, 0xC1, 0xFF, 0x15, 0x80, 0x00};
    const struct { void (*body)(); int line; const char* check; } cases[] = {
        {[] { sp<DataSplitter>(new MP3Splitter(avichecks::kMP3Splitter))->append(untimed); }, 418,
         "CHECK(buffer->meta_data()->findInt64(kKeyTime, &mBaseTimeUs)) failed."},
        {[] { splitter(MEDIA_MIMETYPE_AUDIO_RAW, 8000, 1, 2, 2, 2)->append(untimed); }, 597,
         "CHECK(buffer->meta_data()->findInt64(kKeyTime, &mBaseTimeUs)) failed."},
        {[] { sp<DataSplitter>(new AudioSplitter(avichecks::kAudioSplitter, new MetaData, 2, 2, 2)); }, 560,
         "CHECK(meta->findCString(kKeyMIMEType, &mime)) failed."},
        {[] { AudioSplitter::FrameInfo i; parseAC3(reservedRate, &i); }, 1086,
         "CHECK(sampleRateIndex != 3) failed."},
        {[] { AudioSplitter::FrameInfo i; parseAC3(streamType3, &i); }, 1002,
         "CHECK(strmtyp <= 2) failed."},
    };
    for (const auto& c : cases) EXPECT_DEATH(c.body(), checkMessageAt(kSource, c.line, c.check)) << c.check;
    untimed->release();
}

}  // namespace
