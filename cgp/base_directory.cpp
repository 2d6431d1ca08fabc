// The base directory: domain scan, real names, account and mailbox paths, domain of an IP.
#include "cgp/base_directory.h"

#include "cgp/domain_data.h"
#include "cgp/server_data.h"
#include "kvs/ascii.h"
#include "kvs/log.h"
#include "kvs/platform/platform.h"

namespace cgp {
namespace {

bool isDirectory(const ServerData& data, const std::string& path) {
  return kvs::platform::pathKind(data.inBase(path)) == kvs::platform::PathKind::Directory;
}
bool isFile(const ServerData& data, const std::string& path) {
  return kvs::platform::pathKind(data.inBase(path)) == kvs::platform::PathKind::File;
}

// Records every directory below `folder` whose name has no upper-case letter.
void scanFolder(ServerData& data, const std::string& folder, const std::string& recordedPrefix,
                std::map<std::string, std::string>& into, const char* what,
                std::vector<std::pair<std::string, std::string>>* records) {
  for (const auto& [name, directory] : data.listDirectory(folder)) {
    // The server names domain directories in lower case; anything else is not a domain.
    if (!directory || kvs::toLower(name) != name) continue;
    const std::string path = recordedPrefix + name;
    into[name] = path;
    if (records) records->emplace_back(name, path);
    data.baseDirTrace(std::string("Found ") + what + " domain " + name + " at " + path);
  }
}

void realDomainNameLocked(ServerData& data, std::string& name) {
  data.baseDirTrace("Searching real domain name for " + name);
  if (name.empty()) {
    const std::string main = mainDomainName(data);
    data.baseDirTrace("Empty string, defaulting to " + main);
    name = main;
    return;
  }
  auto found = data.tables.local.find(name);
  if (found == data.tables.local.end()) {
    data.baseDirTrace("Domain not found");
    return;
  }
  data.baseDirTrace("Domain found: " + found->first);
  name = found->first;
}

// The account directory below a domain directory: directly, then one ".sub" level down.
std::string findAccount(const ServerData& data, const std::string& account,
                        const std::string& domainPath) {
  for (const char* suffix : {".macnt", ".aacnt"}) {
    const std::string path = domainPath + "/" + account + suffix;
    if (isDirectory(data, path)) return path;
  }
  for (const auto& [name, directory] : data.listDirectory(domainPath)) {
    if (!directory || !name.ends_with(".sub")) continue;
    for (const char* suffix : {".macnt", ".aacnt"}) {
      const std::string path = domainPath + "/" + name + "/" + account + suffix;
      if (isDirectory(data, path)) return path;
    }
  }
  return {};
}

std::string accountPathLocked(ServerData& data, const std::string& account,
                              const std::string& domain) {
  auto found = data.tables.local.find(domain);
  if (found == data.tables.local.end()) {
    // An unknown domain is the search's other failure; it keeps the capital letter.
    data.baseDirTrace("Account path Not found");
    return {};
  }
  data.baseDirTrace("Searching for account " + account);
  data.baseDirTrace("path in " + found->second);
  std::string path = findAccount(data, account, found->second);
  if (path.empty()) {
    data.baseDirTrace("Account path not found");
  } else {
    data.baseDirTrace("Account " + account + " path found at " + path);
  }
  return path;
}

}  // namespace

void scanDomains(ServerData& data) {
  kvs::ScopedLock lock(data.tablesLock);
  DomainTables& t = data.tables;
  t.local.clear();
  t.shared.clear();
  t.records.clear();
  t.ips.clear();
  t.fallback.clear();

  const std::string main = mainDomainName(data);
  if (!main.empty()) {
    t.local[main] = "Accounts";
    data.baseDirTrace("Found local domain " + main + " at Accounts");
  }
  scanFolder(data, "Domains", "Domains/", t.local, "local", &t.records);
  scanFolder(data, "SharedDomains", "SharedDomains/", t.shared, "shared", nullptr);
  if (!data.sharedBase.empty()) {
    data.baseDirTrace("Searching in Shared Base " + data.sharedBase);
    const std::string folder = data.sharedBase + "/SharedDomains";
    scanFolder(data, folder, folder + "/", t.shared, "shared", nullptr);
  }
  // SharedDomains/Settings holds the cluster-wide settings, not a domain.
  t.shared.erase("settings");

  for (const auto& [name, path] : t.local) detail::loadDomainDataLocked(data, name, path);
  for (const auto& [name, path] : t.shared) detail::loadDomainDataLocked(data, name, path);
}

void realDomainName(std::string& name, ServerData& data) {
  kvs::ScopedLock lock(data.tablesLock);
  realDomainNameLocked(data, name);
}

void realAccountName(std::string& name, const ServerData& data) {
  data.baseDirTrace("Searching real account name for " + name);
  if (const std::size_t plus = name.find('+'); plus != std::string::npos) {
    data.baseDirTrace("Removing account detail information (account+detail)");
    name.erase(plus);
  }
  if (const std::size_t hash = name.find('#'); hash != std::string::npos) {
    data.baseDirTrace("Removing direct mailbox information (mailbox#account)");
    name.erase(0, hash + 1);
  }
}

std::string accountPath(const std::string& account, const std::string& domain, ServerData& data) {
  kvs::ScopedLock lock(data.tablesLock);
  return accountPathLocked(data, account, domain);
}

// Mailbox names are used as they arrive: no conversion from modified UTF-7.
std::string mailboxPath(const std::string& mailbox, const std::string& account,
                        const std::string& domain, ServerData& data) {
  kvs::ScopedLock lock(data.tablesLock);
  data.baseDirTrace("Searching for real mailbox path of " + mailbox);
  std::string name = domain;
  realDomainNameLocked(data, name);
  if (data.tables.local.count(name) == 0) {
    data.baseDirTrace("Domain not found: " + name);
    return {};
  }
  const std::string accountDir = accountPathLocked(data, account, name);
  if (accountDir.empty()) {
    data.baseDirTrace("Mailbox path not found");
    return {};
  }
  std::string base = accountDir + "/";
  if (mailbox == "INBOX") {
    base += "INBOX";
  } else {
    std::string_view rest = mailbox;
    for (std::size_t slash; (slash = rest.find('/')) != std::string_view::npos;) {
      base.append(rest.substr(0, slash)).append(".folder/");
      rest.remove_prefix(slash + 1);
    }
    base.append(rest);
  }
  const struct {
    const char* suffix;
    bool directory;
  } kinds[] = {{".mdir", true}, {".mbox", false}, {".mslc", true}};
  for (const auto& kind : kinds) {
    const std::string path = base + kind.suffix;
    if (kind.directory ? isDirectory(data, path) : isFile(data, path)) {
      data.baseDirTrace("Mailbox path found: " + path);
      return path;
    }
  }
  data.baseDirTrace("Mailbox path not found");
  return {};
}

void domainOfIP(std::string& ip, ServerData& data) {
  kvs::ScopedLock lock(data.tablesLock);
  data.baseDirTrace("Trying to match IP " + ip + " with a domain name");
  auto found = data.tables.ips.find(ip);
  if (found != data.tables.ips.end()) {
    ip = found->second;
    return;
  }
  data.baseDirTrace.always("No explicitely defined entry found, fallback to " +
                           data.tables.fallback);
  ip = data.tables.fallback;
}

}  // namespace cgp
