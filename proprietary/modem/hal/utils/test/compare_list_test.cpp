// Subscription ids and masks, the logged comparison, list membership and the
// heap pair.
#include <gtest/gtest.h>

#include "kovani_utils.h"
#include "support.h"

namespace {

using namespace kovani_test;

TEST(CompareList, subscriptions) {
  EXPECT_EQ("001110", Results({kovani_check_sub_mask(-1), kovani_check_sub_mask(0),
                               kovani_check_sub_mask(1), kovani_check_sub_mask(2),
                               kovani_check_sub_mask(3), kovani_check_sub_mask(4)}));
  const uint32_t ids[] = {0, 1, 2, 31, UINT32_MAX}, masks[] = {1, 2, 0, 0, 0};
  for (int i = 0; i < 5; ++i) {
    EXPECT_EQ(i < 2, kovani_check_sub_id(ids[i]));
    EXPECT_EQ(masks[i], kovani_get_sub_mask_by_id(ids[i]));
  }
}

TEST(CompareList, compare_and_lists) {
  // clang-format off
  const struct { const char *a, *b; int result; } compared[] = {
      {"a", "a", 0}, {"ab", "ac", 104}, {"a", "ab", -103}, {"ab", "a", -103}, {"", "", 0},
      {nullptr, nullptr, -101}, {"x", nullptr, -102}, {"ba", "ca", 104}};
  const char* abc[] = {"abcd", "abc"};
  const char* empty[] = {""};
  const struct { const char* const* list; uint32_t size; const char* str; bool found; } lists[] = {
      {abc, 2, "xabcx", true}, {abc, 1, "abc", false}, {empty, 1, "any", true},
      {abc, 2, nullptr, false}, {nullptr, 2, "a", false}, {abc, 0, "abc", false}};
  // clang-format on
  const int64_t n64[] = {1, INT64_MIN, -5000000000};
  const int32_t n32[] = {7, -2};
  const uint16_t n16[] = {1, 65535};
  const uint8_t n8[] = {1, 255};
  Capture capture;
  for (const auto& c : compared) EXPECT_EQ(c.result, kovani_str_cmp(c.a, c.b)) << c.a;
  for (const auto& l : lists) EXPECT_EQ(l.found, kovani_string_list_contain(l.list, l.size, l.str));
  // Per width: found last in the list, missed one short of it, no list, no size.
  // clang-format off
  EXPECT_EQ("1000100010001000", Results({
      kovani_int64_list_contain(n64, 3, -5000000000), kovani_int64_list_contain(n64, 2, -5000000000),
      kovani_int64_list_contain(nullptr, 3, 1), kovani_int64_list_contain(n64, 0, 1),
      kovani_int32_list_contain(n32, 2, -2), kovani_int32_list_contain(n32, 1, -2),
      kovani_int32_list_contain(nullptr, 1, 7), kovani_int32_list_contain(n32, 0, 7),
      kovani_int16_list_contain(n16, 2, -1), kovani_int16_list_contain(n16, 1, -1),
      kovani_int16_list_contain(nullptr, 2, 1), kovani_int16_list_contain(n16, 0, 1),
      kovani_int8_list_contain(n8, 2, -1), kovani_int8_list_contain(n8, 1, -1),
      kovani_int8_list_contain(nullptr, 2, 1), kovani_int8_list_contain(n8, 0, 1)}));
  // clang-format on
  ExpectLog(capture, "compare_list/compare_and_lists");
}

TEST(CompareList, heap_pair) {
  EXPECT_EQ(nullptr, kovani_mem_malloc(0));
  void* block = kovani_mem_malloc(16);
  ASSERT_NE(nullptr, block);
  kovani_mem_free(&block);
  EXPECT_EQ(nullptr, block);
  kovani_mem_free(&block);
  kovani_mem_free(nullptr);
}

}  // namespace
