// velmora-tool domains: the domains of a base directory as the domain scan finds them.
#include "cgp/base_directory.h"
#include "cgp/dataset_file.h"
#include "cgp/domain_data.h"
#include "tools/server_options.h"

namespace tool {
namespace {

const char kHelp[] =
    "usage: velmora-tool domains [--base DIR] [--shared DIR] [--trace]\n"
    "\n"
    "Scans the base directory's domains and prints one line per finding:\n"
    "  local NAME PATH     the main domain (in Accounts) and each directory of Domains\n"
    "  shared NAME PATH    each directory of SharedDomains (and of the shared base)\n"
    "  alias ALIAS DOMAIN  each other name of a domain (domainAliases.data)\n"
    "  ip ADDRESS DOMAIN   each IP address a domain owns (domain.settings)\n"
    "  fallback DOMAIN     the domain whose IPMode is \"All Available\"\n"
    "Directories whose names hold upper-case letters are not domains. Exits with 1 when no\n"
    "domain is found.\n"
    "\n" VELMORA_SERVER_OPTIONS_HELP;

}  // namespace

int runDomains(const Args& args) {
  ServerOptions options;
  if (int code = prepareServerCommand("domains", kHelp, args, false, 0, options); code >= 0) {
    return code;
  }
  cgp::setBaseDirTrace(options.trace);
  cgp::setDataSetTrace(options.trace);
  cgp::scanDomains();
  if (options.trace) cgp::logDomainDataCounts();
  const auto local = cgp::localDomains();
  const auto shared = cgp::sharedDomains();
  for (const auto& [name, path] : local) printResult("local " + name + " " + path);
  for (const auto& [name, path] : shared) printResult("shared " + name + " " + path);
  for (const auto& [domain, aliases] : cgp::domainAliasTable()) {
    for (const std::string& alias : aliases) printResult("alias " + alias + " " + domain);
  }
  for (const auto& [ip, domain] : cgp::ipTable()) printResult("ip " + ip + " " + domain);
  if (const std::string fallback = cgp::fallbackDomain(); !fallback.empty()) {
    printResult("fallback " + fallback);
  }
  return local.empty() && shared.empty() ? 1 : 0;
}

}  // namespace tool
