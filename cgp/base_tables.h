// Private to the base-directory and domain-data files: the process-wide tables they share and
// the one lock that guards them.
#pragma once

#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "cgp/email.h"
#include "kvs/mutex.h"

namespace cgp::detail {

struct BaseTables {
  kvs::MutexInterface lock;
  // Filled by the domain scan.
  std::map<std::string, std::string> local;   // name -> directory
  std::map<std::string, std::string> shared;  // name -> directory
  std::vector<std::pair<std::string, std::string>> records;
  std::map<std::string, std::string> ips;  // IP -> domain
  std::string fallback;
  std::string sharedBase;
  // Filled from each domain's data files; keyed by domain, then by name.
  std::map<std::string, std::set<std::string>> domainAliases;
  std::map<std::string, std::map<std::string, std::string>> aliases;
  std::map<std::string, std::map<std::string, EMail>> forwarders;
  std::map<std::string, std::set<std::string>> groups;
  std::map<std::string, std::set<std::string>> lists;             // with the service addresses
  std::map<std::string, std::set<std::string>> listNames;         // the lists' own names
  std::map<std::string, std::filesystem::file_time_type> stamps;  // path -> mtime when read
};

BaseTables& tables();

// A base-directory trace line (only when the switch is on), and one that is always written.
void trace(const std::string& text);
void logAlways(const std::string& text);

// The entries of a directory below the base, sorted by name: (name, is a directory).
std::vector<std::pair<std::string, bool>> listDirectory(const std::string& path);

// Both expect the lock to be held.
void loadDomainDataLocked(BaseTables& t, const std::string& domain, const std::string& path);
void domainOfIPLocked(BaseTables& t, std::string& ip);

}  // namespace cgp::detail
