#include "log_decoder.h"

#include <string.h>

#include <algorithm>
#include <array>
#include <iterator>

#include "bugreport.h"

namespace kovani_tool {

const char kFormatsTried[] =
    "logcat threadtime, time, brief, tag, process and long; a bug report's SYSTEM LOG section "
    "(text or zip); syslog; the console form RIL[function:line]";

const char* FormatName(LogFormat format) {
  switch (format) {
    case LogFormat::kThreadtime:
      return "logcat threadtime";
    case LogFormat::kTime:
      return "logcat time";
    case LogFormat::kBrief:
      return "logcat brief";
    case LogFormat::kTag:
      return "logcat tag";
    case LogFormat::kProcess:
      return "logcat process";
    case LogFormat::kLong:
      return "logcat long";
    case LogFormat::kSyslog:
      return "syslog";
    case LogFormat::kConsole:
      return "console";
    case LogFormat::kPlain:
      break;
  }
  return "plain";
}

namespace {

constexpr std::string_view kFrameAnchor = "[kovani_utils_";
constexpr std::string_view kConsoleAnchor = "RIL[";
constexpr std::string_view kSourceFiles[] = {"cmn.cpp:", "timer.cpp:"};
// How far back from the frame's source file a task name's '[' is looked for.
constexpr size_t kTaskNameMax = 256;
// How much of the line before a block is kept, for a long-format header.
constexpr size_t kKeptLineMax = 256;

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

bool IsPriority(char c) {
  switch (c) {
    case 'V':
    case 'D':
    case 'I':
    case 'W':
    case 'E':
    case 'F':
    case 'A':
    case 'S':
      return true;
  }
  return false;
}

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

// A reading position in one line.
class Cursor {
 public:
  explicit Cursor(std::string_view text) : text_(text) {}

  char Peek(size_t ahead = 0) const {
    return pos_ + ahead < text_.size() ? text_[pos_ + ahead] : '\0';
  }
  size_t pos() const { return pos_; }
  std::string_view Since(size_t from) const { return text_.substr(from, pos_ - from); }
  std::string_view Rest() const { return text_.substr(pos_); }

  bool Skip(char c) {
    if (Peek() != c) return false;
    ++pos_;
    return true;
  }
  bool Skip(std::string_view literal) {
    if (text_.substr(pos_, literal.size()) != literal) return false;
    pos_ += literal.size();
    return true;
  }
  void SkipSpaces() {
    while (Peek() == ' ') ++pos_;
  }
  void SkipTo(size_t pos) { pos_ = pos; }

  // min to max digits, as a number.
  bool Number(size_t min, size_t max, uint64_t* value) {
    size_t n = 0;
    for (*value = 0; n < max && IsDigit(Peek()); ++n, ++pos_) *value = *value * 10 + (Peek() - '0');
    return n >= min;
  }
  // Up to the next space or the end.
  std::string_view Token() {
    const size_t from = pos_;
    while (pos_ < text_.size() && text_[pos_] != ' ') ++pos_;
    return Since(from);
  }

 private:
  std::string_view text_;
  size_t pos_ = 0;
};

int64_t DaysFromCivil(int64_t y, unsigned m, unsigned d) {
  y -= m <= 2;
  const int64_t era = (y >= 0 ? y : y - 399) / 400;
  const unsigned yoe = static_cast<unsigned>(y - era * 400);
  const unsigned doy = (153 * (m > 2 ? m - 3 : m + 9) + 2) / 5 + d - 1;
  const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + static_cast<int64_t>(doe) - 719468;
}

// Digits after a second's '.', as milliseconds.
int64_t Milliseconds(Cursor* c) {
  int64_t ms = 0;
  size_t n = 0;
  for (; IsDigit(c->Peek()); ++n, c->Skip(c->Peek())) {
    if (n < 3) ms = ms * 10 + (c->Peek() - '0');
  }
  for (; n < 3; ++n) ms *= 10;
  return ms;
}

// HH:MM:SS as milliseconds into the day; a fraction is left to the caller.
bool Clock(Cursor* c, int64_t* ms) {
  uint64_t h, m, s;
  if (!c->Number(2, 2, &h) || !c->Skip(':') || !c->Number(2, 2, &m) || !c->Skip(':') ||
      !c->Number(2, 2, &s)) {
    return false;
  }
  *ms = static_cast<int64_t>(((h * 60 + m) * 60 + s) * 1000);
  return true;
}

// Dates without a year count as in 2000, a leap year, so that 02-29 exists.
constexpr int64_t kYearUnknown = 2000;

// A syslog date: "Nov 23 13:51:00".
bool MonthDayTime(Cursor* c, int64_t* ms) {
  static constexpr std::string_view kMonths = "JanFebMarAprMayJunJulAugSepOctNovDec";
  const std::string_view name = c->Rest().substr(0, 3);
  const size_t month = name.size() == 3 ? kMonths.find(name) : std::string_view::npos;
  uint64_t day;
  if (month == std::string_view::npos || month % 3 != 0) return false;
  c->Skip(name);
  c->SkipSpaces();
  int64_t clock;
  if (!c->Number(1, 2, &day) || !c->Skip(' ') || !Clock(c, &clock)) return false;
  *ms = DaysFromCivil(kYearUnknown, static_cast<unsigned>(month / 3 + 1),
                      static_cast<unsigned>(day)) *
            86400000 +
        clock;
  return true;
}

// The date and second of the last logcat time read: the lines of one second
// share them, and only their fraction is read again.
struct SecondCache {
  std::array<char, 24> text{};
  size_t size = 0;
  int64_t ms = 0;
  TimeBase base = TimeBase::kNoYear;

  bool Matches(std::string_view rest) const {
    return size != 0 && rest.size() > size && rest[size] == '.' &&
           memcmp(rest.data(), text.data(), size) == 0;
  }
};

// "[YYYY-]MM-DD HH:MM:SS" or "YYYY-MM-DDTHH:MM:SS" (a syslog's, *syslog set),
// or seconds (epoch, monotonic), each with an optional fraction.
bool DateTime(Cursor* c, int64_t* ms, TimeBase* base, bool* syslog, SecondCache* cache) {
  const size_t from = c->pos();
  uint64_t first, month, day;
  if (!c->Number(1, 12, &first)) return false;
  const size_t digits = c->pos() - from;
  if (c->Skip('.')) {
    *ms = static_cast<int64_t>(first) * 1000 + Milliseconds(c);
    *base = TimeBase::kSeconds;
    return true;
  }
  int64_t year = kYearUnknown;
  if (digits == 4 && c->Skip('-')) {
    year = static_cast<int64_t>(first);
    *base = TimeBase::kDated;
    if (!c->Number(2, 2, &month)) return false;
  } else if (digits == 2) {
    month = first;
  } else {
    return false;
  }
  int64_t clock;
  if (!c->Skip('-') || !c->Number(2, 2, &day) || month < 1 || month > 12 || day < 1 || day > 31) {
    return false;
  }
  *syslog = c->Skip('T');
  if ((!*syslog && !c->Skip(' ')) || !Clock(c, &clock)) return false;
  *ms = DaysFromCivil(year, static_cast<unsigned>(month), static_cast<unsigned>(day)) * 86400000 +
        clock;
  const size_t second_end = c->pos();
  if (!c->Skip('.')) return true;
  if (cache != nullptr && !*syslog && second_end - from <= cache->text.size()) {
    *cache = {{}, second_end - from, *ms, *base};
    memcpy(cache->text.data(), c->Since(from).data(), cache->size);
  }
  *ms += Milliseconds(c);
  return true;
}

// logcat's "[YYYY-]MM-DD HH:MM:SS.mmm[uuu] [+zone]" or "seconds.mmm" (epoch,
// monotonic), or a syslog's ISO "YYYY-MM-DDTHH:MM:SS.ffffff+zone" or
// "Mmm DD HH:MM:SS". Sets *syslog for the two syslog forms.
bool Time(Cursor* c, LineHeader* header, bool* syslog, SecondCache* cache) {
  c->SkipSpaces();
  const size_t from = c->pos();
  int64_t ms = 0;
  TimeBase base = TimeBase::kNoYear;
  *syslog = false;
  if (cache != nullptr && cache->Matches(c->Rest())) {
    c->SkipTo(from + cache->size + 1);
    ms = cache->ms + Milliseconds(c);
    base = cache->base;
  } else if (!(*syslog = MonthDayTime(c, &ms))) {
    c->SkipTo(from);
    if (!DateTime(c, &ms, &base, syslog, cache)) return false;
  }
  // The zone: "Z", "+01:00" or "+0100" in a syslog, " +0100" in logcat.
  const bool zone_follows = *syslog ? !c->Skip('Z') : c->Peek() == ' ' && IsDigit(c->Peek(2));
  if (zone_follows && (c->Peek(*syslog ? 0 : 1) == '+' || c->Peek(*syslog ? 0 : 1) == '-')) {
    uint64_t zone;
    c->SkipTo(c->pos() + (*syslog ? 1 : 2));
    if (c->Number(2, 2, &zone)) c->Skip(':');
    c->Number(2, 2, &zone);
  }
  header->time = c->Since(from);
  header->ms = ms;
  header->base = base;
  return true;
}

uint32_t ToId(std::string_view digits) {
  if (digits.empty() || digits.size() > 10) return 0;
  uint64_t value = 0;
  for (char ch : digits) {
    if (!IsDigit(ch)) return 0;
    value = value * 10 + static_cast<uint64_t>(ch - '0');
  }
  return value > UINT32_MAX ? 0 : static_cast<uint32_t>(value);
}

// "(pid)" or "(uid: pid)" just before "): " at or after the cursor.
void ParenthesisedPid(Cursor* c, LineHeader* header) {
  const std::string_view rest = c->Rest();
  const size_t close = rest.find("): ");
  if (close == std::string_view::npos) return;
  size_t digits = close;
  while (digits > 0 && IsDigit(rest[digits - 1])) --digits;
  header->pid = ToId(rest.substr(digits, close - digits));
}

// After the time: "[uid] pid tid L tag: " (threadtime) or "L/tag( pid): "
// (time).
void LogcatFields(Cursor* c, LineHeader* header) {
  c->SkipSpaces();
  if (IsPriority(c->Peek()) && c->Peek(1) == '/') {
    header->format = LogFormat::kTime;
    header->priority = c->Peek();
    ParenthesisedPid(c, header);
    return;
  }
  std::string_view tokens[3];
  for (size_t n = 0; n <= 3; ++n) {
    const std::string_view token = c->Token();
    if (n >= 2 && token.size() == 1 && IsPriority(token[0]) && c->Peek() == ' ') {
      header->format = LogFormat::kThreadtime;
      header->priority = token[0];
      header->pid = ToId(tokens[n - 2]);
      header->tid = ToId(tokens[n - 1]);
      return;
    }
    if (n == 3 || token.empty()) return;
    tokens[n] = token;
    c->SkipSpaces();
  }
}

// After a syslog's time: " host prog[pid]: ".
void SyslogFields(Cursor* c, LineHeader* header) {
  if (!c->Skip(' ')) return;
  c->Token();
  c->Skip(' ');
  const std::string_view rest = c->Rest();
  const size_t colon = rest.find(": ");
  if (colon == std::string_view::npos) return;
  header->format = LogFormat::kSyslog;
  const size_t open = rest.substr(0, colon).find('[');
  if (open != std::string_view::npos && rest[colon - 1] == ']') {
    header->pid = ToId(rest.substr(open + 1, colon - 1 - open - 1));
  }
}

// The header that starts line, if any.
LineHeader ParseHeader(std::string_view line, SecondCache* cache) {
  LineHeader header;
  Cursor c(line);
  bool syslog = false;
  if (Time(&c, &header, &syslog, cache)) {
    if (syslog) {
      SyslogFields(&c, &header);
    } else {
      LogcatFields(&c, &header);
    }
    return header;
  }
  header = LineHeader();
  if (!IsPriority(line.empty() ? '\0' : line[0]) || line.size() < 2) return header;
  Cursor fields(line.substr(2));
  if (line[1] == '(') {
    header.format = LogFormat::kProcess;
    fields.SkipSpaces();
    uint64_t pid;
    if (fields.Number(1, 10, &pid) && fields.Skip(')')) header.pid = static_cast<uint32_t>(pid);
  } else if (line[1] == '/') {
    const size_t colon = line.find(": ");
    if (colon == std::string_view::npos) return header;
    header.format = line[colon - 1] == ')' ? LogFormat::kBrief : LogFormat::kTag;
    ParenthesisedPid(&fields, &header);
  } else {
    return header;
  }
  header.priority = line[0];
  return header;
}

// logcat -v long's "[ MM-DD HH:MM:SS.mmm  pid: tid L/tag ]".
bool ParseLongHeader(std::string_view line, LineHeader* header) {
  Cursor c(line);
  bool syslog = false;
  LineHeader parsed;
  uint64_t pid, tid;
  if (!c.Skip("[ ") || !Time(&c, &parsed, &syslog, nullptr) || syslog) return false;
  c.SkipSpaces();
  if (!c.Number(1, 10, &pid) || !c.Skip(':')) return false;
  c.SkipSpaces();
  if (!c.Number(1, 10, &tid) || !c.Skip(' ') || !IsPriority(c.Peek()) || c.Peek(1) != '/') {
    return false;
  }
  parsed.format = LogFormat::kLong;
  parsed.priority = c.Peek();
  parsed.pid = static_cast<uint32_t>(pid);
  parsed.tid = static_cast<uint32_t>(tid);
  *header = parsed;
  return true;
}

const char* Find(const char* from, const char* end, std::string_view needle) {
  if (from >= end) return nullptr;
  return static_cast<const char*>(
      memmem(from, static_cast<size_t>(end - from), needle.data(), needle.size()));
}

// Newlines in [from, end), 16 bytes at a time in vector lanes, each lane
// counting up to 255 before the lanes are added up.
uint64_t CountNewlines(const char* from, const char* end) {
  typedef unsigned char Lanes __attribute__((vector_size(16)));
  constexpr size_t kWidth = sizeof(Lanes);
  uint64_t count = 0;
  while (static_cast<size_t>(end - from) >= kWidth) {
    Lanes sum = {};
    for (int round = 0; round < 255 && static_cast<size_t>(end - from) >= kWidth; ++round) {
      Lanes bytes;
      memcpy(&bytes, from, kWidth);
      sum -= reinterpret_cast<Lanes>(bytes == '\n');  // a match is all ones: -1
      from += kWidth;
    }
    for (size_t lane = 0; lane < kWidth; ++lane) count += sum[lane];
  }
  for (; from < end; ++from) count += *from == '\n';
  return count;
}

class Scanner {
 public:
  Scanner(size_t index, bool bug_report, LineSink* sink, SourceSummary* summary)
      : index_(index), bug_report_(bug_report), sink_(sink), summary_(summary) {}

  void ScanBlock(std::string_view block) {
    block_ = block.data();
    counted_to_ = block_;
    const char* const end = block_ + block.size();
    if (bug_report_) {
      ScanSections(end);
    } else {
      ScanRegion(block_, end);
    }
    LineNumberAt(end);
    const char* last = end;
    if (last > block_ && last[-1] == '\n') --last;
    const char* newline = static_cast<const char*>(memrchr(block_, '\n', last - block_));
    const char* last_line = newline == nullptr ? block_ : newline + 1;
    previous_line_.assign(last_line, std::min<size_t>(last - last_line, kKeptLineMax));
  }

 private:
  // Only the system log of a bug report is the library's log.
  void ScanSections(const char* end) {
    for (const char* at = block_; at < end;) {
      const char* header = std::string_view(at, end - at).substr(0, 7) == "------ "
                               ? at
                               : Find(at, end, "\n------ ");
      if (header != nullptr && *header == '\n') ++header;
      if (in_log_section_) ScanRegion(at, header == nullptr ? end : header);
      if (header == nullptr) return;
      const char* header_end = static_cast<const char*>(memchr(header, '\n', end - header));
      if (header_end == nullptr) header_end = end;
      in_log_section_ =
          SectionName(std::string_view(header, header_end - header)) == kSystemLogSection;
      at = header_end + 1;
    }
  }

  // Lines between begin and end (both at line starts) that hold a frame or a
  // console prefix. Both anchors hold a '[', which memchr finds fast.
  void ScanRegion(const char* begin, const char* end) {
    for (const char* at = begin; at < end;) {
      at = static_cast<const char*>(memchr(at, '[', end - at));
      if (at == nullptr) return;
      const bool frame = static_cast<size_t>(end - at) >= kFrameAnchor.size() &&
                         memcmp(at, kFrameAnchor.data(), kFrameAnchor.size()) == 0;
      const bool console = at - begin >= 3 && memcmp(at - 3, kConsoleAnchor.data(), 3) == 0;
      if (!frame && !console) {
        ++at;
        continue;
      }
      const char* newline = static_cast<const char*>(memrchr(begin, '\n', at - begin));
      const char* line_start = newline == nullptr ? begin : newline + 1;
      const char* line_end = static_cast<const char*>(memchr(at, '\n', end - at));
      if (line_end == nullptr) line_end = end;
      DecodeLine(line_start, line_end, at, frame);
      at = line_end + 1;
    }
  }

  // 1-based number of the line that starts at `at`.
  uint64_t LineNumberAt(const char* at) {
    lines_counted_ += CountNewlines(counted_to_, at);
    counted_to_ = at;
    return lines_counted_ + 1;
  }

  void Unparsed(const char* line_start, std::string_view line, const char* reason, bool console) {
    UnparsedLine unparsed;
    unparsed.source = index_;
    unparsed.line_number = LineNumberAt(line_start);
    unparsed.text = line;
    unparsed.reason = reason;
    unparsed.console = console;
    sink_->OnUnparsed(unparsed);
  }

  // The line before line_start: in this block, or the last one of the block
  // before.
  std::string_view PreviousLine(const char* line_start) const {
    if (line_start == block_) return previous_line_;
    const char* end = line_start - 1;
    const char* newline = static_cast<const char*>(memrchr(block_, '\n', end - block_));
    const char* start = newline == nullptr ? block_ : newline + 1;
    return std::string_view(start, end - start);
  }

  // anchor: where the frame's source file or the console's "RIL" ends.
  void DecodeLine(const char* line_start, const char* line_end, const char* anchor, bool frame) {
    std::string_view line = WithoutCr(std::string_view(line_start, line_end - line_start));
    LibraryLine decoded;
    decoded.header = ParseHeader(line, &second_);
    // logcat -v process ends the line with "  (tag)".
    if (decoded.header.format == LogFormat::kProcess && line.back() == ')') {
      const size_t tag = line.rfind("  (");
      if (tag != std::string_view::npos && tag > static_cast<size_t>(anchor - line_start)) {
        line = line.substr(0, tag);
      }
    }
    if (decoded.header.format == LogFormat::kPlain) {
      ParseLongHeader(WithoutCr(PreviousLine(line_start)), &decoded.header);
    }
    // A frame after a console prefix wins: the console copy may carry it.
    const size_t at = static_cast<size_t>(anchor - line_start);
    const size_t frame_at = frame ? at : line.find(kFrameAnchor, at);
    const char* reason = frame_at != std::string_view::npos
                             ? DecodeFrame(line, frame_at + kFrameAnchor.size(), &decoded)
                             : DecodeConsole(line, at - 3, &decoded);
    if (reason == kNotLibrary) return;
    if (reason != nullptr) {
      Unparsed(line_start, line, reason, decoded.console);
      return;
    }
    if (summary_->library_lines++ == 0) summary_->format = decoded.header.format;
    sink_->OnLine(decoded);
  }

  // The reasons a line is not decoded; kNotLibrary lines are someone else's.
  static constexpr const char* kNotLibrary = "";
  static constexpr const char* kCut = "the line ends inside the library's prefix";
  static constexpr const char* kNoInstance = "no instance or task before the source file";
  static constexpr const char* kBadFrame = "malformed prefix";
  static constexpr const char* kUnknownFunction = "a function the library does not have";
  static constexpr const char* kUnknownMessage = "not a message this function writes";

  // What follows "[kovani_utils_" in text (a line), at `at`: "cmn.cpp:123]
  // function: body". The text ends inside it on a cut line.
  const char* DecodeFrame(std::string_view line, size_t at, LibraryLine* decoded) {
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
    return DecodeFunctionAndBody(&c, ": ", site, decoded) ? nullptr : decode_failure_;
  }

  // "RIL[function:line]: body"; only a function of the library's makes it
  // the library's.
  const char* DecodeConsole(std::string_view line, size_t from, LibraryLine* decoded) {
    for (size_t at = from; at != std::string_view::npos; at = line.find(kConsoleAnchor, at + 1)) {
      Cursor c(line.substr(at + kConsoleAnchor.size()));
      decoded->console = true;
      if (decoded->header.format == LogFormat::kPlain) decoded->header.format = LogFormat::kConsole;
      decoded->header.priority = 0;
      if (DecodeFunctionAndBody(&c, ":", 0, decoded)) return nullptr;
      if (decode_failure_ != kUnknownFunction) return decode_failure_;
    }
    return kNotLibrary;
  }

  // function, separator, [console: "line]: "], body. site: the frame's
  // source file and line; the console's line is read here.
  bool DecodeFunctionAndBody(Cursor* c, std::string_view separator, uint64_t site,
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
      decode_failure_ = !decoded->console && cut ? kCut : kUnknownFunction;
      return false;
    }
    if (!console_prefix) {
      decode_failure_ = c->Rest().size() < (separated ? 3 : separator.size()) ? kCut : kBadFrame;
      return false;
    }
    const std::string_view body = c->Rest();
    const FunctionMessages messages = call_site->messages;
    if (call_site->format < MessageCount() &&
        MatchFormat(Messages()[call_site->format].format, body, &decoded->captures)) {
      decoded->format = call_site->format;
      return true;
    }
    for (size_t i = messages.first; i < messages.first + messages.count; ++i) {
      if (MatchFormat(Messages()[i].format, body, &decoded->captures)) {
        decoded->format = call_site->format = i;
        return true;
      }
    }
    decode_failure_ = kUnknownMessage;
    return false;
  }

  // A call site (source file and line, or the console's line) logs one
  // function's lines and nearly always one format: both are kept at hand.
  struct CallSite {
    uint64_t key = UINT64_MAX;
    FunctionMessages messages;
    size_t format = SIZE_MAX;
  };

  CallSite* LookUp(uint64_t key, std::string_view function) {
    CallSite& site = call_sites_[key % call_sites_.size()];
    if (site.key == key && function == Messages()[site.messages.first].function) return &site;
    const FunctionMessages messages = FindFunction(function);
    if (!messages.known()) return nullptr;
    site = {key, messages, SIZE_MAX};
    return &site;
  }

  // "SUB[n]" or "[task]" just before the source file, or empty.
  static std::string_view Instance(std::string_view before) {
    if (before.empty() || before.back() != ']') return {};
    size_t open = before.size() - 1;
    while (open > 0 && (IsDigit(before[open - 1]) || before[open - 1] == '-')) --open;
    if (open >= 4 && before.substr(open - 4, 4) == "SUB[" && open < before.size() - 1) {
      return before.substr(open - 4);
    }
    const size_t limit = before.size() > kTaskNameMax ? before.size() - kTaskNameMax : 0;
    open = before.rfind('[', before.size() - 2);
    return open == std::string_view::npos || open < limit ? std::string_view()
                                                          : before.substr(open);
  }

  const size_t index_;
  const bool bug_report_;
  LineSink* const sink_;
  SourceSummary* const summary_;
  const char* block_ = nullptr;
  const char* counted_to_ = nullptr;
  uint64_t lines_counted_ = 0;
  std::string previous_line_;
  bool in_log_section_ = false;
  const char* decode_failure_ = nullptr;
  std::array<CallSite, 1024> call_sites_;
  SecondCache second_;
};

}  // namespace

bool DecodeInput(Input* input, size_t index, LineSink* sink, SourceSummary* summary,
                 std::string* error) {
  summary->name = input->name;
  summary->entry = input->entry;
  summary->kind = input->kind;
  Scanner scanner(index, input->kind != InputKind::kText, sink, summary);
  BlockReader reader(input->source.get());
  for (std::string_view block; reader.Next(&block);) scanner.ScanBlock(block);
  if (!reader.failed()) return true;
  *error = "cannot read " + Quoted(input->name) +
           (input->entry.empty() ? "" : " (" + input->entry + ")") + ": " + input->source->error();
  return false;
}

}  // namespace kovani_tool
