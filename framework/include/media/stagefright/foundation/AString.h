// AString: foundation string used to build check messages and log text.
// Value type; not thread-safe for concurrent writes.
#ifndef A_STRING_H_
#define A_STRING_H_

#include <stddef.h>
#include <stdint.h>

#include <string>

namespace android {

struct AString {
    AString() = default;
    AString(const char* s) : mData(s ? s : "") {}
    AString(const char* s, size_t size) : mData(s ? std::string(s, size) : std::string()) {}
    AString(const AString&) = default;
    AString& operator=(const AString&) = default;

    void setTo(const char* s) { mData.assign(s ? s : ""); }
    void setTo(const char* s, size_t size) { mData.assign(s, size); }
    void clear() { mData.clear(); }

    size_t size() const { return mData.size(); }
    bool empty() const { return mData.empty(); }
    const char* c_str() const { return mData.c_str(); }

    void append(const char* s) { mData.append(s ? s : ""); }
    void append(const char* s, size_t size) { mData.append(s, size); }
    void append(const AString& from) { mData.append(from.mData); }
    void append(int x);
    void append(unsigned x);
    void append(long x);
    void append(unsigned long x);
    void append(long long x);
    void append(unsigned long long x);
    void append(float x);
    void append(double x);
    void append(void* x);

    ssize_t find(const char* substring, size_t start = 0) const;
    bool startsWith(const char* prefix) const;
    bool endsWith(const char* suffix) const;

    bool operator==(const AString& o) const { return mData == o.mData; }
    bool operator!=(const AString& o) const { return mData != o.mData; }
    bool operator<(const AString& o) const { return mData < o.mData; }

private:
    std::string mData;
};

AString AStringPrintf(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace android

#endif
