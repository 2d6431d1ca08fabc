// Fuzz entry point for the message walker and the name rules: any file is walked to its end,
// with the same findings through a reader of tiny blocks. Built with -DVELMORA_FUZZ=ON and clang.
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <string_view>

#include "scanner/message_scanner.h"

namespace {

std::set<std::string> scan(MessageScanner& scanner, const std::string& path, bool& emptyBody) {
  if (!scanner.open(path)) __builtin_trap();
  std::string line;
  while (scanner.readLine(line)) {
  }
  scanner.close();
  emptyBody = scanner.emptyBody();
  return scanner.results();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  (void)MessageScanner::attachmentExtension(bytes);

  static const std::string path =
      (std::filesystem::temp_directory_path() / "velmora-message-fuzz.msg").string();
  std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
  static MessageScanner large;
  static MessageScanner tiny(3);
  bool largeEmpty = false, tinyEmpty = false;
  if (scan(large, path, largeEmpty) != scan(tiny, path, tinyEmpty) || largeEmpty != tinyEmpty)
    __builtin_trap();
  return 0;
}
