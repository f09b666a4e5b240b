// The host property store's two text formats, as pure functions: profiles
// (build.prop "name=value" and getprop "[name]: [value]" lines) and the
// persistence file ("name=value" lines with escapes). Internal to libcutils.
#ifndef KOVANI_HOST_PROPERTY_TEXT_H
#define KOVANI_HOST_PROPERTY_TEXT_H

#include <string>
#include <string_view>

namespace kovani_host {

bool is_valid_name(std::string_view name);
bool is_read_only(std::string_view name);
bool is_persistent(std::string_view name);

// nullptr when value may be stored under name by a set or a load, else why
// it may not.
const char* value_problem(std::string_view name, std::string_view value);

// Receives what a text holds, in the order it holds it.
class TextVisitor {
 public:
  virtual void entry(std::string_view name, std::string_view value) = 0;
  // line counts from 1; reason is a literal.
  virtual void bad_line(unsigned long line, const char* reason) = 0;

 protected:
  ~TextVisitor() = default;
};

// A profile. A getprop value that spans lines runs to the line that ends
// with ']'; a line that starts another getprop entry before that ends it.
// A value that never closes is one bad line at its first line, and the lines
// after it are read as lines of their own.
void parse_profile(std::string_view text, TextVisitor* visitor);

// A persistence file; a bad line is one to keep as it is.
void parse_persist(std::string_view text, TextVisitor* visitor);

// Lines the store cannot parse and not a single entry: someone else's file,
// which a rewrite would bury under ours.
bool is_foreign(std::string_view text);

// text with every entry for name set to *value, or removed when value is
// null; a name not there yet is appended. Every other line stays as it is.
std::string with_change(std::string_view text, const std::string& name, const std::string* value);

}  // namespace kovani_host

#endif  // KOVANI_HOST_PROPERTY_TEXT_H
