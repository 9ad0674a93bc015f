// SortedVector<T>: items kept in ascending order of operator<; add() of an
// item equal to one already present replaces it. Not thread-safe.
#ifndef ANDROID_SORTED_VECTOR_H
#define ANDROID_SORTED_VECTOR_H

#include <stddef.h>
#include <sys/types.h>

#include <algorithm>
#include <new>
#include <stdexcept>
#include <vector>

#include <utils/Errors.h>

namespace android {

template <typename T>
class SortedVector {
public:
    SortedVector() = default;

    size_t size() const { return mItems.size(); }
    bool isEmpty() const { return mItems.empty(); }
    void clear() { mItems.clear(); }

    ssize_t setCapacity(size_t size) {
        try {
            mItems.reserve(size);
        } catch (const std::bad_alloc&) {
            return NO_MEMORY;
        } catch (const std::length_error&) {
            return NO_MEMORY;
        }
        return static_cast<ssize_t>(mItems.capacity());
    }

    const T* array() const { return mItems.data(); }
    const T& operator[](size_t i) const { return mItems[i]; }
    const T& itemAt(size_t i) const { return mItems[i]; }

    // Index of the item equal to `item`, or NAME_NOT_FOUND.
    ssize_t indexOf(const T& item) const {
        auto it = std::lower_bound(mItems.begin(), mItems.end(), item);
        if (it == mItems.end() || item < *it) return NAME_NOT_FOUND;
        return static_cast<ssize_t>(it - mItems.begin());
    }

    // Position at which `item` is or would be inserted.
    size_t orderOf(const T& item) const {
        return static_cast<size_t>(std::lower_bound(mItems.begin(), mItems.end(), item) - mItems.begin());
    }

    // Inserts in order, replacing an equal item; returns its index or NO_MEMORY.
    ssize_t add(const T& item) {
        // Tables are mostly built in order: appending is the common case.
        if (mItems.empty() || mItems.back() < item) {
            try {
                mItems.push_back(item);
            } catch (const std::bad_alloc&) {
                return NO_MEMORY;
            }
            return static_cast<ssize_t>(mItems.size() - 1);
        }
        auto it = std::lower_bound(mItems.begin(), mItems.end(), item);
        if (it != mItems.end() && !(item < *it)) {
            *it = item;
            return static_cast<ssize_t>(it - mItems.begin());
        }
        size_t index = static_cast<size_t>(it - mItems.begin());
        try {
            mItems.insert(it, item);
        } catch (const std::bad_alloc&) {
            return NO_MEMORY;
        }
        return static_cast<ssize_t>(index);
    }

    ssize_t remove(const T& item) {
        ssize_t i = indexOf(item);
        if (i >= 0) mItems.erase(mItems.begin() + i);
        return i;
    }

    ssize_t removeAt(size_t index) {
        if (index >= mItems.size()) return NAME_NOT_FOUND;
        mItems.erase(mItems.begin() + index);
        return static_cast<ssize_t>(index);
    }

private:
    std::vector<T> mItems;
};

}  // namespace android

#endif
