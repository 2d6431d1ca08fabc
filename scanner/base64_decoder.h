// The base64 transfer decoder, with the byte rules the program has always had: "=" is read as
// the value 0 and "{" as 52, bytes up to 32 are skipped, anything else outside the alphabet is
// complained about and dropped, and a group of four that yields no byte ends the decoding.
#pragma once

#include <string>
#include <string_view>

#include "scanner/mime_decoder.h"

namespace Decoder::MIME {

// Four significant characters being collected.
struct Base64Group {
  unsigned char value[4] = {};
  bool pad[4] = {};
  int count = 0;
};

class Base64 : public Interface {
 public:
  Base64(scanner::LineReader& in, DiagnosticsSink* sink, std::string sentinel,
         std::string parentSentinel = {}, bool hasParent = false);
  const char* name() const override { return "64"; }
  bool nextByte(unsigned char& byte) override;
  bool feedLine(std::string_view raw, bool newline, scanner::ImageBuffer& out) override;
  void endOfInput() override;
  bool takesRuns() const override { return true; }

  // The same byte rules over one text (an encoded word); complaints are dropped.
  [[nodiscard]] static std::string decode(std::string_view text);

 private:
  // Decodes raw[pos...] into `out` (room for (size - pos) / 4 * 3 + 7 bytes); returns where it
  // stopped: the line's end, or just after a group that yielded no byte (`stop` set).
  std::size_t decodeFrom(std::string_view raw, std::size_t pos, char*& out, bool& stop);

  Base64Group group_;
  bool decodingEnded_ = false;  // a group without bytes has ended the decoding
  std::string queue_;
  std::size_t queuePos_ = 0;
  bool stopPending_ = false;  // such a group is next in line: the next byte asked for is "none"
};

}  // namespace Decoder::MIME
