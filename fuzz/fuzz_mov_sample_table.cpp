// The MOV sample table and its iterator on untrusted sample-table boxes. The
// input is one byte of audio framing class, then boxes as an stbl holds them
// (32-bit size, type, payload); each sample-table box goes to its setter, then
// every query runs over a bounded set of samples, chunks and times.
#include <stdint.h>

#include "fuzz/ZIRKFuzzHarness.h"
#include "fuzz/ZIRKFuzzMOVQueries.h"
#include "mov/ZIRKMOVSampleTable.h"

using namespace android;

namespace {

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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::initHarness();
    if (size < 1) return 0;
    try {
        sp<ZIRKMOVSampleTable> table = new ZIRKMOVSampleTable(fuzz::makeFuzzSource(data, size));
        table->setAudioFormat(data[0] % 7);
        feedBoxes(table, data, size, 1);
        fuzz::querySampleTable(table);
    } catch (const fuzz::FatalCheck& check) {
        fuzz::noteFatalCheck(check);
    }
    return 0;
}
