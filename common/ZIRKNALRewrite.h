// Rewriting of length-prefixed H.264 NAL units ('avcC' framing, 1-4 byte
// big-endian lengths) into Annex-B start-code framing (00 00 00 01).
#ifndef ZIRK_NAL_REWRITE_H_
#define ZIRK_NAL_REWRITE_H_

#include <stddef.h>
#include <stdint.h>

namespace android {

struct ZIRKNALRewriteResult {
    size_t written = 0;     // bytes written to dst
    size_t consumed = 0;    // bytes of src walked (length fields and payloads)
    bool clamped = false;   // a length claimed more than was left; its unit was cut to what was left
    bool truncated = false; // fewer than nalLengthSize bytes were left for a length field
};

// Walks src as [length][payload]... and writes 00 00 00 01 + payload for each
// unit into dst. A length that claims more than the bytes left is clamped to
// them (result.clamped). The walk stops at the end of src, when fewer than
// nalLengthSize bytes remain (result.truncated), or when dst is full.
//
// dst may equal src only when nalLengthSize is 4 (the output is then the
// same size as the input and the rewrite is done in place). Returns false
// when nalLengthSize is not 1-4, when dst == src with a shorter length field,
// or when dst had no room for everything; the bytes written so far are valid.
bool ZIRKRewriteNALLengths(const uint8_t* src, size_t srcSize, size_t nalLengthSize, uint8_t* dst,
                           size_t dstCapacity, ZIRKNALRewriteResult* result);

}  // namespace android

#endif
