#include "input/input.h"

#include <ctype.h>
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zip.h>

#include <algorithm>

#include "common/text.h"
#include "input/text_encoding.h"

namespace kovani_tool {
namespace {

// Enough of a file to tell a zip or a bug report from other text.
constexpr size_t kHeadSize = 4096;
// main_entry.txt names the report; a longer text is not such a name.
constexpr size_t kMainEntryMax = 1024;

// A file descriptor read from its start; streams (pipes, FIFOs, terminals)
// are waited for at most kIdleLimitSeconds at a time. The first bytes can be
// looked at before they are read.
class FdSource : public ByteSource {
 public:
  FdSource(int fd, bool owned, bool stream) : fd_(fd), owned_(owned), stream_(stream) {}
  ~FdSource() override {
    if (owned_) close(fd_);
  }
  FdSource(const FdSource&) = delete;
  FdSource& operator=(const FdSource&) = delete;

  // Up to size bytes from the start, kept to be read again; false on a
  // failure.
  bool Peek(size_t size, std::string_view* head) {
    head_.resize(size);
    size_t filled = 0;
    for (ssize_t n = 1; n > 0 && filled < size; filled += static_cast<size_t>(n)) {
      n = ReadFd(&head_[filled], size - filled);
      if (n < 0) return false;
    }
    head_.resize(filled);
    *head = head_;
    return true;
  }

  ssize_t Read(char* buf, size_t size) override {
    if (head_read_ < head_.size()) {
      const size_t n = std::min(size, head_.size() - head_read_);
      memcpy(buf, head_.data() + head_read_, n);
      head_read_ += n;
      return static_cast<ssize_t>(n);
    }
    return ReadFd(buf, size);
  }

  // Hands the descriptor over, for a reader that works on it alone.
  int Release() {
    owned_ = false;
    return fd_;
  }

 private:
  ssize_t ReadFd(char* buf, size_t size) {
    for (;;) {
      if (stream_ && !WaitReadable()) return -1;
      const ssize_t n = read(fd_, buf, size);
      if (n >= 0) return n;
      if (errno == EINTR || errno == EAGAIN) continue;
      error_ = strerror(errno);
      return -1;
    }
  }

  bool WaitReadable() {
    pollfd polled = {fd_, POLLIN, 0};
    for (;;) {
      const int ready = poll(&polled, 1, kIdleLimitSeconds * 1000);
      if (ready > 0) return true;
      if (ready < 0 && errno == EINTR) continue;
      error_ = ready == 0 ? "nothing arrived for " + std::to_string(kIdleLimitSeconds) + " s"
                          : strerror(errno);
      return false;
    }
  }

  int fd_;
  bool owned_;
  bool stream_;
  std::string head_;
  size_t head_read_ = 0;
};

// One entry of a zip archive, decompressed as it is read.
class ZipEntrySource : public ByteSource {
 public:
  ZipEntrySource(zip_t* archive, zip_file_t* file) : archive_(archive), file_(file) {}
  ~ZipEntrySource() override {
    zip_fclose(file_);
    zip_discard(archive_);
  }
  ZipEntrySource(const ZipEntrySource&) = delete;
  ZipEntrySource& operator=(const ZipEntrySource&) = delete;

  ssize_t Read(char* buf, size_t size) override {
    const zip_int64_t n = zip_fread(file_, buf, size);
    if (n < 0) error_ = zip_file_strerror(file_);
    return static_cast<ssize_t>(n);
  }

 private:
  zip_t* archive_;
  zip_file_t* file_;
};

bool IsZip(std::string_view head) {
  return head.substr(0, 4) == std::string_view("PK\3\4", 4) ||
         head.substr(0, 4) == std::string_view("PK\5\6", 4);
}

// dumpstate opens every bug report with this line, after a rule of '='.
bool IsBugReport(std::string_view head) {
  constexpr std::string_view kMarker = "== dumpstate: ";
  return head.substr(0, kMarker.size()) == kMarker ||
         head.find("\n" + std::string(kMarker)) != std::string_view::npos;
}

std::string ZipError(int code) {
  zip_error_t error;
  zip_error_init_with_code(&error, code);
  std::string text = zip_error_strerror(&error);
  zip_error_fini(&error);
  return text;
}

// The entry main_entry.txt names, if it names one.
zip_int64_t MainEntry(zip_t* archive) {
  const zip_int64_t index = zip_name_locate(archive, "main_entry.txt", 0);
  zip_file_t* file = index < 0 ? nullptr : zip_fopen_index(archive, index, 0);
  if (file == nullptr) return -1;
  char name[kMainEntryMax + 1];
  const zip_int64_t n = zip_fread(file, name, kMainEntryMax);
  zip_fclose(file);
  if (n <= 0 || n == static_cast<zip_int64_t>(kMainEntryMax)) return -1;
  std::string_view text(name, static_cast<size_t>(n));
  while (!text.empty() && isspace(static_cast<unsigned char>(text.back()))) text.remove_suffix(1);
  return zip_name_locate(archive, std::string(text).c_str(), 0);
}

// bugreport-<device>-<build>-<time>.txt at the top of the archive.
zip_int64_t ReportEntry(zip_t* archive) {
  const zip_int64_t main = MainEntry(archive);
  if (main >= 0) return main;
  const zip_int64_t count = zip_get_num_entries(archive, 0);
  for (zip_int64_t i = 0; i < count; ++i) {
    const char* name = zip_get_name(archive, static_cast<zip_uint64_t>(i), 0);
    const std::string_view entry = name == nullptr ? "" : name;
    if (entry.rfind("bugreport", 0) == 0 && entry.size() > 4 &&
        entry.substr(entry.size() - 4) == ".txt" && entry.find('/') == std::string_view::npos) {
      return i;
    }
  }
  return -1;
}

bool OpenZip(FdSource* file, Input* input, std::string* error) {
  int code = 0;
  const int fd = file->Release();
  zip_t* archive = zip_fdopen(fd, ZIP_RDONLY, &code);
  if (archive == nullptr) {
    close(fd);
    *error = "cannot read zip archive " + Quoted(input->name) + ": " + ZipError(code);
    return false;
  }
  const zip_int64_t index = ReportEntry(archive);
  if (index < 0) {
    zip_discard(archive);
    *error = Quoted(input->name) + " is a zip archive without a bug report (no bugreport-*.txt)";
    return false;
  }
  input->entry = zip_get_name(archive, static_cast<zip_uint64_t>(index), 0);
  zip_file_t* entry = zip_fopen_index(archive, static_cast<zip_uint64_t>(index), 0);
  if (entry == nullptr) {
    *error = "cannot read " + Shown(input->entry) + " in " + Quoted(input->name) + ": " +
             zip_strerror(archive);
    zip_discard(archive);
    return false;
  }
  input->kind = InputKind::kBugReportZip;
  input->source = std::make_unique<ZipEntrySource>(archive, entry);
  return true;
}

}  // namespace

ssize_t MemorySource::Read(char* buf, size_t size) {
  const size_t n = std::min(size, text_.size());
  memcpy(buf, text_.data(), n);
  text_.remove_prefix(n);
  return static_cast<ssize_t>(n);
}

bool OpenInput(const std::string& path, Input* input, std::string* error) {
  const bool from_stdin = path == "-";
  input->name = from_stdin ? "standard input" : path;
  // O_NONBLOCK: opening a FIFO does not wait for a writer.
  const int fd =
      from_stdin ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  struct stat st;
  if (fd < 0 || fstat(fd, &st) != 0) {
    *error = "cannot read " + Quoted(input->name) + ": " + strerror(errno);
    if (fd >= 0 && !from_stdin) close(fd);
    return false;
  }
  const bool regular = S_ISREG(st.st_mode);
  if (!from_stdin && !regular && !S_ISFIFO(st.st_mode)) {
    close(fd);
    *error = "cannot read " + Quoted(input->name) + ": " +
             (S_ISDIR(st.st_mode) ? "it is a directory" : "not a regular file or a pipe");
    return false;
  }
  // Standard input is read through a duplicate, which a zip reader may own.
  const int owned = from_stdin ? fcntl(fd, F_DUPFD_CLOEXEC, 0) : fd;
  if (owned < 0) {
    *error = "cannot read " + Quoted(input->name) + ": " + strerror(errno);
    return false;
  }
  auto file = std::make_unique<FdSource>(owned, true, !regular);
  std::string_view head;
  if (!file->Peek(kHeadSize, &head)) {
    *error = "cannot read " + Quoted(input->name) + ": " + file->error();
    return false;
  }
  if (IsZip(head)) {
    if (regular) return OpenZip(file.get(), input, error);
    *error = Quoted(input->name) + " is a zip archive: give it as a file name";
    return false;
  }
  input->encoding = EncodingOf(head);
  input->kind = IsBugReport(DecodedHead(input->encoding, head)) ? InputKind::kBugReportText
                                                                : InputKind::kText;
  input->source = DecodingSource(input->encoding, std::move(file));
  return true;
}

bool OpenText(const std::string& name, std::string_view text, Input* input, std::string* error) {
  input->name = name;
  if (IsZip(text)) {
    *error = Quoted(name) + " is a zip archive: give it as a file name";
    return false;
  }
  input->encoding = EncodingOf(text);
  input->kind = IsBugReport(DecodedHead(input->encoding, text.substr(0, kHeadSize)))
                    ? InputKind::kBugReportText
                    : InputKind::kText;
  input->source = DecodingSource(input->encoding, std::make_unique<MemorySource>(text));
  return true;
}

}  // namespace kovani_tool
