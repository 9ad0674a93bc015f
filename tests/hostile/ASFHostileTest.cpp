// ASF files with hostile sizes and counts, one row per hostile construct
// (see HostileRow.h); the background audio index is built and sought too.
#include "ASFBuilder.h"
#include "HostileRow.h"

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
// A packet whose second payload claims `length` and `replicatedLength`.
Packet lying(Size length, Size replicatedLength) {
    Packet p = two(0);
    p.payloads[1].length = length;
    p.payloads[1].replicatedLength = replicatedLength;
    return p;
}
Bytes withHeaderSize(uint64_t size) {
    Bytes b = movie(packets(2));
    setLE64(&b, 16, size);
    return b;
}

std::vector<HostileRow> rows() {
    // A 16-bit packet length of 0 (the slot, 200 bytes); 16-bit padding longer than the packet.
    Packet noLength = two(0), padded = two(0);
    noLength.lengthType |= 0x40;
    noLength.packetLength = 0;
    padded.lengthType |= 0x10;
    padded.padding = 5000;
    return {
        {"control", movie(packets(4)), 2, 0, 4, kEOS},
        // Object sizes below a header, past the file, wrapping 64 bits. (A
        // header claiming more than the file still has its children read up
        // to the file's end.)
        {"header_size_past_file", withHeaderSize(1ull << 40), 2, 0, 0, kEOS},
        {"header_size_wraps", withHeaderSize(~0ull - 8)},
        {"data_object_size_10", joined({asf::header({fileProps(1, 0, 200), streamProps(kGuidAudioMedia, 1, wav(1))}),
                                        dataObject(10)}), 1, 0, 0, kEOS},
        // Payload, replicated-data and packet lengths past what holds them.
        {"payload_length_past_packet", movie({two(0), lying(60000, {}), two(200)}), 2, 0, 3, kEOS},
        {"replicated_length_past_payload", movie({two(0), lying({}, 250), two(200)}), 2, 0, 3, kEOS},
        {"packet_length_0", movie({noLength, two(100)}), 2, 0, 2, kEOS},
        {"padding_past_packet", movie({padded, two(100)}), 2, 0, 1, kEOS},
        {"max_packet_size_0", movie(packets(3), {}, 0), 2, 0, 0, kEOS},
        // Index counts no object could hold.
        {"index_entries_2_32", movie(packets(3), indexObject({2}, {{{0}, {0, 1, 2}, 0xFFFFFFFF}})), 2, 0, 3, kEOS},
        {"index_blocks_2_32", movie(packets(3), indexObject({2}, {{{0}, {0, 1}}}, 0xFFFFFFFF)), 2, 0, 3, kEOS},
        {"simple_index_entries_2_32", movie(packets(3), simpleIndex({0, 1, 2}, 0xFFFFFFFF)), 2, 0, 3, kEOS},
        {"index_points_past_data", movie(packets(3), simpleIndex({0, 1000000, 7})), 2, 0, 3, kEOS},
        // The stream limit: the 101st stream ends the parse; the 100 before it are offered.
        {"streams_101", movie(packets(1), {}, 200, streams(99)), 100, 0, 0, kEOS},
    };
}

ZIRK_HOSTILE_SUITE(ASFHostileTest, MEDIA_MIMETYPE_CONTAINER_ASF, rows);

}  // namespace
