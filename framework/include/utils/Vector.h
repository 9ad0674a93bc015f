// Vector<T>: the platform's growable array. Allocation failures are reported
// as NO_MEMORY (add/insertAt return a negative index, setCapacity the status)
// rather than thrown. Not thread-safe.
#ifndef ANDROID_VECTOR_H
#define ANDROID_VECTOR_H

#include <stddef.h>
#include <sys/types.h>

#include <algorithm>

#include <utils/ArrayStorage.h>
#include <utils/Errors.h>

namespace android {

template <typename T>
class Vector {
public:
    Vector() = default;

    size_t size() const { return mItems.size(); }
    bool isEmpty() const { return mItems.size() == 0; }
    size_t capacity() const { return mItems.capacity(); }

    // Reserves room for `size` items; returns the new capacity or NO_MEMORY.
    ssize_t setCapacity(size_t size) {
        if (!mItems.reserve(size)) return NO_MEMORY;
        return static_cast<ssize_t>(mItems.capacity());
    }

    const T* array() const { return mItems.data(); }
    T* editArray() { return mItems.data(); }

    const T& operator[](size_t i) const { return mItems.data()[i]; }
    const T& itemAt(size_t i) const { return mItems.data()[i]; }
    T& editItemAt(size_t i) { return mItems.data()[i]; }
    const T& top() const { return mItems.data()[mItems.size() - 1]; }
    T& editTop() { return mItems.data()[mItems.size() - 1]; }

    // Appends; returns the new item's index or NO_MEMORY.
    ssize_t add(const T& item) { return insertAt(item, mItems.size()); }
    ssize_t push_back(const T& item) { return add(item); }
    void push(const T& item) { add(item); }
    void pop() {
        if (mItems.size() > 0) mItems.erase(mItems.size() - 1, 1);
    }

    ssize_t insertAt(const T& item, size_t index) {
        if (index > mItems.size()) return NO_MEMORY;
        if (!mItems.insert(index, item)) return NO_MEMORY;
        return static_cast<ssize_t>(index);
    }

    ssize_t replaceAt(const T& item, size_t index) {
        if (index >= mItems.size()) return NO_MEMORY;
        mItems.data()[index] = item;
        return static_cast<ssize_t>(index);
    }

    ssize_t removeItemsAt(size_t index, size_t count = 1) {
        if (index > mItems.size() || count > mItems.size() - index) return NAME_NOT_FOUND;
        mItems.erase(index, count);
        return static_cast<ssize_t>(index);
    }
    ssize_t removeAt(size_t index) { return removeItemsAt(index, 1); }

    void clear() { mItems.clear(); }

    typedef int (*compar_t)(const T* lhs, const T* rhs);
    // Stable sort with a three-way comparison, as the platform's sort().
    status_t sort(compar_t cmp) {
        std::stable_sort(begin(), end(), [cmp](const T& a, const T& b) { return cmp(&a, &b) < 0; });
        return OK;
    }

    T* begin() { return mItems.data(); }
    T* end() { return mItems.data() + mItems.size(); }
    const T* begin() const { return mItems.data(); }
    const T* end() const { return mItems.data() + mItems.size(); }

private:
    detail::ArrayStorage<T> mItems;
};

}  // namespace android

#endif
