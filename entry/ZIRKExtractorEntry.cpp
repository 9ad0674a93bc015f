#define LOG_TAG "ZIRKExtractorEntry"

#include "entry/ZIRKExtractorEntry.h"

#include <dlfcn.h>
#include <pthread.h>
#include <strings.h>

#include <media/stagefright/MediaDefs.h>
#include <utils/Log.h>

#include "avi/ZIRKAVIExtractor.h"
#include "entry/ZIRKPendingDemuxers.h"
#include "flv/ZIRKFLVExtractor.h"

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
    if (!strcasecmp(containerMime, MEDIA_MIMETYPE_CONTAINER_ASF) ||
        !strcasecmp(containerMime, MEDIA_MIMETYPE_CONTAINER_WMA)) {
        return createASFExtractor(source);
    }
    if (!strcasecmp(containerMime, MEDIA_MIMETYPE_CONTAINER_AVI)) {
        return new ZIRKAVIExtractor(source);
    }
    if (!strcasecmp(containerMime, MEDIA_MIMETYPE_CONTAINER_MOV)) {
        return createMOVExtractor(source);
    }
    if (!strcasecmp(containerMime, MEDIA_MIMETYPE_CONTAINER_FLV)) {
        return new ZIRKFLVExtractor(source);
    }
    if (!strcasecmp(containerMime, MEDIA_MIMETYPE_CONTAINER_REALMEDIA)) {
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
        // Outside the lock: a slow RealMedia parse must not hold up others.
        return factory(source);
    }
    return nullptr;
}

bool sniffZIRKExtractor(const sp<DataSource>& source, String8* mimeType, float* confidence,
                        sp<AMessage>* meta) {
    // Only the MOV and FLV sniffers get the caller's meta; the others are
    // deliberately given none, so they never return sniff metadata.
    if (SniffASF(source, mimeType, confidence, nullptr)) return true;
    if (ZIRKSniffAVI(source, mimeType, confidence, nullptr)) return true;
    if (ZIRKSniffMOV(source, mimeType, confidence, meta)) return true;
    if (ZIRKSniffFLV(source, mimeType, confidence, meta)) return true;

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

}  // extern "C"

}  // namespace android
