// The central directory of a ZIP archive image: the extensions of its stored files, whether
// any is encrypted, whether the directory is broken. Nothing is extracted or decompressed.
#pragma once

#include <set>
#include <string>
#include <string_view>

namespace scanner {

struct ZipDirectory {
  std::set<std::string> extensions;
  bool encrypted = false;
  bool corrupted = false;
};

// An image that does not begin with a local file header signature yields nothing. Every read
// stays inside the image, whatever its sizes and offsets claim.
[[nodiscard]] ZipDirectory readZipDirectory(std::string_view image);

// The extension of a stored file name: after the last ".", lower-cased and trimmed of
// " \t\r\n"; "..." when there is no dot at all. Stored paths are not looked into.
[[nodiscard]] std::string storedNameExtension(std::string_view name);

}  // namespace scanner
