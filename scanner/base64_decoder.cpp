// The base64 transfer decoder.
#include "scanner/base64_decoder.h"

#include <array>

namespace Decoder::MIME {
namespace {

constexpr unsigned char kPad = 64;     // "=": value 0, and it suppresses a byte of its group
constexpr unsigned char kSkip = 0x80;  // blank and control bytes
constexpr unsigned char kIllegal = 0xFF;

constexpr std::array<unsigned char, 256> makeTable() {
  std::array<unsigned char, 256> t{};
  for (int c = 0; c < 256; ++c) t[c] = c <= 32 ? kSkip : kIllegal;
  for (int i = 0; i < 26; ++i) {
    t['A' + i] = static_cast<unsigned char>(i);
    t['a' + i] = static_cast<unsigned char>(26 + i);
  }
  for (int i = 0; i < 10; ++i) t['0' + i] = static_cast<unsigned char>(52 + i);
  t['+'] = 62;
  t['/'] = 63;
  t['='] = kPad;
  // Some old encoders wrote "{" for "0"; the decoder has always read it so.
  t['{'] = 52;
  // Bytes of 128 and more are outside the alphabet like any other stranger: complained about.
  return t;
}
constexpr std::array<unsigned char, 256> kTable = makeTable();

const char kIllegalText[] = "Found illegal character in base64 stream. Resuming to next.";
const char kEndText[] = "Unexpected end of file in Base64 decoding.";

// Decodes [p, e) into `out`, which has room for (e - p) / 4 * 3 + 3 bytes. Returns the position
// after the last byte used; `stop` is set when a group yielded no byte (decoding pauses there).
template <class Complain>
const unsigned char* decodeRun(const unsigned char* p, const unsigned char* e, Base64Group& g,
                               char*& out, bool& stop, Complain&& complain) {
  stop = false;
  for (;;) {
    if (g.count == 0) {
      // Whole groups of plain alphabet characters: the common case, no per-byte decisions.
      while (e - p >= 4) {
        const unsigned a = kTable[p[0]], b = kTable[p[1]], c = kTable[p[2]], d = kTable[p[3]];
        if ((a | b | c | d) & 0xC0) break;
        out[0] = static_cast<char>((a << 2) | (b >> 4));
        out[1] = static_cast<char>(((b & 15) << 4) | (c >> 2));
        out[2] = static_cast<char>(((c & 3) << 6) | d);
        out += 3;
        p += 4;
      }
    }
    if (p == e) return p;
    const unsigned char ch = *p++;
    const unsigned char v = kTable[ch];
    if (v == kSkip) continue;
    if (v == kIllegal) {
      complain();
      continue;
    }
    g.pad[g.count] = v == kPad;
    g.value[g.count] = v == kPad ? 0 : v;
    if (++g.count < 4) continue;
    g.count = 0;
    const unsigned a = g.value[0], b = g.value[1], c = g.value[2], d = g.value[3];
    const char* before = out;
    if (!g.pad[0]) *out++ = static_cast<char>((a * 4 + b / 16) & 0xFF);
    if (!g.pad[2]) *out++ = static_cast<char>(((b % 16) * 16 + c / 4) & 0xFF);
    if (!g.pad[3]) *out++ = static_cast<char>(((c % 4) * 64 + d) & 0xFF);
    if (out == before) {
      stop = true;
      return p;
    }
  }
}

}  // namespace

Base64::Base64(scanner::LineReader& in, DiagnosticsSink* sink, std::string sentinel,
               std::string parentSentinel, bool hasParent)
    : Interface(in, sink, std::move(sentinel), std::move(parentSentinel), hasParent) {}

bool Base64::decodeRest(std::string& out) {
  const auto* p = reinterpret_cast<const unsigned char*>(raw_.data()) + rawPos_;
  const auto* e = reinterpret_cast<const unsigned char*>(raw_.data()) + raw_.size();
  // Through a bounded piece of stack at a time, so that a line of any length needs no more.
  char piece[3 * 1024 + 3];
  while (p < e) {
    const unsigned char* chunkEnd = e - p > 4096 ? p + 4096 : e;
    char* o = piece;
    bool stop = false;
    p = decodeRun(p, chunkEnd, group_, o, stop, [&] { complain(kIllegalText); });
    out.append(piece, static_cast<std::size_t>(o - piece));
    if (stop) {
      rawPos_ = static_cast<std::size_t>(p - reinterpret_cast<const unsigned char*>(raw_.data()));
      return false;
    }
  }
  rawPos_ = raw_.size();
  return true;
}

void Base64::finish() {
  if (group_.count > 0) complain(kEndText);
  group_.count = 0;
}

void Base64::decodeBody(std::string& out) {
  for (;;) {
    if (rawPos_ >= raw_.size()) {
      if (!fetchLine()) {
        finish();
        return;
      }
    }
    if (!decodeRest(out)) return;
  }
}

bool Base64::nextByte(unsigned char& byte) {
  if (pushedBack_ >= 0) {
    byte = static_cast<unsigned char>(pushedBack_);
    pushedBack_ = -1;
    return true;
  }
  for (;;) {
    if (queuePos_ < queue_.size()) {
      byte = static_cast<unsigned char>(queue_[queuePos_++]);
      return true;
    }
    queue_.clear();
    queuePos_ = 0;
    if (stopPending_) {
      stopPending_ = false;
      return false;
    }
    if (rawPos_ >= raw_.size() && !fetchLine()) {
      finish();
      return false;
    }
    stopPending_ = !decodeRest(queue_);
  }
}

std::string Base64::decode(std::string_view text) {
  std::string out(text.size() / 4 * 3 + 3, '\0');
  char* o = out.data();
  Base64Group g;
  bool stop = false;
  const auto* p = reinterpret_cast<const unsigned char*>(text.data());
  decodeRun(p, p + text.size(), g, o, stop, [] {});
  out.resize(static_cast<std::size_t>(o - out.data()));
  return out;
}

}  // namespace Decoder::MIME
