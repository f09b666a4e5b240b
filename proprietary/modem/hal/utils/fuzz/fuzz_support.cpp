#include "fuzz_support.h"

#include <fcntl.h>
#include <stdarg.h>
#include <unistd.h>

#include <algorithm>

#include "kovani_host_properties.h"
#include "kovani_utils.h"

// The system log is not written while fuzzing.
extern "C" void vsyslog(int, const char*, va_list) {}
extern "C" void __vsyslog_chk(int, int, const char*, va_list) {}

namespace kovani_fuzz {

void QuietLibrary() {
  kovani_host_property_reset();
  kovani_host_property_seed("persist.vendor.radio.adb_log_zu", "0");
  kovani_host_property_seed("persist.vendor.radio.adb_log_shell", "0");
  kovani_host_property_seed("persist.vendor.radio.print_prop", "0");
  g_kovani_qcril_ril_process_instance_id = 0;
  const int null_fd = open("/dev/null", O_WRONLY);
  dup2(null_fd, STDOUT_FILENO);
  close(null_fd);
}

std::vector<char> Buffer(const std::string& text, size_t min_size) {
  std::vector<char> buffer(std::max(text.size() + 1, min_size), '\0');
  std::copy(text.begin(), text.end(), buffer.begin());
  return buffer;
}

}  // namespace kovani_fuzz
