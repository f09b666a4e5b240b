// Text helpers the whole tool shares: printf into a string, bytes from
// outside as a terminal may safely see them, and the decimal fields of logs.

#ifndef KOVANI_TOOLS_COMMON_TEXT_H
#define KOVANI_TOOLS_COMMON_TEXT_H

#include <stdarg.h>
#include <stdint.h>

#include <string>
#include <string_view>

namespace kovani_tool {

// printf's text of format and args, however long.
std::string Formatted(const char* format, va_list args) __attribute__((format(printf, 1, 0)));

// Bytes from outside the tool as text output shows them: control
// characters (C0, DEL and C1, as UTF-8 or a lone byte), which a terminal
// would act on, as \xNN.
std::string Shown(std::string_view text);

// The length of the valid UTF-8 character at text[at], or 0 when invalid.
size_t Utf8Length(std::string_view text, size_t at);

// Each text the tool keeps from a log is at most this long, then marked.
constexpr size_t kLogTextMax = 256;
constexpr std::string_view kCutMark = "...";
// text, or its first kLogTextMax bytes followed by kCutMark.
std::string ClipLogText(std::string_view text);

// An input's name as messages show it: quoted, unless it is standard input.
std::string Quoted(const std::string& name);

// A line without the '\r's of its end: CRLF, or CRCRLF from a terminal
// capture saved on Windows.
std::string_view WithoutCr(std::string_view line);

inline bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// Decimal digits, saturating at UINT64_MAX.
uint64_t ParseUnsigned(std::string_view digits);
// Digits with an optional '-', saturating at INT64_MAX either way.
int64_t ParseInteger(std::string_view digits);
// 1 to 10 digits that fit 32 bits, or 0.
uint32_t ParseId(std::string_view digits);

}  // namespace kovani_tool

#endif  // KOVANI_TOOLS_COMMON_TEXT_H
