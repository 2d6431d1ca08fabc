// Domain aliases, account aliases, forwarders, groups, lists and IP addresses of each domain.
//
// File layouts: domainAliases.data is an array of names, aliases.data a dictionary alias ->
// account, forwarders.data a dictionary name -> target address, groups.data a dictionary (its
// keys) or an array of group names; every LISTS entry ending in ".list" is a list. Only the two
// alias files are guarded by their modification times; the others are read at every load.
#include "cgp/domain_data.h"

#include <system_error>

#include "cgp/base_tables.h"
#include "cgp/dataset_file.h"
#include "kvs/log.h"

namespace cgp {
namespace {

using detail::BaseTables;
using detail::trace;

constexpr const char* kListEndings[] = {"-on",      "-off",    "-subscribe", "-unsubscribe",
                                        "-feed",    "-digest", "-index",     "-null",
                                        "-confirm", "-admin",  "-request",   "-report"};

// The names a dataset holds: an array's texts, a dictionary's keys, or a lone text.
std::vector<std::string> namesOf(const DataSet& value) {
  std::vector<std::string> names;
  if (value.isText()) names.push_back(value.getText());
  for (const DataSet& element : value.elements()) {
    if (element.isText()) names.push_back(element.getText());
  }
  for (const auto& [key, unused] : value.entries()) names.push_back(key);
  return names;
}

enum class Freshness { Missing, UpToDate, Changed };

// Compares a file's modification time with its stamp; `mtime` receives the new time.
Freshness freshness(BaseTables& t, const std::string& path,
                    std::filesystem::file_time_type& mtime) {
  std::error_code ec;
  mtime = std::filesystem::last_write_time(std::filesystem::path(inBase(path)), ec);
  if (ec) return Freshness::Missing;
  auto stamp = t.stamps.find(path);
  return stamp != t.stamps.end() && stamp->second == mtime ? Freshness::UpToDate
                                                           : Freshness::Changed;
}

void loadDomainAliases(BaseTables& t, const std::string& domain, const std::string& path) {
  const std::string file = path + "/Settings/domainAliases.data";
  trace("Searching Aliases for domain " + domain + " in file " + file);
  std::filesystem::file_time_type mtime;
  switch (freshness(t, file, mtime)) {
    case Freshness::UpToDate:
      trace("Domain alias data already up-to-date");
      return;
    case Freshness::Missing:
      trace("No alias for domain " + domain);
      t.domainAliases.erase(domain);
      t.stamps.erase(file);
      return;
    case Freshness::Changed:
      break;
  }
  auto& table = t.domainAliases[domain];
  table.clear();
  for (const std::string& alias : namesOf(loadDataSet(file))) {
    trace("Found alias " + alias + " for domain " + domain);
    table.insert(alias);
  }
  t.stamps[file] = mtime;
}

void loadAccountAliases(BaseTables& t, const std::string& domain, const std::string& path) {
  const std::string file = path + "/Settings/aliases.data";
  trace("Searching Account Aliases for domain " + domain + " in file " + file);
  std::filesystem::file_time_type mtime;
  switch (freshness(t, file, mtime)) {
    case Freshness::UpToDate:
      trace("Account alias data already up-to-date");
      return;
    case Freshness::Missing:
      trace("No account alias for domain " + domain);
      t.aliases.erase(domain);
      t.stamps.erase(file);
      return;
    case Freshness::Changed:
      break;
  }
  auto& table = t.aliases[domain];
  table.clear();
  const DataSet data = loadDataSet(file);  // must outlive the loop over its entries
  for (const auto& [alias, account] : data.entries()) {
    if (!account.isText()) continue;
    trace("Found account alias " + alias + " for account " + account.getText());
    table[alias] = account.getText();
  }
  t.stamps[file] = mtime;
}

void loadAddresses(BaseTables& t, const std::string& domain, const std::string& path) {
  trace("Checking valid IPs for domain " + domain);
  const DataSet settings = loadDataSet(path + "/Settings/domain.settings");
  for (const std::string& ip : namesOf(settings.get("IPAddresses"))) {
    trace("Found IP: " + ip);
    t.ips[ip] = domain;
  }
  if (settings.get("IPMode").getText() == "All Available") t.fallback = domain;
}

void loadForwardersAndGroups(BaseTables& t, const std::string& domain, const std::string& path) {
  auto& forwarders = t.forwarders[domain];
  forwarders.clear();
  const DataSet data = loadDataSet(path + "/Settings/forwarders.data");
  for (const auto& [name, target] : data.entries()) {
    if (target.isText()) forwarders[name] = EMail::parse(target.getText());
  }
  auto& groups = t.groups[domain];
  groups.clear();
  for (const std::string& name : namesOf(loadDataSet(path + "/Settings/groups.data"))) {
    groups.insert(name);
  }
}

void loadLists(BaseTables& t, const std::string& domain, const std::string& path) {
  auto& lists = t.lists[domain];
  auto& names = t.listNames[domain];
  lists.clear();
  names.clear();
  for (const auto& [entry, unusedKind] : detail::listDirectory(path + "/LISTS")) {
    if (entry.size() <= 5 || entry.compare(entry.size() - 5, 5, ".list") != 0) continue;
    const std::string name = entry.substr(0, entry.size() - 5);
    names.insert(name);
    lists.insert(name);
    for (const char* ending : kListEndings) lists.insert(name + ending);
  }
}

// Follows forwarders; the lock is held by the caller.
bool resolveForwarderLocked(BaseTables& t, EMail& address, int depth) {
  auto domain = t.forwarders.find(address.domain);
  if (domain == t.forwarders.end()) {
    trace("Account not found in forwarders list");
    return false;
  }
  auto forwarder = domain->second.find(address.account);
  if (forwarder == domain->second.end()) {
    trace("Domain found, account is not an forwarder: " + address.account);
    return false;
  }
  address.account = forwarder->second.account;
  if (!forwarder->second.domain.empty()) address.domain = forwarder->second.domain;
  if (depth >= 10) {
    trace("Forwarder loop found, skipping: " + address.text());
  } else {
    resolveForwarderLocked(t, address, depth + 1);
  }
  trace("Account found: " + address.text());
  return true;
}

bool inTable(const std::map<std::string, std::set<std::string>>& table, const EMail& address) {
  auto domain = table.find(address.domain);
  return domain != table.end() && domain->second.count(address.account) != 0;
}

std::size_t countAll(const std::map<std::string, std::set<std::string>>& table) {
  std::size_t n = 0;
  for (const auto& [domain, names] : table) n += names.size();
  return n;
}

}  // namespace

namespace detail {
void loadDomainDataLocked(BaseTables& t, const std::string& domain, const std::string& path) {
  loadDomainAliases(t, domain, path);
  loadAccountAliases(t, domain, path);
  loadAddresses(t, domain, path);
  loadForwardersAndGroups(t, domain, path);
  loadLists(t, domain, path);
}
}  // namespace detail

void loadDomainData(const std::string& domain, const std::string& path) {
  BaseTables& t = detail::tables();
  kvs::ScopedLock lock(t.lock);
  detail::loadDomainDataLocked(t, domain, path);
}

bool resolveForwarder(EMail& address, int depth) {
  BaseTables& t = detail::tables();
  kvs::ScopedLock lock(t.lock);
  return resolveForwarderLocked(t, address, depth);
}

bool resolveAlias(EMail& address) {
  BaseTables& t = detail::tables();
  kvs::ScopedLock lock(t.lock);
  auto domain = t.aliases.find(address.domain);
  if (domain == t.aliases.end()) {
    trace("Account not found in aliases list");
    return false;
  }
  auto alias = domain->second.find(address.account);
  if (alias == domain->second.end()) {
    trace("Domain found, account is not an alias: " + address.account);
    return false;
  }
  const EMail target = EMail::parse(alias->second);
  address.account = target.account;
  if (!target.domain.empty()) address.domain = target.domain;
  trace("Account found: " + address.text());
  return true;
}

bool isGroup(const EMail& address) {
  BaseTables& t = detail::tables();
  kvs::ScopedLock lock(t.lock);
  return inTable(t.groups, address);
}

bool isListAddress(const EMail& address) {
  BaseTables& t = detail::tables();
  kvs::ScopedLock lock(t.lock);
  return inTable(t.lists, address);
}

std::string domainOfAlias(const std::string& alias) {
  BaseTables& t = detail::tables();
  kvs::ScopedLock lock(t.lock);
  for (const auto& [domain, names] : t.domainAliases) {
    if (names.count(alias)) return domain;
  }
  return {};
}

std::map<std::string, std::set<std::string>> domainAliasTable() {
  BaseTables& t = detail::tables();
  kvs::ScopedLock lock(t.lock);
  return t.domainAliases;
}

std::size_t countGroups() {
  BaseTables& t = detail::tables();
  kvs::ScopedLock lock(t.lock);
  return countAll(t.groups);
}

std::size_t countForwarders() {
  BaseTables& t = detail::tables();
  kvs::ScopedLock lock(t.lock);
  std::size_t n = 0;
  for (const auto& [domain, names] : t.forwarders) n += names.size();
  return n;
}

std::size_t countLists() {
  BaseTables& t = detail::tables();
  kvs::ScopedLock lock(t.lock);
  return countAll(t.listNames);
}

void logDomainDataCounts() {
  kvs::logline() << "(" << countGroups() << ") Counted Groups";
  kvs::logline() << "(" << countForwarders() << ") Counted Forwarders";
  kvs::logline() << "(" << countLists() << ") Counted Lists";
}

void clearDomainData() {
  BaseTables& t = detail::tables();
  kvs::ScopedLock lock(t.lock);
  t.domainAliases.clear();
  t.aliases.clear();
  t.forwarders.clear();
  t.groups.clear();
  t.lists.clear();
  t.listNames.clear();
  t.stamps.clear();
}

}  // namespace cgp
