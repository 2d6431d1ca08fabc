// The option parser of velmora-tool's commands: a table of options, read in one of two styles.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/commands.h"

namespace tool {

struct Option {
  std::string_view name;  // "--host"
  // What the option's value is, for the message when it is missing ("a value"); empty for a
  // flag, which takes no value.
  std::string_view value;
  // Takes the value ("" for a flag); false refuses it, after saying why on standard error.
  std::function<bool(const std::string& value)> take;
};

// An option that sets `into` to true, and one that stores its value in `into`.
[[nodiscard]] Option flag(std::string_view name, bool& into);
[[nodiscard]] Option text(std::string_view name, std::string_view value, std::string& into);

enum class OptionStyle {
  // Options and operands in any order. "--" ends the options, "--name=value" gives a value, an
  // unknown "-..." is refused where it stands, and --help is answered once all are read.
  Mixed,
  // Options first: the first argument that does not start with "--" begins the operands. Any
  // other "--..." takes a value, so an unknown one is refused only once its value is read;
  // --help is answered where it stands.
  Leading,
};

struct OptionRules {
  const char* command;  // the command word, for the messages
  const char* help;     // the command's help text, printed whole
  OptionStyle style;
  std::vector<Option> options;  // besides --help and -h, which every command takes
};

// Reads the options of `args` and appends the operands to `operands`. Returns nothing when the
// command goes on; else the exit code once the help (0) or a usage error (2) is printed.
[[nodiscard]] std::optional<int> parseOptions(const OptionRules& rules, const Args& args,
                                              Args& operands);

// Prints "velmora-tool COMMAND: MESSAGE" and the help on standard error; returns 2.
int usageError(const OptionRules& rules, const std::string& message);

}  // namespace tool
