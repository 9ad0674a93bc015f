#include "TestDataSources.h"

#include <dirent.h>

#include <algorithm>
#include <sstream>

#include <media/stagefright/MediaDefs.h>

#ifndef ZIRK_TESTDATA_DIR
#error "ZIRK_TESTDATA_DIR must be defined by the build"
#endif

namespace android {
namespace test {

std::vector<uint8_t> readFileBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

std::string testdataPath(const std::string& name) {
    return std::string(ZIRK_TESTDATA_DIR) + "/" + name;
}

std::vector<CsvRow> readTestdataCsv(const std::string& name) {
    std::ifstream in(testdataPath(name));
    std::vector<std::string> columns;
    std::vector<CsvRow> rows;
    for (std::string line; std::getline(in, line);) {
        if (line.empty()) continue;
        const bool header = line[0] == '#';
        std::vector<std::string> fields;
        std::stringstream ss(header ? line.substr(1) : line);
        for (std::string f; std::getline(ss, f, ',');) fields.push_back(f);
        if (header) {
            columns = fields;
            continue;
        }
        rows.emplace_back();
        for (size_t i = 0; i < fields.size() && i < columns.size(); ++i) rows.back()[columns[i]] = fields[i];
    }
    return rows;
}

std::vector<MediaFile> mediaTestFiles() {
    std::vector<MediaFile> files;
    DIR* dir = opendir(ZIRK_TESTDATA_DIR);
    if (dir == nullptr) return files;
    while (dirent* e = readdir(dir)) {
        std::string name = e->d_name;
        auto endsWith = [&](const std::string& x) {
            return name.size() > x.size() && name.compare(name.size() - x.size(), x.size(), x) == 0;
        };
        if (endsWith(".flv")) files.push_back({name, MEDIA_MIMETYPE_CONTAINER_FLV});
        if (endsWith(".avi")) files.push_back({name, MEDIA_MIMETYPE_CONTAINER_AVI});
    }
    closedir(dir);
    std::sort(files.begin(), files.end(),
              [](const MediaFile& a, const MediaFile& b) { return a.name < b.name; });
    return files;
}

void PrintTo(const MediaFile& file, std::ostream* os) { *os << file.name; }

std::string testNameFor(const std::string& fileName) {
    std::string name = fileName;
    for (char& c : name) {
        if (!isalnum(static_cast<unsigned char>(c))) c = '_';
    }
    return name;
}

ssize_t MemorySource::readAt(off64_t offset, void* data, size_t size) {
    if (offset < 0) return ERROR_IO;
    if (static_cast<uint64_t>(offset) >= mBytes.size()) return 0;
    size_t n = std::min(size, mBytes.size() - static_cast<size_t>(offset));
    memcpy(data, mBytes.data() + offset, n);
    return static_cast<ssize_t>(n);
}

ssize_t PiecewiseSource::readAt(off64_t offset, void* data, size_t size) {
    size_t done = 0;
    while (done < size) {
        size_t want = std::min(mPieceSize, size - done);
        ssize_t n = MemorySource::readAt(offset + static_cast<off64_t>(done),
                                         static_cast<uint8_t*>(data) + done, want);
        if (n < 0) return done ? static_cast<ssize_t>(done) : n;
        if (n == 0) break;
        done += static_cast<size_t>(n);
    }
    return static_cast<ssize_t>(done);
}

ssize_t FaultySource::readAt(off64_t offset, void* data, size_t size) {
    if (offset < 0) return ERROR_IO;
    uint64_t begin = static_cast<uint64_t>(offset);
    bool touches = mMode != kNone && size > 0 && begin + size > mFaultOffset;
    if (!touches || (mMode == kHole && begin > mFaultOffset)) return MemorySource::readAt(offset, data, size);
    switch (mMode) {
        case kShortRead:
        case kHole:
            if (begin >= mFaultOffset) return 0;
            return MemorySource::readAt(offset, data, static_cast<size_t>(mFaultOffset - begin));
        case kNegativeRead:
            return ERROR_IO;
        case kZeroRead:
            return 0;
        case kNone:
            break;
    }
    return MemorySource::readAt(offset, data, size);
}

status_t FaultySource::getSize(off64_t* size) {
    if (!mSizeKnown) return ERROR_UNSUPPORTED;
    return MemorySource::getSize(size);
}

ssize_t GapSource::readAt(off64_t offset, void* data, size_t size) {
    if (offset < 0) return ERROR_IO;
    uint8_t* out = static_cast<uint8_t*>(data);
    uint64_t pos = static_cast<uint64_t>(offset), end = mBytes.size() + mGapBytes;
    size_t done = 0;
    while (done < size && pos < end) {
        size_t n;
        if (pos < mGapAt) {
            n = static_cast<size_t>(std::min<uint64_t>(size - done, mGapAt - pos));
            memcpy(out + done, mBytes.data() + pos, n);
        } else if (pos < mGapAt + mGapBytes) {
            n = static_cast<size_t>(std::min<uint64_t>(size - done, mGapAt + mGapBytes - pos));
            memset(out + done, 0, n);
        } else {
            n = static_cast<size_t>(std::min<uint64_t>(size - done, end - pos));
            memcpy(out + done, mBytes.data() + (pos - mGapBytes), n);
        }
        done += n;
        pos += n;
    }
    return static_cast<ssize_t>(done);
}

}  // namespace test
}  // namespace android
