#include "common/ZIRKNALRewrite.h"

#include <string.h>

namespace android {

namespace {
const uint8_t kStartCode[4] = {0, 0, 0, 1};
}  // namespace

bool ZIRKRewriteNALLengths(const uint8_t* src, size_t srcSize, size_t nalLengthSize, uint8_t* dst,
                           size_t dstCapacity, ZIRKNALRewriteResult* result) {
    *result = ZIRKNALRewriteResult();
    if (nalLengthSize < 1 || nalLengthSize > 4) return false;
    const bool inPlace = dst == src;
    if (inPlace && nalLengthSize != 4) return false;

    size_t in = 0;
    size_t out = 0;
    while (in < srcSize) {
        if (srcSize - in < nalLengthSize) {
            result->truncated = true;
            break;
        }
        size_t length = 0;
        for (size_t i = 0; i < nalLengthSize; ++i) length = (length << 8) | src[in + i];
        in += nalLengthSize;
        if (length > srcSize - in) {
            length = srcSize - in;
            result->clamped = true;
        }
        if (dstCapacity - out < 4 || dstCapacity - out - 4 < length) {
            result->written = out;
            result->consumed = in - nalLengthSize;
            return false;
        }
        memcpy(dst + out, kStartCode, 4);
        if (!inPlace) memcpy(dst + out + 4, src + in, length);
        out += 4 + length;
        in += length;
    }
    result->written = out;
    result->consumed = in;
    return true;
}

}  // namespace android
