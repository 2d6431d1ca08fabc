// The program's filter.
#include "scanner/attachment_filter.h"

#include <cstdio>

#include "kvs/log.h"
#include "kvs/platform/platform.h"

AttachmentFilter::AttachmentFilter() : cgp::ExtFilter(false) {}
AttachmentFilter::~AttachmentFilter() = default;

std::optional<std::vector<std::string>> AttachmentFilter::scan(MessageScanner& scanner,
                                                               const std::string& path) {
  if (!scanner.open(path)) return std::nullopt;
  std::string line;
  while (scanner.readLine(line)) {
  }
  scanner.close();
  std::vector<std::string> lines;
  lines.reserve(scanner.results().size() + 2);
  for (const std::string& finding : scanner.results()) lines.push_back("X-AttachExt: " + finding);
  if (scanner.emptyBody()) lines.emplace_back("X-EmptyBody: YES");
  lines.emplace_back("X-ExtScanner: Korvantis's Velmora");
  return lines;
}

cgp::Verdict AttachmentFilter::filterMessage(int, const std::string& path) {
  // The path is handed on as a C string: it ends at its first NUL byte.
  std::optional<std::vector<std::string>> lines = scan(messageScanner_, path.c_str());
  if (!lines) {
    // The file went away (or was locked) after the engine's own check: accept the message.
    kvs::outline() << "* Unexpected error, contact Korvantis";
    return {cgp::Verdict::OK, {}};
  }
  return {cgp::Verdict::ADDHEADER, std::move(*lines)};
}

int AttachmentFilter::run(int argc, char** argv) {
  std::printf("* Korvantis's Velmora filter v1.2.1b running...\n");
  std::fflush(stdout);
  programDirectory = kvs::platform::directoryOf(argc > 0 && argv[0] ? argv[0] : "");
  commandLoop();
  return 0;
}
