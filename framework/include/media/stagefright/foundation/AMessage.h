// AMessage: a small typed key/value message. The library uses it only for
// sniff metadata and hints. Reference-counted; not thread-safe.
#ifndef A_MESSAGE_H_
#define A_MESSAGE_H_

#include <stdint.h>

#include <map>
#include <string>

#include <media/stagefright/foundation/AString.h>
#include <utils/RefBase.h>

namespace android {

struct AMessage : public RefBase {
    explicit AMessage(uint32_t what = 0, int32_t target = 0) : mWhat(what), mTarget(target) {}

    uint32_t what() const { return mWhat; }
    int32_t target() const { return mTarget; }

    void setInt32(const char* name, int32_t value);
    void setInt64(const char* name, int64_t value);
    void setString(const char* name, const char* s);
    bool findInt32(const char* name, int32_t* value) const;
    bool findInt64(const char* name, int64_t* value) const;
    bool findString(const char* name, AString* value) const;

    // Host inspection: number of entries and the i-th entry's name, in name
    // order. Type is 'i' (int32), 'l' (int64) or 's' (string).
    size_t countEntries() const { return mItems.size(); }
    const char* getEntryNameAt(size_t index, char* type) const;

protected:
    virtual ~AMessage() {}

private:
    struct Item {
        char type;
        int64_t i;
        std::string s;
    };
    uint32_t mWhat;
    int32_t mTarget;
    std::map<std::string, Item> mItems;
};

}  // namespace android

#endif
