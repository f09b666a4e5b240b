// Opens what the user names: a file, standard input, a bug report zip's
// report entry, or text already in memory, and tells its kind from its
// content, never from its name.

#ifndef KOVANI_TOOLS_INPUT_INPUT_H
#define KOVANI_TOOLS_INPUT_INPUT_H

#include <memory>
#include <string>
#include <string_view>

#include "input/byte_source.h"
#include "input/text_encoding.h"

namespace kovani_tool {

enum class InputKind { kText, kBugReportText, kBugReportZip };

struct Input {
  std::string name;   // as the user gave it, or "standard input"
  std::string entry;  // the bug report's name inside a zip
  InputKind kind = InputKind::kText;
  TextEncoding encoding = TextEncoding::kUtf8;  // what source decodes from
  std::unique_ptr<ByteSource> source;  // from the first byte of the text
};

// Opens path ("-" is standard input): a zip archive holding a bug report, a
// bug report's text, or other text (UTF-16 read as UTF-8). False with
// *error naming the input and the reason.
bool OpenInput(const std::string& path, Input* input, std::string* error);

// Opens text already in memory, such as standard input read whole, the same
// way; a zip is refused there.
bool OpenText(const std::string& name, std::string_view text, Input* input, std::string* error);

}  // namespace kovani_tool

#endif  // KOVANI_TOOLS_INPUT_INPUT_H
