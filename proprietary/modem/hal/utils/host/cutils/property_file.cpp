#include "property_file.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "kovani_host_properties.h"
#include "property_text.h"

namespace kovani_host {
namespace {

constexpr char kNotRegular[] = "not a regular file";
constexpr char kTooLarge[] = "larger than 64 MiB";
constexpr char kNotPersistFile[] = "does not look like a persistence file";
constexpr char kTempInfix[] = ".kovani-tmp.";
constexpr std::size_t kFileMax = KOVANI_HOST_PROPERTY_FILE_MAX;
static_assert(kFileMax == 64u * 1024u * 1024u, "kTooLarge names the limit");
constexpr std::chrono::seconds kLockTimeout(10);
constexpr std::chrono::seconds kLockTimeoutMax(1000000000);  // far, but within a steady_clock
constexpr std::chrono::seconds kLockNoticeAfter(1);

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
    *why = too_large();
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
      *why = too_large();
      return false;
    }
    out->append(buf, static_cast<std::size_t>(n));
  }
}

std::string dir_of(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

// ---------------------------------------------------------------------------
// Links

// The kernel's protected-symlinks rule, applied whatever the sysctl says:
// another user's link in a sticky world-writable folder such as /tmp may
// have been planted there to make this process write where its owner may
// not.
bool may_follow(const std::string& link, const struct stat& st, Failure* why) {
  struct stat dir {};
  if (::stat(dir_of(link).c_str(), &dir) != 0) {
    *why = failure(errno);
    return false;
  }
  constexpr mode_t kSharedDir = S_ISVTX | S_IWOTH;
  if ((dir.st_mode & kSharedDir) == kSharedDir && st.st_uid != ::geteuid() &&
      st.st_uid != dir.st_uid) {
    *why = failure(EACCES, "refusing to follow the symbolic link " + link +
                               ", which another user owns in a sticky world-writable folder");
    return false;
  }
  return true;
}

// Follows symbolic links from path to the file they end at. A link to a
// missing file is refused, since the store would create the file wherever
// the link's owner pointed it.
bool follow_links(const std::string& path, std::string* target, Failure* why) {
  std::string p = path;
  std::string last_link;
  for (int hops = 0; hops < 40; ++hops) {
    struct stat st {};
    if (::lstat(p.c_str(), &st) != 0 && errno == ENOENT && !last_link.empty()) {
      *why = failure(ENOENT, "refusing to create " + p + " through the symbolic link " + last_link);
      return false;
    }
    if (!S_ISLNK(st.st_mode)) {
      *target = p;
      return true;  // open reports anything else
    }
    if (!may_follow(p, st, why)) return false;
    std::vector<char> buf(PATH_MAX);
    const ssize_t n = ::readlink(p.c_str(), buf.data(), buf.size());
    if (n <= 0 || static_cast<std::size_t>(n) == buf.size()) {
      *why = failure(n < 0 ? errno : ENAMETOOLONG);
      return false;
    }
    std::string dest(buf.data(), static_cast<std::size_t>(n));
    const std::size_t slash = p.rfind('/');
    if (dest[0] != '/' && slash != std::string::npos) dest = p.substr(0, slash + 1) + dest;
    last_link = std::move(p);
    p = std::move(dest);
  }
  *why = failure(ELOOP);
  return false;
}

// ---------------------------------------------------------------------------
// Locking

// Whole seconds from the environment, if it holds a number of them.
std::chrono::seconds lock_timeout() {
  const char* text = std::getenv(KOVANI_HOST_PROPERTY_LOCK_TIMEOUT_ENV);
  if (text == nullptr || *text < '0' || *text > '9') return kLockTimeout;
  char* end = nullptr;
  const unsigned long long seconds = std::strtoull(text, &end, 10);
  if (*end != '\0') return kLockTimeout;
  return std::chrono::seconds(std::min<unsigned long long>(seconds, kLockTimeoutMax.count()));
}

// One blocking flock() on a helper thread, which its caller may stop
// waiting for.
struct BlockingFlock {
  std::mutex mu;
  std::condition_variable cv;
  bool done = false;
  int err = 0;
};

// A helper stays blocked after its caller gave up until the holder lets go;
// a holder that never does must not cost a thread per change.
std::atomic<int> blocked_helpers{0};
constexpr int kMaxBlockedHelpers = 4;

// nullptr with why->err 0 when enough helpers are already blocked.
std::shared_ptr<BlockingFlock> start_blocking_flock(int fd, Failure* why) {
  if (blocked_helpers.fetch_add(1) >= kMaxBlockedHelpers) {
    blocked_helpers.fetch_sub(1);
    return nullptr;
  }
  auto call = std::make_shared<BlockingFlock>();
  // The helper's own descriptor of the same open file, which the lock
  // belongs to: if the caller has given up and closed its own by the time
  // the lock comes, closing this one drops it again.
  const int own = ::fcntl(fd, F_DUPFD_CLOEXEC, 0);
  if (own < 0) {
    blocked_helpers.fetch_sub(1);
    *why = failure(errno);
    return nullptr;
  }
  try {
    std::thread([call, own] {
      int rc;
      while ((rc = ::flock(own, LOCK_EX)) != 0 && errno == EINTR) {
      }
      const int err = rc == 0 ? 0 : errno;
      ::close(own);
      blocked_helpers.fetch_sub(1);
      const std::lock_guard<std::mutex> lock(call->mu);
      call->done = true;
      call->err = err;
      call->cv.notify_all();
    }).detach();
  } catch (const std::system_error& e) {
    ::close(own);
    blocked_helpers.fetch_sub(1);
    *why = failure(e.code().value());
    return nullptr;
  }
  return call;
}

// A bounded wait for the persistence file's lock. flock() cannot time out
// without a signal, which a library may not take over; and polling it would
// let a process that changes the file in a loop take the lock back, again
// and again, before any poller looks. So a busy lock is waited for by a
// blocking call on a helper thread, which the kernel wakes as soon as the
// lock comes free, and the caller waits for that up to the time limit. Only
// when earlier waits' helpers are still blocked does it poll.
class LockWait {
 public:
  explicit LockWait(const LockWaitNotice& notice)
      : notice_(notice), limit_(lock_timeout()), start_(Clock::now()) {}

  bool lock(int fd, Failure* why) {
    int rc;
    while ((rc = ::flock(fd, LOCK_EX | LOCK_NB)) != 0 && errno == EINTR) {
    }
    if (rc == 0) return true;
    if (errno != EWOULDBLOCK) {
      *why = failure(errno);
      return false;
    }
    const Clock::time_point deadline = start_ + limit_;
    bool locked = false;
    if (Clock::now() < deadline) {
      *why = Failure{};
      const std::shared_ptr<BlockingFlock> call = start_blocking_flock(fd, why);
      if (call != nullptr) return wait_for(call.get(), deadline, why);
      if (why->err != 0) return false;
      locked = poll(fd, deadline, why);
      if (!locked && why->err != 0) return false;
    }
    if (!locked) *why = still_locked();
    return locked;
  }

 private:
  using Clock = std::chrono::steady_clock;

  bool wait_for(BlockingFlock* call, Clock::time_point deadline, Failure* why) {
    std::unique_lock<std::mutex> lock(call->mu);
    const auto done = [call] { return call->done; };
    bool locked = call->cv.wait_until(lock, std::min(start_ + kLockNoticeAfter, deadline), done);
    if (!locked && Clock::now() < deadline) {
      lock.unlock();  // the notice may take its time
      notice();
      lock.lock();
      locked = call->cv.wait_until(lock, deadline, done);
    }
    if (!locked) {
      *why = still_locked();
      return false;
    }
    if (call->err != 0) {
      *why = failure(call->err);
      return false;
    }
    return true;
  }

  bool poll(int fd, Clock::time_point deadline, Failure* why) {
    for (;;) {
      if (Clock::now() >= start_ + kLockNoticeAfter) notice();
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
      if (::flock(fd, LOCK_EX | LOCK_NB) == 0) return true;
      if (errno != EWOULDBLOCK && errno != EINTR) {
        *why = failure(errno);
        return false;
      }
      if (Clock::now() >= deadline) return false;
    }
  }

  void notice() {
    if (noticed_) return;
    noticed_ = true;
    notice_.fn("locked by another process; waiting up to " + seconds() + " s", notice_.cookie);
  }

  Failure still_locked() const {
    return failure(EWOULDBLOCK, "still locked by another process after " + seconds() + " s");
  }

  std::string seconds() const { return std::to_string(limit_.count()); }

  const LockWaitNotice& notice_;
  const std::chrono::seconds limit_;
  const Clock::time_point start_;
  bool noticed_ = false;
};

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
Lock lock_file(const std::string& path, bool create, const LockWaitNotice& notice, Locked* f,
               Failure* why) {
  LockWait wait(notice);
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
    if (!wait.lock(f->fd.get(), why)) return Lock::kFailed;
    struct stat now {};
    if (::lstat(target, &now) == 0 && now.st_dev == f->st.st_dev && now.st_ino == f->st.st_ino) {
      f->st = now;
      if (now.st_nlink == 1) return Lock::kLocked;
      // Replacing one name would leave the others with the old text.
      *why = failure(EMLINK, "has " + std::to_string(now.st_nlink) +
                                 " hard links, which a rewrite would split");
      return Lock::kFailed;
    }
    last = EAGAIN;
  }
  *why = failure(last);
  return Lock::kFailed;
}

// ---------------------------------------------------------------------------
// Temporaries

// When process pid started, in clock ticks since boot, which tells it from
// a later process under the same pid; 0 when /proc cannot tell.
unsigned long long start_time(pid_t pid) {
  std::string stat;
  Failure ignored;
  if (!read_file(("/proc/" + std::to_string(pid) + "/stat").c_str(), &stat, &ignored)) return 0;
  // Blanks are counted from the name's end, since the name may hold them;
  // the one after it opens field 3 and the start time is field 22.
  const std::size_t name_end = stat.rfind(')');
  if (name_end == std::string::npos) return 0;
  const char* blank = stat.c_str() + name_end;
  for (int field = 3; field <= 22 && blank != nullptr; ++field) blank = std::strchr(blank + 1, ' ');
  return blank == nullptr ? 0 : std::strtoull(blank + 1, nullptr, 10);
}

// Known only from the name: a cut name would match the temporaries of every
// longer name that shares its start.
std::uint64_t name_hash(std::string_view name) {
  std::uint64_t hash = 0xcbf29ce484222325u;  // FNV-1a
  for (unsigned char c : name) hash = (hash ^ c) * 0x100000001b3u;
  return hash;
}

// "<name>.kovani-tmp.<hash of name>.", the name cut to leave room for the
// writer's pid and start time and the random part within NAME_MAX.
std::string temp_prefix(const std::string& target) {
  const std::string name = target.substr(target.rfind('/') + 1);
  char hash[17];
  (void)std::snprintf(hash, sizeof hash, "%016llx",
                      static_cast<unsigned long long>(name_hash(name)));
  return name.substr(0, 128) + kTempInfix + hash + '.';
}

// The process that made a temporary.
struct Writer {
  pid_t pid;
  unsigned long long start;
};

// The writer that a temporary of the file with that prefix names, if name
// is one: "<prefix><pid>.<start time>.XXXXXX".
bool parse_temp_name(std::string_view name, std::string_view prefix, Writer* writer) {
  if (name.substr(0, prefix.size()) != prefix) return false;
  const std::string rest(name.substr(prefix.size()));
  char* end = nullptr;
  const unsigned long pid = std::strtoul(rest.c_str(), &end, 10);
  if (end == rest.c_str() || *end != '.' || pid == 0 || pid > INT_MAX) return false;
  const char* start = end + 1;
  *writer = Writer{static_cast<pid_t>(pid), std::strtoull(start, &end, 10)};
  return end != start && *end == '.' && std::strlen(end + 1) == 6;
}

std::string temp_template(const std::string& target) {
  const pid_t self = ::getpid();
  return dir_of(target) + '/' + temp_prefix(target) + std::to_string(self) + '.' +
         std::to_string(start_time(self)) + ".XXXXXX";
}

bool is_gone(const Writer& writer) {
  if (start_time(::getpid()) == 0) return false;  // no /proc to ask
  return start_time(writer.pid) != writer.start;
}

// Only a temporary whose writer died with it: a regular file of this user's,
// unlocked (writers lock theirs from the start), made by a process that no
// longer runs. Anything else under such a name is left alone.
void remove_if_stale(int dir, const std::string& name, const Writer& writer) {
  const Fd fd(
      ::openat(dir, name.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_NOFOLLOW | O_CLOEXEC));
  struct stat st {};
  if (fd.get() < 0 || ::fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode) ||
      st.st_uid != ::geteuid() || ::flock(fd.get(), LOCK_EX | LOCK_NB) != 0 || !is_gone(writer)) {
    return;
  }
  struct stat now {};
  if (::fstatat(dir, name.c_str(), &now, AT_SYMLINK_NOFOLLOW) == 0 && now.st_dev == st.st_dev &&
      now.st_ino == st.st_ino) {
    (void)::unlinkat(dir, name.c_str(), 0);
  }
}

void remove_stale_temporaries(const std::string& target) {
  const std::string prefix = temp_prefix(target);
  DIR* dir = ::opendir(dir_of(target).c_str());
  if (dir == nullptr) return;
  std::vector<std::pair<std::string, Writer>> found;
  Writer writer{};
  while (const dirent* e = ::readdir(dir)) {
    if (parse_temp_name(e->d_name, prefix, &writer)) found.emplace_back(e->d_name, writer);
  }
  for (const auto& [name, made_by] : found) remove_if_stale(::dirfd(dir), name, made_by);
  ::closedir(dir);
}

// ---------------------------------------------------------------------------
// Rewriting

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

// What get(buffer, size) fills, sized first by get(nullptr, 0).
template <typename Get>
bool read_sized(Get get, std::string* out) {
  for (;;) {
    const ssize_t size = get(nullptr, 0);
    if (size < 0) return false;
    out->resize(static_cast<std::size_t>(size));
    const ssize_t n = get(&(*out)[0], out->size());
    if (n >= 0) {
      out->resize(static_cast<std::size_t>(n));
      return true;
    }
    if (errno != ERANGE) return false;  // it grew between the calls
  }
}

// The file's extended attributes, POSIX ACLs among them. A file that would
// lose one is not replaced: without its ACL, the mask that the mode's group
// bits show would become the group's own permission.
bool copy_attributes(int from, int to, Failure* why) {
  std::string names;
  const auto list = [from](char* buf, std::size_t size) { return ::flistxattr(from, buf, size); };
  if (!read_sized(list, &names)) {
    if (errno == ENOTSUP) return true;  // a file system without them
    *why = failure(errno);
    return false;
  }
  std::string value;
  for (std::size_t at = 0; at < names.size(); at += std::strlen(&names[at]) + 1) {
    const char* name = &names[at];
    const auto get = [from, name](char* buf, std::size_t size) {
      return ::fgetxattr(from, name, buf, size);
    };
    if (!read_sized(get, &value) || ::fsetxattr(to, name, value.data(), value.size(), 0) != 0) {
      const int err = errno;
      *why = failure(
          err, std::string("cannot keep extended attribute ") + name + ": " + std::strerror(err));
      return false;
    }
  }
  return true;
}

// Temporary file, fsync and rename: a crash leaves the old or new file.
bool replace_file(Locked* f, const std::string& data, Failure* why) {
  std::string tmp = temp_template(f->target);
  // O_CREAT|O_EXCL: never opens what an attacker planted under that name.
  const Fd fd(::mkostemp(&tmp[0], O_CLOEXEC));
  if (fd.get() < 0) {
    *why = failure(errno);
    return false;
  }
  // Locked from the start, so that a live writer's temporary is never taken
  // for a dead one's. The lock goes with it when it takes the file's place,
  // so that a writer waiting on the old file queues on this one while the
  // folder is synced, rather than racing this process's next change for it,
  // which it would mostly lose.
  struct stat st {};
  bool ok = ::flock(fd.get(), LOCK_EX | LOCK_NB) == 0 && write_all(fd.get(), data) &&
            ::fstat(fd.get(), &st) == 0;
  if (ok && (st.st_uid != f->st.st_uid || st.st_gid != f->st.st_gid) &&
      ::fchown(fd.get(), f->st.st_uid, f->st.st_gid) != 0) {
    (void)::fchown(fd.get(), static_cast<uid_t>(-1), f->st.st_gid);  // at least the group
  }
  Failure attributes;
  ok = ok && ::fchmod(fd.get(), f->st.st_mode & 07777) == 0 &&
       copy_attributes(f->fd.get(), fd.get(), &attributes) && ::fsync(fd.get()) == 0 &&
       ::rename(tmp.c_str(), f->target.c_str()) == 0;
  if (!ok) {
    *why = attributes.err != 0 ? attributes : failure(errno);
    ::unlink(tmp.c_str());
    return false;
  }
  f->fd.reset();
  // Makes the rename durable; without it a crash still leaves a whole file.
  const Fd dfd(::open(dir_of(f->target).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (dfd.get() >= 0) (void)::fsync(dfd.get());
  return true;
}

bool rewrite_locked(Locked* f, const std::string& name, const std::string* value, bool* replaced,
                    Failure* why) {
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
    *why = too_large();
    return false;
  }
  *replaced = replace_file(f, updated, why);
  return *replaced;
}

}  // namespace

Failure failure(int err, std::string reason) {
  return {err, reason.empty() ? std::strerror(err) : std::move(reason)};
}

Failure too_large() { return failure(EFBIG, kTooLarge); }

// O_NONBLOCK so that opening a FIFO never waits for a writer.
bool read_file(const char* path, std::string* out, Failure* why) {
  const Fd fd(::open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (fd.get() < 0) {
    *why = failure(errno);
    return false;
  }
  return read_regular(fd.get(), out, why);
}

bool read_persist_file(const std::string& path, const LockWaitNotice& notice, std::string* text,
                       Failure* why) {
  text->clear();
  Locked f;
  switch (lock_file(path, false, notice, &f, why)) {
    case Lock::kFailed:
      return false;
    case Lock::kMissing:
      return true;
    case Lock::kLocked:
      break;
  }
  remove_stale_temporaries(f.target);
  if (!read_regular(f.fd.get(), text, why)) return false;
  if (is_foreign(*text)) {
    *why = failure(EINVAL, kNotPersistFile);
    return false;
  }
  return true;
}

bool rewrite_persist_file(const std::string& path, const std::string& name,
                          const std::string* value, const LockWaitNotice& notice, Failure* why) {
  Locked f;
  if (lock_file(path, true, notice, &f, why) != Lock::kLocked) return false;
  bool replaced = false;
  const bool ok = rewrite_locked(&f, name, value, &replaced, why);
  // Still locked: waiters see the path gone and look again.
  if (f.created && !replaced) ::unlink(f.target.c_str());
  return ok;
}

}  // namespace kovani_host
