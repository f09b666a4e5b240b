// The host property store's files on disk: reading a profile, and reading
// and rewriting the persistence file under its lock. Internal to libcutils.
#ifndef KOVANI_HOST_PROPERTY_FILE_H
#define KOVANI_HOST_PROPERTY_FILE_H

#include <string>

namespace kovani_host {

// Why a file could not be read or written: errno and the text to report.
struct Failure {
  int err = 0;
  std::string reason;
};

// reason defaults to errno's text.
Failure failure(int err, std::string reason = {});

// The failure of text larger than KOVANI_HOST_PROPERTY_FILE_MAX.
Failure too_large();

// Reads a regular file of at most KOVANI_HOST_PROPERTY_FILE_MAX bytes
// without ever blocking on it.
bool read_file(const char* path, std::string* out, Failure* why);

// Told once when the persistence file's lock has been held by someone else
// for a while; reason says how long the store will still wait.
struct LockWaitNotice {
  void (*fn)(const std::string& reason, void* cookie);
  void* cookie;
};

// Reads the persistence file at path under its lock, after removing what
// dead writers left of it. A missing file reads as empty.
bool read_persist_file(const std::string& path, const LockWaitNotice& notice, std::string* text,
                       Failure* why);

// Applies one change to the persistence file as it is on disk now: name set
// to *value, or removed when value is null.
bool rewrite_persist_file(const std::string& path, const std::string& name,
                          const std::string* value, const LockWaitNotice& notice, Failure* why);

}  // namespace kovani_host

#endif  // KOVANI_HOST_PROPERTY_FILE_H
