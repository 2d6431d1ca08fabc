// The body decoders and the skipper, each body fed through a reader with tiny blocks as well as
// a large one, and taken out both as a whole and byte by byte.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "scanner/image_buffer.h"
#include "scanner/line_reader.h"
#include "scanner/mime_decoder.h"

namespace {

using Decoder::MIME::Base64;
using Decoder::MIME::Interface;
using Decoder::MIME::QuotedPrintable;
using Decoder::MIME::Skipper;

const std::size_t kBlocks[] = {1, 3, 4096};
const std::size_t kKeep = 16;

const char kIllegal[] = "Found illegal character in base64 stream. Resuming to next.";
const char kBase64End[] = "Unexpected end of file in Base64 decoding.";
const char kQpEnd[] = "Invalid Quoted-Printable MIME ending, missing some characters";
const char kUnterminated[] = "Unterminated MIME sentinel at end of message";
const char kParent[] = "Unterminated MIME sentinel, found parent sentinel";

struct Sink : Decoder::MIME::DiagnosticsSink {
  std::set<std::string> texts;
  void addDiagnostic(const std::string& text) override { texts.insert(text); }
};

struct Case {
  std::string body;  // the raw body lines as they stand in the file
  std::string bytes;
  std::set<std::string> complaints;
  int errors;
  const char* why;
};

// The decoding itself is tested on its own; these rows check what the stream adds: line feeds
// kept or not, groups across lines, complaints at the end of the input.
const Case kBase64Cases[] = {
    {"QUJD\n", "ABC", {}, 0, "one group"},
    {"QU\nJD\r\nQU\n\nJD\n", "ABCABC", {}, 0, "groups across lines"},
    {"QU*JD\n", "ABC", {kIllegal}, 1, "a stranger is dropped"},
    {"QUJ\n", "", {kBase64End}, 1, "an incomplete group at the end"},
    {"QUJD\n====\nQUJD\n", "ABC", {}, 0, "a group without bytes ends the decoding"},
    {"QUJD*\n====\n*QUJ\n", "ABC", {kIllegal}, 1, "nothing is looked at after that group"},
};

const Case kQuotedPrintableCases[] = {
    {"=41", "A", {}, 0, "a last line without line feed"},
    {"=41\n", "A\n", {}, 0, "the line feed the file had is kept"},
    {"a=\r\nb\n", "ab\n", {}, 0, "a soft line break before CR LF"},
    {"=4", "", {kQpEnd}, 1, "an escape cut short by the end"},
    {"caf=E9 =\n", "caf\xE9 ", {}, 0, "a soft break at the end of the last line"},
};

// Decodes `body` (a body without boundary) through each block size: in one pass, with and
// without body text before it (which lets runs of lines through at once), and byte by byte.
template <class DecoderType>
void checkCases(const Case* begin, const Case* end) {
  for (const Case* c = begin; c != end; ++c) {
    for (std::size_t block : kBlocks) {
      for (bool emptyBefore : {true, false}) {
        scanner::LineReader reader(block);
        reader.openMemory(c->body);
        Sink sink;
        DecoderType decoder(reader, &sink, "");
        scanner::ImageBuffer image;
        bool empty = emptyBefore;
        decoder.skipBody(empty, kKeep, &image);
        EXPECT_EQ(std::string(image.view()), c->bytes)
            << c->why << " (whole, block " << block << ")";
        EXPECT_EQ(sink.texts, c->complaints) << c->why;
        EXPECT_EQ(decoder.errors(), c->errors) << c->why;
      }
      scanner::LineReader reader(block);
      reader.openMemory(c->body);
      Sink sink;
      DecoderType decoder(reader, &sink, "");
      std::string bytes;
      unsigned char byte;
      while (decoder.nextByte(byte)) bytes.push_back(static_cast<char>(byte));
      EXPECT_EQ(bytes, c->bytes) << c->why << " (byte by byte, block " << block << ")";
      EXPECT_EQ(sink.texts, c->complaints) << c->why;
      EXPECT_EQ(decoder.errors(), c->errors) << c->why;
    }
  }
}

TEST(Base64, Cases) {
  checkCases<Base64>(std::begin(kBase64Cases), std::end(kBase64Cases));
}

TEST(Base64, CountingGivesTheSizeTheComplaintsAndPlacesToDecodeFrom) {
  // Counted instead of decoded: the size, complaints and first bytes of the decoding, and marks
  // from which decodeFrom gives the rest of its bytes.
  std::string lines;
  for (int i = 0; i < 40; ++i) lines += i % 9 == 4 ? "QU*JD\r\n" : std::string(76, 'Q') + "\n";
  std::vector<std::string> bodies = {lines + "QUJ\n--b\nafter\n", "QQ\n==QUJD\n--b--\n"};
  for (const Case& c : kBase64Cases) bodies.push_back(c.body);
  for (const std::string& body : bodies) {
    for (std::size_t block : kBlocks) {
      for (bool emptyBefore : {true, false}) {
        scanner::LineReader reader(block);
        reader.openMemory(body);
        Sink decodedSink;
        Base64 decoder(reader, &decodedSink, "--b");
        scanner::ImageBuffer image;
        bool empty = emptyBefore;
        decoder.skipBody(empty, kKeep, &image);
        const std::string bytes(image.view());

        reader.seek(0);
        Sink sink;
        Base64 counter(reader, &sink, "--b");
        Base64::Count count;
        count.markEvery = 10;
        counter.countInto(count);
        empty = emptyBefore;
        counter.skipBody(empty, kKeep, &image);
        EXPECT_EQ(image.size(), bytes.size()) << "nothing more written";
        EXPECT_EQ(count.size, bytes.size()) << body;
        EXPECT_EQ(sink.texts, decodedSink.texts) << body;
        EXPECT_EQ(counter.errors(), decoder.errors()) << body;
        EXPECT_EQ(count.head, bytes.substr(0, count.head.size())) << body;
        EXPECT_GE(count.head.size(), std::min<std::size_t>(4, bytes.size())) << body;
        for (const Base64::Mark& mark : count.marks) {
          scanner::ImageBuffer rest;
          Base64::decodeFrom(reader, mark, counter.endsAt(), rest);
          EXPECT_EQ(rest.view(), bytes.substr(mark.image)) << body << " block " << block;
        }
      }
    }
  }
}

TEST(QuotedPrintable, Cases) {
  checkCases<QuotedPrintable>(std::begin(kQuotedPrintableCases), std::end(kQuotedPrintableCases));
}

TEST(Base64, OneShotFollowsTheSameRules) {
  EXPECT_EQ(Base64::decode("cmVwb3J0LmRvY3g="), "report.docx");
  EXPECT_EQ(Base64::decode("QU*J D"), "ABC");
  EXPECT_EQ(Base64::decode("{{{{"), "\xD3\x4D\x34");
  EXPECT_EQ(Base64::decode("QUJ"), "");
  EXPECT_EQ(Base64::decode("QUJD====QUJD"), "ABC");
}

TEST(QuotedPrintable, OneShotInEncodedWordsTurnsUnderscoresIntoBlanks) {
  EXPECT_EQ(QuotedPrintable::decode("my_file=2Epdf"), "my file.pdf");
  EXPECT_EQ(QuotedPrintable::decode("my_file", false), "my_file");
  EXPECT_EQ(QuotedPrintable::decode("=41=4"), "A");
  EXPECT_EQ(QuotedPrintable::decode("=4g"), "\xFF");
  EXPECT_EQ(QuotedPrintable::decode("=4a"), "J");
}

TEST(Base64, AskedAgainAfterAGroupWithoutBytesDecodingGoesOn) {
  scanner::LineReader reader(3);
  reader.openMemory("QUJD====QUJD\n");
  Base64 decoder(reader, nullptr, "");
  std::string first, second;
  unsigned char byte;
  while (decoder.nextByte(byte)) first.push_back(static_cast<char>(byte));
  while (decoder.nextByte(byte)) second.push_back(static_cast<char>(byte));
  EXPECT_EQ(first, "ABC");
  EXPECT_EQ(second, "ABC");
}

TEST(Interface, DecodedLinesFoldLineEndPairs) {
  scanner::LineReader reader(2);
  reader.openMemory("a=0D=0Ab=0A=0Dc=0D=0D=0Ad\n");
  QuotedPrintable decoder(reader, nullptr, "");
  std::vector<std::string> lines;
  std::string line;
  while (decoder.readLine(line)) lines.push_back(line);
  EXPECT_EQ(lines, (std::vector<std::string>{"a", "b", "c", "", "d"}));
}

TEST(Interface, TheBoundaryLineEndsTheBodyAndItsAbsenceIsAComplaint) {
  for (std::size_t block : kBlocks) {
    scanner::LineReader reader(block);
    reader.openMemory("QU\n--B--\nJD\n");
    Sink sink;
    Base64 decoder(reader, &sink, "--b");
    scanner::ImageBuffer image;
    bool empty = true;
    decoder.skipBody(empty, kKeep, &image);
    EXPECT_EQ(decoder.stopLine(), "--B--");
    EXPECT_EQ(sink.texts, std::set<std::string>{kBase64End}) << "the group was cut short";

    scanner::LineReader unended(block);
    unended.openMemory("=41\n");
    Sink sink2;
    QuotedPrintable qp(unended, &sink2, "--b");
    qp.skipBody(empty, kKeep, &image);
    EXPECT_TRUE(qp.ended());
    EXPECT_EQ(qp.errors(), 1);
    EXPECT_EQ(sink2.texts, std::set<std::string>{kUnterminated});
  }
}

TEST(Interface, ParentBoundaryLinesEndTheBodyToo) {
  for (std::size_t block : kBlocks) {
    scanner::LineReader reader(block);
    reader.openMemory("QUJD\n--outer--\nQUJD\n");
    Sink sink;
    Base64 decoder(reader, &sink, "--inner", "--OUTER", true);
    scanner::ImageBuffer image;
    bool empty = true;
    decoder.skipBody(empty, kKeep, &image);
    EXPECT_EQ(std::string(image.view()), "ABC");
    EXPECT_EQ(decoder.stopLine(), "--outer--");
    EXPECT_FALSE(decoder.ended());
    EXPECT_EQ(sink.texts, std::set<std::string>{kParent});
    std::string_view rest;
    ASSERT_TRUE(reader.next(rest)) << "the line after the boundary is left in the stream";
    EXPECT_EQ(rest, "QUJD");
  }
}

TEST(Interface, LineKinds) {
  using Kind = Interface::LineKind;
  scanner::LineReader reader;
  const Skipper inner(reader, nullptr, "--in", "--out", true);
  const Skipper noParent(reader, nullptr, "--in", "--out", false);
  const Skipper unbounded(reader, nullptr, "");
  const struct {
    const Interface& reader;
    std::string_view line;
    Kind kind;
    const char* why;
  } cases[] = {
      {inner, "--in", Kind::Stop, "the boundary line"},
      {inner, "--IN--  trailing", Kind::Stop, "a prefix, without regard to case"},
      {inner, "--i", Kind::Body, "too short"},
      {inner, " --in", Kind::Body, "not at the start"},
      {inner, "--OUT--", Kind::ParentStop, "the enclosing boundary"},
      {noParent, "--out", Kind::Body, "no enclosing boundary to stop at"},
      {unbounded, "--", Kind::Body, "a body without boundary has no boundary line"},
      {unbounded, "", Kind::Body, "an empty line"},
  };
  for (const auto& c : cases) EXPECT_EQ(c.reader.classify(c.line), c.kind) << c.why;
}

TEST(Skipper, ConsumesTheBodyAndKeepsTheBoundaryLine) {
  const struct {
    std::string body;
    bool emptyAfter;
    std::string stopLine;
    bool ended;
    const char* why;
  } cases[] = {
      {"x\n\n--b\nnext\n", false, "--b", false, "a line with a byte is content"},
      {"\n\r\n\n--B--\n", true, "--B--", false, "empty lines are not; the boundary line is not"},
      {" \n--b\n", false, "--b", false, "a blank is a byte"},
      {"\n\n", true, "", true, "no boundary line: the body runs to the end"},
      {"--b" + std::string(10000, 'x') + "\n", true, "--b" + std::string(13, 'x'), false,
       "only the head of a long boundary line is kept"},
  };
  for (const auto& c : cases) {
    for (std::size_t block : kBlocks) {
      scanner::LineReader reader(block);
      reader.openMemory(c.body);
      Sink sink;
      Skipper skipper(reader, &sink, "--b");
      EXPECT_STREQ(skipper.name(), "Sk");
      bool empty = true;
      skipper.skipBody(empty, kKeep);
      EXPECT_EQ(empty, c.emptyAfter) << c.why;
      EXPECT_EQ(skipper.stopLine(), c.stopLine) << c.why;
      EXPECT_EQ(skipper.ended(), c.ended) << c.why;
      EXPECT_EQ(sink.texts.count(kUnterminated), c.ended ? 1u : 0u) << c.why;
    }
  }
}

TEST(Skipper, BodyWithoutBoundaryRunsToTheEndWithoutComplaint) {
  scanner::LineReader reader(3);
  reader.openMemory("--a\n--\nx");
  Sink sink;
  Skipper skipper(reader, &sink, "");
  bool empty = true;
  skipper.skipBody(empty, kKeep);
  EXPECT_TRUE(skipper.ended());
  EXPECT_FALSE(empty);
  EXPECT_TRUE(sink.texts.empty());
}

TEST(Skipper, CapturedRunsOfLinesDecodeLikeSingleLines) {
  // With body text already seen, runs of lines go to the decoder at once; lines beginning with
  // "-" (a stranger to base64) are still looked at one by one.
  std::string body;
  for (int i = 0; i < 300; ++i) body += i % 37 == 5 ? "-QUJD\r\n" : "QUJDQUJDQUJDQUJDQUJD\n";
  body += "--B--\ntrailing\n";
  for (std::size_t block : {std::size_t{3}, std::size_t{64}, std::size_t{4096}}) {
    for (bool emptyBefore : {true, false}) {
      scanner::LineReader reader(block);
      reader.openMemory(body);
      Sink sink;
      Base64 decoder(reader, &sink, "--b");
      scanner::ImageBuffer image;
      bool empty = emptyBefore;
      decoder.skipBody(empty, kKeep, &image);
      std::string want;
      for (int i = 0; i < 300; ++i) want += i % 37 == 5 ? "ABC" : "ABCABCABCABCABC";
      EXPECT_EQ(std::string(image.view()), want) << "block " << block;
      EXPECT_EQ(decoder.errors(), 8) << "one '-' per marked line";
      EXPECT_EQ(decoder.stopLine(), "--B--");
      EXPECT_FALSE(empty);
      std::string_view rest;
      ASSERT_TRUE(reader.next(rest));
      EXPECT_EQ(rest, "trailing");
    }
  }
}

TEST(Skipper, CapturesLinesAsTheyAre) {
  // A ZIP part without transfer encoding: each line with the line feed it had, CR LF as LF.
  scanner::LineReader raw(5);
  raw.openMemory("PK\x03\x04\r\nline\n\n--b\n");
  Sink sink;
  Skipper asIs(raw, &sink, "--b");
  scanner::ImageBuffer image;
  bool empty = true;
  asIs.skipBody(empty, kKeep, &image);
  EXPECT_EQ(std::string(image.view()), "PK\x03\x04\nline\n\n");
  EXPECT_EQ(asIs.stopLine(), "--b");
}

}  // namespace
