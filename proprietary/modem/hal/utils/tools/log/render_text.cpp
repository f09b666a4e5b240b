#include <inttypes.h>

#include "common/library_names.h"
#include "common/text.h"
#include "log/render.h"
#include "log/thread_states.h"

namespace kovani_tool {
namespace {

std::string SourceText(const SourceSummary& source) {
  std::string text = source.name;
  if (!source.entry.empty()) text += " (" + Shown(source.entry) + ")";
  if (source.kind != InputKind::kText) {
    text += source.log_section ? ", bug report SYSTEM LOG" : ", bug report without a SYSTEM LOG";
  }
  return text;
}

void WriteCounts(const LogReport& r, Output* out) {
  out->Printf("summary\n  library lines  %" PRIu64, r.lines);
  const char* separator = ": ";
  for (int priority = 0; priority < 256; ++priority) {
    if (r.by_level[priority] == 0) continue;
    out->Printf("%s%s %" PRIu64, separator, LevelName(static_cast<char>(priority)),
                r.by_level[priority]);
    separator = ", ";
  }
  out->Printf("\n  unparsed       %" PRIu64 "\n", r.unparsed);
  out->Printf("  decoded        %s\n", r.both_forms     ? "system log and console lines"
                                       : r.from_console ? "console lines"
                                                        : "system log lines");
  if (r.other_form_lines != 0) {
    out->Printf("  left out       %" PRIu64 " lines, twins of lines decoded (same function, "
                "source line and body, in order)\n",
                r.other_form_lines);
  }
  for (const SourceSummary& source : r.sources) {
    out->Printf("  source         %s: %s, %" PRIu64 " library lines\n", SourceText(source).c_str(),
                source.library_lines != 0 ? FormatName(source.format) : "none found",
                source.library_lines);
  }
  out->Printf("  time span      %s to %s\n", TimeText(r.first), TimeText(r.last));
  if (r.threads_dropped != 0) {
    out->Printf("  dropped        %" PRIu64 " threads' unfinished starts or level changes, the "
                "oldest past %zu at once\n",
                r.threads_dropped, kThreadStatesMax);
  }
}

void WriteSummary(const LogReport& r, Output* out) {
  WriteCounts(r, out);
  if (!r.by_instance.empty()) {
    const char* separator = "  by instance    ";
    for (const auto& [instance, count] : r.by_instance) {
      out->Printf("%s%s %" PRIu64, separator, Shown(instance).c_str(), count);
      separator = ", ";
    }
    if (r.instances_not_listed != 0) out->Printf(", others %" PRIu64, r.instances_not_listed);
    out->Append("\n");
  }
  out->Append("  by function\n");
  for (const auto& [function, count] : r.by_function) {
    out->Printf("    %-56s %" PRIu64 "\n", function, count);
  }
  if (r.unparsed == 0) return;
  out->Printf("  unparsed lines (%zu shown)\n", r.examples.size());
  for (const Example& example : r.examples) {
    out->Printf("    %s:%" PRIu64 ": %s\n      %s\n", r.sources[example.source].name.c_str(),
                example.line_number, example.reason, Shown(example.text).c_str());
  }
}

void WriteTimer(const Timer& timer, Output* out) {
  const std::string timeout = timer.has_timeout ? std::to_string(timer.timeout_s) + " s" : "-";
  const std::string late = timer.has_late ? std::to_string(timer.late_ms) + " ms" : "-";
  const char* start = StartFunction(timer.variant);
  if (timer.id == 0) {
    out->Printf("  %-10s %-10s %-5s %-5s", "-", "-", "-", "-");
  } else {
    const std::string instances =
        std::to_string(InstanceId1(timer.id)) + "/" + std::to_string(InstanceId2(timer.id));
    out->Printf("  %-10u %-10s %-5s %-5u", timer.id, Hex(timer.id).c_str(), instances.c_str(),
                Sequence(timer.id));
  }
  // The start function without its common "kovani_timer_".
  out->Printf(" %-19s %-7s %-18s  %-34s %s\n", start == nullptr ? "-" : start + 13, timeout.c_str(),
              TimeText(timer.started_at), OutcomeText(timer).c_str(), late.c_str());
  for (const FlagName& flag : kFlagNames) {
    if ((timer.flags & flag.flag) != 0) out->Printf("    ! %s\n", flag.text);
  }
  if (timer.thread_result != 0) {
    out->Printf("    ! its thread was not created: result = %d\n", timer.thread_result);
  }
}

void WriteTimers(const LogReport& r, Output* out) {
  out->Printf("\ntimers (%zu)\n", r.timers.size());
  if (!r.timers.empty()) {
    out->Printf("  %-10s %-10s %-5s %-5s %-19s %-7s %-18s  %-34s %s\n", "id", "hex", "inst", "seq",
                "start", "timeout", "started", "outcome", "late");
  }
  for (const Timer& timer : r.timers) WriteTimer(timer, out);
}

void WriteWaits(const LogReport& r, Output* out) {
  if (!r.waits.items.empty()) out->Append("  waits\n");
  for (const Wait& wait : r.waits.items) {
    int64_t waited;
    out->Printf("    %-18s  %" PRId64 " s, ", TimeText(wait.start), wait.seconds);
    if (wait.skipped) {
      out->Append("not waited\n");
    } else if (wait.ended && Elapsed(wait.start, wait.end, &waited) && waited >= 0) {
      out->Printf("ended %s (%" PRId64 " ms)\n", TimeText(wait.end), waited);
    } else {
      out->Append(wait.ended ? "ended\n" : "no end seen\n");
    }
  }
  if (r.waits.not_listed != 0) out->Printf("    and %" PRIu64 " more\n", r.waits.not_listed);
}

void WriteRestartLevel(const LogReport& r, Output* out) {
  out->Append("\nrestart level\n");
  if (!r.level_changes.items.empty()) out->Append("  changes\n");
  for (const LevelChange& change : r.level_changes.items) {
    const char* type = RestartTypeShortName(change.type);
    out->Printf("    %-18s  %-10s  %-12s %-7s %s\n", TimeText(change.time), change.how,
                Shown(change.level).c_str(), type == nullptr ? "-" : type, change.function);
  }
  if (r.level_changes.not_listed != 0) {
    out->Printf("    and %" PRIu64 " more\n", r.level_changes.not_listed);
  }
  out->Printf("  saved default  %s\n",
              r.saved_default_known ? ("\"" + Shown(r.saved_default) + "\"").c_str() : "not seen");
  WriteWaits(r, out);
}

void WriteProperties(const LogReport& r, Output* out) {
  out->Printf("\nproperties (%zu traced)\n", r.properties.size());
  for (const auto& [name, value] : r.properties) {
    out->Printf("  %-40s %-20s %s\n", Shown(name).c_str(), Shown(value.value).c_str(),
                TimeText(value.time));
  }
  if (r.properties_not_listed != 0) {
    out->Printf("  and %" PRIu64 " values of properties beyond these\n", r.properties_not_listed);
  }
  out->Printf("  failed sets (%zu)\n", r.failed_sets.items.size());
  for (const FailedSet& failed : r.failed_sets.items) {
    out->Printf("    %-18s  %s: %s%s%s\n", TimeText(failed.time), failed.function,
                failed.property.c_str(), failed.property.empty() ? "" : ": ",
                Shown(failed.message).c_str());
  }
  if (r.failed_sets.not_listed != 0) {
    out->Printf("    and %" PRIu64 " more\n", r.failed_sets.not_listed);
  }
}

void WriteErrors(const LogReport& r, Output* out) {
  size_t groups = 0;
  for (const ErrorGroup& group : r.errors) groups += group.count != 0;
  out->Printf("\nerrors (%zu formats)\n", groups);
  if (groups != 0) {
    out->Printf("  %7s  %-18s  %-18s  %s\n", "count", "first", "last", "function: format");
  }
  for (size_t i = 0; i < r.errors.size(); ++i) {
    const ErrorGroup& group = r.errors[i];
    if (group.count == 0) continue;
    out->Printf("  %7" PRIu64 "  %-18s  %-18s  %s: %s\n", group.count, TimeText(group.first),
                TimeText(group.last), Messages()[i].function, Messages()[i].format);
  }
}

}  // namespace

void WriteText(const LogReport& report, Output* out) {
  WriteSummary(report, out);
  WriteTimers(report, out);
  WriteRestartLevel(report, out);
  WriteProperties(report, out);
  WriteErrors(report, out);
}

}  // namespace kovani_tool
