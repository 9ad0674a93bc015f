// MetaData: typed key/value map keyed by four-character codes (file, track and
// per-buffer metadata). Each value keeps the type code it was stored with;
// typed finders only match values of their type. Reference-counted; not
// thread-safe: one writer, or readers only.
#ifndef META_DATA_H_
#define META_DATA_H_

#include <stddef.h>
#include <stdint.h>

#include <vector>

#include <utils/RefBase.h>

namespace android {

enum {
    kKeyMIMEType = 'mime',            // cstring
    kKeyWidth = 'widt',               // int32
    kKeyHeight = 'heig',              // int32
    kKeyDisplayWidth = 'dWid',        // int32
    kKeyDisplayHeight = 'dHgt',       // int32
    kKeyRotation = 'rotA',            // int32 (degrees)
    kKeyTrackID = 'trID',             // int32
    kKeyChannelCount = '#chn',        // int32
    kKeySampleRate = 'srte',          // int32 (Hz)
    kKeyBitRate = 'brte',             // int32 (bps)
    kKeyFrameRate = 'frmR',           // int32 (fps)
    kKeyDuration = 'dura',            // int64 (us)
    kKeyMaxInputSize = 'inpS',        // int32 (bytes)
    kKeyThumbnailTime = 'thbT',       // int64 (us)
    kKeyESDS = 'esds',                // raw data
    kKeyAVCC = 'avcc',                // raw data
    kKeyD263 = 'd263',                // raw data
    kKeyWantsNALFragments = 'NALf',   // int32
    kKeyIsDRM = 'idrm',               // int32
    kKeyTextFormatData = 'text',      // raw data
    kKeyTime = 'time',                // int64 (us)
    kKeyTargetTime = 'tarT',          // int64 (us)
    kKeyIsSyncFrame = 'sync',         // int32
    kKeyTitle = 'titl',               // cstring
    kKeyArtist = 'arti',              // cstring
    kKeyAlbum = 'albu',               // cstring
    kKeyAlbumArtist = 'aart',         // cstring
    kKeyGenre = 'genr',               // cstring
    kKeyYear = 'year',                // cstring
    kKeyCDTrackNumber = 'cdtr',       // cstring
    kKeyDiscNumber = 'dnum',          // cstring
    kKeyCompilation = 'cpil',         // cstring
    kKeyWriter = 'writ',              // cstring
    kKeyDate = 'date',                // cstring
    kKeyLocation = 'loc ',            // cstring
    kKeyAuthor = 'auth',              // cstring
    kKeyMediaLanguage = 'lang',       // cstring, ISO 639-2/T
    kKeyAlbumArt = 'albA',            // raw data
    kKeyAlbumArtMIME = 'alAM',        // cstring
    kKeyEncoderDelay = 'encd',        // int32
    kKeyEncoderPadding = 'encp',      // int32
};

enum {
    kTypeESDS = 'esds',
    kTypeAVCC = 'avcc',
    kTypeD263 = 'd263',
};

class MetaData : public RefBase {
public:
    MetaData();
    MetaData(const MetaData& from);

    enum Type {
        TYPE_NONE = 'none',
        TYPE_C_STRING = 'cstr',
        TYPE_INT32 = 'in32',
        TYPE_INT64 = 'in64',
        TYPE_FLOAT = 'floa',
        TYPE_POINTER = 'ptr ',
    };

    void clear();
    bool remove(uint32_t key);

    // Each setter returns true when it replaced an existing value.
    bool setCString(uint32_t key, const char* value);
    bool setInt32(uint32_t key, int32_t value);
    bool setInt64(uint32_t key, int64_t value);
    bool setFloat(uint32_t key, float value);
    bool setPointer(uint32_t key, void* value);
    bool setData(uint32_t key, uint32_t type, const void* data, size_t size);

    // The pointer stays valid until the key is next set, removed or cleared.
    bool findCString(uint32_t key, const char** value) const;
    bool findInt32(uint32_t key, int32_t* value) const;
    bool findInt64(uint32_t key, int64_t* value) const;
    bool findFloat(uint32_t key, float* value) const;
    bool findPointer(uint32_t key, void** value) const;
    bool findData(uint32_t key, uint32_t* type, const void** data, size_t* size) const;
    bool hasData(uint32_t key) const;

    // Host inspection (zirk-probe): entries in ascending key order.
    size_t countEntries() const { return mItems.size(); }
    bool getEntryAt(size_t index, uint32_t* key, uint32_t* type, const void** data,
                    size_t* size) const;

protected:
    virtual ~MetaData();

private:
    // Entries sorted by key in a vector that keeps its capacity across
    // clear(): a buffer's metadata is cleared and refilled for every sample,
    // and this way that costs no allocation. Numbers live inline; strings and
    // data on the heap, so pointers handed out by findCString/findData stay
    // put while other keys come and go.
    struct Entry {
        uint32_t mKey = 0;
        uint32_t mType = 0;
        uint32_t mSize = 0;
        uint8_t mInline[8] = {};
        bool mOnHeap = false;
        std::vector<uint8_t> mHeap;
        const uint8_t* bytes() const { return mOnHeap ? mHeap.data() : mInline; }
    };
    std::vector<Entry>::iterator findEntry(uint32_t key);
    std::vector<Entry>::const_iterator findEntry(uint32_t key) const;

    std::vector<Entry> mItems;

    MetaData& operator=(const MetaData&) = delete;
};

}  // namespace android

#endif
