// Shared by the folder's tests: captured standard output lines and scratch base directories.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "kvs/log.h"
#include "kvs/noncopyable.h"

namespace cgp::testing {

// Collects what the log facility writes while it lives, starting with a fresh repetition
// filter so that earlier tests cannot swallow a line.
class CapturedOutput : private kvs::noncopyable {
 public:
  CapturedOutput();
  ~CapturedOutput();

  [[nodiscard]] std::string text() const;
  [[nodiscard]] std::vector<std::string> lines() const;
  void clear();

 private:
  kvs::OutputWriter old_;
};

// The test server's base directory in the source tree.
[[nodiscard]] std::string testBase();

// A scratch directory removed at the end of its scope.
class ScratchDirectory : private kvs::noncopyable {
 public:
  ScratchDirectory();
  ~ScratchDirectory();

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }
  // Writes a file below the directory, making its folders.
  void write(const std::string& relative, const std::string& contents) const;

 private:
  std::filesystem::path path_;
};

}  // namespace cgp::testing
