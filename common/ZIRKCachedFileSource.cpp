#include "common/ZIRKCachedFileSource.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <new>

#include <zirk/ZIRKPreadFully.h>

namespace android {

namespace {
// Set on a thread inside a ScatteredReads scope.
thread_local bool tScatteredReads = false;
// Scopes alive on all threads. A thread-local lookup in a shared library is a
// function call, so a read looks at the thread's flag only while some scope
// is alive; a thread always sees its own scopes in the count.
std::atomic<int> gScatteredScopes{0};
}  // namespace

ZIRKCachedFileSource::ScatteredReads::ScatteredReads() : mOuter(tScatteredReads) {
    tScatteredReads = true;
    gScatteredScopes.fetch_add(1, std::memory_order_relaxed);
}

ZIRKCachedFileSource::ScatteredReads::~ScatteredReads() {
    gScatteredScopes.fetch_sub(1, std::memory_order_relaxed);
    tScatteredReads = mOuter;
}

ZIRKCachedFileSource::ZIRKCachedFileSource(const char* path) : mFd(-1), mLength(0), mUseClock(0), mLastSmallReadEnd(-1) {
    int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) return;
    struct stat st;
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        close(fd);
        errno = EINVAL;
        return;
    }
    mFd = fd;
    mLength = st.st_size;
    // The whole file is read front to back once by most extractors.
    posix_fadvise(mFd, 0, 0, POSIX_FADV_SEQUENTIAL);
}

ZIRKCachedFileSource::~ZIRKCachedFileSource() {
    if (mFd >= 0) close(mFd);
}

status_t ZIRKCachedFileSource::initCheck() const { return mFd >= 0 ? OK : NO_INIT; }

status_t ZIRKCachedFileSource::getSize(off64_t* size) {
    if (mFd < 0) return NO_INIT;
    *size = mLength;
    return OK;
}

ssize_t ZIRKCachedFileSource::preadFully(int64_t offset, void* data, size_t size) const {
    return zirkPreadFully(mFd, data, size, offset, ERROR_IO);
}

ZIRKCachedFileSource::Window* ZIRKCachedFileSource::claimVictim() {
    Window* victim = nullptr;
    for (Window& w : mWindows) {
        if (w.mBusy) continue;
        if (victim == nullptr || w.mOffset < 0 || w.mLastUse < victim->mLastUse) victim = &w;
        if (w.mOffset < 0) break;
    }
    if (victim != nullptr && !victim->mBytes) {
        victim->mBytes.reset(new (std::nothrow) uint8_t[kWindowBytes]);
        if (!victim->mBytes) return nullptr;
    }
    return victim;
}

ssize_t ZIRKCachedFileSource::readDirect(int64_t offset, void* data, size_t size) {
    Window* trail;
    {
        std::lock_guard<std::mutex> lock(mLock);
        trail = claimVictim();
        if (trail == nullptr) return preadFully(offset, data, size);
        trail->mBusy = true;
        trail->mOffset = -1;
        trail->mLength = 0;
    }
    // One call for the caller's range and the page after it. A short count
    // fills the caller's range first; only what lies beyond it is kept.
    struct iovec parts[2] = {{data, size}, {trail->mBytes.get(), kSparseRefillBytes}};
    ssize_t n;
    do {
        n = preadv(mFd, parts, 2, offset);
    } while (n < 0 && errno == EINTR);
    size_t tail = 0;
    ssize_t result = n;
    if (n < 0) {
        result = ERROR_IO;
    } else if (static_cast<size_t>(n) > size) {
        tail = static_cast<size_t>(n) - size;
        result = static_cast<ssize_t>(size);
    } else if (static_cast<size_t>(n) < size) {
        // Rare (a file shrinking under us): the caller's range is finished
        // as a plain read would finish it.
        const ssize_t rest = preadFully(offset + n, static_cast<uint8_t*>(data) + n, size - static_cast<size_t>(n));
        result = rest < 0 ? (n > 0 ? n : rest) : n + rest;
    }
    std::lock_guard<std::mutex> lock(mLock);
    if (tail > 0) {
        trail->mOffset = offset + static_cast<int64_t>(size);
        trail->mLength = tail;
        trail->mLastUse = ++mUseClock;
    }
    trail->mBusy = false;
    return result;
}

ssize_t ZIRKCachedFileSource::readAt(off64_t offset, void* data, size_t size) {
    if (mFd < 0) return NO_INIT;
    if (offset < 0) return ERROR_IO;
    if (offset >= mLength) return 0;
    size = static_cast<size_t>(std::min<uint64_t>(size, static_cast<uint64_t>(mLength - offset)));
    if (gScatteredScopes.load(std::memory_order_relaxed) != 0 && tScatteredReads) return preadFully(offset, data, size);
    if (size >= kDirectReadBytes) return readDirect(offset, data, size);

    std::unique_lock<std::mutex> lock(mLock);
    // A walk goes on where the previous small read ended, or just past the
    // end of a window (several walks take turns in an interleaved file: one
    // per track, and a background index pass). Its refills grow fourfold from
    // kRampStartBytes up to a whole window, so that a short walk (a few
    // packets after each entry of an index) does not fetch a window each.
    // Worked out at the first miss, from the windows as they were when this
    // read began (a hit changes none of them), so that a hit does no more
    // than find its window.
    const int64_t previousEnd = mLastSmallReadEnd;
    mLastSmallReadEnd = offset + static_cast<int64_t>(size);
    auto refillSize = [&]() -> size_t {
        auto continues = [offset](int64_t end) {
            return end >= 0 && offset >= end - static_cast<int64_t>(kSequentialGapBytes) &&
                   offset - end <= static_cast<int64_t>(kSequentialGapBytes);
        };
        size_t continued = continues(previousEnd) ? kRampStartBytes / 4 : 0;
        for (const Window& w : mWindows) {
            if (w.mOffset >= 0 && continues(w.mOffset + static_cast<int64_t>(w.mLength))) {
                continued = std::max(continued, w.mLength);
            }
        }
        return continued > 0 ? std::min(kWindowBytes, std::max(kRampStartBytes, 4 * continued))
                             : std::max(kSparseRefillBytes, size);
    };
    size_t refillBytes = 0;
    uint8_t* out = static_cast<uint8_t*>(data);
    size_t done = 0;
    while (done < size) {
        int64_t at = offset + static_cast<int64_t>(done);
        Window* hit = nullptr;
        for (Window& w : mWindows) {
            if (w.mOffset >= 0 && at >= w.mOffset && static_cast<uint64_t>(at - w.mOffset) < w.mLength) {
                hit = &w;
                break;
            }
        }
        if (hit == nullptr) {
            // Refill the least recently used window starting at this read.
            Window* victim = claimVictim();
            if (victim == nullptr) {
                // Every window is being filled (or none can be allocated).
                lock.unlock();
                ssize_t n = preadFully(at, out + done, size - done);
                if (n < 0) return done > 0 ? static_cast<ssize_t>(done) : n;
                return static_cast<ssize_t>(done + static_cast<size_t>(n));
            }
            if (refillBytes == 0) refillBytes = refillSize();
            // A refill stops where another window's bytes start: two walks a
            // little apart (one per track of an interleaved file) would
            // otherwise read the same stretch of the file twice.
            size_t fill = refillBytes;
            for (const Window& w : mWindows) {
                if (&w != victim && w.mOffset > at && static_cast<uint64_t>(w.mOffset - at) < fill) {
                    fill = static_cast<size_t>(w.mOffset - at);
                }
            }
            // The window is filled without the lock, so that another walk
            // (a background index pass) does not wait for this read.
            victim->mBusy = true;
            victim->mOffset = -1;
            victim->mLength = 0;
            lock.unlock();
            ssize_t n = preadFully(at, victim->mBytes.get(), fill);
            lock.lock();
            victim->mBusy = false;
            if (n <= 0) {
                if (done > 0) return static_cast<ssize_t>(done);
                return n < 0 ? n : 0;
            }
            victim->mOffset = at;
            victim->mLength = static_cast<size_t>(n);
            hit = victim;
        }
        hit->mLastUse = ++mUseClock;
        size_t from = static_cast<size_t>(at - hit->mOffset);
        size_t take = std::min(size - done, hit->mLength - from);
        memcpy(out + done, hit->mBytes.get() + from, take);
        done += take;
    }
    return static_cast<ssize_t>(done);
}

}  // namespace android
