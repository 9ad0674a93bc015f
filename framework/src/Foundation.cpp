// AString, ABuffer, AMessage, ABitReader and the check failure path.
#include <media/stagefright/foundation/ABitReader.h>
#include <media/stagefright/foundation/ABuffer.h>
#include <media/stagefright/foundation/ADebug.h>
#include <media/stagefright/foundation/AMessage.h>
#include <media/stagefright/foundation/AString.h>

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>

#include <new>

#include "FormatV.h"

namespace android {

// ---- AString ----

void AString::append(int x) { mData.append(std::to_string(x)); }
void AString::append(unsigned x) { mData.append(std::to_string(x)); }
void AString::append(long x) { mData.append(std::to_string(x)); }
void AString::append(unsigned long x) { mData.append(std::to_string(x)); }
void AString::append(long long x) { mData.append(std::to_string(x)); }
void AString::append(unsigned long long x) { mData.append(std::to_string(x)); }
void AString::append(float x) { append(static_cast<double>(x)); }
void AString::append(double x) {
    char buf[64];
    snprintf(buf, sizeof(buf), "%f", x);
    mData.append(buf);
}
void AString::append(void* x) {
    char buf[32];
    snprintf(buf, sizeof(buf), "%p", x);
    mData.append(buf);
}

ssize_t AString::find(const char* substring, size_t start) const {
    size_t pos = mData.find(substring ? substring : "", start);
    return pos == std::string::npos ? -1 : static_cast<ssize_t>(pos);
}

bool AString::startsWith(const char* prefix) const {
    return mData.compare(0, strlen(prefix), prefix) == 0;
}

bool AString::endsWith(const char* suffix) const {
    size_t n = strlen(suffix);
    return mData.size() >= n && mData.compare(mData.size() - n, n, suffix) == 0;
}

AString AStringPrintf(const char* format, ...) {
    va_list ap;
    va_start(ap, format);
    std::string buf;
    zirkAppendFormatV(&buf, format, ap);
    va_end(ap);
    AString out;
    out.setTo(buf.c_str(), buf.size());
    return out;
}

// ---- check failures ----

void zirkCheckFailed(const char* tag, const char* source, int line, const char* conditionText,
                     const AString& rest) {
    AString message(source);
    message.append(":");
    message.append(line);
    message.append(rest);
    __android_log_assert(conditionText, tag, "%s", message.c_str());
}

// ---- ABuffer ----

ABuffer::ABuffer(size_t capacity)
    : mData(new (std::nothrow) uint8_t[capacity == 0 ? 1 : capacity]),
      mCapacity(mData ? capacity : 0),
      mRangeOffset(0),
      mRangeLength(mCapacity),
      mOwnsData(true) {}

ABuffer::ABuffer(void* data, size_t capacity)
    : mData(static_cast<uint8_t*>(data)),
      mCapacity(capacity),
      mRangeOffset(0),
      mRangeLength(capacity),
      mOwnsData(false) {}

ABuffer::~ABuffer() {
    if (mOwnsData) delete[] mData;
}

void ABuffer::setRange(size_t offset, size_t size) {
    CHECK_LE(offset, mCapacity);
    CHECK_LE(size, mCapacity - offset);
    mRangeOffset = offset;
    mRangeLength = size;
}

sp<AMessage> ABuffer::meta() {
    if (mMeta == nullptr) mMeta = new AMessage;
    return mMeta;
}

// ---- AMessage ----

void AMessage::setInt32(const char* name, int32_t value) {
    Item& item = mItems[name];
    item.type = 'i';
    item.i = value;
    item.s.clear();
}

void AMessage::setInt64(const char* name, int64_t value) {
    Item& item = mItems[name];
    item.type = 'l';
    item.i = value;
    item.s.clear();
}

void AMessage::setString(const char* name, const char* s) {
    Item& item = mItems[name];
    item.type = 's';
    item.i = 0;
    item.s = s ? s : "";
}

bool AMessage::findInt32(const char* name, int32_t* value) const {
    auto it = mItems.find(name);
    if (it == mItems.end() || it->second.type != 'i') return false;
    *value = static_cast<int32_t>(it->second.i);
    return true;
}

bool AMessage::findInt64(const char* name, int64_t* value) const {
    auto it = mItems.find(name);
    if (it == mItems.end() || it->second.type != 'l') return false;
    *value = it->second.i;
    return true;
}

bool AMessage::findString(const char* name, AString* value) const {
    auto it = mItems.find(name);
    if (it == mItems.end() || it->second.type != 's') return false;
    value->setTo(it->second.s.c_str(), it->second.s.size());
    return true;
}

const char* AMessage::getEntryNameAt(size_t index, char* type) const {
    if (index >= mItems.size()) return nullptr;
    auto it = mItems.begin();
    std::advance(it, static_cast<long>(index));
    if (type) *type = it->second.type;
    return it->first.c_str();
}

// ---- ABitReader ----

ABitReader::ABitReader(const uint8_t* data, size_t size)
    : mData(data), mSize(size), mNumBitsLeft(size * 8), mOverRead(false) {}

const uint8_t* ABitReader::data() const {
    return mData + (mSize - (mNumBitsLeft + 7) / 8);
}

void ABitReader::skipBits(size_t n) {
    if (n > mNumBitsLeft) {
        mNumBitsLeft = 0;
        mOverRead = true;
        return;
    }
    mNumBitsLeft -= n;
}

}  // namespace android
