// Router emulation: the table from Settings/Router.data and SharedDomains/Settings/Router.data,
// the settings from Settings/Router.settings, and the routing passes.
//
// Router.data holds one entry per line: "left = right", ";" starting a comment; blank lines and
// lines without "=" are skipped. A left side in angle brackets is an address entry, any other
// a domain entry. DomainQualifier, ExtendNonQualifiedDomains and GlobalAliases are loaded with
// the table but take no part in a pass.
#include "cgp/router.h"

#include "cgp/base_directory.h"
#include "cgp/dataset_file.h"
#include "cgp/server_data.h"
#include "kvs/ascii.h"
#include "kvs/log.h"
#include "kvs/mutex.h"

namespace cgp {
namespace {

constexpr const char* kMainTable = "Settings/Router.data";
constexpr const char* kSharedTable = "SharedDomains/Settings/Router.data";

// Only blanks and tabs surround a side: the line's final carriage return is gone before the
// trim, and any other byte belongs to the entry.
constexpr std::string_view kBlanks = " \t";

bool unbracket(std::string_view& side) {
  if (side.size() >= 2 && side.front() == '<' && side.back() == '>') {
    side = side.substr(1, side.size() - 2);
    return true;
  }
  return false;
}

void splitAtStar(std::string_view side, std::string& prefix, std::string& suffix, bool& star) {
  const std::size_t at = side.find('*');
  star = at != std::string_view::npos;
  prefix.assign(star ? side.substr(0, at) : side);
  suffix.assign(star ? side.substr(at + 1) : std::string_view());
}

// The replacement when `entry` matches `text`, or nothing.
std::optional<std::string> match(const RouterEntry& entry, const std::string& text) {
  if (!entry.leftStar) {
    if (text != entry.left) return std::nullopt;
    return entry.right;
  }
  const std::string& prefix = entry.leftPrefix;
  if (text.size() < prefix.size() || !kvs::startsWithIgnoreCase(text, prefix)) {
    return std::nullopt;
  }
  // The first occurrence of the suffix decides, as the server's rule does: a later one that
  // would end at the end of the text does not help, and an empty suffix only matches when
  // nothing follows the prefix.
  const std::size_t found = text.find(entry.leftSuffix, prefix.size());
  if (found == std::string::npos || found + entry.leftSuffix.size() != text.size()) {
    return std::nullopt;
  }
  if (!entry.rightStar) return entry.right;
  return entry.rightPrefix + text.substr(prefix.size(), found - prefix.size()) + entry.rightSuffix;
}

// Goes through one entry list; the first match wins.
std::optional<std::string> firstMatch(const ServerData& data,
                                      const std::vector<RouterEntry>& entries,
                                      const std::string& text, const char* what) {
  for (const RouterEntry& entry : entries) {
    data.routerTrace(std::string("Testing ") + what + " entry " + entry.left + " = " + entry.right);
    if (entry.rightStar && !entry.leftStar) {
      data.routerTrace.always("Invalid router entry (<" + entry.left + "> = " + entry.rightPrefix +
                              "*" + entry.rightSuffix +
                              "), check the Router webadmin page of CGPro");
      continue;
    }
    if (auto replacement = match(entry, text)) {
      data.routerTrace("Matched. Replacing by " + *replacement);
      return replacement;
    }
  }
  return std::nullopt;
}

void runPasses(ServerData& data, EMail& address) {
  RouterTable& router = data.router;
  for (;;) {
    if (++router.passes > kMaxRouterPasses) {
      data.routerTrace.always(
          "Internal loop into filter's router. If there's no internal loop into Communigate "
          "Pro router, please contact Korvantis.");
      return;
    }
    if (address.account.empty() && address.domain.empty()) {
      data.routerTrace("Router: Empty address");
      return;
    }
    data.routerTrace("Entering Router Loop " + std::to_string(router.passes));
    data.routerTrace("Trying to route " + address.text());
    if (address.domain == "blacklisted") {
      address = EMail::parse(address.text());
      continue;
    }
    const std::string whole = address.account + "@" + address.domain;
    std::optional<std::string> replacement;
    if (!whole.ends_with("@blacklisted")) {
      replacement = firstMatch(data, router.addressEntries, whole, "address");
      if (replacement) address = EMail::parse(*replacement);
    }
    if (!replacement) {
      replacement = firstMatch(data, router.domainEntries, address.domain, "domain");
      if (!replacement) return;  // nothing matched: the address is final
      address.domain = *replacement;
    }
    // Delivery to a remote server, a local account or a program ends routing; so does an
    // account part that still holds "@".
    const std::string& domain = address.domain;
    if (address.account.find('@') != std::string::npos || domain.ends_with(".smtp") ||
        domain.ends_with(".local") || domain.ends_with(".pipe")) {
      return;
    }
  }
}

}  // namespace

void parseRouterTable(std::string_view text, std::vector<RouterEntry>& addressEntries,
                      std::vector<RouterEntry>& domainEntries) {
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    if (line.ends_with('\r')) line.remove_suffix(1);
    line = line.substr(0, line.find(';'));
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos) continue;
    std::string_view left = kvs::trim(line.substr(0, equals), kBlanks);
    std::string_view right = kvs::trim(line.substr(equals + 1), kBlanks);
    const bool isAddress = unbracket(left);
    unbracket(right);
    RouterEntry entry;
    entry.left.assign(left);
    entry.right.assign(right);
    splitAtStar(left, entry.leftPrefix, entry.leftSuffix, entry.leftStar);
    splitAtStar(right, entry.rightPrefix, entry.rightSuffix, entry.rightStar);
    (isAddress ? addressEntries : domainEntries).push_back(std::move(entry));
  }
}

bool loadRouter(ServerData& data) {
  kvs::ScopedLock lock(data.routerLock);
  RouterTable& router = data.router;
  const std::optional<FileStamp> mainStamp = data.stamp(kMainTable);
  if (!mainStamp) return false;
  const std::optional<FileStamp> sharedStamp = data.stamp(kSharedTable);
  if (router.loaded && mainStamp == router.mainStamp && sharedStamp == router.sharedStamp) {
    return true;
  }
  router.addressEntries.clear();
  router.domainEntries.clear();
  for (const char* file : {kMainTable, kSharedTable}) {
    if (auto text = readWholeFile(file, data)) {
      parseRouterTable(*text, router.addressEntries, router.domainEntries);
    }
  }
  const DataSet settings = loadDataSet("Settings/Router.settings", data);
  router.settings = RouterSettings();
  router.settings.domainQualifier = settings.get("DomainQualifier").getText();
  router.settings.extendNonQualifiedDomains =
      settings.get("ExtendNonQualifiedDomains").getText() == "yes";
  for (const auto& [alias, target] : settings.get("GlobalAliases").entries()) {
    router.settings.globalAliases[alias] = target.getText();
  }
  router.mainStamp = mainStamp;
  router.sharedStamp = sharedStamp;
  router.loaded = true;
  return true;
}

EMail route(const EMail& address, ServerData& data) {
  EMail result = address;
  kvs::ScopedLock lock(data.routerLock);
  data.router.passes = 0;
  try {
    if (result.domain.starts_with('[')) {
      // "[192.0.2.1]" is looked up as "192.0.2.1".
      std::string ip = result.domain.substr(1);
      if (ip.ends_with(']')) ip.pop_back();
      domainOfIP(ip, data);
      result.domain = ip;
    }
    runPasses(data, result);
    if (result.domain.ends_with(".here")) result.domain.resize(result.domain.size() - 5);
  } catch (const std::exception&) {
    // Lookups never throw: an address is returned as far as it got.
  }
  return result;
}

}  // namespace cgp
