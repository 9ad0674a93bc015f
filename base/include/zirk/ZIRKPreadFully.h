// The one loop that reads a file range with pread until it is complete, at
// end of file or on an error, retrying interrupted calls. Used by the file
// sources of the framework stand-in and of the library. Stateless; pread
// carries its own position, so concurrent callers need no lock.
#ifndef ZIRK_PREAD_FULLY_H_
#define ZIRK_PREAD_FULLY_H_

#include <errno.h>
#include <stddef.h>
#include <stdint.h>
#include <unistd.h>

namespace android {

// The bytes read (fewer at end of file or after an error that followed some
// bytes), or `errorStatus` when the first pread fails.
inline ssize_t zirkPreadFully(int fd, void* data, size_t size, int64_t offset, ssize_t errorStatus) {
    size_t done = 0;
    while (done < size) {
        ssize_t n = pread(fd, static_cast<uint8_t*>(data) + done, size - done, offset + static_cast<int64_t>(done));
        if (n < 0) {
            if (errno == EINTR) continue;
            return done > 0 ? static_cast<ssize_t>(done) : errorStatus;
        }
        if (n == 0) break;
        done += static_cast<size_t>(n);
    }
    return static_cast<ssize_t>(done);
}

}  // namespace android

#endif
