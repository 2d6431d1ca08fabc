// Shared by the folder's tests: captured standard output lines and scratch base directories.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "kvs/log.h"

namespace cgp::testing {

// Collects what the log facility writes while it lives, starting with a fresh repetition
// filter so that earlier tests cannot swallow a line.
class CapturedOutput {
 public:
  CapturedOutput();
  ~CapturedOutput();
  CapturedOutput(const CapturedOutput&) = delete;
  CapturedOutput& operator=(const CapturedOutput&) = delete;

  [[nodiscard]] std::string text() const;
  [[nodiscard]] std::vector<std::string> lines() const;
  void clear();

 private:
  kvs::OutputWriter old_;
};

// The test server's base directory in the source tree.
[[nodiscard]] std::string testBase();

// A scratch directory removed at the end of its scope.
class ScratchDirectory {
 public:
  ScratchDirectory();
  ~ScratchDirectory();
  ScratchDirectory(const ScratchDirectory&) = delete;
  ScratchDirectory& operator=(const ScratchDirectory&) = delete;

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }
  // Writes a file below the directory, making its folders.
  void write(const std::string& relative, const std::string& contents) const;

 private:
  std::filesystem::path path_;
};

}  // namespace cgp::testing
