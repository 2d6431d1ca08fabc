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

// What a path names, by one status call: Missing when the path cannot be accessed. A path that
// can be accessed but whose status cannot be read counts as a file.
[[nodiscard]] PathKind pathKind(const std::string& path);

// A file opened for reading in shared mode: others may read, write, rename or delete it
// meanwhile. Reads are unbuffered; callers bring their own buffer.
class File : private noncopyable {
 public:
  File() = default;
  ~File() { close(); }
  File(File&& other) noexcept : handle_(other.handle_) { other.handle_ = kClosed; }

  // Refuses what a read could hang on or cannot read: directories and named pipes (on Windows,
  // devices). Costs a status call of the open file.
  bool open(const std::string& path);
  // What `pathKind` would answer, and for a file the open as above (isOpen() tells whether it
  // opened): a plain file costs one open and one status call of the open file, no look at the
  // path of its own.
  PathKind openFile(const std::string& path);
  // Opens and reads the first block (`got` as `read` gives it), with the same refusals; the
  // status is asked only when that read brings nothing, since a directory or a pipe never
  // gives a byte to a read that does not wait.
  bool openAndRead(const std::string& path, void* buffer, std::size_t size, std::int64_t& got);
  void close();
  [[nodiscard]] bool isOpen() const { return handle_ != kClosed; }
  // Up to `size` bytes; 0 at the end of the file, -1 on a read error.
  [[nodiscard]] std::int64_t read(void* buffer, std::size_t size);
  // Absolute position from the start of the file.
  bool seek(std::int64_t offset);
  // The file's size now (one status call); -1 when it cannot be told.
  [[nodiscard]] std::int64_t size() const;

 private:
  static constexpr std::intptr_t kClosed = -1;
  std::intptr_t handle_ = kClosed;
};

// The calendar fields of `t` in the local time zone; false when the time has none.
bool localTime(std::time_t t, std::tm& fields);

// The directory part of a path, with every backslash turned into "/" and the last "/" kept;
// "./" when there is no separator at all.
[[nodiscard]] std::string directoryOf(std::string_view path);

// Puts the standard streams in binary mode (answers and messages end in a bare line feed on
// every platform, and request lines arrive byte for byte) and makes a write to a closed standard
// output an ordinary failed write instead of a fatal signal.
void prepareStandardStreams();

// Vector instructions of the processor, asked once; false where they cannot be asked for (no x86
// processor, or a compiler without the question), so the plain code is taken there.
[[nodiscard]] bool cpuHasSsse3();
[[nodiscard]] bool cpuHasAvx2();

}  // namespace kvs::platform
