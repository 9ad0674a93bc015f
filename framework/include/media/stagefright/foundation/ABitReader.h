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

}  // namespace android

#endif
