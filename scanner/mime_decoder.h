// The body readers of the scanner. Decoder::MIME::Interface reads the raw lines of one body up to
// its boundary line and hands them to the decoding of its subclass: Base64, QuotedPrintable, or
// the body skipper, which decodes nothing (or, for a ZIP part without transfer encoding, takes
// the bytes as they are). The whole body goes through in one pass (`skipBody`); the byte and line
// interface (`nextByte`, `readLine`) is a thin layer over the same decoding. A base64 body can be
// counted in that pass instead, and any part of its bytes decoded afterwards (`decodeFrom`).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "kvs/noncopyable.h"
#include "scanner/decoding_core.h"
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
  enum class LineKind { Body, Stop, ParentStop };

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

  // Whether `line` belongs to the body, is its boundary line, or the enclosing one's.
  [[nodiscard]] LineKind classify(std::string_view line) const;

  // Consumes the body up to and including its boundary line (or to the end of the file),
  // clearing `emptyBody` at any body line that holds a byte. Without an `image` nothing is
  // decoded and of the boundary line only its first `keep` bytes are kept as the stop line;
  // with one, the body is decoded into it on the way.
  void skipBody(bool& emptyBody, std::size_t keep, scanner::ImageBuffer* image = nullptr);
  // Where the body ends in the file once skipBody has consumed it: the start of its boundary line,
  // or the end of the file.
  [[nodiscard]] std::int64_t endsAt() const { return lineAt_; }

 protected:
  // Decodes raw[pos...] and then the line end, if `newline`, into `out`; returns where it
  // stopped: raw.size(), or (with `stop` set) just after a group that ends the decoding.
  virtual std::size_t decodeRaw(std::string_view raw, std::size_t pos, bool newline,
                                scanner::ImageBuffer& out, bool& stop) = 0;
  // Whether line ends mean nothing to the decoding, so that many lines may come as one run.
  virtual bool takesRuns() const { return false; }
  // Takes in at once what of a run's first bytes it can tell holds no "-" (and so no boundary
  // line); returns how many, for decodeRaw to go on from there. None, unless a count says so.
  virtual std::size_t countAhead(std::string_view) { return 0; }
  // The body has no further line: complaints about what was cut short.
  virtual void endOfInput() {}
  // `nextByte` for the decoding subclasses.
  bool pullByte(unsigned char& byte);
  // Back to the state of a reader just made for a body with `sentinel` and no enclosing boundary;
  // the strings keep their room.
  void restartWith(std::string_view sentinel);
  void complain(const std::string& text, bool counted = true);
  Complain complaints() {
    return [this](const std::string& text, bool counted) { complain(text, counted); };
  }
  scanner::LineReader& input() { return in_; }

  std::int64_t rawAt_ = 0;  // where skipBody's raw text for decodeRaw starts in the file

 private:
  // The next line of the body (at most `keep` bytes of it); false at its end.
  bool bodyLine(std::string_view& line, std::size_t keep);
  // Whether lines of the enclosing boundary end the body as well.
  [[nodiscard]] bool stopsAtParent() const { return hasParent_ && !parentSentinel_.empty(); }

  scanner::LineReader& in_;
  DiagnosticsSink* sink_;
  int errors_ = 0;
  bool ended_ = false;
  bool stopped_ = false;  // the boundary line has been met: the body has no further line
  std::string sentinel_;
  std::string parentSentinel_;
  bool hasParent_;
  std::string stopLine_;
  std::int64_t lineAt_ = 0;    // where the line last read starts in the file
  std::string lastComplaint_;  // the sink is a set: a repeat of the last text changes nothing

  // The byte interface: the current raw line and the decoded bytes not yet handed out.
  std::string_view raw_;  // valid until the next fetch
  std::size_t rawPos_ = 0;
  bool rawNewline_ = false;   // the raw line ended with a line feed in the file
  bool rawLeft_ = false;      // decoding stopped inside the raw line
  bool stopPending_ = false;  // a group without bytes answers "none" once
  scanner::ImageBuffer queue_;
  std::size_t queuePos_ = 0;
  int pushedBack_ = -1;
};

// The body skipper: consumes the raw lines of a body; asked to capture them, takes them as they
// are, each with the line feed it had in the file.
class Skipper : public Interface {
 public:
  using Interface::Interface;
  const char* name() const override { return "Sk"; }
  bool nextByte(unsigned char&) override { return false; }
  // The skipper holds no state of its own, so one object can serve body after body.
  void restart(std::string_view sentinel) { restartWith(sentinel); }

 protected:
  std::size_t decodeRaw(std::string_view raw, std::size_t pos, bool newline,
                        scanner::ImageBuffer& out, bool& stop) override;
};

class Base64 : public Interface {
 public:
  // A place in the file where decoding can start with a fresh group, and how many bytes the body
  // gives before it.
  struct Mark {
    std::int64_t file = 0;
    std::uint64_t image = 0;
  };
  // What counting a body leaves: how many bytes it decodes to, the first of them (decoded on the
  // way: at least four, unless the body gives fewer), and places to decode any other part from:
  // the first is the body's start, then one about every `markEvery` bytes.
  struct Count {
    std::uint64_t size = 0;
    std::string head;
    std::vector<Mark> marks;
    std::uint64_t markEvery = 16 * 1024;
  };

  using Interface::Interface;
  const char* name() const override { return "64"; }
  bool nextByte(unsigned char& byte) override { return pullByte(byte); }

  // From here on skipBody counts instead of decoding (its image stays empty), with the same
  // complaints, and fills `count` in when the body ends.
  void countInto(Count& count);
  // Decodes the body that `in` holds from `from` (a mark of its count) up to `end` (where the
  // body ends in the file) into `out`. Complaints are dropped (counting made them); `in` is left
  // anywhere.
  static void decodeFrom(scanner::LineReader& in, const Mark& from, std::int64_t end,
                         scanner::ImageBuffer& out);

  // The same byte rules over one text (an encoded word); complaints are dropped.
  [[nodiscard]] static std::string decode(std::string_view text);

 protected:
  std::size_t decodeRaw(std::string_view raw, std::size_t pos, bool newline,
                        scanner::ImageBuffer& out, bool& stop) override;
  bool takesRuns() const override { return true; }
  std::size_t countAhead(std::string_view raw) override;
  void endOfInput() override;

 private:
  // Counts [p, e) of a raw text starting at `base` on from where the count stands, noting a mark
  // at each pause; returns where countRun stopped for good (`blocksOnly` as countRun's).
  const unsigned char* countOn(const unsigned char* base, const unsigned char* p,
                               const unsigned char* e, bool& stop, bool blocksOnly);

  Base64Group group_;
  Count* count_ = nullptr;
  std::uint64_t nextMark_ = 0;
};

// Also used for the Q encoding of encoded words (where "_" stands for a blank).
class QuotedPrintable : public Interface {
 public:
  QuotedPrintable(scanner::LineReader& in, DiagnosticsSink* sink, std::string sentinel,
                  std::string parentSentinel = {}, bool hasParent = false,
                  bool encodedWord = false);
  const char* name() const override { return "QP"; }
  bool nextByte(unsigned char& byte) override { return pullByte(byte); }

  // The same byte rules over one text; `encodedWord` turns "_" into a blank. Complaints are
  // dropped.
  [[nodiscard]] static std::string decode(std::string_view text, bool encodedWord = true);

 protected:
  std::size_t decodeRaw(std::string_view raw, std::size_t pos, bool newline,
                        scanner::ImageBuffer& out, bool& stop) override;
  void endOfInput() override;

 private:
  bool encodedWord_;
  QuotedPrintableState state_;
};

}  // namespace Decoder::MIME
