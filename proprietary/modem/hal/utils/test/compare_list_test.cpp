#include <stdint.h>

#include <functional>
#include <string>
#include <vector>

#include "library_test.h"

namespace {

using namespace kovani_test;
using ::testing::ElementsAre;

class ComparisonAndLists : public LibraryTest {};

// A call with its answer and the one line it must log.
struct LoggedCall {
  std::function<int()> call;
  int result;
  int priority;
  std::string body;
};

void ExpectLoggedCalls(const std::vector<LoggedCall>& cases) {
  for (size_t i = 0; i < cases.size(); ++i) {
    SCOPED_TRACE(cases[i].body);
    SyslogCapture syslog;
    EXPECT_EQ(cases[i].call(), cases[i].result);
    const auto framed = syslog.framed();
    ASSERT_EQ(framed.size(), 1u);
    EXPECT_EQ(framed[0].priority, cases[i].priority);
    EXPECT_EQ(framed[0].body, cases[i].body);
  }
}

TEST_F(ComparisonAndLists, SubscriptionIdsAndMasks) {
  for (int32_t mask : {1, 2, 3}) EXPECT_TRUE(kovani_check_sub_mask(mask)) << mask;
  for (int32_t mask : {0, -1, 4, INT32_MIN}) EXPECT_FALSE(kovani_check_sub_mask(mask)) << mask;
  EXPECT_TRUE(kovani_check_sub_id(0));
  EXPECT_TRUE(kovani_check_sub_id(1));
  EXPECT_FALSE(kovani_check_sub_id(2));
  EXPECT_FALSE(kovani_check_sub_id(UINT32_MAX));
  const uint32_t masks[][2] = {{0, 1}, {1, 2}, {2, 0}, {31, 0}, {32, 0}, {UINT32_MAX, 0}};
  for (const auto& m : masks) EXPECT_EQ(kovani_get_sub_mask_by_id(m[0]), m[1]) << m[0];
}

TEST_F(ComparisonAndLists, StrCmp_CodesAndMessages) {
  const auto cmp = [](const char* a, const char* b) {
    return [a, b] { return kovani_str_cmp(a, b); };
  };
  ExpectLoggedCalls({
      {cmp("a", "a"), 0, kDbg, "same, str1(1): a, str2(1): a"},
      {cmp("", ""), 0, kDbg, "same, str1(0): , str2(0): "},
      {cmp("a", "b"), 104, kDbg, "str1[0]('a') != str2[0]('b'), str1(1): a, str2(1): b"},
      {cmp("abc", "abD"), 104, kDbg, "str1[2]('c') != str2[2]('D'), str1(3): abc, str2(3): abD"},
      {cmp("a", "ab"), -103, kDbg, "len1(1) != len2(2), str1: a, str2: ab"},
      {cmp(nullptr, nullptr), -101, kDbg, "str1 is null"},
      {cmp("x", nullptr), -102, kDbg, "str2 is null"},
  });
}

TEST_F(ComparisonAndLists, StringListContain_EntryIsTheNeedle) {
  static const char* const abc[] = {"abc"};
  static const char* const abcd[] = {"abcd"};
  static const char* const empty[] = {""};
  static const char* const two[] = {"zz", "bc"};
  const auto contain = [](const char* const* list, uint32_t size, const char* str) {
    return [=] { return static_cast<int>(kovani_string_list_contain(list, size, str)); };
  };
  ExpectLoggedCalls({
      {contain(abc, 1, "xabcx"), 1, kDbg, "find str: xabcx, size_list(1)"},
      {contain(abcd, 1, "abc"), 0, kErr, "not find str: abc, size_list(1)"},
      {contain(empty, 1, "any"), 1, kDbg, "find str: any, size_list(1)"},
      {contain(two, 2, "abc"), 1, kDbg, "find str: abc, size_list(2)"},
      {contain(two, 1, "abc"), 0, kErr, "not find str: abc, size_list(1)"},
      {contain(abc, 1, nullptr), 0, kErr, "str is NULL"},
      {contain(nullptr, 1, "abc"), 0, kErr, "str_list is NULL"},
      {contain(abc, 0, "abc"), 0, kErr, "size_list(0) can not <= 0"},
  });
}

TEST_F(ComparisonAndLists, IntegerListContain_ComparesBitPatternsPerWidth) {
  static const uint8_t u8[] = {255};
  static const uint16_t u16[] = {65535};
  static const uint16_t u16_255[] = {255};
  static const int32_t i32[] = {1, -1};
  static const int64_t i64[] = {1, int64_t{1} << 40};
  ExpectLoggedCalls({
      {[] { return kovani_int8_list_contain(u8, 1, -1); }, 1, kDbg,
       "find number[int8]: -1, size_list(1)"},
      {[] { return kovani_int8_list_contain(u8, 1, 127); }, 0, kErr,
       "not find number[int8]: 127, size_list(1)"},
      {[] { return kovani_int16_list_contain(u16, 1, -1); }, 1, kDbg,
       "find number[int16]: -1, size_list(1)"},
      {[] { return kovani_int16_list_contain(u16_255, 1, -1); }, 0, kErr,
       "not find number[int16]: -1, size_list(1)"},
      {[] { return kovani_int32_list_contain(i32, 2, -1); }, 1, kDbg,
       "find number[int32]: -1, size_list(2)"},
      {[] { return kovani_int32_list_contain(i32, 1, -1); }, 0, kErr,
       "not find number[int32]: -1, size_list(1)"},
      {[] { return kovani_int64_list_contain(i64, 2, int64_t{1} << 40); }, 1, kDbg,
       "find number[int64]: 1099511627776, size_list(2)"},
      {[] { return kovani_int64_list_contain(i64, 2, (int64_t{1} << 32) + 1); }, 0, kErr,
       "not find number[int64]: 4294967297, size_list(2)"},
      {[] { return kovani_int8_list_contain(nullptr, 1, 0); }, 0, kErr, "num_list[int8] is NULL"},
      {[] { return kovani_int16_list_contain(nullptr, 1, 0); }, 0, kErr, "num_list[int16] is NULL"},
      {[] { return kovani_int32_list_contain(i32, 0, 1); }, 0, kErr,
       "size_list[int32](0) can not <= 0"},
      {[] { return kovani_int64_list_contain(i64, 0, 1); }, 0, kErr,
       "size_list[int64](0) can not <= 0"},
  });
}

TEST_F(ComparisonAndLists, HeapPair_NullsThePointerOnce) {
  EXPECT_EQ(kovani_mem_malloc(0), nullptr);
  void* p = kovani_mem_malloc(16);
  ASSERT_NE(p, nullptr);
  kovani_mem_free(&p);
  EXPECT_EQ(p, nullptr);
  kovani_mem_free(&p);
  kovani_mem_free(nullptr);
}

}  // namespace
