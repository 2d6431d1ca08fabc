// The fuzz targets, one per parser. Each takes any bytes and must return without a crash, a
// sanitizer report or a broken invariant (which aborts). libFuzzer calls them through
// fuzz_entry.cpp; the replay test calls them on every saved input in the ordinary build.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace fuzzing {

using Target = int (*)(const std::uint8_t* data, std::size_t size);

int messageWalker(const std::uint8_t* data, std::size_t size);
int zipDirectory(const std::uint8_t* data, std::size_t size);
int transferDecoders(const std::uint8_t* data, std::size_t size);
int attachmentNames(const std::uint8_t* data, std::size_t size);
int datasetReader(const std::uint8_t* data, std::size_t size);
int cliAnswer(const std::uint8_t* data, std::size_t size);
int pop3Retrieve(const std::uint8_t* data, std::size_t size);
int requestLine(const std::uint8_t* data, std::size_t size);

struct NamedTarget {
  std::string_view name;  // also the folder of its seeds, dictionary and saved inputs
  Target run;
};

inline constexpr NamedTarget kTargets[] = {
    {"message_walker", messageWalker},       {"zip_directory", zipDirectory},
    {"transfer_decoders", transferDecoders}, {"attachment_names", attachmentNames},
    {"dataset_reader", datasetReader},       {"cli_answer", cliAnswer},
    {"pop3_retrieve", pop3Retrieve},         {"request_line", requestLine},
};

}  // namespace fuzzing
