// Fuzz entry point of the dataset reader (built with -DVELMORA_FUZZ=ON under clang): any input
// must read without a crash, and whatever a read yields must be written to a text that reads
// back without an error.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "cgp/dataset_text.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  cgp::setParseErrorOutput(false);
  const cgp::DataSet value =
      cgp::parseDataSet(std::string_view(reinterpret_cast<const char*>(data), size));
  for (bool oneLine : {true, false}) {
    const std::size_t errors = cgp::parseErrorCount();
    (void)cgp::parseDataSet(cgp::writeDataSet(value, oneLine));
    if (cgp::parseErrorCount() != errors) std::abort();
  }
  return 0;
}
