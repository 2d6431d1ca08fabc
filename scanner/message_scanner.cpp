// The MIME structure walker.
#include "scanner/message_scanner.h"

#include <algorithm>
#include <iterator>
#include <optional>

#include "kvs/ascii.h"
#include "kvs/ptr.h"
#include "scanner/mime_decoder.h"

namespace {

// Of a boundary line the skipper keeps this much (at least), enough for every delimiter test
// the walker makes on it, so a body line of any length is never held whole.
constexpr std::size_t kStopLineKeep = 4096;
// A larger first reservation is not made (a 32-bit process has little address space to spare);
// the buffer grows beyond it when it must.
constexpr std::uint64_t kImageReserveLimit = 256u << 20;

static_assert(MessageScanner::kContentType.starts_with(MessageScanner::kContent) &&
              MessageScanner::kContentDisposition.starts_with(MessageScanner::kContent) &&
              MessageScanner::kContentTransferEncoding.starts_with(MessageScanner::kContent));

}  // namespace

MessageScanner::MessageScanner(std::size_t blockSize, bool countZips)
    : reader_(blockSize), countZips_(countZips), skipper_(reader_, this, {}) {}

MessageScanner::~MessageScanner() = default;

void MessageScanner::addDiagnostic(const std::string& text) {
  walk_.diagnostics.insert(text);
}

void MessageScanner::Entity::clear() {
  contentType.clear();
  encoding.clear();
  boundary.clear();
  zip = false;
}

void MessageScanner::Walk::restart() {
  results.clear();
  recipients.clear();
  sender.clear();
  emptyBody = true;
  isMbox = false;
  messageCount = 0;
  block = Block::TopLevel;
  message.clear();
  part.clear();
  current.clear();
  stack.clear();
  longestBoundary = 0;
}

bool MessageScanner::open(const std::string& path) {
  walk_.diagnostics.clear();
  for (auto it = walk_.stack.rbegin(); it != walk_.stack.rend(); ++it) {
    walk_.diagnostics.insert("Orphaned part boundary on stack :" + *it);
  }
  walk_.restart();
  reader_.close();
  if (!reader_.open(path)) {
    walk_.diagnostics.insert("Can't find/open the file: " + path);
    return false;
  }
  constexpr std::string_view kMbox = ".mbox";
  walk_.isMbox =
      path.size() >= kMbox.size() &&
      kvs::equalsIgnoreCase(std::string_view(path).substr(path.size() - kMbox.size()), kMbox);
  walk_.messageCount = walk_.isMbox ? 0 : 1;
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
        const std::string_view address = line.substr(lt + 1, gt - lt - 1);
        if (line[0] == 'P') {
          walk_.sender.assign(address);
          kvs::toLowerInPlace(walk_.sender);
        } else {
          walk_.recipients.insert(kvs::toLower(address));
        }
      }
    }
  } while (reader_.next(line));
}

void MessageScanner::close() {
  reader_.close();
  walk_.messageCount = 0;
}

bool MessageScanner::readLine(std::string& line) {
  // The walk runs in the scanner's own two strings, whose room stays from message to message;
  // the caller's string is lent back as it was.
  line.swap(line_);
  for (bool more = readNext(line); more; line.swap(next_)) more = walkLine(line, next_);
  line.swap(line_);
  return false;
}

bool MessageScanner::readNext(std::string& next) {
  std::string_view view;
  if (!reader_.next(view)) return false;
  next.assign(view);
  return true;
}

bool MessageScanner::walkLine(std::string& line, std::string& next) {
  line.resize(kvs::trimRight(line).size());
  const bool inHeader = walk_.block != Block::None;
  if (inHeader && line.empty()) return endHeaderBlock(next);
  const bool more = inHeader ? unfold(line, next) : readNext(next);
  if (walk_.block != Block::TopLevel && opensPart(line)) {
    walk_.block = Block::Part;
    walk_.part.clear();
  } else if (inHeader) {
    headerLine(line);
  } else if (!line.empty()) {
    walk_.emptyBody = false;
  }
  return more;
}

bool MessageScanner::unfold(std::string& line, std::string& next) {
  std::string_view view;
  while (reader_.next(view)) {
    const std::string_view trimmed = kvs::trimRight(view);
    // A line of whitespace only is no continuation: it ends the header block.
    if (trimmed.empty() || !kvs::isSpace(static_cast<unsigned char>(view[0]))) {
      next.assign(view);
      return true;
    }
    std::size_t n = 0;
    while (kvs::isSpace(static_cast<unsigned char>(trimmed[n]))) ++n;
    line.append(trimmed.substr(n - 1));  // the last blank of the indent is kept as the joint
  }
  return false;
}

bool MessageScanner::endHeaderBlock(std::string& next) {
  const Block ended = walk_.block;
  walk_.block = Block::None;
  if (ended == Block::Part) {
    if (!walk_.part.boundary.empty()) pushBoundary(walk_.part.boundary);
    if (kvs::startsWithIgnoreCase(walk_.part.contentType, kRfc822)) {
      walk_.block = Block::Embedded;
      walk_.message.clear();
      walk_.part.clear();
      return readNext(next);
    }
  } else if (!walk_.message.boundary.empty()) {
    // The end of a message's header behaves like a part's: a multipart message makes its
    // boundary the current one; otherwise the header describes the single body part.
    pushBoundary(walk_.message.boundary);
    walk_.part.clear();
  } else {
    std::swap(walk_.part, walk_.message);
  }
  walk_.message.clear();
  return skipBody(next);
}

bool MessageScanner::skipBody(std::string& next) {
  // The whole body is consumed at once; its boundary line is the next line. A ZIP part is
  // decoded on the way, into one buffer sized from what is left of the file, or (base64) only
  // counted; its directory is read when the part ends, if the message has body text.
  sentinel_.clear();
  if (!walk_.current.empty()) sentinel_.append("--").append(walk_.current);
  const Entity& part = walk_.part;
  const bool base64 = part.zip && kvs::startsWithIgnoreCase(part.encoding, kBase64);
  // Where the rest of the file is already in the reader's buffer the part is small: counting it
  // would only add a pass.
  const bool counting = base64 && countZips_ && !reader_.holdsTheRest();
  std::optional<Decoder::MIME::Base64::Count> count;
  kvs::ptr<Decoder::MIME::Interface> decoder;
  if (base64) {
    auto* base64Decoder = new Decoder::MIME::Base64(reader_, this, sentinel_);
    decoder = kvs::ptr<Decoder::MIME::Interface>(base64Decoder);
    if (counting) base64Decoder->countInto(count.emplace());
  } else if (part.zip && kvs::startsWithIgnoreCase(part.encoding, kQuotedPrintable)) {
    decoder = kvs::ptr<Decoder::MIME::Interface>(
        new Decoder::MIME::QuotedPrintable(reader_, this, sentinel_));
  } else {
    skipper_.restart(sentinel_);
  }
  Decoder::MIME::Interface* const body = decoder ? decoder.get() : &skipper_;
  scanner::ImageBuffer image;
  if (part.zip && !counting) {
    // The size comes from the open file, and costs nothing when its end is already read.
    const std::int64_t bodyStart = reader_.tell();
    const std::int64_t fileSize = reader_.size();
    const std::uint64_t left =
        fileSize < bodyStart ? 0 : static_cast<std::uint64_t>(fileSize - bodyStart);
    const std::uint64_t estimate = base64 ? left / 4 * 3 + 3 : left + 1;
    image.reserve(static_cast<std::size_t>(std::min<std::uint64_t>(estimate, kImageReserveLimit)));
  }
  body->skipBody(walk_.emptyBody, std::max(kStopLineKeep, walk_.longestBoundary + 4),
                 part.zip ? &image : nullptr);
  if (part.zip && !walk_.emptyBody) {
    if (counting) {
      inspectCountedZip(*count, body->endsAt());
    } else {
      reportZip(scanner::readZipDirectory(image.view()));
    }
  }
  walk_.part.clear();
  next = body->stopLine();
  // At the end of the file, or at a closing boundary line, no new part follows: the enclosing
  // boundary comes back.
  const bool newPart = !body->ended() && !closesPart(next);
  if (!newPart && !walk_.stack.empty()) {
    walk_.current = std::move(walk_.stack.back());
    walk_.stack.pop_back();
  }
  return !body->ended();
}

void MessageScanner::inspectCountedZip(const Decoder::MIME::Base64::Count& count,
                                       std::int64_t end) {
  // The part is decoded again, from marks its count left, only while the directory reader asks
  // for bytes before its window: first from the last mark before the end record (a directory
  // is mostly small, and the line reader mostly still holds those bytes, so nothing is read
  // again), then from further back, each window at least twice as wide as the last. The first
  // mark, the body's start, gives the whole image.
  using Decoder::MIME::Base64;
  const std::int64_t resume = reader_.tell();
  const auto& marks = count.marks;
  scanner::ImageBuffer rest;
  scanner::ImageWindow window{count.size, count.head, count.size, {}};
  std::uint64_t needed = 0;
  std::optional<scanner::ZipDirectory> zip;
  while (!(zip = scanner::readZipDirectory(window, needed))) {
    const std::uint64_t wider = window.base - std::min(window.base, count.size - window.base);
    auto from = std::prev(std::upper_bound(
        marks.begin(), marks.end(), std::min(needed, wider),
        [](std::uint64_t image, const Base64::Mark& mark) { return image < mark.image; }));
    rest.clear();
    const std::uint64_t estimate = static_cast<std::uint64_t>(end - from->file) / 4 * 3 + 3;
    rest.reserve(static_cast<std::size_t>(std::min<std::uint64_t>(estimate, kImageReserveLimit)));
    Base64::decodeFrom(reader_, *from, end, rest);
    // Only a file changed since it was counted decodes differently: its findings are given up.
    if (rest.size() != count.size - from->image) break;
    window.base = from->image;
    window.rest = rest.view();
  }
  reader_.seek(resume);
  if (zip) reportZip(*zip);
}

void MessageScanner::reportZip(const scanner::ZipDirectory& zip) {
  if (zip.encrypted) walk_.results.insert("zip.pw");
  if (zip.corrupted) walk_.results.insert("zip.corrupted");
  for (const std::string& ext : zip.extensions) walk_.results.insert("zip/" + ext);
}

void MessageScanner::pushBoundary(const std::string& boundary) {
  walk_.stack.push_back(std::move(walk_.current));
  walk_.current = boundary;
  walk_.longestBoundary = std::max(walk_.longestBoundary, boundary.size());
}

bool MessageScanner::closesPart(std::string_view line) const {
  // "--", the current boundary (without regard to case), "--".
  const std::size_t n = walk_.current.size();
  return line.size() >= n + 4 && line.starts_with("--") &&
         kvs::startsWithIgnoreCase(line.substr(2), walk_.current) && line.substr(n + 2, 2) == "--";
}

bool MessageScanner::opensPart(std::string_view line) const {
  const std::string& current = walk_.current;
  const std::size_t n = current.size();
  if (n == 0 || line.size() < n + 2 || line[0] != '-' || line[1] != '-' ||
      !kvs::startsWithIgnoreCase(line.substr(2), current))
    return false;
  // The closing test looks at the two bytes at the boundary's length from the line's start,
  // not after the boundary: so it has always been, and lines the skipper did not stop on are
  // judged by it alone.
  return line.compare(n, 2, "--") != 0;
}

void MessageScanner::recordExtension(std::string_view name, bool& zip) {
  std::string ext = attachmentExtension(name);
  zip = kvs::startsWithIgnoreCase(ext, kZip);
  walk_.results.insert(std::move(ext));
}

void MessageScanner::headerLine(const std::string& line) {
  // Every field looked at here is a "Content-" one: the others are passed over at one test.
  if (!kvs::startsWithIgnoreCase(line, kContent)) return;
  std::string& value = value_;
  std::string& param = param_;
  if (walk_.block == Block::Part) {
    Entity& part = walk_.part;
    if (headerValue(kContentType, line, value)) {
      part.contentType = value;
      if (paramValue(kBoundary, value, param)) part.boundary = param;
      if (paramValue(kName, value, param)) recordExtension(param, part.zip);
    } else if (headerValue(kContentTransferEncoding, line, value)) {
      part.encoding = value;
    } else if (headerValue(kContentDisposition, line, value)) {
      if (paramValue(kFilename, value, param)) recordExtension(param, part.zip);
    }
    return;
  }
  // A message's own header: the boundary is searched in the whole line, and the disposition
  // is not looked at.
  Entity& message = walk_.message;
  if (headerValue(kContentType, line, value)) {
    message.contentType = value;
    if (messageBoundary(line, param)) message.boundary = param;
    if (paramValue(kName, value, param)) recordExtension(param, message.zip);
  } else if (headerValue(kContentTransferEncoding, line, value)) {
    message.encoding = value;
  }
}
