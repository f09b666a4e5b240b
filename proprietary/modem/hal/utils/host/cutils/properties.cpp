#include "cutils/properties.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
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
constexpr char kNulByte[] = "contains a NUL byte";
constexpr char kNotRegular[] = "not a regular file";
constexpr char kTooLarge[] = "larger than 64 MiB";
constexpr char kNotPersistFile[] = "does not look like a persistence file";
constexpr char kPersistHeader[] = "# persistent properties, rewritten on every change\n";
constexpr char kTempInfix[] = ".kovani-tmp.";
constexpr std::size_t kFileMax = KOVANI_HOST_PROPERTY_FILE_MAX;
static_assert(kFileMax == 64u * 1024u * 1024u, "kTooLarge names the limit");

// ---------------------------------------------------------------------------
// Names and values

bool starts_with(std::string_view s, std::string_view prefix) {
  return s.substr(0, prefix.size()) == prefix;
}

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

std::string trim(std::string_view s) {
  const std::size_t b = s.find_first_not_of(kBlanks);
  if (b == std::string_view::npos) return std::string();
  return std::string(s.substr(b, s.find_last_not_of(kBlanks) - b + 1));
}

std::string_view without_cr(std::string_view s) {
  if (!s.empty() && s.back() == '\r') s.remove_suffix(1);
  return s;
}

// ---------------------------------------------------------------------------
// Reading files

// Why a file could not be read or written: errno and the text to report.
struct Failure {
  int err = 0;
  std::string reason;
};

Failure failure(int err, const char* reason = nullptr) {
  return {err, reason != nullptr ? reason : std::strerror(err)};
}

class Fd {
 public:
  explicit Fd(int fd = -1) : fd_(fd) {}
  ~Fd() { reset(); }
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;
  int get() const { return fd_; }
  void reset(int fd = -1) {
    if (fd_ >= 0) ::close(fd_);
    fd_ = fd;
  }
  int release() {
    const int fd = fd_;
    fd_ = -1;
    return fd;
  }

 private:
  int fd_;
};

// Reads what fd holds if it is a regular file of at most kFileMax bytes,
// stopping there should the file grow meanwhile.
bool read_regular(int fd, std::string* out, Failure* why) {
  struct stat st {};
  if (::fstat(fd, &st) != 0) {
    *why = failure(errno);
    return false;
  }
  if (!S_ISREG(st.st_mode)) {
    *why = failure(EINVAL, kNotRegular);
    return false;
  }
  if (st.st_size > static_cast<off_t>(kFileMax)) {
    *why = failure(EFBIG, kTooLarge);
    return false;
  }
  out->clear();
  out->reserve(static_cast<std::size_t>(st.st_size));
  char buf[16384];
  for (;;) {
    const ssize_t n = ::pread(fd, buf, sizeof buf, static_cast<off_t>(out->size()));
    if (n == 0) return true;
    if (n < 0) {
      if (errno == EINTR) continue;
      *why = failure(errno);
      return false;
    }
    if (out->size() + static_cast<std::size_t>(n) > kFileMax) {
      *why = failure(EFBIG, kTooLarge);
      return false;
    }
    out->append(buf, static_cast<std::size_t>(n));
  }
}

// O_NONBLOCK so that opening a FIFO never waits for a writer.
bool read_file(const char* path, std::string* out, Failure* why) {
  const Fd fd(::open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (fd.get() < 0) {
    *why = failure(errno);
    return false;
  }
  return read_regular(fd.get(), out, why);
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

// Calls fn(number, line) for each line of text.
template <typename Fn>
void for_each_line(std::string_view text, Fn fn) {
  LineReader lines(text);
  for (std::string_view line; lines.next(&line);) fn(lines.number(), line);
}

// ---------------------------------------------------------------------------
// Profiles

struct Entry {
  std::string name;
  std::string value;
};

// "[name]: [value" whose closing ']' comes on a later line, as getprop
// prints values that hold newlines.
bool opens_multiline(std::string_view line) {
  const std::string s = trim(line);
  if (s.empty() || s[0] != '[' || s.back() == ']') return false;
  const std::size_t close = s.find(']');
  if (close == std::string::npos || s.compare(close, 2, "]:") != 0) return false;
  const std::size_t open = s.find_first_not_of(" \t", close + 2);
  return open != std::string::npos && s[open] == '[';
}

bool closes_multiline(std::string_view line) {
  const std::size_t last = line.find_last_not_of(kBlanks);
  return last != std::string_view::npos && line[last] == ']';
}

// Returns nullptr and fills *out, or the reason the line is bad. A line to
// ignore (blank, comment) leaves out->name empty.
const char* parse_profile_line(const std::string& raw, Entry* out) {
  if (raw.find('\0') != std::string::npos) return kNulByte;
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
    out->name = trim(std::string_view(s).substr(0, eq));
    out->value = trim(std::string_view(s).substr(eq + 1));
  }
  if (!is_valid_name(out->name)) return "invalid property name";
  return value_problem(out->name, out->value);
}

// ---------------------------------------------------------------------------
// The persistence file's format: "name=value" lines of persist. properties
// with '\\', '\n' and '\r' escaped, so values are kept exactly.

// Returns nullptr and fills *out (name left empty for a blank or comment
// line), or the reason the line is kept as it is.
const char* parse_persist_line(std::string_view raw, Entry* out) {
  if (raw.find('\0') != std::string_view::npos) return kNulByte;
  const std::string_view s = without_cr(raw);
  if (s.find_first_not_of(kBlanks) == std::string_view::npos || s[0] == '#') {
    return nullptr;
  }
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
  const char* problem = value_problem(std::string(name), value);
  if (problem == nullptr) *out = Entry{std::string(name), std::move(value)};
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

// Lines the store cannot parse and not a single entry: someone else's file,
// which a rewrite would bury under ours.
bool is_foreign(std::string_view text) {
  bool unparsable = false;
  bool entry = false;
  for_each_line(text, [&](unsigned long, std::string_view raw) {
    Entry e;
    if (parse_persist_line(raw, &e) != nullptr) {
      unparsable = true;
    } else if (!e.name.empty()) {
      entry = true;
    }
  });
  return unparsable && !entry;
}

// text with every entry for name set to *value, or removed when value is
// null; a name not there yet is appended. Every other line stays as it is.
std::string with_change(std::string_view text, const std::string& name, const std::string* value) {
  std::string out;
  out.reserve(text.size() + name.size() + kValueMax + 2);
  if (text.empty() && value != nullptr) out = kPersistHeader;
  bool found = false;
  for_each_line(text, [&](unsigned long, std::string_view raw) {
    Entry e;
    if (parse_persist_line(raw, &e) == nullptr && e.name == name) {
      found = true;
      if (value != nullptr) out += persist_line(name, *value);
    } else {
      out.append(raw);
      out += '\n';
    }
  });
  if (!found && value != nullptr) out += persist_line(name, *value);
  return out;
}

// ---------------------------------------------------------------------------
// The persistence file on disk

std::string dir_of(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

// Kept short enough that the temporary's name fits NAME_MAX.
std::string temp_prefix(const std::string& path) {
  return path.substr(path.rfind('/') + 1).substr(0, 200) + kTempInfix;
}

// Follows symbolic links from path to where they end, which need not exist.
bool follow_links(const std::string& path, std::string* target, Failure* why) {
  std::string p = path;
  for (int hops = 0; hops < 40; ++hops) {
    struct stat st {};
    if (::lstat(p.c_str(), &st) != 0 || !S_ISLNK(st.st_mode)) {
      *target = p;
      return true;  // open reports anything but a missing file
    }
    std::vector<char> buf(PATH_MAX);
    const ssize_t n = ::readlink(p.c_str(), buf.data(), buf.size());
    if (n <= 0 || static_cast<std::size_t>(n) == buf.size()) {
      *why = failure(n < 0 ? errno : ENAMETOOLONG);
      return false;
    }
    std::string dest(buf.data(), static_cast<std::size_t>(n));
    const std::size_t slash = p.rfind('/');
    if (dest[0] != '/' && slash != std::string::npos) dest = p.substr(0, slash + 1) + dest;
    p = std::move(dest);
  }
  *why = failure(ELOOP);
  return false;
}

// The persistence file, flock()ed, by the path it really has.
struct Locked {
  Fd fd;
  std::string target;
  struct stat st {};
  bool created = false;  // empty and new, made only to hold the lock
};

enum class Lock { kLocked, kMissing, kFailed };

// Writers replace the file by rename, so the lock may land on a file the
// path no longer names; then it is taken again on the one it names now.
Lock lock_file(const std::string& path, bool create, Locked* f, Failure* why) {
  int last = EAGAIN;
  for (int attempt = 0; attempt < 1000; ++attempt) {
    if (!follow_links(path, &f->target, why)) return Lock::kFailed;
    const char* target = f->target.c_str();
    f->created = false;
    f->fd.reset(::open(target, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_NOFOLLOW | O_CLOEXEC));
    if (f->fd.get() < 0 && errno == ENOENT && create) {
      f->fd.reset(::open(target, O_RDONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666));
      f->created = f->fd.get() >= 0;
    }
    if (f->fd.get() < 0) {
      // A file or link appeared since the path was followed.
      if ((last = errno) == EEXIST || errno == ELOOP) continue;
      if (errno == ENOENT && !create) return Lock::kMissing;
      *why = failure(errno);
      return Lock::kFailed;
    }
    if (::fstat(f->fd.get(), &f->st) != 0) {
      *why = failure(errno);
      return Lock::kFailed;
    }
    if (!S_ISREG(f->st.st_mode)) {
      *why = failure(EINVAL, kNotRegular);
      return Lock::kFailed;
    }
    int rc;
    while ((rc = ::flock(f->fd.get(), LOCK_EX)) != 0 && errno == EINTR) {
    }
    if (rc != 0) {
      *why = failure(errno);
      return Lock::kFailed;
    }
    struct stat now {};
    if (::lstat(target, &now) == 0 && now.st_dev == f->st.st_dev && now.st_ino == f->st.st_ino) {
      return Lock::kLocked;
    }
    last = EAGAIN;
  }
  *why = failure(last);
  return Lock::kFailed;
}

// Only a writer holding the lock has a temporary, so under the lock every
// one left is a dead writer's.
void remove_stale_temporaries(const std::string& target) {
  const std::string prefix = temp_prefix(target);
  DIR* dir = ::opendir(dir_of(target).c_str());
  if (dir == nullptr) return;
  std::vector<std::string> stale;
  while (const dirent* e = ::readdir(dir)) {
    const std::string_view name(e->d_name);
    if (name.size() != prefix.size() + 6 || !starts_with(name, prefix)) continue;
    bool random = true;
    for (char c : name.substr(prefix.size())) {
      random =
          random && ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9'));
    }
    if (random) stale.emplace_back(name);
  }
  for (const std::string& name : stale) (void)::unlinkat(::dirfd(dir), name.c_str(), 0);
  ::closedir(dir);
}

// rename() would replace a file its owner made read-only, so ask first.
// Root passes permission checks, so a file without any write bit counts as
// read-only for it too.
bool check_writable(const Locked& f, Failure* why) {
  if ((f.st.st_mode & 0222) == 0) {
    *why = failure(EACCES);
    return false;
  }
  const Fd fd(::open(f.target.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_NOFOLLOW | O_CLOEXEC));
  if (fd.get() < 0) {
    *why = failure(errno);
    return false;
  }
  return true;
}

bool write_all(int fd, std::string_view data) {
  while (!data.empty()) {
    const ssize_t n = ::write(fd, data.data(), data.size());
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    data.remove_prefix(static_cast<std::size_t>(n));
  }
  return true;
}

// Temporary file, fsync and rename: a crash leaves the old or new file.
bool replace_file(Locked* f, const std::string& data, Failure* why) {
  const std::string dir = dir_of(f->target);
  std::string tmp = dir + '/' + temp_prefix(f->target) + "XXXXXX";
  // O_CREAT|O_EXCL: never opens what an attacker planted under that name.
  Fd fd(::mkostemp(&tmp[0], O_CLOEXEC));
  if (fd.get() < 0) {
    *why = failure(errno);
    return false;
  }
  struct stat st {};
  bool ok = write_all(fd.get(), data) && ::fstat(fd.get(), &st) == 0;
  if (ok && (st.st_uid != f->st.st_uid || st.st_gid != f->st.st_gid) &&
      ::fchown(fd.get(), f->st.st_uid, f->st.st_gid) != 0) {
    (void)::fchown(fd.get(), static_cast<uid_t>(-1), f->st.st_gid);  // at least the group
  }
  // Locked before it takes the file's place, so that a writer waiting on the
  // old file queues on this one while the folder is synced, rather than
  // racing this process's next change for it, which it would mostly lose.
  ok = ok && ::fchmod(fd.get(), f->st.st_mode & 07777) == 0 && ::fsync(fd.get()) == 0 &&
       ::flock(fd.get(), LOCK_EX | LOCK_NB) == 0 && ::rename(tmp.c_str(), f->target.c_str()) == 0;
  if (!ok) {
    *why = failure(errno);
    ::unlink(tmp.c_str());
    return false;
  }
  f->fd.reset();
  // Makes the rename durable; without it a crash still leaves a whole file.
  const Fd dfd(::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (dfd.get() >= 0) (void)::fsync(dfd.get());
  return true;
}

// One change applied to the file as it is on disk now.
bool rewrite_locked(Locked* f, const std::string& name, const std::string* value,
                    bool* replaced, Failure* why) {
  remove_stale_temporaries(f->target);
  std::string text;
  if ((!f->created && !check_writable(*f, why)) || !read_regular(f->fd.get(), &text, why)) {
    return false;
  }
  if (is_foreign(text)) {
    *why = failure(EINVAL, kNotPersistFile);
    return false;
  }
  const std::string updated = with_change(text, name, value);
  if (updated == text) return true;
  if (updated.size() > kFileMax) {
    *why = failure(EFBIG, kTooLarge);
    return false;
  }
  *replaced = replace_file(f, updated, why);
  return *replaced;
}

bool rewrite_persist(const std::string& path, const std::string& name, const std::string* value,
                     Failure* why) {
  Locked f;
  if (lock_file(path, true, &f, why) != Lock::kLocked) return false;
  bool replaced = false;
  const bool ok = rewrite_locked(&f, name, value, &replaced, why);
  // Still locked: waiters see the path gone and look again.
  if (f.created && !replaced) ::unlink(f.target.c_str());
  return ok;
}

// ---------------------------------------------------------------------------
// Reports

void default_reporter(int kind, const char* file, unsigned long line, const char* reason, void*) {
  switch (kind) {
    case KOVANI_HOST_PROPERTY_LINE_SKIPPED:
      (void)std::fprintf(stderr, "%s:%lu: %s, line skipped\n", file, line, reason);
      break;
    case KOVANI_HOST_PROPERTY_LINE_KEPT:
      (void)std::fprintf(stderr, "%s:%lu: %s, line kept as it is\n", file, line, reason);
      break;
    case KOVANI_HOST_PROPERTY_UNWRITABLE:
      (void)std::fprintf(stderr, "%s: cannot write: %s\n", file, reason);
      break;
    default:
      (void)std::fprintf(stderr, "%s: %s\n", file, reason);
  }
}

// Compact, since a large file may have a bad line on every line.
struct Report {
  int kind;
  std::uint32_t line;
  std::uint32_t file;  // in Reports::strings
  std::uint32_t text;  // in Reports::strings, unless reason is set
  const char* reason;  // a literal
};

struct Reports {
  std::vector<Report> list;
  std::vector<std::string> strings;

  std::uint32_t keep(const std::string& s) {
    if (strings.empty() || strings.back() != s) strings.push_back(s);
    return static_cast<std::uint32_t>(strings.size() - 1);
  }
  void clear() {
    list.clear();
    strings.clear();
  }
};

// ---------------------------------------------------------------------------
// The store

struct Store {
  std::mutex mu;
  bool initialised = false;
  std::map<std::string, std::string> props;
  std::string persist_path;  // empty when detached
  kovani_host_property_reporter reporter = nullptr;
  void* cookie = nullptr;
  Reports pending;  // made under the lock, delivered after it

  // Dropped only when memory runs out: losing a report must not fail a set.
  void report(int kind, const std::string& file, unsigned long line, const char* reason) noexcept {
    try {
      const bool literal =
          kind == KOVANI_HOST_PROPERTY_LINE_SKIPPED || kind == KOVANI_HOST_PROPERTY_LINE_KEPT;
      const std::uint32_t name = pending.keep(file);
      const std::uint32_t text = literal ? 0 : pending.keep(reason);
      pending.list.push_back(
          {kind, static_cast<std::uint32_t>(line), name, text, literal ? reason : nullptr});
    } catch (...) {
    }
  }

  bool fail(int kind, const std::string& file, const Failure& why) {
    report(kind, file, 0, why.reason.c_str());
    errno = why.err;
    return false;
  }

  // Returns the entries that set a property; *bad counts the bad lines.
  int load_text_locked(const std::string& source, std::string_view text, int* bad) {
    int set = 0;
    *bad = 0;
    LineReader lines(text);
    for (std::string_view line; lines.next(&line);) {
      const unsigned long number = lines.number();
      std::string entry(without_cr(line));
      if (opens_multiline(entry)) {
        bool closed = false;
        while (!closed && lines.next(&line)) {
          (entry += '\n') += without_cr(line);
          closed = closes_multiline(line);
        }
        if (!closed) {
          report(KOVANI_HOST_PROPERTY_LINE_SKIPPED, source, number, "value never closed by ']'");
          ++*bad;
          break;
        }
      }
      Entry e;
      const char* problem = parse_profile_line(entry, &e);
      if (problem != nullptr) {
        report(KOVANI_HOST_PROPERTY_LINE_SKIPPED, source, number, problem);
        ++*bad;
      } else if (!e.name.empty()) {
        props[e.name] = std::move(e.value);
        ++set;
      }
    }
    return set;
  }

  // Returns false with errno set after an UNREADABLE report.
  bool load_file_locked(const char* path, int* set, int* bad) {
    std::string text;
    Failure why;
    if (!read_file(path, &text, &why)) return fail(KOVANI_HOST_PROPERTY_UNREADABLE, path, why);
    *set = load_text_locked(path, text, bad);
    return true;
  }

  // Returns false with errno set after an UNREADABLE report.
  bool attach_locked(const std::string& path) {
    Failure why = failure(ENOENT);
    Locked f;
    const Lock lock = path.empty() ? Lock::kFailed : lock_file(path, false, &f, &why);
    if (lock == Lock::kFailed) return fail(KOVANI_HOST_PROPERTY_UNREADABLE, path, why);
    if (lock == Lock::kLocked) {
      remove_stale_temporaries(f.target);
      std::string text;
      if (!read_regular(f.fd.get(), &text, &why)) {
        return fail(KOVANI_HOST_PROPERTY_UNREADABLE, path, why);
      }
      if (is_foreign(text)) {
        return fail(KOVANI_HOST_PROPERTY_UNREADABLE, path, failure(EINVAL, kNotPersistFile));
      }
      for_each_line(text, [&](unsigned long number, std::string_view raw) {
        Entry e;
        const char* problem = parse_persist_line(raw, &e);
        if (problem != nullptr) {
          report(KOVANI_HOST_PROPERTY_LINE_KEPT, path, number, problem);
        } else if (!e.name.empty()) {
          props[e.name] = std::move(e.value);
        }
      });
    }
    persist_path = path;
    return true;
  }

  // Reports a change the file could not take; memory keeps it regardless.
  void persist_locked(const std::string& name, const std::string* value) {
    if (persist_path.empty()) return;
    Failure why;
    try {
      if (rewrite_persist(persist_path, name, value, &why)) return;
    } catch (...) {
      why = failure(ENOMEM);
    }
    report(KOVANI_HOST_PROPERTY_UNWRITABLE, persist_path, 0, why.reason.c_str());
  }

  void init_locked() {
    if (initialised) return;
    initialised = true;
    const char* profile = std::getenv(kProfileEnv);
    int set = 0, bad = 0;
    if (profile != nullptr && *profile != '\0') load_file_locked(profile, &set, &bad);
    const char* persist = std::getenv(kPersistEnv);
    if (persist != nullptr && *persist != '\0') attach_locked(persist);
  }
};

// Never destroyed, so code running at exit can still read properties.
Store& store() {
  static Store* const instance = new Store;
  return *instance;
}

// Runs fn on the initialised store under its lock, then hands the reports
// fn made to the reporter after unlocking, keeping fn's errno.
template <typename Fn>
int with_store(Fn fn) {
  Store& s = store();
  Reports reports;
  kovani_host_property_reporter reporter = nullptr;
  void* cookie = nullptr;
  int result;
  {
    std::lock_guard<std::mutex> lock(s.mu);
    s.pending.clear();
    s.init_locked();
    result = fn(s);
    std::swap(reports, s.pending);
    reporter = s.reporter;
    cookie = s.cookie;
  }
  const int err = errno;
  for (const Report& r : reports.list) {
    const char* reason = r.reason != nullptr ? r.reason : reports.strings[r.text].c_str();
    (reporter != nullptr ? reporter : default_reporter)(r.kind, reports.strings[r.file].c_str(),
                                                        r.line, reason, cookie);
  }
  errno = err;
  return result;
}

}  // namespace

extern "C" int property_get(const char* key, char* value, const char* default_value) {
  if (value == nullptr) return -1;
  try {
    const int len = with_store([&](Store& s) {
      if (key == nullptr) return -1;
      const auto it = s.props.find(key);
      if (it == s.props.end() || it->second.empty()) return -1;
      const bool fits = it->second.size() < kValueMax;
      const char* text = fits ? it->second.c_str() : kLongValueText;
      const std::size_t n = fits ? it->second.size() : sizeof kLongValueText - 1;
      std::memcpy(value, text, n + 1);
      return static_cast<int>(n);
    });
    if (len >= 0) return len;
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
    return with_store([&](Store& s) {
      const std::string name(key);
      std::string val(value == nullptr ? "" : value);
      if (!is_valid_name(name) || value_problem(name, val) != nullptr) return -1;
      if (is_read_only(name) && s.props.count(name) != 0) return -1;
      std::string& stored = s.props[name];
      stored = std::move(val);
      // Still under the lock, so concurrent sets reach the file in order.
      if (is_persistent(name)) s.persist_locked(name, &stored);
      return 0;
    });
  } catch (...) {
    return -1;
  }
}

extern "C" void kovani_host_property_set_reporter(kovani_host_property_reporter fn, void* cookie) {
  try {
    Store& s = store();
    std::lock_guard<std::mutex> lock(s.mu);
    s.reporter = fn;
    s.cookie = cookie;
  } catch (...) {
    // Only a failing lock can throw; the old reporter stays.
  }
}

extern "C" int kovani_host_property_load(const char* path, unsigned long* bad_lines) {
  if (path == nullptr) {
    errno = EINVAL;
    return -1;
  }
  try {
    return with_store([&](Store& s) {
      int set = 0, bad = 0;
      if (!s.load_file_locked(path, &set, &bad)) return -1;
      if (bad_lines != nullptr) *bad_lines = static_cast<unsigned long>(bad);
      return set;
    });
  } catch (...) {
    errno = ENOMEM;
    return -1;
  }
}

extern "C" int kovani_host_property_load_text(const char* source, const char* text, size_t size,
                                              unsigned long* bad_lines) {
  if (text == nullptr && size > 0) {
    errno = EINVAL;
    return -1;
  }
  try {
    return with_store([&](Store& s) {
      const std::string name = source == nullptr ? "-" : source;
      if (size > kFileMax) {
        s.fail(KOVANI_HOST_PROPERTY_UNREADABLE, name, failure(EFBIG, kTooLarge));
        return -1;
      }
      int bad = 0;
      const int set = s.load_text_locked(name, std::string_view(size > 0 ? text : "", size), &bad);
      if (bad_lines != nullptr) *bad_lines = static_cast<unsigned long>(bad);
      return set;
    });
  } catch (...) {
    errno = ENOMEM;
    return -1;
  }
}

extern "C" int kovani_host_property_seed(const char* name, const char* value) {
  if (name == nullptr) return -1;
  try {
    return with_store([&](Store& s) {
      const std::string key(name);
      if (!is_valid_name(key)) return -1;
      s.props[key] = value == nullptr ? "" : value;
      return 0;
    });
  } catch (...) {
    return -1;
  }
}

extern "C" int kovani_host_property_unset(const char* name) {
  if (name == nullptr) return -1;
  try {
    return with_store([&](Store& s) {
      const std::string key(name);
      if (s.props.erase(key) == 0) return -1;
      if (is_persistent(key)) s.persist_locked(key, nullptr);
      return 0;
    });
  } catch (...) {
    return -1;
  }
}

extern "C" void kovani_host_property_reset(void) {
  try {
    Store& s = store();
    std::lock_guard<std::mutex> lock(s.mu);
    s.props.clear();
    s.persist_path.clear();
    s.initialised = true;
  } catch (...) {
    // Only a failing lock can throw; there is nothing to reset then.
  }
}

extern "C" int kovani_host_property_set_persist_file(const char* path) {
  try {
    return with_store([&](Store& s) {
      if (path == nullptr) {
        s.persist_path.clear();
        return 0;
      }
      return s.attach_locked(path) ? 0 : -1;
    });
  } catch (...) {
    errno = ENOMEM;
    return -1;
  }
}

extern "C" int kovani_host_property_foreach(void (*fn)(const char* name, const char* value,
                                                       void* cookie),
                                            void* cookie) {
  try {
    std::vector<std::pair<std::string, std::string>> snapshot;
    with_store([&](Store& s) {
      snapshot.assign(s.props.begin(), s.props.end());
      return 0;
    });
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
