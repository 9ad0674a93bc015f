#include <log/log.h>
#include <log/log_host.h>

#include <stdio.h>
#include <stdlib.h>

#include <mutex>
#include <string>

#include "FormatV.h"

namespace {

// One lock orders stderr lines and guards the hooks.
std::mutex gLogLock;
int gMinPriority = ANDROID_LOG_WARN;
zirk_log_capture_fn gCapture = nullptr;
void* gCaptureCookie = nullptr;
zirk_assert_hook_fn gAssertHook = nullptr;
void* gAssertCookie = nullptr;

char priorityLetter(int prio) {
    static const char kLetters[] = "??VDIWEFS";
    return (prio >= 0 && prio <= ANDROID_LOG_SILENT) ? kLetters[prio] : '?';
}

std::string formatV(const char* fmt, va_list ap) {
    std::string out;
    android::zirkAppendFormatV(&out, fmt, ap);
    return out;
}

void emit(int prio, const char* tag, const std::string& text) {
    std::lock_guard<std::mutex> lock(gLogLock);
    if (gCapture != nullptr) gCapture(gCaptureCookie, prio, tag ? tag : "", text.c_str());
    if (prio >= gMinPriority && gMinPriority < ANDROID_LOG_SILENT) {
        fprintf(stderr, "%c/%s: %s\n", priorityLetter(prio), tag ? tag : "", text.c_str());
    }
}

}  // namespace

extern "C" {

int __android_log_vprint(int prio, const char* tag, const char* fmt, va_list ap) {
    std::string text = formatV(fmt, ap);
    emit(prio, tag, text);
    return static_cast<int>(text.size());
}

int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    int n = __android_log_vprint(prio, tag, fmt, ap);
    va_end(ap);
    return n;
}

void __android_log_assert(const char* cond, const char* tag, const char* fmt, ...) {
    std::string text;
    if (fmt != nullptr) {
        va_list ap;
        va_start(ap, fmt);
        text = formatV(fmt, ap);
        va_end(ap);
    } else if (cond != nullptr) {
        text = std::string("Assertion failed: ") + cond;
    }
    zirk_assert_hook_fn hook;
    void* cookie;
    {
        std::lock_guard<std::mutex> lock(gLogLock);
        hook = gAssertHook;
        cookie = gAssertCookie;
        if (gCapture != nullptr) gCapture(gCaptureCookie, ANDROID_LOG_FATAL, tag ? tag : "", text.c_str());
    }
    // The hook first: one that does not return (the fuzz harness throws)
    // leaves no line behind.
    if (hook != nullptr) hook(cookie, tag ? tag : "", text.c_str());
    // Written whatever the minimum priority: this is the last thing a dying
    // process says (death tests match on it).
    fprintf(stderr, "F/%s: %s\n", tag ? tag : "", text.c_str());
    fflush(stderr);
    abort();
}

void zirk_log_set_min_priority(int prio) {
    std::lock_guard<std::mutex> lock(gLogLock);
    gMinPriority = prio;
}

int zirk_log_get_min_priority(void) {
    std::lock_guard<std::mutex> lock(gLogLock);
    return gMinPriority;
}

void zirk_log_set_capture(zirk_log_capture_fn fn, void* cookie) {
    std::lock_guard<std::mutex> lock(gLogLock);
    gCapture = fn;
    gCaptureCookie = cookie;
}

void zirk_log_set_assert_hook(zirk_assert_hook_fn fn, void* cookie) {
    std::lock_guard<std::mutex> lock(gLogLock);
    gAssertHook = fn;
    gAssertCookie = cookie;
}

}  // extern "C"
