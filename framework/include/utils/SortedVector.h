// SortedVector<T>: items kept in ascending order of operator<; add() of an
// item equal to one already present replaces it. Allocation failures are
// reported as NO_MEMORY rather than thrown. Not thread-safe.
#ifndef ANDROID_SORTED_VECTOR_H
#define ANDROID_SORTED_VECTOR_H

#include <stddef.h>
#include <sys/types.h>

#include <algorithm>

#include <utils/ArrayStorage.h>
#include <utils/Errors.h>

namespace android {

template <typename T>
class SortedVector {
public:
    SortedVector() = default;

    size_t size() const { return mItems.size(); }
    bool isEmpty() const { return mItems.size() == 0; }
    void clear() { mItems.clear(); }

    ssize_t setCapacity(size_t size) {
        if (!mItems.reserve(size)) return NO_MEMORY;
        return static_cast<ssize_t>(mItems.capacity());
    }

    const T* array() const { return mItems.data(); }
    const T& operator[](size_t i) const { return mItems.data()[i]; }
    const T& itemAt(size_t i) const { return mItems.data()[i]; }

    // Index of the item equal to `item`, or NAME_NOT_FOUND.
    ssize_t indexOf(const T& item) const {
        const T* it = std::lower_bound(begin(), end(), item);
        if (it == end() || item < *it) return NAME_NOT_FOUND;
        return static_cast<ssize_t>(it - begin());
    }

    // Position at which `item` is or would be inserted.
    size_t orderOf(const T& item) const { return static_cast<size_t>(std::lower_bound(begin(), end(), item) - begin()); }

    // Inserts in order, replacing an equal item; returns its index or NO_MEMORY.
    ssize_t add(const T& item) {
        const size_t count = mItems.size();
        // Tables are mostly built in order: appending is the common case.
        if (count == 0 || mItems.data()[count - 1] < item) {
            if (!mItems.insert(count, item)) return NO_MEMORY;
            return static_cast<ssize_t>(count);
        }
        const size_t index = orderOf(item);
        if (index < count && !(item < mItems.data()[index])) {
            mItems.data()[index] = item;
            return static_cast<ssize_t>(index);
        }
        if (!mItems.insert(index, item)) return NO_MEMORY;
        return static_cast<ssize_t>(index);
    }

    ssize_t remove(const T& item) {
        ssize_t i = indexOf(item);
        if (i >= 0) mItems.erase(static_cast<size_t>(i), 1);
        return i;
    }

    ssize_t removeAt(size_t index) {
        if (index >= mItems.size()) return NAME_NOT_FOUND;
        mItems.erase(index, 1);
        return static_cast<ssize_t>(index);
    }

private:
    const T* begin() const { return mItems.data(); }
    const T* end() const { return mItems.data() + mItems.size(); }

    detail::ArrayStorage<T> mItems;
};

}  // namespace android

#endif
