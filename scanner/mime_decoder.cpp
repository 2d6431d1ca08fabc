// The body readers of the scanner.
#include "scanner/mime_decoder.h"

#include "kvs/ascii.h"

namespace Decoder::MIME {

Interface::Interface(scanner::LineReader& in, DiagnosticsSink* sink, std::string sentinel,
                     std::string parentSentinel, bool hasParent)
    : in_(in),
      sink_(sink),
      sentinel_(std::move(sentinel)),
      parentSentinel_(std::move(parentSentinel)),
      hasParent_(hasParent) {}

Interface::~Interface() = default;

void Interface::complain(const std::string& text, bool counted) {
  if (counted) ++errors_;
  if (sink_ == nullptr || text == lastComplaint_) return;
  lastComplaint_ = text;
  sink_->addDiagnostic(text);
}

bool Interface::isSentinel(std::string_view line) const {
  // A body without boundary has no boundary line: it runs to the end of the file.
  // The first byte is "-" in every sentinel: most lines are settled by it.
  return !sentinel_.empty() && !line.empty() && line[0] == sentinel_[0] &&
         kvs::startsWithIgnoreCase(line, sentinel_);
}

bool Interface::isParentSentinel(std::string_view line) const {
  return hasParent_ && !parentSentinel_.empty() && !line.empty() && line[0] == parentSentinel_[0] &&
         kvs::startsWithIgnoreCase(line, parentSentinel_);
}

bool Interface::fetchLine() {
  if (ended_ || stopped_) return false;
  std::string_view line;
  if (!in_.next(line)) {
    ended_ = true;
    if (!sentinel_.empty()) complain("Unterminated MIME sentinel at end of message");
    return false;
  }
  if (isSentinel(line)) {
    stopLine_.assign(line);
    stopped_ = true;
    return false;
  }
  if (isParentSentinel(line)) {
    complain("Unterminated MIME sentinel, found parent sentinel");
    stopLine_.assign(line);
    stopped_ = true;
    return false;
  }
  raw_ = line;
  rawPos_ = 0;
  rawNewline_ = in_.hadNewline();
  return true;
}

bool Interface::feedLine(std::string_view raw, bool newline, scanner::ImageBuffer& out) {
  out.append(raw);
  if (newline) out.append("\n");
  return true;
}

void Interface::decodeBody(scanner::ImageBuffer& out) {
  while (fetchLine()) {
    if (!feedLine(raw_, rawNewline_, out)) return;
    rawPos_ = raw_.size();
  }
  endOfInput();
}

bool Interface::readLine(std::string& line) {
  line.clear();
  unsigned char c;
  bool any = false;
  while (nextByte(c)) {
    any = true;
    if (c == '\r' || c == '\n') {
      unsigned char partner;
      if (nextByte(partner)) {
        if (partner != (c == '\r' ? '\n' : '\r')) pushedBack_ = partner;
      }
      return true;
    }
    line.push_back(static_cast<char>(c));
  }
  return any;
}

Skipper::Skipper(scanner::LineReader& in, DiagnosticsSink* sink, std::string sentinel,
                 std::string parentSentinel, bool hasParent)
    : Interface(in, sink, std::move(sentinel), std::move(parentSentinel), hasParent) {}

void Skipper::skipBody(bool& emptyBody, std::size_t keep, Interface* decoder,
                       scanner::ImageBuffer* image) {
  if (ended_ || stopped_) return;
  if (image != nullptr) {
    captureBody(emptyBody, decoder, *image);
    return;
  }
  std::string_view head;
  bool hasBytes = false;
  const char first = sentinel_.empty() ? 0 : sentinel_[0];
  for (;;) {
    // Once the message has body text, a line matters only if it could be a boundary line, and
    // every boundary line begins with "-": whole runs of other lines are passed over at once.
    if (!emptyBody) {
      const std::string_view run = in_.linesAhead('-');
      if (!run.empty()) {
        in_.consume(run.size());
        continue;
      }
    }
    if (!in_.skip(head, keep, hasBytes)) {
      ended_ = true;
      stopLine_.clear();
      if (!sentinel_.empty()) complain("Unterminated MIME sentinel at end of message");
      return;
    }
    // Most body lines fail on their first byte; only those starting like a boundary are compared.
    if (!head.empty() && head[0] == first && isSentinel(head)) {
      stopLine_.assign(head);
      stopped_ = true;
      return;
    }
    if (isParentSentinel(head)) {
      complain("Unterminated MIME sentinel, found parent sentinel");
      stopLine_.assign(head);
      stopped_ = true;
      return;
    }
    if (hasBytes) emptyBody = false;
  }
}

void Skipper::captureBody(bool& emptyBody, Interface* decoder, scanner::ImageBuffer& image) {
  bool decoding = true;
  const bool runs = decoder != nullptr && decoder->takesRuns();
  for (;;) {
    // Once the message has body text, whole runs of lines that cannot be boundary lines (they
    // do not begin with "-") go to a decoder that ignores line ends, without a stop per line.
    if (runs && decoding && !emptyBody) {
      const std::string_view run = in_.linesAhead('-');
      if (!run.empty()) {
        decoding = decoder->feedLine(run, false, image);
        in_.consume(run.size());
        continue;
      }
    }
    if (!fetchLine()) break;
    if (!raw_.empty()) emptyBody = false;
    if (decoding) {
      decoding = decoder != nullptr ? decoder->feedLine(raw_, rawNewline_, image)
                                    : Interface::feedLine(raw_, rawNewline_, image);
    }
  }
  if (decoding && decoder != nullptr) decoder->endOfInput();
}

}  // namespace Decoder::MIME
