// velmora-tool resolve: the account that an alias or a forwarder stands for.
#include "cgp/base_directory.h"
#include "cgp/domain_data.h"
#include "cgp/email.h"
#include "tools/server_options.h"

namespace tool {
namespace {

const char kHelp[] =
    "usage: velmora-tool resolve [--base DIR] [--shared DIR] [--trace] ADDRESS\n"
    "\n"
    "Prints the address that ADDRESS (ACCOUNT@DOMAIN) stands for: an account alias is replaced\n"
    "by its account (once); otherwise a forwarder is replaced by its target, following\n"
    "forwarders to forwarders at most ten levels deep. Exits with 1 when ADDRESS is neither.\n"
    "\n" VELMORA_SERVER_OPTIONS_HELP;

int resolve(const ServerOptions& options, cgp::ServerData& data) {
  cgp::scanDomains(data);
  cgp::EMail address = cgp::EMail::parse(options.operands[0]);
  if (!cgp::resolveAlias(address, data) && !cgp::resolveForwarder(address, 0, data)) return 1;
  printResult(address.text());
  return 0;
}

}  // namespace

int runResolve(const Args& args) {
  return runServerCommand("resolve", kHelp, args, false, 1, resolve);
}

}  // namespace tool
