// The central directory of a ZIP archive image: the extensions of its stored files, whether
// any is encrypted, whether the directory is broken. Nothing is extracted or decompressed.
#pragma once

#include <cstdint>
#include <optional>
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

// Part of an image, for a caller that decodes only what the directory reader looks at: the
// image's first bytes (four are enough to tell an archive), and all of it from `base` on.
struct ImageWindow {
  std::uint64_t size = 0;  // of the whole image
  std::string_view head;
  std::uint64_t base = 0;
  std::string_view rest;  // the image from `base` to its end
};

// The same reading as above, of the same bytes; when it would look at a byte before `base` (and
// beyond the head), it stops and answers nothing, with `needed` set to that byte's position: the
// caller widens the window and asks again. A window from 0 is always enough.
[[nodiscard]] std::optional<ZipDirectory> readZipDirectory(const ImageWindow& window,
                                                           std::uint64_t& needed);

// The extension of a stored file name: after the last ".", lower-cased and trimmed of
// " \t\r\n"; "..." when there is no dot at all. Stored paths are not looked into.
[[nodiscard]] std::string storedNameExtension(std::string_view name);

}  // namespace scanner
