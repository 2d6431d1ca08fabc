// The server's router table applied to an address, pass after pass, as the server would.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "cgp/dataset_file.h"
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

// False when Settings/Router.data does not exist. Rereads both Router.data files (and
// Router.settings) only when a modification time has changed since the last load.
bool loadRouter(ServerData& data = serverData());

[[nodiscard]] EMail route(const EMail& address, ServerData& data = serverData());

// Reads the text of a Router.data file into the two entry lists.
void parseRouterTable(std::string_view text, std::vector<RouterEntry>& addressEntries,
                      std::vector<RouterEntry>& domainEntries);

}  // namespace cgp
