// velmora-tool cli: sends one administration command through a CLI session and prints the
// answer's dataset, or the session's error.
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>

#include "access/cli_session.h"
#include "cgp/dataset_text.h"
#include "tools/commands.h"

namespace tool {
namespace {

const char* const kCliUsage =
    "usage: velmora-tool cli [--host H] [--port P] [--user U] [--password W]\n"
    "                        [--login plain|digest|webuser] COMMAND [ARG...]\n"
    "\n"
    "Logs in to the server's CLI (default 127.0.0.1:106, digest login), sends COMMAND with\n"
    "its arguments joined by blanks (datasets in the server's text notation), and prints the\n"
    "answer's data in the multi-line form. A refused command prints \"CLI module reported: \"\n"
    "with the server's text and code, and exits with 1.\n";

void printDataSet(const cgp::DataSet& value) {
  std::string text = cgp::writeDataSet(value, false);
  if (!text.empty() && text.front() == '\n') text.erase(0, 1);
  if (!text.empty()) std::cout << text << '\n';
}

}  // namespace

int runCli(const Args& args) {
  cgp::CLISettings settings = cgp::CLISession::settings();
  std::size_t i = 0;
  for (; i < args.size(); ++i) {
    const std::string& a = args[i];
    if (a == "--help" || a == "-h") {
      std::fputs(kCliUsage, stdout);
      return 0;
    }
    if (a.rfind("--", 0) != 0) break;
    if (i + 1 >= args.size()) {
      std::fprintf(stderr, "velmora-tool cli: %s needs a value\n%s", a.c_str(), kCliUsage);
      return 2;
    }
    const std::string& value = args[++i];
    if (a == "--host") {
      settings.host = value;
    } else if (a == "--port") {
      const unsigned long port = std::strtoul(value.c_str(), nullptr, 10);
      if (port == 0 || port > 65535 || value.find_first_not_of("0123456789") != std::string::npos) {
        std::fprintf(stderr, "velmora-tool cli: bad port '%s'\n", value.c_str());
        return 2;
      }
      settings.port = static_cast<std::uint16_t>(port);
    } else if (a == "--user") {
      settings.user = value;
    } else if (a == "--password") {
      settings.password = value;
    } else if (a == "--login") {
      if (value == "plain") {
        settings.loginMethod = cgp::CLISession::kPlain;
      } else if (value == "digest") {
        settings.loginMethod = cgp::CLISession::kDigest;
      } else if (value == "webuser") {
        settings.loginMethod = cgp::CLISession::kWebUser;
      } else {
        std::fprintf(stderr, "velmora-tool cli: unknown login method '%s'\n", value.c_str());
        return 2;
      }
    } else {
      std::fprintf(stderr, "velmora-tool cli: unknown option '%s'\n%s", a.c_str(), kCliUsage);
      return 2;
    }
  }
  if (i >= args.size()) {
    std::fputs(kCliUsage, stderr);
    return 2;
  }
  std::string line = args[i];
  const cgp::CLISession::CommandInfo* known = cgp::CLISession::findCommand(args[i]);
  for (++i; i < args.size(); ++i) line += " " + args[i];

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
