// ABitReader: MSB-first bit reader over caller memory, which must outlive it.
//
// Reading past the end never touches memory outside the array: the missing
// bits read as zero and overRead() turns true (the platform aborts there;
// this library must not). getBitsGraceful reports the same condition as
// false without consuming anything. Not thread-safe.
#ifndef A_BIT_READER_H_
#define A_BIT_READER_H_

#include <stddef.h>
#include <stdint.h>

namespace android {

struct ABitReader {
    ABitReader(const uint8_t* data, size_t size);

    // n in 0..32.
    uint32_t getBits(size_t n);
    bool getBitsGraceful(size_t n, uint32_t* out);
    void skipBits(size_t n);

    size_t numBitsLeft() const { return mNumBitsLeft; }
    bool overRead() const { return mOverRead; }
    // The byte the next bit comes from (or one past the end).
    const uint8_t* data() const;

private:
    const uint8_t* mData;
    size_t mSize;
    size_t mNumBitsLeft;
    bool mOverRead;
};

// Inline: tag and header parsers call these a few times per sample.
inline bool ABitReader::getBitsGraceful(size_t n, uint32_t* out) {
    if (n > 32 || n > mNumBitsLeft) return false;
    uint64_t result = 0;
    size_t bitPos = mSize * 8 - mNumBitsLeft;
    size_t want = n;
    while (want > 0) {
        const size_t avail = 8 - (bitPos & 7);
        const size_t take = want < avail ? want : avail;
        const uint32_t bits = (mData[bitPos >> 3] >> (avail - take)) & ((1u << take) - 1);
        result = (result << take) | bits;
        want -= take;
        bitPos += take;
    }
    mNumBitsLeft -= n;
    *out = static_cast<uint32_t>(result);
    return true;
}

inline uint32_t ABitReader::getBits(size_t n) {
    if (n > 32) n = 32;
    uint32_t result = 0;
    if (getBitsGraceful(n, &result)) return result;
    // Short of bits: take what is left, pad with zeros.
    size_t have = mNumBitsLeft;
    getBitsGraceful(have, &result);
    mOverRead = true;
    return n - have >= 32 ? 0 : result << (n - have);
}

}  // namespace android

#endif
