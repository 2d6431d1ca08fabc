// Header values, parameters, the top-level boundary, encoded words and attachment extensions
// (more rows are among the sample messages: odd-names, encoded-words, parameter-rules).
#include <gtest/gtest.h>

#include <string>

#include "scanner/message_scanner.h"

namespace {

// A header's value after its name (H), a parameter's value (P): the value, or "untouched".
TEST(NameRules, HeaderAndParamValues) {
  const struct {
    char kind;
    const char *name, *line;
    bool found;
    const char* value;
  } cases[] = {
      {'H', "content-type:", "Content-Type: text/plain", true, "text/plain"},
      {'H', "content-type:", "CONTENT-TYPE:\t  a/b;;\r\n", true, "a/b"},
      {'H', "content-type:", "content-type: a/b ; ", true, "a/b ; "},  // only CR, LF, ';' dropped
      {'H', "content-type:", "Content-Type:   ", true, ""},
      {'H', "content-type:", "Content-Type:", false, ""},  // not longer than the name
      {'H', "content-type:", "Content-Typo: x", false, ""},
      {'H', "content-type:", "X-Content-Type: x", false, ""},
      {'H', "content-type:", "Content-Type : x", false, ""},
      {'H', "content-disposition:", "Content-Disposition: attachment;", true, "attachment"},
      {'P', "name=", "application/pdf; name=\"Report.PDF\"", true, "Report.PDF"},
      {'P', "name=", "a; name=plain.txt; charset=x", true, "plain.txt"},
      {'P', "name=", "a; name=  spaced.txt other", true, "spaced.txt"},
      {'P', "name=", "a; name=\"no end", false, ""},
      {'P', "name=", "a; name=", false, ""},  // nothing after it
      {'P', "name=", "name=", false, ""},     // not longer than it
      {'P', "name=", "a; name=;b", true, ""},
      {'P', "name=", "a; name=\"back\\\"slash\"", true, "back\\"},  // no unescaping
      {'P', "boundary=", "multipart/mixed; boundary=abc; charset=x", true, "abc"},
  };
  for (const auto& c : cases) {
    std::string value = "untouched";
    EXPECT_EQ(c.kind == 'H' ? MessageScanner::headerValue(c.name, c.line, value)
                            : MessageScanner::paramValue(c.name, c.line, value),
              c.found)
        << c.line;
    EXPECT_EQ(value, c.found ? c.value : "untouched") << c.line;
  }
}

TEST(NameRules, TopLevelBoundaryIsSearchedInTheWholeLine) {
  const struct {
    const char* line;
    bool found;
    const char* boundary;
  } cases[] = {
      {"Content-Type: multipart/mixed; boundary=abc; charset=x", true, "abc; charset=x"},
      {"Content-Type: multipart/mixed; boundary=\"abc\"; charset=x", true, "abc"},
      {"Content-Type: multipart/mixed; boundary=\"abc", true, "abc"},
      {"Content-Type: text/plain; boundary=x", true, "x"},  // whatever the media type
      {"Content-Type: text/plain", false, ""},
      {"boundary=early but not from byte 10", false, ""},
      {"boundary=x", false, ""},  // no byte 10 at all
      {"Content-Type: multipart/mixed; BOUNDARY=x", false, ""},
  };
  for (const auto& c : cases) {
    std::string boundary;
    EXPECT_EQ(MessageScanner::messageBoundary(c.line, boundary), c.found) << c.line;
    EXPECT_EQ(boundary, c.boundary) << c.line;
  }
}

TEST(NameRules, AttachmentExtension) {
  const struct {
    const char* name;
    const char* ext;
  } cases[] = {
      {"archive.", "..."},  // unlike a stored name
      {"x.  ", ""},
      {"=?x?q?a?= =?x?q?.doc?=", "doc"},  // what lies between words stays
      {"=?x?q?a?==?x?q?.xls?=", "xls"},   // adjacent words
      // "?q?" is looked for before "?b?", even in a later word: all of it becomes "n".
      {"=?x?b?Lm1wMw==?=.=?x?q?n?=", "..."},
      {"=?no marker.txt", "txt"},           // an opener without marker stays
      {"=?x?q?unended.doc", "doc"},         // a marker without "?=" stays
      {"=?x?b?LmV4ZQ==?=\xC0", "exe\xC0"},  // bytes above 127 kept
      {"A.\x8A\xC0", "\x9A\xC0"},           // the library's lower-case table
  };
  for (const auto& c : cases) {
    EXPECT_EQ(MessageScanner::attachmentExtension(c.name), c.ext) << c.name;
  }
}

TEST(NameRules, LongNamesFullOfOpenersStayLinear) {
  std::string name;
  for (int i = 0; i < 200000; ++i) name += "=?";
  name += "?q?x.PDF?=";
  EXPECT_EQ(MessageScanner::attachmentExtension(name), "pdf");
  std::string words;
  for (int i = 0; i < 100000; ++i) words += "=?x?q?a?=";
  words += ".Z";
  EXPECT_EQ(MessageScanner::attachmentExtension(words), "z");
}

}  // namespace
