// ASF files with hostile sizes and counts, through the entry points as the
// framework would use them (the Windows Media property set): every track
// read and sought in the four modes, the background audio index included.
// Each row must end without a fatal check, crash or sanitizer report, with
// the tracks it pins.
#include <ostream>
#include <string>

#include <gtest/gtest.h>

#include <cutils/properties.h>
#include <media/stagefright/MediaDefs.h>

#include "ASFBuilder.h"
#include "TestDataSources.h"
#include "fuzz/ZIRKFuzzHarness.h"

using namespace android;
using namespace android::test;
using namespace android::test::asf;

namespace {

// One PCM and one H.264 stream (shown without the property too) in 200-byte
// packets of a payload each; `tail` after the data object.
Bytes movie(const std::vector<Packet>& packets, const Bytes& tail = {}, uint32_t maxPacket = 200,
            const std::vector<Bytes>& extraStreams = {}) {
    Bytes data;
    for (const Packet& p : packets) append(&data, packet(p, 200));
    std::vector<Bytes> header = {fileProps(20000000, 0, maxPacket, packets.size()),
                                 streamProps(kGuidAudioMedia, 1, wav(1)),
                                 streamProps(kGuidVideoMedia, 2, bih("H264", 64, 48))};
    header.insert(header.end(), extraStreams.begin(), extraStreams.end());
    return joined({asf::header(header), dataObject({}, data), tail});
}
Packet two(uint32_t t) {
    return {{{1, 0, replicated(10, t), Bytes(10, 1)}, {0x82, 0, replicated(20, t), Bytes(20, 2)}}};
}
std::vector<Packet> packets(int n) {
    std::vector<Packet> v;
    for (int i = 0; i < n; ++i) v.push_back(two(100 * i));
    return v;
}
std::vector<Bytes> streams(int n) {
    std::vector<Bytes> v;
    for (int i = 0; i < n; ++i) v.push_back(streamProps(kGuidAudioMedia, 3 + i % 120, wav(1)));
    return v;
}

struct Row {
    const char* name;
    Bytes bytes;
    size_t tracks;
};
void PrintTo(const Row& row, std::ostream* os) { *os << row.name; }

class ASFHostileTest : public ::testing::TestWithParam<Row> {};

TEST_P(ASFHostileTest, ReadsEndCleanly) {
    property_set("media.tamelordecode.supportwmva", "1");
    const fuzz::RunOutcome run = fuzz::runExtractor(new MemorySource(GetParam().bytes), MEDIA_MIMETYPE_CONTAINER_ASF);
    property_set("media.tamelordecode.supportwmva", "0");
    EXPECT_EQ(run.fatal, "");
    EXPECT_EQ(run.tracks, GetParam().tracks);
}

Packet lying(Size length, Size replicatedLength) {
    Packet p = two(0);
    p.payloads[1].length = length;
    p.payloads[1].replicatedLength = replicatedLength;
    return p;
}

INSTANTIATE_TEST_SUITE_P(Rows, ASFHostileTest, ::testing::Values(
    Row{"control", movie(packets(4)), 2},
    // Object sizes below a header, past the file, wrapping 64 bits.
    // (A header claiming more than the file still has its children read up to the file's end.)
    Row{"header_size_past_file", [] { Bytes b = movie(packets(2)); setLE64(&b, 16, 1ull << 40); return b; }(), 2},
    Row{"header_size_wraps", [] { Bytes b = movie(packets(2)); setLE64(&b, 16, ~0ull - 8); return b; }(), 0},
    Row{"data_object_size_10", joined({asf::header({fileProps(1, 0, 200), streamProps(kGuidAudioMedia, 1, wav(1))}),
                                       dataObject(10)}), 1},
    // Payload, replicated-data and packet lengths past what holds them.
    Row{"payload_length_past_packet", movie({two(0), lying(60000, {}), two(200)}), 2},
    Row{"replicated_length_past_payload", movie({two(0), lying({}, 250), two(200)}), 2},
    Row{"packet_length_0", [] { Packet p = two(0); p.packetLength = 0; return movie({p, two(100)}); }(), 2},
    Row{"padding_past_packet", [] { Packet p = two(0); p.padding = 5000; return movie({p, two(100)}); }(), 2},
    Row{"max_packet_size_0", movie(packets(3), {}, 0), 2},
    // Index counts no object could hold.
    Row{"index_entries_2_32", movie(packets(3), indexObject({2}, {{{0}, {0, 1, 2}, 0xFFFFFFFF}})), 2},
    Row{"index_blocks_2_32", movie(packets(3), indexObject({2}, {{{0}, {0, 1}}}, 0xFFFFFFFF)), 2},
    Row{"simple_index_entries_2_32", movie(packets(3), simpleIndex({0, 1, 2}, 0xFFFFFFFF)), 2},
    Row{"index_points_past_data", movie(packets(3), simpleIndex({0, 1000000, 7})), 2},
    // The stream limit: the 101st stream ends the parse; the 100 before it are offered.
    Row{"streams_101", movie(packets(1), {}, 200, streams(99)), 100}),
    [](const ::testing::TestParamInfo<Row>& info) { return std::string(info.param.name); });

}  // namespace
