// The option parser of velmora-tool's commands.
#include "tools/options.h"

#include <cstdio>

namespace tool {

Option flag(std::string_view name, bool& into) {
  return {name, {}, [&into](const std::string&) { return into = true; }};
}

Option text(std::string_view name, std::string_view value, std::string& into) {
  return {name, value, [&into](const std::string& given) {
            into = given;
            return true;
          }};
}

int usageError(const OptionRules& rules, const std::string& message) {
  // The mixed style's commands set their help apart from the message by an empty line.
  std::fprintf(stderr, "velmora-tool %s: %s\n%s%s", rules.command, message.c_str(),
               rules.style == OptionStyle::Mixed ? "\n" : "", rules.help);
  return 2;
}

std::optional<int> parseOptions(const OptionRules& rules, const Args& args, Args& operands) {
  const bool mixed = rules.style == OptionStyle::Mixed;
  const auto find = [&rules](std::string_view name) -> const Option* {
    for (const Option& option : rules.options) {
      if (option.name == name) return &option;
    }
    return nullptr;
  };
  bool help = false;
  std::size_t i = 0;
  for (; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (arg == "--help" || arg == "-h") {
      if (mixed) {
        help = true;
        continue;
      }
      std::fputs(rules.help, stdout);
      return 0;
    }
    if (mixed && arg == "--") {
      ++i;
      break;
    }
    if (mixed ? arg.size() < 2 || arg[0] != '-' : !arg.starts_with("--")) {
      if (!mixed) break;
      operands.push_back(arg);
      continue;
    }
    const std::size_t equals = mixed ? arg.find('=') : std::string::npos;
    const Option* option = find(std::string_view(arg).substr(0, equals));
    const bool isFlag = option != nullptr && option->value.empty();
    if (isFlag && equals == std::string::npos) {
      option->take({});
      continue;
    }
    if (mixed && (option == nullptr || isFlag)) {
      return usageError(rules, "unknown option '" + arg + "'");
    }
    std::string value;
    if (equals != std::string::npos) {
      value = arg.substr(equals + 1);
    } else if (i + 1 == args.size()) {
      const std::string_view needs = option != nullptr ? option->value : "a value";
      return usageError(rules, arg + " needs " + std::string(needs));
    } else {
      value = args[++i];
    }
    if (option == nullptr) return usageError(rules, "unknown option '" + arg + "'");
    if (!option->take(value)) return 2;
  }
  operands.insert(operands.end(), args.begin() + static_cast<std::ptrdiff_t>(i), args.end());
  if (!help) return std::nullopt;
  std::fputs(rules.help, stdout);
  return 0;
}

}  // namespace tool
