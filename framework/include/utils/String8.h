// UTF-8 string of libutils. Value type; not thread-safe for concurrent writes.
#ifndef ANDROID_STRING8_H
#define ANDROID_STRING8_H

#include <stddef.h>
#include <stdint.h>

#include <string>

#include <utils/Errors.h>

namespace android {

class String8 {
public:
    String8() = default;
    String8(const char* s) : mString(s ? s : "") {}
    String8(const char* s, size_t len) : mString(s ? std::string(s, len) : std::string()) {}
    // Converts `len` UTF-16 code units (see setTo).
    String8(const char16_t* s, size_t len) { setTo(s, len); }

    status_t setTo(const char* s);
    status_t setTo(const char* s, size_t len);
    // Converts UTF-16 to UTF-8. Surrogate pairs become one 4-byte sequence;
    // a lone surrogate becomes U+FFFD so that the result is valid UTF-8.
    status_t setTo(const char16_t* s, size_t len);
    status_t setTo(const String8& other);

    status_t append(const char* s);
    status_t append(const char* s, size_t len);
    status_t append(const String8& other);
    status_t appendFormat(const char* fmt, ...) __attribute__((format(printf, 2, 3)));

    const char* string() const { return mString.c_str(); }
    const char* c_str() const { return mString.c_str(); }
    operator const char*() const { return mString.c_str(); }
    size_t size() const { return mString.size(); }
    size_t length() const { return mString.size(); }
    bool isEmpty() const { return mString.empty(); }
    void clear() { mString.clear(); }

    bool operator==(const String8& o) const { return mString == o.mString; }
    bool operator!=(const String8& o) const { return mString != o.mString; }
    bool operator<(const String8& o) const { return mString < o.mString; }

private:
    std::string mString;
};

}  // namespace android

#endif
