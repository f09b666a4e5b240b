#include "common/json.h"
#include "common/library_names.h"
#include "log/render.h"

namespace kovani_tool {
namespace {

Json TimeJson(const LogTime& time) { return time.known() ? Json(time.text) : Json(nullptr); }

Json OrNull(const char* text) { return text == nullptr ? Json(nullptr) : Json(text); }

Json SourcesJson(const LogReport& r) {
  Json sources = Json::array();
  for (const SourceSummary& source : r.sources) {
    sources.push_back(
        {{"name", source.name},
         {"entry", source.entry.empty() ? Json(nullptr) : Json(source.entry)},
         {"bug_report", source.kind != InputKind::kText},
         {"system_log_section",
          source.kind != InputKind::kText ? Json(source.log_section) : Json(nullptr)},
         {"format", source.library_lines != 0 ? Json(FormatName(source.format)) : Json(nullptr)},
         {"library_lines", source.library_lines}});
  }
  return sources;
}

Json InstancesJson(const LogReport& r) {
  Json instances = Json::object();
  for (const auto& [instance, count] : r.by_instance) instances[JsonKey(instance)] = count;
  return instances;
}

Json SummaryJson(const LogReport& r) {
  Json by_level = Json::object();
  for (int priority = 0; priority < 256; ++priority) {
    if (r.by_level[priority] != 0) {
      by_level[LevelName(static_cast<char>(priority))] = r.by_level[priority];
    }
  }
  Json by_function = Json::object();
  for (const auto& [function, count] : r.by_function) by_function[function] = count;
  Json unparsed_lines = Json::array();
  for (const Example& example : r.examples) {
    unparsed_lines.push_back({{"source", r.sources[example.source].name},
                              {"line", example.line_number},
                              {"reason", example.reason},
                              {"text", example.text}});
  }
  return {{"lines", r.lines},
          {"unparsed", r.unparsed},
          {"by_level", by_level},
          {"by_function", by_function},
          {"by_instance", InstancesJson(r)},
          {"first_time", TimeJson(r.first)},
          {"last_time", TimeJson(r.last)},
          {"decoded", r.both_forms     ? "system_log_and_console"
                      : r.from_console ? "console"
                                       : "system_log"},
          {"other_form_lines", r.other_form_lines},
          {"threads_dropped", r.threads_dropped},
          {"unparsed_lines", unparsed_lines},
          {"formats_looked_for", std::string(kFormatsTried)}};
}

Json TimerJson(const Timer& timer) {
  Json flags = Json::array();
  for (const FlagName& flag : kFlagNames) {
    if ((timer.flags & flag.flag) != 0) flags.push_back(flag.key);
  }
  const bool failed = timer.id == 0;
  return {{"id", failed ? Json(nullptr) : Json(timer.id)},
          {"hex", failed ? Json(nullptr) : Json(Hex(timer.id))},
          {"instance_id1", failed ? Json(nullptr) : Json(InstanceId1(timer.id))},
          {"instance_id2", failed ? Json(nullptr) : Json(InstanceId2(timer.id))},
          {"sequence", failed ? Json(nullptr) : Json(Sequence(timer.id))},
          {"start", OrNull(StartFunction(timer.variant))},
          {"need_free", timer.need_free < 0 ? Json(nullptr) : Json(timer.need_free == 1)},
          {"timeout_s", timer.has_timeout ? Json(timer.timeout_s) : Json(nullptr)},
          {"started_at", TimeJson(timer.started_at)},
          {"outcome", OutcomeKey(timer.outcome)},
          {"stopped", OrNull(StopPhaseKey(timer))},
          {"ended_at", TimeJson(timer.ended_at)},
          {"late_ms", timer.has_late ? Json(timer.late_ms) : Json(nullptr)},
          {"start_error",
           timer.outcome == Outcome::kStartFailed ? Json(OutcomeText(timer)) : Json(nullptr)},
          {"thread_result", timer.thread_result},
          {"flags", flags}};
}

// The timers one by one, however many there are.
void WriteTimers(const LogReport& r, Output* out) {
  out->Append(",\n  \"timers\": [");
  const char* separator = "\n    ";
  for (const Timer& timer : r.timers) {
    out->Append(separator + Indented(Dump(TimerJson(timer)), "    "));
    separator = ",\n    ";
  }
  out->Append(r.timers.empty() ? "]" : "\n  ]");
}

Json RestartLevelJson(const LogReport& r) {
  Json changes = Json::array();
  for (const LevelChange& change : r.level_changes.items) {
    changes.push_back({{"time", TimeJson(change.time)},
                       {"how", change.how},
                       {"level", change.level},
                       {"type", OrNull(RestartTypeShortName(change.type))},
                       {"function", change.function}});
  }
  Json waits = Json::array();
  for (const Wait& wait : r.waits.items) {
    waits.push_back({{"time", TimeJson(wait.start)},
                     {"seconds", wait.seconds},
                     {"waited", !wait.skipped},
                     {"ended_at", TimeJson(wait.end)}});
  }
  return {{"changes", changes},
          {"changes_not_listed", r.level_changes.not_listed},
          {"saved_default", r.saved_default_known ? Json(r.saved_default) : Json(nullptr)},
          {"waits", waits},
          {"waits_not_listed", r.waits.not_listed}};
}

Json PropertiesJson(const LogReport& r) {
  Json values = Json::object();
  for (const auto& [name, value] : r.properties) {
    values[JsonKey(name)] = {{"value", value.value}, {"time", TimeJson(value.time)}};
  }
  Json failed = Json::array();
  for (const FailedSet& set : r.failed_sets.items) {
    failed.push_back({{"time", TimeJson(set.time)},
                      {"function", set.function},
                      {"property", set.property.empty() ? Json(nullptr) : Json(set.property)},
                      {"message", set.message}});
  }
  return {{"last_values", values},
          {"values_not_listed", r.properties_not_listed},
          {"failed_sets", failed},
          {"failed_sets_not_listed", r.failed_sets.not_listed}};
}

Json ErrorsJson(const LogReport& r) {
  Json errors = Json::array();
  for (size_t i = 0; i < r.errors.size(); ++i) {
    const ErrorGroup& group = r.errors[i];
    if (group.count == 0) continue;
    errors.push_back({{"function", Messages()[i].function},
                      {"format", Messages()[i].format},
                      {"count", group.count},
                      {"first", TimeJson(group.first)},
                      {"last", TimeJson(group.last)}});
  }
  return errors;
}

}  // namespace

void WriteJson(const LogReport& report, const JsonHead& head, Output* out) {
  const std::string top = Dump({{"schema", head.schema}, {"tool_version", head.tool_version}});
  out->Append(top.substr(0, top.size() - 2));  // without "\n}"
  out->Append(",\n  \"sources\": " + Indented(Dump(SourcesJson(report)), "  "));
  out->Append(",\n  \"summary\": " + Indented(Dump(SummaryJson(report)), "  "));
  WriteTimers(report, out);
  out->Append(",\n  \"restart_level\": " + Indented(Dump(RestartLevelJson(report)), "  "));
  out->Append(",\n  \"properties\": " + Indented(Dump(PropertiesJson(report)), "  "));
  out->Append(",\n  \"errors\": " + Indented(Dump(ErrorsJson(report)), "  ") + "\n}\n");
}

}  // namespace kovani_tool
