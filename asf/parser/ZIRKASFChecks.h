// The ASF parser's fatal checks with fixed places: every message names
// "asf/parser/ASFParser" and the line given here. Each site must stay fatal
// where it is used.
#ifndef ZIRK_ASF_CHECKS_H_
#define ZIRK_ASF_CHECKS_H_

#include "common/ZIRKCheckSites.h"

namespace android {
namespace asfchecks {

constexpr ZIRKCheckComponent kParser = {"ASFParser", "asf/parser/ASFParser"};

// The parse needs the file's size to bound its walk.
constexpr ZIRKCheckSite kGetSize = {426, false, "mDataSource->getSize(&size) == OK"};

}  // namespace asfchecks
}  // namespace android

#endif
