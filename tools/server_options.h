// The options shared by the server-data commands of velmora-tool: --base, --shared, --trace,
// --help (and --one-line where a command takes it).
#pragma once

#include <string>
#include <vector>

#include "cgp/server_data.h"
#include "tools/commands.h"

namespace tool {

struct ServerOptions {
  std::string base;    // "" keeps the working directory
  std::string shared;  // the shared base directory, unset by default
  bool trace = false;
  bool help = false;
  bool oneLine = false;
  std::vector<std::string> operands;
};

// Parses the options and prints the help or a usage error (returning its exit code);
// otherwise runs `body` over the server data that --base and --shared name, with every trace
// switch set by --trace, and returns its exit code. `operandCount` is the number of operands
// the command takes.
using ServerCommandBody = int (*)(const ServerOptions& options, cgp::ServerData& data);
int runServerCommand(const char* command, const char* help, const Args& args, bool acceptsOneLine,
                     std::size_t operandCount, ServerCommandBody body);

// Prints the result line (after any "* " log lines) on standard output.
void printResult(const std::string& text);

}  // namespace tool

// The options paragraph of every server-data command's help.
#define VELMORA_SERVER_OPTIONS_HELP                                                           \
  "options:\n"                                                                                \
  "  --base DIR     the server's base directory (default: the working directory)\n"           \
  "  --shared DIR   a cluster's shared base directory, whose SharedDomains are scanned too\n" \
  "  --trace        log the lookup's steps as \"* \" comment lines before the result\n"       \
  "  --help         this text\n"                                                              \
  "\n"                                                                                        \
  "The result is the last line printed; lines before it start with \"* \". A lookup that\n"   \
  "finds nothing prints no result and exits with 1.\n"
