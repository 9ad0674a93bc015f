// FileSource: a DataSource over a file path or an open descriptor (optionally
// a window of it). readAt uses pread and is safe from several threads at
// once. Owns the descriptor it opened or was given and closes it on
// destruction.
#ifndef FILE_SOURCE_H_
#define FILE_SOURCE_H_

#include <stdint.h>

#include <media/stagefright/DataSource.h>

namespace android {

class FileSource : public DataSource {
public:
    explicit FileSource(const char* filename);
    // Takes ownership of fd; serves bytes [offset, offset + length).
    FileSource(int fd, int64_t offset, int64_t length);

    status_t initCheck() const override;
    ssize_t readAt(off64_t offset, void* data, size_t size) override;
    status_t getSize(off64_t* size) override;

protected:
    ~FileSource() override;

private:
    int mFd;
    int64_t mOffset;
    int64_t mLength;
};

}  // namespace android

#endif
