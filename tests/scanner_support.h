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

#include "kvs/base64.h"
#include "tests/process.h"
#include "tests/zip_image.h"

namespace scanner_support {

using zip_image::ZipEntry;
using zip_image::zipImage;

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
