// ZIRKByteReader: the bounds-checked cursor every parser reads untrusted
// bytes through. It views caller memory (which must outlive it) and never
// reads outside [data, data + size). Every read returns false, without
// moving, when the bytes are not all there. Not thread-safe; cheap to copy.
#ifndef ZIRK_BYTE_READER_H_
#define ZIRK_BYTE_READER_H_

#include <stddef.h>
#include <stdint.h>
#include <string.h>

namespace android {

class ZIRKByteReader {
public:
    ZIRKByteReader() : mData(nullptr), mSize(0), mPos(0) {}
    ZIRKByteReader(const void* data, size_t size)
        : mData(static_cast<const uint8_t*>(data)), mSize(data ? size : 0), mPos(0) {}

    size_t size() const { return mSize; }
    size_t position() const { return mPos; }
    size_t remaining() const { return mSize - mPos; }
    bool atEnd() const { return mPos == mSize; }
    // Pointer to the next unread byte (valid for remaining() bytes).
    const uint8_t* current() const { return mData + mPos; }

    bool skip(size_t n) {
        if (n > remaining()) return false;
        mPos += n;
        return true;
    }
    bool seek(size_t pos) {
        if (pos > mSize) return false;
        mPos = pos;
        return true;
    }

    bool readBytes(void* out, size_t n) {
        if (n > remaining()) return false;
        if (n) memcpy(out, mData + mPos, n);
        mPos += n;
        return true;
    }

    // A reader over the next n bytes, which this one then skips.
    bool subReader(size_t n, ZIRKByteReader* out) {
        if (n > remaining()) return false;
        *out = ZIRKByteReader(mData + mPos, n);
        mPos += n;
        return true;
    }
    // Like subReader, but clamped to what is left: for a child whose declared
    // size overruns its parent, when the caller tolerates that.
    ZIRKByteReader clampedSubReader(size_t n) {
        size_t take = n <= remaining() ? n : remaining();
        ZIRKByteReader r(mData + mPos, take);
        mPos += take;
        return r;
    }

    bool readU8(uint8_t* v) { return readBE(1, v); }
    bool readBE16(uint16_t* v) { return readBE(2, v); }
    bool readBE24(uint32_t* v) { return readBE(3, v); }
    bool readBE32(uint32_t* v) { return readBE(4, v); }
    bool readBE64(uint64_t* v) { return readBE(8, v); }
    bool readLE16(uint16_t* v) { return readLE(2, v); }
    bool readLE32(uint32_t* v) { return readLE(4, v); }
    bool readLE64(uint64_t* v) { return readLE(8, v); }

    bool peekU8(uint8_t* v) const {
        if (remaining() < 1) return false;
        *v = mData[mPos];
        return true;
    }

private:
    template <typename T>
    bool readBE(size_t n, T* v) {
        if (n > remaining()) return false;
        uint64_t x = 0;
        for (size_t i = 0; i < n; ++i) x = (x << 8) | mData[mPos + i];
        mPos += n;
        *v = static_cast<T>(x);
        return true;
    }
    template <typename T>
    bool readLE(size_t n, T* v) {
        if (n > remaining()) return false;
        uint64_t x = 0;
        for (size_t i = n; i > 0; --i) x = (x << 8) | mData[mPos + i - 1];
        mPos += n;
        *v = static_cast<T>(x);
        return true;
    }

    const uint8_t* mData;
    size_t mSize;
    size_t mPos;
};

}  // namespace android

#endif
