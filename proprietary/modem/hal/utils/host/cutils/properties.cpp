#include "cutils/properties.h"

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "kovani_host_properties.h"
#include "property_file.h"
#include "property_text.h"

namespace {

using kovani_host::Failure;
using kovani_host::failure;

constexpr std::size_t kValueMax = PROPERTY_VALUE_MAX;  // counts the NUL
// What bionic's legacy read hands out for values too long for its buffer.
constexpr char kLongValueText[] = "Must use __system_property_read_callback() to read";
constexpr char kProfileEnv[] = "KOVANI_PROPERTY_PROFILE";
constexpr char kPersistEnv[] = "KOVANI_PROPERTY_PERSIST";

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

struct Report {
  int kind;
  std::string file;
  unsigned long line;
  std::string reason;
};

struct Reporter {
  kovani_host_property_reporter fn = nullptr;
  void* cookie = nullptr;

  void tell(int kind, const char* file, unsigned long line, const char* reason) const {
    (fn != nullptr ? fn : default_reporter)(kind, file, line, reason, cookie);
  }
};

// ---------------------------------------------------------------------------
// The store

struct Store {
  std::mutex mu;
  bool initialised = false;
  std::map<std::string, std::string, std::less<>> props;
  std::string persist_path;  // empty when detached
  Reporter reporter;
  std::vector<Report> pending;  // made under the lock, delivered after it

  // Dropped only when memory runs out: losing a report must not fail a set.
  void report(int kind, const std::string& file, unsigned long line,
              const std::string& reason) noexcept {
    try {
      pending.push_back({kind, file, line, reason});
    } catch (...) {
    }
  }

  int fail(int kind, const std::string& file, const Failure& why) {
    report(kind, file, 0, why.reason);
    errno = why.err;
    return -1;
  }

  void set_value(std::string_view name, std::string_view value) {
    const auto it = props.find(name);
    if (it == props.end()) {
      props.emplace(name, value);
    } else {
      it->second.assign(value);
    }
  }

  // Puts what a text holds into the store. Bad lines are counted, but only
  // the first few are reported, so that a file of nothing else costs no
  // memory per line.
  class Loader final : public kovani_host::TextVisitor {
   public:
    Loader(Store* store, const std::string& source, int kind)
        : store_(store), source_(source), kind_(kind) {}
    void entry(std::string_view name, std::string_view value) override {
      store_->set_value(name, value);
      ++set_;
    }
    void bad_line(unsigned long line, const char* reason) override {
      if (++bad_ <= KOVANI_HOST_PROPERTY_REPORTED_LINES_MAX) {
        store_->report(kind_, source_, line, reason);
      }
    }
    int set() const { return set_; }
    unsigned long bad() const { return bad_; }

   private:
    Store* const store_;
    const std::string& source_;
    const int kind_;
    int set_ = 0;
    unsigned long bad_ = 0;
  };

  // A wait for the persistence file's lock is told at once, not after the
  // call: the caller is blocked meanwhile.
  struct LockWaiter {
    const Reporter& reporter;
    const std::string& path;

    static void tell(const std::string& reason, void* cookie) {
      const auto* waiter = static_cast<const LockWaiter*>(cookie);
      waiter->reporter.tell(KOVANI_HOST_PROPERTY_WAITING, waiter->path.c_str(), 0, reason.c_str());
    }
  };

  // Returns the entries that set a property.
  int load_text_locked(const std::string& source, std::string_view text, unsigned long* bad_lines) {
    Loader loader(this, source, KOVANI_HOST_PROPERTY_LINE_SKIPPED);
    kovani_host::parse_profile(text, &loader);
    if (bad_lines != nullptr) *bad_lines = loader.bad();
    return loader.set();
  }

  // Returns -1 with errno set after an UNREADABLE report, or as
  // load_text_locked does.
  int load_file_locked(const char* path, unsigned long* bad_lines) {
    std::string text;
    Failure why;
    if (!kovani_host::read_file(path, &text, &why)) {
      return fail(KOVANI_HOST_PROPERTY_UNREADABLE, path, why);
    }
    return load_text_locked(path, text, bad_lines);
  }

  // Returns 0, or -1 with errno set after an UNREADABLE report.
  int attach_locked(const std::string& path) {
    std::string text;
    Failure why = failure(ENOENT);
    LockWaiter waiter{reporter, path};
    if (path.empty() ||
        !kovani_host::read_persist_file(path, {LockWaiter::tell, &waiter}, &text, &why)) {
      return fail(KOVANI_HOST_PROPERTY_UNREADABLE, path, why);
    }
    Loader loader(this, path, KOVANI_HOST_PROPERTY_LINE_KEPT);
    kovani_host::parse_persist(text, &loader);
    persist_path = path;
    return 0;
  }

  // Reports a change the file could not take; memory keeps it regardless.
  void persist_locked(const std::string& name, const std::string* value) {
    if (persist_path.empty()) return;
    Failure why;
    LockWaiter waiter{reporter, persist_path};
    try {
      if (kovani_host::rewrite_persist_file(persist_path, name, value, {LockWaiter::tell, &waiter},
                                            &why)) {
        return;
      }
    } catch (...) {
      why = failure(ENOMEM);
    }
    report(KOVANI_HOST_PROPERTY_UNWRITABLE, persist_path, 0, why.reason);
  }

  void init_locked() {
    if (initialised) return;
    initialised = true;
    const char* profile = std::getenv(kProfileEnv);
    if (profile != nullptr && *profile != '\0') load_file_locked(profile, nullptr);
    const char* persist = std::getenv(kPersistEnv);
    if (persist != nullptr && *persist != '\0') attach_locked(persist);
  }
};

// Never destroyed, so code running at exit can still read properties.
Store& store() {
  static Store* const instance = new Store;
  return *instance;
}

// Nothing may be thrown across the C interface; running out of memory is
// all that can throw.
template <typename Fn>
int guarded(int on_failure, Fn fn) noexcept {
  try {
    return fn();
  } catch (...) {
    errno = ENOMEM;
    return on_failure;
  }
}

// Runs fn on the initialised store under its lock, then hands the reports
// fn made to the reporter after unlocking, keeping fn's errno.
template <typename Fn>
int with_store(int on_failure, Fn fn) noexcept {
  return guarded(on_failure, [&] {
    Store& s = store();
    std::vector<Report> reports;
    Reporter reporter;
    int result;
    {
      const std::lock_guard<std::mutex> lock(s.mu);
      s.pending.clear();
      s.init_locked();
      result = fn(s);
      std::swap(reports, s.pending);
      reporter = s.reporter;
    }
    const int err = errno;
    for (const Report& r : reports) {
      reporter.tell(r.kind, r.file.c_str(), r.line, r.reason.c_str());
    }
    errno = err;
    return result;
  });
}

}  // namespace

extern "C" int property_get(const char* key, char* value, const char* default_value) {
  if (value == nullptr) return -1;
  const int len = with_store(-1, [&](Store& s) {
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
  // The default needs no allocation, so it is the answer on any failure.
  const std::size_t n = default_value == nullptr ? 0 : ::strnlen(default_value, kValueMax - 1);
  if (n > 0) std::memcpy(value, default_value, n);
  value[n] = '\0';
  return static_cast<int>(n);
}

extern "C" int property_set(const char* key, const char* value) {
  if (key == nullptr) return -1;
  return with_store(-1, [&](Store& s) {
    const std::string name(key);
    std::string val(value == nullptr ? "" : value);
    if (!kovani_host::is_valid_name(name) || kovani_host::value_problem(name, val) != nullptr) {
      return -1;
    }
    if (kovani_host::is_read_only(name) && s.props.count(name) != 0) return -1;
    std::string& stored = s.props[name];
    stored = std::move(val);
    // Still under the lock, so concurrent sets reach the file in order.
    if (kovani_host::is_persistent(name)) s.persist_locked(name, &stored);
    return 0;
  });
}

extern "C" void kovani_host_property_set_reporter(kovani_host_property_reporter fn, void* cookie) {
  // Does not load the environment's files, so it may come before them.
  (void)guarded(-1, [&] {
    Store& s = store();
    const std::lock_guard<std::mutex> lock(s.mu);
    s.reporter = Reporter{fn, cookie};
    return 0;
  });
}

extern "C" int kovani_host_property_load(const char* path, unsigned long* bad_lines) {
  if (path == nullptr) {
    errno = EINVAL;
    return -1;
  }
  return with_store(-1, [&](Store& s) { return s.load_file_locked(path, bad_lines); });
}

extern "C" int kovani_host_property_load_text(const char* source, const char* text, size_t size,
                                              unsigned long* bad_lines) {
  if (text == nullptr && size > 0) {
    errno = EINVAL;
    return -1;
  }
  return with_store(-1, [&](Store& s) {
    const std::string name = source == nullptr ? "-" : source;
    if (size > KOVANI_HOST_PROPERTY_FILE_MAX) {
      return s.fail(KOVANI_HOST_PROPERTY_UNREADABLE, name, kovani_host::too_large());
    }
    return s.load_text_locked(name, std::string_view(size > 0 ? text : "", size), bad_lines);
  });
}

extern "C" const char* kovani_host_property_problem(const char* name, const char* value) {
  if (name == nullptr || !kovani_host::is_valid_name(name)) return "invalid property name";
  return kovani_host::value_problem(name, value == nullptr ? "" : value);
}

extern "C" int kovani_host_property_seed(const char* name, const char* value) {
  if (name == nullptr) return -1;
  return with_store(-1, [&](Store& s) {
    if (!kovani_host::is_valid_name(name)) return -1;
    s.set_value(name, value == nullptr ? "" : value);
    return 0;
  });
}

extern "C" int kovani_host_property_unset(const char* name) {
  if (name == nullptr) return -1;
  return with_store(-1, [&](Store& s) {
    const std::string key(name);
    if (s.props.erase(key) == 0) return -1;
    if (kovani_host::is_persistent(key)) s.persist_locked(key, nullptr);
    return 0;
  });
}

extern "C" void kovani_host_property_reset(void) {
  // Leaves the environment's files unread.
  (void)guarded(-1, [] {
    Store& s = store();
    const std::lock_guard<std::mutex> lock(s.mu);
    s.props.clear();
    s.persist_path.clear();
    s.initialised = true;
    return 0;
  });
}

extern "C" int kovani_host_property_set_persist_file(const char* path) {
  return with_store(-1, [&](Store& s) {
    if (path == nullptr) {
      s.persist_path.clear();
      return 0;
    }
    return s.attach_locked(path);
  });
}

extern "C" int kovani_host_property_foreach(void (*fn)(const char* name, const char* value,
                                                       void* cookie),
                                            void* cookie) {
  std::vector<std::pair<std::string, std::string>> snapshot;
  if (with_store(-1, [&](Store& s) {
        snapshot.assign(s.props.begin(), s.props.end());
        return 0;
      }) != 0) {
    return -1;
  }
  // Called unlocked so fn may use the property functions itself.
  if (fn != nullptr) {
    for (const auto& entry : snapshot) fn(entry.first.c_str(), entry.second.c_str(), cookie);
  }
  return static_cast<int>(snapshot.size());
}
