// The MOV extractor on untrusted files: the box walk, every track's format
// and the file's metadata, every query of the first video and the first
// audio track's sample tables; then the sniffer, and the extractor through
// the entry points with every track read and sought in the four modes.
#include "fuzz/ZIRKFuzzHarness.h"
#include "fuzz/ZIRKFuzzMOVQueries.h"
#include "mov/ZIRKMOVExtractor.h"

#include <media/stagefright/MediaDefs.h>

using namespace android;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::initHarness();
    try {
        sp<ZIRKMOVExtractor> extractor = new ZIRKMOVExtractor(fuzz::makeFuzzSource(data, size));
        sp<MetaData> fileMeta = extractor->getMetaData();
        for (size_t i = 0; i < extractor->countTracks(); ++i) {
            sp<MetaData> format = extractor->getTrackMetaData(i, 0);
        }
        for (const char* prefix : {"video/", "audio/", "text/"}) {
            ZIRKMOVExtractor::Track* track = extractor->findTrackByMimePrefix(prefix);
            if (track != nullptr && track->sampleTable != nullptr) fuzz::querySampleTable(track->sampleTable);
        }
    } catch (const fuzz::FatalCheck& check) {
        fuzz::noteFatalCheck(check);
    }
    String8 mime;
    float confidence;
    sp<AMessage> meta;
    ZIRKSniffMOV(fuzz::makeFuzzSource(data, size), &mime, &confidence, &meta);
    fuzz::runExtractor(data, size, MEDIA_MIMETYPE_CONTAINER_MOV);
    return 0;
}
