// Buffered line reading over a message file: large block reads, memchr for line ends, no
// allocation per line, and a saved position to seek back to.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "kvs/noncopyable.h"
#include "kvs/platform/platform.h"

namespace scanner {

// The file is read as text the way the program has always read it: a CR right before an LF
// belongs to the line end on every platform; a lone CR stays a byte of the line.
class LineReader : private kvs::noncopyable {
 public:
  static constexpr std::size_t kDefaultBlock = 128 * 1024;

  explicit LineReader(std::size_t blockSize = kDefaultBlock);

  bool open(const std::string& path);
  // Reads from memory instead of a file (the bytes must outlive the reader); blocks of the
  // same size as from a file, so a tiny block size exercises the same refill paths.
  void openMemory(std::string_view bytes);
  void close();
  [[nodiscard]] bool isOpen() const { return file_.isOpen() || memoryOpen_; }

  // The next line without its line end, of which only the first `keep` bytes are kept (a long
  // line is never held whole unless asked for); false at the end of the input. The view stays
  // valid until the next call.
  bool next(std::string_view& line, std::size_t keep = std::string_view::npos) {
    // The common case, a whole line in the buffer, is served here; the rest goes the long way.
    const char* const b = buffer_ + begin_;
    const auto* lf = static_cast<const char*>(std::memchr(b, '\n', end_ - begin_));
    if (lf == nullptr) return nextAcrossBlocks(line, keep);
    std::size_t len = static_cast<std::size_t>(lf - b);
    begin_ += len + 1;
    hadNewline_ = true;
    if (len > 0 && b[len - 1] == '\r') --len;
    line = std::string_view(b, len < keep ? len : keep);
    return true;
  }
  // The complete lines next in the buffer (reading more when it holds none), or empty when the
  // next line begins with `first`, does not fit in the buffer, or the input has ended; then read
  // line by line.
  std::string_view wholeLinesAhead(char first);
  // Of such `lines`, those before the first that begins with `first`: a run to consume whole.
  // The search starts at `from`, for a caller that knows the bytes before it hold no `first`.
  static std::string_view linesBefore(std::string_view lines, char first, std::size_t from = 0);
  // The bytes next in the buffer, lines or not (reading more when it holds none); empty at the end
  // of the input.
  std::string_view bytesAhead();
  void consume(std::size_t bytes) { begin_ += bytes; }

  // Whether the line just read ended with a line feed (false only for a last line without one).
  [[nodiscard]] bool hadNewline() const { return hadNewline_; }

  // Position of the next line's first byte in the file.
  [[nodiscard]] std::int64_t tell() const { return bufferPos_ + static_cast<std::int64_t>(begin_); }
  // Whether the buffer holds everything up to the end of the input.
  [[nodiscard]] bool holdsTheRest() const { return eof_; }
  bool seek(std::int64_t position);
  // The input's size: free once its end has been read, otherwise one status call of the open
  // file; -1 when it cannot be told.
  [[nodiscard]] std::int64_t size() const;

 private:
  // `next` for a line that the buffer does not hold whole (the unread bytes have no line feed).
  bool nextAcrossBlocks(std::string_view& line, std::size_t keep);
  // Moves the unread bytes to the front and reads more; false when nothing more came.
  bool refill();
  std::int64_t readSource(char* into, std::size_t size);
  // Takes in a read of `got` bytes (as the file gives it) of `wanted`; false when none came.
  bool received(std::size_t wanted, std::int64_t got);

  kvs::platform::File file_;
  bool memoryOpen_ = false;
  std::string_view memory_;
  std::size_t memoryPos_ = 0;

  static constexpr std::size_t kPage = 4096;
  std::size_t capacity_;
  // Not zero-filled: a page of it costs a fault only when a read first reaches it.
  std::unique_ptr<char[]> storage_;
  char* buffer_;                // the first page boundary in storage_
  std::size_t held_ = 0;        // first byte that holds the file's bytes (before begin_)
  std::size_t begin_ = 0;       // first unread byte
  std::size_t end_ = 0;         // one past the last valid byte
  std::int64_t bufferPos_ = 0;  // file position of buffer_[0]
  bool eof_ = false;
  bool hadNewline_ = false;
  std::string long_;  // (the kept head of) a line that does not fit in the buffer
};

}  // namespace scanner
