// The quoted-printable transfer decoder, also used for the Q encoding of encoded words (where
// "_" stands for a blank).
#pragma once

#include <string>
#include <string_view>

#include "scanner/mime_decoder.h"

namespace Decoder::MIME {

// Where the decoder stands between two bytes.
struct QuotedPrintableState {
  enum Step : unsigned char { Text, AfterEquals, SoftBreak, Escape } step = Text;
  unsigned char high = 0;  // the first character of an escape
};

class QuotedPrintable : public Interface {
 public:
  QuotedPrintable(scanner::LineReader& in, DiagnosticsSink* sink, std::string sentinel,
                  std::string parentSentinel = {}, bool hasParent = false,
                  bool encodedWord = false);
  const char* name() const override { return "QP"; }
  bool nextByte(unsigned char& byte) override;
  // Each raw line is followed by the line feed it had in the file.
  bool feedLine(std::string_view raw, bool newline, scanner::ImageBuffer& out) override;
  void endOfInput() override;

  // The same byte rules over one text; `encodedWord` turns "_" into a blank. Complaints are
  // dropped.
  [[nodiscard]] static std::string decode(std::string_view text, bool encodedWord = true);

 private:
  // Decodes [p, e) to `out`, which has room for e - p bytes; returns the new end of `out`.
  char* decodeRun(const char* p, const char* e, char* out);

  bool encodedWord_;
  QuotedPrintableState state_;
  std::string queue_;
  std::size_t queuePos_ = 0;
};

}  // namespace Decoder::MIME
