// The MIME structure walker over one queued message file: envelope lines, header blocks with
// their unfolding, the boundary stack, the body skipper, attachment names and ZIP parts.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "kvs/ptr.h"
#include "scanner/image_buffer.h"
#include "scanner/line_reader.h"
#include "scanner/mime_decoder.h"

class MessageScanner : public Decoder::MIME::DiagnosticsSink, private kvs::noncopyable {
 public:
  // Header and parameter names, with their separators.
  static constexpr std::string_view kContentType = "content-type:";
  static constexpr std::string_view kContentDisposition = "content-disposition:";
  static constexpr std::string_view kContentTransferEncoding = "content-transfer-encoding:";
  static constexpr std::string_view kFrom = "from:";
  static constexpr std::string_view kSubject = "subject:";
  static constexpr std::string_view kBoundary = "boundary=";
  static constexpr std::string_view kName = "name=";
  static constexpr std::string_view kFilename = "filename=";
  static constexpr std::string_view kCharset = "charset=";
  static constexpr std::string_view kMultipart = "multipart/";
  static constexpr std::string_view kRfc822 = "message/rfc822";
  static constexpr std::string_view kBase64 = "base64";
  static constexpr std::string_view kQuotedPrintable = "quoted-printable";
  static constexpr std::string_view kZip = "zip";

  explicit MessageScanner(std::size_t blockSize = scanner::LineReader::kDefaultBlock);
  ~MessageScanner() override;

  // Full reset, open the file, consume the server's envelope lines. False when it cannot be
  // opened.
  bool open(const std::string& path);
  // Walks the whole rest of the file; answers false when the file is exhausted.
  bool readLine(std::string& line);
  void close();

  [[nodiscard]] const std::set<std::string>& results() const { return results_; }
  [[nodiscard]] const std::set<std::string>& diagnostics() const { return diagnostics_; }
  [[nodiscard]] bool emptyBody() const { return emptyBody_; }
  [[nodiscard]] const std::string& sender() const { return sender_; }
  [[nodiscard]] const std::set<std::string>& recipients() const { return recipients_; }
  [[nodiscard]] bool isMbox() const { return isMbox_; }

  void addDiagnostic(const std::string& text) override;

  // The text layer: no state of their own.
  static bool headerValue(std::string_view name, std::string_view line, std::string& value);
  static bool paramValue(std::string_view param, std::string_view fieldValue, std::string& out);
  [[nodiscard]] static std::string attachmentExtension(std::string_view name);
  // The boundary of a top-level or embedded message's Content-Type line, searched in the whole
  // line; false when the line names none.
  static bool messageBoundary(std::string_view line, std::string& boundary);

 private:
  enum class Block { None, TopLevel, Part, Embedded };

  // What the header block of one entity said.
  struct Entity {
    std::string contentType;
    std::string encoding;
    std::string boundary;
    bool zip = false;

    void clear() {
      contentType.clear();
      encoding.clear();
      boundary.clear();
      zip = false;
    }
  };

  bool nextWalkLine(std::string& line);
  void walkLine(std::string& line);
  void unfold(std::string& line);
  void headerLine(const std::string& line);
  void endHeaderBlock();
  void startBody();
  void finishBody();
  void startZipCapture();
  void inspectZip();
  [[nodiscard]] bool opensPart(std::string_view line) const;
  void recordExtension(std::string_view name, bool& zip);
  void pushBoundary(const std::string& boundary);
  void readEnvelope();

  scanner::LineReader reader_;
  kvs::ptr<Decoder::MIME::Skipper> skipper_;
  kvs::ptr<Decoder::MIME::Interface> decoder_;  // the transfer decoder of a ZIP part, if any
  scanner::ImageBuffer image_;                  // that part's decoded bytes
  bool capturing_ = false;
  std::string path_;
  std::set<std::string> results_;
  std::set<std::string> diagnostics_;
  std::set<std::string> recipients_;
  std::string sender_;
  bool emptyBody_ = true;
  bool isMbox_ = false;
  int messageCount_ = 0;  // 0 for an mbox file or a closed scanner, 1 otherwise
  std::uint64_t lineCount_ = 0;

  Block block_ = Block::None;
  Entity message_;       // the top-level or embedded message's header
  Entity part_;          // the entity whose body comes next
  std::string current_;  // the current boundary; empty for none
  std::vector<std::string> stack_;
  std::size_t longestBoundary_ = 0;
  bool skipping_ = false;
  std::int64_t bodyStart_ = 0;
  bool pending_ = false;
  std::string lookAhead_;
};
