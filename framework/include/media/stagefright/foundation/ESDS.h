// ESDS: parser of an MPEG-4 elementary-stream descriptor (ES_Descriptor with
// its DecoderConfigDescriptor and DecoderSpecificInfo). Copies the input;
// every descriptor length is checked against the bytes present.
// Not thread-safe.
#ifndef ESDS_H_
#define ESDS_H_

#include <stddef.h>
#include <stdint.h>

#include <vector>

#include <media/stagefright/MediaErrors.h>

namespace android {

class ESDS {
public:
    ESDS(const void* data, size_t size);

    // OK, or ERROR_MALFORMED when the descriptor could not be parsed.
    status_t InitCheck() const { return mInitCheck; }

    status_t getObjectTypeIndication(uint8_t* objectTypeIndication) const;
    // Points into the descriptor copy; valid while this object lives.
    status_t getCodecSpecificInfo(const void** data, size_t* size) const;
    status_t getBitRate(uint32_t* brateMax, uint32_t* brateAvg) const;

private:
    status_t parse();
    status_t skipDescriptorHeader(size_t offset, size_t size, uint8_t* tag, size_t* dataOffset,
                                  size_t* dataSize) const;
    status_t parseESDescriptor(size_t offset, size_t size);
    status_t parseDecoderConfigDescriptor(size_t offset, size_t size);

    std::vector<uint8_t> mData;
    status_t mInitCheck;
    size_t mDecoderSpecificOffset;
    size_t mDecoderSpecificLength;
    uint8_t mObjectTypeIndication;
    uint32_t mBitRateMax;
    uint32_t mBitRateAvg;
};

}  // namespace android

#endif
