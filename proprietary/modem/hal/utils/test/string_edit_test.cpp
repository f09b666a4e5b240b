#include <string.h>

#include <string>
#include <vector>

#include "library_test.h"

namespace {

using namespace kovani_test;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;
using ::testing::IsEmpty;

class StringEdit : public LibraryTest {};

// A buffer holding text, its NUL and a tail of '#', so that bytes past the
// terminator can be checked too.
std::vector<char> Buffer(const std::string& text, size_t size = 300) {
  std::vector<char> buf(size, '#');
  memcpy(buf.data(), text.c_str(), text.size() + 1);
  return buf;
}

struct TrimCase {
  std::string in;
  int limit;
  std::string out;
  std::vector<std::string> debug;
};

TEST_F(StringEdit, Trim_RemovesBlanksAndCutsToTheLimit) {
  const TrimCase cases[] = {
      {"  hello \r\n", 255, "hello", {}},
      {"hello", 255, "hello", {}},
      {"\t\n\v\f\r x \t", 255, "x", {}},
      {"a\x01", 255, "a\x01", {}},
      {"\xa0x\xa0", 255, "\xa0x\xa0", {}},  // blanks are the six ASCII bytes only
      {"a b", 255, "a b", {}},
      {"   ", 255, "", {"This string is empty, cnt_start = 3"}},
      {"", 255, "", {"This string is empty, cnt_start = 0"}},
      {"abcdef",
       4,
       "abc",
       {"This string has no cut-off character, cnt_end = 6(max:4), new cnt_end = 3"}},
      {"ab", 2, "a", {"This string has no cut-off character, cnt_end = 2(max:2), new cnt_end = 1"}},
      {"    x", 4, "", {"This string is empty for max cnt, cnt_start = 4(max:4)"}},
      {"   abc",
       4,
       "",
       {"This string has no cut-off character, cnt_end = 6(max:4), new cnt_end = 3",
        "This string is all blank characters, cnt_start = 3, cnt_end = 3"}},
      {" a",
       2,
       "",
       {"This string has no cut-off character, cnt_end = 2(max:2), new cnt_end = 1",
        "This string is all blank characters, cnt_start = 1, cnt_end = 1"}},
      {"ab  cd  ",
       5,
       "ab",
       {"This string has no cut-off character, cnt_end = 8(max:5), new cnt_end = 4"}},
  };
  for (const TrimCase& c : cases) {
    SCOPED_TRACE("\"" + c.in + "\" limit " + std::to_string(c.limit));
    std::vector<char> buf = Buffer(c.in);
    SyslogCapture syslog;
    kovani_str_trim(buf.data(), c.limit);
    EXPECT_EQ(std::string(buf.data()), c.out);
    EXPECT_THAT(syslog.bodies(kDbg), ElementsAreArray(c.debug));
    EXPECT_THAT(syslog.bodies(kErr), IsEmpty());
  }
}

TEST_F(StringEdit, Trim_MovesTextForwardAndLeavesTheTail) {
  std::vector<char> buf = Buffer("  ab");
  kovani_str_trim(buf.data(), 255);
  EXPECT_EQ(std::string(buf.data(), 5), std::string("ab\0b\0", 5));
}

TEST_F(StringEdit, Trim_RefusesNullAndTinyLimits) {
  const struct {
    bool null_str;
    int limit;
    const char* error;
  } cases[] = {
      {true, 5, "str is null, str_len_max = 5"},
      {false, 1, "str_len_max(1) can not < 2"},
      {false, 0, "str_len_max(0) can not < 2"},
      {false, -3, "str_len_max(-3) can not < 2"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.error);
    std::vector<char> buf = Buffer("  x  ");
    SyslogCapture syslog;
    kovani_str_trim(c.null_str ? nullptr : buf.data(), c.limit);
    EXPECT_THAT(syslog.bodies(kErr), ElementsAre(c.error));
    EXPECT_STREQ(buf.data(), "  x  ");
  }
}

TEST_F(StringEdit, Print_LogsEveryByteAsAnUnsignedValue) {
  std::string text;
  for (int byte = 1; byte <= 255; ++byte) text.push_back(static_cast<char>(byte));
  std::vector<std::string> expected = {"Will print str(len = 255): " + text};
  for (int i = 0; i < 255; ++i) {
    expected.push_back("str[" + std::to_string(i) + "] = " + text[static_cast<size_t>(i)] + "(" +
                       std::to_string(i + 1) + ")");
  }
  std::vector<char> buf = Buffer(text);
  SyslogCapture syslog;
  kovani_str_print(buf.data());
  EXPECT_THAT(syslog.bodies(kDbg), ElementsAreArray(expected));
  EXPECT_EQ(syslog.bodies(kDbg).at(0xE9), std::string("str[232] = \xE9(233)"));
}

TEST_F(StringEdit, Print_ShowsInvisibleCharactersAndNull) {
  SyslogCapture syslog;
  char text[] = "a\r";
  kovani_str_print(text);
  kovani_str_print(nullptr);
  EXPECT_THAT(syslog.bodies(kDbg), ElementsAre("Will print str(len = 2): a\r", "str[0] = a(97)",
                                               "str[1] = \r(13)", "str is NULL"));
  EXPECT_THAT(syslog.bodies(kErr), IsEmpty());
}

struct ReplaceCase {
  const char* in;
  std::string out_before;
  int outlen;
  const char* src;
  const char* dst;
  std::string out_after;
  std::vector<std::string> errors;
};

TEST_F(StringEdit, Replace_AppendsWithinTheBound) {
  const ReplaceCase cases[] = {
      {"a.b.c", "", 64, ".", "::", "a::b::c", {}},
      {"a.b.c", "", 7, ".", "::", "a::b", {"len(4) + dst_len(2) + 1 >= outlen(7), abort"}},
      {"a.b.c", "", 8, ".", "::", "a::b::", {"len(6) + 1 + 1 >= outlen(8), abort"}},
      {"a.b.c", "", 9, ".", "::", "a::b::c", {}},
      {"aaa", "", 64, "aa", "X", "Xa", {}},
      {"abcb", "", 64, "b", "", "ac", {}},
      {"xab", "", 64, "abc", "Q", "xab", {}},
      {"abc", "pre", 64, "x", "y", "preabc", {}},
      {"abcd", "", 4, "x", "y", "ab", {"len(2) + 1 + 1 >= outlen(4), abort"}},
      {"abc", "12", 4, "x", "y", "12", {"len(2) + 1 + 1 >= outlen(4), abort"}},
  };
  for (const ReplaceCase& c : cases) {
    SCOPED_TRACE(std::string(c.in) + " outlen " + std::to_string(c.outlen));
    std::vector<char> in = Buffer(c.in);
    std::vector<char> out = Buffer(c.out_before);
    SyslogCapture syslog;
    kovani_str_rpl(in.data(), out.data(), c.outlen, c.src, c.dst);
    EXPECT_EQ(std::string(out.data()), c.out_after);
    EXPECT_THAT(syslog.bodies(kErr), ElementsAreArray(c.errors));
  }
}

TEST_F(StringEdit, Replace_RefusesBadArgumentsInOrder) {
  char in[] = "abc";
  char empty_in[] = "";
  char out[16] = "keep";
  const struct {
    char* in;
    char* out;
    const char* src;
    const char* dst;
    const char* error;
  } cases[] = {
      {nullptr, nullptr, nullptr, nullptr, "src is null"},
      {nullptr, nullptr, "a", nullptr, "dst is null"},
      {nullptr, nullptr, "a", "b", "in is null"},
      {in, nullptr, "a", "b", "out is null"},
      {in, out, "", "b", "src_len(0) can not <= 0"},
      {empty_in, out, "a", "b", "in is empty"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.error);
    SyslogCapture syslog;
    kovani_str_rpl(c.in, c.out, 16, c.src, c.dst);
    EXPECT_THAT(syslog.bodies(kErr), ElementsAre(c.error));
    EXPECT_STREQ(out, "keep");
  }
}

TEST_F(StringEdit, AddPrefix_FitsExactlyOrLeavesOutUntouched) {
  const struct {
    const char* in;
    std::string out_before;
    int outlen;
    const char* prefix;
    std::string out_after;
    std::vector<std::string> errors;
  } cases[] = {
      {"123", "", 6, "ab", "ab123", {}},
      {"123", "", 5, "ab", "", {"in_len(3) + prefix_len(2) can not >= outlen(5)"}},
      {"", "", 1, "", "", {}},
      {"123", "x", 6, "ab", "xab123", {}},  // text already in out is not counted
      {"123", "", -1, "", "", {"in_len(3) + prefix_len(0) can not >= outlen(-1)"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.in) + " outlen " + std::to_string(c.outlen));
    std::vector<char> out = Buffer(c.out_before);
    SyslogCapture syslog;
    kovani_str_add_prefix(c.in, out.data(), c.outlen, c.prefix);
    EXPECT_EQ(std::string(out.data()), c.out_after);
    EXPECT_THAT(syslog.bodies(kErr), ElementsAreArray(c.errors));
  }

  char out[8] = "keep";
  const struct {
    const char* in;
    char* out;
    const char* prefix;
    const char* error;
  } refusals[] = {
      {nullptr, nullptr, nullptr, "prefix is null"},
      {nullptr, nullptr, "p", "in is null"},
      {"i", nullptr, "p", "out is null"},
  };
  for (const auto& r : refusals) {
    SyslogCapture syslog;
    kovani_str_add_prefix(r.in, r.out, 8, r.prefix);
    EXPECT_THAT(syslog.bodies(kErr), ElementsAre(r.error));
  }
  EXPECT_STREQ(out, "keep");
}

}  // namespace
