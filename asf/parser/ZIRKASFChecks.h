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
// The Index Object's per-specifier block positions, and one block's entries,
// could not be allocated. Both sizes are held to the object's bytes first, so
// only a process out of memory reaches these.
constexpr ZIRKCheckSite kBlockPositions = {735, false, "indexBlock.blockPositions != NULL"};
constexpr ZIRKCheckSite kIndexEntries = {753, false, "indexBlock.indexEntries != NULL"};

}  // namespace asfchecks
}  // namespace android

#endif
