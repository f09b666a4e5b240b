// Comparison and the list tests with lists of the promised size.
#include <stdint.h>

#include "fuzz_support.h"
#include "kovani_utils.h"

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  kovani_fuzz::QuietLibrary();
  return 0;
}

template <typename T>
std::vector<T> Numbers(FuzzedDataProvider& input) {
  std::vector<T> numbers(input.ConsumeIntegralInRange<size_t>(0, 8));
  for (T& n : numbers) n = input.ConsumeIntegral<T>();
  return numbers;
}

// An empty list is passed as null half of the time, with its size of 0.
template <typename T>
const T* ListOrNull(const std::vector<T>& list, bool null_when_empty) {
  return list.empty() && null_when_empty ? nullptr : list.data();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FuzzedDataProvider input(data, size);
  const bool null_when_empty = input.ConsumeBool();
  const std::string a = input.ConsumeRandomLengthString(64);
  const std::string b = input.ConsumeRandomLengthString(64);
  kovani_str_cmp(input.ConsumeBool() ? a.c_str() : nullptr, b.c_str());

  std::vector<std::string> entries(input.ConsumeIntegralInRange<size_t>(0, 6));
  for (std::string& entry : entries) entry = input.ConsumeRandomLengthString(16);
  std::vector<const char*> list;
  for (const std::string& entry : entries) list.push_back(entry.c_str());
  kovani_string_list_contain(ListOrNull(list, null_when_empty), static_cast<uint32_t>(list.size()),
                             a.c_str());

  const auto n64 = Numbers<int64_t>(input);
  const auto n32 = Numbers<int32_t>(input);
  const auto n16 = Numbers<uint16_t>(input);
  const auto n8 = Numbers<uint8_t>(input);
  kovani_int64_list_contain(ListOrNull(n64, null_when_empty), static_cast<uint32_t>(n64.size()),
                            input.ConsumeIntegral<int64_t>());
  kovani_int32_list_contain(ListOrNull(n32, null_when_empty), static_cast<uint32_t>(n32.size()),
                            input.ConsumeIntegral<int32_t>());
  kovani_int16_list_contain(ListOrNull(n16, null_when_empty), static_cast<uint32_t>(n16.size()),
                            input.ConsumeIntegral<int16_t>());
  kovani_int8_list_contain(ListOrNull(n8, null_when_empty), static_cast<uint32_t>(n8.size()),
                           input.ConsumeIntegral<int8_t>());
  kovani_check_sub_mask(input.ConsumeIntegral<int32_t>());
  kovani_get_sub_mask_by_id(input.ConsumeIntegral<uint32_t>());
  return 0;
}
