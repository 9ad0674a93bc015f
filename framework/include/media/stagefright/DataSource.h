// DataSource: random-access byte source of a media file. Shared by an
// extractor and all its sources (sp<>), so readAt must be safe from several
// threads at once in every implementation.
#ifndef DATA_SOURCE_H_
#define DATA_SOURCE_H_

#include <stdint.h>
#include <sys/types.h>

#include <media/stagefright/MediaErrors.h>
#include <utils/RefBase.h>
#include <utils/String8.h>

namespace android {

class DataSource : public RefBase {
public:
    enum Flags {
        kWantsPrefetching = 1,
        kStreamedFromLocalHost = 2,
        kIsCachingDataSource = 4,
        kIsHTTPBasedSource = 8,
    };

    DataSource() {}

    virtual status_t initCheck() const = 0;

    // Returns the number of bytes read (fewer at the end of the data), or a
    // negative status.
    virtual ssize_t readAt(off64_t offset, void* data, size_t size) = 0;

    // ERROR_UNSUPPORTED when the size is not known.
    virtual status_t getSize(off64_t* size);

    virtual uint32_t flags() { return 0; }

    virtual String8 getMIMEType() const;

    // Big-endian helpers: true only when every byte was read.
    bool getUInt16(off64_t offset, uint16_t* x);
    bool getUInt24(off64_t offset, uint32_t* x);
    bool getUInt32(off64_t offset, uint32_t* x);
    bool getUInt64(off64_t offset, uint64_t* x);

protected:
    virtual ~DataSource() {}

private:
    DataSource(const DataSource&) = delete;
    DataSource& operator=(const DataSource&) = delete;
};

}  // namespace android

#endif
