// Links against the installed library by its exact names, the mangled ones
// included, and checks a few answers. It also seeds the host property store
// itself, so the private libcutils.so must link and load from both sides.
#include <kovani_host_properties.h>
#include <kovani_utils.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

int main() {
  g_kovani_shell_print_flag = 0;
  char text[] = "  modem  ";
  kovani_str_trim(text, sizeof(text));
  char seeded[256] = "";
  const bool seed_ok = kovani_host_property_seed("vendor.kovani.consumer", "seeded") == 0;
  kovani_get_property_value("vendor.kovani.consumer", seeded, "");
  const bool ok = kovani_str_cmp(text, "modem") == 0 &&
                  kovani_utils_get_pid_number() == getpid() &&
                  kovani_timer_start([](void*) {}, 60) != 0 && !kovani_timer_stop(0) &&
                  kovani_build_type_get() == KOVANI_BUILD_TYPE_PRE && seed_ok &&
                  strcmp(seeded, "seeded") == 0;
  kovani_timer_clear_callback_list();
  printf("consumer: %s\n", ok ? "ok" : "FAILED");
  return ok ? 0 : 1;
}
