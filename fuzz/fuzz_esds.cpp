// The ES-descriptor parser on untrusted bytes.
#include <media/stagefright/foundation/ESDS.h>


extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    android::ESDS esds(data, size);
    uint8_t objectType;
    const void* csd;
    size_t csdSize;
    uint32_t maxRate, avgRate;
    if (esds.InitCheck() == android::OK) {
        esds.getObjectTypeIndication(&objectType);
        if (esds.getCodecSpecificInfo(&csd, &csdSize) == android::OK && csdSize > 0) {
            volatile uint8_t sink = static_cast<const uint8_t*>(csd)[csdSize - 1];
            (void)sink;
        }
        esds.getBitRate(&maxRate, &avgRate);
    }
    return 0;
}
