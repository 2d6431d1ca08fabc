// The byte rules of the two decodings on their own: each input fed whole and cut into chunks of
// a few bytes (the state carried between them), the base64 fast paths held to the plain loop.
#include "scanner/decoding_core.h"

#include <gtest/gtest.h>

#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace Decoder::MIME;

const std::size_t kChunks[] = {1, 2, 3, 5, 1000};

struct Decoded {
  std::string bytes;
  std::set<std::string> complaints;
  int counted = 0;
  int groupLeft = 0;  // base64: characters of an unfinished group at the end

  Complain collector() {
    return [this](const std::string& text, bool count) {
      complaints.insert(text);
      counted += count;
    };
  }
};

// Decodes `text` a chunk at a time; base64 stops at a group without bytes.
Decoded base64(const std::string& text, std::size_t chunk, bool wide) {
  Decoded d;
  const Complain complain = d.collector();
  Base64Group g;
  const auto* p = reinterpret_cast<const unsigned char*>(text.data());
  const auto* const end = p + text.size();
  bool stop = false;
  while (p < end && !stop) {
    const auto* e = p + std::min<std::size_t>(chunk, static_cast<std::size_t>(end - p));
    std::string room(static_cast<std::size_t>(e - p) / 4 * 3 + 3, '\0');
    char* o = room.data();
    const auto* q = decodeRun(p, e, g, o, stop, complain, wide);
    EXPECT_TRUE(stop || q == e);
    p = q;
    d.bytes.append(room.data(), o);
  }
  d.groupLeft = g.count;
  return d;
}

Decoded quotedPrintable(const std::string& text, std::size_t chunk, bool encodedWord) {
  Decoded d;
  const Complain complain = d.collector();
  QuotedPrintableState s;
  for (std::size_t pos = 0; pos < text.size(); pos += chunk) {
    const std::size_t n = std::min(chunk, text.size() - pos);
    std::string room(n, '\0');
    char* o = decodeBytes(text.data() + pos, text.data() + pos + n, s, encodedWord, room.data(),
                          complain);
    d.bytes.append(room.data(), o);
  }
  finishBytes(s, complain);
  return d;
}

std::string repeat(const std::string& s, int n) {
  std::string out;
  while (n-- > 0) out += s;
  return out;
}

TEST(Base64Core, Cases) {
  const struct {
    std::string text, bytes;
    int illegal, groupLeft;
    const char* why;
  } cases[] = {
      {"QUJD", "ABC", 0, 0, "one group"},
      {"QQ==", "A", 0, 0, "two pad characters"},
      {"QUI=", "AB", 0, 0, "one pad character"},
      {"QU*JD", "ABC", 1, 0, "a stranger is dropped"},
      {"QU\xC3JD", "ABC", 1, 0, "a byte above 127 is a stranger too"},
      {"QUJ", "", 0, 3, "an unfinished group gives nothing yet"},
      {" Q U\tJ\r\nD \x01", "ABC", 0, 0, "blanks, line ends and control bytes are skipped"},
      {"{{{{", "\xD3\x4D\x34", 0, 0, "'{' is read as '0'"},
      {"QQ==QUJD", "AABC", 0, 0, "padding inside the stream does not end it"},
      {"Q===", "@", 0, 0, "'=' counts as 0 for the bits it gives"},
      {"=QUJ", "\x05\x09", 0, 0, "a leading '=' drops the first byte only"},
      {"QUJD====QUJD*", "ABC", 0, 0, "a group without bytes ends the decoding"},
      {repeat("QUJD", 30), repeat("ABC", 30), 0, 0, "a long run"},
      {repeat("QUJD", 6) + "*" + repeat("QUJD", 6) + "Q", repeat("ABC", 12), 1, 1,
       "wide and plain paths mixed"},
  };
  for (const auto& c : cases) {
    for (bool wide : {true, false}) {
      for (std::size_t chunk : kChunks) {
        const Decoded d = base64(c.text, chunk, wide);
        EXPECT_EQ(d.bytes, c.bytes) << c.why << " (chunk " << chunk << ", wide " << wide << ")";
        EXPECT_EQ(d.counted, c.illegal) << c.why;
        EXPECT_EQ(d.complaints, c.illegal == 0 ? std::set<std::string>{}
                                               : std::set<std::string>{kBase64IllegalText})
            << c.why;
        EXPECT_EQ(d.groupLeft, c.groupLeft) << c.why;
      }
    }
  }
}

TEST(Base64Core, FastPathsAgreeWithThePlainLoop) {
  // Long plain runs (taken sixteen and four at a time) broken by every kind of oddity.
  std::mt19937 random(99);
  const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  const std::string odd[] = {"=", "{", " ", "\r\n", "\t", "*", "-", "\x80", "\xFF", "\n", "."};
  for (int round = 0; round < 400; ++round) {
    std::string text;
    const int pieces = 1 + static_cast<int>(random() % 12);
    for (int k = 0; k < pieces; ++k) {
      const int run = static_cast<int>(random() % 90);
      for (int i = 0; i < run; ++i) text += alphabet[random() % 64];
      if (random() % 3 == 0) text += odd[random() % std::size(odd)];
    }
    const Decoded plain = base64(text, text.size(), false);
    for (std::size_t chunk : {std::size_t{7}, std::size_t{40}, text.size()}) {
      const Decoded wide = base64(text, chunk, true);
      EXPECT_EQ(wide.bytes, plain.bytes) << text;
      EXPECT_EQ(wide.counted, plain.counted) << text;
      EXPECT_EQ(wide.groupLeft, plain.groupLeft) << text;
    }
  }
}

// Counts `text` a chunk at a time, pausing as soon as it may once `every` more bytes are due;
// each pause is kept as (characters used, bytes before it).
struct Counted {
  Decoded d;  // bytes: left empty
  std::uint64_t written = 0;
  bool stopped = false;
  std::vector<std::pair<std::size_t, std::uint64_t>> pauses;
};

Counted count(const std::string& text, std::size_t chunk, bool wide, std::uint64_t every) {
  Counted c;
  const Complain complain = c.d.collector();
  Base64Group g;
  const auto* const begin = reinterpret_cast<const unsigned char*>(text.data());
  const auto* p = begin;
  const auto* const end = p + text.size();
  std::uint64_t pauseAt = every;
  while (p < end && !c.stopped) {
    const auto* e = p + std::min<std::size_t>(chunk, static_cast<std::size_t>(end - p));
    while ((p = countRun(p, e, g, c.written, c.stopped, complain, pauseAt, wide)) != e &&
           !c.stopped) {
      c.pauses.emplace_back(static_cast<std::size_t>(p - begin), c.written);
      pauseAt = c.written + every;
    }
  }
  c.d.groupLeft = g.count;
  return c;
}

// Long plain runs with line ends (the vector paths take 64 bytes at a time across them) broken
// by every kind of oddity, "=" and "====" among them.
std::string oddText(std::mt19937& random) {
  const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  const std::string odd[] = {"=", "{",    " ",    "\r\n", "\t", "*",
                             "-", "\x80", "\xFF", "\n",   ".",  "===="};
  std::string text;
  const int pieces = 1 + static_cast<int>(random() % 12);
  for (int k = 0; k < pieces; ++k) {
    const int run = static_cast<int>(random() % 300);
    for (int i = 0; i < run; ++i) text += i % 77 == 76 ? '\n' : alphabet[random() % 64];
    if (random() % 3 == 0) text += odd[random() % std::size(odd)];
  }
  return text;
}

TEST(Base64Core, CountingAgreesWithDecoding) {
  // The same complaints, stop and group as the plain loop's decoding, its number of bytes; and
  // decoding from any pause with a fresh group gives the bytes after it.
  std::mt19937 random(7);
  for (int round = 0; round < 300; ++round) {
    const std::string text = oddText(random);
    const Decoded plain = base64(text, text.size(), false);
    for (bool wide : {true, false}) {
      for (std::size_t chunk : {std::size_t{1}, std::size_t{7}, std::size_t{100}, text.size()}) {
        const Counted c = count(text, chunk, wide, 50 + random() % 200);
        EXPECT_EQ(c.written, plain.bytes.size()) << text;
        EXPECT_EQ(c.d.complaints, plain.complaints) << text;
        EXPECT_EQ(c.d.counted, plain.counted) << text;
        EXPECT_EQ(c.d.groupLeft, plain.groupLeft) << text;
        if (chunk != 7) continue;
        for (const auto& [at, written] : c.pauses) {
          EXPECT_EQ(base64(text.substr(at), 64, true).bytes, plain.bytes.substr(written)) << text;
        }
      }
    }
  }
}

TEST(Base64Core, CountingBlocksTellEveryByteValueApart) {
  // Each byte value inside a run long enough for the vector path, against the plain loop.
  const std::string run =
      "QUJDQUJD\r\nQUJDQUJDQUJDQUJDQUJDQUJDQUJDQUJDQUJDQUJDQUJDQUJDQUJDQUJDQUJD";
  for (int byte = 0; byte < 256; ++byte) {
    for (std::size_t at : {std::size_t{0}, std::size_t{31}, std::size_t{40}, std::size_t{63}}) {
      std::string text = run + run;
      text.insert(at, 1, static_cast<char>(byte));
      const Counted wide = count(text, text.size(), true, UINT64_MAX);
      const Counted plain = count(text, text.size(), false, UINT64_MAX);
      EXPECT_EQ(wide.written, plain.written) << "byte " << byte << " at " << at;
      EXPECT_EQ(wide.d.counted, plain.d.counted) << "byte " << byte << " at " << at;
      EXPECT_EQ(wide.d.groupLeft, plain.d.groupLeft) << "byte " << byte << " at " << at;
    }
  }
}

TEST(QuotedPrintableCore, Cases) {
  const char kEnd[] = "Invalid Quoted-Printable MIME ending, missing some characters";
  const struct {
    std::string text, bytes;
    std::set<std::string> complaints;
    int counted;
    bool encodedWord;
    const char* why;
  } cases[] = {
      {"=41", "A", {}, 0, false, "an escape"},
      {"a=\nb\n", "ab\n", {}, 0, false, "a soft line break joins lines"},
      {"a=\r\nb", "ab", {}, 0, false, "a soft line break before CR LF"},
      {"=4", "", {kEnd}, 1, false, "an escape cut short by the end"},
      {"x=", "x", {kEnd}, 1, false, "'=' at the very end"},
      {"x= \t", "x", {}, 0, false, "a soft break cut short by the end is no complaint"},
      {"=G1",
       "\xF1",
       {"Invalid escape sequence '=G1' in Quoted-Printable MIME part"},
       1,
       false,
       "a bad escape still gives a byte"},
      {"=4g",
       "\xFF",
       {"Invalid escape sequence '=4g' in Quoted-Printable MIME part"},
       1,
       false,
       "'g' is no hex digit: its 255 is joined in as it is"},
      {"=3D=3d=4a", "==J", {}, 0, false, "escaped '=', lower-case hex digits"},
      {"a= b\nc",
       "ac",
       {"Invalid character 'b' after soft line break in Quoted-Printable MIME part"},
       0,
       false,
       "after '=' and a blank everything up to the line feed is skipped, uncounted"},
      {"a_b", "a_b", {}, 0, false, "'_' stays in a body"},
      {"my_file=2Epdf", "my file.pdf", {}, 0, true, "'_' is a blank in an encoded word"},
  };
  for (const auto& c : cases) {
    for (std::size_t chunk : kChunks) {
      const Decoded d = quotedPrintable(c.text, chunk, c.encodedWord);
      EXPECT_EQ(d.bytes, c.bytes) << c.why << " (chunk " << chunk << ")";
      EXPECT_EQ(d.complaints, c.complaints) << c.why;
      EXPECT_EQ(d.counted, c.counted) << c.why;
    }
  }
}

}  // namespace
