#include "log/level_timeline.h"

#include <string.h>

#include "common/text.h"

namespace kovani_tool {
namespace {

constexpr size_t kPropertiesMax = 10000;
constexpr char kLevelProperty[] = "persist.vendor.ssr.restart_level";

// format with its conversions replaced by the captured fields, clipped.
std::string Render(const char* format, const Captures& captures) {
  std::string text;
  int field = 0;
  for (const char* p = format; *p != '\0'; ++p) {
    if (*p != '%' || p[1] == '\0') {
      text.push_back(*p);
      continue;
    }
    if (*++p == 'l') ++p;
    if (field < captures.count) text.append(captures.field[field++].substr(0, kLogTextMax + 1));
    if (text.size() > kLogTextMax) break;
  }
  return ClipLogText(text);
}

int TypeField(std::string_view field) { return static_cast<int>(ParseInteger(field)); }

}  // namespace

void LevelTimeline::OnLevel(const MessageFormat& message, const Captures& fields,
                            const LogTime& time, uint64_t thread_key) {
  const auto thread = [&] { return threads_.Get(thread_key); };
  switch (message.event) {
    case Event::kLevelRead:
      NoteLevel(time, message.function, "read", fields.field[1], -1);
      break;
    case Event::kLevelSaved:
      SaveDefault(fields.field[0]);
      NoteLevel(time, message.function, "classified", fields.field[0], TypeField(fields.field[1]));
      break;
    case Event::kLevelClassified:
      NoteLevel(time, message.function, "classified", fields.field[0], TypeField(fields.field[1]));
      break;
    case Event::kSavedDefault:
      if (!fields.field[2].empty()) SaveDefault(fields.field[1]);
      break;
    case Event::kLevelSetRequest:
      thread()->level_unsaved = fields.field[2].empty();
      break;
    case Event::kLevelSet:
      NoteLevel(time, message.function, "set", fields.field[0], message.restart_type);
      // The first level ever set becomes the saved default.
      if (thread()->level_unsaved) SaveDefault(fields.field[0]);
      thread()->written_level.assign(ClipLogText(fields.field[0]));
      break;
    default:
      OnWait(message, fields, time, thread());
  }
  DropIfIdle(thread_key);
}

void LevelTimeline::DropIfIdle(uint64_t thread_key) {
  const ThreadState* thread = threads_.Find(thread_key);
  if (thread != nullptr && thread->Idle()) threads_.Drop(thread_key);
}

void LevelTimeline::OnWait(const MessageFormat& message, const Captures& fields,
                           const LogTime& time, ThreadState* thread) {
  CappedList<Wait>& waits = report_.waits;
  switch (message.event) {
    case Event::kWaitPlanned:
      thread->wait_planned = ParseInteger(fields.field[0]);
      break;
    case Event::kWaitStart:
      thread->wait = waits.Add({time, ParseInteger(fields.field[0])})
                         ? static_cast<uint32_t>(waits.items.size() - 1)
                         : UINT32_MAX;
      break;
    case Event::kWaitEnd:
      if (thread->wait != UINT32_MAX) {
        waits.items[thread->wait].ended = true;
        waits.items[thread->wait].end = time;
        thread->wait = UINT32_MAX;
      }
      break;
    default:  // kWaitSkipped
      waits.Add({time, thread->wait_planned, true});
  }
}

void LevelTimeline::SaveDefault(std::string_view level) {
  report_.saved_default.assign(ClipLogText(level));
  report_.saved_default_known = true;
}

void LevelTimeline::NoteLevel(const LogTime& time, const char* function, const char* how,
                              std::string_view new_level, int type) {
  const std::string level = ClipLogText(new_level);
  if (strcmp(how, "set") != 0 && level == level_ && (type < 0 || type == level_type_)) return;
  level_ = level;
  level_type_ = type;
  report_.level_changes.Add({time, function, how, level_, type});
}

void LevelTimeline::OnProperty(const MessageFormat& message, const Captures& fields,
                               const LogTime& time, uint64_t thread_key) {
  if (message.event == Event::kSetRefused) {
    report_.failed_sets.Add({time, message.function, "", Render(message.format, fields)});
    return;
  }
  const std::string name = ClipLogText(fields.field[0]);
  const std::string value = ClipLogText(fields.field[1]);
  auto& properties = report_.properties;
  const auto found = properties.find(name);
  if (found != properties.end()) {
    found->second.value.assign(value);
    found->second.time = time;
  } else if (properties.size() < kPropertiesMax) {
    properties.emplace(std::string(name), PropertyValue{std::string(value), time});
  } else {
    ++report_.properties_not_listed;
  }
  if (name != kLevelProperty) return;
  // A switch's trace reads back what now stands; the platform may have
  // refused the write.
  ThreadState* thread = threads_.Find(thread_key);
  if (thread != nullptr && !thread->written_level.empty() && value != thread->written_level) {
    report_.failed_sets.Add({time, "kovani_set_modem_ssr_type", kLevelProperty,
                             "set to " + thread->written_level + ", reads " + value});
  }
  if (thread != nullptr) thread->written_level.clear();
  DropIfIdle(thread_key);
  NoteLevel(time, message.function, "property", value, -1);
}

}  // namespace kovani_tool
