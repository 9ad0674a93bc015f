#include <utils/String8.h>

#include <stdarg.h>
#include <stdio.h>

#include "FormatV.h"

namespace android {

namespace {

void appendUtf8(std::string& out, uint32_t cp) {
    if (cp < 0x80) {
        out.push_back(static_cast<char>(cp));
    } else if (cp < 0x800) {
        out.push_back(static_cast<char>(0xC0 | (cp >> 6)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
        out.push_back(static_cast<char>(0xE0 | (cp >> 12)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else {
        out.push_back(static_cast<char>(0xF0 | (cp >> 18)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        out.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
}

constexpr uint32_t kReplacementChar = 0xFFFD;

}  // namespace

status_t String8::setTo(const char* s) {
    mString.assign(s ? s : "");
    return OK;
}

status_t String8::setTo(const char* s, size_t len) {
    if (s == nullptr) {
        mString.clear();
    } else {
        mString.assign(s, len);
    }
    return OK;
}

status_t String8::setTo(const char16_t* s, size_t len) {
    mString.clear();
    if (s == nullptr) return OK;
    mString.reserve(len);
    for (size_t i = 0; i < len; ++i) {
        uint32_t unit = s[i];
        if (unit >= 0xD800 && unit <= 0xDBFF) {
            if (i + 1 < len && s[i + 1] >= 0xDC00 && s[i + 1] <= 0xDFFF) {
                uint32_t cp = 0x10000 + ((unit - 0xD800) << 10) + (s[i + 1] - 0xDC00);
                appendUtf8(mString, cp);
                ++i;
            } else {
                appendUtf8(mString, kReplacementChar);
            }
        } else if (unit >= 0xDC00 && unit <= 0xDFFF) {
            appendUtf8(mString, kReplacementChar);
        } else {
            appendUtf8(mString, unit);
        }
    }
    return OK;
}

status_t String8::setTo(const String8& other) {
    mString = other.mString;
    return OK;
}

status_t String8::append(const char* s) {
    if (s) mString.append(s);
    return OK;
}

status_t String8::append(const char* s, size_t len) {
    if (s) mString.append(s, len);
    return OK;
}

status_t String8::append(const String8& other) {
    mString.append(other.mString);
    return OK;
}

status_t String8::appendFormat(const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    bool ok = zirkAppendFormatV(&mString, fmt, ap);
    va_end(ap);
    return ok ? OK : UNKNOWN_ERROR;
}

}  // namespace android
