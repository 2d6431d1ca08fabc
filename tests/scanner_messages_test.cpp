// The filter's answers to hand-written messages and to messages carrying ZIP archives, each
// checked exactly through the velmora program.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/scanner_support.h"

namespace {

using scanner_support::addHeader;
using scanner_support::dataFile;
using scanner_support::scanAll;

struct Expected {
  const char* file;
  const char* answer;
  const char* why;
};

// Every file of tests/data/messages with its exact answer.
const Expected kMessages[] = {
    {"envelope-plain.msg", R"(ADDHEADER "X-ExtScanner: Korvantis's Velmora")",
     "envelope lines are skipped; plain text has no finding"},
    {"headers-only.msg",
     R"(ADDHEADER "X-AttachExt: pdf\eX-EmptyBody: YES\eX-ExtScanner: Korvantis's Velmora")",
     "a header block that never ends: a name but no body"},
    {"blank-body-lines.msg", R"(ADDHEADER "X-EmptyBody: YES\eX-ExtScanner: Korvantis's Velmora")",
     "a body of empty lines only"},
    {"one-blank-body-line.msg", R"(ADDHEADER "X-ExtScanner: Korvantis's Velmora")",
     "a body line holding one blank is content"},
    {"blank-first-line.msg", R"(ADDHEADER "X-ExtScanner: Korvantis's Velmora")",
     "a blank first line ends the header at once; what follows is body"},
    {"single-part-name.msg", R"(ADDHEADER "X-AttachExt: pdf\eX-ExtScanner: Korvantis's Velmora")",
     "name= of a single-part message"},
    {"multipart-names.msg",
     R"(ADDHEADER "X-AttachExt: ...\eX-AttachExt: gz\eX-AttachExt: pdf\eX-ExtScanner: Korvantis's Velmora")",
     "filename= and name= of parts, duplicates once, no-dot name"},
    {"multipart-names-crlf.msg",
     R"(ADDHEADER "X-AttachExt: ...\eX-AttachExt: gz\eX-AttachExt: pdf\eX-ExtScanner: Korvantis's Velmora")",
     "the same with CR LF line ends"},
    {"boundary-rules.msg", R"(ADDHEADER "X-AttachExt: doc\eX-ExtScanner: Korvantis's Velmora")",
     "the top-level boundary runs to the line's end; a part's stops at ';'"},
    {"rfc822-part.msg",
     R"(ADDHEADER "X-AttachExt: png\eX-AttachExt: txt\eX-ExtScanner: Korvantis's Velmora")",
     "an embedded message with its own multipart body, then the outer part goes on"},
    {"rfc822-top-level.msg", R"(ADDHEADER "X-ExtScanner: Korvantis's Velmora")",
     "only a body part's message/rfc822 opens an embedded message"},
    {"folding.msg",
     R"(ADDHEADER "X-AttachExt: docx\eX-AttachExt: xls\eX-ExtScanner: Korvantis's Velmora")",
     "unfolded header lines; a whitespace-only line ends the header block"},
    {"encoded-words.msg",
     R"(ADDHEADER "X-AttachExt: ...\eX-AttachExt: b_c?=\eX-AttachExt: docx\eX-AttachExt: pdf\eX-AttachExt: txt\eX-ExtScanner: Korvantis's Velmora")",
     "?b? and ?q? words decoded, ?B? and ?Q? left as they are"},
    {"odd-names.msg",
     R"(ADDHEADER "X-AttachExt: \eX-AttachExt: ...\eX-AttachExt: jpg\eX-AttachExt: p df\eX-AttachExt: pdf\eX-ExtScanner: Korvantis's Velmora")",
     "no dot, trailing dot, blanks trimmed, a blank kept inside, an empty extension"},
    {"parameter-rules.msg", R"(ADDHEADER "X-AttachExt: rtf\eX-ExtScanner: Korvantis's Velmora")",
     "filename*= ignored, name= found in filename=, Name= not, unclosed quote ignored"},
    {"empty-parts-unclosed.msg",
     R"(ADDHEADER "X-EmptyBody: YES\eX-ExtScanner: Korvantis's Velmora")",
     "delimiter lines that open parts are no content"},
    {"empty-parts-closed.msg", R"(ADDHEADER "X-ExtScanner: Korvantis's Velmora")",
     "a closing delimiter that opens nothing is content"},
    {"epilogue.msg", R"(ADDHEADER "X-AttachExt: txt\eX-ExtScanner: Korvantis's Velmora")",
     "after the top-level closing delimiter the epilogue is plain text"},
    {"delimiter-in-part-header.msg",
     R"(ADDHEADER "X-AttachExt: csv\eX-AttachExt: txt\eX-ExtScanner: Korvantis's Velmora")",
     "a delimiter inside a part's header block opens the next part"},
    {"delimiter-in-top-header.msg",
     R"(ADDHEADER "X-AttachExt: bin\eX-AttachExt: txt\eX-ExtScanner: Korvantis's Velmora")",
     "the top-level header block is exempt from the delimiter test"},
    {"boundary-ending-in-dashes.msg", R"(ADDHEADER "X-ExtScanner: Korvantis's Velmora")",
     "the closing test looks at the boundary's length from the line's start"},
    {"boundary-case.msg", R"(ADDHEADER "X-AttachExt: txt\eX-ExtScanner: Korvantis's Velmora")",
     "boundaries compare without regard to case"},
    {"envelope-swallows-header.msg",
     R"(ADDHEADER "X-EmptyBody: YES\eX-ExtScanner: Korvantis's Velmora")",
     "a first line like 'A <...>' starts an envelope that runs to the first empty line"},
    {"no-envelope-x-header.msg",
     R"(ADDHEADER "X-AttachExt: pdf\eX-ExtScanner: Korvantis's Velmora")",
     "'X-' is no envelope line"},
};

TEST(ScannerMessages, HandWrittenMessagesAnswerExactly) {
  std::vector<std::string> files;
  for (const auto& e : kMessages) files.push_back(dataFile(e.file));
  const auto answers = scanAll(files);
  ASSERT_EQ(answers.run.exitCode, 0) << answers.run.err;
  for (std::size_t i = 0; i < files.size(); ++i) {
    EXPECT_EQ(answers.lines[i], kMessages[i].answer)
        << kMessages[i].file << ": " << kMessages[i].why;
  }
}

TEST(ScannerMessages, EveryDataFileHasAnExpectedAnswer) {
  std::size_t count = 0;
  for (const auto& entry :
       std::filesystem::directory_iterator(testing_process::sourceDir() + "/tests/data/messages")) {
    if (entry.path().extension() != ".msg") continue;
    ++count;
    bool listed = false;
    for (const auto& e : kMessages) listed = listed || entry.path().filename() == e.file;
    EXPECT_TRUE(listed) << entry.path().filename() << " has no expected answer";
  }
  EXPECT_EQ(count, std::size(kMessages));
}

TEST(ScannerMessages, FailedRequestsLeaveNoTrace) {
  // A missing file is answered by the engine; the next message is answered as if alone.
  const auto answers = scanAll(
      {dataFile("no-such-file.msg"), dataFile("headers-only.msg"), dataFile("envelope-plain.msg")});
  ASSERT_EQ(answers.run.exitCode, 0);
  EXPECT_EQ(answers.lines[0], "OK \"Error: File Not Found " + dataFile("no-such-file.msg") + "\"");
  EXPECT_EQ(answers.lines[1], kMessages[1].answer);
  EXPECT_EQ(answers.lines[2], kMessages[0].answer);
}

// ZIP attachments, built here: each case names its archive, how the part carries it, and the
// answer.
using scanner_support::ZipEntry;
using scanner_support::zipImage;
using zip_image::patch16;
using zip_image::patch32;

enum class Carry { Base64, QuotedPrintable, AsIs };

std::string carried(const std::string& image, Carry carry, const std::string& name,
                    const std::string& eol = "\n") {
  std::string headers = "Content-Type: application/zip; name=\"" + name + "\"\n";
  switch (carry) {
    case Carry::Base64:
      return scanner_support::messageWithPart(headers + "Content-Transfer-Encoding: base64",
                                              scanner_support::base64Lines(image, eol), eol);
    case Carry::QuotedPrintable:
      return scanner_support::messageWithPart(
          headers + "Content-Transfer-Encoding: Quoted-Printable",
          scanner_support::quotedPrintable(image), eol);
    case Carry::AsIs:
      return scanner_support::messageWithPart(headers, image + "\n", eol);
  }
  return {};
}

// An image with line feeds inside (but no CR before one), so that splitting it into lines and
// joining them again is really exercised.
std::string asIsImage() {
  return zipImage({{"a.EXE"}, {"b.txt"}}, "data\nmore\n\nend").bytes;
}

struct ZipCase {
  const char* label;
  std::string message;
  std::string answer;
};

std::vector<ZipCase> zipCases() {
  const std::vector<ZipEntry> two = {{"a.EXE"}, {"b.txt"}};
  const std::string plain = zipImage(two).bytes;
  const std::string twoFound = addHeader({"zip", "zip/exe", "zip/txt"});
  std::vector<ZipCase> cases;
  cases.push_back({"base64", carried(plain, Carry::Base64, "a.zip"), twoFound});
  cases.push_back(
      {"base64 CRLF with envelope",
       "P I 1 <a@b.c>\r\nR W 2 <c@d.e>\r\n\r\n" + carried(plain, Carry::Base64, "a.ZIP", "\r\n"),
       twoFound});
  cases.push_back({"quoted-printable", carried(plain, Carry::QuotedPrintable, "a.zip"), twoFound});
  cases.push_back({"as is", carried(asIsImage(), Carry::AsIs, "a.zip"), twoFound});
  cases.push_back({"zipx is inspected too", carried(plain, Carry::Base64, "data.ZIPX"),
                   addHeader({"zip/exe", "zip/txt", "zipx"})});
  cases.push_back({"encrypted entry",
                   carried(zipImage({{"secret.doc", 1}, {"b.txt"}}).bytes, Carry::Base64, "a.zip"),
                   addHeader({"zip", "zip.pw", "zip/doc", "zip/txt"})});
  cases.push_back(
      {"stored paths and directories",
       carried(zipImage({{"dir.v2/readme"}, {"docs/"}, {"x."}}).bytes, Carry::Base64, "a.zip"),
       addHeader({"zip", "zip/", "zip/...", "zip/v2/readme"})});
  {
    auto z = zipImage(two);
    patch16(z.bytes, z.endRecord + 8, 3);
    cases.push_back({"more entries counted than present", carried(z.bytes, Carry::Base64, "a.zip"),
                     addHeader({"zip", "zip.corrupted", "zip/exe", "zip/txt"})});
  }
  {
    auto z = zipImage(two);
    patch16(z.bytes, z.endRecord + 8, 0);
    cases.push_back(
        {"no entries counted", carried(z.bytes, Carry::Base64, "a.zip"), addHeader({"zip"})});
  }
  {
    auto z = zipImage(two);
    patch32(z.bytes, z.endRecord + 16, 0xFFFFFFF0u);
    cases.push_back({"directory offset outside the image", carried(z.bytes, Carry::Base64, "a.zip"),
                     addHeader({"zip", "zip.corrupted"})});
  }
  {
    auto z = zipImage(two);
    patch16(z.bytes, z.directory + 28, 0xFFFF);
    cases.push_back({"name length outside the image", carried(z.bytes, Carry::Base64, "a.zip"),
                     addHeader({"zip", "zip.corrupted"})});
  }
  {
    auto z = zipImage(two);
    z.bytes.resize(z.endRecord + 19);
    cases.push_back({"end record cut short", carried(z.bytes, Carry::Base64, "a.zip"),
                     addHeader({"zip", "zip.corrupted"})});
  }
  cases.push_back({"not an archive", carried("just some text, no archive", Carry::Base64, "a.zip"),
                   addHeader({"zip"})});
  {
    // Blanks, a stranger and "{" for "0" are all taken in stride by the base64 decoder.
    std::string body = scanner_support::base64Lines(plain);
    std::string quirky;
    for (char c : body) {
      quirky += c == '0' ? '{' : c;
      if (c == 'A') quirky += " *";
    }
    cases.push_back({"base64 quirks",
                     scanner_support::messageWithPart("Content-Type: application/zip; name=a.zip\n"
                                                      "Content-Transfer-Encoding: base64",
                                                      quirky),
                     twoFound});
  }
  {
    // A group of four that yields no byte ends the decoding: the directory is never reached.
    std::string body = scanner_support::base64Lines(plain);
    body.insert(76 + 1, "====\n");
    cases.push_back({"a group without bytes ends the image",
                     scanner_support::messageWithPart("Content-Type: application/zip; name=a.zip\n"
                                                      "Content-Transfer-Encoding: base64",
                                                      body),
                     addHeader({"zip", "zip.corrupted"})});
  }
  cases.push_back({"single-part message carrying a ZIP",
                   "Content-Type: application/zip; name=\"whole.zip\"\n"
                   "Content-Transfer-Encoding: base64\n\n" +
                       scanner_support::base64Lines(plain),
                   twoFound});
  cases.push_back({"a multipart message's own name is not an archive",
                   "Content-Type: multipart/mixed; boundary=\"zz\"; name=\"top.zip\"\n"
                   "Content-Transfer-Encoding: base64\n\n" +
                       scanner_support::base64Lines(plain) +
                       "--zz\nContent-Type: text/plain\n\nx\n--zz--\n",
                   addHeader({"zip"})});
  return cases;
}

TEST(ScannerMessages, ZipAttachments) {
  scanner_support::TempDir dir;
  const auto cases = zipCases();
  std::vector<std::string> files;
  for (std::size_t i = 0; i < cases.size(); ++i) {
    files.push_back(dir.write("zip" + std::to_string(i) + ".msg", cases[i].message));
  }
  const auto answers = scanAll(files);
  ASSERT_EQ(answers.run.exitCode, 0) << answers.run.err;
  for (std::size_t i = 0; i < cases.size(); ++i) {
    EXPECT_EQ(answers.lines[i], cases[i].answer) << cases[i].label;
  }
}

TEST(ScannerMessages, AsIsImageHasNoLineEndToLose) {
  // The as-is case above is only meaningful if the image survives line splitting unchanged.
  const std::string image = asIsImage();
  EXPECT_EQ(image.find("\r\n"), std::string::npos);
  EXPECT_NE(image.find('\n'), std::string::npos) << "no line end inside: the test would be weaker";
}

}  // namespace
