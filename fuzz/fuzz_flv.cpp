// The FLV extractor, forced, with every track read and sought.
#include <media/stagefright/MediaDefs.h>

#include "fuzz/ZIRKFuzzHarness.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return android::fuzz::runExtractor(data, size, android::MEDIA_MIMETYPE_CONTAINER_FLV);
}
