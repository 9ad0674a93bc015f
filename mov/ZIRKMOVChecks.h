// The components the MOV sample table's and sample iterator's fatal checks
// report as. Their messages carry no fixed line: each check names its own
// file and line (ZIRK_CHECK_HERE), with the text the message must spell.
// The setters admit only 'stco'/'co64' and sample-size fields of 32, 16, 8
// and 4 bits, so of the iterator's checks only the range-start one can fire
// (findChunkRange called for a sample behind the current range).
#ifndef ZIRK_MOV_CHECKS_H_
#define ZIRK_MOV_CHECKS_H_

#include "common/DataSplitter.h"
#include "common/ZIRKCheckSites.h"

namespace android {
namespace movchecks {

constexpr ZIRKCheckComponent kSampleTable = {"ZIRKMOVSampleTable", "mov/ZIRKMOVSampleTable"};
constexpr ZIRKCheckComponent kSampleIterator = {"ZIRKMOVSampleIterator", "mov/ZIRKMOVSampleIterator"};
// The track source reports under the extractor's tag.
constexpr ZIRKCheckComponent kSource = {"ZIRKMOVExtractor", "mov/ZIRKMOVSource"};

// The chunk-based audio splitters' checks. None can fire from the MOV
// source: it clears a splitter before its first chunk and after every seek,
// stamps every chunk, every track has a MIME type, and no MOV track takes
// the AC-3 path. The sites name the source's file with no line of their own.
constexpr ZIRKSplitterChecks kSplitter = {
        kSource,
        {0, false, "mBuffer == NULL || mBuffer->size() == 0"},
        {0, false, "buffer->meta_data()->findInt64(kKeyTime, &mBaseTimeUs)"},
        {0, false, "meta->findCString(kKeyMIMEType, &mime)"},
        {0, false, "sampleRateIndex != 3"},
        {0, false, "strmtyp <= 2"}};

}  // namespace movchecks
}  // namespace android

#endif
