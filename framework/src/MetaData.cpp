#include <media/stagefright/MetaData.h>

#include <string.h>

namespace android {

MetaData::MetaData() {}

MetaData::MetaData(const MetaData& from) : RefBase(), mItems(from.mItems) {}

MetaData::~MetaData() {}

void MetaData::clear() { mItems.clear(); }

bool MetaData::remove(uint32_t key) { return mItems.erase(key) > 0; }

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
    auto it = mItems.find(key);
    bool overwrote = it != mItems.end();
    typed_data& item = overwrote ? it->second : mItems[key];
    item.mType = type;
    const uint8_t* bytes = static_cast<const uint8_t*>(data);
    if (size == 0 || bytes == nullptr) {
        item.mBytes.clear();
    } else {
        item.mBytes.assign(bytes, bytes + size);
    }
    return overwrote;
}

bool MetaData::findData(uint32_t key, uint32_t* type, const void** data, size_t* size) const {
    auto it = mItems.find(key);
    if (it == mItems.end()) return false;
    *type = it->second.mType;
    *data = it->second.mBytes.data();
    *size = it->second.mBytes.size();
    return true;
}

bool MetaData::hasData(uint32_t key) const { return mItems.count(key) != 0; }

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
    auto it = mItems.begin();
    std::advance(it, static_cast<long>(index));
    *key = it->first;
    *type = it->second.mType;
    *data = it->second.mBytes.data();
    *size = it->second.mBytes.size();
    return true;
}

}  // namespace android
