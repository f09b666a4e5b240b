// The host store's control calls, for the device build of the tests: seeding
// goes to the real property service, which can neither forget nor load.
#include <cutils/properties.h>
#include <errno.h>

#include "kovani_host_properties.h"

extern "C" {

int kovani_host_property_load(const char*) {
  errno = ENOSYS;
  return -1;
}

int kovani_host_property_seed(const char* name, const char* value) {
  return property_set(name, value);
}

int kovani_host_property_unset(const char* name) { return property_set(name, ""); }

void kovani_host_property_reset(void) {}

int kovani_host_property_set_persist_file(const char*) {
  errno = ENOSYS;
  return -1;
}

int kovani_host_property_foreach(void (*)(const char*, const char*, void*), void*) { return 0; }

}  // extern "C"
