#include "adb/adb_runner.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <iterator>
#include <sstream>

#include "common/text.h"

extern char** environ;

namespace kovani_tool {
namespace {

// A signal that asked the tool to stop while adb ran, or 0.
volatile sig_atomic_t g_stop_signal = 0;

void OnSignal(int sig) {
  if (sig != SIGCHLD) g_stop_signal = sig;
}

// adb runs in a process group of its own, so the terminal's signals reach
// only the tool, which passes them on by killing that group. They and adb's
// exit are blocked except inside ppoll, so none slips in between a check and
// the wait. A stop signal is raised again once adb is gone.
class AdbSignals {
 public:
  AdbSignals() {
    g_stop_signal = 0;
    struct sigaction on_signal = {};
    on_signal.sa_handler = OnSignal;
    sigset_t blocked;
    sigemptyset(&blocked);
    for (size_t i = 0; i < std::size(kSignals); ++i) {
      sigaddset(&blocked, kSignals[i]);
      sigaction(kSignals[i], nullptr, &previous_[i]);
      // A stop signal that is ignored (nohup) stays ignored; SIGCHLD never
      // is, or adb would be reaped unseen.
      if (previous_[i].sa_handler != SIG_IGN || kSignals[i] == SIGCHLD) {
        sigaction(kSignals[i], &on_signal, nullptr);
      }
    }
    sigprocmask(SIG_BLOCK, &blocked, &mask_);
    waiting_ = mask_;
    for (int sig : kSignals) sigdelset(&waiting_, sig);
  }
  ~AdbSignals() {
    for (size_t i = 0; i < std::size(kSignals); ++i) sigaction(kSignals[i], &previous_[i], nullptr);
    sigprocmask(SIG_SETMASK, &mask_, nullptr);
    if (g_stop_signal != 0) raise(g_stop_signal);
  }
  AdbSignals(const AdbSignals&) = delete;
  AdbSignals& operator=(const AdbSignals&) = delete;

  const sigset_t& mask() const { return mask_; }        // the tool's own, adb's too
  const sigset_t& waiting() const { return waiting_; }  // inside ppoll

 private:
  static constexpr int kSignals[] = {SIGCHLD, SIGHUP, SIGINT, SIGQUIT, SIGTERM};
  struct sigaction previous_[std::size(kSignals)];
  sigset_t mask_;
  sigset_t waiting_;
};

// One read from a pipe that poll found ready; false with errno set. At end
// of file the pipe drops out of later polls.
bool ReadReady(pollfd* pipe, std::string* into) {
  if (pipe->revents == 0) return true;
  char buf[65536];
  const ssize_t n = read(pipe->fd, buf, sizeof(buf));
  if (n < 0) return errno == EINTR;
  if (n == 0) pipe->fd = -1;
  into->append(buf, static_cast<size_t>(n));
  return true;
}

enum class AdbEnd { kExited, kTimedOut, kStopped, kReadFailed };

// What became of one run of adb.
struct AdbRun {
  int spawn_error = 0;
  AdbEnd end = AdbEnd::kExited;
  int read_error = 0;
  int status = 0;   // as waitpid gives it
  std::string err;  // the tail of its standard error
};

// Reads adb's standard output into *out and the tail of its standard error
// until adb has exited and both pipes are drained: adb's forked server may
// hold them open for ever, so end of file is not awaited. adb is always
// reaped; unless it exited by itself, its whole group is killed first.
void CollectAdb(pid_t pid, pollfd (&pipes)[2], std::chrono::steady_clock::time_point deadline,
                const sigset_t& waiting, size_t max_out, std::string* out, AdbRun* run) {
  constexpr size_t kErrTail = 4096;
  bool exited = false;
  while (run->end == AdbEnd::kExited) {
    if (!exited) exited = waitpid(pid, &run->status, WNOHANG) == pid;
    const auto left = deadline - std::chrono::steady_clock::now();
    if (g_stop_signal != 0) {
      run->end = AdbEnd::kStopped;
    } else if (exited && pipes[0].fd < 0 && pipes[1].fd < 0) {
      break;
    } else if (left <= std::chrono::steady_clock::duration::zero()) {
      run->end = AdbEnd::kTimedOut;
    } else {
      const long long ns = exited ? 0 : std::chrono::nanoseconds(left).count();
      const timespec wait = {static_cast<time_t>(ns / 1000000000),
                             static_cast<long>(ns % 1000000000)};
      const int ready = ppoll(pipes, 2, &wait, &waiting);
      if (ready == 0 && exited) break;
      if (ready < 0 ? errno != EINTR
                    : !ReadReady(&pipes[0], out) || !ReadReady(&pipes[1], &run->err)) {
        run->read_error = errno;
      } else if (out->size() > max_out) {
        run->read_error = EFBIG;
      }
      if (run->read_error != 0) run->end = AdbEnd::kReadFailed;
      if (run->err.size() > kErrTail) run->err.erase(0, run->err.size() - kErrTail);
    }
  }
  if (run->end != AdbEnd::kExited) {
    kill(-pid, SIGKILL);
    if (!exited) waitpid(pid, &run->status, 0);
  }
}

// Runs adb in a process group of its own with its standard output and error
// on pipes, for at most timeout seconds.
AdbRun StartAdb(const std::vector<std::string>& args, int timeout, size_t max_out,
                std::string* out) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(timeout);
  std::vector<char*> argv = {const_cast<char*>("adb")};
  for (const std::string& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
  argv.push_back(nullptr);
  AdbRun run;
  const AdbSignals signals;
  int fds[2][2] = {{-1, -1}, {-1, -1}};  // standard output, standard error
  if (pipe2(fds[0], O_CLOEXEC) != 0 || pipe2(fds[1], O_CLOEXEC) != 0) run.spawn_error = errno;
  pid_t pid = -1;
  if (run.spawn_error == 0) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, fds[0][1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, fds[1][1], STDERR_FILENO);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK);
    posix_spawnattr_setpgroup(&attributes, 0);
    posix_spawnattr_setsigmask(&attributes, &signals.mask());
    run.spawn_error = posix_spawnp(&pid, "adb", &actions, &attributes, argv.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
  }
  for (const int fd : {fds[0][1], fds[1][1]}) {
    if (fd >= 0) close(fd);
  }
  pollfd pipes[2] = {{fds[0][0], POLLIN, 0}, {fds[1][0], POLLIN, 0}};
  if (run.spawn_error == 0) CollectAdb(pid, pipes, deadline, signals.waiting(), max_out, out, &run);
  for (const int fd : {fds[0][0], fds[1][0]}) {
    if (fd >= 0) close(fd);
  }
  return run;
}

}  // namespace

// Runs adb with args for at most timeout seconds, with at most max_out bytes
// of its standard output in *out; false with *error telling why.
bool RunAdb(const std::vector<std::string>& args, int timeout, std::string* out, std::string* error,
            size_t max_out) {
  const AdbRun run = StartAdb(args, timeout, max_out, out);
  std::string command = "adb";
  for (const std::string& arg : args) command += " " + Shown(arg);
  std::istringstream lines(run.err);
  std::string message;
  for (std::string line; std::getline(lines, line);) {
    if (!line.empty() && line[0] != '*') message = line;
  }
  const bool exited = run.spawn_error == 0 && run.end == AdbEnd::kExited;
  // POSIX lets a spawn succeed and the child exit 127 instead (qemu-user's
  // does), so a silent 127 means the same.
  const bool silent_127 = exited && WIFEXITED(run.status) && WEXITSTATUS(run.status) == 127 &&
                          out->empty() && message.empty();
  if (run.spawn_error == ENOENT || silent_127) {
    *error = "adb not found on PATH (Debian's adb package provides it)";
  } else if (run.spawn_error != 0) {
    *error = std::string("cannot run adb: ") + strerror(run.spawn_error);
  } else if (run.end == AdbEnd::kTimedOut) {
    *error = command + " did not finish within " + std::to_string(timeout) +
             " s (--timeout); stopped it";
  } else if (run.end == AdbEnd::kStopped) {
    *error = command + " stopped: " + strsignal(g_stop_signal);
  } else if (run.end == AdbEnd::kReadFailed) {
    *error = "cannot read from adb: " + std::string(strerror(run.read_error));
  } else if (!WIFEXITED(run.status) || WEXITSTATUS(run.status) != 0) {
    *error = command + " failed" + (message.empty() ? "" : ": " + Shown(message));
  }
  return error->empty();
}

}  // namespace kovani_tool
