// The base64 transfer decoder, with the byte rules the program has always had: "=" is read as
// the value 0 and "{" as 52, bytes up to 32 are skipped, anything else outside the alphabet is
// complained about and dropped.
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

  // Appends the rest of the body's decoded bytes to `out`, ending where nextByte would first
  // answer false. Decodes whole runs of each line at a time.
  void decodeBody(std::string& out);

  // The same byte rules over one text (an encoded word); complaints are dropped.
  [[nodiscard]] static std::string decode(std::string_view text);

 private:
  // Decodes from the current line until it is used up (true) or a group yields no byte.
  bool decodeRest(std::string& out);
  void finish();

  Base64Group group_;
  std::string queue_;
  std::size_t queuePos_ = 0;
  bool stopPending_ = false;  // a group without bytes: the next byte asked for is "none"
};

}  // namespace Decoder::MIME
