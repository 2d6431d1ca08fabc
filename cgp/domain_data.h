// Per-domain data: domain aliases, account aliases, forwarders, groups and mailing lists, read
// from each domain's files and kept up to date by modification time.
#pragma once

#include <string>

#include "cgp/dataset_file.h"
#include "cgp/email.h"

namespace cgp {

// Refreshes every table for one domain whose directory is `path` (relative to the base).
void loadDomainData(const std::string& domain, const std::string& path,
                    ServerData& data = serverData());

// Replaces a forwarder by its target, following forwarders to forwarders at most ten levels
// deep; true when `address` was a forwarder.
bool resolveForwarder(EMail& address, int depth = 0, ServerData& data = serverData());
// Replaces an alias by its account, once; true when `address` was an alias.
bool resolveAlias(EMail& address, ServerData& data = serverData());

[[nodiscard]] bool isGroup(const EMail& address, ServerData& data = serverData());
// A list's own name and its service addresses ("-on", "-subscribe", ... "-report").
[[nodiscard]] bool isListAddress(const EMail& address, ServerData& data = serverData());
// The domain that `alias` is another name of, or "".
[[nodiscard]] std::string domainOfAlias(const std::string& alias, ServerData& data = serverData());

// The start-up lines "(n) Counted Groups", "(n) Counted Forwarders", "(n) Counted Lists".
void logDomainDataCounts(ServerData& data = serverData());

namespace detail {
// loadDomainData for the domain scan, which holds the base-directory lock already.
void loadDomainDataLocked(ServerData& data, const std::string& domain, const std::string& path);
}  // namespace detail

}  // namespace cgp
