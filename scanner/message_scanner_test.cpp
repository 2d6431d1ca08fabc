// The message walker as an object: envelope data, the diagnostics set, and the same findings
// whatever the size of the reader's blocks; and the filter's answer when a file vanishes.
#include "scanner/message_scanner.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "kvs/log.h"
#include "scanner/attachment_filter.h"
#include "tests/scanner_support.h"

namespace {

using Set = std::set<std::string>;
using TempFiles = scanner_support::TempDir;

std::string dataDir() {
  return std::string(VELMORA_SOURCE_DIR) + "/tests/data/messages/";
}

struct Scan {
  Set results;
  bool emptyBody;
};

Scan scan(MessageScanner& scanner, const std::string& path) {
  EXPECT_TRUE(scanner.open(path)) << path;
  std::string line;
  while (scanner.readLine(line)) {
  }
  scanner.close();
  return {scanner.results(), scanner.emptyBody()};
}

TEST(MessageScanner, EnvelopeSenderAndRecipients) {
  MessageScanner scanner;
  scan(scanner, dataDir() + "envelope-plain.msg");
  EXPECT_EQ(scanner.sender(), "sender@example.com");
  EXPECT_EQ(scanner.recipients(), (Set{"one@example.com", "two@example.com"}));

  TempFiles files;
  scan(scanner, files.write("later.msg",
                            "P I 1 <First@x>\nP I 2 <Second@X>\nR W <no-end\nR <x@y>\n\nbody\n"));
  EXPECT_EQ(scanner.sender(), "second@x") << "a later P line replaces the sender";
  EXPECT_TRUE(scanner.recipients().empty()) << "too short, or no closing '>'";

  scan(scanner, dataDir() + "no-envelope-x-header.msg");
  EXPECT_EQ(scanner.sender(), "");
  EXPECT_EQ(scanner.results(), Set{"pdf"});
  EXPECT_FALSE(scanner.isMbox());
  scan(scanner, files.write("box.MBox", "Subject: x\n\ny\n"));
  EXPECT_TRUE(scanner.isMbox());
}

TEST(MessageScanner, DiagnosticsStayOutOfTheResults) {
  TempFiles files;
  MessageScanner scanner;
  scan(scanner, files.write("open.msg",
                            "Content-Type: multipart/mixed; boundary=a\n\n--a\n"
                            "Content-Type: multipart/mixed; boundary=b\n\n--b\n"
                            "Content-Type: multipart/mixed; boundary=c\n\n--c\n\nx\n"));
  EXPECT_EQ(scanner.diagnostics(), Set{"Unterminated MIME sentinel at end of message"});
  EXPECT_TRUE(scanner.results().empty());

  // Left-over boundaries are reported when the next message is opened.
  const std::string missing = files.path() + "/missing.msg";
  EXPECT_FALSE(scanner.open(missing));
  EXPECT_EQ(scanner.diagnostics(),
            (Set{"Can't find/open the file: " + missing,
                 "Orphaned part boundary on stack :", "Orphaned part boundary on stack :a"}));
  EXPECT_TRUE(scanner.results().empty());

  scan(scanner, dataDir() + "multipart-names.msg");
  EXPECT_TRUE(scanner.diagnostics().empty());
  EXPECT_EQ(scanner.results(), (Set{"...", "gz", "pdf"}));
}

const char kZipPart[] =
    "Content-Type: multipart/mixed; boundary=\"z\"\n\n--z\n"
    "Content-Type: application/zip; name=\"a.zip\"\n"
    "Content-Transfer-Encoding: base64\n\n"
    "UEsDBAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAAUEsBAhQAFAAAAAAAAAAAAAAAAAAAAAAAAAAA\n"
    "AAYAAAAAAAAAAAAAAAAAAAAAAGluLkVYRVBLAQIUABQAAQAAAAAAAAAAAAAAAAAAAAAAAAAFAAAA\n"
    "AAAAAAAAAAAAAAAAAAB4LnR4dFBLBQYAAAAAAgACAGcAAAAeAAAAAAA=\n"
    "--z--\n";

TEST(MessageScanner, SameFindingsWhateverTheBlockSize) {
  TempFiles files;
  std::vector<std::string> paths = {files.write("zip.msg", kZipPart),
                                    files.write("zip-crlf.msg", [] {
                                      std::string crlf;
                                      for (char c : std::string(kZipPart)) {
                                        if (c == '\n') crlf += '\r';
                                        crlf += c;
                                      }
                                      return crlf;
                                    }())};
  for (const auto& entry : std::filesystem::directory_iterator(dataDir())) {
    if (entry.path().extension() == ".msg") paths.push_back(entry.path().string());
  }
  MessageScanner reference;
  const Scan zip = scan(reference, paths[0]);
  EXPECT_EQ(zip.results, (Set{"zip", "zip.pw", "zip/exe", "zip/txt"}));
  for (std::size_t block : {1u, 2u, 5u, 64u}) {
    MessageScanner small(block);
    for (const auto& path : paths) {
      const Scan want = scan(reference, path);
      const Scan got = scan(small, path);
      EXPECT_EQ(got.results, want.results) << path << " block " << block;
      EXPECT_EQ(got.emptyBody, want.emptyBody) << path << " block " << block;
    }
  }
}

std::string captured;

TEST(AttachmentFilter, VanishedFileIsAcceptedWithAComment) {
  captured.clear();
  const auto old = kvs::setOutputWriter([](std::string_view text) { captured += text; });
  AttachmentFilter filter;
  const cgp::Verdict gone = filter.filterMessage(1, std::string("no/such/file.msg\0tail", 21));
  const cgp::Verdict next = filter.filterMessage(2, dataDir() + "single-part-name.msg");
  kvs::setOutputWriter(old);
  EXPECT_EQ(gone.code, cgp::Verdict::OK);
  EXPECT_TRUE(gone.lines.empty());
  EXPECT_EQ(captured, "* Unexpected error, contact Korvantis\n");
  EXPECT_EQ(next.code, cgp::Verdict::ADDHEADER);
  EXPECT_EQ(next.lines,
            (std::vector<std::string>{"X-AttachExt: pdf", "X-ExtScanner: Korvantis's Velmora"}));
}

}  // namespace
