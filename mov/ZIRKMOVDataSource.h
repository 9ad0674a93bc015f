// ZIRKMOVDataSource: a DataSource over another that answers reads from
// memory. Either a plain copy of one byte range of the file (a track's
// sample-table box, kept in memory when the file comes from a slow or caching
// source; other reads go through to the wrapped source), or, once a
// zlib-compressed movie header has been expanded, the expanded header alone:
// from then on every readAt is served from it and the wrapped source is
// reached only through readSampleAt.
//
// Owner: the MOV extractor and the track sources that read through it (sp<>).
// Lifetime: plain mode until setCompressedCachedRange succeeds, compressed
// mode from then on. Threads: readAt, readSampleAt and the cache set-ups hold
// one mutex, so several track sources may read at once; initCheck, getSize
// and flags forward to the wrapped source without it.
#ifndef ZIRK_MOV_DATA_SOURCE_H_
#define ZIRK_MOV_DATA_SOURCE_H_

#include <stdint.h>

#include <mutex>

#include <media/stagefright/DataSource.h>

namespace android {

class ZIRKMOVDataSource : public DataSource {
public:
    explicit ZIRKMOVDataSource(const sp<DataSource>& source);

    status_t initCheck() const override;
    ssize_t readAt(off64_t offset, void* data, size_t size) override;
    status_t getSize(off64_t* size) override;
    uint32_t flags() override;

    // Straight from the wrapped source, past both caches: sample data once
    // readAt serves only an expanded header.
    virtual ssize_t readSampleAt(off64_t offset, void* data, size_t size);

    // Copies [offset, offset + size) of the wrapped source into memory.
    // NO_MEMORY, ERROR_IO on a short read (the cache is then empty), or
    // ERROR_MALFORMED for a range the file cannot hold.
    status_t setCachedRange(off64_t offset, size_t size);
    // Reads compressedSize bytes at offset and expands them with zlib into a
    // buffer of uncompressedSize bytes; the expanded length zlib reports is
    // what readAt serves from then on. ERROR_MALFORMED for sizes past their
    // caps or the file, NO_MEMORY, ERROR_IO for a short read or a stream that
    // does not expand into the buffer.
    status_t setCompressedCachedRange(off64_t offset, size_t uncompressedSize, size_t compressedSize);
    void clearCache();
    // Leaves compressed mode on: a source that has served an expanded header
    // never serves the file through readAt again.
    void clearCompressedCache();

protected:
    ~ZIRKMOVDataSource() override;

private:
    bool mCompressedMode;
    std::mutex mLock;
    sp<DataSource> mSource;
    int64_t mCachedOffset;
    uint32_t mCachedSize;
    uint8_t* mCache;
    int64_t mCompressedCachedOffset;
    uint32_t mCompressedCachedSize;
    uint8_t* mCompressedCache;

    void clearCacheLocked();
    void clearCompressedCacheLocked();
    bool fitsInFile(int64_t offset, uint64_t size);

    ZIRKMOVDataSource(const ZIRKMOVDataSource&) = delete;
    ZIRKMOVDataSource& operator=(const ZIRKMOVDataSource&) = delete;
};

}  // namespace android

#endif
