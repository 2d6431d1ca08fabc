// velmora-tool scan: the header lines the filter would add to each message file, so that server
// rules can be tried on a message without the server.
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "scanner/attachment_filter.h"
#include "tools/commands.h"

namespace tool {

namespace {

const char kHelp[] =
    "usage: velmora-tool scan FILE...\n"
    "\n"
    "Scans each message file as the filter does (server envelope lines first, if any) and\n"
    "prints the header lines the filter would add, one per line. With several files each line\n"
    "starts with the file's name and \": \".\n"
    "A file that cannot be opened is reported on standard error and the others are still\n"
    "scanned; the exit code is then 1 (2 for a usage error, 0 otherwise).\n";

}  // namespace

int runScan(const Args& args) {
  if (args.empty()) {
    std::fputs(kHelp, stderr);
    return 2;
  }
  if (args.size() == 1 && (args[0] == "--help" || args[0] == "-h")) {
    std::fputs(kHelp, stdout);
    return 0;
  }
  const bool prefix = args.size() > 1;
  MessageScanner scanner;
  int status = 0;
  for (const std::string& file : args) {
    const std::optional<std::vector<std::string>> lines = AttachmentFilter::scan(scanner, file);
    if (!lines) {
      std::fprintf(stderr, "velmora-tool scan: cannot open %s\n", file.c_str());
      status = 1;
      continue;
    }
    for (const std::string& header : *lines) {
      if (prefix) std::printf("%s: ", file.c_str());
      std::printf("%s\n", header.c_str());
    }
  }
  std::fflush(stdout);
  return status;
}

}  // namespace tool
