// Runs a program as a child process with a given standard input and collects what it writes.
#pragma once

#include <string>
#include <vector>

namespace testing_process {

struct Result {
  std::string out;
  std::string err;
  int exitCode = -1;  // the exit status when the child exited normally
  int signal = 0;     // the signal that ended it, 0 if none
  bool timedOut = false;
};

// Runs argv[0] with the arguments, feeding `input` on standard input and closing it. A child
// still running after `timeoutSeconds` is killed (and timedOut is set). An empty `workdir`
// keeps the current directory.
Result run(const std::vector<std::string>& argv, const std::string& input = "",
           int timeoutSeconds = 60, const std::string& workdir = "");

// The velmora program and velmora-tool under test. VELMORA_PROGRAM_PATH and VELMORA_TOOL_PATH
// replace the programs of this build; VELMORA_RUNNER (for example "wine64") is put in front of
// each when it is set, so both must then be of its kind.
std::vector<std::string> program();
std::vector<std::string> tool(const std::vector<std::string>& args);
// A program of this build, such as a test helper: started through the build's emulator where the
// kernel cannot start it (a 32-bit build on a 64-bit-only kernel).
std::vector<std::string> ownProgram(const std::string& path);

// True when the programs under test are Windows programs run through VELMORA_RUNNER.
bool windowsPrograms();
// Whether the child ended the way the C++ runtime ends a process after an uncaught exception:
// by a signal (SIGABRT) on POSIX; on Windows abort() exits with code 3 instead.
bool endedByAbort(const Result& result);
// The source tree (for tests/data) and the shared message corpus beside it.
std::string sourceDir();
std::string corpusDir();

}  // namespace testing_process
