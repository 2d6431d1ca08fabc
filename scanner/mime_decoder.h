// The body readers of the scanner: Decoder::MIME::Interface reads the raw lines of one body up to
// its boundary line; the body skipper only consumes them.
#pragma once

#include <string>
#include <string_view>

#include "kvs/noncopyable.h"
#include "scanner/image_buffer.h"
#include "scanner/line_reader.h"

namespace Decoder::MIME {

// Where a decoder's complaints go: the scanner that owns it.
class DiagnosticsSink {
 public:
  virtual ~DiagnosticsSink() = default;
  virtual void addDiagnostic(const std::string& text) = 0;
};

class Interface : private kvs::noncopyable {
 public:
  // `sentinel` is "--" and the body's boundary, empty for a body that runs to the end of the
  // file; `parentSentinel` the same for the enclosing boundary, if `hasParent`.
  Interface(scanner::LineReader& in, DiagnosticsSink* sink, std::string sentinel,
            std::string parentSentinel = {}, bool hasParent = false);
  virtual ~Interface();

  virtual const char* name() const = 0;
  virtual int errors() const { return errors_; }
  virtual const std::string& stopLine() const { return stopLine_; }
  virtual bool ended() const { return ended_; }
  // One decoded line: bytes up to a CR or an LF, where CR LF and LF CR count as one line end.
  // False when no byte at all could be had.
  virtual bool readLine(std::string& line);
  virtual bool nextByte(unsigned char& byte) = 0;
  // The next raw line of the body into the current line; false at the boundary line (kept as
  // the stop line) or at the end of the file.
  virtual bool fetchLine();

  // Decodes one raw body line (followed by a line feed if `newline`) into `out`; false once the
  // decoding has ended and further lines would change nothing. The base takes bytes as they are.
  virtual bool feedLine(std::string_view raw, bool newline, scanner::ImageBuffer& out);
  // Whether line ends mean nothing to this decoder, so that many lines may come as one run.
  virtual bool takesRuns() const { return false; }
  // The body has no further line: complaints about what was cut short.
  virtual void endOfInput() {}
  // Decodes the rest of the body from the stream into `out`, a whole line at a time.
  void decodeBody(scanner::ImageBuffer& out);

 protected:
  void complain(const std::string& text, bool counted = true);
  [[nodiscard]] bool isSentinel(std::string_view line) const;
  [[nodiscard]] bool isParentSentinel(std::string_view line) const;

  scanner::LineReader& in_;
  DiagnosticsSink* sink_;
  int errors_ = 0;
  bool ended_ = false;
  bool stopped_ = false;  // the boundary line has been met: the body has no further line
  std::string sentinel_;
  std::string parentSentinel_;
  bool hasParent_;
  std::string stopLine_;
  std::string_view raw_;  // the current raw line (valid until the next fetch)
  std::size_t rawPos_ = 0;
  bool rawNewline_ = false;  // the raw line ended with a line feed in the file
  int pushedBack_ = -1;

 private:
  std::string lastComplaint_;  // the sink is a set: a repeat of the last text changes nothing
};

// The body skipper: consumes the raw lines of a body without decoding or copying them.
class Skipper : public Interface {
 public:
  Skipper(scanner::LineReader& in, DiagnosticsSink* sink, std::string sentinel,
          std::string parentSentinel = {}, bool hasParent = false);
  const char* name() const override { return "Sk"; }
  bool nextByte(unsigned char&) override { return false; }

  // Consumes the body up to and including its boundary line (or to the end of the file),
  // clearing `emptyBody` at any body line that holds a byte. Of the boundary line only its first
  // `keep` bytes are kept as the stop line. With an `image`, every body line is also handed to
  // `decoder` on the way, so that a ZIP part is decoded in the same pass.
  void skipBody(bool& emptyBody, std::size_t keep, Interface* decoder = nullptr,
                scanner::ImageBuffer* image = nullptr);

 private:
  void captureBody(bool& emptyBody, Interface* decoder, scanner::ImageBuffer& image);
};

}  // namespace Decoder::MIME
