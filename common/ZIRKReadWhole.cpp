#include "common/ZIRKReadWhole.h"

namespace android {

status_t ZIRKReadWhole(const sp<DataSource>& source, int64_t offset, int64_t size, int64_t fileSize,
                       int64_t maxBytes, sp<ABuffer>* out) {
    if (offset < 0 || size < 0 || size > maxBytes) return ERROR_MALFORMED;
    if (fileSize >= 0 && (offset > fileSize || size > fileSize - offset)) return ERROR_MALFORMED;
    sp<ABuffer> buffer = new ABuffer(static_cast<size_t>(size));
    if (size > 0 && buffer->base() == nullptr) return NO_MEMORY;
    ssize_t n = source->readAt(offset, buffer->data(), static_cast<size_t>(size));
    if (n < size) return ZIRKShortReadStatus(n);
    *out = buffer;
    return OK;
}

int64_t ZIRKFileSizeOf(const sp<DataSource>& source) {
    off64_t size;
    if (source->getSize(&size) == OK && size >= 0) return size;
    return -1;
}

void ZIRKSampleLimit::reset(int64_t fileSize, uint64_t minEntryBytes, uint64_t hardCap) {
    mCount = 0;
    mLimit = hardCap;
    if (fileSize >= 0 && minEntryBytes > 0 && static_cast<uint64_t>(fileSize) / minEntryBytes < mLimit) {
        mLimit = static_cast<uint64_t>(fileSize) / minEntryBytes;
    }
}

}  // namespace android
