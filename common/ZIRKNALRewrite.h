// Rewriting of length-prefixed H.264 NAL units ('avcC' framing, 1-4 byte
// big-endian lengths) into Annex-B start-code framing (00 00 00 01). The one
// implementation behind every container's AVC samples; the containers differ
// only in the options below. Stateless and thread-safe.
#ifndef ZIRK_NAL_REWRITE_H_
#define ZIRK_NAL_REWRITE_H_

#include <stddef.h>
#include <stdint.h>

namespace android {

// What happens to a unit whose length claims more bytes than are left.
enum class ZIRKNALOverrun : uint8_t {
    kClamp,  // the unit is cut at the end of the input and is the last one
    kStop,   // its length field still becomes a start code, then the walk ends:
             // its payload and what follows are not rewritten
};

struct ZIRKNALRewriteOptions {
    size_t lengthSize = 4;  // bytes of each length field, 1-4
    ZIRKNALOverrun overrun = ZIRKNALOverrun::kClamp;
    // Input already in start-code form (00 00 00 01) from a unit on ends the walk there.
    bool stopAtStartCode = false;
    // A length field with no byte after it ends the walk instead of being rewritten.
    bool stopWithoutPayload = false;
    // A length field cut short by the end of the input is handed out as a
    // unit of its own bytes (a start code, then those bytes) instead of being
    // dropped.
    bool cutLengthIsUnit = false;
};

struct ZIRKNALRewriteResult {
    size_t written = 0;         // bytes of output
    size_t consumed = 0;        // bytes of input walked (length fields and payloads)
    size_t units = 0;           // start codes written
    uint64_t overrunBytes = 0;  // bytes that a length, or a cut length field, claims past the input
    // The unit that overran (at most one: the walk ends there): where its
    // payload begins (where a cut length field begins) and the length it
    // claims (0 for a cut field). For the callers' warnings.
    size_t overrunAt = 0;
    uint64_t overrunLength = 0;
    bool cutUnit = false;  // a cut length field was handed out as a unit
};

// Rewrites src into dst, which must not overlap it. A null dst (capacity 0)
// only measures. Returns false when lengthSize is not 1-4, when the buffers
// overlap, or when dst ran out of room; the whole units written before that
// are valid and counted in result.
bool ZIRKRewriteNALLengths(const uint8_t* src, size_t srcSize, uint8_t* dst, size_t dstCapacity,
                           const ZIRKNALRewriteOptions& options, ZIRKNALRewriteResult* result);

// Rewrites buffer[inOffset, inOffset + inLength) into the same buffer from
// its start. With 4-byte lengths the output replaces the input in place;
// shorter lengths make each unit grow by 4 - lengthSize bytes, so the input
// must lie that far into the buffer for all of them. The units are measured
// first: when they would not fit (or the range is outside the buffer, or
// lengthSize is not 1-4), nothing is written, result holds the measurement,
// and the call returns false.
bool ZIRKRewriteNALLengthsInBuffer(uint8_t* buffer, size_t capacity, size_t inOffset, size_t inLength,
                                   const ZIRKNALRewriteOptions& options, ZIRKNALRewriteResult* result);

}  // namespace android

#endif
