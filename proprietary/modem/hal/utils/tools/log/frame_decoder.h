// Decodes a line that holds the library's frame "SUB[n][file:line]
// function: " (or "[task][...]") or its console prefix
// "RIL[function:line]: ": the function, then which of its formats the body
// is and with which fields.

#ifndef KOVANI_TOOLS_LOG_FRAME_DECODER_H
#define KOVANI_TOOLS_LOG_FRAME_DECODER_H

#include <stddef.h>
#include <stdint.h>

#include <array>
#include <string_view>

#include "log/catalogue.h"
#include "log/cursor.h"
#include "log/library_line.h"

namespace kovani_tool {

// What marks a line as the library's: the frame's source file, or the
// console's prefix.
constexpr std::string_view kFrameAnchor = "[kovani_utils_";
constexpr std::string_view kConsoleAnchor = "RIL[";

class FrameDecoder {
 public:
  // Decode's answer for a line that is not the library's after all.
  // One object (an inline variable), so that its address tells it apart.
  static constexpr char kNotLibrary[] = "";

  // line: without its end. anchor: the '[' of kFrameAnchor (frame) or of
  // kConsoleAnchor. decoded->header is already set. Null when
  // *decoded is filled, else the reason the line is not decoded.
  const char* Decode(std::string_view line, size_t anchor, bool frame, LibraryLine* decoded);

 private:
  // A call site (source file and line, or the console's line) logs one
  // function's lines and nearly always one format: both are kept at hand.
  struct CallSite {
    uint64_t key = UINT64_MAX;
    FunctionMessages messages;
    size_t format = SIZE_MAX;
  };

  const char* DecodeFrame(std::string_view line, size_t at, LibraryLine* decoded);
  const char* DecodeConsole(std::string_view line, size_t from, LibraryLine* decoded);
  bool DecodeFunctionAndBody(Cursor* c, std::string_view separator, uint64_t site,
                             LibraryLine* decoded);
  bool MatchBody(CallSite* site, std::string_view body, LibraryLine* decoded);
  CallSite* LookUp(uint64_t key, std::string_view function);

  const char* failure_ = nullptr;
  std::array<CallSite, 1024> call_sites_;
};

}  // namespace kovani_tool

#endif  // KOVANI_TOOLS_LOG_FRAME_DECODER_H
