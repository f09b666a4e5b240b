// The fresh process of host_properties_test: "host_prop_child NAME [COUNT]"
// prints NAME's value, then with COUNT sets NAME to 1, 2, ... up to COUNT,
// or until killed when COUNT is 0.
#include <cutils/properties.h>

#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv) {
  if (argc < 2 || argc > 3) return 2;
  char value[PROPERTY_VALUE_MAX];
  property_get(argv[1], value, "");
  std::printf("%s\n", value);
  const unsigned long count = argc == 3 ? std::strtoul(argv[2], nullptr, 10) : 0;
  for (unsigned long i = 1; argc == 3 && (count == 0 || i <= count); ++i) {
    // Printed once the set has returned: the file must hold at least this.
    (void)std::snprintf(value, sizeof value, "%lu", i);
    if (property_set(argv[1], value) != 0 || std::printf("%s\n", value) < 0 ||
        std::fflush(stdout) != 0) {
      return 1;
    }
  }
  return 0;
}
