// Whole reads of file-declared sizes, and the status of a short read.
// Stateless; as thread-safe as the DataSource's readAt.
#ifndef ZIRK_READ_WHOLE_H_
#define ZIRK_READ_WHOLE_H_

#include <stdint.h>
#include <sys/types.h>

#include <media/stagefright/DataSource.h>
#include <media/stagefright/MediaErrors.h>
#include <media/stagefright/foundation/ABuffer.h>

namespace android {

// A read that returned `n` bytes, fewer than asked: the source's own error,
// or ERROR_MALFORMED when the data claimed more bytes than there are.
inline status_t ZIRKShortReadStatus(ssize_t n) { return n < 0 ? static_cast<status_t>(n) : ERROR_MALFORMED; }

// Reads `size` bytes at `offset` into a new buffer. The size comes from the
// file, so it is held to `maxBytes` and, when `fileSize` >= 0, to the file's
// end before anything is allocated: outside either it fails as the short
// read it would have been (ERROR_MALFORMED).
status_t ZIRKReadWhole(const sp<DataSource>& source, int64_t offset, int64_t size, int64_t fileSize,
                       int64_t maxBytes, sp<ABuffer>* out);

// The file size when the source knows it, else -1.
int64_t ZIRKFileSizeOf(const sp<DataSource>& source);

// A cap on the entries of a demultiplexer's sample tables: at most one entry
// per `minEntryBytes` of a file of known size, and never more than `hardCap`.
class ZIRKSampleLimit {
public:
    ZIRKSampleLimit() : mLimit(0), mCount(0) {}
    void reset(int64_t fileSize, uint64_t minEntryBytes, uint64_t hardCap);
    // Counts one more entry; false (counting nothing) past the cap.
    bool admit() {
        if (mCount >= mLimit) return false;
        ++mCount;
        return true;
    }

private:
    uint64_t mLimit;
    uint64_t mCount;
};

}  // namespace android

#endif
