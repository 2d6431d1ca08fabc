// The MIME structure walker over one queued message file: envelope lines, header blocks with
// their unfolding, the boundary stack, the body skipper, attachment names and ZIP parts.
#pragma once

#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "kvs/noncopyable.h"
#include "scanner/line_reader.h"
#include "scanner/mime_decoder.h"
#include "scanner/zip_directory.h"

class MessageScanner : public Decoder::MIME::DiagnosticsSink, private kvs::noncopyable {
 public:
  // Header and parameter names, with their separators; kContent begins each header name.
  static constexpr std::string_view kContent = "content-";
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

  // `countZips`: a base64 ZIP part is counted on the way, and only the bytes its directory reader
  // looks at are decoded afterwards; otherwise the whole part is decoded on the way. Both give
  // the same findings and complaints; counting is the faster where the processor has the
  // vectors for it.
  explicit MessageScanner(std::size_t blockSize = scanner::LineReader::kDefaultBlock,
                          bool countZips = Decoder::MIME::countsFast());
  ~MessageScanner() override;

  // Full reset, open the file, consume the server's envelope lines. False when it cannot be
  // opened.
  bool open(const std::string& path);
  // Walks the whole rest of the file; answers false when the file is exhausted.
  bool readLine(std::string& line);
  void close();

  [[nodiscard]] const std::set<std::string>& results() const { return walk_.results; }
  [[nodiscard]] const std::set<std::string>& diagnostics() const { return walk_.diagnostics; }
  [[nodiscard]] bool emptyBody() const { return walk_.emptyBody; }
  [[nodiscard]] const std::string& sender() const { return walk_.sender; }
  [[nodiscard]] const std::set<std::string>& recipients() const { return walk_.recipients; }
  [[nodiscard]] bool isMbox() const { return walk_.isMbox; }

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
    // Empties it, keeping the strings' room for the next entity.
    void clear();
  };

  // Everything the walk of one message knows; `open` starts it afresh (`restart`), keeping
  // only the room its strings and the stack had, so a message allocates little of its own.
  struct Walk {
    std::set<std::string> results;
    std::set<std::string> diagnostics;
    std::set<std::string> recipients;
    std::string sender;
    bool emptyBody = true;
    bool isMbox = false;
    int messageCount = 0;  // 0 for an mbox file or a closed scanner, 1 otherwise

    Block block = Block::TopLevel;
    Entity message;       // the top-level or embedded message's header
    Entity part;          // the entity whose body comes next
    std::string current;  // the current boundary; empty for none
    std::vector<std::string> stack;
    std::size_t longestBoundary = 0;

    // Everything back to its start but the diagnostics.
    void restart();
  };

  // Each of these takes the line to walk, or leaves in `next` the line that follows it; false
  // when the file has no further line.
  bool readNext(std::string& next);
  bool walkLine(std::string& line, std::string& next);
  bool unfold(std::string& line, std::string& next);
  bool endHeaderBlock(std::string& next);
  bool skipBody(std::string& next);

  void headerLine(const std::string& line);
  void inspectCountedZip(const Decoder::MIME::Base64::Count& count, std::int64_t end);
  void reportZip(const scanner::ZipDirectory& zip);
  [[nodiscard]] bool opensPart(std::string_view line) const;
  [[nodiscard]] bool closesPart(std::string_view line) const;
  void recordExtension(std::string_view name, bool& zip);
  void pushBoundary(const std::string& boundary);
  void readEnvelope();

  scanner::LineReader reader_;
  bool countZips_;
  Walk walk_;
  // Working strings, kept from line to line and message to message for their room.
  std::string line_, next_, value_, param_, sentinel_;
  // The reader of every body that is not a ZIP part: most bodies, so it is made once.
  Decoder::MIME::Skipper skipper_;
};
