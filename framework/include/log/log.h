// Platform logger. On the host, lines go to stderr when their priority is at
// least the minimum set with zirk_log_set_min_priority (default: warnings),
// and every line (whatever its priority) is offered to the capture hook.
#ifndef ANDROID_LOG_LOG_H
#define ANDROID_LOG_LOG_H

#include <stdarg.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef enum android_LogPriority {
    ANDROID_LOG_UNKNOWN = 0,
    ANDROID_LOG_DEFAULT,
    ANDROID_LOG_VERBOSE,
    ANDROID_LOG_DEBUG,  // 3
    ANDROID_LOG_INFO,   // 4
    ANDROID_LOG_WARN,   // 5
    ANDROID_LOG_ERROR,  // 6
    ANDROID_LOG_FATAL,
    ANDROID_LOG_SILENT,
} android_LogPriority;

int __android_log_print(int prio, const char* tag, const char* fmt, ...)
    __attribute__((format(printf, 3, 4)));
int __android_log_vprint(int prio, const char* tag, const char* fmt, va_list ap);

// Logs at fatal priority and aborts the process. Never returns.
void __android_log_assert(const char* cond, const char* tag, const char* fmt, ...)
    __attribute__((noreturn, format(printf, 3, 4)));

#ifdef __cplusplus
}
#endif

#endif
