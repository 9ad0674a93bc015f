#include <media/stagefright/DataSource.h>
#include <media/stagefright/FileSource.h>
#include <media/stagefright/MediaExtractor.h>
#include <media/stagefright/Utils.h>

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <zirk/ZIRKPreadFully.h>

namespace android {

// ---- MediaExtractor defaults ----

sp<MetaData> MediaExtractor::getMetaData() { return new MetaData; }

uint32_t MediaExtractor::flags() const {
    return CAN_SEEK_BACKWARD | CAN_SEEK_FORWARD | CAN_PAUSE | CAN_SEEK;
}

// ---- DataSource ----

status_t DataSource::getSize(off64_t* size) {
    *size = 0;
    return ERROR_UNSUPPORTED;
}

String8 DataSource::getMIMEType() const { return String8("application/octet-stream"); }

bool DataSource::getUInt16(off64_t offset, uint16_t* x) {
    uint8_t b[2];
    if (readAt(offset, b, 2) != 2) return false;
    *x = U16_AT(b);
    return true;
}

bool DataSource::getUInt24(off64_t offset, uint32_t* x) {
    uint8_t b[3];
    if (readAt(offset, b, 3) != 3) return false;
    *x = (static_cast<uint32_t>(b[0]) << 16) | (b[1] << 8) | b[2];
    return true;
}

bool DataSource::getUInt32(off64_t offset, uint32_t* x) {
    uint8_t b[4];
    if (readAt(offset, b, 4) != 4) return false;
    *x = U32_AT(b);
    return true;
}

bool DataSource::getUInt64(off64_t offset, uint64_t* x) {
    uint8_t b[8];
    if (readAt(offset, b, 8) != 8) return false;
    *x = U64_AT(b);
    return true;
}

// ---- FileSource ----

FileSource::FileSource(const char* filename) : mFd(-1), mOffset(0), mLength(-1) {
    mFd = open(filename, O_RDONLY | O_CLOEXEC);
    if (mFd >= 0) {
        struct stat st;
        if (fstat(mFd, &st) != 0 || !S_ISREG(st.st_mode)) {
            close(mFd);
            mFd = -1;
        } else {
            mLength = st.st_size;
        }
    }
}

FileSource::FileSource(int fd, int64_t offset, int64_t length)
    : mFd(fd), mOffset(offset), mLength(length) {
    if (mFd >= 0 && (offset < 0 || length < 0)) {
        close(mFd);
        mFd = -1;
    }
}

FileSource::~FileSource() {
    if (mFd >= 0) close(mFd);
}

status_t FileSource::initCheck() const { return mFd >= 0 ? OK : NO_INIT; }

ssize_t FileSource::readAt(off64_t offset, void* data, size_t size) {
    if (mFd < 0) return NO_INIT;
    if (offset < 0) return ERROR_IO;
    if (offset >= mLength) return 0;
    uint64_t available = static_cast<uint64_t>(mLength - offset);
    if (size > available) size = static_cast<size_t>(available);
    return zirkPreadFully(mFd, data, size, mOffset + offset, ERROR_IO);
}

status_t FileSource::getSize(off64_t* size) {
    if (mFd < 0) return NO_INIT;
    *size = mLength;
    return OK;
}

}  // namespace android
