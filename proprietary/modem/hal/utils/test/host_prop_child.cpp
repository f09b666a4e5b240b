// Runs property calls in a fresh process for host_properties_test.
#include <cutils/properties.h>

#include <cstdio>
#include <cstring>

int main(int argc, char** argv) {
  if (argc == 3 && std::strcmp(argv[1], "get") == 0) {
    char value[PROPERTY_VALUE_MAX];
    property_get(argv[2], value, "");
    std::printf("%s\n", value);
    return 0;
  }
  if (argc == 4 && std::strcmp(argv[1], "set") == 0) {
    return property_set(argv[2], argv[3]) == 0 ? 0 : 1;
  }
  if (argc == 3 && std::strcmp(argv[1], "spin") == 0) {
    // Each number is printed only once its set has returned, so the reader
    // knows the value the file must hold at least.
    for (unsigned long i = 1;; ++i) {
      char number[32];
      (void)std::snprintf(number, sizeof number, "%lu", i);
      if (property_set(argv[2], number) != 0) return 1;
      std::printf("%s\n", number);
      if (std::fflush(stdout) != 0) return 1;
    }
  }
  (void)std::fprintf(stderr, "usage: %s get NAME | set NAME VALUE | spin NAME\n",
                     argc > 0 ? argv[0] : "host_prop_child");
  return 2;
}
