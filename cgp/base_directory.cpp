// The base directory: domain scan, real names, account and mailbox paths, domain of an IP.
#include "cgp/base_directory.h"

#include <algorithm>
#include <atomic>
#include <system_error>

#include "cgp/base_tables.h"
#include "cgp/dataset_file.h"
#include "cgp/domain_data.h"
#include "kvs/ascii.h"
#include "kvs/log.h"
#include "kvs/platform/platform.h"

namespace cgp {
namespace detail {
namespace {
std::atomic<bool> traceOn{false};
}  // namespace

BaseTables& tables() {
  static BaseTables t;
  return t;
}

void trace(const std::string& text) {
  if (traceOn) kvs::logline("BaseDir") << text;
}

void logAlways(const std::string& text) {
  kvs::logline("BaseDir") << text;
}

std::vector<std::pair<std::string, bool>> listDirectory(const std::string& path) {
  namespace fs = std::filesystem;
  std::vector<std::pair<std::string, bool>> entries;
  std::error_code ec;
  fs::directory_iterator it(fs::path(inBase(path)), ec), end;
  for (; !ec && it != end; it.increment(ec)) {
    std::error_code kindError;
    const bool directory = it->is_directory(kindError);
    entries.emplace_back(it->path().filename().string(), directory && !kindError);
  }
  // Directory order differs between file systems; sorted, scans and logs are repeatable.
  std::sort(entries.begin(), entries.end());
  return entries;
}

void domainOfIPLocked(BaseTables& t, std::string& ip) {
  trace("Trying to match IP " + ip + " with a domain name");
  auto found = t.ips.find(ip);
  if (found != t.ips.end()) {
    ip = found->second;
    return;
  }
  logAlways("No explicitely defined entry found, fallback to " + t.fallback);
  ip = t.fallback;
}

}  // namespace detail

namespace {

using detail::BaseTables;
using detail::trace;

bool isDirectory(const std::string& path) {
  return kvs::platform::pathKind(inBase(path)) == kvs::platform::PathKind::Directory;
}
bool isFile(const std::string& path) {
  return kvs::platform::pathKind(inBase(path)) == kvs::platform::PathKind::File;
}

// Records every directory below `folder` whose name has no upper-case letter.
void scanFolder(const std::string& folder, const std::string& recordedPrefix,
                std::map<std::string, std::string>& into, const char* what,
                std::vector<std::pair<std::string, std::string>>* records) {
  for (const auto& [name, directory] : detail::listDirectory(folder)) {
    // The server names domain directories in lower case; anything else is not a domain.
    if (!directory || kvs::toLower(name) != name) continue;
    const std::string path = recordedPrefix + name;
    into[name] = path;
    if (records) records->emplace_back(name, path);
    trace(std::string("Found ") + what + " domain " + name + " at " + path);
  }
}

void realDomainNameLocked(BaseTables& t, std::string& name) {
  trace("Searching real domain name for " + name);
  if (name.empty()) {
    const std::string main = mainDomainName();
    trace("Empty string, defaulting to " + main);
    name = main;
    return;
  }
  auto found = t.local.find(name);
  if (found == t.local.end()) {
    trace("Domain not found");
    return;
  }
  trace("Domain found: " + found->first);
  name = found->first;
}

// The account directory below a domain directory: directly, then one ".sub" level down.
std::string findAccount(const std::string& account, const std::string& domainPath) {
  for (const char* suffix : {".macnt", ".aacnt"}) {
    const std::string path = domainPath + "/" + account + suffix;
    if (isDirectory(path)) return path;
  }
  for (const auto& [name, directory] : detail::listDirectory(domainPath)) {
    if (!directory || name.size() < 4 || name.compare(name.size() - 4, 4, ".sub") != 0) continue;
    for (const char* suffix : {".macnt", ".aacnt"}) {
      const std::string path = domainPath + "/" + name + "/" + account + suffix;
      if (isDirectory(path)) return path;
    }
  }
  return {};
}

std::string accountPathLocked(BaseTables& t, const std::string& account,
                              const std::string& domain) {
  auto found = t.local.find(domain);
  if (found == t.local.end()) {
    // An unknown domain is the search's other failure; it keeps the capital letter.
    trace("Account path Not found");
    return {};
  }
  trace("Searching for account " + account);
  trace("path in " + found->second);
  std::string path = findAccount(account, found->second);
  if (path.empty()) {
    trace("Account path not found");
  } else {
    trace("Account " + account + " path found at " + path);
  }
  return path;
}

}  // namespace

void setBaseDirTrace(bool on) {
  detail::traceOn = on;
}
bool baseDirTrace() {
  return detail::traceOn;
}

void setSharedBaseDirectory(const std::string& directory) {
  BaseTables& t = detail::tables();
  kvs::ScopedLock lock(t.lock);
  t.sharedBase = directory;
}

std::string sharedBaseDirectory() {
  BaseTables& t = detail::tables();
  kvs::ScopedLock lock(t.lock);
  return t.sharedBase;
}

void scanDomains() {
  BaseTables& t = detail::tables();
  kvs::ScopedLock lock(t.lock);
  t.local.clear();
  t.shared.clear();
  t.records.clear();
  t.ips.clear();
  t.fallback.clear();

  const std::string main = mainDomainName();
  if (!main.empty()) {
    t.local[main] = "Accounts";
    trace("Found local domain " + main + " at Accounts");
  }
  scanFolder("Domains", "Domains/", t.local, "local", &t.records);
  scanFolder("SharedDomains", "SharedDomains/", t.shared, "shared", nullptr);
  if (!t.sharedBase.empty()) {
    trace("Searching in Shared Base " + t.sharedBase);
    const std::string folder = t.sharedBase + "/SharedDomains";
    scanFolder(folder, folder + "/", t.shared, "shared", nullptr);
  }
  // SharedDomains/Settings holds the cluster-wide settings, not a domain.
  t.shared.erase("settings");

  for (const auto& [name, path] : t.local) detail::loadDomainDataLocked(t, name, path);
  for (const auto& [name, path] : t.shared) detail::loadDomainDataLocked(t, name, path);
}

void realDomainName(std::string& name) {
  BaseTables& t = detail::tables();
  kvs::ScopedLock lock(t.lock);
  realDomainNameLocked(t, name);
}

void realAccountName(std::string& name) {
  trace("Searching real account name for " + name);
  if (const std::size_t plus = name.find('+'); plus != std::string::npos) {
    trace("Removing account detail information (account+detail)");
    name.erase(plus);
  }
  if (const std::size_t hash = name.find('#'); hash != std::string::npos) {
    trace("Removing direct mailbox information (mailbox#account)");
    name.erase(0, hash + 1);
  }
}

std::string accountPath(const std::string& account, const std::string& domain) {
  BaseTables& t = detail::tables();
  kvs::ScopedLock lock(t.lock);
  return accountPathLocked(t, account, domain);
}

// Mailbox names are used as they arrive: no conversion from modified UTF-7.
std::string mailboxPath(const std::string& mailbox, const std::string& account,
                        const std::string& domain) {
  BaseTables& t = detail::tables();
  kvs::ScopedLock lock(t.lock);
  trace("Searching for real mailbox path of " + mailbox);
  std::string name = domain;
  realDomainNameLocked(t, name);
  if (t.local.count(name) == 0) {
    trace("Domain not found: " + name);
    return {};
  }
  const std::string accountDir = accountPathLocked(t, account, name);
  if (accountDir.empty()) {
    trace("Mailbox path not found");
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
    if (kind.directory ? isDirectory(path) : isFile(path)) {
      trace("Mailbox path found: " + path);
      return path;
    }
  }
  trace("Mailbox path not found");
  return {};
}

void domainOfIP(std::string& ip) {
  BaseTables& t = detail::tables();
  kvs::ScopedLock lock(t.lock);
  detail::domainOfIPLocked(t, ip);
}

DomainTable localDomains() {
  BaseTables& t = detail::tables();
  kvs::ScopedLock lock(t.lock);
  return t.local;
}

DomainTable sharedDomains() {
  BaseTables& t = detail::tables();
  kvs::ScopedLock lock(t.lock);
  return t.shared;
}

std::vector<std::pair<std::string, std::string>> domainRecords() {
  BaseTables& t = detail::tables();
  kvs::ScopedLock lock(t.lock);
  return t.records;
}

std::map<std::string, std::string> ipTable() {
  BaseTables& t = detail::tables();
  kvs::ScopedLock lock(t.lock);
  return t.ips;
}

std::string fallbackDomain() {
  BaseTables& t = detail::tables();
  kvs::ScopedLock lock(t.lock);
  return t.fallback;
}

}  // namespace cgp
