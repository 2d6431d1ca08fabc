// velmora-tool route: an address as the server's router table rewrites it.
#include <cstdio>

#include "cgp/base_directory.h"
#include "cgp/email.h"
#include "cgp/router.h"
#include "tools/server_options.h"

namespace tool {
namespace {

const char kHelp[] =
    "usage: velmora-tool route [--base DIR] [--shared DIR] [--trace] ADDRESS\n"
    "\n"
    "Prints ADDRESS (ACCOUNT@DOMAIN) as the router table (Settings/Router.data, then\n"
    "SharedDomains/Settings/Router.data) rewrites it, pass after pass, at most 20 passes. A\n"
    "domain \"[IP]\" is first replaced by the domain that owns the IP, and a final \".here\" is\n"
    "removed. Exits with 1 when there is no Settings/Router.data.\n"
    "\n" VELMORA_SERVER_OPTIONS_HELP;

int routeAddress(const ServerOptions& options, cgp::ServerData& data) {
  cgp::scanDomains(data);
  if (!cgp::loadRouter(data)) {
    std::fprintf(stderr, "velmora-tool route: no %s\n",
                 data.inBase("Settings/Router.data").c_str());
    return 1;
  }
  printResult(cgp::route(cgp::EMail::parse(options.operands[0]), data).text());
  return 0;
}

}  // namespace

int runRoute(const Args& args) {
  return runServerCommand("route", kHelp, args, false, 1, routeAddress);
}

}  // namespace tool
