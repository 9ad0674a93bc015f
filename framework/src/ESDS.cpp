// ES_Descriptor parsing (ISO 14496-1 7.2.6.5): ES_Descriptor, then its
// DecoderConfigDescriptor and optional DecoderSpecificInfo. Each descriptor
// must fit inside its parent; trailing bytes after the outermost descriptor
// are ignored (some writers append a codec configuration longer than the
// descriptor lengths they wrote, and the lengths are what count).
#include <media/stagefright/foundation/ESDS.h>

#include <zirk/ZIRKByteReader.h>

namespace android {

namespace {

constexpr uint8_t kTagESDescriptor = 0x03;
constexpr uint8_t kTagDecoderConfigDescriptor = 0x04;
constexpr uint8_t kTagDecoderSpecificInfo = 0x05;
// ISO 14496-1 8.3.3: sizeOfInstance spans at most four 7-bit bytes.
constexpr int kMaxSizeBytes = 4;
// ES_Descriptor flag bits (ISO 14496-1 7.2.6.5.1).
constexpr uint8_t kStreamDependenceFlag = 0x80;
constexpr uint8_t kURLFlag = 0x40;
constexpr uint8_t kOCRStreamFlag = 0x20;
// objectTypeIndication, streamType/upStream/reserved, bufferSizeDB (24),
// maxBitrate (32), avgBitrate (32).
constexpr size_t kDecoderConfigFixedBytes = 1 + 1 + 3 + 4 + 4;

}  // namespace

ESDS::ESDS(const void* data, size_t size)
    : mInitCheck(ERROR_MALFORMED),
      mDecoderSpecificOffset(0),
      mDecoderSpecificLength(0),
      mObjectTypeIndication(0),
      mBitRateMax(0),
      mBitRateAvg(0) {
    if (data != nullptr && size > 0) {
        const uint8_t* bytes = static_cast<const uint8_t*>(data);
        mData.assign(bytes, bytes + size);
        mInitCheck = parse();
    }
}

status_t ESDS::getObjectTypeIndication(uint8_t* objectTypeIndication) const {
    if (mInitCheck != OK) return mInitCheck;
    *objectTypeIndication = mObjectTypeIndication;
    return OK;
}

status_t ESDS::getCodecSpecificInfo(const void** data, size_t* size) const {
    if (mInitCheck != OK) return mInitCheck;
    // Without a DecoderSpecificInfo this is an empty range at the start.
    *data = mData.data() + mDecoderSpecificOffset;
    *size = mDecoderSpecificLength;
    return OK;
}

status_t ESDS::getBitRate(uint32_t* brateMax, uint32_t* brateAvg) const {
    if (mInitCheck != OK) return mInitCheck;
    *brateMax = mBitRateMax;
    *brateAvg = mBitRateAvg;
    return OK;
}

status_t ESDS::skipDescriptorHeader(size_t offset, size_t size, uint8_t* tag, size_t* dataOffset,
                                    size_t* dataSize) const {
    if (offset > mData.size() || size > mData.size() - offset) return ERROR_MALFORMED;
    ZIRKByteReader reader(mData.data() + offset, size);
    if (!reader.readU8(tag)) return ERROR_MALFORMED;

    size_t length = 0;
    for (int i = 0;; ++i) {
        uint8_t b;
        if (i == kMaxSizeBytes || !reader.readU8(&b)) return ERROR_MALFORMED;
        length = (length << 7) | (b & 0x7F);
        if ((b & 0x80) == 0) break;
    }
    if (length > reader.remaining()) return ERROR_MALFORMED;

    *dataOffset = offset + reader.position();
    *dataSize = length;
    return OK;
}

status_t ESDS::parse() {
    uint8_t tag;
    size_t dataOffset, dataSize;
    status_t err = skipDescriptorHeader(0, mData.size(), &tag, &dataOffset, &dataSize);
    if (err != OK) return err;
    if (tag != kTagESDescriptor) return ERROR_MALFORMED;
    return parseESDescriptor(dataOffset, dataSize);
}

status_t ESDS::parseESDescriptor(size_t offset, size_t size) {
    ZIRKByteReader reader(mData.data() + offset, size);
    uint16_t esId;
    uint8_t flags;
    if (!reader.readBE16(&esId) || !reader.readU8(&flags)) return ERROR_MALFORMED;
    if ((flags & kStreamDependenceFlag) && !reader.skip(2)) return ERROR_MALFORMED;  // dependsOn_ES_ID
    if (flags & kURLFlag) {
        uint8_t urlLength;
        if (!reader.readU8(&urlLength) || !reader.skip(urlLength)) return ERROR_MALFORMED;
    }
    if ((flags & kOCRStreamFlag) && !reader.skip(2)) return ERROR_MALFORMED;  // OCR_ES_Id

    uint8_t tag;
    size_t dataOffset, dataSize;
    status_t err = skipDescriptorHeader(offset + reader.position(), reader.remaining(), &tag,
                                        &dataOffset, &dataSize);
    if (err != OK) return err;
    if (tag != kTagDecoderConfigDescriptor) return ERROR_MALFORMED;
    return parseDecoderConfigDescriptor(dataOffset, dataSize);
}

status_t ESDS::parseDecoderConfigDescriptor(size_t offset, size_t size) {
    ZIRKByteReader reader(mData.data() + offset, size);
    uint8_t streamType;
    uint32_t bufferSize;
    if (size < kDecoderConfigFixedBytes || !reader.readU8(&mObjectTypeIndication) ||
        !reader.readU8(&streamType) || !reader.readBE24(&bufferSize) ||
        !reader.readBE32(&mBitRateMax) || !reader.readBE32(&mBitRateAvg)) {
        return ERROR_MALFORMED;
    }
    if (reader.atEnd()) return OK;  // no DecoderSpecificInfo

    uint8_t tag;
    size_t dataOffset, dataSize;
    status_t err = skipDescriptorHeader(offset + reader.position(), reader.remaining(), &tag,
                                        &dataOffset, &dataSize);
    if (err != OK) return err;
    // Another descriptor here (e.g. profile-level indications) means there
    // is no codec configuration.
    if (tag == kTagDecoderSpecificInfo) {
        mDecoderSpecificOffset = dataOffset;
        mDecoderSpecificLength = dataSize;
    }
    return OK;
}

}  // namespace android
