// The programs under test and their test data. VELMORA_PROGRAM_PATH and VELMORA_TOOL_PATH replace
// the velmora and velmora-tool of this build; VELMORA_RUNNER (for example "wine64") is put in
// front of each when it is set, so both must then be of its kind.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/support.h"

namespace programs {

using test_support::Result;
using test_support::run;

// A program of this build, started through the build's emulator where the kernel cannot start
// it (a 32-bit build on a 64-bit-only kernel).
inline std::vector<std::string> ownProgram(const std::string& path) {
#ifdef VELMORA_EMULATOR
  return {VELMORA_EMULATOR, path};
#else
  return {path};
#endif
}

// True when the programs under test are Windows programs run through VELMORA_RUNNER.
inline bool windowsPrograms() {
  const char* runner = std::getenv("VELMORA_RUNNER");
  return runner && *runner;
}

inline std::vector<std::string> underTest(const char* variable, const char* built) {
  const char* over = std::getenv(variable);
  const std::string path = over && *over ? over : built;
  return windowsPrograms() ? std::vector<std::string>{std::getenv("VELMORA_RUNNER"), path}
                           : ownProgram(path);
}
inline std::vector<std::string> program() {
  return underTest("VELMORA_PROGRAM_PATH", VELMORA_PROGRAM);
}
inline std::vector<std::string> tool(const std::vector<std::string>& args) {
  auto argv = underTest("VELMORA_TOOL_PATH", VELMORA_TOOL);
  argv.insert(argv.end(), args.begin(), args.end());
  return argv;
}

// Whether the child ended the way the C++ runtime ends a process after an uncaught exception:
// by a signal (SIGABRT) on POSIX; on Windows abort() exits with code 3 instead.
inline bool endedByAbort(const Result& r) {
  return windowsPrograms() ? r.signal == 0 && r.exitCode == 3 : r.signal != 0;
}

// The lines every run of velmora starts with.
inline const std::string kBanner =
    "* Korvantis's Velmora filter v1.2.1b running...\n* Ready to receive INTF command.\n";

// The test data, and the shared corpus of real messages beside the source tree.
inline const std::string kDataDir = VELMORA_SOURCE_DIR "/tests/data";
inline const std::string kCorpusDir = VELMORA_SOURCE_DIR "/../shared/corpus";

// The files of `folder` and its subfolders whose names end in `extension`, sorted.
inline std::vector<std::string> filesIn(const std::string& folder, const std::string& extension) {
  std::vector<std::string> files;
  if (!std::filesystem::is_directory(folder)) return files;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    if (entry.path().extension() == extension) files.push_back(entry.path().string());
  }
  std::sort(files.begin(), files.end());
  return files;
}

// The pieces of `text` between the `at` characters.
inline std::vector<std::string> split(const std::string& text, char at) {
  std::vector<std::string> parts;
  for (std::size_t start = 0, end; start < text.size(); start = end + 1) {
    end = std::min(text.find(at, start), text.size());
    parts.push_back(text.substr(start, end - start));
  }
  return parts;
}

// The messages whose answers are known: each tests/data/messages/NAME.msg beside its NAME.answer
// (the answer line after the request number), and each message of the shared corpus that
// tests/data/corpus holds an answer for, under the same name.
struct Sample {
  std::string file;
  std::string answer;
};
inline std::vector<Sample> samples() {
  std::vector<Sample> all;
  for (const auto& [answers, messages] : {std::pair{kDataDir + "/messages", kDataDir + "/messages"},
                                          std::pair{kDataDir + "/corpus", kCorpusDir}}) {
    for (const auto& file : filesIn(answers, ".answer")) {
      const std::string name = file.substr(answers.size(), file.size() - answers.size() - 7);
      const std::string answer = test_support::readFile(file);
      all.push_back({messages + name + ".msg", answer.substr(0, answer.find('\n'))});
    }
  }
  return all;
}

}  // namespace programs
