// Building blocks of the benchmark corpora: a seeded random source whose sequence is the same on
// every platform, ZIP images, base64 and quoted-printable bodies, and whole queued message files
// with the findings the filter is expected to answer for them.
#pragma once

#include <cstdint>
#include <iterator>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace bench {

// splitmix64: tiny, fast and fully specified, so a corpus is byte-identical wherever it is
// generated (the standard distributions are not specified to that level).
class Random {
 public:
  explicit Random(std::uint64_t seed) : state_(seed) {}
  std::uint64_t next();
  // Uniform in [0, n); n must not be 0.
  std::uint64_t below(std::uint64_t n) { return next() % n; }
  // Uniform in [low, high].
  std::uint64_t between(std::uint64_t low, std::uint64_t high) {
    return low + below(high - low + 1);
  }
  // Spread evenly over the orders of magnitude in [low, high]: sizes of real attachments are
  // closer to this than to a uniform spread. Integer arithmetic only, for the reason above.
  std::uint64_t logBetween(std::uint64_t low, std::uint64_t high);
  bool percent(unsigned chance) { return below(100) < chance; }
  template <typename List>
  const auto& pick(const List& list) {
    return list[below(std::size(list))];
  }
  // Appends n bytes of noise (what compressed or encrypted content looks like).
  void appendBytes(std::string& out, std::size_t n);

 private:
  std::uint64_t state_;
};

[[nodiscard]] std::uint32_t crc32(std::string_view bytes);

struct ZipEntry {
  std::string name;
  std::string data;
  bool encrypted = false;
};

// A ZIP image with stored (uncompressed) entries: local headers with their data, the central
// directory and the end record, as an archiver writes them.
[[nodiscard]] std::string buildZip(const std::vector<ZipEntry>& entries);

// Base64 in lines of 76 characters, each ended by a line feed.
void appendBase64Lines(std::string& out, std::string_view bytes);
// Quoted-printable with soft line breaks before 76 characters; line feeds of the text stay hard
// line breaks.
void appendQuotedPrintable(std::string& out, std::string_view text);

// The extension a name yields in an answer: lower-cased after the last dot, trimmed of blanks,
// tabs and line ends; "..." for a name without a dot or ending in one.
[[nodiscard]] std::string extensionOf(std::string_view name);

// What the filter must answer for one message: its findings and whether its body is empty.
struct Expectation {
  std::set<std::string> findings;
  bool emptyBody = false;

  void addZip(const std::vector<ZipEntry>& entries);
  // The answer's text as it appears on the wire between the quotes of "<n> ADDHEADER \"...\"":
  // the header lines joined by the escaped line feed.
  [[nodiscard]] std::string answerText() const;
};

}  // namespace bench
