// The corpus writers: the random source, ZIP images read back record by record, the body
// encoders decoded again, and messages whose envelopes the filter must recognise.
#include "bench/corpus_writer.h"

#include <gtest/gtest.h>

#include "bench/message_writer.h"
#include "kvs/ascii.h"
#include "kvs/base64.h"

namespace {

using bench::MessageWriter;

unsigned get16(const std::string& s, std::size_t at) {
  return static_cast<unsigned char>(s[at]) | static_cast<unsigned char>(s[at + 1]) << 8;
}
std::uint32_t get32(const std::string& s, std::size_t at) {
  return get16(s, at) | static_cast<std::uint32_t>(get16(s, at + 2)) << 16;
}

TEST(Random, SequenceIsFixedAndRangesHold) {
  bench::Random zero(0);
  EXPECT_EQ(zero.next(), 0xe220a8397b1dcdafULL);  // splitmix64's published first value
  bench::Random a(42), b(42);
  for (int i = 0; i < 100; ++i) ASSERT_EQ(a.next(), b.next());

  struct Range {
    std::uint64_t low, high;
  };
  for (const Range r : {Range{1, 1}, Range{5, 9}, Range{1024, 8192}, Range{5000, 2500000},
                        Range{18000000, 18000000}, Range{3, 4000000}}) {
    bool sawLow = false;
    for (int i = 0; i < 2000; ++i) {
      const std::uint64_t v = a.logBetween(r.low, r.high);
      ASSERT_GE(v, r.low);
      ASSERT_LE(v, r.high);
      const std::uint64_t u = a.between(r.low, r.high);
      ASSERT_GE(u, r.low);
      ASSERT_LE(u, r.high);
      sawLow = sawLow || v < r.low * 2 || r.low == r.high;
    }
    EXPECT_TRUE(sawLow) << "small sizes never drawn in [" << r.low << ", " << r.high << "]";
  }
}

TEST(Crc32, CheckValues) {
  EXPECT_EQ(bench::crc32(""), 0U);
  EXPECT_EQ(bench::crc32("123456789"), 0xcbf43926U);
  EXPECT_EQ(bench::crc32("The quick brown fox jumps over the lazy dog"), 0x414fa339U);
}

// Reads the image the way an archiver does: end record, central directory, local headers.
TEST(BuildZip, RecordsReadBack) {
  std::vector<bench::ZipEntry> entries;
  for (int i = 0; i < 40; ++i) {
    bench::ZipEntry entry;
    entry.name = i % 10 == 0 ? "dir" + std::to_string(i) + "/" : "f" + std::to_string(i) + ".txt";
    if (!entry.name.ends_with('/')) entry.data = std::string(static_cast<std::size_t>(i * 7), 'x');
    entry.encrypted = i % 7 == 3;
    entries.push_back(entry);
  }
  const std::string image = bench::buildZip(entries);
  ASSERT_EQ(get32(image, 0), 0x04034b50U);
  const std::size_t end = image.size() - 22;
  ASSERT_EQ(get32(image, end), 0x06054b50U);
  ASSERT_EQ(get16(image, end + 8), entries.size());
  ASSERT_EQ(get16(image, end + 10), entries.size());
  std::size_t at = get32(image, end + 16);
  ASSERT_EQ(at + get32(image, end + 12), end);
  for (const bench::ZipEntry& entry : entries) {
    ASSERT_EQ(get32(image, at), 0x02014b50U) << entry.name;
    EXPECT_EQ(get16(image, at + 8) & 1, entry.encrypted ? 1U : 0U) << entry.name;
    const unsigned nameLength = get16(image, at + 28);
    EXPECT_EQ(image.substr(at + 46, nameLength), entry.name);
    EXPECT_EQ(get32(image, at + 16), bench::crc32(entry.data));
    EXPECT_EQ(get32(image, at + 24), entry.data.size());

    const std::size_t local = get32(image, at + 42);
    ASSERT_EQ(get32(image, local), 0x04034b50U) << entry.name;
    EXPECT_EQ(get32(image, local + 14), get32(image, at + 16));
    const std::size_t data = local + 30 + get16(image, local + 26) + get16(image, local + 28) +
                             (entry.encrypted ? 12 : 0);
    EXPECT_EQ(get32(image, local + 18), entry.data.size() + (entry.encrypted ? 12 : 0));
    EXPECT_EQ(image.substr(data, entry.data.size()), entry.data) << entry.name;
    at += 46 + nameLength + get16(image, at + 30) + get16(image, at + 32);
  }
  EXPECT_EQ(at, end);
}

TEST(Base64Lines, RoundTripInFullLines) {
  bench::Random random(7);
  for (std::size_t size = 0; size < 300; ++size) {
    std::string bytes;
    random.appendBytes(bytes, size);
    std::string encoded;
    bench::appendBase64Lines(encoded, bytes);
    EXPECT_EQ(kvs::base64Decode(encoded), bytes) << size;
    std::size_t start = 0;
    while (start < encoded.size()) {
      const std::size_t end = encoded.find('\n', start);
      ASSERT_NE(end, std::string::npos) << "last line without line feed, size " << size;
      const std::size_t length = end - start;
      EXPECT_TRUE(length == 76 || end + 1 == encoded.size()) << size;
      EXPECT_EQ(length % 4, 0U) << size;
      start = end + 1;
    }
  }
}

// Undoes quoted-printable as a reader would: "=XX" escapes, "=" before a line end joins lines.
std::string decodeQuotedPrintable(const std::string& text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '=') {
      out += text[i];
    } else if (text[i + 1] == '\n') {
      ++i;
    } else {
      out += static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
      i += 2;
    }
  }
  return out;
}

TEST(QuotedPrintable, ShortLinesThatDecodeBack) {
  const std::string inputs[] = {
      "",
      "plain words\n",
      "trailing blank \nand tab\t\n",
      "a=b and caf\xc3\xa9 \xff\n",
      std::string(400, 'x') + "\n" + std::string(200, '=') + "\n",
      "no final line feed",
  };
  for (const std::string& input : inputs) {
    std::string encoded;
    bench::appendQuotedPrintable(encoded, input);
    EXPECT_EQ(decodeQuotedPrintable(encoded), input);
    std::size_t start = 0;
    while (start < encoded.size()) {
      const std::size_t end = std::min(encoded.find('\n', start), encoded.size());
      EXPECT_LE(end - start, 76U) << input.substr(0, 20);
      const std::string_view line(encoded.data() + start, end - start);
      EXPECT_FALSE(line.ends_with(' ') || line.ends_with('\t')) << "blank left at a line end";
      start = end + 1;
    }
  }
}

TEST(ExtensionOf, AttachmentNameRule) {
  struct Row {
    const char* name;
    const char* extension;
  };
  const Row rows[] = {{"report.PDF", "pdf"}, {"README", "..."},
                      {"archive.", "..."},   {"x.tar.gz", "gz"},
                      {"photo. jpg", "jpg"}, {"a.PDF ", "pdf"},
                      {"x.p df", "p df"},    {"x.  ", ""},
                      {"data.zipx", "zipx"}, {"dir.v2/readme", "v2/readme"}};
  for (const Row& row : rows) EXPECT_EQ(bench::extensionOf(row.name), row.extension) << row.name;
}

TEST(Expectation, AnswerTextInSetOrder) {
  bench::Expectation expected;
  EXPECT_EQ(expected.answerText(), "X-ExtScanner: Korvantis's Velmora");
  expected.addZip({{"bin/setup.EXE", "", true}, {"docs/", "", false}, {"odd.", "", false}});
  expected.findings.insert("doc");
  expected.emptyBody = true;
  EXPECT_EQ(expected.answerText(),
            "X-AttachExt: doc\\eX-AttachExt: zip.pw\\eX-AttachExt: zip/\\e"
            "X-AttachExt: zip/...\\eX-AttachExt: zip/exe\\eX-EmptyBody: YES\\e"
            "X-ExtScanner: Korvantis's Velmora");
}

// The filter finds the envelope only when the first line has this shape, and takes the message
// to start after the first empty line.
void expectEnvelope(const std::string& bytes) {
  ASSERT_GE(bytes.size(), 3U);
  EXPECT_TRUE(kvs::isUpper(bytes[0]) && bytes[1] == ' ' &&
              (kvs::isAlpha(bytes[2]) || bytes[2] == '<'));
  const std::size_t end = bytes.find(bytes.find('\r') < bytes.find('\n') ? "\r\n\r\n" : "\n\n");
  ASSERT_NE(end, std::string::npos);
  const std::string envelope = bytes.substr(0, end);
  EXPECT_EQ(envelope.find("P I "), 0U);
  EXPECT_NE(envelope.find("\nR W "), std::string::npos);
  EXPECT_NE(bytes.find("MIME-Version: 1.0", end), std::string::npos);
}

TEST(MessageWriter, EveryKindIsQueuedAndRepeatable) {
  using Kind = MessageWriter::Kind;
  MessageWriter::Sizes sizes;
  sizes.attachmentLow = 1000;
  sizes.attachmentHigh = 50000;
  bench::Random first(99), second(99);
  MessageWriter a(first), b(second);
  for (Kind kind :
       {Kind::kPlain, Kind::kAlternative, Kind::kAttachments, Kind::kZip, Kind::kSinglePart,
        Kind::kForward, Kind::kRelated, Kind::kTextFiles, Kind::kEmpty}) {
    for (int i = 0; i < 8; ++i) {
      const MessageWriter::Message message = a.write(kind, sizes);
      ASSERT_EQ(message.bytes, b.write(kind, sizes).bytes);
      SCOPED_TRACE(static_cast<int>(kind));
      expectEnvelope(message.bytes);
      EXPECT_EQ(message.expected.emptyBody, kind == Kind::kEmpty);
      const bool attachments =
          kind != Kind::kPlain && kind != Kind::kAlternative && kind != Kind::kEmpty;
      EXPECT_EQ(message.expected.findings.empty(), !attachments);
      if (kind == Kind::kZip) {
        EXPECT_GT(message.largestZip, 0U);
        EXPECT_TRUE(message.expected.findings.contains("zip") ||
                    message.expected.findings.contains("zipx"));
      }
    }
  }
}

TEST(MessageWriter, SizesAsAsked) {
  bench::Random random(5);
  MessageWriter writer(random);
  for (std::uint64_t size : {1024, 2000, 4096, 8192}) {
    for (int i = 0; i < 30; ++i) {
      const MessageWriter::Message message = writer.writeSmall(size);
      if (message.expected.emptyBody) continue;  // headers only, whatever the size asked
      EXPECT_GT(message.bytes.size(), size * 3 / 4) << size;
      EXPECT_LT(message.bytes.size(), size * 5 / 4) << size;
    }
  }
  const MessageWriter::Message carrier = writer.writeZipCarrier(2000000, 300, true);
  EXPECT_GT(carrier.largestZip, 1500000U);
  EXPECT_LT(carrier.largestZip, 2600000U);
  EXPECT_TRUE(carrier.expected.findings.contains("zip.pw"));
  EXPECT_GT(carrier.bytes.size(), carrier.largestZip * 4 / 3);
}

}  // namespace
