// The report as the tool prints it. Each renderer is a walk over the model.

#ifndef KOVANI_TOOLS_LOG_RENDER_H
#define KOVANI_TOOLS_LOG_RENDER_H

#include <string>

#include "common/output.h"
#include "log/report.h"

namespace kovani_tool {

// What every JSON document of the tool starts with.
struct JsonHead {
  int schema;
  std::string tool_version;
};

void WriteText(const LogReport& report, Output* out);
void WriteJson(const LogReport& report, const JsonHead& head, Output* out);
// The report as pictures: a page that draws its timeline, and the Chrome
// trace-event JSON that trace viewers open.
void WriteHtml(const LogReport& report, const JsonHead& head, Output* out);
void WriteTraceEvents(const LogReport& report, const JsonHead& head, Output* out);

}  // namespace kovani_tool

#endif  // KOVANI_TOOLS_LOG_RENDER_H
