// What zirk-probe's readers hand to the outputs that want every sample of a
// track (--extract, --timeline). A sink belongs to whoever made it and is
// used on the main thread only.
#ifndef ZIRK_TOOLS_PROBE_SINK_H
#define ZIRK_TOOLS_PROBE_SINK_H

#include <stddef.h>
#include <stdint.h>

#include <string>

namespace zirk_probe {

// One buffer as the track source handed it out; `data` lives until
// onSample returns.
struct ProbeSample {
    const uint8_t* data = nullptr;
    size_t size = 0;
    bool hasTime = false;
    int64_t timeUs = 0;
    bool sync = false;
};

class ProbeSampleSink {
public:
    virtual ~ProbeSampleSink() = default;
    virtual void onSample(const ProbeSample& sample) = 0;
    // Called once after the track's last sample. False (with *error set)
    // when the output could not be completed.
    virtual bool finish(std::string* error) = 0;
};

}  // namespace zirk_probe

#endif  // ZIRK_TOOLS_PROBE_SINK_H
