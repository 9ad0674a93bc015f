// The ASF extractor on untrusted files through the entry points, with the
// Windows Media property set so that WMV/WMA streams are not hidden: header
// objects, indexes, every track read (packets, payloads, object joining) and
// sought in the four modes, the background audio index on the way.
#include <cutils/properties.h>
#include <media/stagefright/MediaDefs.h>

#include "fuzz/ZIRKFuzzHarness.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool kPropertySet = property_set("media.tamelordecode.supportwmva", "1") == 0;
    (void)kPropertySet;
    return android::fuzz::runExtractor(data, size, android::MEDIA_MIMETYPE_CONTAINER_ASF);
}
