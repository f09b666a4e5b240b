// An output file written whole or not at all: its bytes go to a new
// temporary file beside it, which replaces it only once they are all on
// disk. A symlink in its place is replaced, never written through.

#ifndef KOVANI_TOOLS_COMMON_FILE_OUTPUT_H
#define KOVANI_TOOLS_COMMON_FILE_OUTPUT_H

#include <functional>
#include <string>

#include "common/output.h"

namespace kovani_tool {

// Calls write with an Output into a temporary file, then renames that over
// path. 0, or kExitFailed after saying which file failed and why; the
// temporary file is gone either way.
int ReplaceFile(const std::string& path, const std::function<void(Output*)>& write);

}  // namespace kovani_tool

#endif  // KOVANI_TOOLS_COMMON_FILE_OUTPUT_H
