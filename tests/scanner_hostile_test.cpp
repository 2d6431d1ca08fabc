// Hostile and real-world input through the velmora program: deep nesting, huge lines, truncated
// and random files, broken ZIP directories, and the shared corpus of messages nobody here wrote.
// Every request must get one well-formed answer, and later requests must not notice.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>
#include <regex>
#include <string>
#include <vector>

#include "tests/scanner_support.h"

namespace {

using scanner_support::addHeader;
using scanner_support::dataFile;
using scanner_support::scanAll;
using scanner_support::TempDir;
using scanner_support::zipImage;

// A scanned message's answer: header lines ending with the scanner's own.
bool wellFormed(const std::string& answer) {
  static const std::regex shape(
      R"re(ADDHEADER "(X-AttachExt: [^"]*\\e)*(X-EmptyBody: YES\\e)?X-ExtScanner: Korvantis's Velmora")re");
  return std::regex_match(answer, shape);
}

const char kPlainAnswer[] =
    R"(ADDHEADER "X-AttachExt: ...\eX-AttachExt: gz\eX-AttachExt: pdf\eX-ExtScanner: Korvantis's Velmora")";

// Runs `files` and then a known message; checks the shapes and the known answer.
void expectAllAnswered(const std::vector<std::string>& files) {
  auto all = files;
  all.push_back(dataFile("multipart-names.msg"));
  const auto answers = scanAll(all);
  ASSERT_FALSE(answers.run.timedOut);
  ASSERT_EQ(answers.run.exitCode, 0) << answers.run.err;
  for (std::size_t i = 0; i < files.size(); ++i) {
    EXPECT_TRUE(wellFormed(answers.lines[i])) << files[i] << ": " << answers.lines[i];
  }
  EXPECT_EQ(answers.lines.back(), kPlainAnswer);
}

TEST(ScannerHostile, DeeplyNestedMultiparts) {
  TempDir dir;
  const int depth = 100000;
  std::string m = "Content-Type: multipart/mixed; boundary=b0\n\n";
  for (int i = 0; i < depth; ++i) {
    m += "--b" + std::to_string(i) + "\nContent-Type: multipart/mixed; boundary=b" +
         std::to_string(i + 1) + "\n\n";
  }
  m += "--b" + std::to_string(depth) + "\nContent-Type: text/plain; name=deep.txt\n\nx\n";
  const auto answers = scanAll({dir.write("deep.msg", m), dataFile("multipart-names.msg")});
  ASSERT_EQ(answers.run.exitCode, 0) << answers.run.err;
  EXPECT_EQ(answers.lines[0], addHeader({"txt"}));
  EXPECT_EQ(answers.lines[1], kPlainAnswer) << "orphaned boundaries must not leak";
}

TEST(ScannerHostile, HugeLinesWithoutLineFeed) {
  TempDir dir;
  const std::string huge(100u << 20, 'A');
  // A body line of 100 MB ending the file, a 100 MB header line, and a long one inside a ZIP
  // part (decoded whole, so a smaller one keeps the test quick).
  const std::string body = dir.write("body.msg", "Subject: big\n\n" + huge);
  const std::string header =
      dir.write("header.msg", "Content-Type: application/x; name=\"" + huge + ".PDF\"\n\nx\n");
  const std::string zip = dir.write("zip.msg",
                                    "Content-Type: multipart/mixed; boundary=z\n\n--z\n"
                                    "Content-Type: application/zip; name=a.zip\n"
                                    "Content-Transfer-Encoding: base64\n\n" +
                                        huge.substr(0, 16u << 20));
  const auto answers = scanAll({body, header, zip, dataFile("multipart-names.msg")});
  ASSERT_FALSE(answers.run.timedOut);
  ASSERT_EQ(answers.run.exitCode, 0) << answers.run.err;
  EXPECT_EQ(answers.lines[0], addHeader({}));
  EXPECT_EQ(answers.lines[1], addHeader({"pdf"}));
  EXPECT_EQ(answers.lines[2], addHeader({"zip"})) << "decoded, but no archive";
  EXPECT_EQ(answers.lines[3], kPlainAnswer);
}

// A queued file past 4 GB: a body of zero bytes, written as a hole so that it costs no disk,
// runs across the 2 GB and 4 GB marks as one line; the parts after it are found as in any file.
// A ZIP part before it makes the first reservation from more than 4 GB left in the file.
TEST(ScannerHostile, QueuedFileLargerThanFourGigabytes) {
  TempDir dir;
  const std::string file = dir.path() + "/big.msg";
  const std::string zipPart = "Content-Transfer-Encoding: base64\n\n";
  {
    std::ofstream out(file, std::ios::binary);
    out << "P I 21-11-2026 09:15:02 0000 ____ _FY____ <a@example.org>\n"
           "R W 21-11-2026 09:15:02 0000 ____ _FY____ <b@example.net>\n\n"
           "From: a@example.org\nContent-Type: multipart/mixed; boundary=big\n\n"
           "--big\nContent-Type: application/zip; name=before.zip\n" +
               zipPart + scanner_support::base64Lines(zipImage({{"a.EXE"}}).bytes) +
               "--big\nContent-Type: application/octet-stream; name=zeros.bin\n\n";
    out.seekp((std::streamoff{1} << 32) + 4097);
    out << "\n--big\nContent-Type: application/zip; name=after.zip\n" + zipPart +
               scanner_support::base64Lines(zipImage({{"b.dll"}}).bytes) +
               "--big\nContent-Type: text/plain; name=last.PDF\n\nx\n--big--\n";
    ASSERT_TRUE(out.good());
  }
  ASSERT_GT(std::filesystem::file_size(file), std::uintmax_t{1} << 32);
  const auto answers = scanAll({file, dataFile("multipart-names.msg")});
  ASSERT_FALSE(answers.run.timedOut);
  ASSERT_EQ(answers.run.exitCode, 0) << answers.run.err;
  EXPECT_EQ(answers.lines[0], addHeader({"bin", "pdf", "zip", "zip/dll", "zip/exe"}));
  EXPECT_EQ(answers.lines[1], kPlainAnswer);
}

TEST(ScannerHostile, TruncatedMessages) {
  TempDir dir;
  const std::string full = scanner_support::messageWithPart(
      "Content-Type: application/zip; name=a.zip\nContent-Transfer-Encoding: base64",
      scanner_support::base64Lines(scanner_support::zipImage({{"a.exe"}, {"b.txt"}}).bytes));
  std::vector<std::string> files;
  for (std::size_t cut = 0; cut < full.size(); cut += 7) {
    files.push_back(dir.write("cut" + std::to_string(cut) + ".msg", full.substr(0, cut)));
  }
  expectAllAnswered(files);
}

TEST(ScannerHostile, RandomBytesAndMimeShapedNoise) {
  TempDir dir;
  std::mt19937 random(20261121);
  const std::vector<std::string> tokens = {"\n",
                                           "\r\n",
                                           "\r",
                                           " ",
                                           "\t",
                                           "--b",
                                           "--b--",
                                           "--c",
                                           "=",
                                           "?=",
                                           "=?utf-8?q?",
                                           "=?x?b?",
                                           "Content-Type: multipart/mixed; boundary=b\n",
                                           "Content-Type: multipart/mixed; boundary=c\n",
                                           "Content-Type: message/rfc822\n",
                                           "Content-Type: application/zip; name=a.zip\n",
                                           "Content-Disposition: attachment; filename=\"x.",
                                           "Content-Transfer-Encoding: base64\n",
                                           "Content-Transfer-Encoding: quoted-printable\n",
                                           "UEsDBBQ",
                                           "UEsFBg",
                                           "=0D=0A",
                                           "==",
                                           "\n\n",
                                           "P I 0 <a@b>\n",
                                           "name=",
                                           "\"",
                                           ";",
                                           "\0"};
  std::vector<std::string> files;
  for (int i = 0; i < 150; ++i) {
    std::string m;
    const int length = static_cast<int>(random() % 400);
    for (int k = 0; k < length; ++k) {
      if (i % 3 == 0) {
        m.push_back(static_cast<char>(random() & 0xFF));
      } else {
        m += tokens[random() % tokens.size()];
      }
    }
    files.push_back(dir.write("noise" + std::to_string(i) + ".msg", m));
  }
  expectAllAnswered(files);
}

TEST(ScannerHostile, ZipDirectoriesPointingAnywhere) {
  TempDir dir;
  std::mt19937 random(7);
  std::vector<std::string> files;
  for (int i = 0; i < 120; ++i) {
    auto z = scanner_support::zipImage({{"a.exe"}, {"b.txt"}, {"c.doc"}});
    // Overwrite a few bytes of the directory or the end record with anything at all.
    for (int k = 0; k < 4; ++k) {
      const std::size_t at = z.directory + random() % (z.bytes.size() - z.directory);
      z.bytes[at] = static_cast<char>(random() & 0xFF);
    }
    if (i % 10 == 0) z.bytes.resize(z.bytes.size() - random() % 30);
    files.push_back(dir.write(
        "zip" + std::to_string(i) + ".msg",
        scanner_support::messageWithPart(
            "Content-Type: application/zip; name=a.zip\nContent-Transfer-Encoding: base64",
            scanner_support::base64Lines(z.bytes))));
  }
  expectAllAnswered(files);
}

std::vector<std::string> corpusMessages() {
  std::vector<std::string> files;
  for (const char* folder : {"/mime4j/mimetools", "/mime4j/testmsgs"}) {
    const std::string path = testing_process::corpusDir() + folder;
    if (!std::filesystem::is_directory(path)) continue;
    for (const auto& entry : std::filesystem::directory_iterator(path)) {
      if (entry.path().extension() == ".msg") files.push_back(entry.path().string());
    }
  }
  std::sort(files.begin(), files.end());
  return files;
}

TEST(ScannerCorpus, EveryMessageGetsOneWellFormedAnswer) {
  const auto files = corpusMessages();
  ASSERT_GE(files.size(), 80u) << "the shared corpus is missing";
  expectAllAnswered(files);
}

TEST(ScannerCorpus, AnswersCheckedByReading) {
  // Answers verified by reading these messages against the rules.
  const struct {
    const char* file;
    std::string answer;
  } known[] = {
      // An encoded word with ?Q? stays raw; the long name's extension is everything after its
      // last dot, lower-cased and trimmed.
      {"/mime4j/mimetools/multi-2evil.msg",
       addHeader({"gif", "unfortunately what can we do given an idiotic situation such as this?"})},
      // The top level looks at the name of the content type only, not at the disposition.
      {"/mime4j/mimetools/x-gzip64.msg", addHeader({"signature"})},
      // No blank line at all: the whole message is one header block.
      {"/mime4j/testmsgs/malformedHeader-noheader.msg", addHeader({}, true)},
      // name= and filename= of three attachments, two of them the same.
      {"/mime4j/testmsgs/example.msg", addHeader({"png", "txt"})},
  };
  std::vector<std::string> files;
  for (const auto& k : known) files.push_back(testing_process::corpusDir() + k.file);
  const auto answers = scanAll(files);
  for (std::size_t i = 0; i < files.size(); ++i)
    EXPECT_EQ(answers.lines[i], known[i].answer) << files[i];
}

}  // namespace
