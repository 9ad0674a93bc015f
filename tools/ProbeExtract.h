// --extract N:OUT: writes one track as a stream a decoder reads without a
// container.
#ifndef ZIRK_TOOLS_PROBE_EXTRACT_H
#define ZIRK_TOOLS_PROBE_EXTRACT_H

#include <memory>
#include <string>

#include <media/stagefright/MetaData.h>

#include "tools/ProbeSink.h"

namespace zirk_probe {

// A sink writing the track of `format` (as its source reports it) to `path`;
// null with *error set when the file cannot be created. Warnings (a codec no
// player reads alone) go to stderr.
std::unique_ptr<ProbeSampleSink> openExtractSink(const android::sp<android::MetaData>& format,
                                                 const std::string& path, std::string* error);

}  // namespace zirk_probe

#endif  // ZIRK_TOOLS_PROBE_EXTRACT_H
