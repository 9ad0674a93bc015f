// ZIRKCachedFileSource: a DataSource over a file that makes many small reads
// cheap. Small reads are served from a few read-ahead windows of the file;
// reads of at least kDirectReadBytes go straight to the file with pread, into
// the caller's memory, without a copy. Read-ahead adapts to the pattern: a
// small read that continues the previous ones or a window (a scan over small
// tags or chunks, one per track or index pass) refills a window, four times
// larger at each step up to a whole one, while a small read far from them (the
// header of the next large sample) fetches one page, so that files of large
// samples are not read twice. A direct read also brings the page that follows
// it into a window, in the same system call: in an interleaved file that page
// holds the next tag header or the small chunk of the other track. Results
// are byte-for-byte those of a plain pread of the same range.
//
// Memory is bounded: kWindowCount windows of kWindowBytes each, allocated
// when first used. readAt is safe from several threads at once: one lock
// guards the windows, and no file read is made under it (a window being
// filled is marked busy and is neither served nor claimed until it is done),
// so a background walk never holds up a reader for the length of a read. Owns the descriptor it opens,
// closed on destruction. Exported for users of the library.
#ifndef ZIRK_CACHED_FILE_SOURCE_H_
#define ZIRK_CACHED_FILE_SOURCE_H_

#include <stdint.h>

#include <memory>
#include <mutex>

#include <media/stagefright/DataSource.h>

#include "common/ZIRKExport.h"

namespace android {

class ZIRK_EXPORT ZIRKCachedFileSource : public DataSource {
public:
    // Windows: one per track read at a time in an interleaved file, plus the
    // scan's own position, with room to spare.
    static constexpr size_t kWindowCount = 4;
    // 256 KiB: a few hundred small audio/video samples per refill, and 1 MiB
    // for all windows together.
    static constexpr size_t kWindowBytes = 256 * 1024;
    // Reads this large gain nothing from a copy through a window.
    static constexpr size_t kDirectReadBytes = 16 * 1024;
    // A small read starting at most this far past the end of the previous
    // small read continues a sequential walk.
    static constexpr size_t kSequentialGapBytes = 16 * 1024;
    // What a small read away from the walk fetches: one page. A direct read
    // brings the same amount after its end.
    static constexpr size_t kSparseRefillBytes = 1024;
    // The first refill of a walk that continues one: four pages.
    static constexpr size_t kRampStartBytes = 4 * 1024;

    // While one is alive, the reads its thread makes from any
    // ZIRKCachedFileSource go straight to the file, into the caller's memory,
    // and leave the windows alone. For a pass on a thread of its own that
    // visits a few packets here and there (an index walk): through the
    // windows it would fetch a window at a time and take the windows the
    // readers on other threads are reading from. Scopes nest; one belongs to
    // the thread that made it.
    class ZIRK_EXPORT ScatteredReads {
    public:
        ScatteredReads();
        ~ScatteredReads();
        ScatteredReads(const ScatteredReads&) = delete;
        ScatteredReads& operator=(const ScatteredReads&) = delete;

    private:
        bool mOuter;
    };

    explicit ZIRKCachedFileSource(const char* path);

    status_t initCheck() const override;
    ssize_t readAt(off64_t offset, void* data, size_t size) override;
    status_t getSize(off64_t* size) override;

protected:
    ~ZIRKCachedFileSource() override;

private:
    struct Window {
        std::unique_ptr<uint8_t[]> mBytes;
        int64_t mOffset = -1;  // file offset of mBytes[0]; -1 while empty
        size_t mLength = 0;    // valid bytes (fewer at the end of the file)
        uint64_t mLastUse = 0;
        bool mBusy = false;  // being filled by a direct read without the lock
    };

    ssize_t preadFully(int64_t offset, void* data, size_t size) const;
    ssize_t readDirect(int64_t offset, void* data, size_t size);
    // The least recently used window not being filled, with its buffer
    // allocated, or null. Called with mLock held.
    Window* claimVictim();

    int mFd;
    int64_t mLength;
    std::mutex mLock;
    Window mWindows[kWindowCount];
    uint64_t mUseClock;
    int64_t mLastSmallReadEnd;
};

}  // namespace android

#endif
