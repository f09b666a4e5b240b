#include "log/catalogue.h"

#include <array>
#include <iterator>
#include <unordered_map>

namespace kovani_tool {
namespace {

constexpr Level D = Level::kDebug;
constexpr Level E = Level::kError;

struct Entry {
  const char* function;
  Level level;
  const char* format;
};

// The library's messages, grouped by function; lines without the frame
// (the switch announcements) tell the decoder nothing.
constexpr Entry kCatalogue[] = {
#define KOVANI_MESSAGE(level, function, format) {function, level, format},
#define KOVANI_BARE(level, format)
#include "log_catalogue.inc"
#undef KOVANI_MESSAGE
#undef KOVANI_BARE
};

constexpr bool Same(const char* a, const char* b) {
  while (*a != '\0' && *a == *b) ++a, ++b;
  return *a == *b;
}

// The index of a message of the library. One it does not write stops the
// build here, naming it.
constexpr size_t Message(const char* function, const char* format) {
  for (size_t i = 0; i < std::size(kCatalogue); ++i) {
    if (Same(kCatalogue[i].function, function) && Same(kCatalogue[i].format, format)) return i;
  }
  throw "the library writes no such message";
}

struct Meaning {
  size_t message;
  Event event;
  RestartType restart_type = kRestartNone;
};

constexpr char kEntry[] = "function entry ------------->";
constexpr char kPlainDispatch[] = "kovani_timer_callback_dispatch_thread_proc";
constexpr char kParamsDispatch[] = "kovani_timer_callback_dispatch_thread_proc_expra_params";
constexpr char kPlainStart[] = "kovani_timer_start_ex";
constexpr char kParamsStart[] = "kovani_timer_start_ex_params_adv";
constexpr char kInvalidInstance[] =
    "Internal error(E_FAILURE)..invalid instance_id1 %d or instance_id2 %d";
constexpr char kNoMemory[] = "Failed to allocate memory for tcbinfo";
constexpr char kMissing[] = "Not find the timer_callback, timer_id = %u";
constexpr char kGone[] = "Not find the timer_callback after sleep, timer_id = %u";

constexpr Meaning kMeanings[] = {
    // Properties
    {Message("kovani_print_property_value", "%s: %s"), Event::kPropertyTrace},
    {Message("kovani_get_property_value", "%s: %s"), Event::kPropertyTrace},
    {Message("kovani_set_property_value", "property_name is null"), Event::kSetRefused},
    {Message("kovani_set_property_value", "property_value is null"), Event::kSetRefused},
    {Message("kovani_set_property_value", "property_value len(%u) is out of range(%d)"),
     Event::kSetRefused},
    // Restart level
    {Message("kovani_get_modem_ssr_type_name", "out_len: %d, ssr_level: %s"), Event::kLevelRead},
    {Message("kovani_get_modem_ssr_type",
             "g_ssr_start_flag: %d, ssr_type_bak: %s, ssr_type_bak_flag: %s"),
     Event::kSavedDefault},
    {Message("kovani_get_modem_ssr_type",
             "PROP - MODEM_RESTART_LEVEL_ID_DEF: %s, type: %d, and save"),
     Event::kLevelSaved},
    {Message("kovani_get_modem_ssr_type", "PROP - MODEM_RESTART_LEVEL_ID_DEF: %s, type: %d"),
     Event::kLevelClassified},
    {Message("kovani_get_modem_ssr_type", "PROP - MODEM_RESTART_LEVEL_ID_SSR: %s, type: %d"),
     Event::kLevelClassified},
    {Message("kovani_get_modem_ssr_type", "PROP - MODEM_RESTART_LEVEL_ID_DUMP: %s, type: %d"),
     Event::kLevelClassified},
    {Message("kovani_get_modem_ssr_type", "PROP - MODEM_RESTART_LEVEL_ID_INVALID: %s, type: %d"),
     Event::kLevelClassified},
    {Message("kovani_set_modem_ssr_type", "g_ssr_start_flag: %d, type: %d, ssr_type_bak_flag: %s"),
     Event::kLevelSetRequest},
    {Message("kovani_set_modem_ssr_type", "PROP - MODEM_RESTART_LEVEL_ID_DEF: %s"),
     Event::kLevelSet, kRestartDef},
    {Message("kovani_set_modem_ssr_type", "PROP - MODEM_RESTART_LEVEL_ID_SSR: %s"),
     Event::kLevelSet, kRestartSsr},
    {Message("kovani_set_modem_ssr_type", "PROP - MODEM_RESTART_LEVEL_ID_DUMP: %s"),
     Event::kLevelSet, kRestartDump},
    {Message("kovani_modem_ssr_wait_s", "ssr wait_s = %d"), Event::kWaitPlanned},
    {Message("kovani_modem_ssr_wait_s", "wait-start(%ds) ..."), Event::kWaitStart},
    {Message("kovani_modem_ssr_wait_s", "wait-end(%ds)"), Event::kWaitEnd},
    {Message("kovani_modem_ssr_wait_s", "modem ssr will not wait"), Event::kWaitSkipped},
    // Threads and timers
    {Message("kovani_create_pthread", "pthread[%s] will be created"), Event::kThreadNamed},
    {Message("kovani_create_pthread", "result = %d"), Event::kThreadResult},
    {Message("kovani_timer_stop", "Cancel timer with ID %u"), Event::kTimerCancelled},
    {Message("kovani_timer_stop", kMissing), Event::kTimerStopUnknown},
    {Message("kovani_timer_clear_callback_list", kEntry), Event::kTimerClear},
    {Message(kPlainDispatch, kMissing), Event::kDispatchMissing},
    {Message(kPlainDispatch, "Find the timer_callback, timer_id = %u, timeout_s = %lu"),
     Event::kDispatchFound},
    {Message(kPlainDispatch, kGone), Event::kDispatchGone},
    {Message(kPlainDispatch, "Will call the timer_callback, timer_id = %u, timeout_s = %lu"),
     Event::kDispatchFire},
    {Message(kParamsDispatch, kMissing), Event::kDispatchMissing},
    {Message(kParamsDispatch,
             "Find the timer_callback, timer_id = %u, timeout_s = %lu, need_free = %d"),
     Event::kDispatchFound},
    {Message(kParamsDispatch, kGone), Event::kDispatchGone},
    {Message(kParamsDispatch,
             "Will call the timer_callback, timer_id = %u, timeout_s = %lu, need_free = %d"),
     Event::kDispatchFire},
    {Message(kPlainStart, kEntry), Event::kStartEntry},
    {Message(kPlainStart, kInvalidInstance), Event::kStartInvalid},
    {Message(kPlainStart, kNoMemory), Event::kStartNoMemory},
    {Message(kPlainStart, "timeout_s = %lu"), Event::kStartTimeout},
    {Message(kPlainStart, "Set timer with ID %u"), Event::kStartSet},
    {Message(kParamsStart, kEntry), Event::kStartEntry},
    {Message(kParamsStart, kInvalidInstance), Event::kStartInvalid},
    {Message(kParamsStart, kNoMemory), Event::kStartNoMemory},
    {Message(kParamsStart, "timeout_s = %lu"), Event::kStartTimeout},
    {Message(kParamsStart, "Set timer with ID %u. extra_params: %p. need_free: %s"),
     Event::kStartSetParams},
};

constexpr std::array<MessageFormat, std::size(kCatalogue)> WithMeanings() {
  std::array<MessageFormat, std::size(kCatalogue)> messages{};
  for (size_t i = 0; i < messages.size(); ++i) {
    messages[i] = {kCatalogue[i].function, kCatalogue[i].level, kCatalogue[i].format};
  }
  for (const Meaning& meaning : kMeanings) {
    messages[meaning.message].event = meaning.event;
    messages[meaning.message].restart_type = meaning.restart_type;
  }
  return messages;
}

constexpr std::array<MessageFormat, std::size(kCatalogue)> kMessages = WithMeanings();

}  // namespace

const MessageFormat* Messages() { return kMessages.data(); }

size_t MessageCount() { return kMessages.size(); }

FunctionMessages FindFunction(std::string_view function) {
  static const auto* const kIndex = [] {
    auto* index = new std::unordered_map<std::string_view, FunctionMessages>();
    for (size_t i = 0; i < MessageCount(); ++i) {
      FunctionMessages& range = (*index)[kMessages[i].function];
      if (range.count == 0) range.first = static_cast<uint16_t>(i);
      ++range.count;
    }
    return index;
  }();
  const auto found = kIndex->find(function);
  return found == kIndex->end() ? FunctionMessages{} : found->second;
}

}  // namespace kovani_tool
