// The platform layer: the few operating-system services the rest of the code needs, one
// declaration each; platform.cpp includes the Unix or the Windows implementation.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>
#include <string_view>

#include "kvs/noncopyable.h"

namespace kvs::platform {

enum class PathKind { Missing, File, Directory };

// Missing when the path cannot be accessed; a path that can be accessed but whose status
// cannot be read counts as a file.
[[nodiscard]] PathKind pathKind(const std::string& path);

// A file opened for reading in shared mode: others may read, write, rename or delete it
// meanwhile. Reads are unbuffered; callers bring their own buffer.
class File : private noncopyable {
 public:
  File() = default;
  ~File() { close(); }
  File(File&& other) noexcept : handle_(other.handle_) { other.handle_ = kClosed; }

  bool open(const std::string& path);
  void close();
  [[nodiscard]] bool isOpen() const { return handle_ != kClosed; }
  // Up to `size` bytes; 0 at the end of the file, -1 on a read error.
  [[nodiscard]] std::int64_t read(void* buffer, std::size_t size);
  // Absolute position from the start of the file.
  bool seek(std::int64_t offset);

 private:
  static constexpr std::intptr_t kClosed = -1;
  std::intptr_t handle_ = kClosed;
};

// The calendar fields of `t` in the local time zone; false when the time has none.
bool localTime(std::time_t t, std::tm& fields);

// The directory part of a path, with every backslash turned into "/" and the last "/" kept;
// "./" when there is no separator at all.
[[nodiscard]] std::string directoryOf(std::string_view path);

// Whether the processor runs SSSE3 instructions: asked once, on first use; false where the
// compiler cannot ask or the processor is no x86.
[[nodiscard]] bool cpuHasSsse3();

// Puts the standard streams in binary mode (answers and messages end in a bare line feed on
// every platform, and request lines arrive byte for byte) and makes a write to a closed standard
// output an ordinary failed write instead of a fatal signal.
void prepareStandardStreams();

}  // namespace kvs::platform
