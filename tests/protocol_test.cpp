// The helper protocol: each sample alone gets its answer (samples()); tests/data/protocol/NAME.in
// gives exactly NAME.out; and what a transcript cannot say: no files, a crash, a reader gone.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "tests/programs.h"

namespace {

using namespace programs;

TEST(Transcripts, EachMessageAlone) {
  const std::string messages = kDataDir + "/messages";
  EXPECT_EQ(filesIn(messages, ".msg").size(), filesIn(messages, ".answer").size());
  const auto all = samples();
  ASSERT_GE(all.size(), 40u);
  for (const auto& [file, answer] : all) {
    const auto r = run(program(), "1 FILE " + file + "\n");
    EXPECT_EQ(r.exitCode, 0) << file;
    EXPECT_EQ(r.out, kBanner + "* [1] Adding Header(s) to message\n1 " + answer + "\n") << file;
  }
}

TEST(Transcripts, ProtocolSessions) {
  const std::string folder = kDataDir + "/protocol";
  const auto inputs = filesIn(folder, ".in");
  ASSERT_GE(inputs.size(), 2u);
  for (const auto& in : inputs) {
    const auto r = run(program(), test_support::readFile(in), 60, folder);
    EXPECT_EQ(r.exitCode, 0) << in;
    EXPECT_EQ(r.out, test_support::readFile(in.substr(0, in.size() - 3) + ".out")) << in;
  }
}

// Names that exist but are no files: opening them for a scan would block on a writer that never
// comes. A Windows program sees device names; a POSIX one, a named pipe.
TEST(Protocol, DevicesAndPipesAreNotOpened) {
  test_support::TempDir dir;
  std::vector<std::string> names = {"NUL", "CON", "CONIN$"};
  if (!windowsPrograms()) {
    ASSERT_EQ(::mkfifo((dir.path() + "/fifo").c_str(), 0600), 0);
    names = {"fifo"};
  }
  std::string input, expected = kBanner;
  for (std::size_t i = 0; i < names.size(); ++i) {
    input += std::to_string(i + 1) + " FILE " + names[i] + "\n";
    expected += std::to_string(i + 1) + " OK \"Error: unable to open file " + names[i] + "\"\n";
  }
  const auto r = run(program(), input + "9 KEY\n", 30, dir.path());
  EXPECT_FALSE(r.timedOut);
  EXPECT_EQ(r.exitCode, 0);
  EXPECT_EQ(r.out, expected + "9 OK\n");
}

TEST(Protocol, CrashRequestEndsTheProcessAbnormally) {
  auto argv = program();
  argv.insert(argv.end(), {"--help", "x y"});  // arguments are ignored
  const auto r = run(argv, "1 KEY\n2 CRASH\n3 KEY\n");
  EXPECT_TRUE(endedByAbort(r)) << r.exitCode << " " << r.signal;
  EXPECT_EQ(r.out, kBanner + "1 OK\n");
}

TEST(Protocol, ClosedStandardOutputDoesNotKillTheFilter) {
  // The reader goes away after one byte: the filter reads on to the end and exits normally.
  const std::string script =
      "i=0; while [ $i -lt 20000 ]; do echo \"$i KEY\"; i=$((i+1)); done | \"$@\" | head -c 1 "
      ">/dev/null; echo \"status=${PIPESTATUS[1]}\"";
  std::vector<std::string> argv = {"bash", "-c", script, "closed-stdout"};
  for (const auto& word : program()) argv.push_back(word);
  EXPECT_EQ(run(argv).out, "status=0\n");
}

}  // namespace
