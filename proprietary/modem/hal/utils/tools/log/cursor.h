// A reading position in one line of a log.

#ifndef KOVANI_TOOLS_LOG_CURSOR_H
#define KOVANI_TOOLS_LOG_CURSOR_H

#include <stddef.h>
#include <stdint.h>

#include <string_view>

#include "common/text.h"

namespace kovani_tool {

class Cursor {
 public:
  explicit Cursor(std::string_view text) : text_(text) {}

  char Peek(size_t ahead = 0) const {
    return pos_ + ahead < text_.size() ? text_[pos_ + ahead] : '\0';
  }
  size_t pos() const { return pos_; }
  std::string_view Since(size_t from) const { return text_.substr(from, pos_ - from); }
  std::string_view Rest() const { return text_.substr(pos_); }

  bool Skip(char c) {
    if (Peek() != c) return false;
    ++pos_;
    return true;
  }
  bool Skip(std::string_view literal) {
    if (text_.substr(pos_, literal.size()) != literal) return false;
    pos_ += literal.size();
    return true;
  }
  void SkipSpaces() {
    while (Peek() == ' ') ++pos_;
  }
  void SkipTo(size_t pos) { pos_ = pos; }

  // min to max digits, as a number.
  bool Number(size_t min, size_t max, uint64_t* value) {
    size_t n = 0;
    for (*value = 0; n < max && IsDigit(Peek()); ++n, ++pos_) *value = *value * 10 + (Peek() - '0');
    return n >= min;
  }
  // Up to the next space or the end.
  std::string_view Token() {
    const size_t from = pos_;
    while (pos_ < text_.size() && text_[pos_] != ' ') ++pos_;
    return Since(from);
  }

 private:
  std::string_view text_;
  size_t pos_ = 0;
};

}  // namespace kovani_tool

#endif  // KOVANI_TOOLS_LOG_CURSOR_H
