// The ASF data packet reader: payload layouts and field widths, compressed
// sub-payloads, padding, the walk over packets, damaged packets, the table
// limit, the nearest-time lookup, and every packet of a file from ffmpeg.
#include <gtest/gtest.h>

#include <map>

#include "ASFBuilder.h"
#include "LogCapture.h"
#include "TestDataSources.h"
#include "asf/parser/ASFParser.h"

namespace {

using namespace android;
using namespace android::test;
using namespace android::test::asf;

Payload media(uint8_t stream, uint32_t offset, uint32_t objectSize, uint32_t timeMs, size_t n) {
    return {stream, offset, replicated(objectSize, timeMs), Bytes(n, 0xAB)};
}

class ASFPayloadTest : public ::testing::Test {
protected:
    // Track 0 is stream 1 (audio), track 1 stream 2 (video); preroll 3000 ms.
    static Bytes file(const std::vector<Packet>& packets, uint32_t slot) {
        Bytes data;
        for (const Packet& p : packets) data = joined({data, packet(p, slot)});
        return joined({header({fileProps(0, 3000, slot, packets.size()), streamProps(kGuidAudioMedia, 1),
                               streamProps(kGuidVideoMedia, 2)}), dataObject({}, data)});
    }
    // getPayload on a scratch copy of track 0: "status @packet nCount:" then, up to 8,
    // " offset-in-packet+length/objectSize tTime kKind" (K: key frame).
    static std::string walk(const sp<ASFParser>& parser, int64_t p = 0, int step = 1) {
        AsfTrack track = parser->asfTracks()[0];
        const status_t err = parser->getPayload(&track, &p, step);
        std::string s = std::to_string(err) + " @" + std::to_string(p) + " n" + std::to_string(track.count) + ":";
        const int64_t base = parser->dataPacketsOffset() + p * parser->fileProps().maxDataPacketSize;
        for (uint32_t i = 0; i < track.count && track.count <= 8; ++i) {
            const PayloadEntry& e = track.payloads[i];
            s += " " + std::to_string(e.offset - base) + "+" + std::to_string(e.length) + "/" + std::to_string(e.objectSize) +
                 " t" + std::to_string(e.timeMs) + " k" + std::to_string(e.kind) + (e.keyFrame ? "K" : "");
        }
        return s;
    }
};

TEST_F(ASFPayloadTest, Payloads) {
    const Payload m = media(1, 0, 10, 0, 10), other = media(2, 0, 5, 0, 5);
    const Payload tooLong = {1, 0, replicated(9, 0), Bytes(9, 0), {}, 1000}, repTooLong = {1, 0, replicated(9, 0), Bytes(9, 0), 200};
    const Bytes full(256, 1), over(300, 1);
    const struct { const char* name; std::vector<Packet> packets; std::string want; std::string log = ""; uint32_t slot = 200; int64_t from = 0; int step = 1; } kRows[] = {
        // Preroll 3000 ms.
        {"KindsTimesKeyFramesOtherStreams", {{{m, media(1, 0, 30, 3500, 10), media(0x81, 20, 30, 500, 10), other, media(1, 10, 30, 4000, 10)}}},
         "0 @0 n4: 29+10/10 t0 k3 56+10/30 t500 k1 83+10/30 t0 k2K 132+10/30 t1000 k0"},
        {"CompressedSubPayloadsCountEmptyOnes", {{{{1, 4000, {10}, subPayloads({5, 0, 7})}}}}, "0 @0 n2: 23+5/5 t1000 k3 30+7/7 t1020 k3"},
        {"NoErrorCorrectionStillTakesTheFlagByte", {{{m}, 1, 0x5D, 2, 0x00}}, "0 @0 n1: 27+10/10 t0 k3"},
        {"ErrorCorrectionLengthInLowBits", {{{m}, 1, 0x5D, 2, 0x85}}, "0 @0 n1: 32+10/10 t0 k3"},
        {"OpaqueDataSkipsThePacket", {{{m}, 1, 0x5D, 2, 0x92}, {{m}}}, "0 @1 n1: 29+10/10 t0 k3"},
        {"SinglePayloadEndsAtThePadding", {{{m}, 0x08}}, "0 @0 n1: 27+10/10 t0 k3"},
        {"PacketLengthZeroIsTheSlot", {{{m}, 0x20, 0x5D, 2, 0x82, 0}}, "0 @0 n1: 27+173/10 t0 k1"},
        {"PacketLengthPastTheSlotIsCut", {{{m}, 0x20, 0x5D, 2, 0x82, 1000}}, "0 @0 n1: 27+173/10 t0 k1"},
        {"PaddingEndsThePayloads", {{{m, m}, 0x09, 0x5D, 2, 0x82, {}, 160}}, "0 @0 n1: 30+10/10 t0 k3"},
        {"CountEndsThePayloads", {{{m, m}, 1, 0x5D, 2, 0x82, {}, {}, 1}}, "0 @0 n1: 29+10/10 t0 k3"},
        {"PaddingPastThePacketLeavesNoPayloads", {{{m}, 0x11, 0x5D, 2, 0x82, {}, 5000}}, "-1007 @1 n0:"},
        {"PayloadPastThePacketEndsTheWalk", {{{m, tooLong, m}}}, "0 @0 n1: 29+10/10 t0 k3"},
        {"ReplicatedDataPastThePacketEndsTheWalk", {{{m, repTooLong, m}}}, "0 @0 n1: 29+10/10 t0 k3"},
        {"SubPayloadPastItsPayloadEndsItsWalk", {{{{1, 0, {0}, joined({subPayloads({5}), {50, 1, 2}})}, m}}}, "0 @0 n2: 23+5/5 t0 k3 48+10/10 t0 k3"},
        {"EmptySubPayloadsStillAdvance", {{{{1, 0, {0}, Bytes(40, 0)}}}}, "-1007 @1 n0:"},
        {"NothingForTheTrackRunsPastTheLastPacket", {{{other}}, {{other}}}, "-1007 @2 n0:"},
        {"StreamZeroFails", {{{media(0, 0, 10, 0, 10)}}}, "-1007 @0 n0:", "6 PD.uiStreamNumber=0"},
        {"TableHolds256", {{{{1, 0, {0}, subPayloads(full)}}}}, "0 @0 n256:", "", 1000},
        {"TableFullOnASubPayload", {{{{1, 0, {0}, subPayloads(over)}}}}, "-1007 @0 n256:", "6 getPayload,line:1370", 1000},
        {"TableFullOnAPayload", {{{{1, 0, {0}, subPayloads(full)}, m}}}, "-1007 @0 n256:", "6 getPayload,line:1429", 1000},
        {"StepsBackToAPacketOfTheTrack", {{{m}}, {{other}}, {{other}}}, "0 @0 n1: 29+10/10 t0 k3", "", 200, 2, -1},
        {"StepsBackPastTheFirstPacket", {{{other}}}, "-1007 @-1 n0:", "", 200, 0, -1},
        {"StartPastTheLastPacket", {{{m}}}, "-1007 @5 n0:", "", 200, 5},
        {"StepZeroIsRefused", {{{m}}}, "-34 @0 n0:", "", 200, 0, 0},
        {"PacketsOfNoSize", {{{m}}}, "-1007 @0 n0:", "", 0},
    };
    for (const auto& row : kRows) {
        LogCapture log;
        const std::string got = walk(new ASFParser(new MemorySource(file(row.packets, row.slot))), row.from, row.step);
        std::string logged;
        for (const LogLine& l : log.lines()) logged += std::to_string(l.prio) + " " + l.text;
        EXPECT_EQ(row.want + "|" + row.log, got + "|" + logged) << row.name;
    }
}

TEST_F(ASFPayloadTest, EveryFieldWidth) {
    // Bits 0-7: width codes of packet length, sequence, padding and payload
    // length; 8-9 object number, 10-11 offset; 12-13 replicated length (1-3).
    const size_t w[] = {0, 1, 2, 4};
    for (int c = 0; c < (1 << 14); ++c) {
        if ((c >> 12) == 0) continue;
        // Without a payload length field the payloads are empty.
        const size_t n = w[c >> 6 & 3] ? 5 : 0;
        const Packet p = {{media(1, 0, 5, 0, n), media(1, 0, 6, 0, n ? 6 : 0)}, uint8_t(1 | (c & 3) << 5 | (c >> 2 & 3) << 1 | (c >> 4 & 3) << 3),
                          uint8_t((c >> 8 & 3) << 4 | (c >> 10 & 3) << 2 | c >> 12), uint8_t(c >> 6 & 3)};
        const size_t packetHeader = 12 + w[c & 3] + w[c >> 2 & 3] + w[c >> 4 & 3];
        const size_t payloadHeader = 1 + w[c >> 8 & 3] + w[c >> 10 & 3] + w[c >> 12] + 8 + w[c >> 6 & 3];
        const size_t first = packetHeader + payloadHeader, second = first + n + payloadHeader;
        const std::string got = walk(new ASFParser(new MemorySource(file({p}, 100))));
        EXPECT_EQ(std::to_string(first) + "+" + std::to_string(n) + "/5", got.substr(9, got.find(' ', 9) - 9)) << c;
        EXPECT_NE(std::string::npos, got.find(" " + std::to_string(second) + "+" + std::to_string(n ? 6 : 0) + "/6")) << c << got;
    }
}

TEST_F(ASFPayloadTest, ShortReadsAreMalformed) {
    // Where in the packet the file is cut, and the line the failure names.
    const Packet normal = {{media(1, 0, 10, 0, 10)}}, compressed = {{{1, 0, {0}, subPayloads({5})}}};
    const struct { const Packet& packet; int64_t cut; int line; } kRows[] = {
        {normal, 0, 1257}, {normal, 3, 1272}, {normal, 5, 1285}, {normal, 11, 1304}, {normal, 12, 1314},
        {normal, 19, 1394}, {compressed, 19, 1335}, {compressed, 22, 1352}};
    for (const auto& row : kRows) {
        const Bytes bytes = file({row.packet}, 100);
        LogCapture log;
        sp<ASFParser> parser = new ASFParser(new FaultySource(bytes, FaultySource::kShortRead, bytes.size() - 100 + row.cut));
        EXPECT_EQ("-1007 @0 n0:", walk(parser)) << row.line;
        EXPECT_TRUE(log.contains("getPayload,line:" + std::to_string(row.line), 6)) << row.line;
    }
}

TEST_F(ASFPayloadTest, NearestTime) {
    const struct { std::vector<uint32_t> times; int64_t target; bool found; uint32_t cursor; } kRows[] = {
        {{}, 5, false, 7}, {{10, 20, 30}, 5, false, 0}, {{10, 20, 30}, 35, false, 2}, {{10, 20, 30}, 20, true, 1},
        {{10, 20, 30}, 14, true, 0}, {{10, 20, 30}, 16, true, 1}, {{10, 20, 30}, 15, true, 0}, {{30, 10}, 20, false, 0}};
    for (const auto& row : kRows) {
        AsfTrack track(1, 0);
        for (uint32_t t : row.times) track.append()->timeMs = t;
        track.cursor = 7;
        EXPECT_EQ(std::make_pair(row.found, row.cursor), std::make_pair(track.findNearestTime(row.target), track.cursor)) << row.target;
    }
}

TEST_F(ASFPayloadTest, FileFromFFmpeg) {
    // Every payload of every packet, reassembled into media objects per
    // stream: each object's time, size and (video) key flag against ffprobe's
    // packet list, which lists them in the same order per stream.
    sp<ASFParser> parser = new ASFParser(new PiecewiseSource(readFileBytes(testdataPath("asf_wmv2_wmav2.asf")), 7));
    std::map<std::string, std::string> want, got;
    for (const CsvRow& row : readTestdataCsv("asf_wmv2_wmav2.asf.packets.csv")) {
        want[row.at("stream_index")] += " " + row.at("pts") + "/" + row.at("size") + (row.at("codec_type") == "video" ? row.at("flags").substr(0, 1) : "");
    }
    for (uint32_t i = 0; i < 2; ++i) {
        PayloadEntry e;
        uint32_t objectBytes = 0;
        status_t err;
        while ((err = parser->getDataPacket(i, &e)) == OK) {
            objectBytes = (e.kind & PayloadEntry::kFirst ? 0 : objectBytes) + e.length;
            if (e.kind & PayloadEntry::kLast) got[std::to_string(i)] += " " + std::to_string(e.timeMs) + "/" + std::to_string(objectBytes) + (i == 0 ? (e.keyFrame ? "K" : "_") : "");
        }
        // The walk ends past the last packet.
        EXPECT_EQ(std::make_pair(want[std::to_string(i)], status_t(ERROR_MALFORMED)), std::make_pair(got[std::to_string(i)], err));
    }
    PayloadEntry e;
    EXPECT_EQ(ASFParser::kErrorOutOfRange, parser->getDataPacket(2, &e));
}

}  // namespace
