#include "common/ZIRKNALRewrite.h"

#include <string.h>

#include <functional>

namespace android {

namespace {

const uint8_t kStartCode[4] = {0, 0, 0, 1};

bool validLengthSize(size_t lengthSize) { return lengthSize >= 1 && lengthSize <= 4; }

// The walk shared by both entry points. dst == nullptr measures only. When
// dst lies in front of src in one buffer, the caller has made sure that the
// output never passes unread input: each length is read before its start
// code is written, and payloads move with memmove.
bool walkUnits(const uint8_t* src, size_t srcSize, uint8_t* dst, size_t dstCapacity,
               const ZIRKNALRewriteOptions& o, ZIRKNALRewriteResult* r) {
    const size_t n = o.lengthSize;
    size_t in = 0;
    size_t out = 0;
    bool ok = true;
    while (in < srcSize) {
        const size_t left = srcSize - in;
        if (o.stopAtStartCode && left >= 4 && memcmp(src + in, kStartCode, 4) == 0) break;
        if (left < n) {
            r->overrunBytes += n - left;
            r->overrunAt = in;
            r->overrunLength = 0;
            if (!o.cutLengthIsUnit) break;
            if (dst != nullptr) {
                if (dstCapacity - out < 4 || dstCapacity - out - 4 < left) {
                    ok = false;
                    break;
                }
                memcpy(dst + out, kStartCode, 4);
                memmove(dst + out + 4, src + in, left);
            }
            out += 4 + left;
            in = srcSize;
            ++r->units;
            r->cutUnit = true;
            break;
        }
        if (o.stopWithoutPayload && left == n) break;
        uint64_t length = 0;
        for (size_t i = 0; i < n; ++i) length = (length << 8) | src[in + i];
        const size_t available = left - n;
        const bool overruns = length > available;
        if (overruns) {
            r->overrunBytes += length - available;
            r->overrunAt = in + n;
            r->overrunLength = length;
        }
        const size_t take = !overruns ? static_cast<size_t>(length)
                                      : (o.overrun == ZIRKNALOverrun::kClamp ? available : 0);
        if (dst != nullptr) {
            if (dstCapacity - out < 4 || dstCapacity - out - 4 < take) {
                ok = false;
                break;
            }
            memcpy(dst + out, kStartCode, 4);
            if (take > 0 && dst + out + 4 != src + in + n) memmove(dst + out + 4, src + in + n, take);
        }
        out += 4 + take;
        in += n + take;
        ++r->units;
        if (overruns) break;
    }
    r->written = out;
    r->consumed = in;
    return ok;
}

}  // namespace

bool ZIRKRewriteNALLengths(const uint8_t* src, size_t srcSize, uint8_t* dst, size_t dstCapacity,
                           const ZIRKNALRewriteOptions& options, ZIRKNALRewriteResult* result) {
    *result = ZIRKNALRewriteResult();
    if (!validLengthSize(options.lengthSize)) return false;
    if (dst == nullptr) dstCapacity = 0;
    const std::less<const uint8_t*> before;
    if (dstCapacity > 0 && srcSize > 0 && before(dst, src + srcSize) && before(src, dst + dstCapacity)) {
        return false;
    }
    return walkUnits(src, srcSize, dst, dstCapacity, options, result);
}

bool ZIRKRewriteNALLengthsInBuffer(uint8_t* buffer, size_t capacity, size_t inOffset, size_t inLength,
                                   const ZIRKNALRewriteOptions& options, ZIRKNALRewriteResult* result) {
    *result = ZIRKNALRewriteResult();
    if (!validLengthSize(options.lengthSize) || inOffset > capacity || inLength > capacity - inOffset) {
        return false;
    }
    uint8_t* src = buffer + inOffset;
    walkUnits(src, inLength, nullptr, 0, options, result);
    // The output runs ahead by 4 - lengthSize bytes a unit; all of that must
    // fit in front of the input (units <= inLength, so no overflow).
    // (A cut length field handed out as a unit grows by 4.)
    const uint64_t growth = static_cast<uint64_t>(result->units) * (4 - options.lengthSize) +
                            (result->cutUnit ? options.lengthSize : 0);
    if (growth > inOffset) return false;
    *result = ZIRKNALRewriteResult();
    return walkUnits(src, inLength, buffer, capacity, options, result);
}

}  // namespace android
