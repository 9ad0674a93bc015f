// --extract N:OUT: writes one track as a stream a decoder reads without a
// container.
#ifndef ZIRK_TOOLS_PROBE_EXTRACT_H
#define ZIRK_TOOLS_PROBE_EXTRACT_H

#include <memory>
#include <string>

#include <media/stagefright/MetaData.h>

#include "tools/ProbeSink.h"

namespace zirk_probe {

// A sink writing the track of `format` (as its source reports it) to `path`,
// as a raw stream: H.264 in start-code form with its SPS/PPS in front of key
// frames, AAC in ADTS, PCM as WAV, MPEG-4 and MPEG-2 video behind their
// decoder configuration, MPEG audio, AC-3 and H.263 as they are, anything
// else as its samples end to end. Null with *error set when the format cannot
// be written that way or the file cannot be created; a write error surfaces
// from finish(). Warnings (a codec no player reads alone, parameter sets
// missing) go to stderr. The caller owns the sink; main thread only.
std::unique_ptr<ProbeSampleSink> openExtractSink(const android::sp<android::MetaData>& format,
                                                 const std::string& path, std::string* error);

}  // namespace zirk_probe

#endif  // ZIRK_TOOLS_PROBE_EXTRACT_H
