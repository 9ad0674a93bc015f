#define LOG_TAG "ZIRKExtractorEntry"

#include "entry/ZIRKExtractorEntry.h"

#include <dlfcn.h>
#include <pthread.h>

#include <utils/Log.h>

#include "asf/extractor/ASFExtractor.h"
#include "avi/ZIRKAVIExtractor.h"
#include "entry/ZIRKContainerRegistry.h"
#include "flv/ZIRKFLVExtractor.h"
#include "mov/ZIRKMOVExtractor.h"

namespace android {

namespace {

const char kRealMediaLibrary[] = "librealmediaextractor.so";

// The platform opens plug-ins with its default binding mode, which on its
// 32-bit ABI is the value 0 and means RTLD_NOW. glibc rejects a mode of 0,
// so the host spells out the same binding.
const int kRealMediaOpenMode = RTLD_NOW;

// Guards gZIRKRealMediaExtractorLibHandle and the symbol look-ups in it.
pthread_mutex_t gRealMediaLock;

__attribute__((constructor)) void initRealMediaLock() {
    pthread_mutex_init(&gRealMediaLock, nullptr);
}

__attribute__((destructor)) void destroyRealMediaLock() {
    pthread_mutex_destroy(&gRealMediaLock);
}

// The RealMedia row's factory and sniffer: the functions of the run-time
// library, looked up under the lock and called outside it, so that a slow
// RealMedia parse does not hold up other callers.
MediaExtractor* createRealMediaExtractor(const sp<DataSource>& source) {
    pthread_mutex_lock(&gRealMediaLock);
    if (!getZIRKRealMediaLibHandle()) {
        pthread_mutex_unlock(&gRealMediaLock);
        return nullptr;
    }
    ZIRKRealMediaFactoryFn factory = reinterpret_cast<ZIRKRealMediaFactoryFn>(
            dlsym(gZIRKRealMediaExtractorLibHandle, "getZIRKRealMediaExtractorInstance"));
    pthread_mutex_unlock(&gRealMediaLock);
    if (factory == nullptr) {
        ALOGD("getZIRKRealMediaExtractorInstance not found in librealmediaextractor.so");
        return nullptr;
    }
    return factory(source);
}

bool sniffRealMedia(const sp<DataSource>& source, String8* mimeType, float* confidence,
                    sp<AMessage>* /*meta*/) {
    ZIRKRealMediaSnifferFn sniffer = nullptr;
    pthread_mutex_lock(&gRealMediaLock);
    if (getZIRKRealMediaLibHandle()) {
        sniffer = reinterpret_cast<ZIRKRealMediaSnifferFn>(
                dlsym(gZIRKRealMediaExtractorLibHandle, "ZIRKSniffRealMedia"));
        if (sniffer == nullptr) {
            ALOGD("Can't found ZIRKSniffRealMedia in librealmediaextractor.so");
        }
    }
    pthread_mutex_unlock(&gRealMediaLock);
    if (sniffer == nullptr) return false;
    return sniffer(source, mimeType, confidence, nullptr) != 0;
}

template <class Extractor>
MediaExtractor* construct(const sp<DataSource>& source) {
    return new Extractor(source);
}

// The registry's sniffers and factories, row for row with kZIRKContainers.
struct ContainerHooks {
    bool (*sniffer)(const sp<DataSource>&, String8*, float*, sp<AMessage>*);
    ZIRKSniffMeta sniffMeta;
    MediaExtractor* (*factory)(const sp<DataSource>&);
};

#define ZIRK_CONTAINER_HOOKS(name, mimeTypes, cliNames, extensions, sniffer, sniffMeta, factory, version) \
    {&sniffer, sniffMeta, &factory},
const ContainerHooks kHooks[] = {ZIRK_CONTAINER_ROWS(ZIRK_CONTAINER_HOOKS)};
#undef ZIRK_CONTAINER_HOOKS
static_assert(sizeof(kHooks) / sizeof(kHooks[0]) == kZIRKContainerCount, "one set of hooks per registry row");

}  // namespace

extern "C" {

void* gZIRKRealMediaExtractorLibHandle = nullptr;

int getZIRKRealMediaLibHandle() {
    // A failed open is not remembered: every request tries again. A
    // successful one is kept for the life of the process (never dlclose'd).
    if (gZIRKRealMediaExtractorLibHandle == nullptr) {
        gZIRKRealMediaExtractorLibHandle = dlopen(kRealMediaLibrary, kRealMediaOpenMode);
    }
    if (gZIRKRealMediaExtractorLibHandle == nullptr) {
        ALOGD("Failed to open librealmediaextractor.so");
    }
    return gZIRKRealMediaExtractorLibHandle != nullptr ? 1 : 0;
}

MediaExtractor* getInstance(const sp<DataSource>& source, const char* containerMime) {
    if (containerMime == nullptr) return nullptr;
    for (size_t i = 0; i < kZIRKContainerCount; ++i) {
        if (kZIRKContainers[i].takesMimeType(containerMime)) return kHooks[i].factory(source);
    }
    return nullptr;
}

bool sniffZIRKExtractor(const sp<DataSource>& source, String8* mimeType, float* confidence,
                        sp<AMessage>* meta) {
    for (const ContainerHooks& hooks : kHooks) {
        sp<AMessage>* sniffMeta = hooks.sniffMeta == ZIRKSniffMeta::kCallers ? meta : nullptr;
        if (hooks.sniffer(source, mimeType, confidence, sniffMeta)) return true;
    }
    return false;
}

}  // extern "C"

}  // namespace android
