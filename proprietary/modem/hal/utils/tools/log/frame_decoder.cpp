#include "log/frame_decoder.h"

#include <iterator>

#include "common/text.h"
#include "log/cursor.h"

namespace kovani_tool {
namespace {

constexpr std::string_view kSourceFiles[] = {"cmn.cpp:", "timer.cpp:"};
// How far back from the frame's source file a task name's '[' is looked for.
constexpr size_t kTaskNameMax = 256;

// The reasons a line is not decoded.
constexpr const char* kCut = "the line ends inside the library's prefix";
constexpr const char* kNoInstance = "no instance or task before the source file";
constexpr const char* kBadFrame = "malformed prefix";
constexpr const char* kUnknownFunction = "a function the library does not have";
constexpr const char* kUnknownMessage = "not a message this function writes";

bool IsIdentifier(char c) {
  static constexpr auto kIdentifier = [] {
    std::array<bool, 256> table{};
    for (int b = 0; b < 256; ++b) {
      table[b] =
          (b >= '0' && b <= '9') || (b >= 'a' && b <= 'z') || (b >= 'A' && b <= 'Z') || b == '_';
    }
    return table;
  }();
  return kIdentifier[static_cast<unsigned char>(c)];
}

// "SUB[n]" or "[task]" just before the source file, or empty.
std::string_view Instance(std::string_view before) {
  if (before.empty() || before.back() != ']') return {};
  size_t open = before.size() - 1;
  while (open > 0 && (IsDigit(before[open - 1]) || before[open - 1] == '-')) --open;
  if (open >= 4 && before.substr(open - 4, 4) == "SUB[" && open < before.size() - 1) {
    return before.substr(open - 4);
  }
  const size_t limit = before.size() > kTaskNameMax ? before.size() - kTaskNameMax : 0;
  open = before.rfind('[', before.size() - 2);
  return open == std::string_view::npos || open < limit ? std::string_view() : before.substr(open);
}

}  // namespace

const char* FrameDecoder::Decode(std::string_view line, size_t anchor, bool frame,
                                 LibraryLine* decoded) {
  // A frame after a console prefix wins: the console copy may carry it.
  const size_t frame_at = frame ? anchor : line.find(kFrameAnchor, anchor);
  return frame_at != std::string_view::npos
             ? DecodeFrame(line, frame_at + kFrameAnchor.size(), decoded)
             : DecodeConsole(line, anchor - (kConsoleAnchor.size() - 1), decoded);
}

// What follows "[kovani_utils_" in text (a line), at `at`: "cmn.cpp:123]
// function: body". The text ends inside it on a cut line.
const char* FrameDecoder::DecodeFrame(std::string_view line, size_t at, LibraryLine* decoded) {
  Cursor c(line.substr(at));
  bool ours = false;
  for (size_t i = 0; i < std::size(kSourceFiles) && !ours; ++i) {
    const std::string_view file = kSourceFiles[i];
    if (c.Rest().size() < file.size() && file.substr(0, c.Rest().size()) == c.Rest()) {
      return kCut;
    }
    ours = c.Skip(file);
  }
  if (!ours) return kNotLibrary;
  decoded->instance = Instance(line.substr(0, at - kFrameAnchor.size()));
  if (decoded->instance.empty()) return kNoInstance;
  uint64_t source_line;
  if (!c.Number(1, 10, &source_line)) return c.Rest().empty() ? kCut : kBadFrame;
  if (!c.Skip("] ")) return c.Rest().size() < 2 ? kCut : kBadFrame;
  const uint64_t site = source_line << 2 | (line[at] == 'c' ? 0 : 1);
  return DecodeFunctionAndBody(&c, ": ", site, decoded) ? nullptr : failure_;
}

// "RIL[function:line]: body"; only a function of the library's makes it
// the library's.
const char* FrameDecoder::DecodeConsole(std::string_view line, size_t from, LibraryLine* decoded) {
  for (size_t at = from; at != std::string_view::npos; at = line.find(kConsoleAnchor, at + 1)) {
    Cursor c(line.substr(at + kConsoleAnchor.size()));
    decoded->console = true;
    if (decoded->header.format == LogFormat::kPlain) decoded->header.format = LogFormat::kConsole;
    decoded->header.priority = 0;
    if (DecodeFunctionAndBody(&c, ":", 0, decoded)) return nullptr;
    if (failure_ != kUnknownFunction) return failure_;
  }
  return kNotLibrary;
}

// function, separator, [console: "line]: "], body. site: the frame's
// source file and line; the console's line is read here.
bool FrameDecoder::DecodeFunctionAndBody(Cursor* c, std::string_view separator, uint64_t site,
                                         LibraryLine* decoded) {
  const size_t from = c->pos();
  while (IsIdentifier(c->Peek())) c->Skip(c->Peek());
  const std::string_view function = c->Since(from);
  const std::string_view after_function = c->Rest();
  const bool separated = c->Skip(separator);
  uint64_t console_line = 0;
  const bool console_prefix =
      separated && (!decoded->console || (c->Number(1, 10, &console_line) && c->Skip("]: ")));
  CallSite* call_site = LookUp(decoded->console ? console_line << 2 | 2 : site, function);
  if (call_site == nullptr) {
    const bool cut =
        after_function.empty() || separator.substr(0, after_function.size()) == after_function;
    failure_ = !decoded->console && cut ? kCut : kUnknownFunction;
    return false;
  }
  if (!console_prefix) {
    failure_ = c->Rest().size() < (separated ? 3 : separator.size()) ? kCut : kBadFrame;
    return false;
  }
  decoded->source_line = static_cast<uint32_t>(decoded->console ? console_line : site >> 2);
  decoded->body = c->Rest();
  if (MatchBody(call_site, c->Rest(), decoded)) return true;
  failure_ = kUnknownMessage;
  return false;
}

// The site's last format first, then the function's others.
bool FrameDecoder::MatchBody(CallSite* site, std::string_view body, LibraryLine* decoded) {
  if (site->format < MessageCount() &&
      MatchFormat(Messages()[site->format].format, body, &decoded->captures)) {
    decoded->format = site->format;
    return true;
  }
  const FunctionMessages messages = site->messages;
  for (size_t i = messages.first; i < messages.first + messages.count; ++i) {
    if (MatchFormat(Messages()[i].format, body, &decoded->captures)) {
      decoded->format = site->format = i;
      return true;
    }
  }
  return false;
}

FrameDecoder::CallSite* FrameDecoder::LookUp(uint64_t key, std::string_view function) {
  CallSite& site = call_sites_[key % call_sites_.size()];
  if (site.key == key && function == Messages()[site.messages.first].function) return &site;
  const FunctionMessages messages = FindFunction(function);
  if (!messages.known()) return nullptr;
  site = {key, messages, SIZE_MAX};
  return &site;
}

}  // namespace kovani_tool
