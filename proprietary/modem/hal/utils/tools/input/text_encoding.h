// Text saved by Windows shells: UTF-16 with its byte-order mark (what
// `adb shell getprop > file` leaves in PowerShell), or UTF-8 behind one.
// Read as the same text in UTF-8, so every reader after this sees one form.

#ifndef KOVANI_TOOLS_INPUT_TEXT_ENCODING_H
#define KOVANI_TOOLS_INPUT_TEXT_ENCODING_H

#include <memory>
#include <string>
#include <string_view>

#include "input/byte_source.h"

namespace kovani_tool {

enum class TextEncoding { kUtf8, kUtf8Bom, kUtf16Le, kUtf16Be };

// What the first bytes say the text is.
TextEncoding EncodingOf(std::string_view head);

// The text's name for messages and reports ("UTF-16LE"), empty for plain
// UTF-8.
const char* EncodingName(TextEncoding encoding);

// head (the text's first bytes) as UTF-8, for telling the text's kind.
std::string DecodedHead(TextEncoding encoding, std::string_view head);

// raw read as UTF-8 from after its byte-order mark: unpaired surrogates and
// a last odd byte become U+FFFD. raw itself for UTF-8 without a mark.
std::unique_ptr<ByteSource> DecodingSource(TextEncoding encoding,
                                           std::unique_ptr<ByteSource> raw);

}  // namespace kovani_tool

#endif  // KOVANI_TOOLS_INPUT_TEXT_ENCODING_H
