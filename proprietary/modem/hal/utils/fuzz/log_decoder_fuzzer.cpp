// The log command's path: bytes as one log, decoded into a report and
// rendered as text and as JSON.
#include <stdint.h>

#include <string>

#include "input/input.h"
#include "log/log_analysis.h"
#include "log/render.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace kovani_tool;
  Input input;
  std::string error;
  LogAnalysis analysis;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  if (!OpenText("fuzz", text, &input, &error) || !analysis.Add(&input, &error)) return 0;
  const LogReport report = analysis.Finish();
  Output out([](const std::string&) { return 0; });
  WriteText(report, &out);
  WriteJson(report, {1, "fuzz"}, &out);
  return out.Finish();
}
