// Vector<T>: the platform's growable array. Allocation failures are reported
// as NO_MEMORY (add/insertAt return a negative index, setCapacity the status)
// rather than thrown. Not thread-safe.
#ifndef ANDROID_VECTOR_H
#define ANDROID_VECTOR_H

#include <stddef.h>
#include <sys/types.h>

#include <algorithm>
#include <new>
#include <stdexcept>
#include <vector>

#include <utils/Errors.h>

namespace android {

template <typename T>
class Vector {
public:
    Vector() = default;

    size_t size() const { return mItems.size(); }
    bool isEmpty() const { return mItems.empty(); }
    size_t capacity() const { return mItems.capacity(); }

    // Reserves room for `size` items; returns the new capacity or NO_MEMORY.
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
    T* editArray() { return mItems.data(); }

    const T& operator[](size_t i) const { return mItems[i]; }
    const T& itemAt(size_t i) const { return mItems[i]; }
    T& editItemAt(size_t i) { return mItems[i]; }
    const T& top() const { return mItems.back(); }
    T& editTop() { return mItems.back(); }

    // Appends; returns the new item's index or NO_MEMORY.
    ssize_t add(const T& item) { return insertAt(item, mItems.size()); }
    ssize_t push_back(const T& item) { return add(item); }
    void push(const T& item) { add(item); }
    void pop() {
        if (!mItems.empty()) mItems.pop_back();
    }

    ssize_t insertAt(const T& item, size_t index) {
        if (index > mItems.size()) return NO_MEMORY;
        try {
            mItems.insert(mItems.begin() + index, item);
        } catch (const std::bad_alloc&) {
            return NO_MEMORY;
        }
        return static_cast<ssize_t>(index);
    }

    ssize_t replaceAt(const T& item, size_t index) {
        if (index >= mItems.size()) return NO_MEMORY;
        mItems[index] = item;
        return static_cast<ssize_t>(index);
    }

    ssize_t removeItemsAt(size_t index, size_t count = 1) {
        if (index > mItems.size() || count > mItems.size() - index) return NAME_NOT_FOUND;
        mItems.erase(mItems.begin() + index, mItems.begin() + index + count);
        return static_cast<ssize_t>(index);
    }
    ssize_t removeAt(size_t index) { return removeItemsAt(index, 1); }

    void clear() { mItems.clear(); }

    typedef int (*compar_t)(const T* lhs, const T* rhs);
    // Stable sort with a three-way comparison, as the platform's sort().
    status_t sort(compar_t cmp) {
        std::stable_sort(mItems.begin(), mItems.end(),
                         [cmp](const T& a, const T& b) { return cmp(&a, &b) < 0; });
        return OK;
    }

    typename std::vector<T>::iterator begin() { return mItems.begin(); }
    typename std::vector<T>::iterator end() { return mItems.end(); }
    typename std::vector<T>::const_iterator begin() const { return mItems.begin(); }
    typename std::vector<T>::const_iterator end() const { return mItems.end(); }

private:
    std::vector<T> mItems;
};

}  // namespace android

#endif
