// The quoted-printable transfer decoder.
#include "scanner/quoted_printable_decoder.h"

#include <cstring>

#include "scanner/image_buffer.h"

namespace Decoder::MIME {
namespace {

const char kEndingText[] = "Invalid Quoted-Printable MIME ending, missing some characters";

unsigned hexValue(unsigned char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return 255;
}

// Decodes [p, e) into `out` (never more bytes than it reads) and returns the new end of `out`.
// `complain(text, counted)` receives each complaint.
template <class Complain>
char* decodeBytes(const char* p, const char* e, QuotedPrintableState& s, bool encodedWord,
                  char* out, Complain&& complain) {
  using Step = QuotedPrintableState::Step;
  while (p < e) {
    switch (s.step) {
      case Step::Text: {
        if (!encodedWord) {
          // Plain runs up to the next "=" are copied as they stand.
          const auto* eq =
              static_cast<const char*>(std::memchr(p, '=', static_cast<size_t>(e - p)));
          const char* stop = eq != nullptr ? eq : e;
          std::memcpy(out, p, static_cast<std::size_t>(stop - p));
          out += stop - p;
          p = stop;
          if (p == e) return out;
          ++p;
          s.step = Step::AfterEquals;
          break;
        }
        const char c = *p++;
        if (c == '=') {
          s.step = Step::AfterEquals;
        } else {
          *out++ = c == '_' ? ' ' : c;
        }
        break;
      }
      case Step::AfterEquals: {
        const char n = *p++;
        if (n == ' ' || n == '\t' || n == '\r') {
          s.step = Step::SoftBreak;
        } else if (n == '\n') {
          s.step = Step::Text;
        } else {
          s.high = static_cast<unsigned char>(n);
          s.step = Step::Escape;
        }
        break;
      }
      case Step::SoftBreak: {
        // Whatever stands between "=" and the line end is skipped; only the line feed ends it.
        const char c = *p++;
        if (c == '\n') {
          s.step = Step::Text;
        } else if (c != ' ' && c != '\t' && c != '\r') {
          complain(std::string("Invalid character '") + c +
                       "' after soft line break in Quoted-Printable MIME part",
                   false);
        }
        break;
      }
      case Step::Escape: {
        const auto m = static_cast<unsigned char>(*p++);
        const unsigned hi = hexValue(s.high), lo = hexValue(m);
        if (hi == 255 || lo == 255) {
          complain(std::string("Invalid escape sequence '=") + static_cast<char>(s.high) +
                       static_cast<char>(m) + "' in Quoted-Printable MIME part",
                   true);
        }
        *out++ = static_cast<char>(((hi << 4) | lo) & 0xFF);
        s.step = Step::Text;
        break;
      }
    }
  }
  return out;
}

// The input ended: an escape cut short is a complaint; a soft break cut short is not.
template <class Complain>
void finishBytes(QuotedPrintableState& s, Complain&& complain) {
  using Step = QuotedPrintableState::Step;
  if (s.step == Step::AfterEquals || s.step == Step::Escape) complain(kEndingText, true);
  s.step = Step::Text;
}

}  // namespace

QuotedPrintable::QuotedPrintable(scanner::LineReader& in, DiagnosticsSink* sink,
                                 std::string sentinel, std::string parentSentinel, bool hasParent,
                                 bool encodedWord)
    : Interface(in, sink, std::move(sentinel), std::move(parentSentinel), hasParent),
      encodedWord_(encodedWord) {}

char* QuotedPrintable::decodeRun(const char* p, const char* e, char* out) {
  return decodeBytes(p, e, state_, encodedWord_, out,
                     [this](const std::string& text, bool counted) { complain(text, counted); });
}

bool QuotedPrintable::feedLine(std::string_view raw, bool newline, scanner::ImageBuffer& out) {
  char* const start = out.room(raw.size() + 1);
  char* o = decodeRun(raw.data(), raw.data() + raw.size(), start);
  if (newline) {
    const char lf = '\n';
    o = decodeRun(&lf, &lf + 1, o);
  }
  out.commit(static_cast<std::size_t>(o - start));
  return true;
}

void QuotedPrintable::endOfInput() {
  finishBytes(state_, [this](const std::string& text, bool counted) { complain(text, counted); });
}

bool QuotedPrintable::nextByte(unsigned char& byte) {
  if (pushedBack_ >= 0) {
    byte = static_cast<unsigned char>(pushedBack_);
    pushedBack_ = -1;
    return true;
  }
  while (queuePos_ >= queue_.size()) {
    queue_.clear();
    queuePos_ = 0;
    if (!fetchLine()) {
      endOfInput();
      return false;
    }
    queue_.resize(raw_.size() + 1);
    char* o = decodeRun(raw_.data(), raw_.data() + raw_.size(), queue_.data());
    if (rawNewline_) {
      const char lf = '\n';
      o = decodeRun(&lf, &lf + 1, o);
    }
    queue_.resize(static_cast<std::size_t>(o - queue_.data()));
    rawPos_ = raw_.size();
  }
  byte = static_cast<unsigned char>(queue_[queuePos_++]);
  return true;
}

std::string QuotedPrintable::decode(std::string_view text, bool encodedWord) {
  std::string out(text.size(), '\0');
  QuotedPrintableState s;
  auto ignore = [](const std::string&, bool) {};
  char* o = decodeBytes(text.data(), text.data() + text.size(), s, encodedWord, out.data(), ignore);
  finishBytes(s, ignore);
  out.resize(static_cast<std::size_t>(o - out.data()));
  return out;
}

}  // namespace Decoder::MIME
