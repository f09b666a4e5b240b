// The host property store's file parsers: a profile (build.prop or getprop
// lines) or a persistence file, then reads of what they loaded.
#include <cutils/properties.h>
#include <stdint.h>
#include <stdlib.h>
#include <unistd.h>

#include "fuzz_support.h"
#include "kovani_host_properties.h"

namespace {
char g_path[] = "/tmp/kovani_profile_fuzz_XXXXXX";
}

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  kovani_fuzz::QuietLibrary();
  const int fd = mkstemp(g_path);
  if (fd < 0) abort();
  close(fd);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  const bool persist_file = data[0] & 1;
  FILE* file = fopen(g_path, "wb");
  fwrite(data + 1, 1, size - 1, file);
  fclose(file);

  kovani_host_property_reset();
  if (persist_file) {
    kovani_host_property_set_persist_file(g_path);
  } else {
    kovani_host_property_load(g_path, nullptr);
  }
  kovani_host_property_foreach(
      [](const char* name, const char*, void*) {
        char value[PROPERTY_VALUE_MAX];
        property_get(name, value, "");
      },
      nullptr);
  kovani_host_property_set_persist_file(nullptr);
  return 0;
}
