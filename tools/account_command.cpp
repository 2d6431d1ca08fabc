// velmora-tool account: the directory of an account.
#include "cgp/base_directory.h"
#include "cgp/email.h"
#include "tools/server_options.h"

namespace tool {
namespace {

const char kHelp[] =
    "usage: velmora-tool account [--base DIR] [--shared DIR] [--trace] ADDRESS\n"
    "\n"
    "Prints the directory of the account that ADDRESS (ACCOUNT@DOMAIN, split at the last \"@\")\n"
    "names, relative to the base directory. The domain is first turned into its real name\n"
    "(no domain means the main domain), then the account name loses a \"+detail\" ending and a\n"
    "\"mailbox#\" beginning. Accounts are ACCOUNT.macnt or ACCOUNT.aacnt directories in a local\n"
    "domain, directly or inside a *.sub folder.\n"
    "\n" VELMORA_SERVER_OPTIONS_HELP;

int findAccount(const ServerOptions& options, cgp::ServerData& data) {
  cgp::scanDomains(data);
  cgp::EMail address = cgp::EMail::parse(options.operands[0]);
  cgp::realDomainName(address.domain, data);
  cgp::realAccountName(address.account, data);
  const std::string path = cgp::accountPath(address.account, address.domain, data);
  if (path.empty()) return 1;
  printResult(path);
  return 0;
}

}  // namespace

int runAccount(const Args& args) {
  return runServerCommand("account", kHelp, args, false, 1, findAccount);
}

}  // namespace tool
