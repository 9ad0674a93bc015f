// A stand-in for librealmediaextractor.so, built in three variants to drive
// the RealMedia bridge: both symbols, no factory (ZIRK_RM_NO_FACTORY), and no
// sniffer (ZIRK_RM_NO_SNIFFER). It claims sources that start with ".RMF".
#include <string.h>

#include <media/stagefright/DataSource.h>
#include <media/stagefright/MediaDefs.h>
#include <media/stagefright/MediaExtractor.h>
#include <media/stagefright/foundation/AMessage.h>
#include <utils/String8.h>

using namespace android;

namespace {

class StandInExtractor : public MediaExtractor {
public:
    size_t countTracks() override { return 0; }
    sp<MediaSource> getTrack(size_t) override { return nullptr; }
    sp<MetaData> getTrackMetaData(size_t, uint32_t) override { return nullptr; }
    sp<MetaData> getMetaData() override {
        sp<MetaData> meta = new MetaData;
        meta->setCString(kKeyMIMEType, MEDIA_MIMETYPE_CONTAINER_REALMEDIA);
        return meta;
    }
};

}  // namespace

extern "C" {

#ifndef ZIRK_RM_NO_FACTORY
__attribute__((visibility("default"))) MediaExtractor* getZIRKRealMediaExtractorInstance(
        const sp<DataSource>&) {
    return new StandInExtractor;
}
#endif

#ifndef ZIRK_RM_NO_SNIFFER
__attribute__((visibility("default"))) bool ZIRKSniffRealMedia(const sp<DataSource>& source,
                                                               String8* mimeType, float* confidence,
                                                               sp<AMessage>* meta) {
    char magic[4];
    if (source->readAt(0, magic, 4) != 4 || memcmp(magic, ".RMF", 4) != 0) return false;
    mimeType->setTo(MEDIA_MIMETYPE_CONTAINER_REALMEDIA);
    *confidence = 0.5f;
    if (meta != nullptr && *meta != nullptr) (*meta)->setInt32("touched-by-realmedia", 1);
    return true;
}
#endif

}  // extern "C"
