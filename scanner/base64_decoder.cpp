// The base64 transfer decoder.
#include "scanner/base64_decoder.h"

#include <array>
#include <bit>
#include <cstdint>
#include <cstring>

#include "scanner/image_buffer.h"

#if defined(__GNUC__) && (defined(__x86_64__) || defined(__i386__))
#include <immintrin.h>
#define VELMORA_BASE64_SSSE3 1
#endif

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

// The fast path's tables: for each character of position 0-3 of a group, its bits already in
// place in the group's three output bytes as they lie in memory, so that one OR of four lookups
// is the bytes; bit 31 (the fourth byte, scratch) marks a byte that needs the careful path ("=",
// blanks, strangers).
constexpr std::uint32_t kCareful = 1u << 31;
constexpr std::uint32_t placeBytes(std::uint32_t b0, std::uint32_t b1, std::uint32_t b2) {
  if constexpr (std::endian::native == std::endian::little) return b0 | b1 << 8 | b2 << 16;
  return b0 << 24 | b1 << 16 | b2 << 8;
}
constexpr std::array<std::uint32_t, 256> makePlaced(int position) {
  std::array<std::uint32_t, 256> t{};
  for (int c = 0; c < 256; ++c) {
    const std::uint32_t v = kTable[c];
    if (v >= 64) {
      t[c] = std::endian::native == std::endian::little ? kCareful : 1u;
      continue;
    }
    switch (position) {
      case 0:
        t[c] = placeBytes(v << 2, 0, 0);
        break;
      case 1:
        t[c] = placeBytes(v >> 4, (v & 15) << 4, 0);
        break;
      case 2:
        t[c] = placeBytes(0, v >> 2, (v & 3) << 6);
        break;
      default:
        t[c] = placeBytes(0, 0, v);
        break;
    }
  }
  return t;
}
constexpr std::array<std::uint32_t, 256> kPlaced0 = makePlaced(0);
constexpr std::array<std::uint32_t, 256> kPlaced1 = makePlaced(1);
constexpr std::array<std::uint32_t, 256> kPlaced2 = makePlaced(2);
constexpr std::array<std::uint32_t, 256> kPlaced3 = makePlaced(3);
constexpr std::uint32_t kCarefulMask = std::endian::native == std::endian::little ? kCareful : 1u;

inline std::uint32_t placed(const unsigned char* p) {
  return kPlaced0[p[0]] | kPlaced1[p[1]] | kPlaced2[p[2]] | kPlaced3[p[3]];
}

#ifdef VELMORA_BASE64_SSSE3
// Sixteen characters at a time while all sixteen are plain alphabet characters (the same test as
// the tables above: "=", "{", blanks and strangers all stop it); twelve bytes out per round, with
// a sixteen-byte store (the room has four bytes to spare). Returns the characters used.
__attribute__((target("ssse3"))) std::size_t decodeBlocks(const unsigned char* p, std::size_t n,
                                                          char* o) {
  const __m128i lutLo = _mm_setr_epi8(0x15, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11,
                                      0x13, 0x1A, 0x1B, 0x1B, 0x1B, 0x1A);
  const __m128i lutHi = _mm_setr_epi8(0x10, 0x10, 0x01, 0x02, 0x04, 0x08, 0x04, 0x08, 0x10, 0x10,
                                      0x10, 0x10, 0x10, 0x10, 0x10, 0x10);
  const __m128i lutRoll = _mm_setr_epi8(0, 16, 19, 4, -65, -65, -71, -71, 0, 0, 0, 0, 0, 0, 0, 0);
  const __m128i mask2F = _mm_set1_epi8(0x2F);
  const __m128i pack = _mm_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1);
  std::size_t used = 0;
  while (n - used >= 16) {
    const __m128i in = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p + used));
    const __m128i hiNibbles = _mm_and_si128(_mm_srli_epi32(in, 4), mask2F);
    const __m128i loNibbles = _mm_and_si128(in, mask2F);
    const __m128i hi = _mm_shuffle_epi8(lutHi, hiNibbles);
    const __m128i lo = _mm_shuffle_epi8(lutLo, loNibbles);
    if (_mm_movemask_epi8(_mm_cmpgt_epi8(_mm_and_si128(lo, hi), _mm_setzero_si128())) != 0) break;
    const __m128i roll =
        _mm_shuffle_epi8(lutRoll, _mm_add_epi8(_mm_cmpeq_epi8(in, mask2F), hiNibbles));
    const __m128i values = _mm_add_epi8(in, roll);
    const __m128i pairs = _mm_maddubs_epi16(values, _mm_set1_epi32(0x01400140));
    const __m128i words = _mm_madd_epi16(pairs, _mm_set1_epi32(0x00011000));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(o), _mm_shuffle_epi8(words, pack));
    o += 12;
    used += 16;
  }
  return used;
}

// Static initialisation may run before the runtime has looked at the CPU: ask it to first.
const bool kHaveSsse3 = [] {
  __builtin_cpu_init();
  return __builtin_cpu_supports("ssse3") != 0;
}();
#endif

const char kIllegalText[] = "Found illegal character in base64 stream. Resuming to next.";
const char kEndText[] = "Unexpected end of file in Base64 decoding.";

// Decodes [p, e) into `out`; see Base64::decodeFrom.
template <class Complain>
const unsigned char* decodeRun(const unsigned char* p, const unsigned char* e, Base64Group& g,
                               char*& out, bool& stop, Complain&& complain) {
  stop = false;
  for (;;) {
    if (g.count == 0) {
      // Whole groups of plain alphabet characters: the common case, no per-byte decisions.
      // Each group's three bytes go out as one four-byte store (the room has a byte to spare).
      char* o = out;
#ifdef VELMORA_BASE64_SSSE3
      if (kHaveSsse3 && e - p >= 16) {
        const std::size_t used = decodeBlocks(p, static_cast<std::size_t>(e - p), o);
        p += used;
        o += used / 4 * 3;
      }
#endif
      while (e - p >= 8) {
        const std::uint32_t w1 = placed(p), w2 = placed(p + 4);
        if ((w1 | w2) & kCarefulMask) break;
        std::memcpy(o, &w1, 4);
        std::memcpy(o + 3, &w2, 4);
        o += 6;
        p += 8;
      }
      while (e - p >= 4) {
        const std::uint32_t w = placed(p);
        if (w & kCarefulMask) break;
        std::memcpy(o, &w, 4);
        o += 3;
        p += 4;
      }
      out = o;
    }
    if (p == e) return p;
    const unsigned char v = kTable[*p++];
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

// Output room for decoding n more characters: a group may be carried in from the line before,
// and the wide stores write up to four bytes beyond the last.
std::size_t roomFor(std::size_t n) {
  return n / 4 * 3 + 3 + 4;
}

}  // namespace

Base64::Base64(scanner::LineReader& in, DiagnosticsSink* sink, std::string sentinel,
               std::string parentSentinel, bool hasParent)
    : Interface(in, sink, std::move(sentinel), std::move(parentSentinel), hasParent) {}

std::size_t Base64::decodeFrom(std::string_view raw, std::size_t pos, char*& out, bool& stop) {
  const auto* base = reinterpret_cast<const unsigned char*>(raw.data());
  const unsigned char* p = decodeRun(base + pos, base + raw.size(), group_, out, stop,
                                     [this] { complain(kIllegalText); });
  return static_cast<std::size_t>(p - base);
}

bool Base64::feedLine(std::string_view raw, bool, scanner::ImageBuffer& out) {
  if (decodingEnded_) return false;
  char* const start = out.room(roomFor(raw.size()));
  char* o = start;
  bool stop = false;
  decodeFrom(raw, 0, o, stop);
  out.commit(static_cast<std::size_t>(o - start));
  decodingEnded_ = stop;
  return !stop;
}

void Base64::endOfInput() {
  if (decodingEnded_) return;
  if (group_.count > 0) complain(kEndText);
  group_.count = 0;
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
      // The group without bytes answers "none" once; asked again, decoding goes on after it.
      stopPending_ = false;
      return false;
    }
    if (rawPos_ >= raw_.size() && !fetchLine()) {
      if (group_.count > 0) complain(kEndText);
      group_.count = 0;
      return false;
    }
    queue_.resize(roomFor(raw_.size() - rawPos_));
    char* o = queue_.data();
    bool stop = false;
    rawPos_ = decodeFrom(raw_, rawPos_, o, stop);
    queue_.resize(static_cast<std::size_t>(o - queue_.data()));
    stopPending_ = stop;
  }
}

std::string Base64::decode(std::string_view text) {
  std::string out(roomFor(text.size()), '\0');
  char* o = out.data();
  Base64Group g;
  bool stop = false;
  const auto* p = reinterpret_cast<const unsigned char*>(text.data());
  decodeRun(p, p + text.size(), g, o, stop, [] {});
  out.resize(static_cast<std::size_t>(o - out.data()));
  return out;
}

}  // namespace Decoder::MIME
