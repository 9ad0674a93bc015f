#define LOG_TAG "ZIRKMOVExtractor"
#include "mov/ZIRKMOVExtractor.h"

#include <stdio.h>
#include <string.h>
#include <strings.h>
#include <time.h>

#include <algorithm>

#include <media/stagefright/MediaDefs.h>
#include <media/stagefright/MediaErrors.h>
#include <media/stagefright/Utils.h>
#include <utils/Log.h>

#include "common/ZIRKSafeMath.h"
#include "mov/ZIRKMOVDataSource.h"
#include "mov/ZIRKMOVExtractorInternal.h"
#include "mov/ZIRKMOVSampleTable.h"
#include "mov/ZIRKMOVSource.h"

namespace android {

namespace {

const char* const kVersion = "QVX_libmovextractor_Rev10014_build_on_Jan  9 2014";

// Seconds from 1904-01-01 (QuickTime's epoch) to 1970-01-01.
constexpr int64_t kQuickTimeEpochOffset = 2082844800;
// A largest sample size outside 1..3145727 is not believed; 512 KiB is used.
constexpr size_t kDefaultMaxSampleSize = 524288;
// Room the track source adds to the largest sample for its buffers.
constexpr int32_t kMaxInputSizePadding = 20;
constexpr int32_t kDefaultPCMBlockAlign = 2048;
// The largest MPEG audio frame (layer II/III at the top rates).
constexpr size_t kMaxMP3FrameSize = 4608;
// ©xyz: ISO 6709 location strings such as "+37.3318-122.0312/" fit in 17.
constexpr off64_t kMaxLocationLength = 18;

bool isType(const Vector<uint32_t>& path, size_t index, uint32_t type) {
    return index < path.size() && path[index] == type;
}

// The box is under moov/udta/meta/ilst.
bool underItemList(const Vector<uint32_t>& path) {
    return isType(path, 0, 'moov') && isType(path, 1, 'udta') && isType(path, 2, 'meta') &&
           isType(path, 3, 'ilst');
}

}  // namespace

ZIRKMOVExtractor::ZIRKMOVExtractor(const sp<DataSource>& source)
    : mDataSource(source),
      mCompressedSource(nullptr),
      mInitCheck(NO_INIT),
      mHasVideo(false),
      mFirstTrack(nullptr),
      mLastTrack(nullptr),
      mFileMetaData(new MetaData),
      mWaveEnded(false),
      mInWave(false),
      mIsDrm(false),
      mReserved{false, false, false, false},
      mNesting(0) {}

ZIRKMOVExtractor::~ZIRKMOVExtractor() {
    Track* track = mFirstTrack;
    while (track != nullptr) {
        Track* next = track->next;
        delete track;
        track = next;
    }
    mFirstTrack = mLastTrack = nullptr;
}

size_t ZIRKMOVExtractor::countTracks() {
    status_t err = readMetaData();
    if (err != OK) {
        ALOGE("countTracks:error in readMetaData, err=%x", err);
        return 0;
    }
    size_t n = 0;
    for (Track* track = mFirstTrack; track != nullptr; track = track->next) ++n;
    return n;
}

sp<MediaSource> ZIRKMOVExtractor::getTrack(size_t index) {
    if (readMetaData() != OK) return nullptr;
    Track* track = mFirstTrack;
    while (track != nullptr && index > 0) {
        track = track->next;
        --index;
    }
    // Times are divided by the timescale, which the source keeps as a
    // positive 32-bit value; a track without a table cannot be read.
    if (track == nullptr || track->sampleTable == nullptr || track->timescale == 0 ||
        track->timescale > static_cast<uint32_t>(INT32_MAX)) {
        return nullptr;
    }
    return new ZIRKMOVSource(track->meta, mDataSource, static_cast<int32_t>(track->timescale), track->sampleTable,
                             mCompressedSource, track->audioFormat, track->blockAlign, track->samplesPerPacket,
                             track->bytesPerFrame, track->bitsPerSample);
}

sp<MetaData> ZIRKMOVExtractor::getTrackMetaData(size_t index, uint32_t flags) {
    if (readMetaData() != OK) return nullptr;
    Track* track = mFirstTrack;
    while (track != nullptr && index > 0) {
        track = track->next;
        --index;
    }
    if (track == nullptr) return nullptr;

    if ((flags & kIncludeExtensiveMetaData) && !track->includesExpensiveMetadata) {
        track->includesExpensiveMetadata = true;
        const char* mime = nullptr;
        // Must stay fatal.
        ZIRK_CHECK_HERE(movchecks::kExtractor, "track->meta->findCString(kKeyMIMEType, &mime)",
                        track->meta->findCString(kKeyMIMEType, &mime));
        // A track whose trak box failed has no table; its timescale may be 0.
        if (!strncasecmp("video/", mime, 6) && track->sampleTable != nullptr && track->timescale != 0) {
            uint32_t sampleIndex;
            uint32_t sampleTime;
            if (track->sampleTable->findThumbnailSample(&sampleIndex) == OK &&
                track->sampleTable->getMetaDataForSample(sampleIndex, nullptr, nullptr, &sampleTime) == OK) {
                track->meta->setInt64(kKeyThumbnailTime,
                                      static_cast<int64_t>(sampleTime) * 1000000 / track->timescale);
            }
        }
    }
    return track->meta;
}

sp<MetaData> ZIRKMOVExtractor::getMetaData() {
    if (readMetaData() != OK) return new MetaData;
    return mFileMetaData;
}

ZIRKMOVExtractor::Track* ZIRKMOVExtractor::findTrackByMimePrefix(const char* prefix) {
    const size_t length = strlen(prefix);
    for (Track* track = mFirstTrack; track != nullptr; track = track->next) {
        const char* mime;
        if (track->meta != nullptr && track->meta->findCString(kKeyMIMEType, &mime) &&
            !strncasecmp(mime, prefix, length)) {
            return track;
        }
    }
    return nullptr;
}

status_t ZIRKMOVExtractor::readMetaData() {
    if (mInitCheck != NO_INIT) return mInitCheck;

    off64_t offset = 0;
    status_t err;
    for (;;) {
        const off64_t before = offset;
        err = parseChunk(&offset, 0);
        if (err != OK) break;
        if (offset == before) {
            // A box of all-zero type is kept as it is found (logged, not
            // stepped over), so the same header would be read for ever: the
            // walk ends there as if the data had ended.
            err = ERROR_IO;
            break;
        }
    }

    if (mInitCheck == OK) {
        mFileMetaData->setCString(kKeyMIMEType, mHasVideo ? MEDIA_MIMETYPE_CONTAINER_MOV : "audio/mp4");
    } else {
        mInitCheck = err;
    }
    // Must stay fatal.
    ZIRK_CHECK_NE_HERE(movchecks::kExtractor, "err,(status_t)NO_INIT", err, (status_t)NO_INIT);
    return mInitCheck;
}

status_t ZIRKMOVExtractor::readPayload(off64_t offset, uint64_t size, std::vector<uint8_t>* out) {
    // Read in pieces so that what is held never exceeds what the data holds.
    constexpr uint64_t kPiece = 64 * 1024;
    out->clear();
    uint64_t done = 0;
    while (done < size) {
        const size_t n = static_cast<size_t>(std::min(kPiece, size - done));
        off64_t at;
        if (!zirkAdd(offset, done, &at)) return ERROR_MALFORMED;
        out->resize(done + n);
        if (mDataSource->readAt(at, out->data() + done, n) != static_cast<ssize_t>(n)) {
            out->clear();
            return ERROR_IO;
        }
        done += n;
    }
    return OK;
}

bool ZIRKMOVExtractor::readExact(off64_t offset, void* data, size_t size) {
    return offset >= 0 && mDataSource->readAt(offset, data, size) == static_cast<ssize_t>(size);
}

status_t ZIRKMOVExtractor::parseChunk(off64_t* offset, int depth) {
    return parseChunk(offset, depth, INT64_MAX);
}

status_t ZIRKMOVExtractor::parseChunk(off64_t* offset, int depth, off64_t parentEnd) {
    uint8_t header[8];
    if (!readExact(*offset, header, sizeof(header))) return ERROR_IO;
    uint64_t size = U32_AT(header);
    const uint32_t type = U32_AT(header + 4);
    off64_t dataOffset;
    if (size == 1) {
        uint8_t large[8];
        off64_t at;
        if (!zirkAdd(*offset, 8, &at) || !readExact(at, large, sizeof(large))) return ERROR_IO;
        size = U64_AT(large);
        if (size < 16) return ERROR_MALFORMED;
        dataOffset = *offset + 16;
    } else if (size == 0) {
        // Deliberately not "to the end of the file": the walk steps 4 bytes
        // on and reads a new header there. It always advances, so it ends.
        if (!zirkAdd(*offset, 4, offset)) return ERROR_MALFORMED;
        return OK;
    } else {
        if (size < 8) return ERROR_MALFORMED;
        dataOffset = *offset + 8;
    }

    off64_t boxEnd;
    if (size > static_cast<uint64_t>(INT64_MAX) || !zirkAdd(*offset, static_cast<off64_t>(size), &boxEnd)) {
        return ERROR_MALFORMED;
    }
    if (boxEnd > parentEnd) return ERROR_MALFORMED;
    if (mNesting >= kMaxBoxDepth) return ERROR_MALFORMED;

    mPath.push(type);
    ++mNesting;
    const off64_t boxStart = *offset;
    status_t err = parseBox(type, offset, boxStart, boxEnd, dataOffset, boxEnd - dataOffset, depth);
    --mNesting;
    mPath.pop();
    return err;
}

status_t ZIRKMOVExtractor::parseContainerChildren(off64_t* offset, off64_t start, off64_t end, int depth) {
    *offset = start;
    while (*offset < end) {
        const off64_t before = *offset;
        status_t err = parseChunk(offset, depth + 1, end);
        if (err != OK) return err;
        // A child of all-zero type outside wave does not advance: the walk
        // ends there as if the data had ended.
        if (*offset == before) return ERROR_IO;
    }
    if (*offset != end) return ERROR_MALFORMED;
    return OK;
}

status_t ZIRKMOVExtractor::parseBox(uint32_t type, off64_t* offset, off64_t boxStart, off64_t boxEnd,
                                    off64_t dataOffset, off64_t dataSize, int depth) {
    if (type != 'cprt' && type != 'covr' && mPath.size() == 5 && underItemList(mPath)) {
        // An iTunes item: a container whatever its type.
        return parseContainerChildren(offset, dataOffset, boxEnd, depth);
    }

    switch (type) {
        case 'moov': {
            status_t err = parseContainerChildren(offset, dataOffset, boxEnd, depth);
            if (err != OK) return err;
            mInitCheck = OK;
            // Stops the top-level walk: what follows moov is not read, unless
            // protection data in mdat must be reached.
            return mIsDrm ? OK : UNKNOWN_ERROR;
        }

        case 'trak': {
            Track* track = new Track;
            track->next = nullptr;
            track->meta = new MetaData;
            track->meta->setCString(kKeyMIMEType, "application/octet-stream");
            track->timescale = 0;
            track->includesExpensiveMetadata = false;
            track->skipTrack = false;
            track->audioFormat = -1;
            track->blockAlign = 0;
            track->samplesPerPacket = 0;
            track->bytesPerFrame = 0;
            track->bitsPerSample = 0;
            if (mLastTrack != nullptr) {
                mLastTrack->next = track;
            } else {
                mFirstTrack = track;
            }
            mLastTrack = track;

            status_t err = parseContainerChildren(offset, dataOffset, boxEnd, depth);
            if (err != OK) return err;
            if (!track->skipTrack) return verifyTrack(track);

            Track* previous = nullptr;
            for (Track* t = mFirstTrack; t != nullptr && t != track; t = t->next) previous = t;
            if (previous != nullptr) {
                previous->next = track->next;
            } else {
                mFirstTrack = track->next;
            }
            if (mLastTrack == track) mLastTrack = previous;
            delete track;
            return OK;
        }

        case 'mdia':
        case 'minf':
        case 'dinf':
        case 'mvex':
        case 'moof':
        case 'traf':
        case 'mfra':
        case 'ilst':
            return parseContainerChildren(offset, dataOffset, boxEnd, depth);

        case 'udta':
            if (dataSize < 8) {
                ALOGW("Found invalid udta chunk_data_size =%lld", static_cast<long long>(dataSize));
                *offset = boxEnd;
                return OK;
            }
            return parseContainerChildren(offset, dataOffset, boxEnd, depth);

        case 'stbl': {
            if (mLastTrack == nullptr) return ERROR_MALFORMED;
            // An stbl inside another is not cached again: cached ranges then
            // never overlap, so together they hold at most the file.
            bool nested = false;
            for (size_t i = 0; i + 1 < mPath.size(); ++i) nested = nested || mPath[i] == 'stbl';
            if ((mDataSource->flags() & (DataSource::kWantsPrefetching | DataSource::kIsCachingDataSource)) &&
                mCompressedSource == nullptr && !nested) {
                sp<ZIRKMOVDataSource> cached = new ZIRKMOVDataSource(mDataSource);
                if (cached->setCachedRange(boxStart, static_cast<size_t>(boxEnd - boxStart)) == OK) {
                    mDataSource = cached;
                }
            }
            mLastTrack->sampleTable = new ZIRKMOVSampleTable(mDataSource);
            return parseContainerChildren(offset, dataOffset, boxEnd, depth);
        }

        case 'meta': {
            if (dataSize < 4) return ERROR_MALFORMED;
            uint8_t versionFlags[4];
            if (!readExact(dataOffset, versionFlags, sizeof(versionFlags))) return ERROR_IO;
            if (U32_AT(versionFlags) != 0) {
                // The old QuickTime layout, without the full-box word.
                *offset = boxEnd;
                return OK;
            }
            return parseContainerChildren(offset, dataOffset + 4, boxEnd, depth);
        }

        case 'mvhd': {
            if (dataSize < 12) return ERROR_MALFORMED;
            uint8_t buffer[12];
            if (!readExact(dataOffset, buffer, sizeof(buffer))) return ERROR_IO;
            int64_t creationTime;
            if (buffer[0] == 1) {
                creationTime = static_cast<int64_t>(U64_AT(buffer + 4));
            } else if (buffer[0] == 0) {
                creationTime = U32_AT(buffer + 4);
            } else {
                return ERROR_MALFORMED;
            }
            // A 64-bit time far from now cannot be a calendar date: gmtime
            // then fails and no date is set.
            int64_t seconds;
            struct tm tm;
            char date[32];
            if (zirkSub(creationTime, kQuickTimeEpochOffset, &seconds)) {
                const time_t t = static_cast<time_t>(seconds);
                if (static_cast<int64_t>(t) == seconds && gmtime_r(&t, &tm) != nullptr &&
                    strftime(date, sizeof(date), "%Y%m%dT%H%M%S.000Z", &tm) > 0) {
                    mFileMetaData->setCString(kKeyDate, date);
                }
            }
            *offset = boxEnd;
            return OK;
        }

        case 'tkhd': {
            status_t err = parseTrackHeader(dataOffset, dataSize);
            if (err != OK) return err;
            *offset = boxEnd;
            return OK;
        }

        case 'mdhd': {
            status_t err = parseMediaHeader(dataOffset, dataSize);
            if (err != OK) return err;
            *offset = boxEnd;
            return OK;
        }

        case 'hdlr': {
            if (dataSize < 12) return ERROR_MALFORMED;
            uint8_t handler[4];
            if (!readExact(dataOffset + 8, handler, sizeof(handler))) return ERROR_IO;
            const uint32_t handlerType = U32_AT(handler);
            // meta boxes have an hdlr too ('mdir'), possibly before any track.
            if ((handlerType == 'text' || handlerType == 'sbtl') && mLastTrack != nullptr) {
                mLastTrack->meta->setCString(kKeyMIMEType, MEDIA_MIMETYPE_TEXT_3GPP);
            }
            *offset = boxEnd;
            return OK;
        }

        case 'stsd': {
            if (mLastTrack == nullptr) return ERROR_MALFORMED;
            if (dataSize < 8) return ERROR_MALFORMED;
            uint8_t buffer[8];
            if (!readExact(dataOffset, buffer, sizeof(buffer))) return ERROR_IO;
            if (U32_AT(buffer) != 0) return ERROR_MALFORMED;
            uint32_t entryCount = U32_AT(buffer + 4);
            if (entryCount >= 2) {
                const char* mime = nullptr;
                // Must stay fatal.
                ZIRK_CHECK_HERE(movchecks::kExtractor, "mLastTrack->meta->findCString(kKeyMIMEType, &mime)",
                                mLastTrack->meta->findCString(kKeyMIMEType, &mime));
                if (strcasecmp(mime, MEDIA_MIMETYPE_TEXT_3GPP)) {
                    ALOGD("Track has multiple (%d) sample descriptions, use the first", static_cast<int>(entryCount));
                    entryCount = 1;
                }
            }
            *offset = dataOffset + 8;
            for (uint32_t i = 0; i < entryCount; ++i) {
                // Entries the count claims past the box are not there (a
                // size-0 entry only steps 4 bytes, so the count alone would
                // not end this).
                if (*offset >= boxEnd) break;
                const off64_t before = *offset;
                status_t err = parseChunk(offset, depth + 1, boxEnd);
                if (err != OK) return err;
                if (*offset == before) return ERROR_IO;  // see parseContainerChildren
            }
            if (*offset > boxEnd) return ERROR_MALFORMED;
            *offset = boxEnd;
            return OK;
        }

        case 'stco':
        case 'co64':
        case 'stsc':
        case 'stts':
        case 'ctts':
        case 'stss': {
            if (mLastTrack == nullptr || mLastTrack->sampleTable == nullptr) return ERROR_MALFORMED;
            const sp<ZIRKMOVSampleTable>& table = mLastTrack->sampleTable;
            status_t err;
            switch (type) {
                case 'stco':
                case 'co64': err = table->setChunkOffsetParams(type, dataOffset, dataSize); break;
                case 'stsc': err = table->setSampleToChunkParams(dataOffset, dataSize); break;
                case 'stts': err = table->setTimeToSampleParams(dataOffset, dataSize); break;
                case 'ctts': err = table->setCompositionTimeToSampleParams(dataOffset, dataSize); break;
                default: err = table->setSyncSampleParams(dataOffset, dataSize); break;
            }
            if (err != OK) return err;
            *offset = boxEnd;
            return OK;
        }

        case 'stsz':
        case 'stz2': {
            status_t err = parseSampleSizes(type, dataOffset, dataSize);
            if (err != OK) return err;
            *offset = boxEnd;
            const char* mime = nullptr;
            // Must stay fatal.
            ZIRK_CHECK_HERE(movchecks::kExtractor, "mLastTrack->meta->findCString(kKeyMIMEType, &mime)",
                            mLastTrack->meta->findCString(kKeyMIMEType, &mime));
            int64_t durationUs;
            if (!strncasecmp("video/", mime, 6) && mLastTrack->meta->findInt64(kKeyDuration, &durationUs) &&
                durationUs > 0) {
                const __int128 frames = static_cast<__int128>(mLastTrack->sampleTable->countSamples()) * 1000000;
                const int64_t rate = zirkSaturateToInt64((frames + durationUs / 2) / durationUs);
                mLastTrack->meta->setInt32(kKeyFrameRate, static_cast<int32_t>(std::min<int64_t>(rate, INT32_MAX)));
            }
            return OK;
        }

        case 'tx3g': {
            if (mLastTrack == nullptr) return ERROR_MALFORMED;
            std::vector<uint8_t> box;
            status_t err = readPayload(boxStart, static_cast<uint64_t>(boxEnd - boxStart), &box);
            if (err != OK) return err;
            uint32_t dataType;
            const void* previous;
            size_t previousSize = 0;
            std::vector<uint8_t> joined;
            if (mLastTrack->meta->findData(kKeyTextFormatData, &dataType, &previous, &previousSize) &&
                previousSize > 0) {
                const uint8_t* p = static_cast<const uint8_t*>(previous);
                joined.assign(p, p + previousSize);
            }
            joined.insert(joined.end(), box.begin(), box.end());
            mLastTrack->meta->setData(kKeyTextFormatData, 0, joined.data(), joined.size());
            *offset = boxEnd;
            return OK;
        }

        case 'covr': {
            if (mFileMetaData != nullptr) {
                std::vector<uint8_t> payload;
                status_t err = readPayload(dataOffset, static_cast<uint64_t>(dataSize), &payload);
                if (err != OK) return err;
                // The inner data box's header and its type and locale words
                // come first; a payload too short to hold them has no picture.
                if (payload.size() >= 16) {
                    mFileMetaData->setData(kKeyAlbumArt, MetaData::TYPE_NONE, payload.data() + 16,
                                           payload.size() - 16);
                }
            }
            *offset = boxEnd;
            return OK;
        }

        case 0xA978797A: {  // ©xyz
            if (dataSize < 8) return ERROR_MALFORMED;
            const off64_t length = dataSize - 5;
            if (length >= kMaxLocationLength) return ERROR_MALFORMED;
            char location[kMaxLocationLength];
            if (!readExact(dataOffset + 4, location, static_cast<size_t>(length))) return ERROR_IO;
            location[length] = '\0';
            mFileMetaData->setCString(kKeyLocation, location);
            *offset = boxEnd;
            return OK;
        }

        case 'data':
        case 'mean':
        case 'name':
            if (mPath.size() == 6 && underItemList(mPath)) {
                status_t err = parseMetaData(dataOffset, dataSize);
                if (err != OK) return err;
            }
            *offset = boxEnd;
            return OK;

        case '----':
            mFreeformMean.clear();
            mFreeformName.clear();
            mFreeformData.clear();
            *offset = boxEnd;
            return OK;

        case 'cmov': {
            *offset = dataOffset;
            status_t err = parseDcom(offset, depth + 1, boxEnd);
            if (err != OK) return err;
            if (*offset != boxEnd) return ERROR_MALFORMED;
            // Kept as found: the offset moves one box size further on.
            if (!zirkAdd(*offset, boxEnd - boxStart, offset)) return ERROR_MALFORMED;
            return OK;
        }

        case 'mdat':
            if (!mIsDrm) {
                *offset = boxEnd;
                return OK;
            }
            if (dataSize < 8) return ERROR_MALFORMED;
            *offset = boxEnd;
            return parseDrmSINF(offset, dataOffset);

        default: {
            status_t err = parseSampleEntryBox(type, offset, boxEnd, dataOffset, dataSize, depth);
            if (err != NAME_NOT_FOUND) return err;
            break;
        }
    }

    // Read for its protection flag only; skipped as every other box.
    if (type == 'iods' && mPath.size() == 2 && isType(mPath, 0, 'moov')) (void)parseIods(dataOffset, dataSize);
    if (mPath.size() == 3 && isType(mPath, 0, 'moov') && isType(mPath, 1, 'udta')) {
        switch (type) {
            case 'titl': case 'dscp': case 'cprt': case 'perf': case 'auth': case 'gnre':
            case 'rtng': case 'clsf': case 'kywd': case 'loci': case 'albm': case 'yrrc':
                (void)parse3gpUdtaMetaData(type, dataOffset, dataSize);
                break;
            default:
                break;
        }
    }
    *offset = boxEnd;
    return OK;
}

status_t ZIRKMOVExtractor::parseSampleSizes(uint32_t type, off64_t dataOffset, off64_t dataSize) {
    if (mLastTrack == nullptr || mLastTrack->sampleTable == nullptr) return ERROR_MALFORMED;
    status_t err = mLastTrack->sampleTable->setSampleSizeParams(type, dataOffset, dataSize);
    if (err != OK) return err;
    size_t maxSize;
    err = mLastTrack->sampleTable->getMaxSampleSize(&maxSize);
    if (err != OK) return err;

    if (maxSize - 1 > 0x2FFFFE) {
        ALOGW("max_size=%d is wrong, set default value 512k\n", static_cast<int>(maxSize));
        maxSize = kDefaultMaxSampleSize;
    }
    Track* track = mLastTrack;
    switch (track->audioFormat) {
        case 0:
        case 1:
            if (track->blockAlign <= 0) track->blockAlign = kDefaultPCMBlockAlign;
            maxSize = std::max(maxSize, static_cast<size_t>(track->blockAlign));
            break;
        case 2:
            if (track->blockAlign > 0) maxSize = std::max(maxSize, 2 * static_cast<size_t>(track->blockAlign));
            break;
        case 3:
        case 4:
            // blockAlign comes from a 16-bit field: never negative here.
            maxSize = std::max(maxSize, 4 * static_cast<size_t>(std::max(track->blockAlign, 0)));
            break;
        case 5:
            maxSize = std::max(maxSize, kMaxMP3FrameSize);
            break;
        default:
            break;
    }
    track->meta->setInt32(kKeyMaxInputSize, static_cast<int32_t>(maxSize) + kMaxInputSizePadding);
    return OK;
}

status_t ZIRKMOVExtractor::parseTrackHeader(off64_t dataOffset, off64_t dataSize) {
    if (mLastTrack == nullptr) return ERROR_MALFORMED;
    if (dataSize < 4) return ERROR_MALFORMED;
    uint8_t version;
    if (!readExact(dataOffset, &version, 1)) return ERROR_IO;

    const size_t variable = version == 1 ? 36 : 24;
    if (dataSize != static_cast<off64_t>(variable + 60)) return ERROR_MALFORMED;
    uint8_t buffer[36 + 60];
    if (!readExact(dataOffset, buffer, variable + 60)) return ERROR_IO;

    uint32_t trackID;
    if (version == 1) {
        trackID = U32_AT(buffer + 20);
    } else {
        // Must stay fatal: a version other than 0 and 1 ends the process.
        ZIRK_CHECK_EQ_HERE(movchecks::kExtractor, "(unsigned)version,0u", (unsigned)version, 0u);
        trackID = U32_AT(buffer + 12);
    }
    mLastTrack->meta->setInt32(kKeyTrackID, static_cast<int32_t>(trackID));

    const uint8_t* matrix = buffer + variable + 16;
    const int32_t a = static_cast<int32_t>(U32_AT(matrix));
    const int32_t b = static_cast<int32_t>(U32_AT(matrix + 4));
    const int32_t c = static_cast<int32_t>(U32_AT(matrix + 12));
    const int32_t d = static_cast<int32_t>(U32_AT(matrix + 16));
    const int32_t kOne = 0x10000;
    int32_t rotation = -1;
    if (a == kOne && b == 0 && c == 0 && d == kOne) {
        rotation = 0;
    } else if (a == 0 && b == kOne && c == -kOne && d == 0) {
        rotation = 90;
    } else if (a == 0 && b == -kOne && c == kOne && d == 0) {
        rotation = 270;
    } else if (a == -kOne && b == 0 && c == 0 && d == -kOne) {
        rotation = 180;
    } else {
        ALOGW("We only support 0,90,180,270 degree rotation matrices");
    }
    if (rotation > 0) mLastTrack->meta->setInt32(kKeyRotation, rotation);

    mLastTrack->meta->setInt32(kKeyDisplayWidth, static_cast<int32_t>(U32_AT(buffer + variable + 52) >> 16));
    mLastTrack->meta->setInt32(kKeyDisplayHeight, static_cast<int32_t>(U32_AT(buffer + variable + 56) >> 16));
    return OK;
}

status_t ZIRKMOVExtractor::parseMediaHeader(off64_t dataOffset, off64_t dataSize) {
    if (mLastTrack == nullptr) return ERROR_MALFORMED;
    if (dataSize < 4) return ERROR_MALFORMED;
    uint8_t version;
    if (!readExact(dataOffset, &version, 1)) return ERROR_IO;
    size_t timescaleAt;
    size_t languageAt;
    size_t needed;
    if (version == 1) {
        timescaleAt = 20;
        languageAt = timescaleAt + 12;
    } else if (version == 0) {
        timescaleAt = 12;
        languageAt = timescaleAt + 8;
    } else {
        return ERROR_IO;
    }
    needed = languageAt + 2;
    // The fields must lie in this box, not in the one after it.
    if (dataSize < static_cast<off64_t>(needed)) return ERROR_MALFORMED;
    uint8_t buffer[34];
    if (!readExact(dataOffset, buffer, needed)) return ERROR_IO;

    const uint32_t timescale = U32_AT(buffer + timescaleAt);
    // Durations are in units of the timescale: with none, nothing can be timed.
    if (timescale == 0) return ERROR_MALFORMED;
    mLastTrack->timescale = timescale;
    const int64_t duration = version == 1 ? static_cast<int64_t>(U64_AT(buffer + timescaleAt + 4))
                                          : static_cast<int64_t>(U32_AT(buffer + timescaleAt + 4));
    mLastTrack->meta->setInt64(
            kKeyDuration, zirkSaturateToInt64(static_cast<__int128>(duration) * 1000000 / timescale));

    const uint16_t language = U16_AT(buffer + languageAt);
    char lang[4];
    lang[0] = static_cast<char>(((language >> 10) & 0x1F) + 0x60);
    lang[1] = static_cast<char>(((language >> 5) & 0x1F) + 0x60);
    lang[2] = static_cast<char>((language & 0x1F) + 0x60);
    lang[3] = '\0';
    mLastTrack->meta->setCString(kKeyMediaLanguage, lang);
    return OK;
}

status_t ZIRKMOVExtractor::verifyTrack(Track* track) {
    const char* mime = nullptr;
    // Must stay fatal.
    ZIRK_CHECK_HERE(movchecks::kExtractor, "track->meta->findCString(kKeyMIMEType, &mime)",
                    track->meta->findCString(kKeyMIMEType, &mime));
    uint32_t type;
    const void* data;
    size_t size;
    if (!strcasecmp(mime, MEDIA_MIMETYPE_VIDEO_AVC)) {
        if (!track->meta->findData(kKeyAVCC, &type, &data, &size) || type != kTypeAVCC) return ERROR_MALFORMED;
        if (size == 0) {
            ALOGW("!!! No 'avcC' data is found for mp4 file");
            track->meta->remove(kKeyAVCC);
        }
    } else if (!strcasecmp(mime, MEDIA_MIMETYPE_VIDEO_MPEG4) || !strcasecmp(mime, MEDIA_MIMETYPE_AUDIO_AAC)) {
        if (!track->meta->findData(kKeyESDS, &type, &data, &size) || type != kTypeESDS) return ERROR_MALFORMED;
    }
    if (track->sampleTable == nullptr || !track->sampleTable->isValid()) return ERROR_MALFORMED;
    return OK;
}

status_t ZIRKMOVExtractor::parseDcom(off64_t* offset, int depth) {
    return parseDcom(offset, depth, INT64_MAX);
}

status_t ZIRKMOVExtractor::parseDcom(off64_t* offset, int /*depth*/, off64_t boxEnd) {
    uint8_t header[24];
    if (!readExact(*offset, header, sizeof(header))) return ERROR_IO;
    if (U32_AT(header + 4) != 'dcom') {
        ALOGE("dcom atom type not found for compressed moov atom");
        return -1;
    }
    if (U32_AT(header + 8) != 'zlib') {
        ALOGE("unknown compression for cmov atom ! Only support gzip compression");
        return -1;
    }
    if (U32_AT(header + 16) != 'cmvd') {
        ALOGE("cmvd atom type not found for compressed moov atom");
        return -1;
    }
    // One expanded header per file: one inside another (or a second one
    // read from the first) would keep every expansion in memory at once.
    if (mCompressedSource != nullptr) return -1;
    const uint32_t cmvdSize = U32_AT(header + 12);
    const uint32_t expandedSize = U32_AT(header + 20);
    off64_t streamStart;
    off64_t streamEnd;
    // The zlib stream must lie in its cmvd box and in the cmov box.
    if (cmvdSize < 12 || !zirkAdd(*offset, 24, &streamStart) ||
        !zirkAdd(streamStart, static_cast<off64_t>(cmvdSize - 12), &streamEnd) || streamEnd > boxEnd) {
        return -1;
    }

    mCompressedSource = new ZIRKMOVDataSource(mDataSource);
    if (mCompressedSource->setCompressedCachedRange(streamStart, expandedSize, cmvdSize - 12) != OK) return -1;
    mDataSource = mCompressedSource;

    // A complete moov inside sets mInitCheck and ends with the stop status.
    off64_t expandedOffset = 0;
    (void)parseChunk(&expandedOffset, 0);

    if (!zirkAdd(*offset, static_cast<off64_t>(U32_AT(header)), offset)) return ERROR_MALFORMED;
    return OK;
}

int32_t readSize(off64_t offset, const sp<DataSource>& source, uint8_t* numOfBytes) {
    uint32_t value = 0;
    *numOfBytes = 0;
    uint8_t byte;
    do {
        if (offset < 0 || source->readAt(offset, &byte, 1) != 1) return -1;
        ++offset;  // cannot wrap: readAt fails long before INT64_MAX
        ++*numOfBytes;
        value = value * 128 + (byte & 0x7F);
    } while (byte & 0x80);
    return static_cast<int32_t>(value);
}

}  // namespace android

const char* getZirkMovExtractorVersion() { return android::kVersion; }
