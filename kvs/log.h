// Answer and comment lines on standard output, written whole under one process-wide lock,
// with the repetition filter for comment lines; and archiveFile.
#pragma once

#include <cstdint>
#include <sstream>
#include <string>
#include <string_view>

#include "kvs/noncopyable.h"

namespace kvs {

// Collects the text of one line.
class ostream_base : public std::ostringstream, private noncopyable {
 public:
  ostream_base() = default;
  ~ostream_base() override = default;
  // Writes the line now; the destructor then writes nothing.
  virtual void end() = 0;

 protected:
  bool ended_ = false;
};

// One answer line: trailing line feeds are dropped and exactly one is written.
class outline : public ostream_base {
 public:
  outline() = default;
  ~outline() override;
  void end() override;
};

// One comment line for the server's log: "* text", "* [n] text" or "* source: text".
class logline : public ostream_base {
 public:
  logline() = default;
  explicit logline(const std::string& source) : source_(source) {}
  explicit logline(int number) : number_(number) {}
  ~logline() override;
  void end() override;

 private:
  std::string source_;
  std::int32_t number_ = 0;
};

// A manipulator: `kvs::outline() << "x" << kvs::endl;` ends the line explicitly.
class ostream_func {
 public:
  virtual ~ostream_func() = default;
  virtual void apply(std::ostream& stream) const = 0;
};

class end_line : public ostream_func {
 public:
  void apply(std::ostream& stream) const override;
};
inline const end_line endl{};

inline std::ostream& operator<<(std::ostream& stream, const ostream_func& func) {
  func.apply(stream);
  return stream;
}

// The comment lines logline writes for `text`: "* ", "[number] " unless number is 0, "source: "
// unless source is empty, on every line of the text; ends with a line feed.
[[nodiscard]] std::string formatComment(int number, std::string_view source, std::string_view text);
// The same, appended to `out`.
void appendComment(std::string& out, int number, std::string_view source, std::string_view text);

// Writes a whole line to standard output (the caller's text, unchanged) under the output lock.
void writeOutput(std::string_view text);

// Where the line writers put their bytes; standard output unless a test swaps it.
using OutputWriter = void (*)(std::string_view);
OutputWriter setOutputWriter(OutputWriter writer);

// Forgets every repetition entry (for tests that need a fresh process state).
void resetRepeatTable();

// Moves a file aside under a time-stamped name; returns the new name, or "" on failure.
std::string archiveFile(const std::string& path);

}  // namespace kvs
