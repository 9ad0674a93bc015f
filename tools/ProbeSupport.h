// Small helpers the probe's pieces share.
#ifndef ZIRK_TOOLS_PROBE_SUPPORT_H
#define ZIRK_TOOLS_PROBE_SUPPORT_H

#include <string.h>
#include <time.h>

#include <string>

namespace zirk_probe {

// Seconds on the monotonic clock.
inline double nowSeconds() {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return ts.tv_sec + ts.tv_nsec / 1e9;
}

// "what: <the error's text>".
inline std::string errnoText(const char* what, int err) { return std::string(what) + ": " + strerror(err); }

}  // namespace zirk_probe

#endif  // ZIRK_TOOLS_PROBE_SUPPORT_H
