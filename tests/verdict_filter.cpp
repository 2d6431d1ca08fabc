// A filter program for the engine's tests: the message file itself says the verdict. Its first
// line is the code; every further line becomes one verdict line. A file whose first line is
// "throw" makes filterMessage throw.
#include <fstream>
#include <iostream>
#include <stdexcept>

#include "host/helper.h"
#include "kvs/platform/platform.h"

namespace {

class VerdictFilter : public cgp::ExtFilter {
 public:
  VerdictFilter() : cgp::ExtFilter(false) {}
  cgp::Verdict filterMessage(int, const std::string& path) override {
    std::ifstream in(path, std::ios::binary);
    std::string line;
    cgp::Verdict verdict;
    if (!std::getline(in, line)) return verdict;
    if (line == "throw") throw std::runtime_error("filter failed");
    verdict.code = std::stoi(line);
    while (std::getline(in, line)) verdict.lines.push_back(line);
    return verdict;
  }
};

}  // namespace

int main() {
  kvs::platform::prepareStandardStreams();
  std::ios::sync_with_stdio(false);
  VerdictFilter filter;
  filter.commandLoop();
  return 0;
}
