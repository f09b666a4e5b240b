// Every message the library can write has a line in the golden files.
#include <gtest/gtest.h>

#include <regex>
#include <set>
#include <tuple>

#include "support.h"

namespace {

using namespace kovani_test;
using Site = std::tuple<char, std::string, std::string>;  // level, function, format

// The lines that no input can reach, with the reason.
const std::set<Site> kUnreachable = {
    // The checks before it leave cnt_end at 1 or more.
    {'D', "kovani_str_trim", "This string is empty, cnt_end = %d"},
    // Only a dst longer than INT_MAX bytes has a negative length.
    {'E', "kovani_str_rpl", "dst_len(%d) can not < 0"},
    // The length check before it already refuses an empty src.
    {'E', "kovani_str_rpl", "src is empty"},
};

// Every message the library can write, as its catalogue holds them: "-"
// for a line without the frame.
std::set<Site> LogSites() {
  return {
#define KOVANI_MESSAGE(level, function, format) {#level[0], function, format},
#define KOVANI_BARE(level, format) {#level[0], "-", format},
#include "log_catalogue.inc"
  };
}

// A printf format as a regex over what it formats.
std::regex FormatPattern(const std::string& format) {
  std::string pattern = std::regex_replace(format, std::regex(R"([.^$|()\[\]{}*+?\\])"), R"(\$&)");
  for (const auto& [row, regex] : {std::pair{"%l?d", "-?[0-9]+"},
                                   {"%l?u", "[0-9]+"},
                                   {"%[sp]", "[\\s\\S]*"},
                                   {"%c", "[\\s\\S]"}}) {
    pattern = std::regex_replace(pattern, std::regex(row), regex);
  }
  return std::regex(pattern);
}

TEST(LogCatalogue, every_message_has_a_golden_line) {
  // Variable text stands as "0", or as the blank a wildcard stands for.
  std::vector<GoldenLine> golden = AllGoldenLines();
  const std::regex variable(R"(\{\{(.*?)\}\}|\[\[.*?\]\])");
  for (GoldenLine& g : golden) {
    for (std::smatch m; std::regex_search(g.body, m, variable);) {
      const bool blank = m[1].matched && std::regex_match(" ", std::regex(m[1].str()));
      g.body.replace(m.position(), m.length(), blank ? " " : "0");
    }
  }
  const std::set<Site> sites = LogSites();
  EXPECT_GT(sites.size(), 150u);
  for (const auto& [level, function, format] : sites) {
    const std::regex pattern = FormatPattern(format);
    bool found = false;
    for (const GoldenLine& g : golden) {
      found |= g.level == level && g.function == function && std::regex_match(g.body, pattern);
    }
    EXPECT_NE(found, kUnreachable.count({level, function, format}) != 0)
        << (found ? "listed as unreachable, yet in the golden files: " : "no golden line for: ")
        << level << " " << function << ": " << format;
  }
  for (const Site& site : kUnreachable) EXPECT_EQ(1u, sites.count(site)) << std::get<2>(site);
}

}  // namespace
