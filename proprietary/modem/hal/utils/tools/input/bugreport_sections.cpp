#include "bugreport_sections.h"

#include <algorithm>

#include "common/text.h"

namespace kovani_tool {
namespace {
constexpr std::string_view kSectionOpen = "------ ";
}  // namespace

bool EndsSection(std::string_view line) {
  line = WithoutCr(line);
  if (line.substr(0, kSectionOpen.size()) == kSectionOpen) return true;
  constexpr std::string_view kElapsed = "s elapsed]";
  return !line.empty() && line[0] == '[' && line.size() > kElapsed.size() &&
         line.substr(line.size() - kElapsed.size()) == kElapsed;
}

std::string_view SectionName(std::string_view line) {
  line = WithoutCr(line);
  if (line.substr(0, kSectionOpen.size()) != kSectionOpen) return {};
  line.remove_prefix(kSectionOpen.size());
  const size_t end = std::min(line.find(" ("), line.find(" ------"));
  return end == std::string_view::npos ? std::string_view() : line.substr(0, end);
}

}  // namespace kovani_tool
