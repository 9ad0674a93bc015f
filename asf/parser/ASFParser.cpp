#define LOG_TAG "ASFParser"
#include "asf/parser/ASFParser.h"

#include <string.h>

#include <algorithm>
#include <new>
#include <memory>
#include <string>

#include <media/stagefright/MediaErrors.h>
#include <media/stagefright/Utils.h>
#include <media/stagefright/foundation/ABuffer.h>
#include <utils/Log.h>
#include <utils/String8.h>
#include <zirk/ZIRKByteReader.h>

#include "asf/parser/ASFGuids.h"
#include "asf/parser/ZIRKASFChecks.h"
#include "common/ZIRKReadWhole.h"
#include "common/ZIRKSafeMath.h"

namespace android {

namespace {

const char* const kVersion = "libasfparser_Rev2.1_build_on_Apr 25 2013";

const char* const kLogStreamIssue = "it's stream issue, objSize=%d";
const char* const kLogHeaderExtTooSmall = "HeadExt size doesn't meet HEADER_EXT_OBJECT_MIN_LEN";

// Smallest sizes of the objects read here: each one's header and the fixed
// fields the parser reads.
constexpr int64_t kObjectHeaderSize = 24;     // GUID + 64-bit size
constexpr int64_t kHeaderObjectMinLen = 30;   // + object count (4) + 2 reserved bytes
constexpr int64_t kDataObjectMinLen = 50;     // + File ID (16) + packet count (8) + 2 reserved
constexpr int64_t kFilePropMinLen = 104;      // + File ID (16) + the 64 bytes of FileProps
constexpr int64_t kStreamPropMinLen = 78;     // + the 54 bytes of fixed fields
constexpr int64_t kHeaderExtMinLen = 46;      // HEADER_EXT_OBJECT_MIN_LEN: + GUID, 2 reserved, data size (4)
constexpr int64_t kExtStreamPropMinLen = 88;  // + the 64 bytes of fixed fields
constexpr int64_t kContentDescMinLen = 34;    // + five 16-bit lengths
constexpr int64_t kExtContentDescMinLen = 26; // + descriptor count (2)

constexpr size_t kFilePropBytes = 64;
constexpr size_t kStreamPropFieldBytes = 54;
constexpr size_t kExtStreamPropFieldBytes = 64;
constexpr size_t kStreamNameHeaderBytes = 4;   // language index, name length
constexpr size_t kPayloadExtHeaderBytes = 22;  // extension GUID, data size (2), info length (4)

// Video buffers get this much room over the largest media object the stream
// declares.
constexpr uint32_t kMaxSampleHeadroom = 64;

// Every string and value read whole here has a 16-bit length field.
constexpr int64_t kMaxFieldBytes = 0xFFFF;

// Extended Content Description value types used; BOOL, DWORD, QWORD and WORD
// values are ignored.
constexpr uint16_t kValueUnicode = 0;
constexpr uint16_t kValueBytes = 1;

// The descriptors that become file metadata, matched in this order.
const struct {
    const char* name;
    uint32_t key;
} kAttributes[] = {
        {"WM/AlbumTitle", kKeyAlbum},
        {"WM/AlbumArtist", kKeyAlbumArtist},
        {"WM/Genre", kKeyGenre},
        {"WM/Year", kKeyYear},
        {"WM/TrackNumber", kKeyCDTrackNumber},
        {"WM/Picture", kKeyAlbumArt},
};

// The data packet reader's failures, each logged with the function and the
// fixed line its message has always carried.
const char* const kLogPacketRead = "%s,line:%d";
const char* const kLogStreamZero = "PD.uiStreamNumber=%d";
const char* const kPacketReader = "getPayload";
constexpr int kLineErrorCorrectionFlags = 1257;
constexpr int kLineLengthTypeFlags = 1272;
constexpr int kLineSendTime = 1285;
constexpr int kLinePayloadFlags = 1304;
constexpr int kLineStreamNumber = 1314;
constexpr int kLineTimeDelta = 1335;
constexpr int kLineSubPayloadLength = 1352;
constexpr int kLineCompressedTableFull = 1370;
constexpr int kLineReplicatedData = 1394;
constexpr int kLinePayloadTableFull = 1429;

// Data packet fields.
constexpr uint8_t kErrorCorrectionPresent = 0x80;     // error correction flags: data follow...
constexpr uint8_t kErrorCorrectionLengthMask = 0x0F;  // ...this many bytes of it
constexpr uint8_t kOpaqueDataPresent = 0x10;
constexpr uint8_t kMultiplePayloads = 0x01;           // length type flags
constexpr uint8_t kPayloadCountMask = 0x3F;           // payload flags
constexpr uint8_t kStreamNumberMask = 0x7F;           // stream number byte; bit 7 marks a key frame
constexpr uint32_t kCompressedReplicatedLength = 1;   // marks a compressed payload
constexpr size_t kSendTimeAndDurationBytes = 6;
constexpr size_t kReplicatedFieldBytes = 8;           // media object size, presentation time
constexpr uint8_t kNarrowFetchPayloads = 2;

static_assert(sizeof(PayloadEntry) == 32, "a payload descriptor is the 32 bytes the readers copy");

status_t packetReadFailed(int line) {
    ALOGE(kLogPacketRead, kPacketReader, line);
    return ERROR_MALFORMED;
}

// A payload time in ms: the presentation time (plus `extra`) less the
// preroll, all 32-bit, taken as signed and clamped at 0.
uint32_t payloadTimeMs(uint32_t presentationMs, uint32_t extra, uint32_t prerollMs) {
    const int32_t time = static_cast<int32_t>(presentationMs + extra - prerollMs);
    return time < 0 ? 0 : static_cast<uint32_t>(time);
}

// Where a (not compressed) payload lies in its media object.
uint8_t payloadKind(uint32_t offsetInObject, uint32_t length, uint32_t objectSize) {
    if (length == objectSize) return PayloadEntry::kWhole;
    if (offsetInObject == 0) return PayloadEntry::kFirst;
    // In 64 bits: an offset and length that wrap to the object size do not
    // end it.
    if (static_cast<uint64_t>(offsetInObject) + length == objectSize) return PayloadEntry::kLast;
    return PayloadEntry::kMiddle;
}

// The end of the bytes an object may be read from: its declared end, clamped
// to its parent's.
int64_t viewEnd(int64_t offset, int64_t size, int64_t limit) {
    int64_t end;
    if (size < 0 || !zirkAdd(offset, size, &end) || end > limit) return limit;
    return end;
}

// `units` UTF-16LE code units from the reader (as many as it holds), as
// UTF-8. A zero unit is kept, so a C string taken from the result ends there.
String8 readUtf16(ZIRKByteReader* reader, size_t units) {
    std::u16string text;
    uint16_t unit;
    while (text.size() < units && reader->readLE16(&unit)) text.push_back(static_cast<char16_t>(unit));
    return String8(text.data(), text.size());
}

}  // namespace

ASFParser::ASFParser(const sp<DataSource>& source)
    : mFileMeta(new MetaData),
      mDataSource(source),
      mDurationUs(0),
      mDataPacketsOffset(0),
      mFileProps(),
      mInitCheck(OK),
      mPacketMarkCount(0),
      mStreamMarkBits(),
      mThread(),
      mThreadRunning(false),
      mIndexDone(false),
      mThreadSetUp(false) {
    mInitCheck = parseObject();
    if (mInitCheck == OK) setUpPacketMarks();
}

void ASFParser::setUpPacketMarks() {
    // Tracks past the first seven are never skipped for; several tracks of
    // one stream number share its bits.
    for (size_t i = 0; i < mAsfTracks.size() && i < kMarkedTracks; ++i) {
        AsfTrack& track = mAsfTracks.editItemAt(i);
        track.markBit = static_cast<uint8_t>(1u << i);
        mStreamMarkBits[track.streamNumber & kStreamNumberMask] |= track.markBit;
    }
    const uint32_t packetSize = mFileProps.maxDataPacketSize;
    off64_t fileSize = 0;
    if (packetSize == 0 || mDataPacketsOffset <= 0 || mDataSource->getSize(&fileSize) != OK ||
        fileSize <= mDataPacketsOffset) {
        return;
    }
    // Marks only for packets that start inside the file, and at most
    // kMaxPacketMarks of them: a count the file cannot hold gets none.
    const uint64_t inFile = static_cast<uint64_t>(fileSize - mDataPacketsOffset - 1) / packetSize + 1;
    const uint64_t count = std::min<uint64_t>({mFileProps.dataPacketsCount, inFile, kMaxPacketMarks});
    if (count == 0) return;
    mPacketMarks.reset(new (std::nothrow) std::atomic<uint8_t>[count]());
    if (mPacketMarks) mPacketMarkCount = static_cast<size_t>(count);
}

ASFParser::~ASFParser() {
    // A running pass stops at its next seek point; it touches the tracks and
    // the source, so it is joined before any member goes.
    if (mThreadRunning.exchange(false)) pthread_join(mThread, nullptr);
}

bool ASFParser::readIn(int64_t pos, int64_t end, void* data, size_t n) {
    if (pos < 0 || pos > end || n > static_cast<uint64_t>(end - pos)) return false;
    return mDataSource->readAt(pos, data, n) == static_cast<ssize_t>(n);
}

template <typename Handler>
status_t ASFParser::walkObjects(int64_t pos, int64_t remaining, int64_t end, bool topLevel, Handler&& handle) {
    while (remaining >= kObjectHeaderSize) {
        uint8_t header[kObjectHeaderSize];
        if (!readIn(pos, end, header, sizeof(header))) return ERROR_MALFORMED;
        // Sizes are signed 64-bit like the offsets they move, so a size
        // past 2^63 reads as negative.
        const int64_t objSize = static_cast<int64_t>(U64LE_AT(header + 16));
        if (topLevel && objSize < kObjectHeaderSize) {
            // The objects read so far stand.
            ALOGE(kLogStreamIssue, static_cast<int>(static_cast<uint32_t>(objSize)));
            return OK;
        }
        // Inside the header a size of 0 or less would hold the walk in place
        // (or move it back): the walk ends as if the data ended here, which
        // is the short read of a truncated header.
        if (objSize <= 0) return ERROR_MALFORMED;
        int64_t step = objSize;
        status_t err = handle(header, pos, objSize, &step);
        if (err != OK) return err;
        // An object that reaches its parent's end, or claims more, is the
        // last one.
        if (step >= remaining) break;
        // Past any offset the data could reach: the next read would fail.
        if (!zirkAdd(pos, step, &pos)) return ERROR_MALFORMED;
        remaining -= step;
    }
    return OK;
}

status_t ASFParser::parseObject() {
    mTracks.clear();
    mTrackExts.clear();

    off64_t size = 0;
    // Must stay fatal.
    ZIRK_CHECK_SITE(asfchecks::kParser, asfchecks::kGetSize, mDataSource->getSize(&size) == OK);

    mFileProps = FileProps();
    if (size < kObjectHeaderSize) return ERROR_MALFORMED;

    const int64_t fileEnd = size;
    status_t err = walkObjects(0, fileEnd, fileEnd, true,
                               [&](const uint8_t* header, int64_t pos, int64_t objSize, int64_t*) -> status_t {
        if (isASFGuid(header, kGuidHeader)) return parseHeaderObject(pos, objSize, fileEnd);
        if (isASFGuid(header, kGuidData)) return parseDataObject(pos, objSize);
        // The index parsers read packets, so they need the File Properties
        // and the Data Object before them in the file, where writers put them.
        if (isASFGuid(header, kGuidIndex)) return parseIndexObject(pos, objSize, fileEnd);
        if (isASFGuid(header, kGuidSimpleIndex)) return parseSimpleIndexObject(pos, objSize, fileEnd);
        return OK;
    });
    if (err != OK) return err;

    for (Track& track : mTracks) {
        if (track.type != kTypeVideo) continue;
        for (const TrackExt& ext : mTrackExts) {
            if (ext.streamNumber != track.streamNumber) continue;
            // An object size too large to add the headroom to is no usable
            // bound: the track keeps 0, as without extended properties.
            uint32_t withHeadroom;
            if (zirkAdd(ext.maxObjectSize, kMaxSampleHeadroom, &withHeadroom)) track.maxSampleSize = withHeadroom;
            break;
        }
    }
    return OK;
}

status_t ASFParser::parseHeaderObject(int64_t offset, int64_t size, int64_t limit) {
    if (size < kHeaderObjectMinLen) return ERROR_MALFORMED;
    const int64_t end = viewEnd(offset, size, limit);
    // The number of header objects is not used: the walk goes by sizes.
    return walkObjects(offset + kHeaderObjectMinLen, size - kHeaderObjectMinLen, end, false,
                       [&](const uint8_t* header, int64_t pos, int64_t objSize, int64_t* step) -> status_t {
        if (isASFGuid(header, kGuidFileProperties)) return parseFilePropObject(pos, objSize, end);
        if (isASFGuid(header, kGuidStreamProperties)) return parseStreamPropObject(pos, objSize, end);
        if (isASFGuid(header, kGuidContentDescription)) return parseContentDescriptionObject(pos, objSize, end);
        if (isASFGuid(header, kGuidExtContentDescription)) {
            return parseExtContentDescriptionObject(pos, objSize, end);
        }
        if (isASFGuid(header, kGuidHeaderExtension)) {
            status_t err = parseHeaderExtObject(pos, objSize, end);
            // A Header Extension too short for its own fields is stepped
            // over by that minimum and the header goes on: files with a
            // truncated extension have always been accepted.
            if (objSize < kHeaderExtMinLen) {
                *step = kHeaderExtMinLen;
                return OK;
            }
            return err;
        }
        return OK;
    });
}

status_t ASFParser::parseDataObject(int64_t offset, int64_t size) {
    if (size < kDataObjectMinLen) return ERROR_MALFORMED;
    // The packets themselves are read on demand.
    mDataPacketsOffset = offset + kDataObjectMinLen;
    return OK;
}

status_t ASFParser::parseFilePropObject(int64_t offset, int64_t size, int64_t limit) {
    if (size < kFilePropMinLen) return ERROR_MALFORMED;
    uint8_t bytes[kFilePropBytes];
    // The fields follow the 24-byte header and the 16-byte File ID.
    if (!readIn(offset + 40, viewEnd(offset, size, limit), bytes, sizeof(bytes))) return ERROR_MALFORMED;
    ZIRKByteReader r(bytes, sizeof(bytes));
    FileProps& p = mFileProps;
    r.readLE64(&p.fileSize);
    r.readLE64(&p.creationDate);
    r.readLE64(&p.dataPacketsCount);
    r.readLE64(&p.playDuration);
    r.readLE64(&p.sendDuration);
    r.readLE64(&p.preroll);
    r.readLE32(&p.flags);
    r.readLE32(&p.minDataPacketSize);
    r.readLE32(&p.maxDataPacketSize);
    r.readLE32(&p.maxBitrate);
    // The preroll is taken off the play duration. A preroll too large for
    // that (over 2^63 us) saturates rather than wraps.
    mDurationUs = zirkSaturateToInt64(static_cast<__int128>(p.playDuration / 10) -
                                      static_cast<__int128>(p.preroll) * 1000);
    return OK;
}

status_t ASFParser::parseStreamPropObject(int64_t offset, int64_t size, int64_t limit) {
    if (size < kStreamPropMinLen) return ERROR_MALFORMED;
    if (mTracks.size() >= kMaxStreams) return kErrorTooManyStreams;

    uint8_t bytes[kStreamPropFieldBytes];
    if (!readIn(offset + kObjectHeaderSize, viewEnd(offset, size, limit), bytes, sizeof(bytes))) {
        return ERROR_MALFORMED;
    }
    ZIRKByteReader r(bytes, sizeof(bytes));
    const uint8_t* streamType = r.current();
    uint32_t typeSpecificLength = 0;
    uint16_t flags = 0;
    // Stream type and error correction GUIDs, time offset; then after the
    // type-specific length the error correction length, which is not kept.
    r.skip(16 + 16 + 8);
    r.readLE32(&typeSpecificLength);
    r.skip(4);
    r.readLE16(&flags);

    Track track = {};
    track.streamNumber = flags & 0x7F;
    track.durationUs = mDurationUs;
    track.typeSpecificOffset = typeSpecificLength != 0 ? offset + kStreamPropMinLen : 0;
    track.typeSpecificLength = static_cast<uint32_t>(std::min<int64_t>(typeSpecificLength, std::max<int64_t>(0, viewEnd(offset, size, limit) - (offset + kStreamPropMinLen))));
    if (isASFGuid(streamType, kGuidAudioMedia)) {
        track.type = kTypeAudio;
        track.maxSampleSize = mFileProps.maxDataPacketSize;
    } else if (isASFGuid(streamType, kGuidVideoMedia)) {
        track.type = kTypeVideo;
    } else {
        // Streams of any other type (script commands, images...) stay
        // invisible.
        return OK;
    }
    // Stream numbers may repeat; each Stream Properties Object is one track.
    mTracks.push_back(track);
    mAsfTracks.push_back(AsfTrack(track.streamNumber, track.type));
    return OK;
}

status_t ASFParser::parseHeaderExtObject(int64_t offset, int64_t size, int64_t limit) {
    if (size < kHeaderExtMinLen) {
        ALOGW("%s", kLogHeaderExtTooSmall);
        return ERROR_MALFORMED;
    }
    const int64_t end = viewEnd(offset, size, limit);
    // The extension data size field is not used: the walk goes by the
    // object's own size.
    return walkObjects(offset + kHeaderExtMinLen, size - kHeaderExtMinLen, end, false,
                       [&](const uint8_t* header, int64_t pos, int64_t objSize, int64_t*) -> status_t {
        if (isASFGuid(header, kGuidExtStreamProperties)) return parseExtStreamPropObject(pos, objSize, end);
        return OK;
    });
}

status_t ASFParser::parseExtStreamPropObject(int64_t offset, int64_t size, int64_t limit) {
    if (size < kExtStreamPropMinLen) return ERROR_MALFORMED;
    const int64_t end = viewEnd(offset, size, limit);
    uint8_t bytes[kExtStreamPropFieldBytes];
    if (!readIn(offset + kObjectHeaderSize, end, bytes, sizeof(bytes))) return ERROR_MALFORMED;
    ZIRKByteReader r(bytes, sizeof(bytes));
    uint32_t maxObjectSize = 0;
    uint16_t streamNumber = 0, nameCount = 0, extensionCount = 0;
    // Start and end time, six bitrate and buffer fields.
    r.skip(8 + 8 + 6 * 4);
    r.readLE32(&maxObjectSize);
    r.skip(4);  // flags
    r.readLE16(&streamNumber);
    r.skip(2 + 8);  // language index, average time per frame
    r.readLE16(&nameCount);
    r.readLE16(&extensionCount);

    // Each step moves at most 4 + 65535 or 22 + 65535 bytes, and each is read
    // within the object first, so `pos` stays near the object.
    int64_t pos = offset + kExtStreamPropMinLen;
    for (uint16_t i = 0; i < nameCount; ++i) {
        uint8_t name[kStreamNameHeaderBytes];
        if (!readIn(pos, end, name, sizeof(name))) return ERROR_MALFORMED;
        pos += kStreamNameHeaderBytes + U16LE_AT(name + 2);
    }
    for (uint16_t i = 0; i < extensionCount; ++i) {
        uint8_t ext[kPayloadExtHeaderBytes];
        if (!readIn(pos, end, ext, sizeof(ext))) return ERROR_MALFORMED;
        // The info length is a 32-bit field, of which this system takes the
        // low 16 bits.
        pos += kPayloadExtHeaderBytes + U16LE_AT(ext + 18);
    }

    if (maxObjectSize >= mFileProps.maxDataPacketSize) mTrackExts.push_back({streamNumber, maxObjectSize});

    // What is left is an embedded Stream Properties Object; it adds its
    // stream (even one already added) and its failures are its own.
    const int64_t declaredEnd = viewEnd(offset, size, INT64_MAX);
    if (pos < declaredEnd) (void)parseStreamPropObject(pos, declaredEnd - pos, end);
    return OK;
}

status_t ASFParser::parseContentDescriptionObject(int64_t offset, int64_t size, int64_t limit) {
    if (size < kContentDescMinLen) return ERROR_MALFORMED;
    const int64_t end = viewEnd(offset, size, limit);
    uint8_t lengths[10];
    if (!readIn(offset + kObjectHeaderSize, end, lengths, sizeof(lengths))) return ERROR_MALFORMED;
    const uint16_t titleLength = U16LE_AT(lengths);
    const uint16_t authorLength = U16LE_AT(lengths + 2);
    // Copyright, description and rating are not read.
    auto setString = [&](int64_t pos, uint16_t length, uint32_t key) -> status_t {
        sp<ABuffer> text;
        if (ZIRKReadWhole(mDataSource, pos, length, end, kMaxFieldBytes, &text) != OK) return ERROR_MALFORMED;
        ZIRKByteReader r(text->data(), text->size());
        mFileMeta->setCString(key, readUtf16(&r, length / 2).c_str());
        return OK;
    };
    const int64_t titlePos = offset + kContentDescMinLen;
    if (titleLength > 0 && setString(titlePos, titleLength, kKeyTitle) != OK) return ERROR_MALFORMED;
    if (authorLength == 0) return OK;
    return setString(titlePos + titleLength, authorLength, kKeyArtist);
}

status_t ASFParser::parseExtContentDescriptionObject(int64_t offset, int64_t size, int64_t limit) {
    if (size < kExtContentDescMinLen) return ERROR_MALFORMED;
    const int64_t end = viewEnd(offset, size, limit);
    uint8_t countBytes[2];
    if (!readIn(offset + kObjectHeaderSize, end, countBytes, sizeof(countBytes))) return ERROR_MALFORMED;
    const uint16_t count = U16LE_AT(countBytes);
    if (size == kExtContentDescMinLen) return OK;
    // The descriptors are read one at a time rather than as one buffer of
    // the declared size, so nothing is allocated past a 16-bit length. A body
    // that is not all there is the short read of that buffer.
    int64_t bodyEnd;
    if (!zirkAdd(offset, size, &bodyEnd) || bodyEnd > end) return ERROR_MALFORMED;

    int64_t pos = offset + kExtContentDescMinLen;
    for (uint32_t i = 0; i < count; ++i) {
        // Writers do not always keep the descriptors inside the object: one
        // that runs past its end ends the walk, and those before it stand.
        uint8_t nameLengthBytes[2];
        if (bodyEnd - pos < 2 || !readIn(pos, bodyEnd, nameLengthBytes, 2)) break;
        const uint16_t nameLength = U16LE_AT(nameLengthBytes);
        if (bodyEnd - pos - 2 < nameLength + 4) break;
        sp<ABuffer> nameAndType;
        if (ZIRKReadWhole(mDataSource, pos + 2, nameLength + 4, bodyEnd, kMaxFieldBytes + 4, &nameAndType) != OK) {
            return ERROR_MALFORMED;
        }
        ZIRKByteReader r(nameAndType->data(), nameAndType->size());
        ZIRKByteReader nameReader;
        r.subReader(nameLength, &nameReader);
        // The name keeps its terminating zero, which ends it as a C string.
        const String8 name = readUtf16(&nameReader, nameLength / 2);
        uint16_t valueType = 0, valueLength = 0;
        r.readLE16(&valueType);
        r.readLE16(&valueLength);
        const int64_t valuePos = pos + 2 + nameLength + 4;
        if (bodyEnd - valuePos < valueLength) break;
        pos = valuePos + valueLength;

        uint32_t key = 0;
        for (const auto& a : kAttributes) {
            if (strcmp(name.c_str(), a.name) == 0) {
                key = a.key;
                break;
            }
        }
        if (key == 0 || (valueType != kValueUnicode && valueType != kValueBytes)) continue;

        sp<ABuffer> value;
        if (ZIRKReadWhole(mDataSource, valuePos, valueLength, bodyEnd, kMaxFieldBytes, &value) != OK) {
            return ERROR_MALFORMED;
        }
        ZIRKByteReader v(value->data(), value->size());
        if (valueType == kValueUnicode) {
            mFileMeta->setCString(key, readUtf16(&v, valueLength / 2).c_str());
        } else if (key != kKeyAlbumArt) {
            mFileMeta->setData(key, MetaData::TYPE_NONE, value->data(), value->size());
        } else {
            // WM/Picture: picture type (1), data length (4), then the MIME
            // type and description (UTF-16, each zero-terminated) and the
            // picture as the last data-length bytes. A picture that does not
            // fit in its value is skipped; so the 16-bit cut of the length
            // this system makes cannot arise, the value's own length being
            // 16-bit.
            uint32_t dataLength = 0;
            if (!v.skip(1) || !v.readLE32(&dataLength) || dataLength > v.remaining()) continue;
            const size_t textBytes = v.remaining() - dataLength;
            ZIRKByteReader text;
            v.subReader(textBytes, &text);
            mFileMeta->setCString(kKeyAlbumArtMIME, readUtf16(&text, textBytes / 2).c_str());
            mFileMeta->setData(kKeyAlbumArt, MetaData::TYPE_NONE, v.current(), dataLength);
        }
    }
    return OK;
}

class ASFParser::PacketWindow {
public:
    PacketWindow(const sp<DataSource>& source, PacketBytes* bytes) : mSource(source), mBytes(bytes) {}

    // A fetch on a miss takes kNarrowBytes from the missing field on; once
    // widened, everything up to `end` (the packet's end), as far as the
    // buffer goes.
    void widenTo(int64_t end) { mWideEnd = end; }
    void narrow() { mWideEnd = -1; }

    // The n bytes at pos, fetched when not all held; null when the fetch
    // still lacks them (the file ends, or the source fails a read that
    // reaches further than the field).
    const uint8_t* at(int64_t pos, size_t n) {
        if (pos < 0 || n > PacketBytes::kCapacity) return nullptr;
        if (const uint8_t* p = mBytes->at(pos, n)) return p;
        size_t want = kNarrowBytes;
        if (mWideEnd > pos) want = static_cast<size_t>(std::min<int64_t>(mWideEnd - pos, PacketBytes::kCapacity));
        want = std::max(want, n);
        const ssize_t got = mSource->readAt(pos, mBytes->bytes, want);
        mBytes->start = pos;
        mBytes->length = got > 0 ? static_cast<size_t>(got) : 0;
        return mBytes->at(pos, n);
    }
    // Copies the bytes at [pos, pos + n) that the file has, up to n: from the
    // fetched bytes, or, where they lack them, read alone, so that the answer
    // is the source's answer for those n bytes.
    size_t read(int64_t pos, void* data, size_t n) {
        if (const uint8_t* p = at(pos, n)) {
            memcpy(data, p, n);
            return n;
        }
        if (pos < 0) return 0;
        const ssize_t alone = mSource->readAt(pos, data, n);
        return alone > 0 ? static_cast<size_t>(alone) : 0;
    }
    bool readExact(int64_t pos, void* data, size_t n) { return read(pos, data, n) == n; }

private:
    // The packet header and one payload header with its 8 bytes of
    // replicated data fit (at most 29 and 25 bytes); longer replicated data
    // are stepped over, not read.
    static constexpr size_t kNarrowBytes = 128;

    const sp<DataSource>& mSource;
    PacketBytes* mBytes;
    int64_t mWideEnd = -1;
};

uint32_t ASFParser::getTypeLength(uint8_t lengthType, int64_t offset, uint32_t* value) {
    std::unique_ptr<PacketBytes> bytes(new PacketBytes);
    PacketWindow window(mDataSource, bytes.get());
    return getTypeLength(window, lengthType, offset, value);
}

inline uint32_t ASFParser::getTypeLength(PacketWindow& window, uint8_t lengthType, int64_t offset, uint32_t* value) {
    static const uint32_t kWidths[4] = {0, 1, 2, 4};
    *value = 0;
    const uint32_t width = lengthType < 4 ? kWidths[lengthType] : 0;
    if (width == 0) return 0;
    if (const uint8_t* p = window.at(offset, width)) {
        *value = width == 1 ? p[0] : width == 2 ? U16LE_AT(p) : U32LE_AT(p);
        return width;
    }
    uint8_t bytes[4] = {0, 0, 0, 0};
    // The count is deliberately not checked: bytes a short read leaves out
    // stay zero, and the packet reader judges the fields it gets.
    (void)window.read(offset, bytes, width);
    *value = U32LE_AT(bytes);
    return width;
}

// The packet is walked by file offsets: its fields are
// read one at a time from the source (into fixed locals, so a field that
// strays past the packet reads harmless file bytes or fails as a short
// read). What the walk hands out or steps over is held to the packet: a
// payload's replicated data and data must lie in the packet's payload area,
// and a sub-payload in its payload. One that does not ends that walk as if
// the data had ended there; what was found before it stands.
status_t ASFParser::parseDataPacket(AsfTrack* track, int64_t start, uint8_t* seen) {
    *seen = 0;
    const uint32_t packetSize = mFileProps.maxDataPacketSize;
    // The packet's slot ends where the next packet starts; a slot that ends
    // past any file offset is past the data.
    int64_t slotEnd;
    if (!zirkAdd(start, packetSize, &slotEnd)) return ERROR_MALFORMED;
    PacketWindow window(mDataSource, &track->fetched);
    if (track->wideFetch) window.widenTo(slotEnd);
    int64_t pos = start;

    // The first byte is always taken as the error correction flags, even in
    // packets that start with their length type flags: files have always
    // been read that way.
    uint8_t errorCorrection;
    if (!window.readExact(pos, &errorCorrection, 1)) return packetReadFailed(kLineErrorCorrectionFlags);
    pos += 1;
    if (errorCorrection & kErrorCorrectionPresent) pos += errorCorrection & kErrorCorrectionLengthMask;
    if (errorCorrection & kOpaqueDataPresent) return OK;

    uint8_t flags[2];
    if (!window.readExact(pos, flags, sizeof(flags))) return packetReadFailed(kLineLengthTypeFlags);
    pos += sizeof(flags);
    const uint8_t lengthTypeFlags = flags[0], propertyFlags = flags[1];
    uint32_t packetLength = 0, sequence = 0, paddingLength = 0;
    pos += getTypeLength(window, (lengthTypeFlags >> 5) & 3, pos, &packetLength);
    pos += getTypeLength(window, (lengthTypeFlags >> 1) & 3, pos, &sequence);
    pos += getTypeLength(window, (lengthTypeFlags >> 3) & 3, pos, &paddingLength);
    if (packetLength == 0) packetLength = packetSize;

    // Send time and duration are not used.
    uint8_t timing[kSendTimeAndDurationBytes];
    if (!window.readExact(pos, timing, sizeof(timing))) return packetReadFailed(kLineSendTime);
    pos += sizeof(timing);

    const bool multiple = (lengthTypeFlags & kMultiplePayloads) != 0;
    uint8_t payloadFlags = 0;  // one payload: no length field (width code 0)
    if (multiple) {
        if (!window.readExact(pos, &payloadFlags, 1)) return packetReadFailed(kLinePayloadFlags);
        pos += 1;
    }
    const uint8_t payloadCount = multiple ? payloadFlags & kPayloadCountMask : 1;
    const uint8_t payloadLengthType = payloadFlags >> 6;
    // Packets of many small payloads are fetched whole (from here, and next
    // time from their start); one or two large payloads are read header by
    // header, so that their data are not copied in twice.
    track->wideFetch = payloadCount > kNarrowFetchPayloads;
    if (track->wideFetch) {
        window.widenTo(slotEnd);
    } else {
        window.narrow();
    }

    // The payloads end where the padding starts. A packet length past the
    // packet's own slot is read only to the slot's end, so no payload reaches
    // into the next packet; padding longer than the packet leaves no room.
    // (|length - padding| < 2^32, and the sum is at most slotEnd.)
    const int64_t areaEnd =
            start + std::min<int64_t>(static_cast<int64_t>(packetLength) - paddingLength, packetSize);
    const uint32_t prerollMs = static_cast<uint32_t>(mFileProps.preroll);

    // The payload's data after its header: [pos, *dataEnd), inside the
    // payload area. A single payload fills the area.
    auto payloadData = [&](int64_t* dataEnd) -> bool {
        uint32_t length = 0;
        if (multiple) pos += getTypeLength(window, payloadLengthType, pos, &length);
        if (pos > areaEnd) return false;
        if (!multiple) length = static_cast<uint32_t>(areaEnd - pos);  // areaEnd - start <= packetSize
        if (length > areaEnd - pos) return false;
        *dataEnd = pos + length;
        return true;
    };

    // At most 63 payloads, each moving pos by at least its stream byte.
    for (uint8_t i = 0; i < payloadCount && pos < areaEnd; ++i) {
        uint8_t streamByte;
        if (!window.readExact(pos, &streamByte, 1)) return packetReadFailed(kLineStreamNumber);
        pos += 1;
        const uint32_t stream = streamByte & kStreamNumberMask;
        const uint32_t keyFrame = streamByte >> 7;
        if (stream == 0) {
            ALOGE(kLogStreamZero, static_cast<int>(stream));
            return ERROR_MALFORMED;
        }
        *seen |= mStreamMarkBits[stream];
        const bool wanted = stream == track->streamNumber;
        uint32_t objectNumber = 0, offsetInObject = 0, replicatedLength = 0;
        pos += getTypeLength(window, (propertyFlags >> 4) & 3, pos, &objectNumber);
        pos += getTypeLength(window, (propertyFlags >> 2) & 3, pos, &offsetInObject);
        pos += getTypeLength(window, propertyFlags & 3, pos, &replicatedLength);
        int64_t dataEnd;

        if (replicatedLength == kCompressedReplicatedLength) {
            // A compressed payload: the offset field holds the presentation
            // time, one time delta byte follows, and the data are
            // sub-payloads, each a length byte and its bytes.
            uint8_t delta;
            if (!window.readExact(pos, &delta, 1)) return packetReadFailed(kLineTimeDelta);
            pos += 1;
            if (!payloadData(&dataEnd)) break;
            // Every sub-payload, empty ones too, counts towards its time.
            uint32_t ordinal = 0;
            for (int64_t sub = pos; sub < dataEnd; ++ordinal) {
                uint8_t subLength;
                if (!window.readExact(sub, &subLength, 1)) return packetReadFailed(kLineSubPayloadLength);
                sub += 1;
                if (subLength > dataEnd - sub) break;  // its payload ends first
                if (subLength != 0 && wanted) {
                    PayloadEntry* entry = track->append();
                    if (entry == nullptr) return packetReadFailed(kLineCompressedTableFull);
                    *entry = {sub, payloadTimeMs(offsetInObject, delta * ordinal, prerollMs), subLength, subLength,
                              keyFrame, PayloadEntry::kWhole};
                }
                sub += subLength;
            }
        } else {
            // The media object size and presentation time are read even when
            // the replicated data declare fewer than their 8 bytes; the
            // declared length is what is stepped over.
            uint8_t replicated[kReplicatedFieldBytes];
            if (!window.readExact(pos, replicated, sizeof(replicated))) return packetReadFailed(kLineReplicatedData);
            if (pos > areaEnd || replicatedLength > areaEnd - pos) break;
            pos += replicatedLength;
            if (!payloadData(&dataEnd)) break;
            if (wanted) {
                PayloadEntry* entry = track->append();
                if (entry == nullptr) return packetReadFailed(kLinePayloadTableFull);
                const uint32_t length = static_cast<uint32_t>(dataEnd - pos);
                const uint32_t objectSize = U32LE_AT(replicated);
                *entry = {pos, payloadTimeMs(U32LE_AT(replicated + 4), 0, prerollMs), length, objectSize, keyFrame,
                          payloadKind(offsetInObject, length, objectSize)};
            }
        }
        pos = dataEnd;
    }
    return OK;
}

ssize_t ASFParser::readPayload(uint32_t trackIndex, const PayloadEntry& entry, void* data) {
    if (trackIndex < mAsfTracks.size()) {
        if (const uint8_t* p = mAsfTracks[trackIndex].fetched.at(entry.offset, entry.length)) {
            memcpy(data, p, entry.length);
            return static_cast<ssize_t>(entry.length);
        }
    }
    return mDataSource->readAt(entry.offset, data, entry.length);
}

status_t ASFParser::getPayload(AsfTrack* track, int64_t* packetIndex, int step) {
    if (track == nullptr) return kErrorOutOfRange;
    track->clearPayloads();
    // Any other step would stand still or skip packets.
    if (packetIndex == nullptr || (step != 1 && step != -1)) return kErrorOutOfRange;
    // Without a Data Object there are no packets, and packets of no size
    // would all be read at one place: either way the walk ends as past the
    // last packet.
    const uint32_t packetSize = mFileProps.maxDataPacketSize;
    if (mDataPacketsOffset <= 0 || packetSize == 0) return ERROR_MALFORMED;

    // Each turn moves one packet towards an end of [0, Data Packets Count),
    // and one past the file's end fails its first read.
    while (true) {
        const int64_t p = *packetIndex;
        if (p < 0 || static_cast<uint64_t>(p) >= mFileProps.dataPacketsCount) return ERROR_MALFORMED;
        int64_t start;
        if (!zirkMul(p, static_cast<int64_t>(packetSize), &start) || !zirkAdd(start, mDataPacketsOffset, &start)) {
            return ERROR_MALFORMED;
        }
        std::atomic<uint8_t>* mark = static_cast<uint64_t>(p) < mPacketMarkCount ? &mPacketMarks[p] : nullptr;
        if (mark != nullptr && track->markBit != 0) {
            const uint8_t known = mark->load(std::memory_order_relaxed);
            // Parsed whole before, without this track's stream: its parse
            // here would find nothing either.
            if ((known & kPacketParsed) && !(known & track->markBit)) {
                *packetIndex = p + step;
                continue;
            }
        }
        uint8_t seen;
        status_t err = parseDataPacket(track, start, &seen);
        if (err != OK) return err;
        if (mark != nullptr) mark->store(seen | kPacketParsed, std::memory_order_relaxed);
        if (track->count > 0) return OK;
        *packetIndex = p + step;  // 0 <= p < INT64_MAX here
    }
}

status_t ASFParser::getDataPacket(uint32_t trackIndex, PayloadEntry* entry) {
    if (trackIndex >= mAsfTracks.size() || entry == nullptr) return kErrorOutOfRange;
    AsfTrack& track = mAsfTracks.editItemAt(trackIndex);
    // The first audio read starts the audio seek index thread.
    if (track.type == kTypeAudio && !mThreadRunning.load() && !mIndexDone.load()) (void)setupThread();
    const PayloadEntry* next = track.takeNext();
    if (next == nullptr) {
        int64_t p = track.nextPacket;
        status_t err = getPayload(&track, &p, 1);
        if (err != OK) return err;
        track.nextPacket = p + 1;
        next = track.takeNext();  // getPayload succeeds only with a descriptor
    }
    *entry = *next;
    return OK;
}

}  // namespace android

const char* getAsfParserVer() { return android::kVersion; }
