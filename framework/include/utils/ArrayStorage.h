// Storage behind Vector<T> and SortedVector<T>; not part of the platform's
// interface. Failures are reported as false, never thrown (a copy that cannot
// be allocated comes out empty). Not thread-safe.
//
// Trivially copyable items (sample tables: offsets, times, sizes) live in one
// malloc'd block grown with realloc. Large blocks are then moved by remapping
// their pages instead of being copied and faulted in again at every doubling,
// which is most of the cost of building a table of a few hundred thousand
// entries. Other items use std::vector.
#ifndef ANDROID_ARRAY_STORAGE_H
#define ANDROID_ARRAY_STORAGE_H

#include <stddef.h>
#include <stdlib.h>
#include <string.h>

#include <new>
#include <stdexcept>
#include <type_traits>
#include <utility>
#include <vector>

namespace android {
namespace detail {

template <typename T>
class ReallocArray {
public:
    ReallocArray() = default;
    ReallocArray(const ReallocArray& other) { copyFrom(other); }
    ReallocArray(ReallocArray&& other) noexcept { swap(other); }
    ReallocArray& operator=(const ReallocArray& other) {
        if (this != &other) {
            clear();
            copyFrom(other);
        }
        return *this;
    }
    ReallocArray& operator=(ReallocArray&& other) noexcept {
        swap(other);
        return *this;
    }
    ~ReallocArray() { free(mData); }

    size_t size() const { return mSize; }
    size_t capacity() const { return mCapacity; }
    T* data() { return mData; }
    const T* data() const { return mData; }

    bool reserve(size_t n) {
        if (n <= mCapacity) return true;
        if (n > kMaxItems) return false;
        T* grown = static_cast<T*>(realloc(mData, n * sizeof(T)));
        if (grown == nullptr) return false;
        mData = grown;
        mCapacity = n;
        return true;
    }

    bool insert(size_t index, const T& item) {
        if (index > mSize) return false;
        if (mSize == mCapacity) {
            if (mSize == kMaxItems) return false;
            // Doubling; the item may live in this array, so it is copied first.
            const T copy = item;
            const size_t want = mSize < kMaxItems / 2 ? (mSize < 8 ? 8 : mSize * 2) : kMaxItems;
            if (!reserve(want)) return false;
            return insertWithRoom(index, copy);
        }
        return insertWithRoom(index, item);
    }

    // The caller keeps index + count <= size().
    void erase(size_t index, size_t count) {
        memmove(mData + index, mData + index + count, (mSize - index - count) * sizeof(T));
        mSize -= count;
    }

    void clear() { mSize = 0; }

private:
    static_assert(std::is_trivially_copyable<T>::value, "items must be trivially copyable");
    // So that a byte count never overflows size_t (and ssize_t indexes stay positive).
    static constexpr size_t kMaxItems = (static_cast<size_t>(-1) >> 1) / sizeof(T);

    bool insertWithRoom(size_t index, const T& item) {
        memmove(mData + index + 1, mData + index, (mSize - index) * sizeof(T));
        memcpy(static_cast<void*>(mData + index), &item, sizeof(T));
        ++mSize;
        return true;
    }

    void copyFrom(const ReallocArray& other) {
        if (other.mSize == 0 || !reserve(other.mSize)) return;
        memcpy(static_cast<void*>(mData), other.mData, other.mSize * sizeof(T));
        mSize = other.mSize;
    }

    void swap(ReallocArray& other) noexcept {
        std::swap(mData, other.mData);
        std::swap(mSize, other.mSize);
        std::swap(mCapacity, other.mCapacity);
    }

    T* mData = nullptr;
    size_t mSize = 0;
    size_t mCapacity = 0;
};

template <typename T>
class StdArray {
public:
    size_t size() const { return mItems.size(); }
    size_t capacity() const { return mItems.capacity(); }
    T* data() { return mItems.data(); }
    const T* data() const { return mItems.data(); }

    bool reserve(size_t n) {
        try {
            mItems.reserve(n);
        } catch (const std::bad_alloc&) {
            return false;
        } catch (const std::length_error&) {
            return false;
        }
        return true;
    }

    bool insert(size_t index, const T& item) {
        if (index > mItems.size()) return false;
        try {
            mItems.insert(mItems.begin() + index, item);
        } catch (const std::bad_alloc&) {
            return false;
        } catch (const std::length_error&) {
            return false;
        }
        return true;
    }

    void erase(size_t index, size_t count) {
        mItems.erase(mItems.begin() + index, mItems.begin() + index + count);
    }

    void clear() { mItems.clear(); }

private:
    std::vector<T> mItems;
};

template <typename T>
using ArrayStorage =
        typename std::conditional<std::is_trivially_copyable<T>::value, ReallocArray<T>, StdArray<T>>::type;

}  // namespace detail
}  // namespace android

#endif
