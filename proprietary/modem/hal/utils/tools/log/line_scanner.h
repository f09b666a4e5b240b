// Finds the library's lines in an input, whatever surrounds them, and hands
// each, decoded or not, to a sink.

#ifndef KOVANI_TOOLS_LOG_LINE_SCANNER_H
#define KOVANI_TOOLS_LOG_LINE_SCANNER_H

#include <stddef.h>

#include <string>

#include "input/input.h"
#include "log/library_line.h"

namespace kovani_tool {

// Streams one input through sink: a bug report's system log section only,
// anything else whole. index names the input in unparsed lines. False with
// *error naming the input on a read failure.
bool DecodeInput(Input* input, size_t index, LineSink* sink, SourceSummary* summary,
                 std::string* error);

}  // namespace kovani_tool

#endif  // KOVANI_TOOLS_LOG_LINE_SCANNER_H
