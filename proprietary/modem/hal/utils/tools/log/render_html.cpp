#include <string_view>

#include "common/json.h"
#include "log/axis.h"
#include "log/render.h"
// kReport_page, kReport_tables and kReport_timeline: made at build time from
// log/report_page.html, log/report_tables.js and log/report_timeline.js.
#include "report_page.h"
#include "report_tables.h"
#include "report_timeline.h"

namespace kovani_tool {
namespace {

// Where the page holds its data, inside a <script type="application/json">,
// and then its script.
constexpr std::string_view kDataMark = "/*KOVANI_REPORT_DATA*/";
constexpr std::string_view kScriptMark = "/*KOVANI_REPORT_SCRIPT*/";

// No "</script>" can end the data early: '<' only appears within strings,
// where JSON may escape it.
std::string LessThanEscaped(const std::string& text) {
  std::string out;
  out.reserve(text.size());
  for (char c : text) {
    if (c == '<') {
      out += "\\u003c";
    } else {
      out.push_back(c);
    }
  }
  return out;
}

class Positions {
 public:
  explicit Positions(const char* name) : text_(",\n\"" + std::string(name) + "\": [") {}
  void Add(int64_t position) {
    if (!first_) text_ += ',';
    first_ = false;
    text_ += std::to_string(position);
  }
  std::string Done() { return text_ + "]"; }

 private:
  std::string text_;
  bool first_ = true;
};

// Where the timeline draws each listed item, in the order of the report's
// lists: a start and an end per timer and per wait.
void WritePositions(const LogReport& r, Output* out) {
  const Axis axis(r);
  out->Append(",\n\"axis\": " + Compact({{"unit", axis.unit()},
                                          {"first_at", axis.first_at()},
                                          {"end", axis.end()}}));
  Positions timers("timers"), changes("level_changes"), waits("waits"), errors("error_lines");
  for (const Timer& timer : r.timers) {
    timers.Add(axis.At(timer.started_at));
    timers.Add(axis.EndOf(timer.ended_at));
  }
  for (const LevelChange& change : r.level_changes.items) changes.Add(axis.At(change.time));
  for (const Wait& wait : r.waits.items) {
    waits.Add(axis.At(wait.start));
    waits.Add(wait.skipped ? axis.At(wait.start) : axis.EndOf(wait.end));
  }
  // The format's index and the position: the page names the function.
  Json functions = Json::array();
  for (size_t i = 0; i < MessageCount(); ++i) functions.push_back(Messages()[i].function);
  for (const ErrorLine& line : r.error_lines.items) {
    errors.Add(static_cast<int64_t>(line.format));
    errors.Add(axis.At(line.time));
  }
  out->Append(timers.Done() + changes.Done() + waits.Done() + errors.Done());
  out->Append(",\n\"error_lines_not_listed\": " + std::to_string(r.error_lines.not_listed));
  out->Append(",\n\"functions\": " + Compact(functions));
}

}  // namespace

void WriteHtml(const LogReport& report, const JsonHead& head, Output* out) {
  const std::string_view page(kReport_page, sizeof(kReport_page));
  const size_t data = page.find(kDataMark);
  const size_t script = page.find(kScriptMark);
  out->Append(page.substr(0, data));
  out->Append("{\"report\": ");
  Output escaped([out](const std::string& text) {
    out->Append(LessThanEscaped(text));
    return 0;
  });
  WriteJson(report, head, &escaped);
  escaped.Finish();
  WritePositions(report, out);
  out->Append("}");
  const size_t after_data = data + kDataMark.size();
  out->Append(page.substr(after_data, script - after_data));
  out->Append(std::string_view(kReport_tables, sizeof(kReport_tables)));
  out->Append(std::string_view(kReport_timeline, sizeof(kReport_timeline)));
  out->Append(page.substr(script + kScriptMark.size()));
}

}  // namespace kovani_tool
