// Where the tool's input bytes come from: a file, a pipe, a zip entry or
// text already in memory, read front to back.

#ifndef KOVANI_TOOLS_INPUT_BYTE_SOURCE_H
#define KOVANI_TOOLS_INPUT_BYTE_SOURCE_H

#include <stddef.h>
#include <sys/types.h>

#include <string>
#include <string_view>

namespace kovani_tool {

// Longest wait for the next bytes of a pipe, FIFO or terminal.
constexpr int kIdleLimitSeconds = 30;

class ByteSource {
 public:
  virtual ~ByteSource() = default;
  // Up to size bytes into buf: their count, 0 at the end, or -1 after
  // setting error() (a reason, without the input's name).
  virtual ssize_t Read(char* buf, size_t size) = 0;
  const std::string& error() const { return error_; }

 protected:
  std::string error_;
};

// Text held by the caller, who keeps it alive while it is read.
class MemorySource : public ByteSource {
 public:
  explicit MemorySource(std::string_view text) : text_(text) {}
  ssize_t Read(char* buf, size_t size) override;

 private:
  std::string_view text_;
};

}  // namespace kovani_tool

#endif  // KOVANI_TOOLS_INPUT_BYTE_SOURCE_H
