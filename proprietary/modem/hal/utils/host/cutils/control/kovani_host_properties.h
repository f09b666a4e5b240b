#ifndef KOVANI_HOST_PROPERTIES_H
#define KOVANI_HOST_PROPERTIES_H

/*
 * Host-only control of the property store behind <cutils/properties.h>,
 * for tests and tools. There is no such API on the device.
 *
 * At first use of any property function the store loads the profile named
 * by KOVANI_PROPERTY_PROFILE, then the persistence file named by
 * KOVANI_PROPERTY_PERSIST, whose values win.
 */

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Loads a profile (build.prop or "adb shell getprop" lines) over the current
 * values, ignoring write-once. Returns the number of bad lines, each reported
 * on stderr and skipped, or -1 with errno set when the file cannot be read.
 */
__attribute__((visibility("default"))) int kovani_host_property_load(const char* path);

/*
 * Sets a property regardless of write-once and value rules; only the name
 * must be valid. Returns 0 or -1. Never writes the persistence file.
 */
__attribute__((visibility("default"))) int kovani_host_property_seed(const char* name,
                                                                     const char* value);

/* Removes a property. Returns 0, or -1 when it was absent or invalid. */
__attribute__((visibility("default"))) int kovani_host_property_unset(const char* name);

/*
 * Forgets every property and detaches the persistence file. The environment
 * variables are not loaded afterwards.
 */
__attribute__((visibility("default"))) void kovani_host_property_reset(void);

/*
 * Attaches a persistence file, or detaches it when path is NULL. Its values
 * are loaded now over the current ones, and every later change of a
 * "persist." property rewrites it. A missing file counts as empty. Returns 0,
 * or -1 with errno set when the file exists but cannot be read.
 */
__attribute__((visibility("default"))) int kovani_host_property_set_persist_file(const char* path);

/*
 * Calls fn for every property in name order with its full value and returns
 * the number of properties. fn may call the property functions.
 */
__attribute__((visibility("default"))) int kovani_host_property_foreach(
    void (*fn)(const char* name, const char* value, void* cookie), void* cookie);

#ifdef __cplusplus
}
#endif

#endif /* KOVANI_HOST_PROPERTIES_H */
