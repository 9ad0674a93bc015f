// DataSources for tests: bytes in memory, a file read back in small odd-sized
// pieces, and a source that injects faults (short reads, failed reads,
// unknown size) at chosen offsets. All are safe for concurrent readAt.
#ifndef ZIRK_TEST_DATA_SOURCES_H_
#define ZIRK_TEST_DATA_SOURCES_H_

#include <stdint.h>
#include <string.h>

#include <fstream>
#include <iterator>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include <media/stagefright/DataSource.h>

#include "ByteWriter.h"

namespace android {
namespace test {

std::vector<uint8_t> readFileBytes(const std::string& path);

// The bundled test media folder (set by the build).
std::string testdataPath(const std::string& name);

// The rows of a CSV file of testdata/ (ffprobe's packet lists, the tag and
// index dumps), each field under the column name its '#' header line gives.
using CsvRow = std::map<std::string, std::string>;
std::vector<CsvRow> readTestdataCsv(const std::string& name);

// The real container files of testdata/ that this build reads (by the
// container registry's extensions), sorted by name, each with its container
// MIME type. Prints as its name in test output.
struct MediaFile {
    std::string name;
    const char* containerMime;
};
std::vector<MediaFile> mediaTestFiles();
void PrintTo(const MediaFile& file, std::ostream* os);
// A test-name-safe form of a file name ("a.flv" -> "a_flv"), and the
// parameter name generator that gives it for a MediaFile.
std::string testNameFor(const std::string& fileName);
struct MediaFileName {
    template <typename ParamInfo>
    std::string operator()(const ParamInfo& info) const { return testNameFor(info.param.name); }
};

class MemorySource : public DataSource {
public:
    explicit MemorySource(std::vector<uint8_t> bytes) : mBytes(std::move(bytes)) {}
    status_t initCheck() const override { return OK; }
    ssize_t readAt(off64_t offset, void* data, size_t size) override;
    status_t getSize(off64_t* size) override {
        *size = static_cast<off64_t>(mBytes.size());
        return OK;
    }

protected:
    std::vector<uint8_t> mBytes;
};

// Serves every readAt by copying from memory in pieces of `pieceSize` bytes
// (odd sizes exercise callers that assume one large copy), and counts reads.
class PiecewiseSource : public MemorySource {
public:
    PiecewiseSource(std::vector<uint8_t> bytes, size_t pieceSize)
        : MemorySource(std::move(bytes)), mPieceSize(pieceSize ? pieceSize : 1) {}
    ssize_t readAt(off64_t offset, void* data, size_t size) override;

private:
    size_t mPieceSize;
};

// Faults are keyed by the read's offset range: any read touching a byte at or
// past `faultOffset` is answered per `mode`. The fault and the bytes may be
// changed between reads, as if the file were rewritten or cut under a running
// extractor (not while other threads read).
class FaultySource : public MemorySource {
public:
    enum Mode {
        kNone,
        kShortRead,     // returns fewer bytes than asked (stops at faultOffset)
        kNegativeRead,  // returns ERROR_IO
        kZeroRead,      // returns 0
        kHole,          // kShortRead, but reads that start past faultOffset are served
    };
    FaultySource(std::vector<uint8_t> bytes, Mode mode, uint64_t faultOffset, bool sizeKnown = true)
        : MemorySource(std::move(bytes)), mMode(mode), mFaultOffset(faultOffset), mSizeKnown(sizeKnown) {}
    ssize_t readAt(off64_t offset, void* data, size_t size) override;
    status_t getSize(off64_t* size) override;
    void setFault(Mode mode, uint64_t faultOffset) {
        mMode = mode;
        mFaultOffset = faultOffset;
    }
    void poke(size_t offset, uint8_t value) { mBytes.at(offset) = value; }

private:
    Mode mMode;
    uint64_t mFaultOffset;
    bool mSizeKnown;
};

// `bytes` with `gapBytes` zero bytes inserted at `gapAt`, never stored: a
// file of several GiB whose only real bytes are headers and indexes.
class GapSource : public MemorySource {
public:
    GapSource(std::vector<uint8_t> bytes, uint64_t gapAt, uint64_t gapBytes)
        : MemorySource(std::move(bytes)), mGapAt(gapAt), mGapBytes(gapBytes) {}
    ssize_t readAt(off64_t offset, void* data, size_t size) override;
    status_t getSize(off64_t* size) override {
        *size = static_cast<off64_t>(mBytes.size() + mGapBytes);
        return OK;
    }

private:
    uint64_t mGapAt, mGapBytes;
};

}  // namespace test
}  // namespace android

#endif
