// Helpers for the scanner's program tests: temporary message files, ZIP images and their
// transfer encodings, and one velmora process answering a list of message files.
#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "kvs/text.h"
#include "tests/process.h"

namespace scanner_support {

// A directory of its own under the system's temporary directory, removed with the object.
class TempDir {
 public:
  TempDir() {
    std::random_device seed;
    path_ = std::filesystem::temp_directory_path() /
            ("velmora-scan-" + std::to_string(seed()) + "-" + std::to_string(seed()));
    std::filesystem::create_directories(path_);
  }
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  // Writes `bytes` to a file of this directory and returns its path.
  std::string write(const std::string& name, const std::string& bytes) const {
    const std::string file = (path_ / name).string();
    std::ofstream(file, std::ios::binary) << bytes;
    return file;
  }
  std::string path() const { return path_.string(); }

 private:
  std::filesystem::path path_;
};

inline std::string dataFile(const std::string& name) {
  return testing_process::sourceDir() + "/tests/data/messages/" + name;
}

// The answers of one velmora process to "FILE" requests for `files`, numbered from 1, without
// the comment lines: answer i-1 is the text after "<i> ", or "<missing>".
struct Answers {
  std::vector<std::string> lines;
  testing_process::Result run;
};

inline Answers scanAll(const std::vector<std::string>& files, int timeoutSeconds = 120) {
  std::string input;
  for (std::size_t i = 0; i < files.size(); ++i) {
    input += std::to_string(i + 1) + " FILE " + files[i] + "\n";
  }
  Answers a;
  a.run = testing_process::run(testing_process::program(), input, timeoutSeconds);
  std::map<std::size_t, std::string> byNumber;
  std::istringstream out(a.run.out);
  std::string line;
  while (std::getline(out, line)) {
    if (line.rfind("* ", 0) == 0) continue;
    const std::size_t blank = line.find(' ');
    if (blank == std::string::npos) continue;
    byNumber[std::stoul(line.substr(0, blank))] = line.substr(blank + 1);
  }
  for (std::size_t i = 1; i <= files.size(); ++i) {
    auto it = byNumber.find(i);
    a.lines.push_back(it == byNumber.end() ? "<missing>" : it->second);
  }
  return a;
}

// The answer for these findings, as the engine writes it.
inline std::string addHeader(const std::vector<std::string>& findings, bool emptyBody = false) {
  std::string text;
  for (const auto& f : findings) text += "X-AttachExt: " + f + "\\e";
  if (emptyBody) text += "X-EmptyBody: YES\\e";
  return "ADDHEADER \"" + text + "X-ExtScanner: Korvantis's Velmora\"";
}

// ZIP images: one local header per entry (no data), the central directory, the end record.
struct ZipEntry {
  std::string name;
  bool encrypted = false;
};

inline void put16(std::string& s, std::uint32_t v) {
  s.push_back(static_cast<char>(v & 0xFF));
  s.push_back(static_cast<char>((v >> 8) & 0xFF));
}
inline void put32(std::string& s, std::uint32_t v) {
  put16(s, v & 0xFFFF);
  put16(s, v >> 16);
}

struct ZipImage {
  std::string bytes;
  std::size_t directory = 0;  // where the central directory starts
  std::size_t endRecord = 0;  // where the end record starts
};

// `filler` goes between the local headers and the central directory.
inline ZipImage zipImage(const std::vector<ZipEntry>& entries, const std::string& filler = {}) {
  ZipImage z;
  for (const auto& e : entries) {
    put32(z.bytes, 0x04034b50);
    put16(z.bytes, 20);
    put16(z.bytes, e.encrypted ? 1 : 0);
    z.bytes.append(18, 'x');  // method, times, crc, sizes: never read
    put16(z.bytes, static_cast<std::uint32_t>(e.name.size()));
    put16(z.bytes, 0);
    z.bytes += e.name;
  }
  z.bytes += filler;
  z.directory = z.bytes.size();
  for (const auto& e : entries) {
    put32(z.bytes, 0x02014b50);
    put16(z.bytes, 20);
    put16(z.bytes, 20);
    put16(z.bytes, e.encrypted ? 1 : 0);
    z.bytes.append(18, 'y');  // method, times, crc, sizes
    put16(z.bytes, static_cast<std::uint32_t>(e.name.size()));
    put16(z.bytes, 3);       // extra field
    put16(z.bytes, 2);       // comment
    z.bytes.append(8, 'z');  // disk, attributes
    put32(z.bytes, 0);       // local header offset
    z.bytes += e.name + "EXTcm";
  }
  z.endRecord = z.bytes.size();
  put32(z.bytes, 0x06054b50);
  put16(z.bytes, 0);
  put16(z.bytes, 0);
  put16(z.bytes, static_cast<std::uint32_t>(entries.size()));
  put16(z.bytes, static_cast<std::uint32_t>(entries.size()));
  put32(z.bytes, static_cast<std::uint32_t>(z.endRecord - z.directory));
  put32(z.bytes, static_cast<std::uint32_t>(z.directory));
  put16(z.bytes, 0);
  return z;
}

inline void patch16(std::string& s, std::size_t at, std::uint32_t v) {
  s[at] = static_cast<char>(v & 0xFF);
  s[at + 1] = static_cast<char>((v >> 8) & 0xFF);
}
inline void patch32(std::string& s, std::size_t at, std::uint32_t v) {
  patch16(s, at, v & 0xFFFF);
  patch16(s, at + 2, v >> 16);
}

// Base64 in lines of 76 characters, each ended by `eol`.
inline std::string base64Lines(const std::string& bytes, const std::string& eol = "\n") {
  const std::string b = kvs::base64Encode(bytes);
  std::string out;
  for (std::size_t i = 0; i < b.size(); i += 76) out += b.substr(i, 76) + eol;
  return out;
}

// Quoted-printable with soft line breaks; every byte outside 33-126 and "=" is escaped.
inline std::string quotedPrintable(const std::string& bytes) {
  static const char hexDigits[] = "0123456789ABCDEF";
  std::string out, line;
  for (unsigned char c : bytes) {
    std::string piece;
    if (c >= 33 && c <= 126 && c != '=') {
      piece = std::string(1, static_cast<char>(c));
    } else {
      piece = {'=', hexDigits[c >> 4], hexDigits[c & 15]};
    }
    if (line.size() + piece.size() > 72) {
      out += line + "=\n";
      line.clear();
    }
    line += piece;
  }
  return out + line + "\n";
}

// A two-part message whose second part carries `body` under the given headers.
inline std::string messageWithPart(const std::string& partHeaders, const std::string& body,
                                   const std::string& eol = "\n") {
  std::string m = "From: t@example.com" + eol + "Content-Type: multipart/mixed; boundary=\"zz\"" +
                  eol + eol + "--zz" + eol + "Content-Type: text/plain" + eol + eol +
                  "see the attachment" + eol + "--zz" + eol;
  std::istringstream headers(partHeaders);
  std::string h;
  while (std::getline(headers, h)) m += h + eol;
  return m + eol + body + "--zz--" + eol;
}

}  // namespace scanner_support
