// Logging macros over liblog, tagged with the including file's LOG_TAG.
#ifndef ANDROID_UTILS_LOG_H
#define ANDROID_UTILS_LOG_H

#include <log/log.h>

#ifndef LOG_TAG
#define LOG_TAG NULL
#endif

#define ALOG(prio, tag, ...) __android_log_print(prio, tag, __VA_ARGS__)
#ifndef ALOGV
#define ALOGV(...) ((void)0)
#endif
#define ALOGD(...) ((void)__android_log_print(ANDROID_LOG_DEBUG, LOG_TAG, __VA_ARGS__))
#define ALOGI(...) ((void)__android_log_print(ANDROID_LOG_INFO, LOG_TAG, __VA_ARGS__))
#define ALOGW(...) ((void)__android_log_print(ANDROID_LOG_WARN, LOG_TAG, __VA_ARGS__))
#define ALOGE(...) ((void)__android_log_print(ANDROID_LOG_ERROR, LOG_TAG, __VA_ARGS__))

#endif
