// The options shared by the server-data commands of velmora-tool: --base, --shared, --trace,
// --help (and --one-line where a command takes it).
#pragma once

#include <string>
#include <vector>

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

// False (with `error` set) on an unknown option or a missing option value.
bool parseServerOptions(const Args& args, bool acceptsOneLine, ServerOptions& options,
                        std::string& error);

// Points the library at the base directory and the shared base directory.
void applyServerOptions(const ServerOptions& options);

// Parses, prints the help or a usage error; returns -1 when the command should go on, else
// the exit code. `operandCount` is the number of operands the command takes.
int prepareServerCommand(const char* command, const char* help, const Args& args,
                         bool acceptsOneLine, std::size_t operandCount, ServerOptions& options);

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
