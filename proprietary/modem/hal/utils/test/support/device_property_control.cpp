// The host store's control calls, for the device build of the tests, which
// runs no sequence that seeds or loads: the phone's own properties stay.
#include <errno.h>

#include "kovani_host_properties.h"

namespace {
int Refused() {
  errno = ENOSYS;
  return -1;
}
}  // namespace

extern "C" {
void kovani_host_property_set_reporter(kovani_host_property_reporter, void*) {}
int kovani_host_property_load(const char*, unsigned long*) { return Refused(); }
int kovani_host_property_load_text(const char*, const char*, size_t, unsigned long*) {
  return Refused();
}
int kovani_host_property_seed(const char*, const char*) { return Refused(); }
int kovani_host_property_unset(const char*) { return Refused(); }
void kovani_host_property_reset(void) {}
int kovani_host_property_set_persist_file(const char*) { return Refused(); }
int kovani_host_property_foreach(void (*)(const char*, const char*, void*), void*) { return 0; }
}  // extern "C"
