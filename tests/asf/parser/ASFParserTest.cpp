// ASFParser: the object walks and their size rules, the header sub-objects,
// file metadata, the data packet reader (payload layouts, every field width,
// compressed sub-payloads, damaged packets, the table limit), the
// nearest-time lookup and the log lines. The stream limit and the sizes no
// object could hold are rows of tests/hostile/ASFHostileTest.cpp.
#include <gtest/gtest.h>

#include "ASFBuilder.h"
#include "LogCapture.h"
#include "TestDataSources.h"
#include "TrackReader.h"
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
// "status tTracks/asfTracks @dataPacketsOffset", then the file's metadata (" code=text" per string, " code:size"
// per data), then the log lines.
std::string describe(const Bytes& bytes) {
    LogCapture log;
    sp<ASFParser> p = parse(bytes);
    return std::to_string(p->initCheck()) + " t" + std::to_string(p->tracks().size()) + "/" +
           std::to_string(p->asfTracks().size()) + " @" + std::to_string(p->dataPacketsOffset()) +
           describeKeys(p->fileMeta(), {kKeyTitle, kKeyArtist, kKeyAlbum, kKeyAlbumArtist, kKeyGenre, kKeyYear,
                                        kKeyCDTrackNumber, kKeyAlbumArtMIME, kKeyAlbumArt}) + log.joined();
}

TEST(ASFParserTest, HeaderObjects) {
    // The size rules of the top-level, header and header-extension walks, and what a failed one leaves; which
    // content descriptions and descriptors become file metadata, and the picture and descriptor walk bounds.
    const Bytes h = header({fp(), audio()});
    const std::string bad = "-1007 t0/0 @0", bad1 = "-1007 t1/1 @0", ok = "0 t0/0 @0", ok1 = "0 t1/1 @0";
    const std::string data = "0 t1/1 @" + std::to_string(h.size() + 50);
    const struct { const char* name; Bytes bytes; std::string want; } kRows[] = {
        {"HeaderThenData", joined({h, dataObject()}), data},
        {"TopLevelBelow24EndsTheWalk", joined({h, object(kGuidData, {}, 23), dataObject()}),
         ok1 + "|6/ASFParser: it's stream issue, objSize=23"},
        {"TopLevelPast2To63EndsTheWalk", joined({h, object(kGuidData, {}, ~7ull), dataObject()}),
         ok1 + "|6/ASFParser: it's stream issue, objSize=-8"},
        {"DataObjectBelow50", joined({h, object(kGuidData, Bytes(25, 0), 49)}), bad1},
        {"DataObjectPastTheFile", joined({h, dataObject(1 << 20)}), data},
        {"ZeroSizeChildEndsTheHeader", header({object(kGuidData, {}, 0), audio()}), bad},
        {"ChildSizeWrapsNegative", header({object(kGuidData, {}, ~0ull), audio()}), bad},
        {"ChildPastTheHeaderIsLast", header({audio(), object(kGuidData, {}, INT64_MAX), audio()}), ok1},
        // The header ends 50 bytes into the stream's 96: its fields lie past it.
        {"ChildReadStopsAtItsParentsEnd", joined({header({audio()}, 80), dataObject()}), bad},
        {"OtherStreamTypeIsInvisible", header({fp(), streamProps(kGuidData, 3)}), ok},
        {"HeaderExtBelow46SteppedOverBy46", header({object(kGuidHeaderExtension, Bytes(22, 0), 30), audio()}),
         ok1 + "|5/ASFParser: HeadExt size doesn't meet HEADER_EXT_OBJECT_MIN_LEN"},
        {"ExtInfoLengthTakenAs16Bits", header({headerExt({extStreamProps(2, 0, {}, {0x10000, 7}, video())})}), ok1},
        // Read past the object, the title would be the stream's bytes.
        {"TitlePastTheObject", header({object(kGuidContentDescription, le(2, {16, 0, 0, 0, 0})), audio()}), bad},
        {"EmptyTitleStillSetsTheAuthor", header({contentDesc("", "A")}), ok + " arti=A"},
        // Among them another name and a DWORD value, both skipped; 3 more declared past the object's end, where
        // the walk ends.
        {"UnicodeDescriptors",
         header({extContentDesc({{"WM/AlbumTitle", 0, utf16("Al")}, {"WM/Composer", 0, utf16("x")},
                                 {"WM/AlbumArtist", 0, utf16("AA")}, {"WM/Genre", 0, utf16("G")},
                                 {"WM/Year", 0, utf16("2013")}, {"WM/TrackNumber", 0, utf16("7")},
                                 {"WM/TrackNumber", 3, {7, 0, 0, 0}}}, 3)}),
         ok + " albu=Al aart=AA genr=G year=2013 cdtr=7"},
        {"ByteArrayIsStoredAsData", header({extContentDesc({{"WM/Genre", 1, {1, 2, 3}}})}), ok + " genr:3"},
        {"Picture", header({extContentDesc({{"WM/Picture", 1, picture("image/png", 100, 100)}})}),
         ok + " alAM=image/png albA:100"},
        // A 70000-byte picture cannot lie inside a value of 16-bit length; a value below 5 bytes holds none.
        {"PicturesNotInTheirValueSkipped",
         header({extContentDesc({{"WM/Picture", 1, picture("image/png", 70000, 100)}, {"WM/Picture", 1, {3}}})}), ok},
    };
    for (const auto& row : kRows) EXPECT_EQ(row.want, describe(row.bytes)) << row.name;
    // A failed or short read of the first object header, the file or the stream properties is malformed too.
    const Bytes bytes = joined({h, dataObject()});
    for (FaultySource::Mode mode : {FaultySource::kShortRead, FaultySource::kNegativeRead, FaultySource::kZeroRead}) {
        for (uint64_t at : {0, 100, 150}) {
            EXPECT_EQ(ERROR_MALFORMED, sp<ASFParser>(new ASFParser(new FaultySource(bytes, mode, at)))->initCheck());
        }
    }
}

TEST(ASFParserTest, TrackFields) {
    // The buffer size rule (audio: the packet size; video: the extended properties' object size plus 64, kept
    // only above the packet size and without overflow), the type-specific offset, the embedded stream, and the
    // duration: the play time less the preroll, saturating at the 64-bit bounds.
    using Want = std::tuple<uint32_t, uint32_t, uint32_t, int64_t>;  // stream, type, max size, type-specific offset
    const int64_t first = 30 + fp().size() + 78, embedded = first + 51 + 46 + 88 + 4 + 4 + 22 + 6 + 78;
    const Want pcm = {1, 0, 3200, first};
    const struct { const char* name; std::vector<Bytes> children; std::vector<Want> tracks; int64_t us = 1500000;
    } kRows[] = {
        {"AudioTakesTheMaxPacketSize", {fp(), audio(0x85)}, {{5, 0, 3200, first}}},
        {"VideoTakesMaxObjectPlus64", {fp(), video(), headerExt({extStreamProps(2, 5000)})}, {{2, 1, 5064, first}}},
        {"SmallMaxObjectIsNotKept", {fp(), video(), headerExt({extStreamProps(2, 3199)})}, {{2, 1, 0, first}}},
        {"HeadroomOverflowKeepsZero", {fp(), video(), headerExt({extStreamProps(2, 0xFFFFFFF0)})}, {{2, 1, 0, first}}},
        {"EmbeddedStreamIsAddedAgain", {fp(), video(), headerExt({extStreamProps(2, 4000, {4}, {6}, video())})},
         {{2, 1, 4064, first}, {2, 1, 4064, embedded}}},
        {"DurationBelowZero", {fileProps(0, 1, 3200), audio()}, {pcm}, -1000},
        {"DurationOfAllOnes", {fileProps(~0ull, 0, 3200), audio()}, {pcm}, int64_t(~0ull / 10)},
        {"DurationWraps", {fileProps(0, 1ull << 62, 3200), audio()}, {pcm}, INT64_MIN},
    };
    for (const auto& row : kRows) {
        sp<ASFParser> p = parse(header(row.children));
        std::vector<Want> got;
        for (const ASFParser::Track& t : p->tracks()) {
            got.emplace_back(t.streamNumber, t.type, t.maxSampleSize, t.typeSpecificOffset);
            EXPECT_EQ(row.us, t.durationUs) << row.name;
        }
        EXPECT_EQ(row.tracks, got) << row.name;
        EXPECT_EQ(row.us, p->durationUs()) << row.name;
        for (const AsfTrack& t : p->asfTracks()) EXPECT_EQ(std::get<0>(row.tracks[0]), t.streamNumber) << row.name;
    }
}

// Track 0 is stream 1 (audio), track 1 stream 2 (video); preroll 3000 ms.
Bytes packets(const std::vector<Packet>& packets, uint32_t slot) {
    return asfFile({streamProps(kGuidAudioMedia, 1), streamProps(kGuidVideoMedia, 2)}, packets, slot, 0, 3000);
}
// getPayload on a scratch copy of track 0: "status @packet nCount:" then, up to 8,
// " offset-in-packet+length/objectSize tTime kKind" (K: key frame).
std::string walk(const sp<ASFParser>& parser, int64_t p = 0, int step = 1) {
    AsfTrack track = parser->asfTracks()[0];
    const status_t err = parser->getPayload(&track, &p, step);
    std::string s = std::to_string(err) + " @" + std::to_string(p) + " n" + std::to_string(track.count) + ":";
    const int64_t base = parser->dataPacketsOffset() + p * parser->fileProps().maxDataPacketSize;
    for (uint32_t i = 0; i < track.count && track.count <= 8; ++i) {
        const PayloadEntry& e = track.payloads[i];
        s += " " + std::to_string(e.offset - base) + "+" + std::to_string(e.length) + "/" +
             std::to_string(e.objectSize) + " t" + std::to_string(e.timeMs) + " k" + std::to_string(e.kind) +
             (e.keyFrame ? "K" : "");
    }
    return s;
}

TEST(ASFParserTest, Payloads) {
    // Where each payload starts and ends, its kind (first/last of its object), time less the preroll and key
    // flag; what bounds the walk over payloads, sub-payloads and packets; the 256-slot table limit; a short read
    // of each field fails the walk, naming its line.
    const Payload m = part(1, 0, 10, 0, 10), other = part(2, 0, 5, 0, 5);
    const Payload tooLong = {1, 0, replicated(9, 0), Bytes(9, 0), {}, 1000};
    const Bytes full(256, 1), over(300, 1);
    const std::string ok = "0 @0 n1: 29+10/10 t0 k3";
    const std::string cut = "-1007 @0 n0:", line = "|6/ASFParser: getPayload,line:";
    const struct { const char* name; std::vector<Packet> packets; std::string want; std::string log = "";
                   uint32_t slot = 200; int64_t from = 0; int step = 1; int64_t cut = -1; } kRows[] = {
        {"KindsTimesKeyFramesOtherStreams",
         {{{m, part(1, 0, 30, 3500, 10), part(0x81, 20, 30, 500, 10), other, part(1, 10, 30, 4000, 10)}}},
         "0 @0 n4: 29+10/10 t0 k3 56+10/30 t500 k1 83+10/30 t0 k2K 132+10/30 t1000 k0"},
        {"CompressedSubPayloadsCountEmptyOnes", {{{{1, 4000, {10}, subPayloads({5, 0, 7})}}}},
         "0 @0 n2: 23+5/5 t1000 k3 30+7/7 t1020 k3"},
        {"NoErrorCorrectionStillTakesTheFlagByte", {{{m}, 1, 0x5D, 2, 0x00}}, "0 @0 n1: 27+10/10 t0 k3"},
        {"ErrorCorrectionLengthInLowBits", {{{m}, 1, 0x5D, 2, 0x85}}, "0 @0 n1: 32+10/10 t0 k3"},
        {"OpaqueDataSkipsThePacket", {{{m}, 1, 0x5D, 2, 0x92}, {{m}}}, "0 @1 n1: 29+10/10 t0 k3"},
        {"SinglePayloadEndsAtThePadding", {{{m}, 0x08}}, "0 @0 n1: 27+10/10 t0 k3"},
        {"PacketLengthPastTheSlotIsCut", {{{m}, 0x20, 0x5D, 2, 0x82, 1000}}, "0 @0 n1: 27+173/10 t0 k1"},
        {"CountEndsThePayloads", {{{m, m}, 1, 0x5D, 2, 0x82, {}, {}, 1}}, ok},
        {"PaddingPastThePacketLeavesNoPayloads", {{{m}, 0x11, 0x5D, 2, 0x82, {}, 5000}}, "-1007 @1 n0:"},
        {"PayloadPastThePacketEndsTheWalk", {{{m, tooLong, m}}}, ok},
        {"SubPayloadPastItsPayloadEndsItsWalk", {{{{1, 0, {0}, joined({subPayloads({5}), {50, 1, 2}})}, m}}},
         "0 @0 n2: 23+5/5 t0 k3 48+10/10 t0 k3"},
        {"NothingForTheTrackRunsPastTheLastPacket", {{{other}}, {{other}}}, "-1007 @2 n0:"},
        {"StreamZeroFails", {{{part(0, 0, 10, 0, 10)}}}, "-1007 @0 n0:", "|6/ASFParser: PD.uiStreamNumber=0"},
        {"TableHolds256", {{{{1, 0, {0}, subPayloads(full)}}}}, "0 @0 n256:", "", 1000},
        {"TableFullOnASubPayload", {{{{1, 0, {0}, subPayloads(over)}}}}, "-1007 @0 n256:", line + "1370", 1000},
        {"TableFullOnAPayload", {{{{1, 0, {0}, subPayloads(full)}, m}}}, "-1007 @0 n256:", line + "1429", 1000},
        {"StepsBackToAPacketOfTheTrack", {{{m}}, {{other}}, {{other}}}, ok, "", 200, 2, -1},
        {"StepsBackPastTheFirstPacket", {{{other}}}, "-1007 @-1 n0:", "", 200, 0, -1},
        {"StartPastTheLastPacket", {{{m}}}, "-1007 @5 n0:", "", 200, 5},
        {"StepZeroIsRefused", {{{m}}}, "-34 @0 n0:", "", 200, 0, 0},
        {"PacketsOfNoSize", {{{m}}}, "-1007 @0 n0:", "", 0},
        // The file cut inside each field of a packet: the line the failure names.
        {"CutAtErrorCorrection", {{{m}}}, cut, line + "1257", 200, 0, 1, 0},
        {"CutAtLengthTypeFlags", {{{m}}}, cut, line + "1272", 200, 0, 1, 3},
        {"CutAtSendTime", {{{m}}}, cut, line + "1285", 200, 0, 1, 5},
        {"CutAtPayloadFlags", {{{m}}}, cut, line + "1304", 200, 0, 1, 11},
        {"CutAtStreamNumber", {{{m}}}, cut, line + "1314", 200, 0, 1, 12},
        {"CutAtReplicatedData", {{{m}}}, cut, line + "1394", 200, 0, 1, 19},
        {"CutAtTimeDelta", {{{{1, 0, {0}, subPayloads({5})}}}}, cut, line + "1335", 200, 0, 1, 19},
        {"CutAtSubPayloadLength", {{{{1, 0, {0}, subPayloads({5})}}}}, cut, line + "1352", 200, 0, 1, 22},
    };
    for (const auto& row : kRows) {
        LogCapture log;
        const Bytes bytes = packets(row.packets, row.slot);
        const uint64_t at = bytes.size() - row.slot * row.packets.size() + row.cut;
        const FaultySource::Mode mode = row.cut < 0 ? FaultySource::kNone : FaultySource::kShortRead;
        const std::string got = walk(new ASFParser(new FaultySource(bytes, mode, at)), row.from, row.step);
        EXPECT_EQ(row.want + row.log, got + log.joined()) << row.name;
    }
}

TEST(ASFParserTest, EveryFieldWidth) {
    // Every combination of the width codes of the packet and payload fields: each field is read at its width
    // (0, 1, 2, 4 bytes). Bits 0-7: packet length, sequence, padding and payload length; 8-9 object number,
    // 10-11 offset; 12-13 replicated length (1-3).
    const size_t w[] = {0, 1, 2, 4};
    for (int c = 1 << 12; c < (1 << 14); ++c) {
        // Without a payload length field the payloads are empty.
        const size_t n = w[c >> 6 & 3] ? 5 : 0;
        const Packet p = {{part(1, 0, 5, 0, n), part(1, 0, 6, 0, n ? 6 : 0)},
                          uint8_t(1 | (c & 3) << 5 | (c >> 2 & 3) << 1 | (c >> 4 & 3) << 3),
                          uint8_t((c >> 8 & 3) << 4 | (c >> 10 & 3) << 2 | c >> 12), uint8_t(c >> 6 & 3)};
        const size_t packetHeader = 12 + w[c & 3] + w[c >> 2 & 3] + w[c >> 4 & 3];
        const size_t payloadHeader = 1 + w[c >> 8 & 3] + w[c >> 10 & 3] + w[c >> 12] + 8 + w[c >> 6 & 3];
        const size_t first = packetHeader + payloadHeader, second = first + n + payloadHeader;
        const std::string got = walk(parse(packets({p}, 100)));
        EXPECT_EQ(std::to_string(first) + "+" + std::to_string(n) + "/5", got.substr(9, got.find(' ', 9) - 9)) << c;
        EXPECT_NE(std::string::npos, got.find(" " + std::to_string(second) + "+" + std::to_string(n ? 6 : 0) + "/6"))
                << c << got;
    }
}

TEST(ASFParserTest, NearestTime) {
    // The lookup's bounds, its tie rule (the earlier one) and a table whose times do not rise.
    const struct { std::vector<uint32_t> times; int64_t target; bool found; uint32_t cursor; } kRows[] = {
        {{}, 5, false, 7}, {{10, 20, 30}, 5, false, 0}, {{10, 20, 30}, 35, false, 2}, {{10, 20, 30}, 20, true, 1},
        {{10, 20, 30}, 14, true, 0}, {{10, 20, 30}, 16, true, 1}, {{10, 20, 30}, 15, true, 0},
        {{30, 10}, 20, false, 0}};
    for (const auto& row : kRows) {
        AsfTrack track(1, 0);
        for (uint32_t t : row.times) track.append()->timeMs = t;
        track.cursor = 7;
        const bool found = track.findNearestTime(row.target);
        EXPECT_EQ(std::make_pair(row.found, row.cursor), std::make_pair(found, track.cursor)) << row.target;
    }
}

}  // namespace
