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

std::vector<fs::path> inputsOf(const fs::path& folder) {
  std::vector<fs::path> files;
  if (!fs::is_directory(folder)) return files;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    if (entry.is_regular_file()) files.push_back(entry.path());
  }
  std::sort(files.begin(), files.end());
  return files;
}

std::string contentOf(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

class Replay : public testing::TestWithParam<fuzzing::NamedTarget> {};

TEST_P(Replay, SavedInputsAndSeedsPass) {
  const fuzzing::NamedTarget target = GetParam();
  const fs::path source(VELMORA_SOURCE_DIR);
  const std::string name(target.name);
  std::size_t count = 0;
  for (const fs::path& folder : {source / "tests/data/fuzz" / name, source / "fuzz/seeds" / name}) {
    for (const fs::path& file : inputsOf(folder)) {
      std::fprintf(stderr, "%s: %s\n", name.c_str(), file.filename().string().c_str());
      const std::string bytes = contentOf(file);
      EXPECT_EQ(target.run(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size()), 0);
      ++count;
    }
  }
  // Every target has seeds; a folder that went missing would make this test pass vacuously.
  EXPECT_GT(count, 0u) << name;
}

INSTANTIATE_TEST_SUITE_P(Targets, Replay, testing::ValuesIn(fuzzing::kTargets),
                         [](const testing::TestParamInfo<fuzzing::NamedTarget>& info) {
                           return std::string(info.param.name);
                         });

}  // namespace
