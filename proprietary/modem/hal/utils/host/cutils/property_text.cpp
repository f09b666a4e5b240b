#include "property_text.h"

#include <cstddef>

#include "cutils/properties.h"

namespace kovani_host {
namespace {

constexpr std::size_t kValueMax = PROPERTY_VALUE_MAX;  // counts the NUL
constexpr char kByteOrderMark[] = "\xEF\xBB\xBF";
constexpr char kMalformedGetprop[] = "malformed getprop line, expected \"[name]: [value]\"";
constexpr char kNulByte[] = "contains a NUL byte";
constexpr char kPersistHeader[] = "# persistent properties, rewritten on every change\n";

bool starts_with(std::string_view s, std::string_view prefix) {
  return s.substr(0, prefix.size()) == prefix;
}

// Strict: no overlong forms, surrogates or code points past U+10FFFF.
bool is_valid_utf8(std::string_view s) {
  const auto* p = reinterpret_cast<const unsigned char*>(s.data());
  const auto* end = p + s.size();
  while (p < end) {
    const unsigned char c = *p++;
    if (c < 0x80) continue;
    int extra;
    unsigned char lo = 0x80, hi = 0xBF;  // bounds of the second byte
    if (c >= 0xC2 && c <= 0xDF) {
      extra = 1;
    } else if (c >= 0xE0 && c <= 0xEF) {
      extra = 2;
      if (c == 0xE0) lo = 0xA0;
      if (c == 0xED) hi = 0x9F;
    } else if (c >= 0xF0 && c <= 0xF4) {
      extra = 3;
      if (c == 0xF0) lo = 0x90;
      if (c == 0xF4) hi = 0x8F;
    } else {
      return false;
    }
    if (end - p < extra || *p < lo || *p > hi) return false;
    for (int i = 1; i < extra; ++i) {
      if ((p[i] & 0xC0) != 0x80) return false;
    }
    p += extra;
  }
  return true;
}

bool is_blank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\f' || c == '\v'; }

// By hand: a profile may hold millions of lines.
std::string_view trim(std::string_view s) {
  while (!s.empty() && is_blank(s.front())) s.remove_prefix(1);
  while (!s.empty() && is_blank(s.back())) s.remove_suffix(1);
  return s;
}

std::string_view without_cr(std::string_view s) {
  if (!s.empty() && s.back() == '\r') s.remove_suffix(1);
  return s;
}

// Editors on some systems put one in front of UTF-8 text.
std::string_view without_byte_order_mark(std::string_view text) {
  if (starts_with(text, kByteOrderMark)) text.remove_prefix(sizeof kByteOrderMark - 1);
  return text;
}

// The lines of a text, without their '\n', one at a time.
class LineReader {
 public:
  explicit LineReader(std::string_view text) : text_(text) {}
  bool next(std::string_view* line) {
    if (pos_ >= text_.size()) return false;
    std::size_t nl = text_.find('\n', pos_);
    if (nl == std::string_view::npos) nl = text_.size();
    *line = text_.substr(pos_, nl - pos_);
    pos_ = nl + 1;
    ++number_;
    return true;
  }
  unsigned long number() const { return number_; }

 private:
  std::string_view text_;
  std::size_t pos_ = 0;
  unsigned long number_ = 0;
};

// Calls fn(line) for each line of text.
template <typename Fn>
void for_each_line(std::string_view text, Fn fn) {
  LineReader lines(text);
  for (std::string_view line; lines.next(&line);) fn(line);
}

// ---------------------------------------------------------------------------
// Profiles

// "[name]: [" and whatever follows.
bool starts_getprop_entry(std::string_view line) {
  const std::string_view s = trim(line);
  if (s.empty() || s[0] != '[') return false;
  const std::size_t close = s.find(']');
  if (close == std::string_view::npos || s.compare(close, 2, "]:") != 0) return false;
  const std::size_t open = s.find_first_not_of(" \t", close + 2);
  return open != std::string_view::npos && s[open] == '[';
}

bool closes_value(std::string_view line) {
  const std::string_view s = trim(line);
  return !s.empty() && s.back() == ']';
}

// getprop prints a value that holds newlines over several lines.
bool opens_value(std::string_view line) {
  return starts_getprop_entry(line) && !closes_value(line);
}

// Joins first, whose value is open, with the lines that lines reads up to
// the one that closes it. False, with lines where it was, when another entry
// or the end comes first.
bool join_value(std::string_view first, LineReader* lines, std::string* joined) {
  const LineReader start = *lines;
  std::string_view line;
  do {
    if (!lines->next(&line) || starts_getprop_entry(line)) {
      *lines = start;
      return false;
    }
  } while (!closes_value(line));
  // Built once closed, so that a value that never closes costs no memory.
  joined->assign(first);
  for (LineReader again = start; again.number() < lines->number();) {
    again.next(&line);
    (*joined += '\n') += without_cr(line);
  }
  return true;
}

// s is a trimmed line. nullptr with *name empty for a line to ignore
// (blank, comment), nullptr with the entry in *name and *value, or the
// reason the line is bad.
const char* parse_profile_line(std::string_view s, std::string_view* name,
                               std::string_view* value) {
  if (s.find('\0') != std::string_view::npos) return kNulByte;
  if (s.empty() || s[0] == '#') return nullptr;
  if (s[0] == '[') {
    // The value runs to the last ']' because it may hold ']'.
    const std::size_t close = s.find(']');
    if (close == std::string_view::npos) return kMalformedGetprop;
    const std::size_t open = s.find_first_not_of(" \t", close + 2);
    if (close + 1 >= s.size() || s[close + 1] != ':' || open == std::string_view::npos ||
        s[open] != '[' || open + 1 >= s.size() || s.back() != ']') {
      return kMalformedGetprop;
    }
    *name = s.substr(1, close - 1);
    *value = s.substr(open + 1, s.size() - open - 2);
  } else {
    const std::size_t eq = s.find('=');
    if (eq == std::string_view::npos) {
      if (starts_with(s, "import") && (s.size() == 6 || s[6] == ' ' || s[6] == '\t')) {
        return "import is not supported";
      }
      return "missing '='";
    }
    *name = trim(s.substr(0, eq));
    *value = trim(s.substr(eq + 1));
  }
  if (!is_valid_name(*name)) return "invalid property name";
  return value_problem(*name, *value);
}

// ---------------------------------------------------------------------------
// The persistence file: "name=value" lines of persist. properties with '\\',
// '\n' and '\r' escaped, so values are kept exactly.

struct PersistEntry {
  std::string_view name;  // empty for a blank or comment line
  std::string value;
};

// nullptr and *out filled, or the reason the line is kept as it is.
const char* parse_persist_line(std::string_view raw, PersistEntry* out) {
  out->name = {};
  if (raw.find('\0') != std::string_view::npos) return kNulByte;
  const std::string_view s = without_cr(raw);
  if (trim(s).empty() || s[0] == '#') return nullptr;
  const std::size_t eq = s.find('=');
  if (eq == std::string_view::npos) return "missing '='";
  const std::string_view name = s.substr(0, eq);
  if (!is_valid_name(name)) return "invalid property name";
  if (!is_persistent(name)) return "not a persist. property";
  std::string value;
  for (std::size_t i = eq + 1; i < s.size(); ++i) {
    char c = s[i];
    if (c == '\\') {
      if (++i == s.size()) return "unfinished escape";
      switch (s[i]) {
        case '\\':
          c = '\\';
          break;
        case 'n':
          c = '\n';
          break;
        case 'r':
          c = '\r';
          break;
        default:
          return "unknown escape";
      }
    }
    value += c;
  }
  const char* problem = value_problem(name, value);
  if (problem == nullptr) *out = PersistEntry{name, std::move(value)};
  return problem;
}

std::string persist_line(const std::string& name, const std::string& value) {
  std::string out = name + '=';
  for (char c : value) {
    switch (c) {
      case '\\':
        out += "\\\\";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\r':
        out += "\\r";
        break;
      default:
        out += c;
    }
  }
  return out += '\n';
}

}  // namespace

bool is_read_only(std::string_view name) { return starts_with(name, "ro."); }

bool is_persistent(std::string_view name) { return starts_with(name, "persist."); }

bool is_valid_name(std::string_view name) {
  if (name.empty() || name.front() == '.' || name.back() == '.') return false;
  char prev = '\0';
  for (char c : name) {
    const bool ok = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                    c == '.' || c == '_' || c == '-' || c == '@' || c == ':';
    if (!ok || (c == '.' && prev == '.')) return false;
    prev = c;
  }
  return true;
}

const char* value_problem(std::string_view name, std::string_view value) {
  if (value.size() >= kValueMax && !is_read_only(name)) {
    return "value of 92 or more bytes for a non-ro. property";
  }
  if (!is_valid_utf8(value)) return "value is not valid UTF-8";
  return nullptr;
}

void parse_profile(std::string_view text, TextVisitor* visitor) {
  LineReader lines(without_byte_order_mark(text));
  std::string joined;
  for (std::string_view line; lines.next(&line);) {
    const unsigned long number = lines.number();
    std::string_view s = trim(line);
    if (opens_value(s)) {
      // Blanks at the end of the first line belong to the value.
      if (!join_value(without_cr(line), &lines, &joined)) {
        visitor->bad_line(number, "value never closed by ']'");
        continue;
      }
      s = trim(joined);
    }
    std::string_view name, value;
    const char* problem = parse_profile_line(s, &name, &value);
    if (problem != nullptr) {
      visitor->bad_line(number, problem);
    } else if (!name.empty()) {
      visitor->entry(name, value);
    }
  }
}

void parse_persist(std::string_view text, TextVisitor* visitor) {
  LineReader lines(without_byte_order_mark(text));
  PersistEntry e;
  for (std::string_view line; lines.next(&line);) {
    const char* problem = parse_persist_line(line, &e);
    if (problem != nullptr) {
      visitor->bad_line(lines.number(), problem);
    } else if (!e.name.empty()) {
      visitor->entry(e.name, e.value);
    }
  }
}

bool is_foreign(std::string_view text) {
  bool unparsable = false;
  bool entry = false;
  PersistEntry e;
  for_each_line(without_byte_order_mark(text), [&](std::string_view line) {
    if (parse_persist_line(line, &e) != nullptr) {
      unparsable = true;
    } else if (!e.name.empty()) {
      entry = true;
    }
  });
  return unparsable && !entry;
}

std::string with_change(std::string_view text, const std::string& name, const std::string* value) {
  const std::string_view body = without_byte_order_mark(text);
  std::string out(text.substr(0, text.size() - body.size()));
  out.reserve(text.size() + name.size() + kValueMax + 2);
  if (body.empty() && value != nullptr) out += kPersistHeader;
  bool found = false;
  PersistEntry e;
  for_each_line(body, [&](std::string_view line) {
    if (parse_persist_line(line, &e) == nullptr && e.name == name) {
      found = true;
      if (value != nullptr) out += persist_line(name, *value);
    } else {
      (out += line) += '\n';
    }
  });
  if (!found && value != nullptr) out += persist_line(name, *value);
  return out;
}

}  // namespace kovani_host
