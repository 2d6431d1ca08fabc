// Bytes as text: lower-case hexadecimal, the dataset string escapes, the words for booleans.
#pragma once

#include <string>
#include <string_view>

namespace kvs {

// Each byte as two lower-case hexadecimal digits, no separators.
[[nodiscard]] std::string hex(std::string_view bytes);

// The dataset string escapes, without quotes: backslash doubled, CR dropped, LF as "\e", tab as
// "\t", double quote as "\"", and a byte of value 0 as "\0" (never a raw NUL on the wire).
[[nodiscard]] std::string escapeString(std::string_view text);
// The same, appended to `out`.
void appendEscaped(std::string& out, std::string_view text);
// The way back: \" \0 \\ \e \t; any other pair is kept as it stands, and so is a backslash at
// the very end.
[[nodiscard]] std::string unescapeString(std::string_view text);

[[nodiscard]] inline const char* boolText(bool value) {
  return value ? "true" : "false";
}

}  // namespace kvs
