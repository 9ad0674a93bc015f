// Checked integer arithmetic for sizes, counts and offsets read from files.
// Each helper returns false (and leaves *out unspecified) when the exact
// result does not fit the output type.
#ifndef ZIRK_SAFE_MATH_H_
#define ZIRK_SAFE_MATH_H_

#include <stddef.h>
#include <stdint.h>

#include <limits>

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

// Conversions that saturate where the plain conversion would be undefined:
// NaN becomes 0, a value past the target's range its nearest bound. Estimates
// that divide by a file-declared average (0/0 for a one-chunk track) and
// script-data numbers of any size go through these.
template <typename T>
inline T zirkSaturateCast(double v) {
    if (v != v) return 0;
    if (v >= static_cast<double>(std::numeric_limits<T>::max())) return std::numeric_limits<T>::max();
    if (v <= static_cast<double>(std::numeric_limits<T>::min())) return std::numeric_limits<T>::min();
    return static_cast<T>(v);
}

inline int64_t zirkSaturateToInt64(__int128 v) {
    if (v > INT64_MAX) return INT64_MAX;
    if (v < INT64_MIN) return INT64_MIN;
    return static_cast<int64_t>(v);
}

}  // namespace android

#endif
