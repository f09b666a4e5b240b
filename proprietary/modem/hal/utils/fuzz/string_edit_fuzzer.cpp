// Trim, replace, prefix and print, with buffers as large as their callers
// promise: limits never exceed the buffer, out holds a string.
#include <stdint.h>

#include "fuzz_support.h"
#include "kovani_utils.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  kovani_fuzz::QuietLibrary();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  const int op = input.ConsumeIntegralInRange(0, 3);
  const std::string a = input.ConsumeRandomLengthString(300);
  const std::string b = input.ConsumeRandomLengthString(16);
  const std::string c = input.ConsumeRandomLengthString(16);
  const int outlen = input.ConsumeIntegralInRange(-4, 320);
  const size_t room = outlen > 0 ? static_cast<size_t>(outlen) : 0;
  std::vector<char> in = kovani_fuzz::Buffer(a);
  switch (op) {
    case 0: {
      const int limit = input.ConsumeIntegralInRange(-2, static_cast<int>(in.size()));
      kovani_str_trim(in.data(), limit);
      break;
    }
    case 1: {
      std::vector<char> out = kovani_fuzz::Buffer(c, room);
      kovani_str_rpl(in.data(), out.data(), outlen, b.c_str(), c.c_str());
      break;
    }
    case 2: {
      // The length check does not count text already in out.
      std::vector<char> out = kovani_fuzz::Buffer(c, c.size() + room + 1);
      kovani_str_add_prefix(a.c_str(), out.data(), outlen, b.c_str());
      break;
    }
    default:
      kovani_str_print(in.data());
      break;
  }
  return 0;
}
