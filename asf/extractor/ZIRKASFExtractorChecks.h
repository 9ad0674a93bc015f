// The ASF extractor's fatal checks with fixed places: every message names
// "asf/extractor/ASFExtractor" and the line given here. Each site must stay
// fatal where it is used.
#ifndef ZIRK_ASF_EXTRACTOR_CHECKS_H_
#define ZIRK_ASF_EXTRACTOR_CHECKS_H_

#include "common/ZIRKCheckSites.h"

namespace android {
namespace asfchecks {

constexpr ZIRKCheckComponent kExtractor = {"ASFExtractor", "asf/extractor/ASFExtractor"};

// The constructor must have a parser to work from.
constexpr ZIRKCheckSite kParserCreated = {272, false, "mParser != NULL"};
// Every exposed track has its MIME type (setMetaData sets it on each).
constexpr ZIRKCheckSite kTrackMime = {447, false, "trackMeta->findCString(kKeyMIMEType, &trackMIME)"};

}  // namespace asfchecks
}  // namespace android

#endif
