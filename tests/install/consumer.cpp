// Opens a file through the installed plug-in's entry points and prints its
// container, track count and track MIME types; exit status 1 when no
// extractor takes the file. Built only against an installed prefix.
#include <stdio.h>

#include <media/stagefright/MediaExtractor.h>
#include <media/stagefright/MetaData.h>

#include "common/ZIRKCachedFileSource.h"
#include "entry/ZIRKExtractorEntry.h"

using namespace android;

int main(int argc, char** argv) {
    if (argc != 2) return 2;
    sp<DataSource> source = new ZIRKCachedFileSource(argv[1]);
    String8 container;
    float confidence = 0;
    sp<AMessage> meta;
    if (source->initCheck() != OK || !sniffZIRKExtractor(source, &container, &confidence, &meta)) return 1;
    sp<MediaExtractor> extractor = getInstance(source, container.c_str());
    if (!extractor) return 1;
    printf("container %s\ntracks %zu\n", container.c_str(), extractor->countTracks());
    for (size_t i = 0; i < extractor->countTracks(); ++i) {
        const char* mime = "?";
        sp<MetaData> format = extractor->getTrackMetaData(i);
        if (format) format->findCString(kKeyMIMEType, &mime);
        printf("track %zu %s\n", i, mime);
    }
    return 0;
}
