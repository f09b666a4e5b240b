#include "profile/bugreport_profile.h"

#include <errno.h>
#include <string.h>
#include <sys/stat.h>

#include <algorithm>

#include "common/text.h"
#include "input/block_reader.h"
#include "input/bugreport_sections.h"
#include "input/input.h"
#include "kovani_host_properties.h"

namespace kovani_tool {
namespace {

std::string Label(const Input& input, bool found) {
  const std::string in = input.entry.empty() ? "" : " of " + Shown(input.entry);
  return input.name + (found ? " (" + std::string(kPropertiesSection) + " section" + in + ")"
                             : " (bug report" + in + " without a " +
                                   std::string(kPropertiesSection) + " section)");
}

// Reads the report up to the end of its properties section.
ProfileKind ReadProperties(Input* input, std::string* text, std::string* label,
                           std::string* error) {
  text->clear();
  BlockReader reader(input->source.get());
  constexpr size_t kLimit = KOVANI_HOST_PROPERTY_FILE_MAX;
  bool inside = false;
  bool found = false;
  bool continued = false;  // a piece of a line longer than the reader holds
  size_t line_number = 0;
  uint64_t looked = 0;
  for (std::string_view block; !(found && !inside) && reader.Next(&block);) {
    // dumpstate writes the section near the top: a report or stream without
    // one is not read to its end.
    looked += block.size();
    if (!found && looked > kLimit + block.size()) {
      *error = "cannot read profile '" + input->name + "': no " +
               std::string(kPropertiesSection) + " section in its first 64 MiB";
      return ProfileKind::kFailed;
    }
    while (!block.empty() && !(found && !inside)) {
      const size_t newline = block.find('\n');
      const std::string_view line = block.substr(0, newline);
      block.remove_prefix(newline == std::string_view::npos ? block.size() : newline + 1);
      line_number += continued ? 0 : 1;
      continued = newline == std::string_view::npos && reader.cut();
      if (!found) {
        found = inside = SectionName(line) == kPropertiesSection;
        // Earlier lines and the header stay as blank ones, so line numbers hold.
        if (found) text->assign(std::min(line_number, kLimit + 1), '\n');
      } else if (EndsSection(line)) {
        inside = false;
      } else {
        text->append(line).push_back('\n');
      }
      if (text->size() > kLimit) {
        *error = "cannot read profile '" + input->name + "': its " +
                 std::string(kPropertiesSection) + " section ends beyond 64 MiB";
        return ProfileKind::kFailed;
      }
    }
  }
  if (reader.failed()) {
    *error = "cannot read profile '" + input->name + "': " + input->source->error();
    return ProfileKind::kFailed;
  }
  *label = Label(*input, found);
  return ProfileKind::kBugReport;
}

// Text whole, at most as much as the store takes.
bool ReadWhole(Input* input, std::string* text, std::string* error) {
  text->clear();
  char buf[65536];
  for (ssize_t n; (n = input->source->Read(buf, sizeof(buf))) != 0;) {
    if (n < 0) {
      *error = "cannot read " + Quoted(input->name) + ": " + input->source->error();
      return false;
    }
    text->append(buf, static_cast<size_t>(n));
    if (text->size() > KOVANI_HOST_PROPERTY_FILE_MAX) {
      *error = "cannot read " + Quoted(input->name) + ": " + strerror(EFBIG);
      return false;
    }
  }
  return true;
}

}  // namespace

ProfileKind ReadBugReportProfile(const std::string& path, std::string* text, std::string* label,
                                 std::string* error) {
  struct stat st;
  // The store refuses what is not a regular file, without waiting on it.
  if (stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return ProfileKind::kPlain;
  Input input;
  if (!OpenInput(path, &input, error)) return ProfileKind::kFailed;
  if (input.kind != InputKind::kText) return ReadProperties(&input, text, label, error);
  if (input.encoding == TextEncoding::kUtf8) return ProfileKind::kPlain;
  *label = path + " (" + EncodingName(input.encoding) + ")";
  return ReadWhole(&input, text, error) ? ProfileKind::kDecoded : ProfileKind::kFailed;
}

ProfileKind ReadStandardInputProfile(std::string* text, std::string* label, std::string* error) {
  Input input;
  if (!OpenInput("-", &input, error)) return ProfileKind::kFailed;
  if (input.kind != InputKind::kText) return ReadProperties(&input, text, label, error);
  return ReadWhole(&input, text, error) ? ProfileKind::kPlain : ProfileKind::kFailed;
}

}  // namespace kovani_tool
