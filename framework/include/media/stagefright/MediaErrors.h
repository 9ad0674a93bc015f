// Media status codes returned by extractors and sources.
#ifndef MEDIA_ERRORS_H_
#define MEDIA_ERRORS_H_

#include <utils/Errors.h>

namespace android {

enum {
    MEDIA_ERROR_BASE = -1000,
    ERROR_IO = MEDIA_ERROR_BASE - 4,               // -1004: short read
    ERROR_MALFORMED = MEDIA_ERROR_BASE - 7,        // -1007: corrupt container
    ERROR_OUT_OF_RANGE = MEDIA_ERROR_BASE - 8,     // -1008
    ERROR_BUFFER_TOO_SMALL = MEDIA_ERROR_BASE - 9, // -1009
    ERROR_UNSUPPORTED = MEDIA_ERROR_BASE - 10,     // -1010
    ERROR_END_OF_STREAM = MEDIA_ERROR_BASE - 11,   // -1011
};

}  // namespace android

#endif
