// Trimming, printing, replacing and prefixing text in caller buffers.
#include <gtest/gtest.h>

#include "kovani_utils.h"
#include "support.h"

namespace {

using namespace kovani_test;
using namespace std::string_literals;

// The kept text moves to the front; the bytes after its terminator stay.
TEST(StringEdit, trim) {
  // clang-format off
  const struct { const char* in; int limit; std::string bytes; } rows[] = {
      {"  hello \r\n", 255, "hello\0o\0\0\0\0#"s}, {"\t\v\f x y \f", 255, "x y\0x y\0\0\0#"s},
      {"\x08" "a\x0e", 255, "\x08" "a\x0e\0#"s},  {"abc", 1, "abc\0#"s}, {"abc", 2, "a\0c\0#"s},
      {"   ", 255, "\0  \0#"s}, {"", 255, "\0#"s}, {"abcdef", 4, "abc\0ef\0#"s},
      {"     x", 4, "\0    x\0#"s}, {"   ab", 4, "\0  \0b\0#"s}, {"a", 255, "a\0#"s},
      {nullptr, 7, ""}};
  // clang-format on
  Capture capture;
  for (const auto& row : rows) {
    Buffer str(row.in);
    kovani_str_trim(str.Data(), row.limit);
    EXPECT_EQ(row.bytes, str.Head(row.bytes.size())) << row.limit;
  }
  ExpectLog(capture, "strings/trim");
}

TEST(StringEdit, print) {
  Capture capture;
  kovani_str_print(const_cast<char*>("a\r\xe9"));
  kovani_str_print(nullptr);
  ExpectLog(capture, "strings/print");
}

// out is appended to, and its text counts against outlen.
TEST(StringEdit, replace_and_prefix) {
  // clang-format off
  const struct { const char *in, *out; int outlen; const char *src, *dst, *result; } rows[] = {
      {"a.b.c", "", 64, ".", "::", "a::b::c"}, {"a.b.c", "", 7, ".", "::", "a::b"},
      {"a.b.c", "", 8, ".", "::", "a::b::"}, {"aaa", "", 64, "aa", "-", "-a"},
      {"a.b", "x", 64, ".", "", "xab"}, {"abcd", "x", 4, "z", "y", "xa"},
      {"ab", "", 64, "abc", "x", "ab"}, {nullptr, nullptr, 64, nullptr, nullptr, nullptr},
      {nullptr, nullptr, 64, "a", nullptr, nullptr}, {nullptr, nullptr, 64, "a", "b", nullptr},
      {"a", nullptr, 64, "a", "b", nullptr}, {"", "o", 64, "", "b", "o"}, {"", "o", 64, "a", "b", "o"}};
  const struct { const char *in, *out; int outlen; const char *prefix, *result; } prefixes[] = {
      {"123", "", 6, "ab", "ab123"}, {"123", "", 5, "ab", ""}, {"1", "x", 3, "a", "xa1"},
      {nullptr, nullptr, 9, nullptr, nullptr}, {nullptr, nullptr, 9, "a", nullptr},
      {"b", nullptr, 9, "a", nullptr}};
  // clang-format on
  Capture capture;
  for (const auto& row : rows) {
    Buffer in(row.in), out(row.out);
    kovani_str_rpl(in.Data(), out.Data(), row.outlen, row.src, row.dst);
    EXPECT_STREQ(row.result, row.result != nullptr ? out.Data() : nullptr);
  }
  for (const auto& row : prefixes) {
    Buffer in(row.in), out(row.out);
    kovani_str_add_prefix(in.Data(), out.Data(), row.outlen, row.prefix);
    EXPECT_STREQ(row.result, row.result != nullptr ? out.Data() : nullptr);
  }
  ExpectLog(capture, "strings/replace_and_prefix");
}

}  // namespace
