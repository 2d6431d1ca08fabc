// Helpers of the folder's tests.
#include "cgp/test_support.h"

#include <atomic>
#include <fstream>
#include <mutex>
#include <random>

namespace cgp::testing {
namespace {

std::mutex capturedMutex;
std::string captured;

void capture(std::string_view text) {
  std::lock_guard<std::mutex> lock(capturedMutex);
  captured.append(text);
}

}  // namespace

CapturedOutput::CapturedOutput() {
  clear();
  kvs::resetRepeatTable();
  old_ = kvs::setOutputWriter(capture);
}

CapturedOutput::~CapturedOutput() {
  kvs::setOutputWriter(old_);
  kvs::resetRepeatTable();
}

std::string CapturedOutput::text() const {
  std::lock_guard<std::mutex> lock(capturedMutex);
  return captured;
}

std::vector<std::string> CapturedOutput::lines() const {
  std::vector<std::string> result;
  const std::string all = text();
  std::size_t start = 0;
  while (start < all.size()) {
    const std::size_t end = all.find('\n', start);
    result.push_back(all.substr(start, end - start));
    if (end == std::string::npos) break;
    start = end + 1;
  }
  return result;
}

void CapturedOutput::clear() {
  std::lock_guard<std::mutex> lock(capturedMutex);
  captured.clear();
}

std::string testBase() {
  return std::string(VELMORA_SOURCE_DIR) + "/tests/data/base";
}

ScratchDirectory::ScratchDirectory() {
  static std::atomic<int> counter{0};
  std::random_device seed;
  path_ = std::filesystem::temp_directory_path() /
          ("cgp-test-" + std::to_string(seed()) + "-" + std::to_string(counter++));
  std::filesystem::create_directories(path_);
}

ScratchDirectory::~ScratchDirectory() {
  std::error_code ec;
  std::filesystem::remove_all(path_, ec);
}

void ScratchDirectory::write(const std::string& relative, const std::string& contents) const {
  const std::filesystem::path file = path_ / relative;
  std::filesystem::create_directories(file.parent_path());
  std::ofstream(file, std::ios::binary | std::ios::trunc) << contents;
}

}  // namespace cgp::testing
