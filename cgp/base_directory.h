// The server's base directory: the domain scan, real domain and account names, account and
// mailbox paths, and the domain that owns a server IP address. Lookups never throw; with the
// base-directory trace on they log their steps on the "BaseDir" channel.
#pragma once

#include <string>

#include "cgp/dataset_file.h"

namespace cgp {

// Rebuilds the domain tables, then reads every domain's data files (aliases, forwarders,
// groups, lists, IP addresses).
void scanDomains(ServerData& data = serverData());

// Replaces `name` with the name of the local domain as the table holds it; "" stands for the
// main domain. An unknown name is left as it is.
void realDomainName(std::string& name, ServerData& data = serverData());
// Strips "+detail" and then "mailbox#" from an account name.
void realAccountName(std::string& name, const ServerData& data = serverData());
// The account's directory in a local domain, or "".
[[nodiscard]] std::string accountPath(const std::string& account, const std::string& domain,
                                      ServerData& data = serverData());
// The mailbox's file or directory with its suffix, or "".
[[nodiscard]] std::string mailboxPath(const std::string& mailbox, const std::string& account,
                                      const std::string& domain, ServerData& data = serverData());
// Replaces an IP address text with the domain that owns it, or with the fallback domain.
void domainOfIP(std::string& ip, ServerData& data = serverData());

}  // namespace cgp
