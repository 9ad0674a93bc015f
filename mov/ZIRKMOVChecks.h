// The components the MOV sample table's and sample iterator's fatal checks
// report as. Their messages carry no fixed line: each check names its own
// file and line (ZIRK_CHECK_HERE), with the text the message must spell.
// The setters admit only 'stco'/'co64' and sample-size fields of 32, 16, 8
// and 4 bits, so of the iterator's checks only the range-start one can fire
// (findChunkRange called for a sample behind the current range).
#ifndef ZIRK_MOV_CHECKS_H_
#define ZIRK_MOV_CHECKS_H_

#include "common/ZIRKCheckSites.h"

namespace android {
namespace movchecks {

constexpr ZIRKCheckComponent kSampleTable = {"ZIRKMOVSampleTable", "mov/ZIRKMOVSampleTable"};
constexpr ZIRKCheckComponent kSampleIterator = {"ZIRKMOVSampleIterator", "mov/ZIRKMOVSampleIterator"};

}  // namespace movchecks
}  // namespace android

#endif
