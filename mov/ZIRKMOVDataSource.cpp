#define LOG_TAG "ZIRKMOVExtractor"

#include "mov/ZIRKMOVDataSource.h"

#include <stdlib.h>
#include <string.h>
#include <zlib.h>

#include <media/stagefright/MediaErrors.h>
#include <utils/Log.h>

namespace android {

namespace {

// Largest byte range kept in memory as a plain cache: a sample-table box.
// A day of 60 fps video plus audio is ~10M samples, ~60 MiB of size, offset
// and time tables; anything larger is damaged and is read from the file.
constexpr uint64_t kMaxCachedRangeBytes = 128 * 1024 * 1024;

// Largest expanded movie header accepted: compressed headers come from
// QuickTime's authoring tools and hold sample tables of a few MiB; 64 MiB is
// far above any of them and bounds what a zip bomb can make us allocate.
constexpr uint64_t kMaxExpandedHeaderBytes = 64 * 1024 * 1024;

// An empty range still gets a real allocation, so that a null pointer only
// ever means "no cache".
uint8_t* allocateZeroed(size_t size) { return static_cast<uint8_t*>(calloc(size > 0 ? size : 1, 1)); }

// [offset, offset + size) inside [start, start + length), written so that
// nothing can wrap.
bool rangeInside(int64_t offset, size_t size, int64_t start, uint32_t length) {
    if (offset < start) return false;
    uint64_t from = static_cast<uint64_t>(offset - start);
    return size <= length && from <= length - size;
}

}  // namespace

ZIRKMOVDataSource::ZIRKMOVDataSource(const sp<DataSource>& source)
    : mCompressedMode(false),
      mSource(source),
      mCachedOffset(0),
      mCachedSize(0),
      mCache(nullptr),
      mCompressedCachedOffset(0),
      mCompressedCachedSize(0),
      mCompressedCache(nullptr) {}

ZIRKMOVDataSource::~ZIRKMOVDataSource() {
    clearCache();
    clearCompressedCache();
}

status_t ZIRKMOVDataSource::initCheck() const { return mSource->initCheck(); }

status_t ZIRKMOVDataSource::getSize(off64_t* size) { return mSource->getSize(size); }

uint32_t ZIRKMOVDataSource::flags() { return mSource->flags(); }

ssize_t ZIRKMOVDataSource::readAt(off64_t offset, void* data, size_t size) {
    std::lock_guard<std::mutex> lock(mLock);
    if (mCompressedMode) {
        if (!rangeInside(offset, size, mCompressedCachedOffset, mCompressedCachedSize)) {
            ALOGE("read beyond the compressed cache range, offset(%lld), size=%d ",
                  static_cast<long long>(offset), static_cast<int>(size));
            return ERROR_IO;
        }
        if (size > 0) memcpy(data, mCompressedCache + (offset - mCompressedCachedOffset), size);
        return static_cast<ssize_t>(size);
    }
    if (rangeInside(offset, size, mCachedOffset, mCachedSize)) {
        if (size > 0) memcpy(data, mCache + (offset - mCachedOffset), size);
        return static_cast<ssize_t>(size);
    }
    return mSource->readAt(offset, data, size);
}

ssize_t ZIRKMOVDataSource::readSampleAt(off64_t offset, void* data, size_t size) {
    std::lock_guard<std::mutex> lock(mLock);
    return mSource->readAt(offset, data, size);
}

// A range whose size comes from the file is held to the file's end when the
// wrapped source knows it; the allocation caps hold it otherwise.
bool ZIRKMOVDataSource::fitsInFile(int64_t offset, uint64_t size) {
    off64_t fileSize;
    if (offset < 0) return false;
    if (mSource->getSize(&fileSize) != OK || fileSize < 0) return true;
    return offset <= fileSize && size <= static_cast<uint64_t>(fileSize - offset);
}

status_t ZIRKMOVDataSource::setCachedRange(off64_t offset, size_t size) {
    std::lock_guard<std::mutex> lock(mLock);
    clearCacheLocked();
    if (size > kMaxCachedRangeBytes || !fitsInFile(offset, size)) return ERROR_MALFORMED;
    mCache = allocateZeroed(size);
    if (mCache == nullptr) return NO_MEMORY;
    mCachedOffset = offset;
    mCachedSize = static_cast<uint32_t>(size);
    ssize_t n = mSource->readAt(offset, mCache, size);
    if (n < static_cast<ssize_t>(size)) {
        clearCacheLocked();
        return ERROR_IO;
    }
    return OK;
}

status_t ZIRKMOVDataSource::setCompressedCachedRange(off64_t offset, size_t uncompressedSize,
                                                     size_t compressedSize) {
    std::lock_guard<std::mutex> lock(mLock);
    clearCompressedCacheLocked();
    // Both sizes are the file's word: checked before either allocation.
    if (uncompressedSize > kMaxExpandedHeaderBytes || compressedSize > kMaxExpandedHeaderBytes ||
        !fitsInFile(offset, compressedSize)) {
        return ERROR_MALFORMED;
    }
    uint8_t* expanded = allocateZeroed(uncompressedSize);
    if (expanded == nullptr) return NO_MEMORY;
    uint8_t* compressed = allocateZeroed(compressedSize);
    if (compressed == nullptr) {
        ALOGE("memory malloc for compressedMoovData failed");
        free(expanded);
        return NO_MEMORY;
    }
    ssize_t n = mSource->readAt(offset, compressed, compressedSize);
    uLongf expandedLength = static_cast<uLongf>(uncompressedSize);
    // zlib writes at most uncompressedSize bytes, so a stream that would
    // expand further (a zip bomb) stops there with an error, in time bounded
    // by the cap.
    bool ok = n >= static_cast<ssize_t>(compressedSize) &&
              uncompress(expanded, &expandedLength, compressed, static_cast<uLong>(compressedSize)) == Z_OK;
    free(compressed);
    if (!ok) {
        // Both buffers are gone; no pointer to either is kept.
        free(expanded);
        return ERROR_IO;
    }
    mCompressedCache = expanded;
    mCompressedCachedOffset = 0;
    mCompressedCachedSize = static_cast<uint32_t>(expandedLength);
    mCompressedMode = true;
    return OK;
}

void ZIRKMOVDataSource::clearCache() {
    std::lock_guard<std::mutex> lock(mLock);
    clearCacheLocked();
}

void ZIRKMOVDataSource::clearCompressedCache() {
    std::lock_guard<std::mutex> lock(mLock);
    clearCompressedCacheLocked();
}

void ZIRKMOVDataSource::clearCacheLocked() {
    free(mCache);
    mCache = nullptr;
    mCachedOffset = 0;
    mCachedSize = 0;
}

void ZIRKMOVDataSource::clearCompressedCacheLocked() {
    free(mCompressedCache);
    mCompressedCache = nullptr;
    mCompressedCachedOffset = 0;
    mCompressedCachedSize = 0;
}

}  // namespace android
