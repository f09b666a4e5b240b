// Every message the library can write has a line in the golden files.
#include <gtest/gtest.h>

#include <regex>
#include <set>
#include <sstream>
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

// The calls of the two sinks in the preprocessed sources. A function starts
// on a line of its own at the left margin; a call names the function whose
// lines hold it, or "*" where a helper is handed its caller's name, or "-"
// for a line without the frame.
std::set<Site> LogSites() {
  static const std::regex call(
      R"re(kovani_utils_syslog_(err|dbg)\(((?:\s*"(?:[^"\\]|\\.)*")*)(.*?)\);)re");
  static const std::regex literal(R"re("((?:[^"\\]|\\.)*)")re");
  std::set<Site> sites;
  std::istringstream files(KOVANI_LOG_SITES);
  for (std::string file, function; std::getline(files, file, ',');) {
    std::istringstream source(ReadFile(file));
    for (std::string line; std::getline(source, line);) {
      if (!line.empty() && isalpha(line[0]) && line.find('(') != std::string::npos &&
          line.back() != ';') {
        const std::string head = line.substr(0, line.find('('));
        function = head.substr(head.find_last_of(" *&") + 1);
      }
      for (std::sregex_iterator c(line.begin(), line.end(), call), end; c != end; ++c) {
        const char level = (*c)[1] == "err" ? 'E' : 'D';
        std::vector<std::string> texts;
        const std::string leading = (*c)[2], rest = (*c)[3];
        for (std::sregex_iterator l(leading.begin(), leading.end(), literal); l != end; ++l)
          texts.push_back((*l)[1]);
        const bool framed = !texts.empty() && texts[0].find("[%s:%d] %s: ") != std::string::npos;
        if (!framed) {
          for (std::sregex_iterator l(rest.begin(), rest.end(), literal); l != end; ++l)
            sites.insert({level, "-", (*l)[1]});
          continue;
        }
        std::string format;
        for (size_t i = 1; i < texts.size(); ++i) format += texts[i];
        sites.insert({level, rest.find("__func__") != std::string::npos ? function : "*", format});
      }
    }
  }
  return sites;
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
      found |= g.level == level && (function == "*" || g.function == function) &&
               std::regex_match(g.body, pattern);
    }
    EXPECT_NE(found, kUnreachable.count({level, function, format}) != 0)
        << (found ? "listed as unreachable, yet in the golden files: " : "no golden line for: ")
        << level << " " << function << ": " << format;
  }
  for (const Site& site : kUnreachable) EXPECT_EQ(1u, sites.count(site)) << std::get<2>(site);
}

}  // namespace
