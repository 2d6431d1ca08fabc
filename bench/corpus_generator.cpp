// velmora-bench-corpus DIR: writes the three benchmark corpora under DIR, unless the ones there
// were written by this same generator version. The same version always writes the same bytes.
//
// Each corpus is a folder of queued message files (000001.msg, ...) with
//   manifest.txt  "# key value" lines (largest-zip, bytes, messages), then one line per message:
//                 its file name, a tab, and the answer text the filter must give for it;
//   requests.txt  the request lines that feed the whole corpus to the filter ("1 FILE 000001.msg"),
//                 for profiling runs started from inside the folder.
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>

#include "bench/message_writer.h"

namespace fs = std::filesystem;
using bench::MessageWriter;
using Kind = MessageWriter::Kind;

namespace {

// Bump whenever a change to the writers changes the bytes they write.
constexpr const char* kVersion = "velmora bench corpora, generator version 3";

class CorpusFolder {
 public:
  explicit CorpusFolder(fs::path dir) : dir_(std::move(dir)) { fs::create_directories(dir_); }

  void add(const MessageWriter::Message& message) {
    char name[32];
    std::snprintf(name, sizeof name, "%06zu.msg", ++count_);
    std::ofstream out(dir_ / name, std::ios::binary);
    out.write(message.bytes.data(), static_cast<std::streamsize>(message.bytes.size()));
    if (!out.flush()) throw std::runtime_error("cannot write " + (dir_ / name).string());
    bytes_ += message.bytes.size();
    largestZip_ = std::max(largestZip_, message.largestZip);
    manifest_ << name << '\t' << message.expected.answerText() << '\n';
    requests_ << count_ << " FILE " << name << '\n';
  }

  std::uint64_t bytes() const { return bytes_; }

  void close() {
    std::ofstream manifest(dir_ / "manifest.txt", std::ios::binary);
    manifest << "# largest-zip " << largestZip_ << "\n# bytes " << bytes_ << "\n# messages "
             << count_ << '\n'
             << manifest_.str();
    std::ofstream requests(dir_ / "requests.txt", std::ios::binary);
    requests << requests_.str();
    if (!manifest.flush() || !requests.flush()) throw std::runtime_error("cannot write lists");
    std::cout << "  " << dir_.filename().string() << ": " << count_ << " messages, "
              << bytes_ / 1000000 << " MB, largest ZIP " << largestZip_ / 1000 << " kB\n";
  }

 private:
  fs::path dir_;
  std::size_t count_ = 0;
  std::uint64_t bytes_ = 0;
  std::uint64_t largestZip_ = 0;
  std::ostringstream manifest_, requests_;
};

// About 300 MB of everyday traffic: mostly small text and HTML, attachments up to a few MB,
// ZIPs with many entries, and a few very large messages spread through the queue.
void writeMixed(const fs::path& dir) {
  bench::Random random(0x6d69786564ULL);
  MessageWriter writer(random);
  CorpusFolder folder(dir);
  struct Share {
    Kind kind;
    unsigned weight;
  };
  constexpr Share kShares[] = {
      {Kind::kPlain, 38},  {Kind::kAlternative, 33}, {Kind::kAttachments, 9},
      {Kind::kZip, 5},     {Kind::kSinglePart, 3},   {Kind::kForward, 3},
      {Kind::kRelated, 5}, {Kind::kTextFiles, 3},    {Kind::kEmpty, 1}};
  MessageWriter::Sizes everyday;
  everyday.attachmentLow = 5000;
  everyday.attachmentHigh = 2500000;
  MessageWriter::Sizes archives;
  archives.attachmentLow = 20000;
  archives.attachmentHigh = 3000000;

  constexpr std::uint64_t kTarget = 300000000;
  unsigned large = 0;
  while (folder.bytes() < kTarget) {
    // One very large message after each further 20% of the corpus.
    if (folder.bytes() > (large + 1) * kTarget / 5 && large < 4) {
      MessageWriter::Sizes huge;
      huge.attachmentLow = huge.attachmentHigh = 18000000 + 4000000 * large;
      switch (large++) {
        case 0:
          folder.add(writer.writeDigest(12000000));
          break;
        case 1:
          folder.add(writer.writeZipCarrier(25000000, 2000, false));
          break;
        default:
          folder.add(writer.write(Kind::kSinglePart, huge));
      }
      continue;
    }
    unsigned roll = static_cast<unsigned>(random.below(100));
    Kind kind = Kind::kPlain;
    for (const Share& share : kShares) {
      if (roll < share.weight) {
        kind = share.kind;
        break;
      }
      roll -= share.weight;
    }
    folder.add(writer.write(kind, kind == Kind::kZip ? archives : everyday));
  }
  folder.close();
}

void writeSmall(const fs::path& dir) {
  bench::Random random(0x736d616c6cULL);
  MessageWriter writer(random);
  CorpusFolder folder(dir);
  for (int i = 0; i < 20000; ++i) folder.add(writer.writeSmall(random.between(1300, 6800)));
  folder.close();
}

void writeZipHeavy(const fs::path& dir) {
  bench::Random random(0x7a6970ULL);
  MessageWriter writer(random);
  CorpusFolder folder(dir);
  for (int i = 0; i < 12; ++i) {
    folder.add(writer.writeZipCarrier(random.between(5000000, 20000000),
                                      static_cast<unsigned>(random.between(20, 1500)), i % 4 == 1));
  }
  folder.close();
}

std::string readFile(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: velmora-bench-corpus DIR\n";
    return 2;
  }
  const fs::path root = argv[1];
  const fs::path stamp = root / "VERSION";
  if (readFile(stamp) == std::string(kVersion) + "\n") {
    std::cout << "Corpora up to date in " << root.string() << "\n";
    return 0;
  }
  try {
    const auto start = std::chrono::steady_clock::now();
    std::cout << "Writing the corpora to " << root.string() << " (once; about 600 MB)\n";
    fs::remove(stamp);
    for (const char* name : {"mixed", "small", "zip-heavy"}) fs::remove_all(root / name);
    writeMixed(root / "mixed");
    writeSmall(root / "small");
    writeZipHeavy(root / "zip-heavy");
    // The stamp goes last, so an interrupted run is redone in full next time.
    std::ofstream(stamp, std::ios::binary) << kVersion << "\n";
    const auto seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start);
    std::cout << "Corpora written in " << static_cast<int>(seconds.count()) << " s\n";
  } catch (const std::exception& e) {
    std::cerr << "velmora-bench-corpus: " << e.what() << "\n";
    return 1;
  }
  return 0;
}
