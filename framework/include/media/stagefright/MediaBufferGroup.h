// MediaBufferGroup: a pool of MediaBuffers owned by a started source.
// acquire_buffer blocks until a buffer is free; a buffer comes back when its
// holder calls release(), from any thread. Deleting the group deletes its
// free buffers; a buffer still held then is detached and deletes itself on
// its final release. The group must not be deleted while another thread is
// inside a buffer's release().
#ifndef MEDIA_BUFFER_GROUP_H_
#define MEDIA_BUFFER_GROUP_H_

#include <condition_variable>
#include <mutex>
#include <vector>

#include <media/stagefright/MediaBuffer.h>
#include <utils/Errors.h>

namespace android {

class MediaBufferGroup : public MediaBufferObserver {
public:
    MediaBufferGroup();
    ~MediaBufferGroup();

    // Takes ownership of `buffer`.
    void add_buffer(MediaBuffer* buffer);

    // Hands out a free buffer with one reference, its range reset to the
    // whole buffer and its metadata cleared. With nonBlocking it returns
    // NO_INIT instead of waiting when none is free; a group with no buffers
    // at all answers NO_INIT rather than waiting forever.
    status_t acquire_buffer(MediaBuffer** buffer, bool nonBlocking = false);

    void signalBufferReturned(MediaBuffer* buffer) override;

private:
    std::mutex mLock;
    std::condition_variable mCondition;
    std::vector<MediaBuffer*> mBuffers;

    MediaBufferGroup(const MediaBufferGroup&) = delete;
    MediaBufferGroup& operator=(const MediaBufferGroup&) = delete;
};

}  // namespace android

#endif
