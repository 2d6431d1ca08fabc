// The program's filter.
#include "scanner/attachment_filter.h"

#include <cstdio>

#include "kvs/text.h"

AttachmentFilter::AttachmentFilter() : cgp::ExtFilter(false) {}
AttachmentFilter::~AttachmentFilter() = default;

cgp::Verdict AttachmentFilter::filterMessage(int, const std::string&) {
  // The message walk is not wired in yet: every message gets the scanner line only.
  return {cgp::Verdict::ADDHEADER, {"X-ExtScanner: Korvantis's Velmora"}};
}

int AttachmentFilter::run(int argc, char** argv) {
  std::printf("* Korvantis's Velmora filter v1.2.1b running...\n");
  std::fflush(stdout);
  programDirectory = kvs::directoryOf(argc > 0 && argv[0] ? argv[0] : "");
  commandLoop();
  return 0;
}
