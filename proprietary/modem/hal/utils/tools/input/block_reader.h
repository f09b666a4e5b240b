// Reads a byte source in large blocks of whole lines.

#ifndef KOVANI_TOOLS_INPUT_BLOCK_READER_H
#define KOVANI_TOOLS_INPUT_BLOCK_READER_H

#include <stddef.h>

#include <string_view>
#include <vector>

#include "byte_source.h"

namespace kovani_tool {

// A block ends after a '\n', except the input's unterminated last line and
// the pieces of a line longer than kLineMax: the buffer grows to hold a
// longer line whole up to that.
class BlockReader {
 public:
  static constexpr size_t kCapacity = 1u << 20;
  static constexpr size_t kLineMax = 16u << 20;

  explicit BlockReader(ByteSource* source, size_t capacity = kCapacity);
  // The next block; false at the end, or on a failure (failed()).
  bool Next(std::string_view* block);
  bool failed() const { return failed_; }
  // Whether the last block ends inside a line longer than kLineMax.
  bool cut() const { return cut_; }

 private:
  bool Fill();

  ByteSource* source_;
  std::vector<char> buffer_;
  size_t carried_from_ = 0;
  size_t filled_ = 0;
  bool ended_ = false;
  bool failed_ = false;
  bool cut_ = false;
};

}  // namespace kovani_tool

#endif  // KOVANI_TOOLS_INPUT_BLOCK_READER_H
