#include <media/stagefright/MetaData.h>

#include <string.h>

#include <algorithm>

namespace android {

MetaData::MetaData() {}

MetaData::MetaData(const MetaData& from) : RefBase(), mItems(from.mItems) {}

MetaData::~MetaData() {}

void MetaData::clear() { mItems.clear(); }

std::vector<MetaData::Entry>::iterator MetaData::findEntry(uint32_t key) {
    auto it = std::lower_bound(mItems.begin(), mItems.end(), key,
                               [](const Entry& e, uint32_t k) { return e.mKey < k; });
    return (it != mItems.end() && it->mKey == key) ? it : mItems.end();
}

std::vector<MetaData::Entry>::const_iterator MetaData::findEntry(uint32_t key) const {
    auto it = std::lower_bound(mItems.begin(), mItems.end(), key,
                               [](const Entry& e, uint32_t k) { return e.mKey < k; });
    return (it != mItems.end() && it->mKey == key) ? it : mItems.end();
}

bool MetaData::remove(uint32_t key) {
    auto it = findEntry(key);
    if (it == mItems.end()) return false;
    mItems.erase(it);
    return true;
}

bool MetaData::setCString(uint32_t key, const char* value) {
    return setData(key, TYPE_C_STRING, value, strlen(value) + 1);
}

bool MetaData::setInt32(uint32_t key, int32_t value) {
    return setData(key, TYPE_INT32, &value, sizeof(value));
}

bool MetaData::setInt64(uint32_t key, int64_t value) {
    return setData(key, TYPE_INT64, &value, sizeof(value));
}

bool MetaData::setFloat(uint32_t key, float value) {
    return setData(key, TYPE_FLOAT, &value, sizeof(value));
}

bool MetaData::setPointer(uint32_t key, void* value) {
    return setData(key, TYPE_POINTER, &value, sizeof(value));
}

bool MetaData::setData(uint32_t key, uint32_t type, const void* data, size_t size) {
    auto it = std::lower_bound(mItems.begin(), mItems.end(), key,
                               [](const Entry& e, uint32_t k) { return e.mKey < k; });
    const bool overwrote = it != mItems.end() && it->mKey == key;
    if (!overwrote) {
        it = mItems.insert(it, Entry());
        it->mKey = key;
    }
    Entry& entry = *it;
    const uint8_t* bytes = static_cast<const uint8_t*>(data);
    if (bytes == nullptr) size = 0;
    const bool numeric = type == TYPE_INT32 || type == TYPE_INT64 || type == TYPE_FLOAT ||
                         type == TYPE_POINTER;
    entry.mType = type;
    entry.mSize = static_cast<uint32_t>(size);
    entry.mOnHeap = !(numeric && size <= sizeof(entry.mInline));
    if (entry.mOnHeap) {
        entry.mHeap.assign(bytes, bytes + size);
    } else {
        entry.mHeap.clear();
        if (size) memcpy(entry.mInline, bytes, size);
    }
    return overwrote;
}

bool MetaData::findData(uint32_t key, uint32_t* type, const void** data, size_t* size) const {
    auto it = findEntry(key);
    if (it == mItems.end()) return false;
    *type = it->mType;
    *data = it->bytes();
    *size = it->mSize;
    return true;
}

bool MetaData::hasData(uint32_t key) const { return findEntry(key) != mItems.end(); }

namespace {
template <typename T>
bool findTyped(const MetaData& meta, uint32_t key, uint32_t wantType, T* value) {
    uint32_t type;
    const void* data;
    size_t size;
    if (!meta.findData(key, &type, &data, &size) || type != wantType || size != sizeof(T)) {
        return false;
    }
    memcpy(value, data, sizeof(T));
    return true;
}
}  // namespace

bool MetaData::findCString(uint32_t key, const char** value) const {
    uint32_t type;
    const void* data;
    size_t size;
    // A C string value carries its terminator; one stored through setData
    // without it is not handed out as a C string.
    if (!findData(key, &type, &data, &size) || type != TYPE_C_STRING || size == 0 ||
        static_cast<const char*>(data)[size - 1] != '\0') {
        return false;
    }
    *value = static_cast<const char*>(data);
    return true;
}

bool MetaData::findInt32(uint32_t key, int32_t* value) const {
    return findTyped(*this, key, TYPE_INT32, value);
}

bool MetaData::findInt64(uint32_t key, int64_t* value) const {
    return findTyped(*this, key, TYPE_INT64, value);
}

bool MetaData::findFloat(uint32_t key, float* value) const {
    return findTyped(*this, key, TYPE_FLOAT, value);
}

bool MetaData::findPointer(uint32_t key, void** value) const {
    return findTyped(*this, key, TYPE_POINTER, value);
}

bool MetaData::getEntryAt(size_t index, uint32_t* key, uint32_t* type, const void** data,
                          size_t* size) const {
    if (index >= mItems.size()) return false;
    const Entry& entry = mItems[index];
    *key = entry.mKey;
    *type = entry.mType;
    *data = entry.bytes();
    *size = entry.mSize;
    return true;
}

}  // namespace android
