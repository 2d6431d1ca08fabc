// The programs under test and their data. VELMORA_PROGRAM_PATH and VELMORA_TOOL_PATH replace this
// build's programs; VELMORA_RUNNER (say "wine64"), when set, is put in front of each.
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

// A program of this build, through the build's emulator where the kernel cannot start it.
inline std::vector<std::string> ownProgram(const std::string& path) {
#ifdef VELMORA_EMULATOR
  return {VELMORA_EMULATOR, path};
#else
  return {path};
#endif
}

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

// Ended as after an uncaught exception: by SIGABRT on POSIX, exit code 3 on Windows.
inline bool endedByAbort(const Result& r) {
  return windowsPrograms() ? r.signal == 0 && r.exitCode == 3 : r.signal != 0;
}

inline const std::string kBanner =
    "* Korvantis's Velmora filter v1.2.1b running...\n* Ready to receive INTF command.\n";

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

// Each tests/data/messages/NAME.msg with its NAME.answer (the answer after the request number),
// and each shared corpus message that tests/data/corpus holds an answer for.
struct Sample {
  std::string file, answer;
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
