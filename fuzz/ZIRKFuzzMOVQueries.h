// Every query of a MOV sample table over a bounded set of samples, chunks,
// times and sync positions, for the fuzz targets that build tables.
#ifndef ZIRK_FUZZ_MOV_QUERIES_H_
#define ZIRK_FUZZ_MOV_QUERIES_H_

#include <stdint.h>

#include "mov/ZIRKMOVSampleTable.h"

namespace android {
namespace fuzz {

// Queries per kind: enough to cross chunk and table-entry boundaries many
// times without making one input slow.
constexpr uint32_t kMaxQueried = 512;

inline void querySampleTable(const sp<ZIRKMOVSampleTable>& table) {
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

}  // namespace fuzz
}  // namespace android

#endif
