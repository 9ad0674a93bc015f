// Host-only controls of the logger: not part of the platform. Used by tests,
// zirk-probe and the fuzz targets.
//
// Thread rules: the hooks and the minimum priority may be changed from any
// thread; a hook is called on the logging thread, under the logger's lock, so
// it must not log itself.
#ifndef ANDROID_LOG_LOG_HOST_H
#define ANDROID_LOG_LOG_HOST_H

#ifdef __cplusplus
extern "C" {
#endif

// Lines below this priority are not written to stderr (they still reach the
// capture hook). ANDROID_LOG_SILENT writes nothing.
void zirk_log_set_min_priority(int prio);
int zirk_log_get_min_priority(void);

// Called for every logged line with its priority, tag and formatted text.
typedef void (*zirk_log_capture_fn)(void* cookie, int prio, const char* tag, const char* text);
void zirk_log_set_capture(zirk_log_capture_fn fn, void* cookie);

// Called by __android_log_assert with the formatted message before the
// process aborts. A hook may leave by throwing (the fuzz harness does, so
// that the stack unwinds and nothing leaks); if it returns, the process
// aborts as on the platform.
typedef void (*zirk_assert_hook_fn)(void* cookie, const char* tag, const char* message);
void zirk_log_set_assert_hook(zirk_assert_hook_fn fn, void* cookie);

#ifdef __cplusplus
}
#endif

#endif
