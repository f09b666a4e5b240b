// A file as a bug report, zip or text: its properties section for a
// profile, and its system log for the log command.
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <string>

#include "input/input.h"
#include "log/log_analysis.h"
#include "profile/bugreport_profile.h"

namespace {
char g_path[] = "/tmp/kovani_bugreport_fuzz_XXXXXX";
}

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  const int fd = mkstemp(g_path);
  if (fd < 0) abort();
  close(fd);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace kovani_tool;
  FILE* file = fopen(g_path, "wb");
  fwrite(data, 1, size, file);
  fclose(file);
  std::string text, label, error;
  ReadBugReportProfile(g_path, &text, &label, &error);
  Input input;
  LogAnalysis analysis;
  if (OpenInput(g_path, &input, &error) && analysis.Add(&input, &error)) analysis.Finish();
  return 0;
}
