#include <utils/RefBase.h>

#include <atomic>

namespace android {

namespace {
// Strong count of an object no sp<> has held yet; lets incStrong spot the
// first reference and call onFirstRef.
constexpr int32_t kInitialStrongValue = 1 << 28;
}  // namespace

class RefBase::weakref_impl : public RefBase::weakref_type {
public:
    explicit weakref_impl(RefBase* base) : mStrong(kInitialStrongValue), mWeak(0), mBase(base) {}

    std::atomic<int32_t> mStrong;
    std::atomic<int32_t> mWeak;
    RefBase* const mBase;
};

RefBase::RefBase() : mRefs(new weakref_impl(this)) {}

RefBase::~RefBase() {
    // An object that never had a strong reference and has no weak ones owns
    // its counts outright. Otherwise the last decWeak frees them.
    if (mRefs->mStrong.load() == kInitialStrongValue && mRefs->mWeak.load() == 0) {
        delete mRefs;
    }
}

void RefBase::incStrong(const void* id) const {
    mRefs->incWeak(id);
    int32_t c = mRefs->mStrong.fetch_add(1);
    if (c != kInitialStrongValue) return;
    mRefs->mStrong.fetch_sub(kInitialStrongValue);
    const_cast<RefBase*>(this)->onFirstRef();
}

void RefBase::decStrong(const void* id) const {
    weakref_impl* const refs = mRefs;
    int32_t c = refs->mStrong.fetch_sub(1);
    if (c == 1) {
        const_cast<RefBase*>(this)->onLastStrongRef(id);
        delete this;
    }
    refs->decWeak(id);
}

int32_t RefBase::getStrongCount() const {
    return mRefs->mStrong.load();
}

RefBase::weakref_type* RefBase::createWeak(const void* id) const {
    mRefs->incWeak(id);
    return mRefs;
}

RefBase::weakref_type* RefBase::getWeakRefs() const {
    return mRefs;
}

RefBase* RefBase::weakref_type::refBase() const {
    return static_cast<const weakref_impl*>(this)->mBase;
}

void RefBase::weakref_type::incWeak(const void*) {
    static_cast<weakref_impl*>(this)->mWeak.fetch_add(1);
}

void RefBase::weakref_type::decWeak(const void* id) {
    weakref_impl* const impl = static_cast<weakref_impl*>(this);
    if (impl->mWeak.fetch_sub(1) != 1) return;
    if (impl->mStrong.load() == kInitialStrongValue) {
        // Only ever weakly held: the object goes with its last weak
        // reference, and its destructor frees the counts.
        impl->mBase->onLastWeakRef(id);
        delete impl->mBase;
    } else {
        // The object itself already went with its last strong reference.
        delete impl;
    }
}

bool RefBase::weakref_type::attemptIncStrong(const void* id) {
    incWeak(id);
    weakref_impl* const impl = static_cast<weakref_impl*>(this);
    int32_t c = impl->mStrong.load();
    while (c > 0 && c != kInitialStrongValue) {
        if (impl->mStrong.compare_exchange_weak(c, c + 1)) return true;
    }
    if (c == kInitialStrongValue) {
        if (!impl->mBase->onIncStrongAttempted(0, id)) {
            decWeak(id);
            return false;
        }
        c = impl->mStrong.fetch_add(1);
        if (c == kInitialStrongValue) {
            impl->mStrong.fetch_sub(kInitialStrongValue);
            impl->mBase->onFirstRef();
        }
        return true;
    }
    decWeak(id);
    return false;
}

int32_t RefBase::weakref_type::getWeakCount() const {
    return static_cast<const weakref_impl*>(this)->mWeak.load();
}

void RefBase::onFirstRef() {}
void RefBase::onLastStrongRef(const void*) {}
bool RefBase::onIncStrongAttempted(uint32_t, const void*) { return true; }
void RefBase::onLastWeakRef(const void*) {}

}  // namespace android
