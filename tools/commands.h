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

// velmora-tool scan FILE...: the header lines the filter would add to each message.
int scanCommand(const Args& args);

}  // namespace tool
