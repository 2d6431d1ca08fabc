// velmora-decoder-bench: the hot loops of a ZIP attachment on their own, from memory: skipping a
// base64 body to its boundary line, decoding it in the same pass (as a ZIP part is), and decoding
// a quoted-printable body. Run by
// hand when working on them (the figures are bytes of encoded body per second):
//   build/bench/bench/velmora-decoder-bench [--benchmark_filter=Base64]
#include <benchmark/benchmark.h>

#include <string>

#include "bench/corpus_writer.h"
#include "scanner/image_buffer.h"
#include "scanner/line_reader.h"
#include "scanner/mime_decoder.h"

namespace {

const char kBoundary[] = "--b1_0123456789abcdef";

// An encoded body of about `size` decoded bytes, followed by its closing boundary line.
std::string base64Body(std::size_t size) {
  bench::Random random(11);
  std::string bytes, body;
  random.appendBytes(bytes, size);
  bench::appendBase64Lines(body, bytes);
  return body + kBoundary + "--\n";
}

std::string quotedPrintableBody(std::size_t size) {
  bench::Random random(12);
  std::string text, body;
  while (text.size() < size) {
    text +=
        "Gr\xc3\xbc\xc3\x9f"
        "e aus Z\xc3\xbcrich, the quarterly report = attached; see page ";
    text += std::to_string(random.below(1000));
    text += random.percent(30) ? "\n" : " ";
  }
  bench::appendQuotedPrintable(body, text);
  return body + kBoundary + "--\n";
}

void Base64Decode(benchmark::State& state) {
  const std::string body = base64Body(static_cast<std::size_t>(state.range(0)));
  scanner::ImageBuffer image;
  for (auto _ : state) {
    scanner::LineReader reader;
    reader.openMemory(body);
    image.clear();
    bool empty = true;
    Decoder::MIME::Base64(reader, nullptr, kBoundary).skipBody(empty, 4096, &image);
    benchmark::DoNotOptimize(image.view().data());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * body.size()));
}
BENCHMARK(Base64Decode)->Arg(64 << 10)->Arg(16 << 20)->Unit(benchmark::kMillisecond);

void Base64Skip(benchmark::State& state) {
  const std::string body = base64Body(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    scanner::LineReader reader;
    reader.openMemory(body);
    Decoder::MIME::Skipper skipper(reader, nullptr, kBoundary);
    bool empty = true;
    skipper.skipBody(empty, 4096);
    benchmark::DoNotOptimize(skipper.stopLine().data());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * body.size()));
}
BENCHMARK(Base64Skip)->Arg(16 << 20)->Unit(benchmark::kMillisecond);

void QuotedPrintableDecode(benchmark::State& state) {
  const std::string body = quotedPrintableBody(static_cast<std::size_t>(state.range(0)));
  scanner::ImageBuffer image;
  for (auto _ : state) {
    scanner::LineReader reader;
    reader.openMemory(body);
    image.clear();
    bool empty = true;
    Decoder::MIME::QuotedPrintable(reader, nullptr, kBoundary).skipBody(empty, 4096, &image);
    benchmark::DoNotOptimize(image.view().data());
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * body.size()));
}
BENCHMARK(QuotedPrintableDecode)->Arg(4 << 20)->Unit(benchmark::kMillisecond);

// Encoded words in attachment names go through the one-shot decoder.
void Base64EncodedWord(benchmark::State& state) {
  const std::string text = "w5xiZXJ3ZWlzdW5nIE5vdmVtYmVyIDIwMjYucGRm";
  for (auto _ : state) benchmark::DoNotOptimize(Decoder::MIME::Base64::decode(text));
}
BENCHMARK(Base64EncodedWord);

}  // namespace

BENCHMARK_MAIN();
