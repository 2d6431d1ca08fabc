// The body readers of the scanner.
#include "scanner/mime_decoder.h"

#include <algorithm>

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

void Interface::restartWith(std::string_view sentinel) {
  rawAt_ = 0;
  errors_ = 0;
  ended_ = stopped_ = false;
  sentinel_.assign(sentinel);
  parentSentinel_.clear();
  hasParent_ = false;
  stopLine_.clear();
  lineAt_ = 0;
  lastComplaint_.clear();
  raw_ = {};
  rawPos_ = 0;
  rawNewline_ = rawLeft_ = stopPending_ = false;
  queue_.clear();
  queuePos_ = 0;
  pushedBack_ = -1;
}

void Interface::complain(const std::string& text, bool counted) {
  if (counted) ++errors_;
  if (sink_ == nullptr || text == lastComplaint_) return;
  lastComplaint_ = text;
  sink_->addDiagnostic(text);
}

Interface::LineKind Interface::classify(std::string_view line) const {
  // A body without boundary has no boundary line: it runs to the end of the file.
  if (!sentinel_.empty() && kvs::startsWithIgnoreCase(line, sentinel_)) return LineKind::Stop;
  if (stopsAtParent() && kvs::startsWithIgnoreCase(line, parentSentinel_)) {
    return LineKind::ParentStop;
  }
  return LineKind::Body;
}

bool Interface::bodyLine(std::string_view& line, std::size_t keep) {
  if (ended_ || stopped_) return false;
  lineAt_ = in_.tell();
  if (!in_.next(line, keep)) {
    ended_ = true;
    if (!sentinel_.empty()) complain("Unterminated MIME sentinel at end of message");
    return false;
  }
  const LineKind kind = classify(line);
  if (kind == LineKind::Body) return true;
  if (kind == LineKind::ParentStop) complain("Unterminated MIME sentinel, found parent sentinel");
  stopLine_.assign(line);
  stopped_ = true;
  return false;
}

void Interface::skipBody(bool& emptyBody, std::size_t keep, scanner::ImageBuffer* image) {
  bool decoding = image != nullptr;
  const bool runs = !decoding || takesRuns();
  if (decoding) keep = std::string_view::npos;  // lines to decode are taken whole
  const bool boundless = sentinel_.empty() && !stopsAtParent();
  std::string_view line;
  bool stop = false;
  for (;;) {
    // Once the message has body text, a line matters only if it could be a boundary line, and
    // every boundary line begins with "-": whole runs of other lines are passed over at once,
    // or go at once to a decoding that ignores line ends.
    // Without a boundary to stop at (a body outside any multipart), no line needs looking at.
    if (runs && !emptyBody && !ended_ && !stopped_) {
      rawAt_ = in_.tell();
      const std::string_view lines = in_.wholeLinesAhead('-');
      const std::size_t taken = decoding && !lines.empty() ? countAhead(lines) : 0;
      const std::string_view run =
          boundless ? lines : scanner::LineReader::linesBefore(lines, '-', taken);
      if (!run.empty()) {
        if (decoding) decodeRaw(run, taken, false, *image, stop);
        decoding = decoding && !stop;
        in_.consume(run.size());
        continue;
      }
    }
    if (!bodyLine(line, keep)) break;
    if (!line.empty()) emptyBody = false;
    rawAt_ = lineAt_;
    if (decoding) decodeRaw(line, 0, in_.hadNewline(), *image, stop);
    decoding = decoding && !stop;
  }
  if (decoding) endOfInput();
}

bool Interface::fetchLine() {
  std::string_view line;
  if (!bodyLine(line, std::string_view::npos)) return false;
  raw_ = line;
  rawPos_ = 0;
  rawNewline_ = in_.hadNewline();
  rawLeft_ = true;
  return true;
}

bool Interface::pullByte(unsigned char& byte) {
  if (pushedBack_ >= 0) {
    byte = static_cast<unsigned char>(pushedBack_);
    pushedBack_ = -1;
    return true;
  }
  for (;;) {
    if (queuePos_ < queue_.size()) {
      byte = static_cast<unsigned char>(queue_.view()[queuePos_++]);
      return true;
    }
    queue_.clear();
    queuePos_ = 0;
    if (stopPending_) {
      // A group without bytes answers "none" once; asked again, decoding goes on after it.
      stopPending_ = false;
      return false;
    }
    if (!rawLeft_ && !fetchLine()) {
      endOfInput();
      return false;
    }
    rawPos_ = decodeRaw(raw_, rawPos_, rawNewline_, queue_, stopPending_);
    rawLeft_ = stopPending_;
  }
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

std::size_t Skipper::decodeRaw(std::string_view raw, std::size_t pos, bool newline,
                               scanner::ImageBuffer& out, bool& stop) {
  out.append(raw.substr(pos));
  if (newline) out.append("\n");
  stop = false;
  return raw.size();
}

void Base64::countInto(Count& count) {
  count_ = &count;
  count.size = 0;
  count.head.clear();
  count.marks.assign(1, Mark{input().tell(), 0});
  nextMark_ = count.markEvery;
}

std::size_t Base64::decodeRaw(std::string_view raw, std::size_t pos, bool,
                              scanner::ImageBuffer& out, bool& stop) {
  const auto* base = reinterpret_cast<const unsigned char*>(raw.data());
  if (count_ != nullptr) {
    const unsigned char* p = base + pos;
    const unsigned char* const e = base + raw.size();
    const Complain complain = complaints();
    stop = false;
    // The first bytes are decoded, a few characters at a time.
    while (count_->head.size() < 4 && p != e && !stop) {
      const unsigned char* const piece = p + std::min<std::ptrdiff_t>(e - p, 8);
      char bytes[9];
      char* o = bytes;
      p = decodeRun(p, piece, group_, o, stop, complain);
      count_->head.append(bytes, o);
      count_->size += static_cast<std::uint64_t>(o - bytes);
    }
    if (!stop) p = countOn(base, p, e, stop, false);
    return static_cast<std::size_t>(p - base);
  }
  char* const start = out.room((raw.size() - pos) / 4 * 3 + 3);
  char* o = start;
  const unsigned char* p = decodeRun(base + pos, base + raw.size(), group_, o, stop, complaints());
  out.commit(static_cast<std::size_t>(o - start));
  return static_cast<std::size_t>(p - base);
}

std::size_t Base64::countAhead(std::string_view raw) {
  // The vector blocks of the count, as decodeRaw would take them, up to the first block that
  // holds another byte: they stand for a search for "-" as well. Only once the head is decoded.
  if (count_ == nullptr || count_->head.size() < 4) return 0;
  const auto* base = reinterpret_cast<const unsigned char*>(raw.data());
  bool stop = false;
  return static_cast<std::size_t>(countOn(base, base, base + raw.size(), stop, true) - base);
}

const unsigned char* Base64::countOn(const unsigned char* base, const unsigned char* p,
                                     const unsigned char* e, bool& stop, bool blocksOnly) {
  // countRun pauses where no group is open once the next mark is due: the mark is noted there.
  const Complain complain = complaints();
  for (;;) {
    p = countRun(p, e, group_, count_->size, stop, complain, nextMark_, true, blocksOnly);
    if (p == e || stop || group_.count != 0 || count_->size < nextMark_) return p;
    count_->marks.push_back(Mark{rawAt_ + (p - base), count_->size});
    nextMark_ = count_->size + count_->markEvery;
  }
}

void Base64::endOfInput() {
  if (group_.count > 0) complain(kBase64EndText);
  group_.count = 0;
}

void Base64::decodeFrom(scanner::LineReader& in, const Mark& from, std::int64_t end,
                        scanner::ImageBuffer& out) {
  constexpr std::size_t kPiece = 64 * 1024;
  const Complain ignore = [](const std::string&, bool) {};
  Base64Group g;
  bool stop = false;
  std::int64_t at = from.file;
  if (!in.seek(at)) return;
  while (at < end && !stop) {
    std::string_view raw = in.bytesAhead();
    if (raw.empty()) break;
    raw = raw.substr(0, static_cast<std::size_t>(std::min<std::int64_t>(
                            {static_cast<std::int64_t>(raw.size()), end - at, kPiece})));
    const auto* p = reinterpret_cast<const unsigned char*>(raw.data());
    char* const start = out.room(raw.size() / 4 * 3 + 3);
    char* o = start;
    decodeRun(p, p + raw.size(), g, o, stop, ignore);
    out.commit(static_cast<std::size_t>(o - start));
    in.consume(raw.size());
    at += static_cast<std::int64_t>(raw.size());
  }
}

std::string Base64::decode(std::string_view text) {
  std::string out(text.size() / 4 * 3 + 3, '\0');
  char* o = out.data();
  Base64Group g;
  bool stop = false;
  const auto* p = reinterpret_cast<const unsigned char*>(text.data());
  decodeRun(p, p + text.size(), g, o, stop, [](const std::string&, bool) {});
  out.resize(static_cast<std::size_t>(o - out.data()));
  return out;
}

QuotedPrintable::QuotedPrintable(scanner::LineReader& in, DiagnosticsSink* sink,
                                 std::string sentinel, std::string parentSentinel, bool hasParent,
                                 bool encodedWord)
    : Interface(in, sink, std::move(sentinel), std::move(parentSentinel), hasParent),
      encodedWord_(encodedWord) {}

std::size_t QuotedPrintable::decodeRaw(std::string_view raw, std::size_t pos, bool newline,
                                       scanner::ImageBuffer& out, bool& stop) {
  const Complain complain = complaints();
  char* const start = out.room(raw.size() - pos + 1);
  char* o =
      decodeBytes(raw.data() + pos, raw.data() + raw.size(), state_, encodedWord_, start, complain);
  if (newline) {
    const char lf = '\n';
    o = decodeBytes(&lf, &lf + 1, state_, encodedWord_, o, complain);
  }
  out.commit(static_cast<std::size_t>(o - start));
  stop = false;
  return raw.size();
}

void QuotedPrintable::endOfInput() {
  finishBytes(state_, complaints());
}

std::string QuotedPrintable::decode(std::string_view text, bool encodedWord) {
  std::string out(text.size(), '\0');
  QuotedPrintableState s;
  const Complain ignore = [](const std::string&, bool) {};
  char* o = decodeBytes(text.data(), text.data() + text.size(), s, encodedWord, out.data(), ignore);
  finishBytes(s, ignore);
  out.resize(static_cast<std::size_t>(o - out.data()));
  return out;
}

}  // namespace Decoder::MIME
