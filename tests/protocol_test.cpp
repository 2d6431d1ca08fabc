// The helper protocol as the server sees it: the programs run as child processes, fed request
// lines on standard input, their standard output compared with exact transcripts.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "tests/process.h"

namespace fs = std::filesystem;
using testing_process::run;

namespace {

const std::string kBanner = "* Korvantis's Velmora filter v1.2.1b running...\n";
const std::string kReady = "* Ready to receive INTF command.\n";
const std::string kQuitRefusal =
    " REJECTED \"QUIT command received, filter is shut down. Please restart the filter.\"\n";

// A scratch directory that the programs run in.
class Scratch {
 public:
  Scratch() {
    dir_ = fs::temp_directory_path() /
           ("velmora-protocol-" + std::to_string(::getpid()) + "-" + std::to_string(counter_++));
    fs::remove_all(dir_);
    fs::create_directories(dir_);
  }
  ~Scratch() { fs::remove_all(dir_); }
  void write(const std::string& name, const std::string& bytes) const {
    fs::create_directories((dir_ / name).parent_path());
    std::ofstream(dir_ / name, std::ios::binary) << bytes;
  }
  // A file that exists and is no directory but that nobody, root included, can open to read.
  void socketFile(const std::string& name) const {
    const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    const std::string path = (dir_ / name).string();
    ASSERT_LT(path.size(), sizeof addr.sun_path);
    std::snprintf(addr.sun_path, sizeof addr.sun_path, "%s", path.c_str());
    ASSERT_EQ(::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr), 0);
    ::close(fd);
  }
  std::string path() const { return dir_.string(); }

 private:
  static inline int counter_ = 0;
  fs::path dir_;
};

TEST(Protocol, EngineAnswersEveryRow) {
  Scratch s;
  s.write("Queue/placeholder", "");
  const std::string input =
      "1 INTF 3\n"
      "7 INTF 4\n"
      "8 intf\n"
      "9 KEY\n"
      "\n"
      "   \n"
      "10\n"
      "11 FILE\n"
      "x file Queue/1.msg\n"
      "00 file x\n"
      "12abc FILE missing.msg\n"
      "13 SCAN x\n"
      "13b F\xC9LE x\n"
      "13c \x8A\xD7 x\n"
      "14 FILE Queue\n"
      "16 FILE a\"b\\c\td\n"
      "0 FILE missing\n"
      "-3 FILE gone/a b.msg\r\n"
      "99999999999 FILE nothing\n"
      "17 QUIT\n"
      "18 FILE x\n"
      "19\n"
      "\n"
      "20 INTF\n"
      "21 KEY";
  const auto r = run(testing_process::program(), input, 60, s.path());
  EXPECT_EQ(r.exitCode, 0);
  EXPECT_EQ(r.out,
            kBanner + kReady +
                "1 INTF 3\n"
                "7 INTF 3\n"
                "8 INTF 3\n"
                "9 OK\n"
                "(null) FAILURE\n"
                "(null) FAILURE\n"
                "10 FAILURE\n"
                "11 FAILURE \"Missing parameter(s)\"\n"
                "x REJECTED \"Error: seqID should be a number\"\n"
                "00 REJECTED \"Error: seqID should be a number\"\n"
                "12 OK \"Error: File Not Found missing.msg\"\n"
                "13 FAILURE\n"
                // Latin-1 capitals are not folded, and the odd rows of the case table fold
                // into nothing the engine knows: both are unknown commands.
                "13b FAILURE\n"
                "13c FAILURE\n"
                "14 OK \"Error: File Not Found Queue\"\n"
                "16 OK \"Error: File Not Found a\\\"b\\\\c\\td\"\n"
                "0 OK \"Error: File Not Found missing\"\n"
                "-3 OK \"Error: File Not Found gone/a b.msg\"\n"
                "2147483647 OK \"Error: File Not Found nothing\"\n"
                "* 17: Filter is shutting down...\n"
                "17 OK \"Filter is shut down and waiting for standard output to be closed\"\n"
                "18" +
                kQuitRefusal + "19" + kQuitRefusal + "(null) FAILURE\n" + "20" + kQuitRefusal +
                "21" + kQuitRefusal);
}

TEST(Protocol, FileThatExistsButCannotBeOpened) {
  if (testing_process::windowsPrograms()) {
    GTEST_SKIP() << "made as a UNIX socket file, which does not exist for a Windows program";
  }
  Scratch s;
  s.socketFile("sock");
  const auto r = run(testing_process::program(), "15 FiLe sock\n", 60, s.path());
  EXPECT_EQ(r.exitCode, 0);
  EXPECT_EQ(r.out, kBanner + kReady + "15 OK \"Error: unable to open file sock\"\n");
}

// Names that exist but are no files: opening them for a scan would block on a reader that never
// writes. A Windows program sees device names; a POSIX one, named pipes.
TEST(Protocol, DevicesAndPipesAreNotOpened) {
  Scratch s;
  std::vector<std::string> names;
  if (testing_process::windowsPrograms()) {
    names = {"NUL", "CON", "CONIN$"};
  } else {
    ASSERT_EQ(::mkfifo((s.path() + "/fifo").c_str(), 0600), 0);
    names = {"fifo"};
  }
  std::string input, expected = kBanner + kReady;
  for (std::size_t i = 0; i < names.size(); ++i) {
    input += std::to_string(i + 1) + " FILE " + names[i] + "\n";
    expected += std::to_string(i + 1) + " OK \"Error: unable to open file " + names[i] + "\"\n";
  }
  const auto r = run(testing_process::program(), input + "9 KEY\n", 30, s.path());
  EXPECT_FALSE(r.timedOut);
  EXPECT_EQ(r.exitCode, 0);
  EXPECT_EQ(r.out, expected + "9 OK\n");
}

TEST(Protocol, EndOfInputRightAfterStartUp) {
  for (const std::vector<std::string>& extra :
       {std::vector<std::string>{}, std::vector<std::string>{"--help", "x y"}}) {
    auto argv = testing_process::program();
    argv.insert(argv.end(), extra.begin(), extra.end());
    const auto r = run(argv, "");
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.out, kBanner + kReady);
    EXPECT_EQ(r.err, "");
  }
}

TEST(Protocol, CrashRequestEndsTheProcessAbnormally) {
  const auto r = run(testing_process::program(), "1 KEY\n2 CRASH\n3 KEY\n");
  EXPECT_TRUE(testing_process::endedByAbort(r)) << r.exitCode << " " << r.signal;
  EXPECT_EQ(r.out, kBanner + kReady + "1 OK\n");
}

TEST(Protocol, ClosedStandardOutputDoesNotKillTheFilter) {
  // The reader of our output goes away after one byte; the filter must go on reading its input
  // to the end and exit normally instead of dying of a broken pipe.
  const std::string script =
      "i=0; while [ $i -lt 20000 ]; do echo \"$i KEY\"; i=$((i+1)); done | \"$@\" | head -c 1 "
      ">/dev/null; echo \"status=${PIPESTATUS[1]}\"";
  std::vector<std::string> argv = {"bash", "-c", script, "closed-stdout"};
  for (const auto& word : testing_process::program()) argv.push_back(word);
  const auto r = run(argv);
  EXPECT_EQ(r.out, "status=0\n");
}

TEST(Protocol, ManyRequestsGetTheirAnswersInOrder) {
  std::string input, expected = kBanner + kReady;
  for (int i = 1; i <= 3000; ++i) {
    const std::string n = std::to_string(i);
    switch (i % 4) {
      case 0:
        input += n + " KEY\n";
        expected += n + " OK\n";
        break;
      case 1:
        input += n + " FILE /nonexistent/" + n + "\n";
        expected += n + " OK \"Error: File Not Found /nonexistent/" + n + "\"\n";
        break;
      case 2:
        input += n + " INTF 3\n";
        expected += n + " INTF 3\n";
        break;
      default:
        input += "\n";
        expected += "(null) FAILURE\n";
        break;
    }
  }
  const auto r = run(testing_process::program(), input);
  EXPECT_EQ(r.exitCode, 0);
  EXPECT_EQ(r.out, expected);
}

}  // namespace
