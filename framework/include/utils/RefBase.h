// Reference counting of framework objects: RefBase with strong and weak
// counts, the strong pointer sp<> and the weak pointer wp<>.
//
// An object is deleted when its last strong reference goes; an object that
// was only ever weakly referenced is deleted with its last weak reference.
// Counts are atomic, so sp<>/wp<> copies of one object may live on several
// threads; a single sp<> variable is not itself thread-safe.
#ifndef ANDROID_REF_BASE_H
#define ANDROID_REF_BASE_H

#include <stddef.h>
#include <stdint.h>

#include <utils/StrongPointer.h>

namespace android {

class RefBase {
public:
    void incStrong(const void* id) const;
    void decStrong(const void* id) const;
    int32_t getStrongCount() const;

    class weakref_type {
    public:
        RefBase* refBase() const;
        void incWeak(const void* id);
        void decWeak(const void* id);
        // Takes a strong reference if the object is still alive.
        bool attemptIncStrong(const void* id);
        int32_t getWeakCount() const;
    };

    weakref_type* createWeak(const void* id) const;
    weakref_type* getWeakRefs() const;

protected:
    RefBase();
    virtual ~RefBase();

    virtual void onFirstRef();
    virtual void onLastStrongRef(const void* id);
    virtual bool onIncStrongAttempted(uint32_t flags, const void* id);
    virtual void onLastWeakRef(const void* id);

private:
    friend class weakref_type;
    class weakref_impl;

    RefBase(const RefBase&) = delete;
    RefBase& operator=(const RefBase&) = delete;

    weakref_impl* const mRefs;
};

template <typename T>
class wp {
public:
    typedef typename RefBase::weakref_type weakref_type;

    wp() : m_ptr(nullptr), m_refs(nullptr) {}
    wp(T* other) : m_ptr(other), m_refs(other ? other->createWeak(this) : nullptr) {}
    wp(const wp<T>& other) : m_ptr(other.m_ptr), m_refs(other.m_refs) {
        if (m_ptr) m_refs->incWeak(this);
    }
    wp(const sp<T>& other) : m_ptr(other.get()), m_refs(m_ptr ? m_ptr->createWeak(this) : nullptr) {}
    ~wp() {
        if (m_ptr) m_refs->decWeak(this);
    }

    wp& operator=(const wp<T>& other) {
        weakref_type* otherRefs = other.m_refs;
        T* otherPtr = other.m_ptr;
        if (otherPtr) otherRefs->incWeak(this);
        if (m_ptr) m_refs->decWeak(this);
        m_ptr = otherPtr;
        m_refs = otherRefs;
        return *this;
    }
    wp& operator=(const sp<T>& other) { return *this = wp<T>(other); }

    sp<T> promote() const {
        sp<T> result;
        if (m_ptr && m_refs->attemptIncStrong(&result)) {
            result.set_pointer(m_ptr);
        }
        return result;
    }

    void clear() {
        if (m_ptr) {
            m_refs->decWeak(this);
            m_ptr = nullptr;
            m_refs = nullptr;
        }
    }

    T* unsafe_get() const { return m_ptr; }

private:
    T* m_ptr;
    weakref_type* m_refs;
};

}  // namespace android

#endif
