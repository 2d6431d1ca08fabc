// Domain aliases, account aliases, forwarders, groups, lists and IP addresses of each domain.
//
// File layouts: domainAliases.data is an array of names, aliases.data a dictionary alias ->
// account, forwarders.data a dictionary name -> target address, groups.data a dictionary (its
// keys) or an array of group names; every LISTS entry ending in ".list" is a list. Only the two
// alias files are guarded by their modification times; the others are read at every load.
#include "cgp/domain_data.h"

#include "cgp/server_data.h"
#include "kvs/log.h"

namespace cgp {
namespace {

constexpr const char* kListEndings[] = {"-on",      "-off",    "-subscribe", "-unsubscribe",
                                        "-feed",    "-digest", "-index",     "-null",
                                        "-confirm", "-admin",  "-request",   "-report"};

using AddressTable = std::map<std::string, std::map<std::string, EMail>>;

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

// Rereads an alias file into the domain's entry of `table` only when the file's modification
// time differs from its stamp; a missing file empties that entry.
template <class Table, class Fill>
void refreshAliasFile(ServerData& data, Table& table, const std::string& domain,
                      const std::string& file, const char* upToDateLine,
                      const std::string& missingLine, Fill fill) {
  auto& stamps = data.tables.stamps;
  const std::optional<FileStamp> mtime = data.stamp(file);
  if (!mtime) {
    data.baseDirTrace(missingLine);
    table.erase(domain);
    stamps.erase(file);
    return;
  }
  if (auto stamp = stamps.find(file); stamp != stamps.end() && stamp->second == *mtime) {
    data.baseDirTrace(upToDateLine);
    return;
  }
  auto& entries = table[domain];
  entries.clear();
  fill(entries, loadDataSet(file, data));
  stamps[file] = *mtime;
}

void loadAliases(ServerData& data, const std::string& domain, const std::string& path) {
  const std::string domainFile = path + "/Settings/domainAliases.data";
  data.baseDirTrace("Searching Aliases for domain " + domain + " in file " + domainFile);
  refreshAliasFile(data, data.tables.domainAliases, domain, domainFile,
                   "Domain alias data already up-to-date", "No alias for domain " + domain,
                   [&](std::set<std::string>& names, const DataSet& value) {
                     for (const std::string& alias : namesOf(value)) {
                       data.baseDirTrace("Found alias " + alias + " for domain " + domain);
                       names.insert(alias);
                     }
                   });
  const std::string accountFile = path + "/Settings/aliases.data";
  data.baseDirTrace("Searching Account Aliases for domain " + domain + " in file " + accountFile);
  refreshAliasFile(
      data, data.tables.aliases, domain, accountFile, "Account alias data already up-to-date",
      "No account alias for domain " + domain,
      [&](std::map<std::string, EMail>& aliases, const DataSet& value) {
        for (const auto& [alias, account] : value.entries()) {
          if (!account.isText()) continue;
          data.baseDirTrace("Found account alias " + alias + " for account " + account.getText());
          aliases[alias] = EMail::parse(account.getText());
        }
      });
}

void loadAddresses(ServerData& data, const std::string& domain, const std::string& path) {
  data.baseDirTrace("Checking valid IPs for domain " + domain);
  const DataSet settings = loadDataSet(path + "/Settings/domain.settings", data);
  for (const std::string& ip : namesOf(settings.get("IPAddresses"))) {
    data.baseDirTrace("Found IP: " + ip);
    data.tables.ips[ip] = domain;
  }
  if (settings.get("IPMode").getText() == "All Available") data.tables.fallback = domain;
}

void loadForwardersAndGroups(ServerData& data, const std::string& domain, const std::string& path) {
  auto& forwarders = data.tables.forwarders[domain];
  forwarders.clear();
  const DataSet targets = loadDataSet(path + "/Settings/forwarders.data", data);
  for (const auto& [name, target] : targets.entries()) {
    if (target.isText()) forwarders[name] = EMail::parse(target.getText());
  }
  auto& groups = data.tables.groups[domain];
  groups.clear();
  for (const std::string& name : namesOf(loadDataSet(path + "/Settings/groups.data", data))) {
    groups.insert(name);
  }
}

void loadLists(ServerData& data, const std::string& domain, const std::string& path) {
  auto& lists = data.tables.lists[domain];
  auto& names = data.tables.listNames[domain];
  lists.clear();
  names.clear();
  for (const auto& [entry, unusedKind] : data.listDirectory(path + "/LISTS")) {
    if (entry.size() <= 5 || !entry.ends_with(".list")) continue;
    const std::string name = entry.substr(0, entry.size() - 5);
    names.insert(name);
    lists.insert(name);
    for (const char* ending : kListEndings) lists.insert(name + ending);
  }
}

// Replaces an address found in an alias or forwarder table by its target; a target without a
// domain part stays in the address's domain.
bool replaceFrom(const ServerData& data, const AddressTable& table, EMail& address,
                 const char* tableName, const char* kind) {
  auto domain = table.find(address.domain);
  if (domain == table.end()) {
    data.baseDirTrace(std::string("Account not found in ") + tableName + " list");
    return false;
  }
  auto target = domain->second.find(address.account);
  if (target == domain->second.end()) {
    data.baseDirTrace(std::string("Domain found, account is not an ") + kind + ": " +
                      address.account);
    return false;
  }
  address.account = target->second.account;
  if (!target->second.domain.empty()) address.domain = target->second.domain;
  return true;
}

bool resolveForwarderLocked(ServerData& data, EMail& address, int depth) {
  if (!replaceFrom(data, data.tables.forwarders, address, "forwarders", "forwarder")) {
    return false;
  }
  if (depth >= 10) {
    data.baseDirTrace("Forwarder loop found, skipping: " + address.text());
  } else {
    resolveForwarderLocked(data, address, depth + 1);
  }
  data.baseDirTrace("Account found: " + address.text());
  return true;
}

bool inTable(const std::map<std::string, std::set<std::string>>& table, const EMail& address) {
  auto domain = table.find(address.domain);
  return domain != table.end() && domain->second.count(address.account) != 0;
}

template <class Table>
std::size_t countAll(const Table& table) {
  std::size_t n = 0;
  for (const auto& [domain, names] : table) n += names.size();
  return n;
}

}  // namespace

void detail::loadDomainDataLocked(ServerData& data, const std::string& domain,
                                  const std::string& path) {
  loadAliases(data, domain, path);
  loadAddresses(data, domain, path);
  loadForwardersAndGroups(data, domain, path);
  loadLists(data, domain, path);
}

void loadDomainData(const std::string& domain, const std::string& path, ServerData& data) {
  kvs::ScopedLock lock(data.tablesLock);
  detail::loadDomainDataLocked(data, domain, path);
}

bool resolveForwarder(EMail& address, int depth, ServerData& data) {
  kvs::ScopedLock lock(data.tablesLock);
  return resolveForwarderLocked(data, address, depth);
}

bool resolveAlias(EMail& address, ServerData& data) {
  kvs::ScopedLock lock(data.tablesLock);
  if (!replaceFrom(data, data.tables.aliases, address, "aliases", "alias")) return false;
  data.baseDirTrace("Account found: " + address.text());
  return true;
}

bool isGroup(const EMail& address, ServerData& data) {
  kvs::ScopedLock lock(data.tablesLock);
  return inTable(data.tables.groups, address);
}

bool isListAddress(const EMail& address, ServerData& data) {
  kvs::ScopedLock lock(data.tablesLock);
  return inTable(data.tables.lists, address);
}

std::string domainOfAlias(const std::string& alias, ServerData& data) {
  kvs::ScopedLock lock(data.tablesLock);
  for (const auto& [domain, names] : data.tables.domainAliases) {
    if (names.count(alias)) return domain;
  }
  return {};
}

void logDomainDataCounts(ServerData& data) {
  kvs::ScopedLock lock(data.tablesLock);
  kvs::logline() << "(" << countAll(data.tables.groups) << ") Counted Groups";
  kvs::logline() << "(" << countAll(data.tables.forwarders) << ") Counted Forwarders";
  kvs::logline() << "(" << countAll(data.tables.listNames) << ") Counted Lists";
}

}  // namespace cgp
