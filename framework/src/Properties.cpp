#include <cutils/properties.h>

#include <string.h>

#include <map>
#include <mutex>
#include <string>

namespace {

std::mutex gPropertyLock;

std::map<std::string, std::string>& store() {
    static std::map<std::string, std::string> s;
    return s;
}

int copyOut(char* value, const char* text) {
    size_t n = strlen(text);
    if (n > PROPERTY_VALUE_MAX - 1) n = PROPERTY_VALUE_MAX - 1;
    memcpy(value, text, n);
    value[n] = '\0';
    return static_cast<int>(n);
}

}  // namespace

extern "C" {

int property_get(const char* key, char* value, const char* default_value) {
    if (key != nullptr) {
        std::lock_guard<std::mutex> lock(gPropertyLock);
        auto it = store().find(key);
        if (it != store().end()) return copyOut(value, it->second.c_str());
    }
    return copyOut(value, default_value ? default_value : "");
}

int property_set(const char* key, const char* value) {
    if (key == nullptr || strlen(key) >= PROPERTY_KEY_MAX) return -1;
    if (value != nullptr && strlen(value) >= PROPERTY_VALUE_MAX) return -1;
    std::lock_guard<std::mutex> lock(gPropertyLock);
    if (value == nullptr || value[0] == '\0') {
        store().erase(key);
    } else {
        store()[key] = value;
    }
    return 0;
}

void zirk_property_clear_all(void) {
    std::lock_guard<std::mutex> lock(gPropertyLock);
    store().clear();
}

}  // extern "C"
