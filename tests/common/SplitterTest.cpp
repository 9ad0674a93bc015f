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

using Bytes = std::vector<uint8_t>;
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
        feed(s, Bytes(bytes.begin() + pos, bytes.begin() + std::min(pos + chunk, bytes.size())), baseUs + int64_t(pos));
        std::vector<Frame> got = drain(s);
        all.insert(all.end(), got.begin(), got.end());
    }
    return all;
}

sp<DataSplitter> splitter(const char* mime, int32_t rate, int32_t channels, uint32_t type, uint32_t width, uint32_t align) {
    sp<MetaData> meta = new MetaData;
    meta->setCString(kKeyMIMEType, mime);
    meta->setInt32(kKeySampleRate, rate);
    meta->setInt32(kKeyChannelCount, channels);
    return new AudioSplitter(avichecks::kAudioSplitter, meta, type, width, align);
}

int16_t sampleAt(const Bytes& pcm, size_t i) { return static_cast<int16_t>(pcm[2 * i] | (pcm[2 * i + 1] << 8)); }

// Whole frames whatever the chunking, each one of ffprobe's packets (so the
// frame size of every MPEG version and layer met in real files); times count
// frames from the first chunk's time.
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

TEST(AVIMP3SplitterTest, ResyncsAfterGarbageAndBrokenHeaders) {
    Bytes mp3 = readFileBytes(testdataPath("mp3_44100_stereo.mp3"));
    ASSERT_EQ(mp3.size(), 8777u);
    // Garbage (with a false sync) before the first frame is dropped.
    Bytes prefixed = {0x12, 0xFF, 0xFB, 0x90, 0x44, 0x00, 0x01};
    prefixed.insert(prefixed.end(), mp3.begin(), mp3.end());
    sp<DataSplitter> s = new MP3Splitter(avichecks::kMP3Splitter);
    std::vector<Frame> frames = feedAll(s, prefixed, 4096, 0);
    ASSERT_EQ(frames.size(), 21u);
    EXPECT_EQ(frames[0].mData, Bytes(mp3.begin(), mp3.begin() + 417));
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
    feed(s, Bytes(mp3.begin(), mp3.begin() + 3000), 777);
    frames = drain(s);
    ASSERT_FALSE(frames.empty());
    EXPECT_EQ(frames[0].mTimeUs, 777);
}

TEST(AVIPCMSplitterTest, ConvertsEveryWidthTo16Bit) {
    const struct { uint32_t width; Bytes in; std::vector<int16_t> out; } cases[] = {
        {1, {128, 255, 0, 129}, {0, 32512, -32768, 256}},
        {2, {0x34, 0x12, 0xFF, 0xFF}, {0x1234, -1}},
        {0, {0x34, 0x12, 0xFF, 0xFF}, {0x1234, -1}},  // 0 counts as 16-bit
        {3, {0x11, 0x34, 0x12, 0x22, 0xFE, 0xFF}, {0x1234, -2}},
        {4, {1, 2, 3, 4, 5, 6, 7, 8}, {0, 0}},  // not converted: silence
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.width);
        sp<DataSplitter> s = splitter(MEDIA_MIMETYPE_AUDIO_RAW, 8000, 1, 2, c.width, 0);
        feed(s, c.in, 0);
        std::vector<Frame> frames = drain(s);
        ASSERT_EQ(frames.size(), 1u);
        ASSERT_EQ(frames[0].mData.size(), c.out.size() * 2);
        for (size_t i = 0; i < c.out.size(); ++i) EXPECT_EQ(sampleAt(frames[0].mData, i), c.out[i]) << i;
    }
}

TEST(AVIPCMSplitterTest, CutsTwentyMillisecondPiecesAndDropsBeforeSeek) {
    // 44100 Hz mono 16-bit: a 2000-frame chunk gives 882, 882 and 236.
    sp<DataSplitter> s = splitter(MEDIA_MIMETYPE_AUDIO_RAW, 44100, 1, 2, 2, 2);
    feed(s, Bytes(4000, 1), 1000);
    std::vector<Frame> frames = drain(s);
    ASSERT_EQ(frames.size(), 3u);
    EXPECT_TRUE(frames[0].mData.size() == 1764u && frames[2].mData.size() == 472u);
    EXPECT_EQ(frames[1].mTimeUs, 1000 + 882 * 1000000LL / 44100);
    EXPECT_EQ(frames[2].mTimeUs, 1000 + 1764 * 1000000LL / 44100);
    // A seek to 50 ms drops the pieces at 0 and 20 ms (they end before it).
    s->clear();
    feed(s, Bytes(8000, 2), 0);
    status_t last;
    int64_t seek = 50000;
    frames = drain(s, &last, &seek);
    ASSERT_FALSE(frames.empty());
    EXPECT_EQ(frames[0].mTimeUs, 1764 * 1000000LL / 44100);
    // G.711: bytes copied unchanged, 160 stereo frames per piece at 8 kHz.
    s = splitter(MEDIA_MIMETYPE_AUDIO_G711_ALAW, 8000, 2, 9, 1, 2);
    Bytes alaw(700);
    for (size_t i = 0; i < alaw.size(); ++i) alaw[i] = static_cast<uint8_t>(i);
    feed(s, alaw, 0);
    frames = drain(s);
    ASSERT_EQ(frames.size(), 3u);
    EXPECT_EQ(frames[0].mData, Bytes(alaw.begin(), alaw.begin() + 320));
    EXPECT_TRUE(frames[2].mData.size() == 60u && frames[2].mTimeUs == 40000);
    // Less than one frame buffered (24-bit stereo is 6 bytes): wait, so the
    // source moves on instead of handing out the same empty piece forever;
    // a rate with no frames in 20 ms can never be cut and is malformed.
    s = splitter(MEDIA_MIMETYPE_AUDIO_RAW, 8000, 2, 2, 3, 6);
    feed(s, Bytes(5, 0), 0);
    MediaBuffer* out;
    EXPECT_EQ(s->read(&out, nullptr), -11);
    s = splitter(MEDIA_MIMETYPE_AUDIO_RAW, 49, 1, 2, 2, 2);
    feed(s, Bytes(100, 0), 0);
    EXPECT_EQ(s->read(&out, nullptr), ERROR_MALFORMED);
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

TEST(AVIADPCMSplitterTest, BlockGeometry) {
    // nBlockAlign 2048, stereo: 2041 samples per channel, 8164 bytes.
    sp<DataSplitter> s = splitter(MEDIA_MIMETYPE_AUDIO_RAW, 22050, 2, 7, 0, 2048);
    Bytes blocks(4096, 0);
    blocks[0] = 0x10;                   // left predictor 16
    blocks[4] = 0xF0, blocks[5] = 0xFF;  // right predictor -16
    feed(s, blocks, 0);
    std::vector<Frame> frames = drain(s);
    ASSERT_EQ(frames.size(), 2u);
    EXPECT_EQ(frames[0].mData.size(), 8164u);
    EXPECT_TRUE(sampleAt(frames[0].mData, 0) == 16 && sampleAt(frames[0].mData, 1) == -16);
    EXPECT_EQ(frames[1].mTimeUs, 2041 * 1000000LL / 22050);
    // (A block of no whole number of 4-byte groups warns per read and gives
    // nothing: RealFileTest, avi_dx50_msadpcm.avi.)
    // MS ADPCM mono through the IMA decoder, nBlockAlign 1024: (1024 - 6) * 2 samples.
    s = splitter(MEDIA_MIMETYPE_AUDIO_RAW, 22050, 1, 8, 0, 1024);
    feed(s, Bytes(2048, 0), 0);
    frames = drain(s);
    ASSERT_EQ(frames.size(), 2u);
    EXPECT_EQ(frames[0].mData.size(), 4072u);
    // Channel headers alone (align 4 x channels): one sample per channel,
    // the predictors; a block smaller than its headers is malformed.
    s = splitter(MEDIA_MIMETYPE_AUDIO_RAW, 22050, 2, 7, 0, 8);
    feed(s, {0x10, 0, 0, 0, 0xF0, 0xFF, 0, 0}, 0);
    frames = drain(s);
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(frames[0].mData, (Bytes{0x10, 0, 0xF0, 0xFF}));
    s = splitter(MEDIA_MIMETYPE_AUDIO_RAW, 22050, 2, 7, 0, 7);
    feed(s, Bytes(100, 0), 0);
    MediaBuffer* out;
    EXPECT_EQ(s->read(&out, nullptr), ERROR_MALFORMED);
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

// ADTS needs four frames to confirm sync, then loses its headers; raw AAC
// hands out everything buffered per read (one frame of 1024 samples each:
// RealFileTest, avi_mpeg4_aac.avi).
TEST(AVIAACSplitterTest, ADTSFramesLoseTheirHeaderAndRawChunksPassWhole) {
    sp<DataSplitter> s = splitter(MEDIA_MIMETYPE_AUDIO_AAC, 44100, 2, 0, 0, 0);
    Bytes stream;
    for (int i = 0; i < 6; ++i) {
        Bytes f = adtsFrame(20 + i, static_cast<uint8_t>(i));
        stream.insert(stream.end(), f.begin(), f.end());
    }
    const size_t threeFrames = 27 + 28 + 29;
    feed(s, Bytes(stream.begin(), stream.begin() + threeFrames), 100);
    EXPECT_TRUE(drain(s).empty());
    feed(s, Bytes(stream.begin() + threeFrames, stream.end()), 999);
    std::vector<Frame> frames = drain(s);
    ASSERT_EQ(frames.size(), 6u);
    for (int i = 0; i < 6; ++i) {
        EXPECT_TRUE(frames[i].mData == Bytes(20 + i, static_cast<uint8_t>(i)) && frames[i].mTimeUs == 100 + i * 1024 * 1000000LL / 44100) << i;
    }
    // A header cut by the chunk's end waits while its bytes are right so far;
    // four bytes that are no header are malformed at once.
    const Bytes next = adtsFrame(20, 7);
    feed(s, Bytes(next.begin(), next.begin() + 4), 0);
    status_t last;
    EXPECT_TRUE(drain(s, &last).empty() && last == -11);
    feed(s, Bytes(next.begin() + 4, next.end()), 0);
    EXPECT_EQ(drain(s).size(), 1u);
    feed(s, Bytes(4, 0x00), 0);
    drain(s, &last);
    EXPECT_EQ(last, ERROR_MALFORMED);
    s = splitter(MEDIA_MIMETYPE_AUDIO_AAC, 44100, 2, 0, 0, 0);
    feed(s, Bytes(300, 0x21), 0);
    feed(s, Bytes(200, 0x22), 0);
    frames = drain(s);
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(frames[0].mData.size(), 500u);
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
        ASSERT_EQ(AudioSplitter::ParseAC3Header(avichecks::kAudioSplitter, c.header.data(), c.header.size(), &info), c.frameSize != 0);
        if (c.frameSize == 0) continue;
        EXPECT_TRUE(info.mFrameSize == c.frameSize && info.mSampleRate == c.rate && info.mChannels == c.channels);
        EXPECT_EQ(info.mSamples, 1536u);
    }
}

TEST(AVIAC3SplitterTest, CutsFramesAfterResync) {
    Bytes stream = {1, 2, 3};
    for (int i = 0; i < 3; ++i) {
        Bytes f = ac3Frame(0, 12, 384);
        stream.insert(stream.end(), f.begin(), f.end());
    }
    sp<DataSplitter> s = splitter(MEDIA_MIMETYPE_AUDIO_AC3, 48000, 2, 3, 0, 0);
    std::vector<Frame> frames = feedAll(s, stream, 500, 0);
    ASSERT_EQ(frames.size(), 3u);
    EXPECT_EQ(frames[0].mData, ac3Frame(0, 12, 384));
    EXPECT_EQ(frames[2].mTimeUs, 2 * 32000);
    // Bytes 0-4 cannot refuse a header whose sync word is not tested: a
    // frame cut there by the chunk's end waits for the rest.
    feed(s, Bytes(5, 0x3F), 0);
    status_t last;
    EXPECT_TRUE(drain(s, &last).empty() && last == -11);
}

// WMA: all buffered bytes at the last chunk's time. An unknown format tag
// takes its type from the MIME type: unknown ends the stream, raw is PCM.
TEST(AVIOtherSplitterTest, WMAUsesChunkTimeAndUnknownTypesEnd) {
    sp<DataSplitter> s = splitter(MEDIA_MIMETYPE_AUDIO_WMA, 44100, 2, 1, 0, 0);
    feed(s, Bytes(100, 1), 40);
    feed(s, Bytes(100, 2), 80);
    std::vector<Frame> frames = drain(s);
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_TRUE(frames[0].mTimeUs == 80 && frames[0].mData.size() == 200u);
    LogCapture log;
    s = splitter("audio/x-unknown", 44100, 2, 65535, 0, 0);
    EXPECT_TRUE(log.contains("Not Supported audio format", ANDROID_LOG_ERROR));
    feed(s, Bytes(100, 1), 0);
    MediaBuffer* out;
    EXPECT_EQ(s->read(&out, nullptr), ERROR_END_OF_STREAM);
    s = splitter(MEDIA_MIMETYPE_AUDIO_RAW, 8000, 1, 65535, 2, 2);
    feed(s, Bytes(100, 1), 0);
    EXPECT_EQ(drain(s).size(), 1u);
}

// A stream that never syncs keeps at most 16 MiB buffered.
TEST(AVIOtherSplitterTest, BufferedBytesAreBounded) {
    sp<DataSplitter> s = new MP3Splitter(avichecks::kMP3Splitter);
    for (int i = 0; i < 20; ++i) {
        feed(s, Bytes(1 << 20, 0), 0);
        EXPECT_TRUE(drain(s).empty());
    }
}

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
        {[] { AudioSplitter::FrameInfo i; AudioSplitter::ParseAC3Header(avichecks::kAudioSplitter, reservedRate.data(), reservedRate.size(), &i); }, 1086,
         "CHECK(sampleRateIndex != 3) failed."},
        {[] { AudioSplitter::FrameInfo i; AudioSplitter::ParseAC3Header(avichecks::kAudioSplitter, streamType3.data(), streamType3.size(), &i); }, 1002,
         "CHECK(strmtyp <= 2) failed."},
    };
    for (const auto& c : cases) EXPECT_DEATH(c.body(), checkMessageAt(kSource, c.line, c.check)) << c.check;
    untimed->release();
}

}  // namespace
