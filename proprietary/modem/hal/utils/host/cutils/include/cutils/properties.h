#ifndef CUTILS_PROPERTIES_H
#define CUTILS_PROPERTIES_H

/* Host stand-in for the device's property interface. */

#ifndef PROPERTY_VALUE_MAX
#define PROPERTY_VALUE_MAX 92
#endif
#ifndef PROP_VALUE_MAX
#define PROP_VALUE_MAX 92
#endif

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Copies the value of key into value, which must hold PROPERTY_VALUE_MAX
 * bytes, and returns its length. An unset or empty property yields
 * default_value cut to PROPERTY_VALUE_MAX - 1 characters, or "" and 0 when
 * default_value is NULL. A NULL key reads as unset.
 */
__attribute__((visibility("default"))) int property_get(const char* key, char* value,
                                                        const char* default_value);

/*
 * Sets key to value (NULL means "") and returns 0, or -1 when the name is
 * invalid, the value is not UTF-8, the value is PROPERTY_VALUE_MAX bytes or
 * longer for a name outside "ro.", or key is an "ro." property already set.
 */
__attribute__((visibility("default"))) int property_set(const char* key, const char* value);

#ifdef __cplusplus
}
#endif

#endif /* CUTILS_PROPERTIES_H */
