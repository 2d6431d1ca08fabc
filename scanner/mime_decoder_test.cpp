// The two transfer decodings and the body readers around them: each case decoded by the core in
// chunks, through line readers of tiny and large blocks (in one pass and byte by byte), in one
// shot; base64 also counted, by the core and the body reader, then decoded from counting's marks.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "scanner/decoding_core.h"
#include "scanner/image_buffer.h"
#include "scanner/line_reader.h"
#include "scanner/mime_decoder.h"

namespace {

using namespace Decoder::MIME;
using Set = std::set<std::string>;

const std::size_t kChunks[] = {1, 2, 3, 5, 1000};
const std::size_t kBlocks[] = {1, 3, 4096};
const char kIllegal[] = "Found illegal character in base64 stream. Resuming to next.";
const char kBase64End[] = "Unexpected end of file in Base64 decoding.";
const char kQpEnd[] = "Invalid Quoted-Printable MIME ending, missing some characters";
const char kUnterminated[] = "Unterminated MIME sentinel at end of message";
const char kParent[] = "Unterminated MIME sentinel, found parent sentinel";

// What a decoding gave: its bytes, its complaints, and how many of them were errors.
struct Decoded {
  std::string bytes;
  Set texts = {};
  int errors = 0;
  bool operator==(const Decoded&) const = default;
  Complain collector() {
    return [this](const std::string& text, bool counted) {
      texts.insert(text);
      errors += counted;
    };
  }
};

struct Sink : DiagnosticsSink {
  Set texts;
  void addDiagnostic(const std::string& text) override { texts.insert(text); }
};

// The core, a chunk at a time; it stops at a group without bytes. A group left unfinished is
// the body reader's complaint at the end of the input.
Decoded coreBase64(const std::string& text, std::size_t chunk, bool wide) {
  Decoded d;
  const Complain complain = d.collector();
  Base64Group g;
  const auto* p = reinterpret_cast<const unsigned char*>(text.data());
  const auto* const end = p + text.size();
  for (bool stop = false; p < end && !stop;) {
    const auto* e = p + std::min<std::size_t>(chunk, static_cast<std::size_t>(end - p));
    std::string room(static_cast<std::size_t>(e - p) / 4 * 3 + 3, '\0');
    char* o = room.data();
    const auto* q = decodeRun(p, e, g, o, stop, complain, wide);
    EXPECT_TRUE(stop || q == e);
    p = q;
    d.bytes.append(room.data(), o);
  }
  if (g.count > 0) complain(kBase64End, true);
  return d;
}

// What counting gives for a decoding: a '?' for each byte, the same complaints.
Decoded counted(const Decoded& d) {
  return {std::string(d.bytes.size(), '?'), d.texts, d.errors};
}

// The core counting instead, a chunk at a time, pausing once `every` more bytes are due: a
// decoding started at each pause with a fresh group gives `bytes` from there on (its first ones).
Decoded coreCount(const std::string& text, std::size_t chunk, bool wide, std::uint64_t every,
                  const std::string& bytes) {
  Decoded d;
  const Complain complain = d.collector();
  Base64Group g;
  const auto* const begin = reinterpret_cast<const unsigned char*>(text.data());
  const auto* p = begin;
  const auto* const end = p + text.size();
  std::uint64_t written = 0, pauseAt = every;
  for (bool stop = false; p < end && !stop;) {
    const auto* e = p + std::min<std::size_t>(chunk, static_cast<std::size_t>(end - p));
    while ((p = countRun(p, e, g, written, stop, complain, pauseAt, wide)) != e && !stop) {
      const auto at = static_cast<std::size_t>(p - begin);
      EXPECT_TRUE(wide || written < pauseAt + 3) << text << ": the plain loop pauses at once";
      const std::string from = coreBase64(text.substr(at, 64), 64, true).bytes;
      EXPECT_EQ(from, bytes.substr(std::min<std::size_t>(written, bytes.size()), from.size()))
          << text << ", pause at " << at;
      pauseAt = written + every;
    }
  }
  if (g.count > 0) complain(kBase64End, true);
  d.bytes.assign(written, '?');
  return d;
}

Decoded coreQuotedPrintable(const std::string& text, std::size_t chunk, bool encodedWord) {
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

enum Kind { kSkip, kCapture, kBase64, kQuotedPrintable };

// A body reader of `kind`, stopping at `sentinel` and at `parent` if that is not empty.
std::unique_ptr<Interface> bodyReader(Kind kind, scanner::LineReader& reader, Sink& sink,
                                      const char* sentinel, const char* parent = "",
                                      bool encodedWord = false) {
  if (kind == kBase64) return std::make_unique<Base64>(reader, &sink, sentinel, parent, *parent);
  if (kind != kQuotedPrintable)
    return std::make_unique<Skipper>(reader, &sink, sentinel, parent, *parent);
  return std::make_unique<QuotedPrintable>(reader, &sink, sentinel, parent, *parent, encodedWord);
}

// A body without boundary through a reader of `block` bytes: in one pass, without (pass 0) and
// with (pass 1, which lets runs of lines through at once) body text before it, or byte by byte.
Decoded throughReader(Kind kind, const std::string& body, std::size_t block, int pass,
                      bool encodedWord) {
  scanner::LineReader reader(block);
  reader.openMemory(body);
  Sink sink;
  const auto decoder = bodyReader(kind, reader, sink, "", "", encodedWord);
  Decoded d;
  if (pass < 2) {
    bool empty = pass == 0;
    scanner::ImageBuffer image;
    decoder->skipBody(empty, 16, &image);
    d.bytes = image.view();
  } else {
    for (unsigned char byte; decoder->nextByte(byte);) d.bytes.push_back(static_cast<char>(byte));
  }
  d.texts = sink.texts;
  d.errors = decoder->errors();
  return d;
}

// A base64 body counted through a reader of `block` bytes up to its boundary line, then decoded
// from each place the count marked (about every ten bytes) up to that line: the bytes from the
// first, which is the body's start, and the complaints of the count.
Decoded countThroughReader(const std::string& text, std::size_t block, bool emptyBefore) {
  scanner::LineReader reader(block);
  const std::string body = text + "\n--b\nafter\n";  // the reader holds a view of it
  reader.openMemory(body);
  Sink sink;
  Base64 counter(reader, &sink, "--b");
  Base64::Count count;
  count.markEvery = 10;
  counter.countInto(count);
  scanner::ImageBuffer image;
  bool empty = emptyBefore;
  counter.skipBody(empty, 16, &image);
  EXPECT_EQ(image.size(), 0u) << "nothing written";
  Decoded d{"", sink.texts, counter.errors()};
  for (const Base64::Mark& mark : count.marks) {
    scanner::ImageBuffer part;
    Base64::decodeFrom(reader, mark, counter.endsAt(), part);
    if (&mark == &count.marks.front()) d.bytes = part.view();
    EXPECT_EQ(part.view(), d.bytes.substr(std::min<std::size_t>(mark.image, d.bytes.size())));
  }
  EXPECT_EQ(count.size, d.bytes.size()) << text;
  EXPECT_EQ(count.head, d.bytes.substr(0, count.head.size())) << text;
  EXPECT_GE(count.head.size(), std::min<std::size_t>(4, d.bytes.size())) << text;
  return d;
}

std::string repeat(const std::string& s, int n) {
  std::string out;
  while (n-- > 0) out += s;
  return out;
}

TEST(Base64, Cases) {
  // Runs of whole lines go to the decoder at once once the body has text; lines beginning with
  // "-" (a stranger to base64, as boundary lines begin) are still looked at one by one.
  const std::string lines = repeat(repeat("QUJD", 19) + "\n", 8) + "-QU*JD\r\n";
  const struct {
    std::string text;
    Decoded want;
    const char* why;
  } cases[] = {
      {"QUJD", {"ABC"}, "one group"},
      {"QQ==", {"A"}, "two pad characters"},
      {"QUI=", {"AB"}, "one pad character"},
      {"QU*JD", {"ABC", {kIllegal}, 1}, "a stranger is dropped"},
      {"QU\xC3JD", {"ABC", {kIllegal}, 1}, "a byte above 127 is a stranger too"},
      {"Q@U[J`D:,", {"ABC", {kIllegal}, 5}, "the bytes beside the alphabet's ranges are strangers"},
      {"QUJ", {"", {kBase64End}, 1}, "an unfinished group gives nothing"},
      {" Q U\tJ\r\nD \x01", {"ABC"}, "blanks, line ends and control bytes are skipped"},
      {"QU\nJD\r\nQU\n\nJD\n", {"ABCABC"}, "groups across lines"},
      {"{{{{", {"\xD3\x4D\x34"}, "'{' is read as '0'"},
      {"QQ==QUJD", {"AABC"}, "padding inside the stream does not end it"},
      {"Q===", {"@"}, "'=' counts as 0 for the bits it gives"},
      {"=QUJ", {"\x05\x09"}, "a leading '=' drops the first byte only"},
      {"QUJD\n====\n*QUJ\n", {"ABC"}, "a group without bytes ends the decoding"},
      {repeat("QUJD", 30), {repeat("ABC", 30)}, "a long run"},
      {repeat("QUJD", 6) + "*" + repeat("QUJD", 6) + "Q",
       {repeat("ABC", 12), {kIllegal, kBase64End}, 2},
       "wide and plain paths mixed"},
      {repeat("QUJD", 15) + "QU= " + repeat("QUJD", 20),
       {repeat("ABC", 15) + "A\x10" + repeat("P\x90\xD0", 19), {kBase64End}, 1},
       "a group with '=' open where a run of the counting blocks' length begins"},
      {repeat("QUJD", 15) + "=   " + repeat("QUJD", 20),
       {repeat("ABC", 15) + "\x05\x09" + repeat("\r\x05\x09", 19), {kBase64End}, 1},
       "the same with a leading '='"},
      {repeat(lines, 8) + "QUJ",
       {repeat("ABC", 8 * (19 * 8 + 1)), {kIllegal, kBase64End}, 17},
       "lines of 76 characters with strangers among them, more than a block"},
  };
  for (const auto& c : cases) {
    for (std::size_t chunk : kChunks) {
      for (bool wide : {true, false}) {
        EXPECT_EQ(coreBase64(c.text, chunk, wide), c.want) << c.why << ", chunk " << chunk;
        for (std::uint64_t every : {std::uint64_t{2}, UINT64_MAX}) {
          EXPECT_EQ(coreCount(c.text, chunk, wide, every, c.want.bytes), counted(c.want))
              << c.why << ", counted, chunk " << chunk << ", pauses every " << every;
        }
      }
    }
    for (std::size_t block : kBlocks) {
      for (int pass : {0, 1, 2}) {
        EXPECT_EQ(throughReader(kBase64, c.text, block, pass, false), c.want)
            << c.why << ", block " << block << ", pass " << pass;
      }
      for (bool emptyBefore : {true, false}) {
        EXPECT_EQ(countThroughReader(c.text, block, emptyBefore), c.want)
            << c.why << ", counted, block " << block;
      }
    }
    EXPECT_EQ(Base64::decode(c.text), c.want.bytes) << c.why;
  }
}

TEST(Base64, FastPathsAndCountingAgreeWithThePlainLoop) {
  // Long plain runs in lines (taken 16, 64 and 4 characters at a time) broken by every kind of
  // oddity, and each byte value inside runs long enough for the vector paths; counting pauses at
  // random distances or never.
  std::mt19937 random(7);
  const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  const std::string odd[] = {"=", "{",    " ",    "\r\n", "\t", "*",
                             "-", "\x80", "\xFF", "\n",   ".",  "===="};
  std::vector<std::string> texts(300);
  for (std::string& text : texts) {
    for (int k = 1 + static_cast<int>(random() % 12); k > 0; --k) {
      const int run = static_cast<int>(random() % 300);
      for (int i = 0; i < run; ++i) text += i % 77 == 76 ? '\n' : alphabet[random() % 64];
      if (random() % 3 == 0) text += odd[random() % std::size(odd)];
    }
  }
  const std::string run = "QUJDQUJD\r\n" + repeat("QUJD", 16);
  for (int byte = 0; byte < 256; ++byte) {
    for (std::size_t at : {0, 31, 40, 63}) texts.push_back((run + run).insert(at, 1, char(byte)));
  }
  for (const std::string& text : texts) {
    const Decoded plain = coreBase64(text, text.size(), false);
    for (std::size_t chunk : {std::size_t{1}, std::size_t{7}, std::size_t{40}, text.size()}) {
      EXPECT_EQ(coreBase64(text, chunk, true), plain) << text;
      for (bool wide : {true, false}) {
        for (std::uint64_t every : {std::uint64_t{50 + random() % 200}, UINT64_MAX}) {
          EXPECT_EQ(coreCount(text, chunk, wide, every, plain.bytes), counted(plain)) << text;
        }
      }
    }
  }
}

TEST(QuotedPrintable, Cases) {
  const std::string bad = "Invalid escape sequence '", part = "' in Quoted-Printable MIME part";
  const struct {
    std::string text;
    Decoded want;
    bool encodedWord;
    const char* why;
  } cases[] = {
      {"=41", {"A"}, false, "an escape"},
      {"=09=AF=af=3D", {"\t\xAF\xAF="}, false, "hex digits of every range, either case"},
      {"a=\nb\n", {"ab\n"}, false, "a soft line break joins lines; the line feed is kept"},
      {"a=\r\nb", {"ab"}, false, "a soft line break before CR LF"},
      {"=4", {"", {kQpEnd}, 1}, false, "an escape cut short by the end"},
      {"x=", {"x", {kQpEnd}, 1}, false, "'=' at the very end"},
      {"caf=E9 =\n", {"caf\xE9 "}, false, "a soft break with a blank before the line end"},
      {"x= \t", {"x"}, false, "a soft break cut short by the end is no complaint"},
      {"=G1", {"\xF1", {bad + "=G1" + part}, 1}, false, "a bad escape still gives a byte"},
      {"=4g", {"\xFF", {bad + "=4g" + part}, 1}, false, "'g' is no hex digit: its 255 joins in"},
      {"a= b\nc",
       {"ac", {"Invalid character 'b' after soft line break" + part.substr(1)}, 0},
       false,
       "the rest of the line is skipped"},
      {"a_b", {"a_b"}, false, "'_' stays in a body"},
      {"my_file=2Epdf", {"my file.pdf"}, true, "'_' is a blank in an encoded word"},
  };
  for (const auto& c : cases) {
    for (std::size_t chunk : kChunks) {
      EXPECT_EQ(coreQuotedPrintable(c.text, chunk, c.encodedWord), c.want)
          << c.why << ", chunk " << chunk;
    }
    for (std::size_t block : kBlocks) {
      for (int pass : {0, 1, 2}) {
        EXPECT_EQ(throughReader(kQuotedPrintable, c.text, block, pass, c.encodedWord), c.want)
            << c.why << ", block " << block << ", pass " << pass;
      }
    }
    EXPECT_EQ(QuotedPrintable::decode(c.text, c.encodedWord), c.want.bytes) << c.why;
  }
}

TEST(BodyReaders, Boundaries) {
  const std::string longLine = "--b" + std::string(10000, 'x') + "\n";
  const struct {
    Kind kind;
    std::string body;
    const char* sentinel;  // the enclosing one is "--OUTER"
    std::string image, stopLine;
    bool emptyAfter, ended;
    const char* complaint;
    const char* rest;  // the next line left in the stream
    const char* why;
  } cases[] = {
      {kBase64, "QU\n--B--\nJD\n", "--b", "", "--B--", false, false, kBase64End, "JD",
       "the boundary line ends the body, without regard to case"},
      {kBase64, "QUJD\n--outer--\nQUJD\n", "--b", "ABC", "--outer--", false, false, kParent, "QUJD",
       "so does the enclosing one, with a complaint"},
      {kQuotedPrintable, "=41\n", "--b", "A\n", "", false, true, kUnterminated, "",
       "no boundary line before the end"},
      {kSkip, "x\n\n--b\nnext\n", "--b", "", "--b", false, false, nullptr, "next",
       "a line with a byte is content"},
      {kSkip, "\n\r\n\n--B--\n", "--b", "", "--B--", true, false, nullptr, "",
       "empty lines are not, nor is the boundary line"},
      {kSkip, " \n--b\n", "--b", "", "--b", false, false, nullptr, "", "a blank is a byte"},
      {kSkip, "\n\n", "--b", "", "", true, true, kUnterminated, "", "no boundary line"},
      {kSkip, longLine, "--b", "", "--b" + std::string(13, 'x'), true, false, nullptr, "",
       "only the head of a long boundary line is kept"},
      {kSkip, "--a\n--\nx", "", "", "", false, true, nullptr, "",
       "a body without boundary has no boundary line, and its end is no complaint"},
      {kSkip, "x\n\nzz\n--outer--\nnext\n", "", "", "--outer--", false, false, kParent, "next",
       "without a boundary of its own, the enclosing one still ends it"},
      {kCapture, "PK\x03\x04\r\nline\n\n--b\n", "--b", "PK\x03\x04\nline\n\n", "--b", false, false,
       nullptr, "", "captured lines keep their line feeds, CR LF as LF"},
  };
  for (const auto& c : cases) {
    for (std::size_t block : kBlocks) {
      scanner::LineReader reader(block);
      reader.openMemory(c.body);
      Sink sink;
      const auto decoder = bodyReader(c.kind, reader, sink, c.sentinel, "--OUTER");
      scanner::ImageBuffer image;
      bool empty = true;
      decoder->skipBody(empty, 16, c.kind == kSkip ? nullptr : &image);
      EXPECT_EQ(std::string(image.view()), c.image) << c.why << ", block " << block;
      EXPECT_EQ(decoder->stopLine(), c.stopLine) << c.why;
      EXPECT_EQ(empty, c.emptyAfter) << c.why;
      EXPECT_EQ(decoder->ended(), c.ended) << c.why;
      EXPECT_EQ(sink.texts, c.complaint ? Set{c.complaint} : Set{}) << c.why;
      EXPECT_EQ(decoder->errors(), c.complaint ? 1 : 0) << c.why;
      std::string_view rest;
      EXPECT_EQ(reader.next(rest) ? rest : "", c.rest) << c.why;
    }
  }
}

TEST(BodyReaders, LineKinds) {
  using Kind = Interface::LineKind;
  scanner::LineReader reader;
  const Skipper inner(reader, nullptr, "--in", "--out", true);
  const Skipper noParent(reader, nullptr, "--in", "--out", false);
  const Skipper unbounded(reader, nullptr, "");
  EXPECT_EQ(inner.classify("--IN--  trailing"), Kind::Stop) << "a prefix, whatever the case";
  EXPECT_EQ(inner.classify("--i"), Kind::Body) << "too short";
  EXPECT_EQ(inner.classify(" --in"), Kind::Body) << "not at the start";
  EXPECT_EQ(inner.classify("--OUT--"), Kind::ParentStop);
  EXPECT_EQ(noParent.classify("--out"), Kind::Body) << "no enclosing boundary to stop at";
  EXPECT_EQ(unbounded.classify("--"), Kind::Body);
  EXPECT_EQ(unbounded.classify(""), Kind::Body);
}

TEST(BodyReaders, ByteInterface) {
  // Asked again after a group without bytes, decoding goes on after it.
  scanner::LineReader reader(3);
  reader.openMemory("QUJD====QUJD\n");
  Base64 decoder(reader, nullptr, "");
  for (int round = 0; round < 2; ++round) {
    std::string bytes;
    for (unsigned char byte; decoder.nextByte(byte);) bytes.push_back(static_cast<char>(byte));
    EXPECT_EQ(bytes, "ABC") << round;
  }
  // Decoded lines end at CR or LF; a CR LF or LF CR pair is one line end.
  scanner::LineReader lines(2);
  lines.openMemory("a=0D=0Ab=0A=0Dc=0D=0D=0Ad\n");
  QuotedPrintable qp(lines, nullptr, "");
  std::vector<std::string> got;
  for (std::string line; qp.readLine(line);) got.push_back(line);
  EXPECT_EQ(got, (std::vector<std::string>{"a", "b", "c", "", "d"}));
}

}  // namespace
