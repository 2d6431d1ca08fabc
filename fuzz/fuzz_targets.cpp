// The fuzz targets. Besides "no crash", each checks what must hold whatever the input: results
// that do not depend on how the input is cut into blocks or chunks, outputs that cannot be
// longer than their inputs, readings that agree with the standard library's.
#include "fuzz/fuzz_targets.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "access/cli_session.h"
#include "access/pop3_retrieve.h"
#include "cgp/dataset_text.h"
#include "host/helper.h"
#include "kvs/exception.h"
#include "scanner/attachment_filter.h"
#include "scanner/message_scanner.h"
#include "scanner/mime_decoder.h"
#include "scanner/zip_directory.h"

#if defined(__linux__)
#include <sys/mman.h>
#include <unistd.h>
#endif

namespace fuzzing {
namespace {

// A broken invariant is a finding like a crash: say which, and abort so that libFuzzer saves
// the input.
void require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "fuzz invariant broken: %s\n", what);
  std::abort();
}

std::string_view bytes(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

// The scanner reads files by path, so each input becomes the content of one file. On Linux an
// in-memory file keeps the disk out of the loop.
class ScratchFile {
 public:
  ScratchFile() {
#if defined(__linux__)
    fd_ = memfd_create("velmora-fuzz", 0);
    if (fd_ >= 0) {
      path_ = "/proc/self/fd/" + std::to_string(fd_);
      return;
    }
#endif
    path_ = (std::filesystem::temp_directory_path() /
             ("velmora-fuzz-" + std::to_string(reinterpret_cast<std::uintptr_t>(this)) + ".msg"))
                .string();
  }

  const std::string& write(std::string_view content) {
#if defined(__linux__)
    if (fd_ >= 0) {
      require(ftruncate(fd_, 0) == 0, "scratch file truncates");
      std::size_t done = 0;
      while (done < content.size()) {
        const ssize_t n =
            pwrite(fd_, content.data() + done, content.size() - done, static_cast<off_t>(done));
        require(n > 0, "scratch file writes");
        done += static_cast<std::size_t>(n);
      }
      return path_;
    }
#endif
    std::ofstream out(path_, std::ios::binary | std::ios::trunc);
    out.write(content.data(), static_cast<std::streamsize>(content.size()));
    require(static_cast<bool>(out), "scratch file writes");
    return path_;
  }

 private:
  int fd_ = -1;
  std::string path_;
};

bool isTrimmed(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r\n";
  return text.empty() || (kBlanks.find(text.front()) == std::string_view::npos &&
                          kBlanks.find(text.back()) == std::string_view::npos);
}

// Drops a decoder's complaints: the targets check what it decodes, not what it says.
class NullSink : public Decoder::MIME::DiagnosticsSink {
 public:
  void addDiagnostic(const std::string&) override {}
};

enum class Coding { Base64, QuotedPrintable };

// A block like a small file read; the tiny one below finds where refills go wrong.
constexpr std::size_t kBlock = 1024;

std::unique_ptr<Decoder::MIME::Interface> makeDecoder(Coding coding, scanner::LineReader& in,
                                                      NullSink& sink, bool hasParent) {
  if (coding == Coding::Base64) {
    return std::make_unique<Decoder::MIME::Base64>(in, &sink, "--b", "--p", hasParent);
  }
  return std::make_unique<Decoder::MIME::QuotedPrintable>(in, &sink, "--b", "--p", hasParent);
}

// The body decoded in one pass, as the scanner decodes a ZIP part.
std::string decodeWhole(Coding coding, std::string_view body, std::size_t block, bool hasParent) {
  scanner::LineReader in(block);
  in.openMemory(body);
  NullSink sink;
  scanner::ImageBuffer image;
  bool emptyBody = true;
  makeDecoder(coding, in, sink, hasParent)->skipBody(emptyBody, std::string_view::npos, &image);
  return std::string(image.view());
}

// The same body a byte at a time through the decoder's own interface.
std::string decodeBytes(Coding coding, std::string_view body, bool hasParent) {
  scanner::LineReader in(kBlock);
  in.openMemory(body);
  NullSink sink;
  auto decoder = makeDecoder(coding, in, sink, hasParent);
  std::string out;
  unsigned char c;
  while (decoder->nextByte(c)) out.push_back(static_cast<char>(c));
  return out;
}

// The scan of a whole file to the header lines the filter answers with.
std::vector<std::string> scan(MessageScanner& scanner, const std::string& path) {
  std::optional<std::vector<std::string>> lines = AttachmentFilter::scan(scanner, path);
  require(lines.has_value(), "the scratch file opens");
  return std::move(*lines);
}

}  // namespace

// The whole queued file, envelope included, read in blocks of a page and again in tiny blocks:
// the answer must not depend on where blocks end.
int messageWalker(const std::uint8_t* data, std::size_t size) {
  // Fresh scanners for every input keep findings reproducible from the input alone; the reuse
  // of one scanner from message to message is the stress test's part.
  static ScratchFile file;
  MessageScanner paged(4096);
  MessageScanner tiny(13);
  MessageScanner counting(13, true), decoding(13, false);
  const std::string& path = file.write(bytes(data, size));

  const std::vector<std::string> lines = scan(paged, path);
  require(!lines.empty() && lines.back() == "X-ExtScanner: Korvantis's Velmora",
          "the scanner line comes last");
  require(scan(tiny, path) == lines, "the answer does not depend on the read block size");
  require(scan(counting, path) == scan(decoding, path) &&
              counting.diagnostics() == decoding.diagnostics(),
          "a base64 ZIP part counted gives what it gives decoded whole");
  return 0;
}

int zipDirectory(const std::uint8_t* data, std::size_t size) {
  const std::string_view image = bytes(data, size);
  const scanner::ZipDirectory dir = scanner::readZipDirectory(image);
  if (image.substr(0, 4) != std::string_view("PK\x03\x04", 4)) {
    require(dir.extensions.empty() && !dir.encrypted && !dir.corrupted,
            "an image without the local header signature yields nothing");
  }
  for (const std::string& ext : dir.extensions) {
    require(ext.size() <= size, "an extension comes from the image");
    require(ext == "..." || isTrimmed(ext), "extensions are trimmed");
  }
  // Read through a window from the middle, widened wherever the reader asks.
  std::uint64_t base = size / 2, needed = 0;
  std::optional<scanner::ZipDirectory> part;
  while (!(part = scanner::readZipDirectory({size, image.substr(0, 4), base, image.substr(base)},
                                            needed))) {
    require(needed < base, "only a byte before the window is asked for");
    base = needed;
  }
  require(part->extensions == dir.extensions && part->encrypted == dir.encrypted &&
              part->corrupted == dir.corrupted,
          "a window reads what the whole image gives");
  const std::string ext = scanner::storedNameExtension(image);
  require(ext.size() <= size || ext == "...", "a stored name's extension is part of it");
  return 0;
}

// The first byte chooses the coding and whether the body has a parent boundary; the rest is the
// body. Decoding must not depend on the read block, nor on line runs against single bytes.
int transferDecoders(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const Coding coding = (data[0] & 1) != 0 ? Coding::Base64 : Coding::QuotedPrintable;
  const bool hasParent = (data[0] & 2) != 0;
  const std::string_view body = bytes(data + 1, size - 1);

  const std::string whole = decodeWhole(coding, body, kBlock, hasParent);
  require(decodeWhole(coding, body, 5, hasParent) == whole,
          "decoding does not depend on the read block size");
  require(decodeBytes(coding, body, hasParent) == whole, "line runs and single bytes decode alike");

  if (coding == Coding::Base64) {
    // Counted instead: the size of the decoding, and the bytes after each mark from the mark.
    scanner::LineReader in(5);
    in.openMemory(body);
    NullSink sink;
    Decoder::MIME::Base64 counter(in, &sink, "--b", "--p", hasParent);
    Decoder::MIME::Base64::Count count;
    count.markEvery = 7;
    counter.countInto(count);
    scanner::ImageBuffer none;
    bool emptyBody = true;
    counter.skipBody(emptyBody, std::string_view::npos, &none);
    require(count.size == whole.size(), "counting gives the size of the decoding");
    for (const Decoder::MIME::Base64::Mark& mark : count.marks) {
      scanner::ImageBuffer rest;
      Decoder::MIME::Base64::decodeFrom(in, mark, counter.endsAt(), rest);
      require(rest.view() == std::string_view(whole).substr(mark.image),
              "decoding from a mark gives the bytes after it");
    }
  }

  const std::string b64 = Decoder::MIME::Base64::decode(body);
  require(b64.size() <= body.size() / 4 * 3 + 3, "base64 output is at most 3/4 of its input");
  for (bool word : {false, true}) {
    const std::string qp = Decoder::MIME::QuotedPrintable::decode(body, word);
    require(qp.size() <= body.size(), "quoted-printable output is not longer than its input");
  }
  return 0;
}

// One header line: the header tests, the parameters, the encoded-word names.
int attachmentNames(const std::uint8_t* data, std::size_t size) {
  const std::string_view text = bytes(data, size);
  std::string value;
  for (std::string_view header : {MessageScanner::kContentType, MessageScanner::kContentDisposition,
                                  MessageScanner::kContentTransferEncoding}) {
    if (MessageScanner::headerValue(header, text, value)) {
      require(value.size() < size, "a header value is shorter than its line");
    }
  }
  for (std::string_view param :
       {MessageScanner::kName, MessageScanner::kFilename, MessageScanner::kBoundary}) {
    std::string out;
    if (MessageScanner::paramValue(param, text, out)) {
      require(out.size() < size, "a parameter value is shorter than the field");
      const std::string ext = MessageScanner::attachmentExtension(out);
      require(ext == "..." || isTrimmed(ext), "an extension is trimmed");
    }
  }
  std::string boundary;
  if (MessageScanner::messageBoundary(text, boundary)) {
    require(boundary.size() < size, "a boundary is part of its line");
  }
  const std::string ext = MessageScanner::attachmentExtension(text);
  require(ext == "..." || isTrimmed(ext), "an extension is trimmed");
  return 0;
}

// Any input must read without a crash, and whatever a read yields must be written to a text
// that reads back without an error.
int datasetReader(const std::uint8_t* data, std::size_t size) {
  cgp::setParseErrorOutput(false);
  const cgp::DataSet value = cgp::parseDataSet(bytes(data, size));
  for (bool oneLine : {true, false}) {
    const std::size_t errors = cgp::parseErrorCount();
    (void)cgp::parseDataSet(cgp::writeDataSet(value, oneLine));
    require(cgp::parseErrorCount() == errors, "a written dataset reads back");
  }
  return 0;
}

// Any bytes either parse or raise one of the protocol errors; nothing else may happen.
int cliAnswer(const std::uint8_t* data, std::size_t size) {
  try {
    const cgp::CLIAnswer answer = cgp::CLISession::parseAnswer(bytes(data, size));
    require(answer.code != 0, "an answer without a code is refused");
    require(answer.data.size() <= size, "the data text is part of the answer");
  } catch (const kvs::ProtocolException&) {
  }
  return 0;
}

// The first byte is the chunk size; the rest is what the server sends after "+OK". Read in
// chunks, the message and what follows it must be the same as when it comes in one piece.
int pop3Retrieve(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::size_t chunkSize = data[0] % 16 + 1;
  const std::string_view stream = bytes(data + 1, size - 1);

  kvs::pop3::RetrieveReader whole;
  std::ostringstream wholeOut;
  const bool ended = whole.feed(stream, wholeOut);

  kvs::pop3::RetrieveReader chunked;
  std::ostringstream chunkedOut;
  std::size_t pos = 0;
  bool chunkedEnded = false;
  while (pos < stream.size() && !chunkedEnded) {
    chunkedEnded = chunked.feed(stream.substr(pos, chunkSize), chunkedOut);
    pos += chunkSize;
  }
  require(chunkedEnded == ended, "the end is found whatever the chunks");
  if (ended) {
    require(chunkedOut.str() == wholeOut.str(), "the message does not depend on the chunks");
    std::string after = chunked.rest() + std::string(stream.substr(std::min(pos, stream.size())));
    // A CR LF split by the chunks leaves its LF for the client to drop.
    if (chunked.lineFeedMayFollow() && !after.empty() && after[0] == '\n') after.erase(0, 1);
    require(after == whole.rest(), "the bytes after the message are kept");
  } else {
    require(wholeOut.str().size() <= stream.size(), "the message is not longer than its text");
  }
  return 0;
}

// One request line: the three fields, and the request number as stream extraction reads it.
int requestLine(const std::uint8_t* data, std::size_t size) {
  const std::string line(bytes(data, size));
  const cgp::RequestLine r = cgp::splitRequestLine(line);
  auto delimiterFree = [](const std::string& s) { return s.find_first_of(" \r\n") == s.npos; };
  require(delimiterFree(r.id) && delimiterFree(r.command), "fields hold no delimiter");
  require(r.parameter.empty() ||
              std::string_view(" \r\n").find(r.parameter[0]) == std::string_view::npos,
          "the parameter starts after the delimiters");
  if (r.id.empty()) require(r.command.empty() && r.parameter.empty(), "no id, no other field");
  require(r.id.size() + r.command.size() + r.parameter.size() <= size, "fields come from the line");

  std::istringstream in(r.id);
  int expected = 0;
  in >> expected;
  require(cgp::requestNumber(r.id) == expected, "the request number reads as stream extraction");
  return 0;
}

}  // namespace fuzzing
