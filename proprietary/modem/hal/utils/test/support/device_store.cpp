// The host store's control calls on a phone: its own properties stay, and
// the tests that must seed one skip.
#include "kovani_host_properties.h"

extern "C" void kovani_host_property_reset(void) {}
extern "C" int kovani_host_property_seed(const char*, const char*) { return -1; }
