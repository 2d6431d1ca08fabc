// Per-domain data: domain aliases, account aliases, forwarders, groups and mailing lists, read
// from each domain's files and kept up to date by modification time.
#pragma once

#include <cstddef>
#include <map>
#include <set>
#include <string>

#include "cgp/email.h"

namespace cgp {

// Refreshes every table for one domain whose directory is `path` (relative to the base).
void loadDomainData(const std::string& domain, const std::string& path);

// Replaces a forwarder by its target, following forwarders to forwarders at most ten levels
// deep; true when `address` was a forwarder.
bool resolveForwarder(EMail& address, int depth = 0);
// Replaces an alias by its account, once; true when `address` was an alias.
bool resolveAlias(EMail& address);

[[nodiscard]] bool isGroup(const EMail& address);
// A list's own name and its service addresses ("-on", "-subscribe", ... "-report").
[[nodiscard]] bool isListAddress(const EMail& address);
// The domain that `alias` is another name of, or "".
[[nodiscard]] std::string domainOfAlias(const std::string& alias);
[[nodiscard]] std::map<std::string, std::set<std::string>> domainAliasTable();

[[nodiscard]] std::size_t countGroups();
[[nodiscard]] std::size_t countForwarders();
[[nodiscard]] std::size_t countLists();
// The start-up lines "(n) Counted Groups", "(n) Counted Forwarders", "(n) Counted Lists".
void logDomainDataCounts();

// Forgets every table and file stamp (for a fresh start on another base directory).
void clearDomainData();

}  // namespace cgp
