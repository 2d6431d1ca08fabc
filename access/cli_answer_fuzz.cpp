// Fuzz entry point for the CLI answer parser: any bytes either parse or raise one of the
// protocol errors; nothing else may happen. Built with -DVELMORA_FUZZ=ON and clang.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "access/cli_session.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  try {
    const cgp::CLIAnswer answer =
        cgp::CLISession::parseAnswer(std::string_view(reinterpret_cast<const char*>(data), size));
    if (answer.code == 0) __builtin_trap();
  } catch (const kvs::ProtocolException&) {
  }
  return 0;
}
