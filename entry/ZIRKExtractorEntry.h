// The plug-in's exported entry points. The host framework calls
// sniffZIRKExtractor to learn whether a source holds a container this library
// reads, then getInstance with the container MIME type it settled on.
// Both may be called from any thread, concurrently.
#ifndef ZIRK_EXTRACTOR_ENTRY_H_
#define ZIRK_EXTRACTOR_ENTRY_H_

#include <media/stagefright/DataSource.h>
#include <media/stagefright/MediaExtractor.h>
#include <media/stagefright/foundation/AMessage.h>
#include <utils/String8.h>

#include "common/ZIRKExport.h"

namespace android {

extern "C" {

// Handle of librealmediaextractor.so once opened; never closed.
ZIRK_EXPORT extern void* gZIRKRealMediaExtractorLibHandle;

// 1 when the RealMedia library is open (opening it now if needed), else 0.
// The caller holds the RealMedia lock.
ZIRK_EXPORT int getZIRKRealMediaLibHandle();

// A new extractor for `containerMime` (matched case-insensitively), owned by
// the caller through sp<>; null for a type this library does not read.
ZIRK_EXPORT MediaExtractor* getInstance(const sp<DataSource>& source, const char* containerMime);

// True when one of the sniffers claims the source; that sniffer has set
// *mimeType and *confidence (only the MOV and FLV sniffers see `meta`).
ZIRK_EXPORT bool sniffZIRKExtractor(const sp<DataSource>& source, String8* mimeType,
                                    float* confidence, sp<AMessage>* meta);

}  // extern "C"

// Signatures the RealMedia library's two symbols must have.
typedef MediaExtractor* (*ZIRKRealMediaFactoryFn)(const sp<DataSource>& source);
typedef bool (*ZIRKRealMediaSnifferFn)(const sp<DataSource>& source, String8* mimeType,
                                       float* confidence, sp<AMessage>* meta);

}  // namespace android

#endif
