#define LOG_TAG "ZIRKMOVSampleTable"

#include "mov/ZIRKMOVSampleTable.h"

#include <stdlib.h>

#include <algorithm>

#include <memory>
#include <new>

#include <media/stagefright/MediaErrors.h>
#include <media/stagefright/Utils.h>
#include <utils/Log.h>
#include <zirk/ZIRKByteReader.h>

#include "common/ZIRKSafeMath.h"
#include "mov/ZIRKMOVChecks.h"
#include "mov/ZIRKMOVSampleIterator.h"

namespace android {

using namespace movchecks;

namespace {

// The time-sorted sample and chunk arrays cost 8 bytes an entry; a time
// search over more entries than this (48 MiB) is refused as unsupported.
// Sample counts of an stsz with a constant size are not backed by bytes of
// the file, so this cap is also what bounds those arrays.
constexpr uint32_t kMaxTimeSortedEntries = 0x600000;

// Loaded tables are read this many bytes at a time, so that their memory
// grows only with what the file really holds, whatever their counts claim.
constexpr size_t kTableReadBytes = 64 * 1024;

// The thumbnail is the largest of the first sync samples, up to this many.
constexpr uint32_t kThumbnailCandidates = 20;

// Frames a byte of compressed audio can hold where a sample size of 1 counts
// frames: 4-bit ADPCM holds 2, low-rate MP3 about 16; 64 leaves room.
constexpr uint64_t kMaxFramesPerByte = 64;

// Listed sample sizes are summed this many at a time.
constexpr uint32_t kSizesPerRead = 1024;

// Audio framing classes from the audio sample entry: the two Microsoft
// ADPCM entries and MP3.
enum { kAudioFormatMP3 = 5 };

// The payload lies where a read can name each byte of it.
bool payloadFits(off64_t offset, uint64_t size) {
    return offset >= 0 && size <= static_cast<uint64_t>(INT64_MAX - offset);
}

// Two big-endian 32-bit fields of an 8-byte table entry.
template <typename Entry>
Entry readPair(const uint8_t* entry) {
    ZIRKByteReader r(entry, 8);
    uint32_t first = 0, second = 0;
    r.readBE32(&first);
    r.readBE32(&second);
    return Entry{first, second};
}

// The 8-byte header of a table box: the version-and-flags word must be 0;
// the entry count follows.
status_t readTableHeader(const sp<DataSource>& source, off64_t offset, uint32_t* count) {
    uint8_t header[8];
    if (source->readAt(offset, header, sizeof(header)) < static_cast<ssize_t>(sizeof(header))) return ERROR_IO;
    ZIRKByteReader r(header, sizeof(header));
    uint32_t versionAndFlags = 0;
    r.readBE32(&versionAndFlags);
    r.readBE32(count);
    if (versionAndFlags != 0) return ERROR_MALFORMED;
    return OK;
}

// Reads `count` entries of `entrySize` bytes from `offset` a piece at a
// time, handing each complete entry to `keep` (false: no memory for it). A
// short read hands over the complete entries before it, then fails with
// ERROR_IO, as reading entry by entry would.
template <typename Keep>
status_t readEntries(const sp<DataSource>& source, off64_t offset, uint32_t count, size_t entrySize, Keep keep) {
    if (count == 0) return OK;
    std::unique_ptr<uint8_t[]> piece(new (std::nothrow) uint8_t[kTableReadBytes]);
    if (!piece) return NO_MEMORY;
    const size_t perPiece = kTableReadBytes / entrySize;
    for (uint32_t done = 0; done < count;) {
        const size_t n = count - done < perPiece ? count - done : perPiece;
        const size_t length = n * entrySize;
        const ssize_t got = source->readAt(offset + static_cast<off64_t>(done) * entrySize, piece.get(), length);
        const size_t complete = got > 0 ? (static_cast<size_t>(got) < length ? got : length) / entrySize : 0;
        for (size_t i = 0; i < complete; ++i) {
            if (!keep(piece.get() + i * entrySize)) return NO_MEMORY;
        }
        if (got < static_cast<ssize_t>(length)) return ERROR_IO;
        done += n;
    }
    return OK;
}

uint64_t saturatingAdd(uint64_t a, uint64_t b) {
    uint64_t sum;
    return zirkAdd(a, b, &sum) ? sum : UINT64_MAX;
}

// A requested time held to [-1, 2^32]: every comparison with a 32-bit entry
// time comes out as before, and every difference stays in range.
int64_t clampRequest(int64_t time) {
    if (time < -1) return -1;
    if (time > static_cast<int64_t>(UINT32_MAX) + 1) return static_cast<int64_t>(UINT32_MAX) + 1;
    return time;
}

int64_t distance(uint32_t a, int64_t b) { return llabs(static_cast<int64_t>(a) - b); }

}  // namespace

ZIRKMOVSampleTable::CompositionDeltaLookup::CompositionDeltaLookup()
    : mDeltaEntries(nullptr), mNumDeltaEntries(0), mCurrentDeltaEntry(0), mCurrentEntrySampleIndex(0) {}

void ZIRKMOVSampleTable::CompositionDeltaLookup::setEntries(const CompositionDeltaEntry* entries, size_t numEntries) {
    std::lock_guard<std::mutex> lock(mLock);
    mDeltaEntries = entries;
    mNumDeltaEntries = numEntries;
    mCurrentDeltaEntry = 0;
    mCurrentEntrySampleIndex = 0;
}

uint32_t ZIRKMOVSampleTable::CompositionDeltaLookup::getCompositionTimeOffset(uint32_t sampleIndex) {
    std::lock_guard<std::mutex> lock(mLock);
    if (mDeltaEntries == nullptr) return 0;
    if (sampleIndex < mCurrentEntrySampleIndex) {
        mCurrentDeltaEntry = 0;
        mCurrentEntrySampleIndex = 0;
    }
    while (mCurrentDeltaEntry < mNumDeltaEntries) {
        const uint32_t count = mDeltaEntries[mCurrentDeltaEntry].mCount;
        if (sampleIndex < mCurrentEntrySampleIndex + count) return mDeltaEntries[mCurrentDeltaEntry].mOffset;
        mCurrentEntrySampleIndex += count;
        ++mCurrentDeltaEntry;
    }
    return 0;
}

ZIRKMOVSampleTable::ZIRKMOVSampleTable(const sp<DataSource>& source)
    : mDataSource(source),
      mChunkOffsetOffset(-1),
      mChunkOffsetType(0),
      mNumChunkOffsets(0),
      mSampleToChunkOffset(-1),
      mNumSampleToChunkOffsets(0),
      mSampleSizeOffset(-1),
      mSampleSizeFieldSize(0),
      mDefaultSampleSize(0),
      mNumSampleSizes(0),
      mTimeToSampleLoaded(false),
      mTimeToSampleCount(0),
      mChunkEntriesBuilt(false),
      mCompositionDeltasLoaded(false),
      mNumCompositionTimeDeltaEntries(0),
      mCompositionDeltaLookup(new CompositionDeltaLookup),
      mSyncSampleOffset(-1),
      mNumSyncSamples(0),
      mSampleIterator(new ZIRKMOVSampleIterator(this)),
      mSampleEntriesBuilt(false),
      mLastSyncSampleIndex(0),
      mChunkLookupEntry(0),
      mChunkLookupFirstSample(0),
      mAudioFormat(-1) {}

ZIRKMOVSampleTable::~ZIRKMOVSampleTable() {}

bool ZIRKMOVSampleTable::isValid() const {
    std::lock_guard<std::mutex> lock(mLock);
    return mChunkOffsetOffset >= 0 && mSampleToChunkOffset >= 0 && mSampleSizeOffset >= 0 && mTimeToSampleLoaded;
}

status_t ZIRKMOVSampleTable::setChunkOffsetParams(uint32_t type, off64_t dataOffset, uint64_t dataSize) {
    std::lock_guard<std::mutex> lock(mLock);
    if (mChunkOffsetOffset >= 0) return ERROR_MALFORMED;
    ZIRK_CHECK_HERE(kSampleTable, "type == kChunkOffsetType32 || type == kChunkOffsetType64", type == kChunkOffsetType32 || type == kChunkOffsetType64);  // must stay fatal
    mChunkOffsetOffset = dataOffset;
    mChunkOffsetType = type;
    if (dataSize < 8 || !payloadFits(dataOffset, dataSize)) return ERROR_MALFORMED;
    uint32_t count;
    status_t err = readTableHeader(mDataSource, dataOffset, &count);
    if (err != OK) return err;
    if (!zirkFitsIn(count, type == kChunkOffsetType32 ? 4 : 8, dataSize - 8)) return ERROR_MALFORMED;
    mNumChunkOffsets = count;
    return OK;
}

status_t ZIRKMOVSampleTable::setSampleToChunkParams(off64_t dataOffset, uint64_t dataSize) {
    std::lock_guard<std::mutex> lock(mLock);
    if (mSampleToChunkOffset >= 0 || dataSize < 8) return ERROR_MALFORMED;
    mSampleToChunkOffset = dataOffset;
    if (!payloadFits(dataOffset, dataSize)) return ERROR_MALFORMED;
    uint32_t count;
    status_t err = readTableHeader(mDataSource, dataOffset, &count);
    if (err != OK) return err;
    if (!zirkFitsIn(count, 12, dataSize - 8)) return ERROR_MALFORMED;
    Vector<SampleToChunkEntry> entries;
    err = readEntries(mDataSource, dataOffset + 8, count, 12, [&entries](const uint8_t* buffer) {
        ZIRKByteReader r(buffer, 12);
        uint32_t firstChunk = 0, samplesPerChunk = 0, descriptionIndex = 0;
        r.readBE32(&firstChunk);
        r.readBE32(&samplesPerChunk);
        r.readBE32(&descriptionIndex);
        // File content can trigger this; it must stay fatal.
        ZIRK_CHECK_HERE(kSampleTable, "U32_AT(buffer) >= 1", firstChunk >= 1);
        return entries.add({firstChunk - 1, samplesPerChunk, descriptionIndex}) >= 0;
    });
    if (err != OK) return err;
    mSampleToChunkEntries = std::move(entries);
    mNumSampleToChunkOffsets = count;
    return OK;
}

status_t ZIRKMOVSampleTable::setSampleSizeParams(uint32_t type, off64_t dataOffset, uint64_t dataSize) {
    std::lock_guard<std::mutex> lock(mLock);
    if (mSampleSizeOffset >= 0) return ERROR_MALFORMED;
    ZIRK_CHECK_HERE(kSampleTable, "type == kSampleSizeType32 || type == kSampleSizeTypeCompact", type == kSampleSizeType32 || type == kSampleSizeTypeCompact);  // must stay fatal
    mSampleSizeOffset = dataOffset;
    if (dataSize < 12 || !payloadFits(dataOffset, dataSize)) return ERROR_MALFORMED;
    uint8_t header[12];
    if (mDataSource->readAt(dataOffset, header, sizeof(header)) < static_cast<ssize_t>(sizeof(header))) {
        return ERROR_IO;
    }
    ZIRKByteReader fields(header, sizeof(header));
    uint32_t versionAndFlags = 0, defaultSize = 0, count = 0;
    fields.readBE32(&versionAndFlags);
    fields.readBE32(&defaultSize);
    fields.readBE32(&count);
    if (versionAndFlags != 0) return ERROR_MALFORMED;
    uint32_t fieldSize = 32;
    if (type == kSampleSizeType32) {
        // A constant size lists nothing, so its count needs no bytes in the
        // box; but a file holds at most one sample per byte (or, with a size
        // of 1, where QuickTime counts the frames of compressed audio,
        // kMaxFramesPerByte): a count past that is refused rather than built
        // into time tables of 8 bytes a sample (a 100-byte box could
        // otherwise ask for 6M entries).
        if (defaultSize == 0 && !zirkFitsIn(count, 4, dataSize - 12)) return ERROR_MALFORMED;
        off64_t fileSize;
        const uint64_t perByte = defaultSize == 1 ? kMaxFramesPerByte : 1;
        if (defaultSize != 0 && mDataSource->getSize(&fileSize) == OK && fileSize >= 0 &&
            static_cast<uint64_t>(count) > static_cast<uint64_t>(fileSize) * perByte) {
            return ERROR_MALFORMED;
        }
    } else {
        // 24 reserved bits, then the field size.
        if (defaultSize > 255) return ERROR_MALFORMED;
        fieldSize = defaultSize;
        if (fieldSize != 4 && fieldSize != 8 && fieldSize != 16) return ERROR_MALFORMED;
        if (((static_cast<uint64_t>(count) * fieldSize + 4) >> 3) + 12 > dataSize) return ERROR_MALFORMED;
    }
    mSampleSizeFieldSize = fieldSize;
    mDefaultSampleSize = type == kSampleSizeType32 ? defaultSize : 0;
    mNumSampleSizes = count;
    return OK;
}

status_t ZIRKMOVSampleTable::setTimeToSampleParams(off64_t dataOffset, uint64_t dataSize) {
    std::lock_guard<std::mutex> lock(mLock);
    if (mTimeToSampleLoaded || dataSize < 8 || !payloadFits(dataOffset, dataSize)) return ERROR_MALFORMED;
    uint32_t count;
    status_t err = readTableHeader(mDataSource, dataOffset, &count);
    if (err != OK) return err;
    // Entries past the box would be the bytes of the boxes after it.
    if (!zirkFitsIn(count, 8, dataSize - 8)) return ERROR_MALFORMED;
    Vector<TimeToSampleEntry> entries;
    err = readEntries(mDataSource, dataOffset + 8, count, 8, [&entries](const uint8_t* entry) {
        return entries.add(readPair<TimeToSampleEntry>(entry)) >= 0;
    });
    if (err != OK) return err;
    mTimeToSample = std::move(entries);
    mTimeToSampleCount = count;
    mTimeToSampleLoaded = true;
    return OK;
}

status_t ZIRKMOVSampleTable::setCompositionTimeToSampleParams(off64_t dataOffset, uint64_t dataSize) {
    ALOGI("There are reordered frames present.");
    std::lock_guard<std::mutex> lock(mLock);
    if (mCompositionDeltasLoaded || dataSize < 8 || !payloadFits(dataOffset, dataSize)) return ERROR_MALFORMED;
    uint32_t count;
    status_t err = readTableHeader(mDataSource, dataOffset, &count);
    if (err != OK) return err;
    if (dataSize != (static_cast<uint64_t>(count) + 1) * 8) return ERROR_MALFORMED;
    Vector<CompositionDeltaEntry> entries;
    err = readEntries(mDataSource, dataOffset + 8, count, 8, [&entries](const uint8_t* entry) {
        return entries.add(readPair<CompositionDeltaEntry>(entry)) >= 0;
    });
    if (err != OK) return err;
    mCompositionTimeDeltaEntries = std::move(entries);
    mNumCompositionTimeDeltaEntries = count;
    mCompositionDeltasLoaded = true;
    mCompositionDeltaLookup->setEntries(mCompositionTimeDeltaEntries.array(), count);
    return OK;
}

status_t ZIRKMOVSampleTable::setSyncSampleParams(off64_t dataOffset, uint64_t dataSize) {
    std::lock_guard<std::mutex> lock(mLock);
    if (mSyncSampleOffset >= 0 || dataSize < 8) return ERROR_MALFORMED;
    mSyncSampleOffset = dataOffset;
    if (!payloadFits(dataOffset, dataSize)) return ERROR_MALFORMED;
    uint32_t count;
    status_t err = readTableHeader(mDataSource, dataOffset, &count);
    if (err != OK) return err;
    if (!zirkFitsIn(count, 4, dataSize - 8)) return ERROR_MALFORMED;
    Vector<uint32_t> entries;
    err = readEntries(mDataSource, dataOffset + 8, count, 4, [&entries](const uint8_t* entry) {
        // Zero-based; an entry of 0 names no sample and becomes 0xFFFFFFFF,
        // past every sample index.
        uint32_t sample = 0;
        ZIRKByteReader(entry, 4).readBE32(&sample);
        return entries.add(sample - 1) >= 0;
    });
    if (err != OK) return err;
    mSyncSamples = std::move(entries);
    mNumSyncSamples = count;
    return OK;
}

void ZIRKMOVSampleTable::setAudioFormat(int32_t audioFormat) {
    std::lock_guard<std::mutex> lock(mLock);
    mAudioFormat = audioFormat;
}

uint32_t ZIRKMOVSampleTable::countChunkOffsets() const {
    std::lock_guard<std::mutex> lock(mLock);
    return mNumChunkOffsets;
}

uint32_t ZIRKMOVSampleTable::countSamples() const {
    std::lock_guard<std::mutex> lock(mLock);
    return mNumSampleSizes;
}

status_t ZIRKMOVSampleTable::getMaxSampleSize(size_t* size) {
    std::lock_guard<std::mutex> lock(mLock);
    *size = 0;
    if (mDefaultSampleSize != 0) {
        *size = mDefaultSampleSize;
        return OK;
    }
    uint32_t sizes[kSizesPerRead];
    uint32_t largest = 0;
    for (uint32_t first = 0; first < mNumSampleSizes;) {
        const uint32_t n = mNumSampleSizes - first < kSizesPerRead ? mNumSampleSizes - first : kSizesPerRead;
        status_t err = mSampleIterator->getSampleSizes(first, n, sizes);
        if (err != OK) return err;
        for (uint32_t i = 0; i < n; ++i) largest = sizes[i] > largest ? sizes[i] : largest;
        first += n;
    }
    *size = largest;
    return OK;
}

uint32_t ZIRKMOVSampleTable::getCompositionTimeOffset(uint32_t sampleIndex) {
    return mCompositionDeltaLookup->getCompositionTimeOffset(sampleIndex);
}

uint32_t ZIRKMOVSampleTable::compositionTime(uint64_t decodingTime, uint32_t sampleIndex) {
    // Offsets are signed (negative ones occur in version 0 boxes), so a time
    // may fall below 0; past 2^33 no offset brings it back into range.
    if (decodingTime >= (1ull << 33)) return UINT32_MAX;
    const int64_t time = static_cast<int64_t>(decodingTime) +
                         static_cast<int32_t>(mCompositionDeltaLookup->getCompositionTimeOffset(sampleIndex));
    if (time < 0) return 0;
    return time > static_cast<int64_t>(UINT32_MAX) ? UINT32_MAX : static_cast<uint32_t>(time);
}

int ZIRKMOVSampleTable::CompareIncreasingTime(const SampleTimeEntry* a, const SampleTimeEntry* b) {
    if (a->mTime < b->mTime) return -1;
    if (a->mTime > b->mTime) return 1;
    return 0;
}

status_t ZIRKMOVSampleTable::buildSampleEntriesTable() {
    if (mSampleEntriesBuilt) return OK;
    if (mNumSampleSizes > kMaxTimeSortedEntries) return ERROR_UNSUPPORTED;
    Vector<SampleTimeEntry> entries;
    uint32_t sampleIndex = 0;
    uint64_t decodingTime = 0;
    // Samples past the sample count get no entry, so the walk ends where they
    // begin (their times would only have advanced); samples the stts does
    // not reach get none either.
    for (uint32_t i = 0; i < mTimeToSampleCount && sampleIndex < mNumSampleSizes; ++i) {
        const TimeToSampleEntry& run = mTimeToSample[i];
        const uint32_t left = mNumSampleSizes - sampleIndex;
        const uint32_t stored = run.mCount < left ? run.mCount : left;
        for (uint32_t j = 0; j < stored; ++j) {
            if (entries.add({sampleIndex, compositionTime(decodingTime, sampleIndex)}) < 0) return NO_MEMORY;
            ++sampleIndex;
            decodingTime = saturatingAdd(decodingTime, run.mDelta);
        }
    }
    entries.sort(CompareIncreasingTime);
    mSampleTimeEntries = std::move(entries);
    mSampleEntriesBuilt = true;
    return OK;
}

status_t ZIRKMOVSampleTable::buildChunkEntriesTable() {
    if (mChunkEntriesBuilt) return OK;
    if (mNumChunkOffsets > kMaxTimeSortedEntries) return ERROR_UNSUPPORTED;
    Vector<SampleTimeEntry> entries;
    // Without chunks there is nothing to time; without stsc entries the
    // chunks after the first have no known samples.
    if (mNumChunkOffsets > 0 && entries.add({0, compositionTime(0, 0)}) < 0) return NO_MEMORY;
    if (mNumChunkOffsets > 0 && mNumSampleToChunkOffsets > 0) {
        uint32_t samplesPerChunk = mSampleToChunkEntries[0].samplesPerChunk;
        uint32_t nextEntry = 1;
        while (nextEntry < mNumSampleToChunkOffsets && mSampleToChunkEntries[nextEntry].startChunk == 0) {
            samplesPerChunk = mSampleToChunkEntries[nextEntry++].samplesPerChunk;
        }
        uint32_t chunk = 0;
        uint32_t leftInChunk = samplesPerChunk;
        uint64_t sampleIndex = 0;
        uint64_t decodingTime = 0;
        bool outOfMemory = false;
        // Moves on past every used-up chunk, storing the time of each next
        // one (an empty chunk is used up at once). False when no chunk is
        // left to store, or when the stsc table goes backwards: the chunks
        // after that are not described, as if the table had ended.
        auto nextChunks = [&]() {
            while (leftInChunk == 0) {
                if (++chunk >= mNumChunkOffsets) return false;
                const uint32_t first = sampleIndex < UINT32_MAX ? static_cast<uint32_t>(sampleIndex) : UINT32_MAX;
                if (entries.add({chunk, compositionTime(decodingTime, first)}) < 0) {
                    outOfMemory = true;
                    return false;
                }
                while (nextEntry < mNumSampleToChunkOffsets && mSampleToChunkEntries[nextEntry].startChunk <= chunk) {
                    if (mSampleToChunkEntries[nextEntry].startChunk < chunk) return false;
                    samplesPerChunk = mSampleToChunkEntries[nextEntry++].samplesPerChunk;
                }
                leftInChunk = samplesPerChunk;
            }
            return true;
        };
        bool more = nextChunks();
        // Samples are taken a run at a time (the shorter of what is left of
        // the stts entry and of the chunk), so huge counts cost no more than
        // small ones; every step uses up the entry or a chunk.
        for (uint32_t i = 0; more && i < mTimeToSampleCount; ++i) {
            uint64_t left = mTimeToSample[i].mCount;
            while (more && left > 0) {
                const uint32_t take = left < leftInChunk ? static_cast<uint32_t>(left) : leftInChunk;
                sampleIndex += take;
                decodingTime = saturatingAdd(decodingTime, static_cast<uint64_t>(take) * mTimeToSample[i].mDelta);
                left -= take;
                leftInChunk -= take;
                more = nextChunks();
            }
        }
        if (outOfMemory) return NO_MEMORY;
    }
    entries.sort(CompareIncreasingTime);
    mChunkEntries = std::move(entries);
    mChunkEntriesBuilt = true;
    return OK;
}

status_t ZIRKMOVSampleTable::findTimeIn(const Vector<SampleTimeEntry>& entries, int64_t time, uint32_t flags,
                                        bool chunks, size_t* position) {
    const size_t n = entries.size();
    // Nothing to find: as a time past the end.
    if (n == 0) return ERROR_OUT_OF_RANGE;
    time = clampRequest(time);
    size_t left = 0;
    size_t right = n;
    while (left < right) {
        const size_t centre = (left + right) / 2;
        const int64_t centreTime = entries[centre].mTime;
        if (time < centreTime) {
            right = centre;
        } else if (time > centreTime) {
            left = centre + 1;
        } else {
            left = centre;
            break;
        }
    }
    if (left == n) {
        if (flags == kFlagAfter) return ERROR_OUT_OF_RANGE;
        left = n - 1;
    }
    if (flags == kFlagBefore) {
        while (left > 0 && entries[left].mTime > time) --left;
    } else if (flags == kFlagAfter) {
        while (left + 1 < n && entries[left].mTime < time) ++left;
    } else {
        if (chunks) {
            ZIRK_CHECK_HERE(kSampleTable, "flags == kFlagClosest", flags == kFlagClosest);  // must stay fatal
        } else {
            ZIRK_CHECK_HERE(kSampleTable, "flags == kFlagClosest", flags == kFlagClosest);  // must stay fatal
        }
        // On a tie the later entry stays.
        if (left > 0 && distance(entries[left].mTime, time) > distance(entries[left - 1].mTime, time)) --left;
    }
    *position = left;
    return OK;
}

status_t ZIRKMOVSampleTable::findSampleAtTime(int64_t time, uint32_t* sampleIndex, uint32_t flags) {
    std::lock_guard<std::mutex> lock(mLock);
    if (buildSampleEntriesTable() != OK) return ERROR_UNSUPPORTED;
    size_t position;
    status_t err = findTimeIn(mSampleTimeEntries, time, flags, false, &position);
    if (err != OK) return err;
    *sampleIndex = mSampleTimeEntries[position].mIndex;
    return OK;
}

status_t ZIRKMOVSampleTable::findChunkAtTime(int64_t time, uint32_t* chunkIndex, uint32_t* chunkTime,
                                             uint32_t flags) {
    std::lock_guard<std::mutex> lock(mLock);
    if (buildChunkEntriesTable() != OK) return ERROR_UNSUPPORTED;
    size_t position;
    status_t err = findTimeIn(mChunkEntries, time, flags, true, &position);
    if (err != OK) return err;
    *chunkIndex = mChunkEntries[position].mIndex;
    *chunkTime = mChunkEntries[position].mTime;
    return OK;
}

status_t ZIRKMOVSampleTable::findSyncSampleNear(uint32_t startSampleIndex, uint32_t* sampleIndex, uint32_t flags) {
    std::lock_guard<std::mutex> lock(mLock);
    *sampleIndex = 0;
    // Without an stss box every sample is a sync sample.
    if (mSyncSampleOffset < 0) {
        *sampleIndex = startSampleIndex;
        return OK;
    }
    const uint32_t n = mNumSyncSamples;
    if (n == 0) return OK;

    uint32_t left = 0;
    uint32_t right = n;
    while (left < right) {
        const uint32_t centre = left + (right - left) / 2;
        if (startSampleIndex < mSyncSamples[centre]) {
            right = centre;
        } else if (startSampleIndex > mSyncSamples[centre]) {
            left = centre + 1;
        } else {
            left = centre;
            break;
        }
    }
    if (left == n) {
        if (flags == kFlagAfter) {
            ALOGE("tried to find a sync frame after the last one: %d", static_cast<int>(left));
            return ERROR_OUT_OF_RANGE;
        }
        left = n - 1;
    }
    if (left > 0 && mSyncSamples[left] > startSampleIndex) --left;
    uint32_t x = mSyncSamples[left];

    if (left + 1 < n) {
        const uint32_t y = mSyncSamples[left + 1];
        uint32_t times[3];
        const uint32_t samples[3] = {startSampleIndex, x, y};
        for (int i = 0; i < 3; ++i) {
            status_t err = mSampleIterator->seekTo(samples[i]);
            if (err != OK) return err;
            times[i] = mSampleIterator->getSampleTime();
        }
        if (distance(times[1], times[0]) > distance(times[2], times[0])) {
            x = y;
            ++left;
        }
    }

    if (flags == kFlagClosest) {
        *sampleIndex = x;
    } else if (flags == kFlagAfter) {
        if (x >= startSampleIndex) {
            *sampleIndex = x;
        } else if (left + 1 >= n) {
            return ERROR_OUT_OF_RANGE;
        } else if (mSyncSamples[left + 1] >= startSampleIndex) {
            *sampleIndex = mSyncSamples[left + 1];
        } else {
            return ERROR_MALFORMED;
        }
    } else if (flags == kFlagBefore) {
        if (x <= startSampleIndex) {
            *sampleIndex = x;
        } else {
            // Reached by a sample before the first sync sample; it must stay fatal.
            ZIRK_CHECK_HERE(kSampleTable, "left > 0", left > 0);
            if (mSyncSamples[left - 1] > startSampleIndex) return ERROR_MALFORMED;
            *sampleIndex = mSyncSamples[left - 1];
        }
    } else {
        // No seek mode maps to any other value.
        return ERROR_UNSUPPORTED;
    }
    return OK;
}

status_t ZIRKMOVSampleTable::findThumbnailSample(uint32_t* sampleIndex) {
    std::lock_guard<std::mutex> lock(mLock);
    *sampleIndex = 0;
    if (mSyncSampleOffset < 0) return OK;
    uint32_t bestSize = 0;
    const uint32_t candidates = mNumSyncSamples < kThumbnailCandidates ? mNumSyncSamples : kThumbnailCandidates;
    for (uint32_t i = 0; i < candidates; ++i) {
        uint32_t size;
        status_t err = mSampleIterator->getSampleSizeDirect(mSyncSamples[i], &size);
        if (err != OK) return err;
        if (i == 0 || size > bestSize) {
            *sampleIndex = mSyncSamples[i];
            bestSize = size;
        }
    }
    return OK;
}

bool ZIRKMOVSampleTable::isSyncSampleLocked(uint32_t sampleIndex) {
    if (mSyncSampleOffset < 0) return true;
    const uint32_t n = mNumSyncSamples;
    if (n == 0) return false;
    // A position past the last entry (left by a sample after every sync
    // sample) looks again from the last entry.
    uint32_t i = mLastSyncSampleIndex < n ? mLastSyncSampleIndex : n - 1;
    // Samples visited in order move the position forward a step at a time;
    // one behind it is looked up from the start by halving (the entries
    // ascend in every file this serves; in one where they do not, some
    // position is still found within the table).
    if (i > 0 && mSyncSamples[i - 1] >= sampleIndex) {
        i = static_cast<uint32_t>(std::lower_bound(&mSyncSamples[0], &mSyncSamples[0] + i, sampleIndex) -
                                  &mSyncSamples[0]);
    }
    while (i < n && mSyncSamples[i] < sampleIndex) ++i;
    mLastSyncSampleIndex = i;
    return i < n && mSyncSamples[i] == sampleIndex;
}

status_t ZIRKMOVSampleTable::getMetaDataForSample(uint32_t sampleIndex, off64_t* offset, size_t* size,
                                                  uint32_t* compositionTime, bool* isSyncSample) {
    std::lock_guard<std::mutex> lock(mLock);
    status_t err = mSampleIterator->seekTo(sampleIndex);
    if (err != OK) return err;
    if (offset) *offset = mSampleIterator->getSampleOffset();
    if (size) *size = mSampleIterator->getSampleSize();
    if (compositionTime) *compositionTime = mSampleIterator->getSampleTime();
    // Chunk offsets past the end of the file are reported as they are: the
    // table cannot tell a damaged offset from a file cut short, and the
    // sample's read finds out (ERROR_IO).
    if (isSyncSample) {
        *isSyncSample = isSyncSampleLocked(sampleIndex);
    } else {
        isSyncSampleLocked(sampleIndex);
    }
    return OK;
}

status_t ZIRKMOVSampleTable::findChunkSamples(uint32_t chunkIndex, uint64_t* firstSample,
                                              uint32_t* samplesPerChunk) {
    const uint32_t n = mNumSampleToChunkOffsets;
    // The table places no sample in a chunk before its first entry.
    if (n == 0 || chunkIndex < mSampleToChunkEntries[0].startChunk) return ERROR_MALFORMED;
    uint32_t i = 0;
    uint64_t first = 0;
    if (mChunkLookupEntry < n && mSampleToChunkEntries[mChunkLookupEntry].startChunk <= chunkIndex) {
        i = mChunkLookupEntry;
        first = mChunkLookupFirstSample;
    }
    while (i + 1 < n && mSampleToChunkEntries[i + 1].startChunk <= chunkIndex) {
        const SampleToChunkEntry& entry = mSampleToChunkEntries[i];
        const uint32_t next = mSampleToChunkEntries[i + 1].startChunk;
        // Backwards entries, as the iterator finds them.
        if (next < entry.startChunk) return ERROR_MALFORMED;
        first = saturatingAdd(first, static_cast<uint64_t>(next - entry.startChunk) * entry.samplesPerChunk);
        ++i;
    }
    mChunkLookupEntry = i;
    mChunkLookupFirstSample = first;
    const SampleToChunkEntry& entry = mSampleToChunkEntries[i];
    *firstSample = saturatingAdd(first, static_cast<uint64_t>(chunkIndex - entry.startChunk) * entry.samplesPerChunk);
    *samplesPerChunk = entry.samplesPerChunk;
    return OK;
}

status_t ZIRKMOVSampleTable::chunkByteSize(uint32_t firstSample, uint32_t samples, int32_t blockAlign,
                                           int32_t samplesPerPacket, uint64_t* bytes) {
    if (mDefaultSampleSize != 0) {
        const bool framed = mAudioFormat >= 0 && mAudioFormat <= kAudioFormatMP3;
        if (framed && mDefaultSampleSize == 1 && blockAlign > 0 && samplesPerPacket > 0) {
            const uint64_t packets = (static_cast<uint64_t>(samples) + samplesPerPacket - 1) / samplesPerPacket;
            *bytes = packets * static_cast<uint64_t>(blockAlign);
        } else {
            *bytes = static_cast<uint64_t>(samples) * mDefaultSampleSize;
        }
        return OK;
    }
    uint32_t sizes[kSizesPerRead];
    uint64_t total = 0;
    for (uint32_t done = 0; done < samples;) {
        const uint32_t n = samples - done < kSizesPerRead ? samples - done : kSizesPerRead;
        status_t err = mSampleIterator->getSampleSizes(firstSample + done, n, sizes);
        if (err != OK) return err;
        for (uint32_t i = 0; i < n; ++i) total += sizes[i];  // under 2^32 sizes under 2^32 each
        done += n;
    }
    *bytes = total;
    return OK;
}

status_t ZIRKMOVSampleTable::getMetaDataForChunk(uint32_t chunkIndex, off64_t* offset, size_t* size,
                                                 uint32_t* compositionTime, uint32_t* samplesInChunk,
                                                 int32_t blockAlign, int32_t samplesPerPacket) {
    std::lock_guard<std::mutex> lock(mLock);
    uint64_t chunkOffset;
    status_t err = mSampleIterator->getChunkOffset(chunkIndex, &chunkOffset);
    if (err != OK) return err;
    uint64_t firstSample;
    uint32_t samplesPerChunk;
    err = findChunkSamples(chunkIndex, &firstSample, &samplesPerChunk);
    if (err != OK) return err;
    // A chunk after the last sample: the track ends before it.
    if (firstSample >= mNumSampleSizes) return ERROR_END_OF_STREAM;
    const uint32_t first = static_cast<uint32_t>(firstSample);
    const uint32_t samples = samplesPerChunk < mNumSampleSizes - first ? samplesPerChunk : mNumSampleSizes - first;
    uint64_t bytes;
    err = chunkByteSize(first, samples, blockAlign, samplesPerPacket, &bytes);
    if (err != OK) return err;
    // The chunk must be one read's worth at a position a read can name.
    if (bytes > UINT32_MAX || chunkOffset > static_cast<uint64_t>(INT64_MAX) - bytes) return ERROR_MALFORMED;
    if (mAudioFormat == kAudioFormatMP3) {
        uint8_t header[4];
        if (bytes >= sizeof(header)) {
            ssize_t n = mDataSource->readAt(static_cast<off64_t>(chunkOffset), header, sizeof(header));
            if (n < static_cast<ssize_t>(sizeof(header))) return ERROR_IO;
        }
        // 11 set bits open an MPEG audio frame.
        uint32_t word = 0;
        if (bytes >= sizeof(header)) ZIRKByteReader(header, sizeof(header)).readBE32(&word);
        if (bytes < sizeof(header) || (word & 0xFFE00000) != 0xFFE00000) {
            ALOGE("Can't find the first sync code for MP3 !!!");
            return ERROR_END_OF_STREAM;
        }
    }
    uint32_t time;
    err = mSampleIterator->findSampleTime(first, &time);
    if (err != OK) return err;
    if (offset) *offset = static_cast<off64_t>(chunkOffset);
    if (size) *size = static_cast<size_t>(bytes);
    if (compositionTime) *compositionTime = time;
    if (samplesInChunk) *samplesInChunk = samples;
    return OK;
}

}  // namespace android
