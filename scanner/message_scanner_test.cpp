// The message walker as an object: envelope data, the diagnostics set, and the same findings
// whatever the size of the reader's blocks; and the filter's answer when a file vanishes.
#include "scanner/message_scanner.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "kvs/base64.h"
#include "kvs/log.h"
#include "scanner/attachment_filter.h"
#include "tests/support/support.h"
#include "tests/zip_image.h"

namespace {

using Set = std::set<std::string>;
using TempFiles = test_support::TempDir;

const std::string kData = std::string(VELMORA_SOURCE_DIR) + "/tests/data/messages/";

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
  scan(scanner, kData + "envelope-plain.msg");
  EXPECT_EQ(scanner.sender(), "sender@example.com");
  EXPECT_EQ(scanner.recipients(), (Set{"one@example.com", "two@example.com"}));

  TempFiles files;
  scan(scanner, files.write("later.msg",
                            "P I 1 <First@x>\nP I 2 <Second@X>\nR W <no-end\nR <x@y>\n\nbody\n"));
  EXPECT_EQ(scanner.sender(), "second@x") << "a later P line replaces the sender";
  EXPECT_TRUE(scanner.recipients().empty()) << "too short, or no closing '>'";

  scan(scanner, kData + "no-envelope-x-header.msg");
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

  scan(scanner, kData + "multipart-names.msg");
  EXPECT_TRUE(scanner.diagnostics().empty());
  EXPECT_EQ(scanner.results(), (Set{"...", "gz", "pdf"}));
}

// Every sample message, ZIP parts among them, read in blocks as small as one byte.
TEST(MessageScanner, SameFindingsWhateverTheBlockSize) {
  std::vector<std::string> paths;
  for (const auto& entry : std::filesystem::directory_iterator(kData)) {
    if (entry.path().extension() == ".msg") paths.push_back(entry.path().string());
  }
  ASSERT_GT(paths.size(), 30u);
  MessageScanner reference;
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

// A base64 ZIP message: an archive of `entries` around `filler`, perhaps cut short or followed
// by bytes after its directory, in lines of any width, with strangers and padding strewn in.
std::string zipMessage(std::mt19937& random) {
  std::vector<zip_image::ZipEntry> entries;
  for (int k = static_cast<int>(random() % 30); k > 0; --k) {
    entries.push_back({"f" + std::to_string(k) + (k % 3 ? ".exe" : ".Txt"),
                       static_cast<std::uint16_t>(k % 7 == 0)});
  }
  auto noise = [&](std::size_t n) {
    std::string s(n, '\0');
    for (char& c : s) c = static_cast<char>(random() & 0xFF);
    return s;
  };
  std::string zip =
      zip_image::zipImage(entries, noise(random() % 3 ? random() % 2000 : random() % 200000)).bytes;
  if (random() % 4 == 0) zip += noise(random() % 100000);
  if (random() % 6 == 0) zip.resize(random() % (zip.size() + 1));
  const std::string text = kvs::base64Encode(zip);
  const std::size_t width = random() % 4 == 0 ? 1 + random() % 200 : 76;
  const char* const odd[] = {"*", "=", "====", "{", " ", "-x", "\x80", "QQ=="};
  const char* const end = random() % 2 ? "\r\n" : "\n";
  std::string body;
  for (std::size_t at = 0; at < text.size(); at += width) {
    if (random() % 300 == 0) body += odd[random() % std::size(odd)];
    body += text.substr(at, width) + end;
  }
  return "Content-Type: multipart/mixed; boundary=z\n\n--z\n\ntext\n--z\n"
         "Content-Type: application/zip; name=a.zip\nContent-Transfer-Encoding: base64\n\n" +
         body + (random() % 5 ? "--z--\n" : "");
}

TEST(MessageScanner, CountedZipsGiveWhatDecodedOnesGive) {
  // Counting a base64 ZIP part and decoding afterwards only what its directory reader looks at,
  // against decoding it whole: the same findings and complaints, whatever the block size.
  std::mt19937 random(31);
  TempFiles files;
  std::vector<std::string> paths;
  for (int i = 0; i < 24; ++i) {
    paths.push_back(files.write("zip" + std::to_string(i) + ".msg", zipMessage(random)));
  }
  for (std::size_t block : {std::size_t{61}, std::size_t{4096}, std::size_t{128 * 1024}}) {
    MessageScanner counted(block, true), decoded(block, false);
    for (const std::string& path : paths) {
      const Scan want = scan(decoded, path);
      const Scan got = scan(counted, path);
      EXPECT_EQ(got.results, want.results) << path << " block " << block;
      EXPECT_EQ(counted.diagnostics(), decoded.diagnostics()) << path << " block " << block;
    }
  }
}

std::string captured;

TEST(AttachmentFilter, VanishedFileIsAcceptedWithAComment) {
  captured.clear();
  const auto old = kvs::setOutputWriter([](std::string_view text) { captured += text; });
  AttachmentFilter filter;
  const cgp::Verdict gone = filter.filterMessage(1, std::string("no/such/file.msg\0tail", 21));
  const cgp::Verdict next = filter.filterMessage(2, kData + "single-part-name.msg");
  kvs::setOutputWriter(old);
  EXPECT_EQ(gone.code, cgp::Verdict::OK);
  EXPECT_TRUE(gone.lines.empty());
  EXPECT_EQ(captured, "* Unexpected error, contact Korvantis\n");
  EXPECT_EQ(next.code, cgp::Verdict::ADDHEADER);
  EXPECT_EQ(next.lines,
            (std::vector<std::string>{"X-AttachExt: pdf", "X-ExtScanner: Korvantis's Velmora"}));
}

}  // namespace
