// What the tool reads: files, standard input, a bug report zip's entry or
// text in memory, streamed in large blocks of whole lines.

#ifndef KOVANI_TOOLS_INPUT_SOURCE_H
#define KOVANI_TOOLS_INPUT_SOURCE_H

#include <stdarg.h>
#include <stddef.h>
#include <sys/types.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

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

enum class InputKind { kText, kBugReportText, kBugReportZip };

struct Input {
  std::string name;   // as the user gave it, or "standard input"
  std::string entry;  // the bug report's name inside a zip
  InputKind kind = InputKind::kText;
  std::unique_ptr<ByteSource> source;  // from the first byte of the text
};

// printf's text of format and args, however long.
std::string Formatted(const char* format, va_list args) __attribute__((format(printf, 1, 0)));

// Bytes from outside the tool as text output shows them: control
// characters, which a terminal would act on, as \xNN.
std::string Shown(std::string_view text);

// An input's name as messages show it: quoted, unless it is standard input.
std::string Quoted(const std::string& name);

// A line without the '\r' of a CRLF end.
std::string_view WithoutCr(std::string_view line);

// Opens path ("-" is standard input) and tells its kind from its content: a
// zip archive holding a bug report, a bug report's text, or other text.
// False with *error naming the input and the reason.
bool OpenInput(const std::string& path, Input* input, std::string* error);

// Opens text already in memory, such as standard input read whole, the same
// way; a zip is refused there.
bool OpenText(const std::string& name, std::string_view text, Input* input, std::string* error);

// Hands a source out in blocks of whole lines: a block ends after a '\n',
// except the input's unterminated last line and the pieces of a line longer
// than the buffer.
class BlockReader {
 public:
  static constexpr size_t kCapacity = 1u << 20;

  explicit BlockReader(ByteSource* source, size_t capacity = kCapacity);
  // The next block; false at the end, or on a failure (failed()).
  bool Next(std::string_view* block);
  bool failed() const { return failed_; }

 private:
  ByteSource* source_;
  std::vector<char> buffer_;
  size_t carried_from_ = 0;
  size_t filled_ = 0;
  bool ended_ = false;
  bool failed_ = false;
};

}  // namespace kovani_tool

#endif  // KOVANI_TOOLS_INPUT_SOURCE_H
