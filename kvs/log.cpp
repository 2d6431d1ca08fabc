// Answer and comment lines on standard output; the repetition filter; archiveFile.
#include "kvs/log.h"

#include <cstdio>
#include <filesystem>
#include <system_error>
#include <unordered_map>

#include "kvs/date.h"
#include "kvs/mutex.h"

namespace kvs {
namespace {

MutexInterface& outputLock() {
  static MutexInterface lock;
  return lock;
}

struct RepeatEntry {
  std::string lastText;
  std::uint32_t count = 0;
};

MutexInterface& repeatLock() {
  static MutexInterface lock;
  return lock;
}

std::unordered_map<std::string, RepeatEntry>& repeatTable() {
  static std::unordered_map<std::string, RepeatEntry> table;
  return table;
}

void writeStdout(std::string_view text) {
  std::fwrite(text.data(), 1, text.size(), stdout);
  std::fflush(stdout);
}

OutputWriter currentWriter = writeStdout;

void stripTrailingLineFeeds(std::string& text) {
  while (text.ends_with('\n')) text.pop_back();
}

}  // namespace

void writeOutput(std::string_view text) {
  ScopedLock lock(outputLock());
  currentWriter(text);
}

OutputWriter setOutputWriter(OutputWriter writer) {
  ScopedLock lock(outputLock());
  OutputWriter old = currentWriter;
  currentWriter = writer ? writer : writeStdout;
  return old;
}

void resetRepeatTable() {
  ScopedLock lock(repeatLock());
  repeatTable().clear();
}

void end_line::apply(std::ostream& stream) const {
  if (auto* line = dynamic_cast<ostream_base*>(&stream)) line->end();
}

outline::~outline() {
  end();
}

void outline::end() {
  if (ended_) return;
  ended_ = true;
  std::string text = str();
  stripTrailingLineFeeds(text);
  text.push_back('\n');
  writeOutput(text);
}

logline::~logline() {
  end();
}

void appendComment(std::string& out, int number, std::string_view source, std::string_view text) {
  const std::size_t prefixAt = out.size();
  out += "* ";
  if (number != 0) {
    out += '[';
    out += std::to_string(number);
    out += "] ";
  }
  if (!source.empty()) {
    out += source;
    out += ": ";
  }
  while (text.ends_with('\n')) text.remove_suffix(1);
  std::size_t lf = text.find('\n');
  if (lf == std::string_view::npos) {
    out += text;
    out += '\n';
    return;
  }
  // Every further line of the text gets the prefix again.
  const std::string prefix = out.substr(prefixAt);
  for (;;) {
    out += text.substr(0, lf);
    out += '\n';
    if (lf == std::string_view::npos) return;
    text.remove_prefix(lf + 1);
    out += prefix;
    lf = text.find('\n');
  }
}

std::string formatComment(int number, std::string_view source, std::string_view text) {
  std::string lines;
  appendComment(lines, number, source, text);
  return lines;
}

void logline::end() {
  if (ended_) return;
  ended_ = true;
  const std::string text = str();
  if (source_.empty()) {
    writeOutput(formatComment(number_, source_, text));
    return;
  }
  // The filter's lock is held while the summary and the new line are written, so nothing
  // comes between them; the order is always the repeat lock, then the output lock.
  ScopedLock lock(repeatLock());
  RepeatEntry& entry = repeatTable()[source_];
  if (entry.count > 0 && entry.lastText == text) {
    ++entry.count;
    return;
  }
  if (entry.count > 1) {
    // The count includes the first occurrence of the text.
    outline() << "* " << source_ << ": (Last message repeated " << entry.count << " times)";
  }
  entry.lastText = text;
  entry.count = 1;
  writeOutput(formatComment(number_, source_, text));
}

std::string archiveFile(const std::string& path) {
  namespace fs = std::filesystem;
  std::string suffix = Date::now().format(".YYYYMMDD-hhmmss");
  std::error_code ec;
  while (fs::exists(fs::path(path + suffix), ec)) suffix += ".1";
  const std::string target = path + suffix;
  fs::rename(fs::path(path), fs::path(target), ec);
  return ec ? std::string() : target;
}

}  // namespace kvs
