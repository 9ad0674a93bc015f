// Sniffing and construction through the entry points, as the framework does.
#include "fuzz/ZIRKFuzzHarness.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    return android::fuzz::runSniffAndCreate(data, size);
}
