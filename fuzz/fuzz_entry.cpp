// One libFuzzer entry point; FUZZ_TARGET names the function of fuzz_targets.h it runs.
#include "fuzz/fuzz_targets.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  return fuzzing::FUZZ_TARGET(data, size);
}
