// The server's base directory: the domain scan, real domain and account names, account and
// mailbox paths, and the domain that owns a server IP address. Lookups never throw; with the
// base-directory trace on they log their steps on the "BaseDir" channel.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace cgp {

void setBaseDirTrace(bool on);
[[nodiscard]] bool baseDirTrace();

// The base directory of a cluster's shared domains (its "SharedDomains" folder is scanned too);
// unset ("") by default.
void setSharedBaseDirectory(const std::string& directory);
[[nodiscard]] std::string sharedBaseDirectory();

// Rebuilds the domain tables, then reads every domain's data files (aliases, forwarders,
// groups, lists, IP addresses).
void scanDomains();

// Replaces `name` with the name of the local domain as the table holds it; "" stands for the
// main domain. An unknown name is left as it is.
void realDomainName(std::string& name);
// Strips "+detail" and then "mailbox#" from an account name.
void realAccountName(std::string& name);
// The account's directory in a local domain, or "".
[[nodiscard]] std::string accountPath(const std::string& account, const std::string& domain);
// The mailbox's file or directory with its suffix, or "".
[[nodiscard]] std::string mailboxPath(const std::string& mailbox, const std::string& account,
                                      const std::string& domain);
// Replaces an IP address text with the domain that owns it, or with the fallback domain.
void domainOfIP(std::string& ip);

// Snapshots of the tables, for listings.
using DomainTable = std::map<std::string, std::string>;  // name -> directory
[[nodiscard]] DomainTable localDomains();
[[nodiscard]] DomainTable sharedDomains();
[[nodiscard]] std::vector<std::pair<std::string, std::string>> domainRecords();
[[nodiscard]] std::map<std::string, std::string> ipTable();  // IP -> domain
[[nodiscard]] std::string fallbackDomain();

}  // namespace cgp
