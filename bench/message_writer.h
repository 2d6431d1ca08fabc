// Whole queued message files of the kinds a mail server sees, each with the answer the filter
// must give for it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "bench/corpus_writer.h"

namespace bench {

// Writes queued messages: the server's envelope lines, an empty line, then the message.
class MessageWriter {
 public:
  explicit MessageWriter(Random& random) : random_(random) {}

  struct Message {
    std::string bytes;
    Expectation expected;
    std::uint64_t largestZip = 0;  // size of the largest decoded ZIP attachment
  };

  enum class Kind {
    kPlain,        // one text part, often quoted-printable
    kAlternative,  // text and HTML
    kAttachments,  // text and HTML plus base64 attachments
    kZip,          // text plus a base64 ZIP with many entries
    kSinglePart,   // the whole message is one base64 attachment (scanners, fax gateways)
    kForward,      // a forwarded message/rfc822 carrying an attachment of its own
    kRelated,      // HTML with inline images
    kTextFiles,    // small quoted-printable or as-is text attachments
    kEmpty,        // headers only, or only empty body lines
  };

  // Size ranges, in bytes, of the text bodies and of each attachment's decoded content.
  struct Sizes {
    std::uint64_t textLow = 600, textHigh = 20000;
    std::uint64_t attachmentLow = 10000, attachmentHigh = 3000000;
  };

  Message write(Kind kind, const Sizes& sizes);
  // A message of about `size` bytes in all, of a kind drawn as they come in everyday mail.
  Message writeSmall(std::uint64_t size);
  // A message carrying one base64 ZIP of about `zipSize` bytes with `entries` entries.
  Message writeZipCarrier(std::uint64_t zipSize, unsigned entries, bool someEncrypted);
  // A mailing-list digest: one plain text body of about `size` bytes.
  Message writeDigest(std::uint64_t size);

 private:
  // A message under construction: its top-level content header lines and its body.
  struct Draft {
    Message message;
    std::string contentHeaders;
    std::string body;
  };

  Message finish(Draft draft);
  std::string envelope(const std::string& from, const std::vector<std::string>& to);
  std::string address();
  std::string subject();
  std::string boundary();
  std::string text(std::size_t bytes);
  std::string html(std::size_t bytes);
  std::string multipart(const std::string& boundary, const std::vector<std::string>& parts);
  std::string multipartHeader(std::string_view subtype, const std::string& boundary);

  std::string textPart(std::size_t bytes);
  std::string htmlPart(std::size_t bytes);
  std::string alternativePart(const Sizes& sizes);
  std::string attachmentName(std::string_view extension);
  std::string attachmentPart(std::string_view type, const std::string& name,
                             std::string_view content, Expectation& expected);
  std::string zipPart(std::uint64_t size, unsigned entries, bool someEncrypted, Message& message);
  std::vector<ZipEntry> zipEntries(std::uint64_t size, unsigned count, bool someEncrypted);
  std::string embeddedMessage(const Sizes& sizes, Expectation& expected);

  Random& random_;
  unsigned counter_ = 0;
  bool compactHeaders_ = false;
};

}  // namespace bench
