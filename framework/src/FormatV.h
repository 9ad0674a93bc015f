// printf-style formatting appended to a std::string: the one formatter of
// the stand-in's text builders (String8, AStringPrintf, the logger).
#ifndef ZIRK_FRAMEWORK_FORMAT_V_H_
#define ZIRK_FRAMEWORK_FORMAT_V_H_

#include <stdarg.h>
#include <stdio.h>

#include <string>

namespace android {

// False (appending nothing) on an encoding error.
inline bool zirkAppendFormatV(std::string* out, const char* fmt, va_list ap) {
    va_list ap2;
    va_copy(ap2, ap);
    int n = vsnprintf(nullptr, 0, fmt, ap);
    if (n > 0) {
        size_t old = out->size();
        out->resize(old + static_cast<size_t>(n) + 1);
        vsnprintf(&(*out)[old], static_cast<size_t>(n) + 1, fmt, ap2);
        out->resize(old + static_cast<size_t>(n));
    }
    va_end(ap2);
    return n >= 0;
}

}  // namespace android

#endif
