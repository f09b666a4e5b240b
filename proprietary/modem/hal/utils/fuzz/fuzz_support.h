// Shared set-up of the fuzz targets: quiet sinks, switches off, and inputs
// shaped into what the functions' callers promise.
#ifndef KOVANI_FUZZ_SUPPORT_H
#define KOVANI_FUZZ_SUPPORT_H

#include <fuzzer/FuzzedDataProvider.h>

#include <string>
#include <vector>

namespace kovani_fuzz {

// Debug output off, instance number 0, console to /dev/null. Call from
// LLVMFuzzerInitialize, before the library reads its switches.
void QuietLibrary();

// A NUL-terminated copy of text in a buffer of at least min_size bytes.
std::vector<char> Buffer(const std::string& text, size_t min_size = 0);

}  // namespace kovani_fuzz

#endif  // KOVANI_FUZZ_SUPPORT_H
