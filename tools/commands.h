// The commands of velmora-tool. Each takes its own arguments (after the command word) and
// returns the process exit code.
#pragma once

#include <string>
#include <vector>

namespace tool {

using Args = std::vector<std::string>;

struct Command {
  const char* name;
  const char* summary;  // one line for the general help
  int (*run)(const Args& args);
};

// The message scanner: tools/scan_command.cpp.
int runScan(const Args& args);

// Server data (cgp): tools/server_commands.cpp.
int runDataset(const Args& args);
int runDomains(const Args& args);
int runAccount(const Args& args);
int runMailbox(const Args& args);
int runResolve(const Args& args);
int runRoute(const Args& args);

// Server access: tools/cli_command.cpp and tools/pop3_command.cpp.
int runCli(const Args& args);
int runPop3(const Args& args);

}  // namespace tool
