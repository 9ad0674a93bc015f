// sp<T>: strong pointer to a reference-counted object (T has incStrong and
// decStrong). See utils/RefBase.h.
#ifndef ANDROID_STRONG_POINTER_H
#define ANDROID_STRONG_POINTER_H

#include <cstddef>

namespace android {

template <typename T> class wp;

template <typename T>
class sp {
public:
    sp() : m_ptr(nullptr) {}
    sp(T* other) : m_ptr(other) {
        if (other) other->incStrong(this);
    }
    sp(const sp<T>& other) : m_ptr(other.m_ptr) {
        if (m_ptr) m_ptr->incStrong(this);
    }
    sp(sp<T>&& other) noexcept : m_ptr(other.m_ptr) { other.m_ptr = nullptr; }
    template <typename U>
    sp(U* other) : m_ptr(other) {
        if (other) static_cast<T*>(other)->incStrong(this);
    }
    template <typename U>
    sp(const sp<U>& other) : m_ptr(other.get()) {
        if (m_ptr) m_ptr->incStrong(this);
    }
    ~sp() {
        if (m_ptr) m_ptr->decStrong(this);
    }

    sp& operator=(const sp<T>& other) {
        T* otherPtr = other.m_ptr;
        if (otherPtr) otherPtr->incStrong(this);
        if (m_ptr) m_ptr->decStrong(this);
        m_ptr = otherPtr;
        return *this;
    }
    sp& operator=(sp<T>&& other) noexcept {
        if (this != &other) {
            if (m_ptr) m_ptr->decStrong(this);
            m_ptr = other.m_ptr;
            other.m_ptr = nullptr;
        }
        return *this;
    }
    sp& operator=(T* other) {
        if (other) other->incStrong(this);
        if (m_ptr) m_ptr->decStrong(this);
        m_ptr = other;
        return *this;
    }
    template <typename U>
    sp& operator=(const sp<U>& other) {
        return *this = sp<T>(other);
    }

    void clear() {
        if (m_ptr) {
            m_ptr->decStrong(this);
            m_ptr = nullptr;
        }
    }

    T& operator*() const { return *m_ptr; }
    T* operator->() const { return m_ptr; }
    T* get() const { return m_ptr; }
    explicit operator bool() const { return m_ptr != nullptr; }

    bool operator==(const sp<T>& o) const { return m_ptr == o.m_ptr; }
    bool operator!=(const sp<T>& o) const { return m_ptr != o.m_ptr; }
    bool operator==(const T* o) const { return m_ptr == o; }
    bool operator!=(const T* o) const { return m_ptr != o; }
    bool operator==(std::nullptr_t) const { return m_ptr == nullptr; }
    bool operator!=(std::nullptr_t) const { return m_ptr != nullptr; }

private:
    template <typename Y> friend class sp;
    template <typename Y> friend class wp;
    // Adopts a pointer whose strong count was already taken (wp::promote).
    void set_pointer(T* ptr) { m_ptr = ptr; }

    T* m_ptr;
};

}  // namespace android

#endif
