#include "cutils/properties.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "kovani_host_properties.h"

namespace {

constexpr std::size_t kValueMax = PROPERTY_VALUE_MAX;  // counts the NUL
// What bionic's legacy read hands out for values too long for its buffer.
constexpr char kLongValueText[] = "Must use __system_property_read_callback() to read";
constexpr char kProfileEnv[] = "KOVANI_PROPERTY_PROFILE";
constexpr char kPersistEnv[] = "KOVANI_PROPERTY_PERSIST";
constexpr char kBlanks[] = " \t\r\f\v";
constexpr char kMalformedGetprop[] = "malformed getprop line, expected \"[name]: [value]\"";

bool starts_with(const std::string& s, const char* prefix) {
  return s.compare(0, std::strlen(prefix), prefix) == 0;
}

bool is_read_only(const std::string& name) { return starts_with(name, "ro."); }

bool is_persistent(const std::string& name) { return starts_with(name, "persist."); }

bool is_valid_name(const std::string& name) {
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

// Strict: no overlong forms, surrogates or code points past U+10FFFF.
bool is_valid_utf8(const std::string& s) {
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

// Returns nullptr when value may be stored under name by a set or a load.
const char* value_problem(const std::string& name, const std::string& value) {
  if (value.size() >= kValueMax && !is_read_only(name)) {
    return "value of 92 or more bytes for a non-ro. property";
  }
  if (!is_valid_utf8(value)) return "value is not valid UTF-8";
  return nullptr;
}

std::string trim(const std::string& s) {
  const std::size_t b = s.find_first_not_of(kBlanks);
  if (b == std::string::npos) return std::string();
  return s.substr(b, s.find_last_not_of(kBlanks) - b + 1);
}

// Returns false with errno set.
bool read_whole_file(const char* path, std::string* out) {
  const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  char buf[8192];
  for (;;) {
    const ssize_t n = ::read(fd, buf, sizeof buf);
    if (n == 0) break;
    if (n < 0) {
      if (errno == EINTR) continue;
      const int err = errno;
      ::close(fd);
      errno = err;
      return false;
    }
    out->append(buf, static_cast<std::size_t>(n));
  }
  ::close(fd);
  return true;
}

enum class Format { kProfile, kPersist };

struct Line {
  std::string name;
  std::string value;
};

// Returns nullptr and fills *out, or the reason the line is bad. A line to
// ignore (blank, comment) leaves out->name empty.
const char* parse_profile_line(const std::string& raw, Line* out) {
  const std::string s = trim(raw);
  if (s.empty() || s[0] == '#') return nullptr;
  if (s[0] == '[') {
    // getprop dump: the value runs to the last ']' because it may hold ']'.
    const std::size_t close = s.find(']');
    if (close == std::string::npos) return kMalformedGetprop;
    const std::size_t open = s.find_first_not_of(" \t", close + 2);
    if (close + 1 >= s.size() || s[close + 1] != ':' || open == std::string::npos ||
        s[open] != '[' || open + 1 >= s.size() || s.back() != ']') {
      return kMalformedGetprop;
    }
    out->name = s.substr(1, close - 1);
    out->value = s.substr(open + 1, s.size() - open - 2);
  } else {
    const std::size_t eq = s.find('=');
    if (eq == std::string::npos) {
      if (s.compare(0, 6, "import") == 0 && (s.size() == 6 || s[6] == ' ' || s[6] == '\t')) {
        return "import is not supported";
      }
      return "missing '='";
    }
    out->name = trim(s.substr(0, eq));
    out->value = trim(s.substr(eq + 1));
  }
  if (!is_valid_name(out->name)) return "invalid property name";
  return value_problem(out->name, out->value);
}

// Persisted values are kept verbatim, so they are escaped rather than trimmed.
const char* parse_persist_line(std::string s, Line* out) {
  if (!s.empty() && s.back() == '\r') s.pop_back();
  if (s.find_first_not_of(kBlanks) == std::string::npos || s[0] == '#') {
    return nullptr;
  }
  const std::size_t eq = s.find('=');
  if (eq == std::string::npos) return "missing '='";
  out->name = s.substr(0, eq);
  if (!is_valid_name(out->name)) return "invalid property name";
  if (!is_persistent(out->name)) return "not a persist. property";
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
    out->value += c;
  }
  return value_problem(out->name, out->value);
}

std::string escape(const std::string& value) {
  std::string out;
  out.reserve(value.size());
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
  return out;
}

// Parses text, reporting each bad line on stderr; returns the bad count.
int parse_text(const char* path, const std::string& text, Format format, std::vector<Line>* lines) {
  int bad = 0;
  std::size_t number = 0;
  for (std::size_t pos = 0; pos < text.size();) {
    std::size_t nl = text.find('\n', pos);
    if (nl == std::string::npos) nl = text.size();
    ++number;
    Line line;
    const std::string raw = text.substr(pos, nl - pos);
    const char* problem = format == Format::kProfile ? parse_profile_line(raw, &line)
                                                     : parse_persist_line(raw, &line);
    if (problem != nullptr) {
      (void)std::fprintf(stderr, "%s:%zu: %s, line skipped\n", path, number, problem);
      ++bad;
    } else if (!line.name.empty()) {
      lines->push_back(std::move(line));
    }
    pos = nl + 1;
  }
  return bad;
}

bool write_all(int fd, const std::string& data) {
  std::size_t done = 0;
  while (done < data.size()) {
    const ssize_t n = ::write(fd, data.data() + done, data.size() - done);
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    done += static_cast<std::size_t>(n);
  }
  return true;
}

void report_errno(const std::string& path) {
  (void)std::fprintf(stderr, "%s: %s\n", path.c_str(), std::strerror(errno));
}

struct Store {
  std::mutex mu;
  bool initialised = false;
  std::map<std::string, std::string> props;
  // Values as last persisted, apart from props so seeds never reach the file.
  std::map<std::string, std::string> persisted;
  std::string persist_path;  // empty when detached

  // Returns false with errno set when path cannot be read.
  bool load_locked(const char* path, Format format, int* bad) {
    std::string text;
    if (!read_whole_file(path, &text)) return false;
    std::vector<Line> lines;
    *bad = parse_text(path, text, format, &lines);
    for (Line& line : lines) {
      if (format == Format::kPersist) persisted[line.name] = line.value;
      props[line.name] = std::move(line.value);
    }
    return true;
  }

  bool attach_locked(const char* path) {
    int bad = 0;
    if (!load_locked(path, Format::kPersist, &bad) && errno != ENOENT) {
      return false;
    }
    persist_path = path;
    return true;
  }

  void init_locked() {
    if (initialised) return;
    initialised = true;
    const char* profile = std::getenv(kProfileEnv);
    int bad = 0;
    if (profile != nullptr && *profile != '\0' && !load_locked(profile, Format::kProfile, &bad)) {
      report_errno(profile);
    }
    const char* persist = std::getenv(kPersistEnv);
    if (persist != nullptr && *persist != '\0' && !attach_locked(persist)) {
      report_errno(persist);
    }
  }

  // Temporary file, fsync and rename: a crash leaves the old or new file.
  void write_persist_locked() {
    std::string data = "# persistent properties, rewritten on every change\n";
    for (const auto& entry : persisted) {
      data += entry.first + '=' + escape(entry.second) + '\n';
    }
    const std::string tmp = persist_path + ".tmp." + std::to_string(static_cast<long>(::getpid()));
    const int fd = ::open(tmp.c_str(), O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0600);
    if (fd < 0) {
      report_errno(tmp);
      return;
    }
    if (!write_all(fd, data) || ::fsync(fd) != 0) {
      report_errno(tmp);
      ::close(fd);
      ::unlink(tmp.c_str());
      return;
    }
    if (::close(fd) != 0 || ::rename(tmp.c_str(), persist_path.c_str()) != 0) {
      report_errno(persist_path);
      ::unlink(tmp.c_str());
      return;
    }
    // The rename itself is only durable once the directory is synced.
    const std::size_t slash = persist_path.rfind('/');
    const std::string dir = slash == std::string::npos ? "."
                            : slash == 0               ? "/"
                                                       : persist_path.substr(0, slash);
    const int dfd = ::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dfd < 0 || ::fsync(dfd) != 0) report_errno(dir);
    if (dfd >= 0) ::close(dfd);
  }
};

// Never destroyed, so code running at exit can still read properties.
Store& store() {
  static Store* const instance = new Store;
  return *instance;
}

}  // namespace

extern "C" int property_get(const char* key, char* value, const char* default_value) {
  if (value == nullptr) return -1;
  try {
    Store& s = store();
    std::lock_guard<std::mutex> lock(s.mu);
    s.init_locked();
    if (key != nullptr) {
      const auto it = s.props.find(key);
      if (it != s.props.end() && !it->second.empty()) {
        const bool fits = it->second.size() < kValueMax;
        const char* text = fits ? it->second.c_str() : kLongValueText;
        const std::size_t len = fits ? it->second.size() : sizeof kLongValueText - 1;
        std::memcpy(value, text, len + 1);
        return static_cast<int>(len);
      }
    }
  } catch (...) {
    // Falls back to the default, which needs no allocation.
  }
  const std::size_t len = default_value == nullptr ? 0 : ::strnlen(default_value, kValueMax - 1);
  if (len > 0) std::memcpy(value, default_value, len);
  value[len] = '\0';
  return static_cast<int>(len);
}

extern "C" int property_set(const char* key, const char* value) {
  if (key == nullptr) return -1;
  try {
    Store& s = store();
    std::lock_guard<std::mutex> lock(s.mu);
    s.init_locked();
    const std::string name(key);
    std::string val(value == nullptr ? "" : value);
    if (!is_valid_name(name) || value_problem(name, val) != nullptr) return -1;
    const auto it = s.props.find(name);
    if (it != s.props.end() && is_read_only(name)) return -1;
    if (is_persistent(name)) s.persisted[name] = val;
    s.props[name] = std::move(val);
    // Still under the lock, so concurrent sets cannot reorder the files.
    if (is_persistent(name) && !s.persist_path.empty()) {
      s.write_persist_locked();
    }
    return 0;
  } catch (...) {
    return -1;
  }
}

extern "C" int kovani_host_property_load(const char* path) {
  if (path == nullptr) {
    errno = EINVAL;
    return -1;
  }
  int err = 0;
  try {
    Store& s = store();
    std::lock_guard<std::mutex> lock(s.mu);
    s.init_locked();
    int bad = 0;
    if (s.load_locked(path, Format::kProfile, &bad)) return bad;
    err = errno;
  } catch (...) {
    err = ENOMEM;
  }
  errno = err;
  return -1;
}

extern "C" int kovani_host_property_seed(const char* name, const char* value) {
  if (name == nullptr) return -1;
  try {
    Store& s = store();
    std::lock_guard<std::mutex> lock(s.mu);
    s.init_locked();
    const std::string key(name);
    if (!is_valid_name(key)) return -1;
    s.props[key] = value == nullptr ? "" : value;
    return 0;
  } catch (...) {
    return -1;
  }
}

extern "C" int kovani_host_property_unset(const char* name) {
  if (name == nullptr) return -1;
  try {
    Store& s = store();
    std::lock_guard<std::mutex> lock(s.mu);
    s.init_locked();
    s.persisted.erase(name);
    return s.props.erase(name) == 1 ? 0 : -1;
  } catch (...) {
    return -1;
  }
}

extern "C" void kovani_host_property_reset(void) {
  try {
    Store& s = store();
    std::lock_guard<std::mutex> lock(s.mu);
    s.props.clear();
    s.persisted.clear();
    s.persist_path.clear();
    s.initialised = true;
  } catch (...) {
    // Only a failing lock can throw; there is nothing to reset then.
  }
}

extern "C" int kovani_host_property_set_persist_file(const char* path) {
  int err = 0;
  try {
    Store& s = store();
    std::lock_guard<std::mutex> lock(s.mu);
    s.init_locked();
    if (path == nullptr) {
      s.persist_path.clear();
      return 0;
    }
    if (s.attach_locked(path)) return 0;
    err = errno;
  } catch (...) {
    err = ENOMEM;
  }
  errno = err;
  return -1;
}

extern "C" int kovani_host_property_foreach(void (*fn)(const char* name, const char* value,
                                                       void* cookie),
                                            void* cookie) {
  try {
    std::vector<std::pair<std::string, std::string>> snapshot;
    {
      Store& s = store();
      std::lock_guard<std::mutex> lock(s.mu);
      s.init_locked();
      snapshot.assign(s.props.begin(), s.props.end());
    }
    // Called unlocked so fn may use the property functions itself.
    if (fn != nullptr) {
      for (const auto& entry : snapshot) {
        fn(entry.first.c_str(), entry.second.c_str(), cookie);
      }
    }
    return static_cast<int>(snapshot.size());
  } catch (...) {
    return -1;
  }
}
