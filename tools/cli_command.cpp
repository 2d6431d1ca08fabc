// velmora-tool cli: sends one administration command through a CLI session and prints the
// answer's dataset, or the session's error.
#include <cstdio>
#include <iostream>
#include <string>

#include "access/cli_session.h"
#include "cgp/dataset_text.h"
#include "kvs/ascii.h"
#include "tools/commands.h"
#include "tools/options.h"

namespace tool {
namespace {

const char kCliUsage[] = R"(usage: velmora-tool cli [--host H] [--port P] [--user U] [--password W]
                        [--login plain|digest|webuser] COMMAND [ARG...]

Logs in to the server's CLI (default 127.0.0.1:106, digest login), sends COMMAND with
its arguments joined by blanks (datasets in the server's text notation), and prints the
answer's data in the multi-line form. A refused command prints "CLI module reported: "
with the server's text and code, and exits with 1.
)";

void printDataSet(const cgp::DataSet& value) {
  std::string text = cgp::writeDataSet(value, false);
  if (text.starts_with('\n')) text.erase(0, 1);
  if (!text.empty()) std::cout << text << '\n';
}

}  // namespace

int runCli(const Args& args) {
  cgp::CLISettings settings = cgp::CLISession::settings();
  const auto port = [&settings](const std::string& value) {
    const kvs::LeadingNumber n = kvs::leadingNumber(value, 65535);
    if (n.digits != value.size() || n.over || n.value == 0) {
      std::fprintf(stderr, "velmora-tool cli: bad port '%s'\n", value.c_str());
      return false;
    }
    settings.port = static_cast<std::uint16_t>(n.value);
    return true;
  };
  const auto login = [&settings](const std::string& value) {
    if (value == "plain") {
      settings.loginMethod = cgp::CLISession::kPlain;
    } else if (value == "digest") {
      settings.loginMethod = cgp::CLISession::kDigest;
    } else if (value == "webuser") {
      settings.loginMethod = cgp::CLISession::kWebUser;
    } else {
      std::fprintf(stderr, "velmora-tool cli: unknown login method '%s'\n", value.c_str());
      return false;
    }
    return true;
  };
  const OptionRules rules{"cli",
                          kCliUsage,
                          OptionStyle::Leading,
                          {text("--host", "a value", settings.host),
                           {"--port", "a value", port},
                           text("--user", "a value", settings.user),
                           text("--password", "a value", settings.password),
                           {"--login", "a value", login}}};
  Args words;
  if (const std::optional<int> stop = parseOptions(rules, args, words)) return *stop;
  if (words.empty()) {
    std::fputs(kCliUsage, stderr);
    return 2;
  }
  std::string line = words[0];
  const cgp::CLISession::CommandInfo* known = cgp::CLISession::findCommand(words[0]);
  for (std::size_t i = 1; i < words.size(); ++i) line += " " + words[i];

  bool loggedIn = false;
  try {
    cgp::CLISession session(settings.host, settings.port, settings.user, settings.password,
                            settings.loginMethod);
    loggedIn = true;
    if (known != nullptr && known->returnsData) {
      printDataSet(session.query(line));
    } else {
      // A command this tool does not know may still answer with inline data.
      session.execute(line);
      if (session.lastCode() == 201) printDataSet(cgp::parseDataSet(session.lastData()));
    }
    return 0;
  } catch (const cgp::CLIException& e) {
    std::cerr << cgp::CLISession::describe(e) << "\ncode " << e.getCode() << '\n';
  } catch (const kvs::Exception& e) {
    std::cerr << cgp::CLISession::describe(e) << '\n';
    if (!loggedIn) std::cerr << "Unable to use CLI, please verify your settings\n";
  } catch (const std::exception& e) {
    std::cerr << "Unhandled error\n";
  }
  return 1;
}

}  // namespace tool
