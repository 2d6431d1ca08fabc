// velmora-tool: dispatches to one command per subsystem.
#include <array>
#include <cstdio>
#include <string>

#include "kvs/platform/platform.h"
#include "tools/commands.h"

namespace tool {
namespace {

// One row per command; each command's file defines its run function.
constexpr std::array kCommands{
    Command{"scan", "the header lines the filter would add to each message file", runScan},
    Command{"dataset", "read a dataset text and write it back", runDataset},
    Command{"domains", "list the domains of a base directory", runDomains},
    Command{"account", "find the directory of an account", runAccount},
    Command{"mailbox", "find the file or directory of a mailbox", runMailbox},
    Command{"resolve", "resolve an alias or a forwarder", runResolve},
    Command{"route", "route an address through the router table", runRoute},
    Command{"cli", "send one command to the server's CLI and print its answer", runCli},
    Command{"pop3", "count, fetch or delete messages on a POP3 server", runPop3},
};

int usage(std::FILE* out) {
  std::fprintf(out, "usage: velmora-tool COMMAND [ARGS...]\n\ncommands:\n");
  for (const Command& c : kCommands) std::fprintf(out, "  %-10s %s\n", c.name, c.summary);
  std::fprintf(out, "\n'velmora-tool COMMAND --help' describes one command.\n");
  return out == stdout ? 0 : 2;
}

}  // namespace
}  // namespace tool

int main(int argc, char** argv) {
  kvs::platform::prepareStandardStreams();
  if (argc < 2) return tool::usage(stderr);
  const std::string word = argv[1];
  if (word == "--help" || word == "-h" || word == "help") return tool::usage(stdout);
  for (const tool::Command& c : tool::kCommands) {
    if (word == c.name) return c.run(tool::Args(argv + 2, argv + argc));
  }
  std::fprintf(stderr, "velmora-tool: unknown command '%s'\n", word.c_str());
  return tool::usage(stderr);
}
