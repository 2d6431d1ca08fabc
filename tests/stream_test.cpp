// Long request streams through one filter: samples between hostile messages, files missing or
// taken away, protocol rows. Each request gets its one answer, in order; a sample gets its answer
// alone (.answer), and so does each hostile message whose findings are known.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>

#include "tests/programs.h"

namespace {

namespace fs = std::filesystem;
using namespace programs;
using test_support::TempDir;

std::string addHeader(const std::vector<std::string>& findings) {
  std::string text;
  for (const auto& f : findings) text += "X-AttachExt: " + f + "\\e";
  return "ADDHEADER \"" + text + "X-ExtScanner: Korvantis's Velmora\"";
}

struct Stream {
  struct Request {
    std::string line, answer;
    bool exact;
  };
  std::vector<Request> requests;
  const std::vector<Sample> samples = programs::samples();

  // A numbered request and its answer; not `exact`: a scanned message's answer of any findings.
  void add(const std::string& tail, const std::string& answer, bool exact = true) {
    const std::string n = std::to_string(requests.size() + 1) + " ";
    requests.push_back({n + tail, n + (exact ? answer : ""), exact});
  }
  void sample() {
    const Sample& s = samples[requests.size() % samples.size()];
    add("FILE " + s.file, s.answer);
  }

  std::string check(const std::vector<std::string>& argv) {
    std::string input;
    for (const auto& r : requests) input += r.line + "\n";
    const auto run = test_support::run(argv, input, 600);
    EXPECT_EQ(run.exitCode, 0) << run.err.substr(0, 2000);
    static const std::regex scanned(
        R"re(ADDHEADER "(X-AttachExt: [^"]*\\e)*(X-EmptyBody: YES\\e)?X-ExtScanner: Korvantis's Velmora")re");
    std::istringstream out(run.out);
    std::size_t i = 0, wrong = 0;
    for (std::string a; std::getline(out, a) && wrong < 10;) {
      if (a.rfind("* ", 0) == 0) continue;
      const Request r = i < requests.size() ? requests[i++] : Request{"", "(no request)", true};
      if (r.exact ? a != r.answer
                  : a.rfind(r.answer, 0) != 0 || !regex_match(a.substr(r.answer.size()), scanned)) {
        ++wrong;
        ADD_FAILURE() << "request " << i << ": " << r.line.substr(0, 200)
                      << "\n  answer: " << a.substr(0, 300)
                      << "\n  wanted: " << r.answer.substr(0, 300);
      }
    }
    EXPECT_EQ(i, requests.size()) << "one answer for each request";
    return run.out;
  }
};

// A file past 4 GB: a line of zero bytes (a hole, no disk) across the 2 GB and 4 GB marks, the
// parts after it found as in any file; a ZIP part before it reserves from more than 4 GB left.
std::string fileLargerThanFourGigabytes(const TempDir& dir) {
  const std::string file = dir.path() + "/big.msg";
  std::ofstream out(file, std::ios::binary);
  out << "P I 21-11-2026 09:15:02 0000 ____ _FY____ <a@example.org>\n"
         "R W 21-11-2026 09:15:02 0000 ____ _FY____ <b@example.net>\n\n"
         "From: a@example.org\nContent-Type: multipart/mixed; boundary=big\n\n"
         "--big\nContent-Type: application/zip; name=before.zip\n"
         "Content-Transfer-Encoding: base64\n\n"
         "UEsDBBQAAAB4eHh4eHh4eHh4eHh4eHh4eHgFAAAAYS5FWEVQSwECFAAUAAAAeXl5eXl5eXl5eXl5\n"
         "eXl5eXl5BQADAAIAenp6enp6enoAAAAAYS5FWEVFWFRjbVBLBQYAAAAAAQABADgAAAAjAAAAAAA=\n"
         "--big\nContent-Type: application/octet-stream; name=zeros.bin\n\n";
  out.seekp((std::streamoff{1} << 32) + 4097);
  out << "\n--big\nContent-Type: application/zip; name=after.zip\n"
         "Content-Transfer-Encoding: base64\n\n"
         "UEsDBBQAAAB4eHh4eHh4eHh4eHh4eHh4eHgFAAAAYi5kbGxQSwECFAAUAAAAeXl5eXl5eXl5eXl5\n"
         "eXl5eXl5BQADAAIAenp6enp6enoAAAAAYi5kbGxFWFRjbVBLBQYAAAAAAQABADgAAAAjAAAAAAA=\n"
         "--big\nContent-Type: text/plain; name=last.PDF\n\nx\n--big--\n";
  return file;
}

// Each hostile message is followed by a sample, which must not notice.
TEST(Stream, HostileMessagesBetweenSamples) {
  TempDir dir;
  Stream s;
  // 100,000 nested multiparts, each opening the next; the innermost part has a name.
  std::string deep = "Content-Type: multipart/mixed; boundary=b0\n\n";
  for (int i = 0; i < 100000; ++i) {
    deep += "--b" + std::to_string(i) + "\nContent-Type: multipart/mixed; boundary=b" +
            std::to_string(i + 1) + "\n\n";
  }
  // Lines of 100 MB without a final line feed: body, header, and a ZIP part (16 MB: decoded
  // whole) that holds no archive.
  const std::string huge(100u << 20, 'A');
  const std::string big = fileLargerThanFourGigabytes(dir);
  ASSERT_GT(fs::file_size(big), std::uintmax_t{1} << 32);
  const std::pair<std::string, std::string> known[] = {
      {dir.write("deep", deep + "--b100000\nContent-Type: text/plain; name=deep.txt\n\nx\n"),
       addHeader({"txt"})},
      {dir.write("body", "Subject: big\n\n" + huge), addHeader({})},
      {dir.write("header", "Content-Type: application/x; name=\"" + huge + ".PDF\"\n\nx\n"),
       addHeader({"pdf"})},
      {dir.write("zip",
                 "Content-Type: multipart/mixed; boundary=z\n\n--z\nContent-Type: "
                 "application/zip; name=a.zip\nContent-Transfer-Encoding: base64\n\n" +
                     huge.substr(0, 16u << 20)),
       addHeader({"zip"})},
      {big, addHeader({"bin", "pdf", "zip", "zip/dll", "zip/exe"})},
  };
  for (const auto& [file, answer] : known) {
    s.add("FILE " + file, answer);
    s.sample();
  }
  // Every cut of a message with a ZIP part, and the shared corpus of messages nobody here wrote.
  auto files = filesIn(kCorpusDir, ".msg");
  EXPECT_GE(files.size(), 80u) << "the shared corpus is missing";
  const std::string full = test_support::readFile(kDataDir + "/messages/zip-base64.msg");
  for (std::size_t cut = 0; cut < full.size(); cut += 7) {
    files.push_back(dir.write("cut" + std::to_string(cut), full.substr(0, cut)));
  }
  for (const auto& file : files) {
    s.add("FILE " + file, "", false);
    s.sample();
  }
  s.check(program());
}

#if defined(VANISHING_FILTER)
TEST(Stream, FilesMissingOrTakenAway) {
  TempDir dir;
  Stream s;
  const std::string victim = s.samples[0].file, socket = dir.path() + "/a-socket",
                    dangling = dir.path() + "/a-dangling-link";
  ASSERT_TRUE(test_support::makeSocketFile(socket));
  fs::create_symlink(dir.path() + "/nowhere", dangling);
  const char* const fates[] = {".removed", ".to-directory", ".to-socket", ".to-dangling-link"};
  for (int k = 0; k < 300; ++k) {
    s.sample();
    const std::string absent[] = {dir.path() + "/missing", dir.path(), dangling};
    s.add("FILE " + absent[k % 3], "OK \"Error: File Not Found " + absent[k % 3] + "\"");
    s.add("FILE " + socket, "OK \"Error: unable to open file " + socket + "\"");
    // The scanner cannot open what is left, comments, and the message is accepted as it is.
    const std::string path = dir.path() + "/v" + std::to_string(k) + fates[k % 4];
    fs::copy_file(victim, path);
    s.add("FILE " + path, "OK");
    s.sample();
    s.add(k % 2 ? "KEY" : "INTF 9", k % 2 ? "OK" : "INTF 3");
    s.requests.push_back({k % 2 ? "" : "  \r ", "(null) FAILURE", true});
  }
  // A request line of a megabyte, then the end of the session.
  const std::string longId = "x" + std::string(1u << 20, '7');
  s.requests.push_back(
      {longId + " FILE x", longId + " REJECTED \"Error: seqID should be a number\"", true});
  s.add("QUIT", "OK \"Filter is shut down and waiting for standard output to be closed\"");
  s.add("FILE " + victim,
        "REJECTED \"QUIT command received, filter is shut down. Please restart the filter.\"");
  const std::string out = s.check(ownProgram(VANISHING_FILTER));
  // The engine never reports the scanner's failed opens on the answer line; its comment does.
  EXPECT_NE(out.find("* Unexpected error, contact Korvantis"), std::string::npos);
}
#endif

}  // namespace
