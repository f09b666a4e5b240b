// The text forms shared by the test data files.
#ifndef KOVANI_TEST_TEXT_H
#define KOVANI_TEST_TEXT_H

#include <string>
#include <vector>

namespace kovani_test {

// "\t", "\r", "\n", "\v", "\f", "\\", "\"" and "\xNN" stand for those bytes.
std::string Unescape(const std::string& text);

// A text value: "quoted"*count, joined by '+'; a bare word stands for
// itself. False for null.
bool ParseText(const std::string& token, std::string* out);

// Words split at `separator` outside quotes.
std::vector<std::string> Tokens(const std::string& line, char separator = ' ');

}  // namespace kovani_test

#endif  // KOVANI_TEST_TEXT_H
