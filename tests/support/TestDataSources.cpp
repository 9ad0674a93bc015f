#include "TestDataSources.h"

#include <ctype.h>
#include <string.h>

#include <algorithm>
#include <filesystem>
#include <sstream>

#include <media/stagefright/MediaDefs.h>

#include "entry/ZIRKContainerRegistry.h"

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
    // Left out: ASF's test file holds Windows Media streams, which stay hidden
    // unless a system property is set; RealMedia lives in a library of its own.
    static const char* const kNotReadHere[] = {"ASF", "RealMedia"};
    std::vector<MediaFile> files;
    for (const auto& entry : std::filesystem::directory_iterator(ZIRK_TESTDATA_DIR)) {
        const std::string ext = entry.path().extension();
        const ZIRKContainerInfo* c = ext.empty() ? nullptr : ZIRKContainerForExtension(ext.c_str() + 1);
        if (c == nullptr || std::any_of(std::begin(kNotReadHere), std::end(kNotReadHere),
                                        [c](const char* name) { return !strcmp(name, c->name); })) {
            continue;
        }
        files.push_back({entry.path().filename(), c->mimeType()});
    }
    std::sort(files.begin(), files.end(), [](const MediaFile& a, const MediaFile& b) { return a.name < b.name; });
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
    const uint64_t begin = static_cast<uint64_t>(offset);
    if (mMode == kNone || size == 0 || begin + size <= mFaultOffset || (mMode == kHole && begin > mFaultOffset)) {
        return MemorySource::readAt(offset, data, size);
    }
    if (mMode == kNegativeRead) return ERROR_IO;
    if (mMode == kZeroRead || begin >= mFaultOffset) return 0;
    return MemorySource::readAt(offset, data, static_cast<size_t>(mFaultOffset - begin));  // short read
}

status_t FaultySource::getSize(off64_t* size) {
    if (!mSizeKnown) return ERROR_UNSUPPORTED;
    return MemorySource::getSize(size);
}

ssize_t GapSource::readAt(off64_t offset, void* data, size_t size) {
    if (offset < 0) return ERROR_IO;
    const uint64_t begin = static_cast<uint64_t>(offset);
    const uint64_t end = std::min<uint64_t>(begin + size, mBytes.size() + mGapBytes);
    uint8_t* out = static_cast<uint8_t*>(data);
    for (uint64_t pos = begin; pos < end; ++pos) {
        *out++ = pos < mGapAt ? mBytes[pos] : pos < mGapAt + mGapBytes ? 0 : mBytes[pos - mGapBytes];
    }
    return static_cast<ssize_t>(std::max(begin, end) - begin);
}

}  // namespace test
}  // namespace android
