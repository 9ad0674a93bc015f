// ASFParser: the object walks and their size rules, the header sub-objects,
// the stream limit, file metadata, the log lines and the fatal check, and
// one file written by ffmpeg.
#include <gtest/gtest.h>

#include "ASFBuilder.h"
#include "CheckMatchers.h"
#include "LogCapture.h"
#include "TestDataSources.h"
#include "asf/parser/ASFParser.h"

namespace {

using namespace android;
using namespace android::test;
using namespace android::test::asf;

// 2 s of play less 0.5 s preroll: 1.5 s; 3200-byte packets.
Bytes fp() { return fileProps(20000000, 500, 3200); }
Bytes audio(uint16_t flags = 1) { return streamProps(kGuidAudioMedia, flags, Bytes(18, 0)); }
Bytes video() { return streamProps(kGuidVideoMedia, 2, Bytes(51, 0)); }
sp<ASFParser> parse(const Bytes& bytes) { return new ASFParser(new MemorySource(bytes)); }

// The file metadata as "code=text " per string and "code:size " per 'none' data.
std::string dump(const sp<MetaData>& meta) {
    std::string out;
    for (uint32_t key : {kKeyTitle, kKeyArtist, kKeyAlbum, kKeyAlbumArtist, kKeyGenre, kKeyYear, kKeyCDTrackNumber,
                         kKeyAlbumArtMIME, kKeyAlbumArt}) {
        const char* s;
        uint32_t type;
        const void* data;
        size_t size;
        const std::string code{char(key >> 24), char(key >> 16), char(key >> 8), char(key)};
        if (meta->findCString(key, &s)) out += code + "=" + s + " ";
        if (meta->findData(key, &type, &data, &size) && type == MetaData::TYPE_NONE) out += code + ":" + std::to_string(size) + " ";
    }
    return out;
}

class ASFParserTest : public ::testing::Test {};

TEST_F(ASFParserTest, ObjectWalks) {
    const Bytes h = header({fp(), audio()});
    const int64_t packets = h.size() + 50;
    Bytes namesPastTheEnd = extStreamProps(2, 0);
    setLE16(&namesPastTheEnd, 84, 2);  // two stream names declared, none there
    const struct { const char* name; Bytes bytes; status_t status; size_t tracks; int64_t packets; std::string log = ""; } kRows[] = {
        {"HeaderOnly", h, OK, 1, 0},
        {"HeaderThenData", joined({h, dataObject()}), OK, 1, packets},
        {"FileBelowOneObjectHeader", Bytes(23, 0), ERROR_MALFORMED, 0, 0},
        {"TopLevelSizeBelow24EndsTheWalk", joined({h, object(kGuidData, {}, 23), dataObject()}), OK, 1, 0, "6/ASFParser: it's stream issue, objSize=23"},
        {"TopLevelSizePast2To63EndsTheWalk", joined({h, object(kGuidData, {}, ~7ull), dataObject()}), OK, 1, 0, "6/ASFParser: it's stream issue, objSize=-8"},
        {"DataObjectBelow50", joined({h, object(kGuidData, Bytes(25, 0), 49)}), ERROR_MALFORMED, 1, 0},
        {"DataObjectPastTheFile", joined({h, dataObject(1 << 20)}), OK, 1, packets},
        {"HeaderBelow30", header({}, 29), ERROR_MALFORMED, 0, 0},
        {"HeaderPastTheFile", header({fp(), audio()}, h.size() + 100), ERROR_MALFORMED, 1, 0},
        {"ZeroSizeChildEndsTheHeader", header({object(kGuidData, {}, 0), audio()}), ERROR_MALFORMED, 0, 0},
        {"ChildSizeWrapsNegative", header({object(kGuidData, {}, ~0ull), audio()}), ERROR_MALFORMED, 0, 0},
        {"ChildPastTheHeaderIsTheLast", header({audio(), object(kGuidData, {}, INT64_MAX), audio()}), OK, 1, 0},
        // The header ends 50 bytes into the stream's 96: its fields lie past it.
        {"ChildReadStopsAtItsParentsEnd", joined({header({audio()}, 80), dataObject()}), ERROR_MALFORMED, 0, 0},
        {"FilePropsBelow104", header({object(kGuidFileProperties, Bytes(79, 0))}), ERROR_MALFORMED, 0, 0},
        {"StreamPropsBelow78", header({object(kGuidStreamProperties, Bytes(53, 0))}), ERROR_MALFORMED, 0, 0},
        {"OtherStreamTypeIsInvisible", header({fp(), streamProps(kGuidData, 3)}), OK, 0, 0},
        {"HeaderExtBelow46IsSteppedOverBy46", header({object(kGuidHeaderExtension, Bytes(22, 0), 30), audio()}), OK, 1, 0,
         "5/ASFParser: HeadExt size doesn't meet HEADER_EXT_OBJECT_MIN_LEN"},
        {"ExtStreamPropsBelow88", header({headerExt({object(kGuidExtStreamProperties, Bytes(63, 0))})}), ERROR_MALFORMED, 0, 0},
        {"StreamNamePastTheObject", header({headerExt({namesPastTheEnd})}), ERROR_MALFORMED, 0, 0},
        {"ExtInfoLengthTakenAs16Bits", header({headerExt({extStreamProps(2, 0, {}, {0x10000, 7})})}), OK, 0, 0},
        {"ContentDescBelow34", header({object(kGuidContentDescription, Bytes(9, 0))}), ERROR_MALFORMED, 0, 0},
        {"TitlePastTheObject", header({object(kGuidContentDescription, le(2, {16, 0, 0, 0, 0}))}), ERROR_MALFORMED, 0, 0},
        {"ExtContentDescBelow26", header({object(kGuidExtContentDescription, Bytes(1, 0))}), ERROR_MALFORMED, 0, 0},
        {"ExtContentDescPastTheFile", header({object(kGuidExtContentDescription, Bytes(2, 0), 1000)}), ERROR_MALFORMED, 0, 0},
        {"HundredStreams", header(std::vector<Bytes>(100, audio())), OK, 100, 0},
        {"HundredAndFirstStreamFails", header(std::vector<Bytes>(101, audio())), ASFParser::kErrorTooManyStreams, 100, 0},
    };
    for (const auto& row : kRows) {
        LogCapture log;
        sp<ASFParser> p = parse(row.bytes);
        std::string logged;
        for (const LogLine& l : log.lines()) logged += std::to_string(l.prio) + "/" + l.tag + ": " + l.text;
        EXPECT_EQ(std::make_tuple(row.status, row.tracks, row.tracks, row.packets, row.log),
                  std::make_tuple(p->initCheck(), p->tracks().size(), p->asfTracks().size(), p->dataPacketsOffset(), logged))
                << row.name;
    }
}

TEST_F(ASFParserTest, FailedReadsAreMalformed) {
    // Faults in the first object header, the file properties and the stream
    // properties; a source's own error is reported as malformed too.
    const Bytes bytes = joined({header({fp(), audio()}), dataObject()});
    for (FaultySource::Mode mode : {FaultySource::kShortRead, FaultySource::kNegativeRead, FaultySource::kZeroRead}) {
        for (uint64_t at : {0, 100, 150}) EXPECT_EQ(ERROR_MALFORMED, sp<ASFParser>(new ASFParser(new FaultySource(bytes, mode, at)))->initCheck());
    }
}

TEST_F(ASFParserTest, TrackFields) {
    using Want = std::tuple<uint32_t, uint32_t, uint32_t, int64_t>;  // stream, type, max sample size, type-specific offset
    const int64_t first = 30 + fp().size() + 78, embedded = first + 51 + 46 + 88 + 4 + 4 + 22 + 6 + 78;
    const struct { const char* name; std::vector<Bytes> children; std::vector<Want> tracks; } kRows[] = {
        {"AudioTakesTheMaxPacketSize", {fp(), audio(0x85)}, {{5, 0, 3200, first}}},
        {"NoTypeSpecificDataNoOffset", {fp(), streamProps(kGuidVideoMedia, 2)}, {{2, 1, 0, 0}}},
        {"VideoTakesMaxObjectPlus64", {fp(), video(), headerExt({extStreamProps(2, 5000)})}, {{2, 1, 5064, first}}},
        {"SmallMaxObjectIsNotKept", {fp(), video(), headerExt({extStreamProps(2, 3199)})}, {{2, 1, 0, first}}},
        {"HeadroomOverflowKeepsZero", {fp(), video(), headerExt({extStreamProps(2, 0xFFFFFFF0)})}, {{2, 1, 0, first}}},
        {"EmbeddedStreamIsAddedAgain", {fp(), video(), headerExt({extStreamProps(2, 4000, {4}, {6}, video())})},
         {{2, 1, 4064, first}, {2, 1, 4064, embedded}}},
    };
    for (const auto& row : kRows) {
        sp<ASFParser> p = parse(header(row.children));
        std::vector<Want> got;
        for (const ASFParser::Track& t : p->tracks()) got.emplace_back(t.streamNumber, t.type, t.maxSampleSize, t.typeSpecificOffset);
        EXPECT_EQ(row.tracks, got) << row.name;
        for (const AsfTrack& t : p->asfTracks()) EXPECT_EQ(std::get<0>(row.tracks[0]), t.streamNumber) << row.name;
    }
}

TEST_F(ASFParserTest, DurationTakesOffThePreroll) {
    const struct { uint64_t play, preroll; int64_t durationUs; } kRows[] = {
        {20000000, 500, 1500000}, {0, 1, -1000}, {~0ull, 0, int64_t(~0ull / 10)}, {0, 1ull << 62, INT64_MIN}};
    for (const auto& row : kRows) {
        sp<ASFParser> p = parse(header({fileProps(row.play, row.preroll, 1), audio()}));
        EXPECT_EQ(std::make_pair(row.durationUs, row.durationUs), std::make_pair(p->durationUs(), p->tracks()[0].durationUs));
    }
}

TEST_F(ASFParserTest, FileMetadata) {
    const struct { const char* name; Bytes object; const char* meta; } kRows[] = {
        {"TitleAndAuthor", contentDesc("T", "A"), "titl=T arti=A "},
        {"EmptyAuthorSetsOnlyTheTitle", contentDesc("T", ""), "titl=T "},
        {"EmptyTitleStillSetsTheAuthor", contentDesc("", "A"), "arti=A "},
        {"UnicodeDescriptors", extContentDesc({{"WM/AlbumTitle", 0, utf16("Al")}, {"WM/AlbumArtist", 0, utf16("AA")},
                                               {"WM/Genre", 0, utf16("G")}, {"WM/Year", 0, utf16("2013")}, {"WM/TrackNumber", 0, utf16("7")}}),
         "albu=Al aart=AA genr=G year=2013 cdtr=7 "},
        {"DwordTrackNumberIsIgnored", extContentDesc({{"WM/TrackNumber", 3, {7, 0, 0, 0}}}), ""},
        {"OtherNamesAreSkipped", extContentDesc({{"WM/Composer", 0, utf16("x")}, {"WM/Genre", 0, utf16("G")}}), "genr=G "},
        {"DescriptorsPastTheObjectEndTheWalk", extContentDesc({{"WM/Genre", 0, utf16("G")}}, 3), "genr=G "},
        {"ByteArrayIsStoredAsData", extContentDesc({{"WM/Genre", 1, {1, 2, 3}}}), "genr:3 "},
        {"Picture", extContentDesc({{"WM/Picture", 1, picture("image/png", 100, 100)}}), "alAM=image/png albA:100 "},
        // A 70000-byte picture cannot lie inside a value of 16-bit length.
        {"PictureLargerThanItsValueIsSkipped", extContentDesc({{"WM/Picture", 1, picture("image/png", 70000, 100)}}), ""},
        {"PictureValueBelow5IsSkipped", extContentDesc({{"WM/Picture", 1, {3, 0}}}), ""},
    };
    for (const auto& row : kRows) {
        sp<ASFParser> p = parse(header({row.object}));
        EXPECT_EQ(std::make_pair(status_t(OK), std::string(row.meta)), std::make_pair(p->initCheck(), dump(p->fileMeta()))) << row.name;
    }
}

TEST_F(ASFParserTest, TypeLength) {
    sp<ASFParser> p = parse({1, 2, 3, 4, 5});
    // Width code, offset: width and value; bytes past the end read as zero.
    const struct { uint8_t type; int64_t offset; uint32_t width, value; } kRows[] = {
        {0, 0, 0, 0}, {1, 0, 1, 0x01}, {2, 1, 2, 0x0302}, {3, 1, 4, 0x05040302}, {3, 3, 4, 0x0504}, {4, 0, 0, 0}};
    for (const auto& row : kRows) {
        uint32_t value = 0xDEADBEEF;
        EXPECT_EQ(row.width, p->getTypeLength(row.type, row.offset, &value));
        EXPECT_EQ(row.value, value);
    }
}

TEST_F(ASFParserTest, UnknownFileSizeIsFatal) {
    EXPECT_DEATH(new ASFParser(new FaultySource(header({fp()}), FaultySource::kNone, 0, false)),
                 "F/ASFParser: " + checkMessageAt("asf/parser/ASFParser", 426, "CHECK(mDataSource->getSize(&size) == OK) failed."));
}

TEST_F(ASFParserTest, FileFromFFmpeg) {
    // testdata/asf_wmv2_wmav2.asf; ffprobe: stream 0 video, stream 1 audio, each 1.046000 s; the first packet
    // at byte 823.
    const Bytes bytes = readFileBytes(testdataPath("asf_wmv2_wmav2.asf"));
    for (const sp<DataSource>& source : {sp<DataSource>(new MemorySource(bytes)), sp<DataSource>(new PiecewiseSource(bytes, 7))}) {
        sp<ASFParser> p = new ASFParser(source);
        ASSERT_EQ(std::make_pair(status_t(OK), size_t(2)), std::make_pair(p->initCheck(), p->tracks().size()));
        const ASFParser::Track &v = p->tracks()[0], &a = p->tracks()[1];
        EXPECT_EQ(std::make_tuple(1u, 1u, 1046000, 2u, 0u, 1046000, 823, std::string("titl=T arti=A ")),
                  std::make_tuple(v.streamNumber, v.type, v.durationUs, a.streamNumber, a.type, a.durationUs,
                                  p->dataPacketsOffset(), dump(p->fileMeta())));
    }
}

}  // namespace
