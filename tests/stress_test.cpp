// One long request stream through the filter: good messages between hostile ones, files that
// are missing, are directories or sockets, or are taken away between the engine's check and the
// scan, and protocol junk. Every request gets exactly its one answer, in order, and every good
// message is answered exactly as when it is sent alone.
#include <gtest/gtest.h>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <random>
#include <regex>
#include <string>
#include <vector>

#include "kvs/ascii.h"
#include "tests/scanner_support.h"

#if defined(VANISHING_FILTER)

namespace {

namespace fs = std::filesystem;
using scanner_support::TempDir;

// One request and what must come back for it: the whole answer line, or (for hostile messages,
// whose findings nobody fixed beforehand) the shape of a scanned message's answer.
struct Request {
  std::string line;
  std::string answer;
  bool exact = true;
};

const std::regex& scannedShape() {
  static const std::regex shape(
      R"re(\d+ ADDHEADER "(X-AttachExt: [^"]*\\e)*(X-EmptyBody: YES\\e)?X-ExtScanner: Korvantis's Velmora")re");
  return shape;
}

std::string zipPart(const std::string& zipBytes) {
  return scanner_support::messageWithPart(
      "Content-Type: application/zip; name=a.zip\nContent-Transfer-Encoding: base64",
      scanner_support::base64Lines(zipBytes));
}

// The messages whose answers are known: the test data and a few ZIP parts.
std::vector<std::string> goodMessages(const TempDir& dir) {
  std::vector<std::string> files;
  for (const auto& entry :
       fs::directory_iterator(testing_process::sourceDir() + "/tests/data/messages")) {
    files.push_back(entry.path().string());
  }
  std::sort(files.begin(), files.end());
  files.push_back(
      dir.write("zip-b64.msg",
                zipPart(scanner_support::zipImage({{"a.EXE"}, {"b.txt"}, {"s.doc", 1}}).bytes)));
  files.push_back(dir.write(
      "zip-qp.msg",
      scanner_support::messageWithPart(
          "Content-Type: application/x-zip; name=b.zipx\nContent-Transfer-Encoding: "
          "quoted-printable",
          scanner_support::quotedPrintable(scanner_support::zipImage({{"dir.v2/readme"}}).bytes))));
  return files;
}

std::vector<std::string> hostileMessages(const TempDir& dir, std::mt19937& random) {
  std::vector<std::string> files;
  // 100,000 nested multiparts, each opening the next.
  std::string deep = "Content-Type: multipart/mixed; boundary=b0\n\n";
  for (int i = 0; i < 100000; ++i) {
    deep += "--b" + std::to_string(i) + "\nContent-Type: multipart/mixed; boundary=b" +
            std::to_string(i + 1) + "\n\n";
  }
  files.push_back(dir.write("deep.msg", deep));
  // Lines of several megabytes: a header, a body line, both without a final line feed.
  const std::string megabytes(3u << 20, 'x');
  files.push_back(dir.write("long-header.msg", "Content-Type: a/b; name=\"" + megabytes));
  files.push_back(dir.write("long-body.msg", "Subject: s\n\n" + megabytes));
  // Binary junk.
  for (int i = 0; i < 4; ++i) {
    std::string junk(1 + random() % 65536, '\0');
    for (char& c : junk) c = static_cast<char>(random() & 0xFF);
    files.push_back(dir.write("junk" + std::to_string(i) + ".msg", junk));
  }
  // ZIP directories whose offsets, counts and lengths point anywhere.
  for (int i = 0; i < 8; ++i) {
    auto z = scanner_support::zipImage({{"a.exe"}, {"b.txt"}});
    const std::size_t field = z.endRecord + (i % 2 == 0 ? 16 : 8) + random() % 4;
    z.bytes[field] = static_cast<char>(random() & 0xFF);
    z.bytes[z.directory + 28 + random() % 6] = static_cast<char>(random() & 0xFF);
    files.push_back(dir.write("zip-anywhere" + std::to_string(i) + ".msg", zipPart(z.bytes)));
  }
  // Truncated copies of a multipart message with a ZIP part.
  const std::string full = zipPart(scanner_support::zipImage({{"a.exe"}, {"b.txt"}}).bytes);
  for (int i = 0; i < 6; ++i) {
    files.push_back(
        dir.write("cut" + std::to_string(i) + ".msg", full.substr(0, random() % full.size())));
  }
  return files;
}

// The answer a good message gets when it is the only request of a fresh filter.
std::string answerAlone(const std::string& file) {
  const auto run = testing_process::run(testing_process::ownProgram(VANISHING_FILTER),
                                        "1 FILE " + file + "\n", 60);
  std::istringstream out(run.out);
  std::string line;
  while (std::getline(out, line)) {
    if (line.rfind("1 ", 0) == 0) return line.substr(2);
  }
  return "<no answer>";
}

void makeSocketFile(const std::string& path) {
  const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
  ASSERT_EQ(::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
  ::close(fd);
}

// A junk request line whose first field is not a number and whose command is none that the
// engine answers itself; its answer follows from its first two fields.
Request junkLine(std::mt19937& random) {
  for (;;) {
    std::string line = "j";
    const std::size_t length = random() % 200;
    for (std::size_t i = 0; i < length; ++i) {
      char c = static_cast<char>(random() & 0xFF);
      if (c == '\n') c = ' ';
      line.push_back(c);
    }
    auto isDelimiter = [](char c) { return c == ' ' || c == '\r' || c == '\n'; };
    std::size_t i = 0;
    while (i < line.size() && !isDelimiter(line[i])) ++i;
    const std::string id = line.substr(0, i);
    while (i < line.size() && isDelimiter(line[i])) ++i;
    std::size_t end = i;
    while (end < line.size() && !isDelimiter(line[end])) ++end;
    const std::string command = kvs::toLower(line.substr(i, end - i));
    if (command == "intf" || command == "key" || command == "quit" || command == "crash") continue;
    // The parameter check comes after the number check, so neither matters here.
    return {line,
            id + (command.empty() ? " FAILURE" : " REJECTED \"Error: seqID should be a number\"")};
  }
}

TEST(Stress, ThousandsOfMixedRequestsEachGetTheirOwnAnswer) {
  TempDir dir;
  std::mt19937 random(20261121);
  const std::vector<std::string> good = goodMessages(dir);
  std::vector<std::string> alone;
  for (const auto& file : good) alone.push_back(answerAlone(file));
  for (std::size_t i = 0; i < good.size(); ++i) {
    ASSERT_TRUE(std::regex_match("1 " + alone[i], scannedShape())) << good[i] << ": " << alone[i];
  }
  const std::vector<std::string> hostile = hostileMessages(dir, random);
  const std::string directory = dir.path() + "/a-directory";
  fs::create_directory(directory);
  const std::string socket = dir.path() + "/a-socket";
  makeSocketFile(socket);
  const std::string dangling = dir.path() + "/a-dangling-link";
  fs::create_symlink(dir.path() + "/nowhere", dangling);
  const std::string missing = dir.path() + "/missing.msg";

  std::vector<Request> requests;
  int n = 0;
  auto numbered = [&](const std::string& tail, const std::string& answerTail, bool exact = true) {
    ++n;
    requests.push_back(
        {std::to_string(n) + " " + tail, std::to_string(n) + " " + answerTail, exact});
  };
  auto notFound = [&](const std::string& path) {
    numbered("FILE " + path, "OK \"Error: File Not Found " + path + "\"");
  };
  // The deep and the long messages cost most; a few of each are enough.
  std::vector<std::size_t> heavy = {0, 1, 2, 0, 1, 2};
  for (int k = 0; k < 3000; ++k) {
    if (k % 500 == 250 && !heavy.empty()) {
      numbered("FILE " + hostile[heavy.back()], "ADDHEADER", false);
      heavy.pop_back();
      continue;
    }
    const unsigned pick = random() % 100;
    if (pick < 45) {
      const std::size_t g = random() % good.size();
      numbered("FILE " + good[g], alone[g]);
    } else if (pick < 60) {
      numbered("FILE " + hostile[3 + random() % (hostile.size() - 3)], "ADDHEADER", false);
    } else if (pick < 64) {
      notFound(missing);
    } else if (pick < 67) {
      notFound(directory);
    } else if (pick < 69) {
      notFound(dangling);
    } else if (pick < 71) {
      numbered("FILE " + socket, "OK \"Error: unable to open file " + socket + "\"");
    } else if (pick < 80) {
      // Taken away after the engine's check: the scanner cannot open what is left, writes its
      // comment, and the message is accepted as it is.
      static const char* const kFates[] = {".removed", ".to-directory", ".to-socket",
                                           ".to-dangling-link"};
      const std::string fate = kFates[random() % 4];
      const std::size_t g = random() % good.size();
      const std::string path = dir.path() + "/v" + std::to_string(n + 1) + fate;
      fs::copy_file(good[g], path);
      numbered("FILE " + path, "OK");
    } else if (pick < 90) {
      requests.push_back(junkLine(random));
    } else {
      switch (random() % 7) {
        case 0:
          requests.push_back({"", "(null) FAILURE"});
          break;
        case 1:
          requests.push_back({"  \r ", "(null) FAILURE"});
          break;
        case 2:
          numbered("", "FAILURE");
          break;
        case 3:
          numbered("file", "FAILURE \"Missing parameter(s)\"");
          break;
        case 4:
          numbered("frobnicate x", "FAILURE");
          break;
        case 5:
          numbered("INTF 9", "INTF 3");
          break;
        default:
          numbered("KEY", "OK");
          break;
      }
    }
  }
  // A request line of a megabyte, then the end of the session.
  const std::string longId = "x" + std::string(1u << 20, '7');
  requests.push_back(
      {longId + " FILE " + good[0], longId + " REJECTED \"Error: seqID should be a number\""});
  numbered("QUIT", "OK \"Filter is shut down and waiting for standard output to be closed\"");
  for (int k = 0; k < 3; ++k) {
    numbered("FILE " + good[0],
             "REJECTED \"QUIT command received, filter is shut down. Please restart the filter.\"");
  }

  std::string input;
  for (const auto& r : requests) input += r.line + "\n";
  const auto run = testing_process::run(testing_process::ownProgram(VANISHING_FILTER), input, 300);
  ASSERT_FALSE(run.timedOut);
  ASSERT_EQ(run.exitCode, 0) << run.err.substr(0, 2000);

  std::vector<std::string> answers;
  std::istringstream out(run.out);
  std::string line;
  while (std::getline(out, line)) {
    if (line.rfind("* ", 0) != 0) answers.push_back(line);
  }
  ASSERT_EQ(answers.size(), requests.size()) << "one answer for each request";
  int wrong = 0;
  for (std::size_t i = 0; i < requests.size() && wrong < 10; ++i) {
    const Request& r = requests[i];
    bool ok;
    if (r.exact) {
      ok = answers[i] == r.answer;
    } else {
      ok = std::regex_match(answers[i], scannedShape()) &&
           answers[i].rfind(r.line.substr(0, r.line.find(' ') + 1), 0) == 0;
    }
    if (!ok) {
      ++wrong;
      ADD_FAILURE() << "request " << i << ": " << r.line.substr(0, 200)
                    << "\n  answer: " << answers[i].substr(0, 300)
                    << "\n  wanted: " << r.answer.substr(0, 300);
    }
  }
  // The engine never reports the scanner's failed opens on the answer line; its comment does.
  EXPECT_NE(run.out.find("* Unexpected error, contact Korvantis"), std::string::npos);
}

}  // namespace

#endif
