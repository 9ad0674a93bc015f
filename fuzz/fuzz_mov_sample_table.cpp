// The MOV sample table and its iterator on untrusted sample-table boxes. The
// input is one byte of audio framing class, then boxes as an stbl holds them
// (32-bit size, type, payload); each sample-table box goes to its setter, then
// every query runs over a bounded set of samples, chunks and times.
#include <stdint.h>

#include "fuzz/ZIRKFuzzHarness.h"
#include "mov/ZIRKMOVSampleTable.h"

using namespace android;

namespace {

// Queries per kind: enough to cross chunk and table-entry boundaries many
// times without making one input slow.
constexpr uint32_t kMaxQueried = 512;

void feedBoxes(const sp<ZIRKMOVSampleTable>& table, const uint8_t* data, size_t size, size_t pos) {
    while (size - pos >= 8) {
        uint32_t boxSize = (uint32_t(data[pos]) << 24) | (data[pos + 1] << 16) | (data[pos + 2] << 8) | data[pos + 3];
        uint32_t type = (uint32_t(data[pos + 4]) << 24) | (data[pos + 5] << 16) | (data[pos + 6] << 8) | data[pos + 7];
        // A box claiming more than is left is handed what is left.
        uint64_t payload = boxSize < 8 ? 0 : boxSize - 8;
        if (payload > size - pos - 8) payload = size - pos - 8;
        off64_t at = static_cast<off64_t>(pos + 8);
        switch (type) {
            case 'stco': case 'co64': table->setChunkOffsetParams(type, at, payload); break;
            case 'stsc': table->setSampleToChunkParams(at, payload); break;
            case 'stsz': case 'stz2': table->setSampleSizeParams(type, at, payload); break;
            case 'stts': table->setTimeToSampleParams(at, payload); break;
            case 'ctts': table->setCompositionTimeToSampleParams(at, payload); break;
            case 'stss': table->setSyncSampleParams(at, payload); break;
            default: break;
        }
        pos += 8 + payload;
    }
}

void query(const sp<ZIRKMOVSampleTable>& table) {
    const uint32_t samples = table->countSamples();
    size_t maxSize;
    table->getMaxSampleSize(&maxSize);
    for (uint32_t i = 0; i < samples && i < kMaxQueried; ++i) {
        off64_t offset;
        size_t size;
        uint32_t time;
        bool sync;
        table->getMetaDataForSample(i, &offset, &size, &time, &sync);
    }
    for (uint32_t i : {samples - 1, samples, UINT32_MAX}) table->getMetaDataForSample(i, nullptr, nullptr, nullptr);
    for (int64_t t : {int64_t(-1), int64_t(0), int64_t(1), int64_t(1000), int64_t(90000), int64_t(UINT32_MAX), INT64_MAX}) {
        for (uint32_t flags : {0u, 1u, 2u}) {
            uint32_t index, chunkTime;
            table->findSampleAtTime(t, &index, flags);
            table->findChunkAtTime(t, &index, &chunkTime, flags);
        }
    }
    for (uint32_t start : {0u, samples / 2, samples - 1, samples}) {
        for (uint32_t flags : {0u, 1u, 2u}) {
            uint32_t index;
            table->findSyncSampleNear(start, &index, flags);
        }
    }
    uint32_t thumbnail;
    table->findThumbnailSample(&thumbnail);
    const uint32_t chunks = table->countChunkOffsets();
    for (uint32_t c = 0; c < chunks && c < kMaxQueried; ++c) {
        off64_t offset;
        size_t size;
        uint32_t time, inChunk;
        table->getMetaDataForChunk(c, &offset, &size, &time, &inChunk, 1 + (c & 1) * 1023, 1 + (c & 2) * 504);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::initHarness();
    if (size < 1) return 0;
    try {
        sp<ZIRKMOVSampleTable> table = new ZIRKMOVSampleTable(fuzz::makeFuzzSource(data, size));
        table->setAudioFormat(data[0] % 7);
        feedBoxes(table, data, size, 1);
        query(table);
    } catch (const fuzz::FatalCheck& check) {
        fuzz::noteFatalCheck(check);
    }
    return 0;
}
