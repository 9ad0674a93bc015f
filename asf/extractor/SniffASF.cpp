// ASF sniffing: whether a source is an ASF file and whether it holds video,
// from the header's Codec List Object when there is one, else from a full
// parse. Logs under the parser's tag. Stateless; safe from any thread.
#define LOG_TAG "ASFParser"

#include <media/stagefright/MediaDefs.h>
#include <media/stagefright/foundation/ABuffer.h>
#include <utils/Log.h>
#include <zirk/ZIRKByteReader.h>

#include "asf/extractor/ASFExtractor.h"
#include "asf/parser/ASFGuids.h"
#include "common/ZIRKReadWhole.h"
#include "common/ZIRKSafeMath.h"

namespace android {

namespace {

constexpr float kASFConfidence = 0.8f;
constexpr size_t kGuidSize = 16;
// Header Object header: GUID, size (u64), object count (u32), two reserved
// bytes.
constexpr size_t kHeaderObjectBytes = 30;
constexpr size_t kObjectHeaderBytes = 24;
// Codec List Object: object header, reserved GUID, then the entry count.
constexpr uint64_t kCodecListFieldsOffset = 40;
constexpr uint64_t kCodecListMinSize = 44;
// The codec list is read whole. Muxers write one entry (a name, a
// description and a few bytes of information) per stream, well under a
// kilobyte; a list claiming more than this is not read and does not claim
// the file, rather than being allocated from an untrusted size.
constexpr int64_t kMaxCodecListBytes = 1 << 20;

constexpr uint16_t kCodecTypeVideo = 1;
constexpr uint16_t kCodecTypeAudio = 2;

// The Codec List Object (86D15240-311D-11D0-A3A4-00A0C90348F6): only the
// sniffer reads it.
constexpr ASFGuid kGuidCodecList = asfGuid(0x86D15240, 0x311D, 0x11D0, 0xA3A400A0C90348F6);

constexpr char kLogFileCorruption[] = "File corruption, ignore this file, %s";

bool readAll(const sp<DataSource>& source, int64_t offset, void* data, size_t size) {
    return source->readAt(offset, data, size) == static_cast<ssize_t>(size);
}

// Walks the codec entries of a Codec List Object's fields (after its
// reserved GUID): true with *isVideo for the first video entry, true for an
// audio-only list, false for a list naming neither. An entry cut short by
// the object's end ends the walk as if the list ended there.
bool sniffCodecList(const uint8_t* data, size_t size, bool* isVideo) {
    ZIRKByteReader r(data, size);
    uint32_t count = 0;
    bool sawAudio = false;
    r.readLE32(&count);
    for (uint32_t i = 0; i < count; ++i) {
        uint16_t type, nameUnits, descriptionUnits, infoBytes;
        if (!r.readLE16(&type)) break;
        if (type == kCodecTypeVideo) {
            *isVideo = true;
            return true;
        }
        if (type == kCodecTypeAudio) sawAudio = true;
        if (!r.readLE16(&nameUnits) || !r.skip(2u * nameUnits) || !r.readLE16(&descriptionUnits) ||
            !r.skip(2u * descriptionUnits) || !r.readLE16(&infoBytes) || !r.skip(infoBytes)) {
            break;
        }
    }
    return sawAudio;
}

}  // namespace

bool SniffASFFormat(const sp<DataSource>& source) {
    uint8_t guid[kGuidSize];
    return readAll(source, 0, guid, sizeof(guid)) && isASFGuid(guid, kGuidHeader);
}

bool SniffASFFormat(const sp<DataSource>& source, bool* isVideo) {
    uint8_t header[kHeaderObjectBytes];
    if (!readAll(source, 0, header, sizeof(header)) || !isASFGuid(header, kGuidHeader)) return false;
    uint32_t headerSize = 0;
    ZIRKByteReader(header + kGuidSize, 4).readLE32(&headerSize);

    *isVideo = false;
    // The header size is taken in 32 bits and may wrap below 30; the walk
    // still ends at the file's end (a short read) or at a bad object size.
    uint32_t remaining = headerSize - static_cast<uint32_t>(kHeaderObjectBytes);
    int64_t pos = kHeaderObjectBytes;
    while (remaining >= kObjectHeaderBytes) {
        uint8_t object[kObjectHeaderBytes];
        if (!readAll(source, pos, object, sizeof(object))) {
            // A truncated header is still taken as an (audio) ASF file.
            ALOGE(kLogFileCorruption, "SniffASFFormat");
            return true;
        }
        uint32_t sizeLow = 0, sizeHigh = 0;
        ZIRKByteReader sizeReader(object + kGuidSize, 8);
        sizeReader.readLE32(&sizeLow);
        sizeReader.readLE32(&sizeHigh);
        const uint64_t size = static_cast<uint64_t>(sizeHigh) << 32 | sizeLow;
        if (size < kObjectHeaderBytes) break;
        if (kGuidCodecList.matches(object)) {
            if (size < kCodecListMinSize) return false;
            sp<ABuffer> fields;
            int64_t fieldsOffset;
            if (size - kCodecListFieldsOffset > static_cast<uint64_t>(kMaxCodecListBytes) ||
                !zirkAdd(pos, static_cast<int64_t>(kCodecListFieldsOffset), &fieldsOffset) ||
                ZIRKReadWhole(source, fieldsOffset, static_cast<int64_t>(size - kCodecListFieldsOffset),
                              ZIRKFileSizeOf(source), kMaxCodecListBytes, &fields) != OK) {
                return false;
            }
            return sniffCodecList(fields->data(), fields->size(), isVideo);
        }
        // An object reaching past any 64-bit offset cannot be followed; the
        // read after it would have been short, so it ends as one does.
        if (size > static_cast<uint64_t>(INT64_MAX) || !zirkAdd(pos, static_cast<int64_t>(size), &pos)) {
            ALOGE(kLogFileCorruption, "SniffASFFormat");
            return true;
        }
        remaining -= static_cast<uint32_t>(size);
    }

    // No Codec List Object: the whole file is parsed (index objects too).
    // The parser is not kept for the extractor that may follow; it parses
    // again.
    sp<ASFParser> parser = new ASFParser(source);
    for (const ASFParser::Track& track : parser->tracks()) {
        if (track.type == ASFParser::kTypeVideo) *isVideo = true;
    }
    return true;
}

bool SniffASF(const sp<DataSource>& source, String8* mimeType, float* confidence, sp<AMessage>* /*meta*/) {
    bool isVideo = false;
    if (!SniffASFFormat(source, &isVideo)) return false;
    mimeType->setTo(isVideo ? MEDIA_MIMETYPE_CONTAINER_ASF : MEDIA_MIMETYPE_CONTAINER_WMA);
    *confidence = kASFConfidence;
    return true;
}

}  // namespace android
