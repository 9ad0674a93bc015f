#define LOG_TAG "ZIRKMOVSampleIterator"

#include "mov/ZIRKMOVSampleIterator.h"

#include <string.h>

#include <media/stagefright/MediaErrors.h>
#include <media/stagefright/Utils.h>
#include <utils/Log.h>
#include <zirk/ZIRKByteReader.h>

#include "common/ZIRKSafeMath.h"
#include "mov/ZIRKMOVChecks.h"
#include "mov/ZIRKMOVSampleTable.h"

namespace android {

using namespace movchecks;

namespace {

// Sample sizes are read this many bytes at a time: one read serves
// thousands of samples, from a buffer on the stack.
constexpr size_t kSizeReadBytes = 4096;

// Sizes of one chunk kept while it is current. A chunk of more listed
// samples than this (real files have a few thousand at most) is refused as
// unsupported, like time searches over more samples than the same count.
constexpr uint32_t kMaxChunkSamples = 0x600000;

// Stop chunk and stop sample of the last stsc range: it has no end.
constexpr uint32_t kNoStop = 0xFFFFFFFF;

uint64_t saturatingAdd(uint64_t a, uint64_t b) {
    uint64_t sum;
    return zirkAdd(a, b, &sum) ? sum : UINT64_MAX;
}

}  // namespace

ZIRKMOVSampleIterator::ZIRKMOVSampleIterator(ZIRKMOVSampleTable* table)
    : mTable(table),
      mInitialized(false),
      mSampleToChunkIndex(0),
      mFirstChunk(0),
      mFirstChunkSampleIndex(0),
      mStopChunk(0),
      mStopChunkSampleIndex(0),
      mSamplesPerChunk(0),
      mChunkDesc(0),
      mCurrentChunkValid(false),
      mCurrentChunkIndex(0),
      mCurrentChunkOffset(0),
      mCurrentChunkFirstSample(0),
      mPrefixPosition(0),
      mPrefixOffset(0),
      mTimeToSampleIndex(0),
      mTTSSampleIndex(0),
      mTTSSampleTime(0),
      mTTSCount(0),
      mTTSDuration(0),
      mCurrentSampleIndex(0),
      mCurrentSampleOffset(0),
      mCurrentSampleSize(0),
      mCurrentSampleTime(0) {}

void ZIRKMOVSampleIterator::reset() {
    mSampleToChunkIndex = 0;
    mFirstChunk = 0;
    mFirstChunkSampleIndex = 0;
    mStopChunk = 0;
    mStopChunkSampleIndex = 0;
    mSamplesPerChunk = 0;
    mChunkDesc = 0;
}

status_t ZIRKMOVSampleIterator::seekTo(uint32_t sampleIndex) {
    const ZIRKMOVSampleTable& table = *mTable;
    if (sampleIndex >= table.mNumSampleSizes) return ERROR_END_OF_STREAM;
    if (table.mChunkOffsetOffset < 0 || table.mSampleToChunkOffset < 0 || table.mSampleSizeOffset < 0 ||
        table.mTimeToSampleCount == 0) {
        return ERROR_MALFORMED;
    }
    if (mInitialized && sampleIndex == mCurrentSampleIndex) return OK;

    if (!mInitialized || sampleIndex < mFirstChunkSampleIndex) reset();
    if (sampleIndex >= mStopChunkSampleIndex) {
        status_t err = findChunkRange(sampleIndex);
        if (err != OK) {
            ALOGE("findChunkRange failed");
            return err;
        }
    }
    ZIRK_CHECK_HERE(kSampleIterator, "sampleIndex < mStopChunkSampleIndex", sampleIndex < mStopChunkSampleIndex);  // must stay fatal

    // Earlier ranges with no samples per chunk hold no samples and the walk
    // passes them; a sample can land in one only when it is the last range,
    // and no chunk of it holds the sample.
    if (mSamplesPerChunk == 0) return ERROR_MALFORMED;

    const uint32_t inRange = sampleIndex - mFirstChunkSampleIndex;
    const uint32_t position = inRange % mSamplesPerChunk;
    const uint64_t chunk = static_cast<uint64_t>(inRange / mSamplesPerChunk) + mFirstChunk;
    if (chunk > UINT32_MAX) {
        // Past every chunk index the stco/co64 box could list.
        ALOGE("getChunkOffset return error");
        return ERROR_OUT_OF_RANGE;
    }
    const uint32_t chunkFirstSample = sampleIndex - position;
    if (!mCurrentChunkValid || chunk != mCurrentChunkIndex || chunkFirstSample != mCurrentChunkFirstSample) {
        status_t err = loadChunk(static_cast<uint32_t>(chunk), chunkFirstSample);
        if (err != OK) return err;
    }
    // A loaded chunk holds all its samples' sizes; the guard keeps a stale
    // cache from ever being read past its end.
    if (table.mDefaultSampleSize == 0 && position >= mCurrentChunkSampleSizes.size()) return ERROR_MALFORMED;

    uint64_t offset;
    status_t err = sampleOffsetInChunk(position, &offset);
    if (err != OK) return err;
    const uint32_t size = table.mDefaultSampleSize != 0 ? table.mDefaultSampleSize : mCurrentChunkSampleSizes[position];
    // The sample must end at a file position a read can name.
    if (offset > static_cast<uint64_t>(INT64_MAX) - size) return ERROR_MALFORMED;

    uint32_t time;
    err = findSampleTime(sampleIndex, &time);
    if (err != OK) {
        ALOGE("findSampleTime return error");
        return err;
    }

    mCurrentSampleIndex = sampleIndex;
    mCurrentSampleOffset = static_cast<off64_t>(offset);
    mCurrentSampleSize = size;
    mCurrentSampleTime = time;
    mInitialized = true;
    return OK;
}

status_t ZIRKMOVSampleIterator::loadChunk(uint32_t chunk, uint32_t first) {
    const ZIRKMOVSampleTable& table = *mTable;
    mCurrentChunkValid = false;
    mCurrentChunkIndex = chunk;
    status_t err = getChunkOffset(chunk, &mCurrentChunkOffset);
    if (err != OK) {
        ALOGE("getChunkOffset return error");
        return err;
    }

    mCurrentChunkFirstSample = first;
    mCurrentChunkSampleSizes.clear();
    // Every sample of the chunk is read; those past the sample count fail
    // (below) as their size reads would, after the ones before them.
    const uint32_t available = table.mNumSampleSizes - first;
    const uint32_t present = mSamplesPerChunk < available ? mSamplesPerChunk : available;
    if (table.mDefaultSampleSize == 0) {
        if (present > kMaxChunkSamples) {
            ALOGE("getSampleSizeDirect return error");
            return ERROR_UNSUPPORTED;
        }
        if (mCurrentChunkSampleSizes.setCapacity(present) < 0) return NO_MEMORY;
        constexpr uint32_t kSizesPerRead = kSizeReadBytes / sizeof(uint32_t);
        uint32_t sizes[kSizesPerRead];
        for (uint32_t done = 0; done < present;) {
            const uint32_t n = present - done < kSizesPerRead ? present - done : kSizesPerRead;
            err = getSampleSizes(first + done, n, sizes);
            if (err != OK) {
                ALOGE("getSampleSizeDirect return error");
                return err;
            }
            for (uint32_t i = 0; i < n; ++i) mCurrentChunkSampleSizes.add(sizes[i]);  // capacity is reserved
            done += n;
        }
    }
    if (present < mSamplesPerChunk) {
        ALOGE("getSampleSizeDirect return error");
        return ERROR_OUT_OF_RANGE;
    }
    mPrefixPosition = 0;
    mPrefixOffset = mCurrentChunkOffset;
    mCurrentChunkValid = true;
    return OK;
}

status_t ZIRKMOVSampleIterator::sampleOffsetInChunk(uint32_t position, uint64_t* offset) {
    const uint32_t defaultSize = mTable->mDefaultSampleSize;
    uint64_t at;
    if (defaultSize != 0) {
        if (!zirkMul(static_cast<uint64_t>(defaultSize), position, &at) || !zirkAdd(at, mCurrentChunkOffset, &at)) {
            return ERROR_MALFORMED;
        }
    } else {
        uint32_t from = 0;
        at = mCurrentChunkOffset;
        if (position >= mPrefixPosition) {
            from = mPrefixPosition;
            at = mPrefixOffset;
        }
        for (uint32_t i = from; i < position; ++i) {
            if (!zirkAdd(at, mCurrentChunkSampleSizes[i], &at)) return ERROR_MALFORMED;
        }
        mPrefixPosition = position;
        mPrefixOffset = at;
    }
    if (at > static_cast<uint64_t>(INT64_MAX)) return ERROR_MALFORMED;
    *offset = at;
    return OK;
}

status_t ZIRKMOVSampleIterator::findChunkRange(uint32_t sampleIndex) {
    ZIRK_CHECK_HERE(kSampleIterator, "sampleIndex >= mFirstChunkSampleIndex", sampleIndex >= mFirstChunkSampleIndex);  // must stay fatal

    const ZIRKMOVSampleTable& table = *mTable;
    while (sampleIndex >= mStopChunkSampleIndex) {
        if (mSampleToChunkIndex == table.mNumSampleToChunkOffsets) return ERROR_OUT_OF_RANGE;
        const ZIRKMOVSampleTable::SampleToChunkEntry& entry = table.mSampleToChunkEntries[mSampleToChunkIndex];
        uint32_t stopChunk = kNoStop;
        uint32_t stopSample = kNoStop;
        if (mSampleToChunkIndex + 1 < table.mNumSampleToChunkOffsets) {
            stopChunk = table.mSampleToChunkEntries[mSampleToChunkIndex + 1].startChunk;
            // An entry that starts before the one it follows would give its
            // range a negative number of chunks.
            if (stopChunk < entry.startChunk) return ERROR_MALFORMED;
            const uint64_t stop = mStopChunkSampleIndex +
                                  static_cast<uint64_t>(stopChunk - entry.startChunk) * entry.samplesPerChunk;
            // A range that runs past the last sample index a table can have
            // holds every sample from here on.
            stopSample = stop < kNoStop ? static_cast<uint32_t>(stop) : kNoStop;
        }
        mFirstChunkSampleIndex = mStopChunkSampleIndex;
        mFirstChunk = entry.startChunk;
        mSamplesPerChunk = entry.samplesPerChunk;
        mChunkDesc = entry.chunkDesc;
        mStopChunk = stopChunk;
        mStopChunkSampleIndex = stopSample;
        ++mSampleToChunkIndex;
    }
    return OK;
}

status_t ZIRKMOVSampleIterator::getChunkOffset(uint32_t chunk, uint64_t* offset) {
    *offset = 0;
    const ZIRKMOVSampleTable& table = *mTable;
    if (chunk >= table.mNumChunkOffsets) return ERROR_OUT_OF_RANGE;
    // Inside the box: its size was checked against the chunk count.
    if (table.mChunkOffsetType == ZIRKMOVSampleTable::kChunkOffsetType32) {
        uint8_t word[4];
        const off64_t base = table.mChunkOffsetOffset + 8;
        status_t err = readTable(&mChunkOffsetWindow, base + 4 * static_cast<off64_t>(chunk),
                                 base + 4 * static_cast<off64_t>(table.mNumChunkOffsets), word, sizeof(word));
        if (err != OK) return err;
        uint32_t offset32 = 0;
        ZIRKByteReader(word, sizeof(word)).readBE32(&offset32);
        *offset = offset32;
    } else {
        ZIRK_CHECK_EQ_HERE(kSampleIterator, "mTable->mChunkOffsetType,ZIRKMOVSampleTable::kChunkOffsetType64",
                           mTable->mChunkOffsetType, ZIRKMOVSampleTable::kChunkOffsetType64);  // must stay fatal
        uint8_t word[8];
        const off64_t base = table.mChunkOffsetOffset + 8;
        status_t err = readTable(&mChunkOffsetWindow, base + 8 * static_cast<off64_t>(chunk),
                                 base + 8 * static_cast<off64_t>(table.mNumChunkOffsets), word, sizeof(word));
        if (err != OK) return err;
        ZIRKByteReader(word, sizeof(word)).readBE64(offset);
    }
    return OK;
}

status_t ZIRKMOVSampleIterator::readTable(TableWindow* window, off64_t at, off64_t tableEnd, void* out,
                                          size_t length) {
    if (window->start >= 0 && at >= window->start && static_cast<uint64_t>(at - window->start) <= window->length &&
        length <= window->length - static_cast<size_t>(at - window->start)) {
        memcpy(out, window->bytes + (at - window->start), length);
        return OK;
    }
    if (length > sizeof(window->bytes)) {
        if (mTable->mDataSource->readAt(at, out, length) < static_cast<ssize_t>(length)) return ERROR_IO;
        return OK;
    }
    // Up to a page from `at` on, within the table (the file may still end
    // before it does).
    size_t want = sizeof(window->bytes);
    if (tableEnd > at && static_cast<uint64_t>(tableEnd - at) < want) want = static_cast<size_t>(tableEnd - at);
    if (want < length) want = length;
    const ssize_t n = mTable->mDataSource->readAt(at, window->bytes, want);
    if (n < static_cast<ssize_t>(length)) {
        window->start = -1;
        return ERROR_IO;
    }
    window->start = at;
    window->length = static_cast<size_t>(n);
    memcpy(out, window->bytes, length);
    return OK;
}

status_t ZIRKMOVSampleIterator::getSampleSizeDirect(uint32_t sampleIndex, uint32_t* size) {
    *size = 0;
    if (sampleIndex >= mTable->mNumSampleSizes) return ERROR_OUT_OF_RANGE;
    return getSampleSizes(sampleIndex, 1, size);
}

status_t ZIRKMOVSampleIterator::getSampleSizes(uint32_t first, uint32_t count, uint32_t* out) {
    const ZIRKMOVSampleTable& table = *mTable;
    if (first > table.mNumSampleSizes || count > table.mNumSampleSizes - first) return ERROR_OUT_OF_RANGE;
    if (table.mDefaultSampleSize != 0) {
        for (uint32_t i = 0; i < count; ++i) out[i] = table.mDefaultSampleSize;
        return OK;
    }
    const uint32_t fieldSize = table.mSampleSizeFieldSize;
    if (fieldSize != 32 && fieldSize != 16 && fieldSize != 8) {
        ZIRK_CHECK_EQ_HERE(kSampleIterator, "mTable->mSampleSizeFieldSize,4", mTable->mSampleSizeFieldSize, 4u);  // must stay fatal
    }
    // Samples per read: two 4-bit fields share a byte, and a run starting on
    // an odd sample needs one byte more than half its count.
    const uint32_t perRead = fieldSize == 4 ? 2 * (kSizeReadBytes - 1) : kSizeReadBytes / (fieldSize / 8);
    // Inside the box: its size was checked against the sample count.
    const off64_t base = table.mSampleSizeOffset + 12;
    const uint64_t count64 = table.mNumSampleSizes;
    const off64_t tableEnd = base + static_cast<off64_t>(fieldSize == 4 ? (count64 + 1) / 2 : count64 * (fieldSize / 8));
    uint8_t bytes[kSizeReadBytes];
    for (uint32_t done = 0; done < count;) {
        const uint32_t index = first + done;
        const uint32_t n = count - done < perRead ? count - done : perRead;
        off64_t at;
        size_t length;
        if (fieldSize == 4) {
            at = base + index / 2;
            length = (static_cast<size_t>(index) + n - 1) / 2 - index / 2 + 1;
        } else {
            at = base + static_cast<off64_t>(index) * (fieldSize / 8);
            length = static_cast<size_t>(n) * (fieldSize / 8);
        }
        status_t err = readTable(&mSampleSizeWindow, at, tableEnd, bytes, length);
        if (err != OK) return err;
        ZIRKByteReader fields(bytes, length);
        for (uint32_t i = 0; i < n; ++i) {
            uint16_t size16 = 0;
            switch (fieldSize) {
                case 32: fields.readBE32(&out[done + i]); break;
                case 16: fields.readBE16(&size16); out[done + i] = size16; break;
                case 8: out[done + i] = bytes[i]; break;
                default: {
                    // An even sample takes the high nibble, an odd one the low.
                    const uint8_t pair = bytes[(index + i) / 2 - index / 2];
                    out[done + i] = ((index + i) & 1) ? (pair & 0x0F) : (pair >> 4);
                    break;
                }
            }
        }
        done += n;
    }
    return OK;
}

status_t ZIRKMOVSampleIterator::findSampleTime(uint32_t sampleIndex, uint32_t* time) {
    const ZIRKMOVSampleTable& table = *mTable;
    if (sampleIndex >= table.mNumSampleSizes) return ERROR_OUT_OF_RANGE;

    // A sample before the current stts entry (a seek back) walks from the
    // first entry again.
    if (sampleIndex < mTTSSampleIndex) {
        mTimeToSampleIndex = 0;
        mTTSSampleIndex = 0;
        mTTSSampleTime = 0;
        mTTSCount = 0;
        mTTSDuration = 0;
    }
    while (sampleIndex >= mTTSSampleIndex + mTTSCount) {
        if (mTimeToSampleIndex == table.mTimeToSampleCount) return ERROR_OUT_OF_RANGE;
        mTTSSampleIndex += mTTSCount;
        mTTSSampleTime = saturatingAdd(mTTSSampleTime, static_cast<uint64_t>(mTTSCount) * mTTSDuration);
        mTTSCount = table.mTimeToSample[mTimeToSampleIndex].mCount;
        mTTSDuration = table.mTimeToSample[mTimeToSampleIndex].mDelta;
        ++mTimeToSampleIndex;
    }
    const uint64_t decodingTime =
            saturatingAdd(mTTSSampleTime, static_cast<uint64_t>(mTTSDuration) * (sampleIndex - mTTSSampleIndex));
    *time = mTable->compositionTime(decodingTime, sampleIndex);
    return OK;
}

}  // namespace android
