// Router emulation: the table from Settings/Router.data and SharedDomains/Settings/Router.data,
// the settings from Settings/Router.settings, and the routing passes.
//
// Router.data holds one entry per line: "left = right", ";" starting a comment; blank lines and
// lines without "=" are skipped. A left side in angle brackets is an address entry, any other
// a domain entry. DomainQualifier, ExtendNonQualifiedDomains and GlobalAliases are loaded with
// the table but take no part in a pass.
#include "cgp/router.h"

#include <atomic>
#include <filesystem>
#include <optional>
#include <system_error>

#include "cgp/base_directory.h"
#include "cgp/dataset_file.h"
#include "kvs/ascii.h"
#include "kvs/log.h"
#include "kvs/mutex.h"

namespace cgp {
namespace {

using Stamp = std::optional<std::filesystem::file_time_type>;

struct RouterState {
  kvs::MutexInterface lock;
  bool loaded = false;
  Stamp mainStamp, sharedStamp;
  std::vector<RouterEntry> addressEntries, domainEntries;
  RouterSettings settings;
  int passes = 0;
};

RouterState& state() {
  static RouterState s;
  return s;
}

std::atomic<bool> traceOn{false};

constexpr const char* kMainTable = "Settings/Router.data";
constexpr const char* kSharedTable = "SharedDomains/Settings/Router.data";

void trace(const std::string& text) {
  if (traceOn) kvs::logline("Router") << text;
}
void logAlways(const std::string& text) {
  kvs::logline("Router") << text;
}

std::string_view trimBlanks(std::string_view s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
  while (!s.empty() && (s.back() == ' ' || s.back() == '\t')) s.remove_suffix(1);
  return s;
}

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

bool endsWith(std::string_view text, std::string_view ending) {
  return text.size() >= ending.size() && text.substr(text.size() - ending.size()) == ending;
}

Stamp stampOf(const std::string& path) {
  std::error_code ec;
  auto time = std::filesystem::last_write_time(std::filesystem::path(inBase(path)), ec);
  if (ec) return std::nullopt;
  return time;
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
std::optional<std::string> firstMatch(const std::vector<RouterEntry>& entries,
                                      const std::string& text, const char* what) {
  for (const RouterEntry& entry : entries) {
    trace(std::string("Testing ") + what + " entry " + entry.left + " = " + entry.right);
    if (entry.rightStar && !entry.leftStar) {
      logAlways("Invalid router entry (<" + entry.left + "> = " + entry.rightPrefix + "*" +
                entry.rightSuffix + "), check the Router webadmin page of CGPro");
      continue;
    }
    if (auto replacement = match(entry, text)) {
      trace("Matched. Replacing by " + *replacement);
      return replacement;
    }
  }
  return std::nullopt;
}

void runPasses(RouterState& s, EMail& address) {
  for (;;) {
    if (++s.passes > kMaxRouterPasses) {
      logAlways(
          "Internal loop into filter's router. If there's no internal loop into Communigate "
          "Pro router, please contact Korvantis.");
      return;
    }
    if (address.account.empty() && address.domain.empty()) {
      trace("Router: Empty address");
      return;
    }
    trace("Entering Router Loop " + std::to_string(s.passes));
    trace("Trying to route " + address.text());
    if (address.domain == "blacklisted") {
      address = EMail::parse(address.text());
      continue;
    }
    const std::string whole = address.account + "@" + address.domain;
    std::optional<std::string> replacement;
    if (!endsWith(whole, "@blacklisted")) {
      replacement = firstMatch(s.addressEntries, whole, "address");
      if (replacement) address = EMail::parse(*replacement);
    }
    if (!replacement) {
      replacement = firstMatch(s.domainEntries, address.domain, "domain");
      if (!replacement) return;  // nothing matched: the address is final
      address.domain = *replacement;
    }
    // Delivery to a remote server, a local account or a program ends routing; so does an
    // account part that still holds "@".
    const std::string& domain = address.domain;
    if (address.account.find('@') != std::string::npos || endsWith(domain, ".smtp") ||
        endsWith(domain, ".local") || endsWith(domain, ".pipe")) {
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
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    line = line.substr(0, line.find(';'));
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos) continue;
    std::string_view left = trimBlanks(line.substr(0, equals));
    std::string_view right = trimBlanks(line.substr(equals + 1));
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

void setRouterTrace(bool on) {
  traceOn = on;
}
bool routerTrace() {
  return traceOn;
}

bool loadRouter() {
  RouterState& s = state();
  kvs::ScopedLock lock(s.lock);
  const Stamp mainStamp = stampOf(kMainTable);
  if (!mainStamp) return false;
  const Stamp sharedStamp = stampOf(kSharedTable);
  if (s.loaded && mainStamp == s.mainStamp && sharedStamp == s.sharedStamp) return true;

  s.addressEntries.clear();
  s.domainEntries.clear();
  for (const char* file : {kMainTable, kSharedTable}) {
    if (auto text = readWholeFile(file)) {
      parseRouterTable(*text, s.addressEntries, s.domainEntries);
    }
  }
  const DataSet settings = loadDataSet("Settings/Router.settings");
  s.settings = RouterSettings();
  s.settings.domainQualifier = settings.get("DomainQualifier").getText();
  s.settings.extendNonQualifiedDomains =
      settings.get("ExtendNonQualifiedDomains").getText() == "yes";
  for (const auto& [alias, target] : settings.get("GlobalAliases").entries()) {
    s.settings.globalAliases[alias] = target.getText();
  }
  s.mainStamp = mainStamp;
  s.sharedStamp = sharedStamp;
  s.loaded = true;
  return true;
}

void clearRouter() {
  RouterState& s = state();
  kvs::ScopedLock lock(s.lock);
  s.loaded = false;
  s.mainStamp.reset();
  s.sharedStamp.reset();
  s.addressEntries.clear();
  s.domainEntries.clear();
  s.settings = RouterSettings();
}

EMail route(const EMail& address) {
  RouterState& s = state();
  EMail result = address;
  kvs::ScopedLock lock(s.lock);
  s.passes = 0;
  try {
    if (!result.domain.empty() && result.domain.front() == '[') {
      // "[192.0.2.1]" is looked up as "192.0.2.1".
      std::string ip = result.domain.substr(1);
      if (!ip.empty() && ip.back() == ']') ip.pop_back();
      domainOfIP(ip);
      result.domain = ip;
    }
    runPasses(s, result);
    if (endsWith(result.domain, ".here")) result.domain.resize(result.domain.size() - 5);
  } catch (const std::exception&) {
    // Lookups never throw: an address is returned as far as it got.
  }
  return result;
}

std::vector<RouterEntry> routerAddressEntries() {
  RouterState& s = state();
  kvs::ScopedLock lock(s.lock);
  return s.addressEntries;
}

std::vector<RouterEntry> routerDomainEntries() {
  RouterState& s = state();
  kvs::ScopedLock lock(s.lock);
  return s.domainEntries;
}

RouterSettings routerSettings() {
  RouterState& s = state();
  kvs::ScopedLock lock(s.lock);
  return s.settings;
}

int routerPassCount() {
  RouterState& s = state();
  kvs::ScopedLock lock(s.lock);
  return s.passes;
}

}  // namespace cgp
