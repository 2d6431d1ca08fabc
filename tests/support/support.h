// A child's output captured, temporary directories, socket files, a closed port. All but
// TempDir are POSIX.
#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

namespace test_support {

// A fresh temporary directory, removed with the object; header-only for unit tests.
class TempDir {
 public:
  TempDir() {
    std::random_device seed;
    const std::string name =
        "velmora-test-" + std::to_string(seed()) + "-" + std::to_string(seed());
    path_ = (std::filesystem::temp_directory_path() / name).string();
    std::filesystem::create_directories(path_);
  }
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::string& path() const { return path_; }
  // Writes `bytes` to the file `name` of this directory and returns its path.
  std::string write(const std::string& name, const std::string& bytes) const {
    std::ofstream(path_ + "/" + name, std::ios::binary) << bytes;
    return path_ + "/" + name;
  }

 private:
  std::string path_;
};

// The whole content of a file; "" when it cannot be read.
std::string readFile(const std::string& path);

// Leaves a UNIX socket file at `path` (false if it cannot): not a directory, yet nobody, root
// included, can open it to read.
bool makeSocketFile(const std::string& path);

// A loopback port that nothing listens on.
std::uint16_t closedPort();

struct Result {
  std::string out;
  std::string err;
  int exitCode = -1;  // the exit status when the child exited normally
  int signal = 0;     // the signal that ended it, 0 if none
  bool timedOut = false;
};

// Runs argv (argv[0] searched on PATH) with `input` on standard input, in `workdir` if not empty;
// killed after `timeoutSeconds`.
Result run(const std::vector<std::string>& argv, const std::string& input = "",
           int timeoutSeconds = 60, const std::string& workdir = "");

}  // namespace test_support
