// The catalogue's suites, and its check against the messages of the library.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <regex>
#include <set>

#include "support.h"

namespace {

using namespace kovani_test;

class CatalogueSuite : public ::testing::TestWithParam<std::string> {};

TEST_P(CatalogueSuite, Sequences) { RunCatalogueSuite(GetParam()); }

INSTANTIATE_TEST_SUITE_P(Library, CatalogueSuite, ::testing::ValuesIn(CatalogueSuites()),
                         [](const auto& info) { return info.param; });

TEST(LogCatalogue, HoldsEveryMessageOfTheLibrary) {
  std::vector<std::string> bodies;  // of the expected lines, {names} standing for 0
  for (const Sequence& sequence : Catalogue()) {
    for (const std::string& step : sequence.steps) {
      if (std::string("ED@").find(step[0]) == std::string::npos) continue;
      const size_t colon = step.find(": ");
      if (colon != std::string::npos) {
        bodies.push_back(
            std::regex_replace(step.substr(colon + 2), std::regex("\\{[^}]*\\}"), "0"));
      }
    }
  }
  // The body formats of the library's log call sites: the frame glues prefix
  // and body into one literal, so each stands in the binary behind the prefix.
  std::ifstream in(KOVANI_LIBRARY, std::ios::binary);
  const std::string binary(std::istreambuf_iterator<char>(in), {}), prefix = "SUB[%d][%s:%d] %s: ";
  std::set<std::string> formats;
  for (size_t at = binary.find(prefix); at != std::string::npos; at = binary.find(prefix, at + 1)) {
    formats.insert(binary.substr(at + prefix.size(), binary.find('\0', at) - at - prefix.size()));
  }
  EXPECT_GT(formats.size(), 150u);
  for (const std::string& format : formats) {
    std::string pattern =
        std::regex_replace(format, std::regex(R"([.^$|()\[\]{}*+?\\])"), R"(\$&)");
    pattern = std::regex_replace(pattern, std::regex("%l?[du]"), "-?[0-9]+");
    const std::regex matcher(std::regex_replace(
        std::regex_replace(pattern, std::regex("%[sp]"), "[\\s\\S]*"), std::regex("%c"), "."));
    EXPECT_TRUE(
        std::any_of(bodies.begin(), bodies.end(),
                    [&matcher](const std::string& b) { return std::regex_match(b, matcher); }))
        << "no catalogue line for \"" << format << "\"";
  }
}

}  // namespace
