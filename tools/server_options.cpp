// Option parsing shared by the server-data commands.
#include "tools/server_options.h"

#include <cstdio>
#include <filesystem>
#include <system_error>

#include "kvs/log.h"

namespace tool {

namespace {

// False (with `error` set) on an unknown option or a missing option value.
bool parseServerOptions(const Args& args, bool acceptsOneLine, ServerOptions& options,
                        std::string& error) {
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    auto value = [&](const char* name, std::string& into) {
      const std::string flag = std::string("--") + name;
      if (arg.rfind(flag + "=", 0) == 0) {
        into = arg.substr(flag.size() + 1);
        return true;
      }
      if (arg != flag) return false;
      if (i + 1 == args.size()) {
        error = flag + " needs a directory";
        return true;
      }
      into = args[++i];
      return true;
    };
    if (value("base", options.base) || value("shared", options.shared)) {
      if (!error.empty()) return false;
    } else if (arg == "--trace") {
      options.trace = true;
    } else if (arg == "--help" || arg == "-h") {
      options.help = true;
    } else if (acceptsOneLine && arg == "--one-line") {
      options.oneLine = true;
    } else if (arg == "--") {
      options.operands.insert(options.operands.end(), args.begin() + i + 1, args.end());
      break;
    } else if (arg.size() > 1 && arg[0] == '-') {
      error = "unknown option '" + arg + "'";
      return false;
    } else {
      options.operands.push_back(arg);
    }
  }
  return true;
}

// The library reads relative paths below the base directory; the shared base is named
// relative to where the tool was started.
std::string sharedBaseOf(const ServerOptions& options) {
  if (options.shared.empty()) return {};
  std::error_code ec;
  const auto absolute = std::filesystem::absolute(options.shared, ec);
  return ec ? options.shared : absolute.string();
}

}  // namespace

int runServerCommand(const char* command, const char* help, const Args& args, bool acceptsOneLine,
                     std::size_t operandCount, ServerCommandBody body) {
  ServerOptions options;
  std::string error;
  if (!parseServerOptions(args, acceptsOneLine, options, error)) {
    std::fprintf(stderr, "velmora-tool %s: %s\n\n%s", command, error.c_str(), help);
    return 2;
  }
  if (options.help) {
    std::fputs(help, stdout);
    return 0;
  }
  if (options.operands.size() != operandCount) {
    std::fprintf(stderr, "velmora-tool %s: expected %zu argument%s\n\n%s", command, operandCount,
                 operandCount == 1 ? "" : "s", help);
    return 2;
  }
  cgp::ServerData data(options.base, sharedBaseOf(options));
  for (cgp::TraceSwitch* trace : {&data.dataSetTrace, &data.baseDirTrace, &data.routerTrace}) {
    trace->set(options.trace);
  }
  return body(options, data);
}

void printResult(const std::string& text) {
  kvs::outline() << text;
}

}  // namespace tool
