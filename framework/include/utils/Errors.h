// Status codes shared by the whole framework stand-in. Values are the
// platform's: 0 is success, errors are negative (several are negated errno).
#ifndef ANDROID_ERRORS_H
#define ANDROID_ERRORS_H

#include <stdint.h>
#include <sys/types.h>

namespace android {

typedef int32_t status_t;

enum {
    OK = 0,
    NO_ERROR = 0,
    UNKNOWN_ERROR = (-2147483647 - 1),  // 0x80000000
    NO_MEMORY = -12,                     // -ENOMEM
    NO_INIT = -19,                       // -ENODEV
    NAME_NOT_FOUND = -2,                 // -ENOENT, SortedVector::indexOf miss
};

}  // namespace android

#endif
