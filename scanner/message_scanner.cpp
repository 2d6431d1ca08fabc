// The MIME structure walker.
#include "scanner/message_scanner.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "kvs/ascii.h"
#include "scanner/base64_decoder.h"
#include "scanner/quoted_printable_decoder.h"
#include "scanner/zip_directory.h"

namespace {

// Of a boundary line the skipper keeps this much (at least), enough for every delimiter test
// the walker makes on it, so a body line of any length is never held whole.
constexpr std::size_t kStopLineKeep = 4096;
// A larger first reservation is not made (a 32-bit process has little address space to spare);
// the buffer grows beyond it when it must.
constexpr std::uint64_t kImageReserveLimit = 256u << 20;

bool endsWithIgnoreCase(std::string_view text, std::string_view suffix) {
  return text.size() >= suffix.size() &&
         kvs::equalsIgnoreCase(text.substr(text.size() - suffix.size()), suffix);
}

}  // namespace

MessageScanner::MessageScanner(std::size_t blockSize) : reader_(blockSize) {}

MessageScanner::~MessageScanner() = default;

void MessageScanner::addDiagnostic(const std::string& text) {
  diagnostics_.insert(text);
}

bool MessageScanner::open(const std::string& path) {
  results_.clear();
  diagnostics_.clear();
  recipients_.clear();
  sender_.clear();
  message_.clear();
  part_.clear();
  skipping_ = false;
  skipper_ = nullptr;
  decoder_ = nullptr;
  capturing_ = false;
  image_ = scanner::ImageBuffer();
  pending_ = false;
  lookAhead_.clear();
  lineCount_ = 0;
  bodyStart_ = 0;
  block_ = Block::TopLevel;
  while (!stack_.empty()) {
    diagnostics_.insert("Orphaned part boundary on stack :" + stack_.back());
    stack_.pop_back();
  }
  current_.clear();
  longestBoundary_ = 0;

  reader_.close();
  if (!reader_.open(path)) {
    diagnostics_.insert("Can't find/open the file: " + path);
    return false;
  }
  path_ = path;
  isMbox_ = endsWithIgnoreCase(path, ".mbox");
  messageCount_ = isMbox_ ? 0 : 1;
  emptyBody_ = true;
  readEnvelope();
  return true;
}

void MessageScanner::readEnvelope() {
  std::string_view line;
  if (!reader_.next(line)) return;
  const bool envelope = line.size() >= 3 && kvs::isUpper(static_cast<unsigned char>(line[0])) &&
                        line[1] == ' ' &&
                        (kvs::isAlpha(static_cast<unsigned char>(line[2])) || line[2] == '<');
  if (!envelope) {
    reader_.seek(0);
    return;
  }
  do {
    if (line.empty()) return;  // the blank line after the envelope is consumed
    if ((line[0] == 'P' || line[0] == 'R') && line.size() > 4) {
      const std::size_t lt = line.find('<', 4);
      const std::size_t gt = lt == std::string_view::npos ? lt : line.find('>', lt + 1);
      if (gt != std::string_view::npos) {
        std::string address = kvs::toLower(line.substr(lt + 1, gt - lt - 1));
        if (line[0] == 'P') {
          sender_ = std::move(address);
        } else {
          recipients_.insert(std::move(address));
        }
      }
    }
  } while (reader_.next(line));
}

void MessageScanner::close() {
  reader_.close();
  messageCount_ = 0;
}

bool MessageScanner::readLine(std::string& line) {
  while (nextWalkLine(line)) walkLine(line);
  return false;
}

bool MessageScanner::nextWalkLine(std::string& line) {
  if (!pending_ && skipping_) finishBody();
  if (pending_) {
    line.swap(lookAhead_);
    pending_ = false;
    return true;
  }
  std::string_view view;
  if (!reader_.next(view)) return false;
  line.assign(view);
  return true;
}

void MessageScanner::startBody() {
  bodyStart_ = reader_.tell();
  skipper_ = kvs::ptr<Decoder::MIME::Skipper>(new Decoder::MIME::Skipper(
      reader_, this, current_.empty() ? std::string() : "--" + current_));
  skipping_ = true;
  if (part_.zip) startZipCapture();
}

void MessageScanner::finishBody() {
  // The body of the current entity is consumed; its boundary line, if any, becomes the line.
  skipper_->skipBody(emptyBody_, std::max(kStopLineKeep, longestBoundary_ + 4), decoder_.get(),
                     capturing_ ? &image_ : nullptr);
  skipping_ = false;
  if (capturing_ && !emptyBody_) inspectZip();
  capturing_ = false;
  decoder_ = nullptr;
  image_ = scanner::ImageBuffer();
  part_.clear();
  std::string& line = lookAhead_;
  line = skipper_->stopLine();
  const bool atEnd = skipper_->ended();
  skipper_ = nullptr;
  const bool newPart = !atEnd && !kvs::startsWithIgnoreCase(line, "--" + current_ + "--");
  if (!newPart && !stack_.empty()) {
    current_ = std::move(stack_.back());
    stack_.pop_back();
  }
  pending_ = true;
}

void MessageScanner::startZipCapture() {
  // A ZIP part is decoded while the skipper passes over it, into one buffer sized from what is
  // left of the file; the directory is read when the part ends, if the message has body text.
  const std::string sentinel = current_.empty() ? std::string() : "--" + current_;
  std::error_code error;
  const std::uintmax_t fileSize = std::filesystem::file_size(path_, error);
  const std::uint64_t left =
      error || fileSize < static_cast<std::uintmax_t>(bodyStart_) ? 0 : fileSize - bodyStart_;
  std::uint64_t estimate = left + 1;
  if (kvs::startsWithIgnoreCase(part_.encoding, kBase64)) {
    decoder_ =
        kvs::ptr<Decoder::MIME::Interface>(new Decoder::MIME::Base64(reader_, this, sentinel));
    estimate = left / 4 * 3 + 3;
  } else if (kvs::startsWithIgnoreCase(part_.encoding, kQuotedPrintable)) {
    decoder_ = kvs::ptr<Decoder::MIME::Interface>(
        new Decoder::MIME::QuotedPrintable(reader_, this, sentinel));
  }
  image_.clear();
  image_.reserve(static_cast<std::size_t>(std::min<std::uint64_t>(estimate, kImageReserveLimit)));
  capturing_ = true;
}

void MessageScanner::inspectZip() {
  const scanner::ZipDirectory zip = scanner::readZipDirectory(image_.view());
  if (zip.encrypted) results_.insert("zip.pw");
  if (zip.corrupted) results_.insert("zip.corrupted");
  for (const std::string& ext : zip.extensions) results_.insert("zip/" + ext);
}

void MessageScanner::pushBoundary(const std::string& boundary) {
  stack_.push_back(std::move(current_));
  current_ = boundary;
  longestBoundary_ = std::max(longestBoundary_, boundary.size());
}

bool MessageScanner::opensPart(std::string_view line) const {
  const std::size_t n = current_.size();
  if (n == 0 || line.size() < n + 2 || line[0] != '-' || line[1] != '-' ||
      !kvs::startsWithIgnoreCase(line.substr(2), current_))
    return false;
  // The closing test looks at the two bytes at the boundary's length from the line's start,
  // not after the boundary: so it has always been, and lines the skipper did not stop on are
  // judged by it alone.
  return line.compare(n, 2, "--") != 0;
}

void MessageScanner::walkLine(std::string& line) {
  ++lineCount_;
  line.resize(kvs::trimRight(line).size());
  const bool blank = line.empty();
  if (block_ != Block::None) {
    if (blank) {
      endHeaderBlock();
      return;
    }
    unfold(line);
    if (block_ != Block::TopLevel && opensPart(line)) {
      block_ = Block::Part;
      part_.clear();
      return;
    }
    headerLine(line);
    return;
  }
  if (opensPart(line)) {
    block_ = Block::Part;
    part_.clear();
    return;
  }
  if (!blank) emptyBody_ = false;
}

void MessageScanner::unfold(std::string& line) {
  std::string_view next;
  while (reader_.next(next)) {
    const std::string_view trimmed = kvs::trimRight(next);
    // A line of whitespace only is no continuation: it ends the header block.
    if (trimmed.empty() || !kvs::isSpace(static_cast<unsigned char>(next[0]))) {
      lookAhead_.assign(next);
      pending_ = true;
      return;
    }
    std::size_t n = 0;
    while (kvs::isSpace(static_cast<unsigned char>(trimmed[n]))) ++n;
    line.append(trimmed.substr(n - 1));  // the last blank of the indent is kept as the joint
  }
}

void MessageScanner::recordExtension(std::string_view name, bool& zip) {
  std::string ext = attachmentExtension(name);
  zip = kvs::startsWithIgnoreCase(ext, kZip);
  results_.insert(std::move(ext));
}

void MessageScanner::headerLine(const std::string& line) {
  std::string value, param;
  if (block_ == Block::Part) {
    if (headerValue(kContentType, line, value)) {
      part_.contentType = value;
      if (paramValue(kBoundary, value, param)) part_.boundary = param;
      if (paramValue(kName, value, param)) recordExtension(param, part_.zip);
    } else if (headerValue(kContentTransferEncoding, line, value)) {
      part_.encoding = value;
    } else if (headerValue(kContentDisposition, line, value)) {
      if (paramValue(kFilename, value, param)) recordExtension(param, part_.zip);
    }
    return;
  }
  // A message's own header: the boundary is searched in the whole line, and the disposition
  // is not looked at.
  if (headerValue(kContentType, line, value)) {
    message_.contentType = value;
    if (messageBoundary(line, param)) message_.boundary = param;
    if (paramValue(kName, value, param)) recordExtension(param, message_.zip);
  } else if (headerValue(kContentTransferEncoding, line, value)) {
    message_.encoding = value;
  }
}

void MessageScanner::endHeaderBlock() {
  const Block ended = block_;
  block_ = Block::None;
  if (ended == Block::Part) {
    if (!part_.boundary.empty()) pushBoundary(part_.boundary);
    if (kvs::startsWithIgnoreCase(part_.contentType, kRfc822)) {
      block_ = Block::Embedded;
      message_.clear();
      part_.clear();
      return;
    }
    startBody();
    return;
  }
  // The end of a message's header behaves like a part's: a multipart message makes its
  // boundary the current one; otherwise the header describes the single body part.
  if (!message_.boundary.empty()) {
    pushBoundary(message_.boundary);
    part_.clear();
  } else {
    part_ = message_;
  }
  message_.clear();
  startBody();
}
