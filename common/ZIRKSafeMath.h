// Checked integer arithmetic for sizes, counts and offsets read from files.
// Each helper returns false (and leaves *out unspecified) when the exact
// result does not fit the output type.
#ifndef ZIRK_SAFE_MATH_H_
#define ZIRK_SAFE_MATH_H_

#include <stddef.h>
#include <stdint.h>

namespace android {

template <typename A, typename B, typename R>
inline bool zirkAdd(A a, B b, R* out) {
    return !__builtin_add_overflow(a, b, out);
}

template <typename A, typename B, typename R>
inline bool zirkSub(A a, B b, R* out) {
    return !__builtin_sub_overflow(a, b, out);
}

template <typename A, typename B, typename R>
inline bool zirkMul(A a, B b, R* out) {
    return !__builtin_mul_overflow(a, b, out);
}

// count * entrySize bytes must fit in `available`: the guard before any
// allocation sized by a file-declared count.
inline bool zirkFitsIn(uint64_t count, uint64_t entrySize, uint64_t available) {
    uint64_t total;
    return zirkMul(count, entrySize, &total) && total <= available;
}

// value * num / den without intermediate overflow (128-bit product); false
// when den is 0 or the result does not fit in int64_t.
inline bool zirkMulDiv(int64_t value, int64_t num, int64_t den, int64_t* out) {
    if (den == 0) return false;
    __int128 r = static_cast<__int128>(value) * num / den;
    if (r > INT64_MAX || r < INT64_MIN) return false;
    *out = static_cast<int64_t>(r);
    return true;
}

}  // namespace android

#endif
