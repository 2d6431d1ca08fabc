// Fuzz entry point for the ZIP directory reader: any image is read without a read outside it,
// and a directory that is not walked reports nothing. Built with -DVELMORA_FUZZ=ON and clang.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "scanner/zip_directory.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view image(reinterpret_cast<const char*>(data), size);
  const scanner::ZipDirectory zip = scanner::readZipDirectory(image);
  if (image.substr(0, 4) != std::string_view("PK\x03\x04", 4) &&
      (zip.corrupted || zip.encrypted || !zip.extensions.empty()))
    __builtin_trap();
  return 0;
}
