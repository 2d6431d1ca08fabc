// velmora-tool's server-data commands: dataset, domains, account, mailbox, resolve, route. They
// share their options (--base DIR, --shared DIR, --trace) and their output: "* " log lines,
// then the result as the last line; a lookup that finds nothing prints no result and exits
// with 1.
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <system_error>

#include "cgp/base_directory.h"
#include "cgp/dataset_file.h"
#include "cgp/dataset_text.h"
#include "cgp/domain_data.h"
#include "cgp/email.h"
#include "cgp/router.h"
#include "cgp/server_data.h"
#include "kvs/log.h"
#include "tools/commands.h"
#include "tools/options.h"

namespace tool {
namespace {

struct ServerOptions {
  std::string base;    // "" keeps the working directory
  std::string shared;  // the shared base directory, unset by default
  bool trace = false;
  bool oneLine = false;
  Args operands;
};

using Body = int (*)(const ServerOptions& options, cgp::ServerData& data);

// The library reads relative paths below the base directory; the shared base is named
// relative to where the tool was started.
std::string sharedBaseOf(const ServerOptions& options) {
  if (options.shared.empty()) return {};
  std::error_code ec;
  const auto absolute = std::filesystem::absolute(options.shared, ec);
  return ec ? options.shared : absolute.string();
}

// Parses the options and prints the help or a usage error (returning its exit code);
// otherwise runs `body` over the server data that --base and --shared name, with every trace
// switch set by --trace, and returns its exit code. `operandCount` is the number of operands
// the command takes.
int runServerCommand(const char* command, const char* help, bool acceptsOneLine,
                     std::size_t operandCount, const Args& args, Body body) {
  ServerOptions options;
  OptionRules rules{
      command,
      help,
      OptionStyle::Mixed,
      {text("--base", "a directory", options.base), text("--shared", "a directory", options.shared),
       flag("--trace", options.trace)}};
  if (acceptsOneLine) rules.options.push_back(flag("--one-line", options.oneLine));
  if (const std::optional<int> stop = parseOptions(rules, args, options.operands)) return *stop;
  if (options.operands.size() != operandCount) {
    return usageError(rules, "expected " + std::to_string(operandCount) + " argument" +
                                 (operandCount == 1 ? "" : "s"));
  }
  cgp::ServerData data(options.base, sharedBaseOf(options));
  for (cgp::TraceSwitch* trace : {&data.dataSetTrace, &data.baseDirTrace, &data.routerTrace}) {
    trace->set(options.trace);
  }
  return body(options, data);
}

// Prints the result line (after any "* " log lines) on standard output.
void printResult(const std::string& text) {
  kvs::outline() << text;
}

// A path found is the result; none found is exit code 1.
int printPath(const std::string& path) {
  if (path.empty()) return 1;
  printResult(path);
  return 0;
}

// The options paragraph of every command's help but dataset's.
#define VELMORA_SERVER_OPTIONS_HELP                                                           \
  "options:\n"                                                                                \
  "  --base DIR     the server's base directory (default: the working directory)\n"           \
  "  --shared DIR   a cluster's shared base directory, whose SharedDomains are scanned too\n" \
  "  --trace        log the lookup's steps as \"* \" comment lines before the result\n"       \
  "  --help         this text\n"                                                              \
  "\n"                                                                                        \
  "The result is the last line printed; lines before it start with \"* \". A lookup that\n"   \
  "finds nothing prints no result and exits with 1.\n"

const char kDatasetHelp[] =
    R"(usage: velmora-tool dataset [--one-line] [--base DIR] [--trace] FILE|-

Reads a dataset in the server's text notation from FILE (below the base directory when
FILE is relative and --base is given) or from standard input (-), and writes it back:
the multi-line form, or with --one-line the one-line form. A syntax error prints the
parser's "* while parsing ..." line and exits with 1; so does a file that cannot be read.

  --one-line     write the one-line form
  --base DIR     read FILE relative to DIR
  --trace        log the file's loading on the "Dataset" channel
  --help         this text
)";

const char kDomainsHelp[] = R"(usage: velmora-tool domains [--base DIR] [--shared DIR] [--trace]

Scans the base directory's domains and prints one line per finding:
  local NAME PATH     the main domain (in Accounts) and each directory of Domains
  shared NAME PATH    each directory of SharedDomains (and of the shared base)
  alias ALIAS DOMAIN  each other name of a domain (domainAliases.data)
  ip ADDRESS DOMAIN   each IP address a domain owns (domain.settings)
  fallback DOMAIN     the domain whose IPMode is "All Available"
Directories whose names hold upper-case letters are not domains. Exits with 1 when no
domain is found.

)" VELMORA_SERVER_OPTIONS_HELP;

const char kAccountHelp[] =
    R"(usage: velmora-tool account [--base DIR] [--shared DIR] [--trace] ADDRESS

Prints the directory of the account that ADDRESS (ACCOUNT@DOMAIN, split at the last "@")
names, relative to the base directory. The domain is first turned into its real name
(no domain means the main domain), then the account name loses a "+detail" ending and a
"mailbox#" beginning. Accounts are ACCOUNT.macnt or ACCOUNT.aacnt directories in a local
domain, directly or inside a *.sub folder.

)" VELMORA_SERVER_OPTIONS_HELP;

const char kMailboxHelp[] =
    R"(usage: velmora-tool mailbox [--base DIR] [--shared DIR] [--trace] ACCOUNT@DOMAIN MAILBOX

Prints the path of MAILBOX of the account, relative to the base directory: INBOX, or a
name whose "/"-separated folders become NAME.folder directories, found as NAME.mdir,
NAME.mbox or NAME.mslc, in that order. The domain is turned into its real name first.

)" VELMORA_SERVER_OPTIONS_HELP;

const char kResolveHelp[] =
    R"(usage: velmora-tool resolve [--base DIR] [--shared DIR] [--trace] ADDRESS

Prints the address that ADDRESS (ACCOUNT@DOMAIN) stands for: an account alias is replaced
by its account (once); otherwise a forwarder is replaced by its target, following
forwarders to forwarders at most ten levels deep. Exits with 1 when ADDRESS is neither.

)" VELMORA_SERVER_OPTIONS_HELP;

const char kRouteHelp[] = R"(usage: velmora-tool route [--base DIR] [--shared DIR] [--trace] ADDRESS

Prints ADDRESS (ACCOUNT@DOMAIN) as the router table (Settings/Router.data, then
SharedDomains/Settings/Router.data) rewrites it, pass after pass, at most 20 passes. A
domain "[IP]" is first replaced by the domain that owns the IP, and a final ".here" is
removed. Exits with 1 when there is no Settings/Router.data.

)" VELMORA_SERVER_OPTIONS_HELP;

}  // namespace

int runDataset(const Args& args) {
  const auto rewrite = [](const ServerOptions& options, cgp::ServerData& data) {
    const std::string& source = options.operands[0];
    const std::size_t errorsBefore = cgp::parseErrorCount();
    cgp::DataSet value;
    if (source == "-") {
      const std::string text((std::istreambuf_iterator<char>(std::cin)),
                             std::istreambuf_iterator<char>());
      value = cgp::parseDataSetText(text, data);
    } else {
      if (!cgp::readWholeFile(source, data)) {
        std::fprintf(stderr, "velmora-tool dataset: cannot read %s\n", data.inBase(source).c_str());
        return 1;
      }
      value = cgp::loadDataSet(source, data);
    }
    if (cgp::parseErrorCount() != errorsBefore) return 1;
    if (value.isEmpty()) return 0;  // an empty text is an empty value: nothing to write
    std::string written = cgp::writeDataSet(value, options.oneLine);
    // The multi-line form opens arrays and dictionaries with a line change; a file does not
    // start with an empty line.
    if (written.starts_with('\n')) written.erase(0, 1);
    printResult(written);
    return 0;
  };
  return runServerCommand("dataset", kDatasetHelp, true, 1, args, rewrite);
}

int runDomains(const Args& args) {
  const auto list = [](const ServerOptions& options, cgp::ServerData& data) {
    cgp::scanDomains(data);
    if (options.trace) cgp::logDomainDataCounts(data);
    const cgp::DomainTables tables = data.domainTables();
    for (const auto& [name, path] : tables.local) printResult("local " + name + " " + path);
    for (const auto& [name, path] : tables.shared) printResult("shared " + name + " " + path);
    for (const auto& [domain, aliases] : tables.domainAliases) {
      for (const std::string& alias : aliases) printResult("alias " + alias + " " + domain);
    }
    for (const auto& [ip, domain] : tables.ips) printResult("ip " + ip + " " + domain);
    if (!tables.fallback.empty()) printResult("fallback " + tables.fallback);
    return tables.local.empty() && tables.shared.empty() ? 1 : 0;
  };
  return runServerCommand("domains", kDomainsHelp, false, 0, args, list);
}

int runAccount(const Args& args) {
  const auto find = [](const ServerOptions& options, cgp::ServerData& data) {
    cgp::scanDomains(data);
    cgp::EMail address = cgp::EMail::parse(options.operands[0]);
    cgp::realDomainName(address.domain, data);
    cgp::realAccountName(address.account, data);
    return printPath(cgp::accountPath(address.account, address.domain, data));
  };
  return runServerCommand("account", kAccountHelp, false, 1, args, find);
}

int runMailbox(const Args& args) {
  const auto find = [](const ServerOptions& options, cgp::ServerData& data) {
    cgp::scanDomains(data);
    const cgp::EMail address = cgp::EMail::parse(options.operands[0]);
    return printPath(cgp::mailboxPath(options.operands[1], address.account, address.domain, data));
  };
  return runServerCommand("mailbox", kMailboxHelp, false, 2, args, find);
}

int runResolve(const Args& args) {
  const auto resolve = [](const ServerOptions& options, cgp::ServerData& data) {
    cgp::scanDomains(data);
    cgp::EMail address = cgp::EMail::parse(options.operands[0]);
    if (!cgp::resolveAlias(address, data) && !cgp::resolveForwarder(address, 0, data)) return 1;
    printResult(address.text());
    return 0;
  };
  return runServerCommand("resolve", kResolveHelp, false, 1, args, resolve);
}

int runRoute(const Args& args) {
  const auto route = [](const ServerOptions& options, cgp::ServerData& data) {
    cgp::scanDomains(data);
    if (!cgp::loadRouter(data)) {
      std::fprintf(stderr, "velmora-tool route: no %s\n",
                   data.inBase("Settings/Router.data").c_str());
      return 1;
    }
    printResult(cgp::route(cgp::EMail::parse(options.operands[0]), data).text());
    return 0;
  };
  return runServerCommand("route", kRouteHelp, false, 1, args, route);
}

}  // namespace tool
