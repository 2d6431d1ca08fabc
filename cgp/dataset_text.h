// The server's dataset text notation: the writer (multi-line and one-line forms) and the reader.
#pragma once

#include <cstddef>
#include <ostream>
#include <string>
#include <string_view>

#include "cgp/dataset.h"

namespace cgp {

// True for the 64 characters that a text may be written with, bare.
[[nodiscard]] bool isAtomChar(unsigned char c);

// A text in its written form: the escapes, then bare when every character is an atom character
// and the text is not empty, else in double quotes.
[[nodiscard]] std::string quoteText(std::string_view text);

// Writes `value` as the server does; `depth` sets the indentation of the line changes, which
// the one-line form leaves out.
void writeDataSet(std::ostream& out, const DataSet& value, int depth, bool oneLine);
[[nodiscard]] std::string writeDataSet(const DataSet& value, bool oneLine);

// Reads one value. On a syntax error the error line "* while parsing ..." goes to standard
// output (unless switched off) and the result is an empty value. Empty or all-whitespace text
// reads as an empty value without an error. All reading in the process is serialised by one
// lock.
[[nodiscard]] DataSet parseDataSet(std::string_view text, const std::string& sourceName = "string");

// The deepest nesting of arrays and dictionaries that the reader accepts.
inline constexpr std::size_t kMaxDataSetDepth = 10000;

// The error line switch (on at start) and the number of syntax errors seen by this process.
void setParseErrorOutput(bool on);
[[nodiscard]] std::size_t parseErrorCount();

}  // namespace cgp
