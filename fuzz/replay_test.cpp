// Every saved fuzz input (tests/data/fuzz/<target>/, the crashes found so far) and every seed
// (fuzz/seeds/<target>/) runs through its target in the ordinary build. A broken invariant
// aborts the binary after naming the input on standard error.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "fuzz/fuzz_targets.h"

namespace {

namespace fs = std::filesystem;

class Replay : public testing::TestWithParam<fuzzing::NamedTarget> {};

TEST_P(Replay, SavedInputsAndSeedsPass) {
  const fuzzing::NamedTarget target = GetParam();
  const fs::path source(VELMORA_SOURCE_DIR);
  std::vector<fs::path> files;
  for (const fs::path& folder :
       {source / "tests/data/fuzz" / target.name, source / "fuzz/seeds" / target.name}) {
    if (!fs::is_directory(folder)) continue;
    for (const auto& entry : fs::recursive_directory_iterator(folder)) {
      if (entry.is_regular_file()) files.push_back(entry.path());
    }
  }
  std::sort(files.begin(), files.end());
  // Every target has seeds; a folder that went missing would make this test pass vacuously.
  EXPECT_FALSE(files.empty()) << target.name;
  for (const fs::path& file : files) {
    std::fprintf(stderr, "%s: %s\n", std::string(target.name).c_str(), file.string().c_str());
    std::ifstream in(file, std::ios::binary);
    const std::string bytes{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    EXPECT_EQ(target.run(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()), 0)
        << file;
  }
}

INSTANTIATE_TEST_SUITE_P(Targets, Replay, testing::ValuesIn(fuzzing::kTargets),
                         [](const testing::TestParamInfo<fuzzing::NamedTarget>& info) {
                           return std::string(info.param.name);
                         });

}  // namespace
