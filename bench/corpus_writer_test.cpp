// The benchmark's corpus is the same wherever and however often it is generated: the random
// source is splitmix64, and one seed gives the same messages and expected answers every time.
#include "bench/corpus_writer.h"

#include <gtest/gtest.h>

#include "bench/message_writer.h"

namespace {

using bench::MessageWriter;

TEST(CorpusWriter, OneSeedOneCorpus) {
  EXPECT_EQ(bench::Random(0).next(), 0xe220a8397b1dcdafULL);  // splitmix64's published first value
  using Kind = MessageWriter::Kind;
  MessageWriter::Sizes sizes;
  sizes.attachmentLow = 1000;
  sizes.attachmentHigh = 50000;
  bench::Random first(99), second(99);
  MessageWriter a(first), b(second);
  for (Kind kind :
       {Kind::kPlain, Kind::kAlternative, Kind::kAttachments, Kind::kZip, Kind::kSinglePart,
        Kind::kForward, Kind::kRelated, Kind::kTextFiles, Kind::kEmpty}) {
    for (int i = 0; i < 4; ++i) {
      const MessageWriter::Message x = a.write(kind, sizes), y = b.write(kind, sizes);
      EXPECT_EQ(x.bytes, y.bytes) << static_cast<int>(kind);
      EXPECT_EQ(x.expected.answerText(), y.expected.answerText()) << static_cast<int>(kind);
    }
  }
  EXPECT_EQ(a.writeSmall(4096).bytes, b.writeSmall(4096).bytes);
  EXPECT_EQ(a.writeZipCarrier(100000, 40, true).bytes, b.writeZipCarrier(100000, 40, true).bytes);
  EXPECT_EQ(a.writeDigest(20000).bytes, b.writeDigest(20000).bytes);
}

}  // namespace
