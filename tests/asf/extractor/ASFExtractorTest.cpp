// ASFExtractor and the ASF sniffers: the codec table and its property gate,
// track formats from WAVEFORMATEX/BITMAPINFOHEADER, hidden tracks, the
// container type, the sniffers' answers, and one file written by ffmpeg.
#include <gtest/gtest.h>

#include <cutils/properties.h>

#include "ASFBuilder.h"
#include "LogCapture.h"
#include "TestDataSources.h"
#include "asf/extractor/ASFExtractor.h"
#include "common/ZIRKMetaKeys.h"

namespace {

using namespace android;
using namespace android::test;
using namespace android::test::asf;

// Sets "media.tamelordecode.supportwmva" (null: unset) for its lifetime, then restores it.
struct WmvaProperty {
    char old[PROPERTY_VALUE_MAX];
    explicit WmvaProperty(const char* v) { property_get(ASFExtractor::kSupportWMVAProperty, old, ""), property_set(ASFExtractor::kSupportWMVAProperty, v); }
    ~WmvaProperty() { property_set(ASFExtractor::kSupportWMVAProperty, old); }
};

// 2 s of play less 0.5 s preroll: 1.5 s; 3200-byte packets. The data object after the header gives bytes to
// read past a stream's type-specific data, so only the declared length stops such a read.
Bytes file(std::vector<Bytes> streams) { return streams.insert(streams.begin(), fileProps(20000000, 500, 3200)), joined({header(streams), dataObject()}); }
Bytes a(const Bytes& ts) { return streamProps(kGuidAudioMedia, 1, ts); }
Bytes v(const Bytes& ts) { return streamProps(kGuidVideoMedia, 2, ts); }

// The MIME type, then "code=value" per key set ("rcsd:N" for its size); "hidden" for no format.
std::string dump(const sp<MetaData>& m) {
    const char* mime = "?";
    if (m == nullptr) return "hidden";
    std::string out = m->findCString(kKeyMIMEType, &mime) ? mime : "?";
    int32_t i32; int64_t i64; uint32_t type; const void* data; size_t size;
    for (uint32_t k : {kKeyWidth, kKeyHeight, kKeySampleRate, kKeyChannelCount, kKeyBitRate, kKeyMaxInputSize, kKeyDuration, kKeyThumbnailTime}) {
        if (m->findInt32(k, &i32) || (m->findInt64(k, &i64) && (i32 = int32_t(i64)) == i64)) out += " " + std::string{char(k >> 24), char(k >> 16), char(k >> 8), char(k), '='} + std::to_string(i32);
    }
    return m->findData(kKeyRawCodecSpecificData, &type, &data, &size) ? out + " rcsd:" + std::to_string(size) : out;
}
std::string mimeOf(const sp<MetaData>& m) { return dump(m).substr(0, dump(m).find(' ')); }

TEST(ASFExtractorTest, TrackFormats) {
    const std::string audio = " srte=8000 #chn=1 brte=16000 inpS=3200 dura=1500000", qvga = " widt=320 heig=240 inpS=57600 dura=1500000 thbT=0";
    // Gated rows are hidden unless the property is non-zero.
    const struct { const char* name; Bytes stream; bool gated; std::string format, log = ""; } kRows[] = {
        {"PCM", a(wav(0x0001)), false, "audio/raw" + audio},
        {"MP3KeepsNoExtra", a(wav(0x0055, 12, 12)), false, "audio/mpeg" + audio},
        {"WMA2CarriesWaveFormatAndExtra", a(wav(0x0161, 10, 10)), true, "audio/x-ms-wma-codec" + audio + " rcsd:28"},
        {"UnknownAudio", a(wav(0x0002)), false, "hidden", "Unsupported audio format 2"},
        {"ExtraPastDeclaredLength", a(wav(0x0161, 10, 5)), false, "hidden"},
        {"WaveFormatBelow18Bytes", a(Bytes(16, 1)), false, "hidden"},
        {"WMV3WithExtra", v(bih("WMV3", 320, 240, 4, 4)), true, "video/x-ms-wmv3" + qvga + " rcsd:4"},
        {"H264", v(bih("H264", 320, 240, 3, 3)), false, "video/avc" + qvga + " rcsd:3"},
        {"DivX", v(bih("DIVX", 320, 240)), false, "video/divx" + qvga},
        {"MP43", v(bih("MP43", 320, 240)), false, "video/divx3" + qvga},
        {"VGAInputSize", v(bih("DIVX", 640, 480)), false, "video/divx widt=640 heig=480 inpS=230400 dura=1500000 thbT=0"},
        {"LowerCaseFourcc", v(bih("wmv3", 320, 240)), false, "hidden", "Unsupported video format 'wmv3'"},
        {"BitmapExtraPastDeclaredLength", v(bih("H264", 320, 240, 8, 4)), false, "hidden"},
        {"BitmapSizeBelow40", v(bih("H264", 320, 240, uint32_t(-1))), false, "hidden"},
        {"InputSizePast32Bits", v(bih("DIVX", 65536, 65536)), false, "hidden"},
    };
    for (const auto& row : kRows) {
        for (const char* property : {(const char*)nullptr, "0", "1"}) {
            SCOPED_TRACE(std::string(row.name) + " with property " + (property ? property : "unset"));
            WmvaProperty set(property);
            LogCapture log;
            sp<ASFExtractor> e = new ASFExtractor(new MemorySource(file({row.stream})));
            EXPECT_EQ(row.gated && !(property && *property == '1') ? "hidden" : row.format, dump(e->getTrackMetaData(0, 0)));
            EXPECT_TRUE(row.log.empty() || log.contains(row.log, 5));
        }
    }
}

TEST(ASFExtractorTest, HiddenTracksAndContainerType) {
    const Bytes wmv3 = v(bih("WMV3", 320, 240)), pcm = a(wav(1)), wma = a(wav(0x0161)), h264 = v(bih("H264", 320, 240));
    const std::vector<Bytes> windowsMedia = {v(bih("WMV1", 8, 8)), v(bih("WMV2", 8, 8)), wmv3, v(bih("WMVA", 8, 8)), v(bih("WVC1", 8, 8)),
                                             a(wav(0x000A)), a(wav(0x0160)), wma, a(wav(0x0162)), a(wav(0x0163))};
    const struct { const char* name; std::vector<Bytes> streams; const char* property; std::string tracks; } kRows[] = {
        {"HiddenSkippedInNumbering", {wmv3, pcm, wma, h264}, nullptr, "audio/raw,video/avc,hidden,video/x-ms-asf"},
        {"WindowsMediaHiddenByDefault", windowsMedia, nullptr, "hidden,audio/x-ms-wma"},
        {"WindowsMediaWithProperty", windowsMedia, "1", "video/x-ms-wmv1,video/x-ms-wmv2,video/x-ms-wmv3,video/x-ms-wmva,video/x-ms-wvc1,audio/x-ms-wma-codec,"
         "audio/x-ms-wma-codec,audio/x-ms-wma-codec,audio/x-ms-wma-codec,audio/x-ms-wma-codec,hidden,video/x-ms-asf"},
        {"AudioOnlyIsWMAContainer", {a(wav(0x55)), pcm}, nullptr, "audio/mpeg,audio/raw,hidden,audio/x-ms-wma"},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.name);
        WmvaProperty set(row.property);
        sp<ASFExtractor> e = new ASFExtractor(new MemorySource(file(row.streams)));
        std::string tracks;
        for (size_t i = 0; i <= e->countTracks(); ++i) tracks += mimeOf(e->getTrackMetaData(i, 0)) + ",";
        EXPECT_EQ(row.tracks, tracks + mimeOf(e->getMetaData()));
        // A source per exposed track, none past them.
        EXPECT_EQ(e->countTracks() > 0, e->getTrack(0) != nullptr);
        EXPECT_TRUE(e->getTrack(e->countTracks()) == nullptr);
    }
}

// A Codec List Object with one entry per type (a 1-unit name, no description, 2 bytes of information).
Bytes codecList(const std::vector<uint16_t>& types, uint64_t size = 0) {
    const ASFGuid g = asfGuid(0x86D15240, 0x311D, 0x11D0, 0xA3A400A0C90348F6);
    Bytes entries = joined({Bytes(16, 0), le(4, {types.size()})});
    for (uint16_t t : types) entries = joined({entries, le(2, {t, 1}), Bytes(2, 'c'), le(2, {0, 2}), Bytes(2, 0)});
    return joined({Bytes(g.bytes, g.bytes + 16), le(8, {size ? size : 24 + entries.size()}), entries});
}

TEST(ASFExtractorTest, Sniffing) {
    const Bytes audioOnly = file({a(wav(1))});
    const struct { const char* name; Bytes bytes; std::string result; bool guid = true; std::string log = ""; } kRows[] = {
        {"CodecListVideoFirst", file({codecList({1, 2})}), "video/x-ms-asf 0.8"},
        {"CodecListVideoAfterAudio", file({codecList({2, 1})}), "video/x-ms-asf 0.8"},
        {"CodecListDecidesOverStreams", file({codecList({2}), v(bih("WMV3", 8, 8))}), "audio/x-ms-wma 0.8"},
        {"CodecListUnknownOnly", file({codecList({0xFFFF})}), "no"},
        {"CodecListBelow44", file({codecList({}, 43)}), "no"},
        // Cut 10 bytes into the object header after the header object's 30 bytes and the file properties' 104.
        {"TruncatedHeader", Bytes(audioOnly.begin(), audioOnly.begin() + 144), "audio/x-ms-wma 0.8", true, "File corruption, ignore this file, SniffASFFormat"},
        {"NoCodecListVideoStream", file({a(wav(1)), v(bih("WMV3", 8, 8))}), "video/x-ms-asf 0.8"},
        {"NoCodecListAudioOnly", audioOnly, "audio/x-ms-wma 0.8"},
        {"NotAHeaderGuid", joined({Bytes(16, 0), Bytes(audioOnly.begin() + 16, audioOnly.end())}), "no", false},
        {"ShorterThanAGuid", Bytes(audioOnly.begin(), audioOnly.begin() + 15), "no", false},
    };
    for (const auto& row : kRows) {
        SCOPED_TRACE(row.name);
        LogCapture log;
        String8 mime("no");  // left as it is when the file is not claimed
        float confidence = 0;
        SniffASF(new MemorySource(row.bytes), &mime, &confidence, nullptr);
        EXPECT_EQ(row.result, mime.c_str() + (confidence ? " " + std::to_string(confidence).substr(0, 3) : ""));
        EXPECT_EQ(row.log.empty() ? 0u : 1u, log.lines().size());
        EXPECT_TRUE(row.log.empty() || log.contains(row.log, 6));
        EXPECT_EQ(row.guid, SniffASFFormat(new MemorySource(row.bytes)));
    }
}

TEST(ASFExtractorTest, FileFromFFmpeg) {
    // ffprobe's streams beside the file, "streams.stream.<index>.<field>=<value>": WMV2 160x120 with 4 bytes
    // of extra data; WMA2 at 44.1 kHz, mono, with 10 (cbSize) bytes after the WAVEFORMATEX.
    const Bytes listing = readFileBytes(testdataPath("asf_wmv2_wmav2.asf.streams.txt"));
    auto probe = [text = std::string(listing.begin(), listing.end())](const std::string& key) {
        const size_t at = text.find("streams.stream." + key + "=") + key.size() + 16, end = text.find('\n', at);
        return text[at] == '"' ? text.substr(at + 1, end - at - 2) : text.substr(at, end - at);
    };
    WmvaProperty set("1");
    sp<ASFExtractor> e = new ASFExtractor(new PiecewiseSource(readFileBytes(testdataPath("asf_wmv2_wmav2.asf")), 7));
    ASSERT_EQ(2u, e->countTracks());
    const std::string video = dump(e->getTrackMetaData(0, 0)), audio = dump(e->getTrackMetaData(1, 0));
    // ffprobe gives the FourCC as its little-endian value; the table reads it big-endian.
    const std::string videoFormat = std::string(ASFExtractor::codecToMime(__builtin_bswap32(std::stoul(probe("0.codec_tag"), nullptr, 16)))) + " widt=" + probe("0.width") + " heig=" + probe("0.height");
    const std::string audioFormat = std::string(ASFExtractor::codecToMime(std::stoi(probe("1.codec_tag"), nullptr, 16))) + " srte=" + probe("1.sample_rate") + " #chn=" + probe("1.channels");
    EXPECT_EQ(videoFormat + " rcsd:" + probe("0.extradata_size"), video.substr(0, videoFormat.size()) + video.substr(video.rfind(' ')));
    EXPECT_EQ(audioFormat + " rcsd:" + std::to_string(18 + std::stoi(probe("1.extradata_size"))), audio.substr(0, audioFormat.size()) + audio.substr(audio.rfind(' ')));
    const char *title = "", *author = "";
    e->getMetaData()->findCString(kKeyTitle, &title), e->getMetaData()->findCString(kKeyArtist, &author);
    EXPECT_EQ("video/x-ms-asf T A", mimeOf(e->getMetaData()) + " " + title + " " + author);
}

}  // namespace
