#include "log/line_header.h"

#include "common/text.h"
#include "log/cursor.h"

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

namespace {

// "(pid)" or "(uid: pid)" just before "): " at or after the cursor.
void ParenthesisedPid(Cursor* c, LineHeader* header) {
  const std::string_view rest = c->Rest();
  const size_t close = rest.find("): ");
  if (close == std::string_view::npos) return;
  size_t digits = close;
  while (digits > 0 && IsDigit(rest[digits - 1])) --digits;
  header->pid = ParseId(rest.substr(digits, close - digits));
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
      header->pid = ParseId(tokens[n - 2]);
      header->tid = ParseId(tokens[n - 1]);
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
    header->pid = ParseId(rest.substr(open + 1, colon - 1 - open - 1));
  }
}

// The time at the cursor into header.
bool Time(Cursor* c, LineHeader* header, bool* syslog, SecondCache* cache) {
  ParsedTime time;
  if (!ReadTime(c, &time, syslog, cache)) return false;
  header->time = time.exists() ? time.text : std::string_view();
  header->ms = time.exists() ? time.ms : 0;
  header->base = time.base;
  return true;
}

}  // namespace

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

}  // namespace kovani_tool
