// The server's router table applied to an address, pass after pass, as the server would.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "cgp/email.h"

namespace cgp {

// One line of Router.data. Each side splits at its first "*".
struct RouterEntry {
  std::string left;   // the pattern as written (angle brackets removed)
  std::string right;  // the replacement as written
  std::string leftPrefix, leftSuffix;
  std::string rightPrefix, rightSuffix;
  bool leftStar = false;
  bool rightStar = false;
};

struct RouterSettings {
  std::string domainQualifier;
  bool extendNonQualifiedDomains = false;
  std::map<std::string, std::string> globalAliases;
};

// The most passes one routing makes.
inline constexpr int kMaxRouterPasses = 20;

void setRouterTrace(bool on);
[[nodiscard]] bool routerTrace();

// False when Settings/Router.data does not exist. Rereads both Router.data files (and
// Router.settings) only when a modification time has changed since the last load.
bool loadRouter();
// Forgets the loaded table and its stamps.
void clearRouter();

[[nodiscard]] EMail route(const EMail& address);

// Reads the text of a Router.data file into the two entry lists.
void parseRouterTable(std::string_view text, std::vector<RouterEntry>& addressEntries,
                      std::vector<RouterEntry>& domainEntries);

// Snapshots, for listings and tests.
[[nodiscard]] std::vector<RouterEntry> routerAddressEntries();
[[nodiscard]] std::vector<RouterEntry> routerDomainEntries();
[[nodiscard]] RouterSettings routerSettings();
// Passes made by the last routing.
[[nodiscard]] int routerPassCount();

}  // namespace cgp
