// System properties. On the host they live in an in-process store that tests
// and zirk-probe fill with property_set; property_get is safe from any thread.
#ifndef CUTILS_PROPERTIES_H
#define CUTILS_PROPERTIES_H

#ifdef __cplusplus
extern "C" {
#endif

#define PROPERTY_KEY_MAX 32
#define PROPERTY_VALUE_MAX 92

// Copies the value of `key` (or `default_value` when unset; "" when that is
// null) into `value`, truncated to PROPERTY_VALUE_MAX - 1 characters, and
// returns its length.
int property_get(const char* key, char* value, const char* default_value);

// Sets `key`; a null or empty value removes it. Returns 0, or -1 when the key
// or value is too long for the platform's limits.
int property_set(const char* key, const char* value);

// Host only: forgets every property.
void zirk_property_clear_all(void);

#ifdef __cplusplus
}
#endif

#endif
