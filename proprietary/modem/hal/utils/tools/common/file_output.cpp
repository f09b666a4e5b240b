#include "common/file_output.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <random>

#include "common/text.h"

namespace kovani_tool {
namespace {

std::string Directory(const std::string& path) {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

// O_EXCL and O_NOFOLLOW: a name someone else made, file or link, is never
// opened; a few random names are tried before giving up.
int CreateTemporary(const std::string& path, std::string* temporary) {
  std::random_device random;
  int fd = -1;
  for (int attempt = 0; attempt < 16 && fd < 0; ++attempt) {
    char suffix[32];
    snprintf(suffix, sizeof(suffix), ".kovani-tmp%08x", static_cast<unsigned>(random()));
    *temporary = path + suffix;
    fd = open(temporary->c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
    if (fd < 0 && errno != EEXIST) break;
  }
  return fd;
}

bool WriteAll(int fd, const std::string& text) {
  for (size_t done = 0; done < text.size();) {
    const ssize_t n = write(fd, text.data() + done, text.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n == 0) errno = EIO;
    if (n <= 0) return false;
    done += static_cast<size_t>(n);
  }
  return true;
}

// The rename itself lasts only once its directory is on disk too.
void SyncDirectory(const std::string& path) {
  const int fd = open(Directory(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return;
  fsync(fd);
  close(fd);
}

}  // namespace

int ReplaceFile(const std::string& path, const std::function<void(Output*)>& write) {
  std::string temporary;
  const int fd = CreateTemporary(path, &temporary);
  if (fd < 0) return Fail("cannot write %s: %s", Shown(Quoted(path)).c_str(), strerror(errno));
  int error = 0;
  Output out([fd, &error](const std::string& text) {
    if (WriteAll(fd, text)) return 0;
    error = errno;
    return kExitFailed;
  });
  write(&out);
  bool ok = out.Finish() == 0;
  if (ok && fsync(fd) != 0) ok = false, error = errno;
  if (close(fd) != 0 && ok) ok = false, error = errno;
  if (ok && rename(temporary.c_str(), path.c_str()) != 0) ok = false, error = errno;
  if (!ok) {
    unlink(temporary.c_str());
    return Fail("cannot write %s: %s", Shown(Quoted(path)).c_str(), strerror(error));
  }
  SyncDirectory(path);
  return 0;
}

}  // namespace kovani_tool
