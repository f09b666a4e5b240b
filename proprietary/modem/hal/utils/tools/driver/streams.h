// The tool's standard streams: its own output apart from the library's
// console lines, which share descriptor 1.

#ifndef KOVANI_TOOLS_DRIVER_STREAMS_H
#define KOVANI_TOOLS_DRIVER_STREAMS_H

#include <string>

namespace kovani_tool {

// Makes the tool's output a duplicate of the standard output it was given
// and sends descriptor 1 (the library's console lines) to stderr with
// trace, nowhere otherwise. The library's system log follows trace too.
void SetUpStreams(bool trace);

// Writes all of text to the tool's output: 0, or the exit status after
// saying why it failed.
int Print(const std::string& text);

}  // namespace kovani_tool

#endif  // KOVANI_TOOLS_DRIVER_STREAMS_H
