#include "block_reader.h"

#include <string.h>

#include <algorithm>

namespace kovani_tool {

BlockReader::BlockReader(ByteSource* source, size_t capacity)
    : source_(source), buffer_(capacity) {}

// Reads until a newline arrives, the buffer is full or the input ends.
bool BlockReader::Fill() {
  char* const buf = buffer_.data();
  while (!ended_ && filled_ < buffer_.size()) {
    const ssize_t n = source_->Read(buf + filled_, buffer_.size() - filled_);
    if (n < 0) {
      failed_ = true;
      return false;
    }
    ended_ = n == 0;
    const bool has_newline = memchr(buf + filled_, '\n', static_cast<size_t>(n)) != nullptr;
    filled_ += static_cast<size_t>(n);
    if (has_newline) break;
  }
  return true;
}

bool BlockReader::Next(std::string_view* block) {
  char* buf = buffer_.data();
  memmove(buf, buf + carried_from_, filled_ - carried_from_);
  filled_ -= carried_from_;
  carried_from_ = 0;
  const char* last_newline = nullptr;
  for (;;) {
    if (!Fill()) return false;
    last_newline = static_cast<const char*>(memrchr(buffer_.data(), '\n', filled_));
    if (last_newline != nullptr || ended_ || buffer_.size() >= kLineMax) break;
    buffer_.resize(std::min(buffer_.size() * 2, kLineMax));
  }
  buf = buffer_.data();
  if (filled_ == 0) return false;
  cut_ = !ended_ && last_newline == nullptr;
  const size_t end =
      ended_ || last_newline == nullptr ? filled_ : static_cast<size_t>(last_newline - buf) + 1;
  *block = std::string_view(buf, end);
  carried_from_ = end;
  return true;
}

}  // namespace kovani_tool
