// velmora-tool domains: the domains of a base directory as the domain scan finds them.
#include "cgp/base_directory.h"
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

int listDomains(const ServerOptions& options, cgp::ServerData& data) {
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
}

}  // namespace

int runDomains(const Args& args) {
  return runServerCommand("domains", kHelp, args, false, 0, listDomains);
}

}  // namespace tool
