// What the MOV extractor's sources share and nothing else includes: the
// component its fatal checks report as.
#ifndef ZIRK_MOV_EXTRACTOR_INTERNAL_H_
#define ZIRK_MOV_EXTRACTOR_INTERNAL_H_

#include <media/stagefright/foundation/ADebug.h>
#include <utils/Errors.h>

#include "common/ZIRKCheckSites.h"

namespace android {

namespace movchecks {
// The extractor's checks name no fixed line: each reports its own.
constexpr ZIRKCheckComponent kExtractor = {"ZIRKMOVExtractor", "mov/ZIRKMOVExtractor"};
}  // namespace movchecks

}  // namespace android

#endif
