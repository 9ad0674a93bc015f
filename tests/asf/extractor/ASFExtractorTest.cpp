// ASFExtractor, ASFSource and the ASF sniffers: codecs of the codec table and
// its property gate, track formats from WAVEFORMATEX/BITMAPINFOHEADER, hidden
// tracks, the container type, the sniffers' answers; media objects gathered
// from their payloads across packets, the VC-1 start code, the buffer-size
// guard, seeks and their sync flag, the fatal lifecycle checks (and the
// parser's unknown-size check); and one file written by ffmpeg (formats,
// seeks in every mode, two sources of a track).
#include <gtest/gtest.h>

#include <set>
#include <thread>

#include <cutils/properties.h>

#include "ASFBuilder.h"
#include "CheckMatchers.h"
#include "LogCapture.h"
#include "TestDataSources.h"
#include "TrackReader.h"
#include "asf/extractor/ASFExtractor.h"
#include "asf/extractor/ASFSource.h"
#include "common/ZIRKMetaKeys.h"

namespace {

using namespace android;
using namespace android::test;
using namespace android::test::asf;
using Mode = MediaSource::ReadOptions::SeekMode;

// Sets "media.tamelordecode.supportwmva" (null: unset) for what follows; each test that shows Windows Media
// codecs sets it first.
struct WmvaProperty {
    explicit WmvaProperty(const char* v) { property_set(ASFExtractor::kSupportWMVAProperty, v); }
};

Bytes a(const Bytes& ts) { return streamProps(kGuidAudioMedia, 1, ts); }
Bytes v(const Bytes& ts) { return streamProps(kGuidVideoMedia, 2, ts); }
// 2 s of play less 0.5 s preroll: 1.5 s; 3200-byte packets. The data object after the header gives bytes to
// read past a stream's type-specific data, so only the declared length stops such a read.
Bytes file(const std::vector<Bytes>& streams) { return asfFile(streams, {}, 3200, 20000000, 500); }

// The MIME type, then " code=value" per key set (" rcsd:N": the codec data's size); "hidden" for no format.
std::string dump(const sp<MetaData>& m) {
    const char* mime = "?";
    if (m == nullptr) return "hidden";
    return (m->findCString(kKeyMIMEType, &mime) ? mime : "?") +
           describeKeys(m, {kKeyWidth, kKeyHeight, kKeySampleRate, kKeyChannelCount, kKeyBitRate, kKeyMaxInputSize,
                            kKeyDuration, kKeyThumbnailTime, kKeyRawCodecSpecificData});
}
std::string mimeOf(const sp<MetaData>& m) { return dump(m).substr(0, dump(m).find(' ')); }

TEST(ASFExtractorTest, TrackFormatsAndContainerType) {
    // The MIME type and format keys (of track 0) of an audio and a video codec (WMV2 and WMA2: the real file's
    // test), the codec data kept (WMA's whole WAVEFORMATEX only; its declared length held to what is there), the
    // unsupported-codec log lines; hidden tracks left out of the numbering and past the last; the Windows Media
    // codecs shown only when the property is "1"; the container ASF with a video track, else WMA.
    const std::string audio = " srte=8000 #chn=1 brte=16000 inpS=3200 dura=1500000", wma = "|audio/x-ms-wma";
    const std::string video = " dura=1500000 thbT=0", qvga = " widt=320 heig=240 inpS=57600" + video;
    const std::string hidden = "hidden" + wma, asf = "|video/x-ms-asf", wmaCodec = ",audio/x-ms-wma-codec";
    const Bytes wmv3 = v(bih("WMV3", 8, 8)), pcm = a(wav(1)), wma2 = a(wav(0x0161)), h264 = v(bih("H264", 8, 8));
    const std::vector<Bytes> windowsMedia = {v(bih("WMV1", 8, 8)), wmv3, a(wav(0x000A)), a(wav(0x0163))};
    const struct { const char* name; std::vector<Bytes> streams; std::string want; const char* property = "1";
                   std::string log = ""; } kRows[] = {
        {"PCM", {a(wav(0x0001))}, "audio/raw" + audio + wma},
        {"UnknownAudio", {a(wav(0x0002))}, hidden, "1", "Unsupported audio format 2"},
        {"ExtraPastDeclaredLength", {a(wav(0x0161, 10, 5))}, hidden},
        {"H264", {v(bih("H264", 320, 240, 3, 3))}, "video/avc" + qvga + " rcsd:3" + asf},
        {"LowerCaseFourcc", {v(bih("wmv3", 320, 240))}, hidden, "1", "Unsupported video format 'wmv3'"},
        {"BitmapExtraPastDeclaredLength", {v(bih("H264", 320, 240, 8, 4))}, hidden},
        {"InputSizePast32Bits", {v(bih("DIVX", 65536, 65536))}, hidden},
        {"HiddenSkippedInNumbering", {wmv3, pcm, wma2, h264}, "audio/raw" + audio + ",video/avc" + asf, nullptr},
        {"WindowsMediaHiddenUnlessOne", windowsMedia, hidden, "0"},
        {"WindowsMediaWithProperty", windowsMedia,
         "video/x-ms-wmv1 widt=8 heig=8 inpS=48" + video + ",video/x-ms-wmv3" + wmaCodec + wmaCodec + asf},
    };
    for (const auto& row : kRows) {
        WmvaProperty set(row.property);
        LogCapture log;
        sp<ASFExtractor> e = new ASFExtractor(new MemorySource(file(row.streams)));
        const size_t n = e->countTracks();
        std::string tracks = dump(e->getTrackMetaData(0, 0));
        for (size_t i = 1; i < n; ++i) tracks += "," + mimeOf(e->getTrackMetaData(i, 0));
        EXPECT_EQ(row.want, tracks + "|" + mimeOf(e->getMetaData())) << row.name;
        EXPECT_TRUE(row.log.empty() || log.contains(row.log, 5)) << row.name;
        EXPECT_EQ(n > 0, e->getTrack(0) != nullptr) << row.name;
        EXPECT_TRUE(e->getTrack(n) == nullptr && e->getTrackMetaData(n, 0) == nullptr) << row.name;
    }
}

TEST(ASFExtractorTest, Sniffing) {
    // The Codec List Object decides audio or video; without it the streams do; a cut header still sniffs
    // (and logs), no header GUID does not.
    auto codecList = [](const std::vector<uint16_t>& types) {
        // One entry per type: a 1-unit name, no description, 2 bytes of information.
        const ASFGuid g = asfGuid(0x86D15240, 0x311D, 0x11D0, 0xA3A400A0C90348F6);
        Bytes entries = joined({Bytes(16, 0), le(4, {types.size()})});
        for (uint16_t t : types) entries = joined({entries, le(2, {t, 1}), Bytes(2, 'c'), le(2, {0, 2}), Bytes(2, 0)});
        return joined({Bytes(g.bytes, g.bytes + 16), le(8, {24 + entries.size()}), entries});
    };
    const Bytes audioOnly = file({a(wav(1))});
    const std::string asf = "video/x-ms-asf 0.8", wma = "audio/x-ms-wma 0.8";
    const struct { const char* name; Bytes bytes; std::string result; bool guid = true; std::string log = "";
    } kRows[] = {
        {"CodecListVideoAfterAudio", file({codecList({2, 1})}), asf},
        {"CodecListDecidesOverStreams", file({codecList({2}), v(bih("WMV3", 8, 8))}), wma},
        {"CodecListUnknownOnly", file({codecList({0xFFFF})}), "no"},
        // Cut 10 bytes into the object header after the header object's 30 bytes and the file properties' 104.
        {"TruncatedHeader", Bytes(audioOnly.begin(), audioOnly.begin() + 144), wma, true,
         "File corruption, ignore this file, SniffASFFormat"},
        {"NoCodecListVideoStream", file({a(wav(1)), v(bih("WMV3", 8, 8))}), asf},
        {"NoCodecListAudioOnly", audioOnly, wma},
        {"NotAHeaderGuid", joined({Bytes(16, 0), Bytes(audioOnly.begin() + 16, audioOnly.end())}), "no", false},
        {"ShorterThanAGuid", Bytes(audioOnly.begin(), audioOnly.begin() + 15), "no", false},
    };
    for (const auto& row : kRows) {
        LogCapture log;
        String8 mime("no");  // left as it is when the file is not claimed
        float confidence = 0;
        SniffASF(new MemorySource(row.bytes), &mime, &confidence, nullptr);
        EXPECT_EQ(row.result, mime.c_str() + (confidence ? " " + std::to_string(confidence).substr(0, 3) : ""))
                << row.name;
        EXPECT_EQ(row.log.empty() ? 0u : 1u, log.lines().size()) << row.name;
        EXPECT_TRUE(row.log.empty() || log.contains(row.log, 6)) << row.name;
        EXPECT_EQ(row.guid, SniffASFFormat(new MemorySource(row.bytes))) << row.name;
    }
}

// Stream 1: PCM audio (buffer: the 200-byte packet); stream 2: 16x16 video of FourCC `cc` (buffer 192).
// 2 s, no preroll.
sp<MediaSource> track(size_t i, const std::vector<Packet>& packets, const char* cc = "DIVX") {
    return sp<ASFExtractor>(new ASFExtractor(new MemorySource(asfFile({a(wav(1)), v(bih(cc, 16, 16))}, packets))))
            ->getTrack(i);
}
// "time[S] bytes" per read (bytes as runs: "ab*3"), "!status" for a failed one; up to 8 reads or the end of
// stream.
std::string reads(const sp<MediaSource>& s, const MediaSource::ReadOptions* seek = nullptr, size_t reads = 8) {
    std::string out;
    Sample x;
    for (status_t err = OK; err != ERROR_END_OF_STREAM && reads--; seek = nullptr, out += ";") {
        if ((err = readSample(s, &x, seek)) != OK) out += "!" + std::to_string(err);
        if (err != OK) continue;
        out += std::to_string(x.timeUs / 1000) + (x.sync == 1 ? "S" : "");
        for (size_t i = 0, j = 0; i < x.data.size(); i = j) {
            while (j < x.data.size() && x.data[j] == x.data[i]) ++j;
            char b[16];
            snprintf(b, sizeof(b), j - i > 1 ? " %02x*%zu" : " %02x", x.data[i], j - i);
            out += b;
        }
    }
    return out;
}
const std::string kEos = "!" + std::to_string(ERROR_END_OF_STREAM) + ";";
const std::string kBad = "!" + std::to_string(ERROR_MALFORMED) + ";";

TEST(ASFSourceTest, ReadsAndSeeks) {
    // Objects gathered from payloads across packets, an object past the buffer dropped whole, a part object at
    // the end dropped, the VC-1 start code (counted against the buffer, which an object may fill); a failed seek
    // (closest sync) ends the stream with its log line, and only the first buffer after a seek is flagged sync.
    const Packet twoVideo = {{part(0x82, 0, 10, 0, 10, 0xD1), part(2, 0, 5, 40, 5, 0xD2)}};
    const struct { const char* name; std::vector<Packet> packets; size_t track; const char* cc; std::string want;
                   int64_t seekUs = -1; std::string log = ""; } kRows[] = {
        {"KindsFirstMiddleLastAcrossPackets",
         {{{part(1, 0, 180, 100, 60, 0xB1)}}, {{part(1, 60, 180, 100, 60, 0xB2)}},
          {{part(1, 120, 180, 100, 60, 0xB3)}}}, 0, "DIVX", "100 b1*60 b2*60 b3*60;" + kEos},
        // 360 bytes for a 200-byte buffer: the rest of the object is read past, the next object comes whole.
        {"ObjectLargerThanBufferDroppedWhole",
         {{{part(1, 0, 360, 0, 120, 1)}}, {{part(1, 120, 360, 0, 120, 2)}}, {{part(1, 240, 360, 0, 120, 3)}},
          {{part(1, 0, 4, 9, 4, 4)}}}, 0, "DIVX", kBad + "9 04*4;" + kEos},
        {"PartObjectAtEndDropped", {{{part(1, 0, 10, 0, 10, 0xA1), part(1, 0, 90, 46, 30, 0xA2)}}}, 0, "DIVX",
         "0 a1*10;" + kEos},
        {"WMVAStartCodeOnEverySample", {twoVideo}, 1, "WMVA", "0 00*2 01 0d d1*10;40 00*2 01 0d d2*5;" + kEos},
        // 192-byte buffer: 188 bytes and the start code fit, 189 do not.
        {"StartCodeCountsAgainstTheBuffer",
         {{{part(2, 0, 188, 0, 150, 7)}}, {{part(2, 150, 188, 0, 38, 8)}}, {{part(2, 0, 189, 3, 150, 7)}},
          {{part(2, 150, 189, 3, 39, 8)}}}, 1, "WVC1", "0 00*2 01 0d 07*150 08*38;" + kBad + kEos},
        {"SeekVideoWithoutKeyFrameFails", {{{part(1, 0, 5, 0, 5, 1), part(2, 0, 5, 0, 5, 2)}}}, 1, "DIVX", kEos,
         5000000, "[V]wanted seekTimeMs=5000"},
        {"SeekAudioWithoutObjectsFails", {{{part(2, 0, 5, 0, 5, 2)}}}, 0, "DIVX", kEos, 9999999,
         "[A]wanted seekTimeMs=9999"},
        {"OnlyTheFirstSampleAfterASeekIsSync",
         {{{part(0x82, 0, 5, 0, 5, 1)}}, {{part(2, 0, 5, 100, 5, 2)}}, {{part(0x82, 0, 5, 200, 5, 3)}}}, 1, "DIVX",
         "0S 01*5;100 02*5;200 03*5;" + kEos, 0},
    };
    WmvaProperty set("1");
    for (const auto& row : kRows) {
        LogCapture log;
        sp<MediaSource> s = track(row.track, row.packets, row.cc);
        MediaSource::ReadOptions seek;
        seek.setSeekTo(row.seekUs, MediaSource::ReadOptions::SEEK_CLOSEST_SYNC);
        ASSERT_EQ(OK, s->start()) << row.name;
        EXPECT_EQ(row.want, reads(s, row.seekUs < 0 ? nullptr : &seek)) << row.name;
        EXPECT_EQ(row.log.empty() ? 0u : 1u, log.count(row.log, 6)) << row.name;
    }
}

TEST(ASFSourceTest, WalksInAnyOrderAgreeAtEveryCut) {
    // A walk passes the packets another walk parsed without its stream, and copies the data of a packet of
    // many payloads from that packet fetched whole: each track read alone, the two read in turn, or video
    // first, gives the same buffers, with the file cut at every byte of its packets (one to four payloads, of
    // one stream or both; each payload's bytes its own).
    const std::vector<Packet> packets = {
            {{part(1, 0, 10, 0, 10, 0x11), part(0x82, 0, 120, 0, 60, 0x21), part(1, 0, 8, 20, 8, 0x12)}},
            {{part(2, 60, 120, 0, 60, 0x22)}},
            {{part(0x82, 0, 30, 40, 30, 0x23), part(1, 0, 12, 40, 12, 0x13), part(1, 0, 9, 60, 9, 0x14),
              part(2, 0, 20, 80, 20, 0x24)}},
            {{part(2, 0, 100, 120, 50, 0x25)}},
            {{part(1, 0, 16, 80, 16, 0x15)}},
            {{part(2, 50, 100, 120, 50, 0x26)}},
            {{part(1, 0, 5, 100, 5, 0x16), part(1, 0, 6, 120, 6, 0x17), part(1, 0, 7, 140, 7, 0x18)}},
            {{part(0x82, 0, 40, 160, 40, 0x27)}}};
    const Bytes whole = asfFile({a(wav(1)), v(bih("DIVX", 16, 16))}, packets);
    const std::string kWhole[2] = {"0 11*10;20 12*8;40 13*12;60 14*9;80 15*16;100 16*5;120 17*6;140 18*7;" + kEos,
                                   "0 21*60 22*60;40 23*30;80 24*20;120 25*50 26*50;160 27*40;" + kEos};
    LogCapture quiet;
    for (size_t cut = whole.size() - 200 * packets.size(); cut <= whole.size(); ++cut) {
        const Bytes bytes(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(cut));
        auto sources = [&] {
            sp<ASFExtractor> e = new ASFExtractor(new MemorySource(bytes));
            std::vector<sp<MediaSource>> s = {e->getTrack(0), e->getTrack(1)};
            for (const auto& t : s) EXPECT_EQ(OK, t->start());
            return s;
        };
        const std::vector<sp<MediaSource>> first = sources(), second = sources();
        const std::string alone[2] = {reads(first[0], nullptr, 20), reads(second[1], nullptr, 20)};
        std::string turns[2], videoFirst[2];
        const std::vector<sp<MediaSource>> inTurn = sources(), ordered = sources();
        for (size_t i = 0; i < 40; ++i) {
            if (turns[i % 2].find(kEos) == std::string::npos) turns[i % 2] += reads(inTurn[i % 2], nullptr, 1);
        }
        for (size_t t : {1, 0}) videoFirst[t] = reads(ordered[t], nullptr, 20);
        for (size_t t : {0, 1}) {
            EXPECT_TRUE(cut < whole.size() || alone[t] == kWhole[t]) << alone[t];
            EXPECT_EQ(alone[t], turns[t]) << cut;
            EXPECT_EQ(alone[t], videoFirst[t]) << cut;
        }
    }
}

TEST(ASFSourceTest, BufferSizes) {
    // The format's maximum input size, as a damaged file could give it, is held to the cap (a zero one still
    // starts); an object that does not fit (one byte in none, a WVC1 start code in 3 bytes) is malformed, then
    // the stream ends.
    const struct { int32_t size; status_t start; size_t track = 0; } kRows[] = {
        {-1, ERROR_MALFORMED}, {ASFSource::kMaxBufferBytes + 1, ERROR_MALFORMED}, {ASFSource::kMaxBufferBytes, OK},
        {0, OK}, {3, OK, 1}};
    WmvaProperty set("1");
    for (const auto& row : kRows) {
        sp<MediaSource> s = track(row.track, {{{part(1, 0, 1, 0, 1, 1), part(2, 0, 1, 0, 1, 1)}}}, "WVC1");
        s->getFormat()->setInt32(kKeyMaxInputSize, row.size);
        EXPECT_EQ(row.start, s->start()) << row.size;
        EXPECT_TRUE(row.start != OK || row.size > 3 || reads(s) == kBad + kEos) << row.size;
    }
}

TEST(ASFSourceTest, FatalChecksStayFatal) {
    // Misuse of a source, and a source that cannot tell its size, must stay fatal checks, with their messages.
    using S = const sp<MediaSource>&;
    const struct { const char* name; int line; const char* check; void (*body)(S); std::string file = "extractor";
                   std::string tag = "ASFExtractor"; } kRows[] = {
        {"StartTwice", 156, "CHECK(!mBufferGroup) failed.", [](S s) { s->start(), s->start(); }},
        {"NoMaxInputSize", 161, "CHECK(mTrack.mMeta->findInt32(kKeyMaxInputSize, &max_size)) failed.",
         [](S s) { s->getFormat()->remove(kKeyMaxInputSize), s->start(); }},
        {"StopUnstarted", 169, "CHECK(mBufferGroup) failed.", [](S s) { s->stop(); }},
        {"ReadUnstarted", 183, "CHECK(mBufferGroup) failed.", [](S s) { MediaBuffer* b; s->read(&b); }},
        {"UnknownFileSize", 426, "CHECK(mDataSource->getSize(&size) == OK) failed.",
         [](S) { new ASFParser(new FaultySource(header({}), FaultySource::kNone, 0, false)); },
         "parser", "ASFParser"},
    };
    for (const auto& row : kRows) {
        EXPECT_DEATH(row.body(track(0, {})),
                     "F/" + row.tag + ": " + checkMessageAt("asf/" + row.file + "/" + row.tag, row.line, row.check))
                << row.name;
    }
}

class ASFSourceFileTest : public ::testing::Test {
protected:
    WmvaProperty mSet{"1"};
    sp<ASFExtractor> mExtractor =
            new ASFExtractor(new PiecewiseSource(readFileBytes(testdataPath("asf_wmv2_wmav2.asf")), 7));
    std::vector<CsvRow> mRows = readTestdataCsv("asf_wmv2_wmav2.asf.packets.csv");
};

TEST_F(ASFSourceFileTest, TwoSourcesOfOneTrackShareItsPosition) {
    // Two sources of the audio track read on two threads: each object goes to exactly one of them, whole.
    std::multiset<std::string> want, got;
    for (const CsvRow& row : mRows) {
        if (row.at("codec_type") == "audio") want.insert(row.at("pts") + "/" + row.at("size"));
    }
    std::vector<TrackRead> read(2);
    std::vector<std::thread> threads;
    for (size_t i = 0; i < 2; ++i) threads.emplace_back([&, i] { read[i] = readTrack(mExtractor->getTrack(1)); });
    for (std::thread& t : threads) t.join();
    for (const TrackRead& r : read) {
        for (const Sample& s : r.samples) {
            got.insert(std::to_string(s.timeUs / 1000) + "/" + std::to_string(s.data.size()));
        }
    }
    EXPECT_EQ(want, got);
}

TEST_F(ASFSourceFileTest, FormatsAndSeeksAgainstFFprobe) {
    // The codec table and format keys on a real header. ffprobe (asf_wmv2_wmav2.asf.streams.txt): WMV2 160x120
    // with 4 bytes of extra data, WMA2 (0x0161) at 44.1 kHz, mono, with 10 (cbSize) bytes after its
    // WAVEFORMATEX; 1.046 s, one video key frame at 46 ms (the thumbnail).
    ASSERT_EQ(2u, mExtractor->countTracks());
    EXPECT_EQ("video/x-ms-wmv2 widt=160 heig=120 inpS=14400 dura=1046000 thbT=46000 rcsd:4|audio/x-ms-wma-codec "
              "srte=44100 #chn=1 brte=32000 inpS=3200 dura=1046000 rcsd:28|video/x-ms-asf",
              dump(mExtractor->getTrackMetaData(0, 0)) + "|" + dump(mExtractor->getTrackMetaData(1, 0)) + "|" +
                      mimeOf(mExtractor->getMetaData()));
    // A video seek in any mode to any object's time lands on that key frame; an audio seek to an audio object's
    // time lands on that object. The first buffer after the seek is flagged sync.
    sp<MediaSource> tracks[2] = {mExtractor->getTrack(0), mExtractor->getTrack(1)};
    for (const sp<MediaSource>& s : tracks) ASSERT_EQ(OK, s->start());
    for (const CsvRow& row : mRows) {
        const bool video = row.at("codec_type") == "video";
        const int64_t us = std::stoll(row.at("pts")) * 1000;
        for (int mode = 0; mode < 4; ++mode) {
            MediaSource::ReadOptions seek;
            seek.setSeekTo(us, Mode(mode));
            Sample x;
            ASSERT_EQ(OK, readSample(tracks[video ? 0 : 1], &x, &seek)) << us << " mode " << mode;
            EXPECT_EQ(std::make_pair(video ? int64_t(46000) : us, 1), std::make_pair(x.timeUs, x.sync))
                    << us << " mode " << mode;
        }
    }
}

}  // namespace
