// The server's data as one object: the base directory it is read from, the domain tables, the
// router table, their locks and the trace switches. The functions of the server-data headers
// take one as their last argument, by default the process's own (`serverData()`, which reads
// the working directory); the tool and the tests build their own.
#pragma once

#include <atomic>
#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "cgp/email.h"
#include "cgp/router.h"
#include "kvs/mutex.h"
#include "kvs/noncopyable.h"

namespace cgp {

// A trace switch, off at start, and the log channel its lines go to.
class TraceSwitch : private kvs::noncopyable {
 public:
  explicit TraceSwitch(const char* channel) : channel_(channel) {}
  void set(bool on) { on_ = on; }
  // A line on the channel when the switch is on; `always` writes it whatever the switch.
  void operator()(const std::string& text) const {
    if (on_) always(text);
  }
  void always(const std::string& text) const;

 private:
  const char* channel_;
  std::atomic<bool> on_{false};
};

using FileStamp = std::filesystem::file_time_type;

// Filled by the domain scan and from each domain's data files; keyed by domain, then by name.
struct DomainTables {
  std::map<std::string, std::string> local;                  // name -> directory
  std::map<std::string, std::string> shared;                 // name -> directory
  std::vector<std::pair<std::string, std::string>> records;  // Domains' domains, in scan order
  std::map<std::string, std::string> ips;                    // IP -> domain
  std::string fallback;  // the domain whose IPMode is "All Available"
  std::map<std::string, std::set<std::string>> domainAliases;
  std::map<std::string, std::map<std::string, EMail>> aliases;
  std::map<std::string, std::map<std::string, EMail>> forwarders;
  std::map<std::string, std::set<std::string>> groups;
  std::map<std::string, std::set<std::string>> lists;      // with the service addresses
  std::map<std::string, std::set<std::string>> listNames;  // the lists' own names
  std::map<std::string, FileStamp> stamps;                 // path -> modification time when read
};

struct RouterTable {
  bool loaded = false;
  std::optional<FileStamp> mainStamp, sharedStamp;  // of the two Router.data files
  std::vector<RouterEntry> addressEntries, domainEntries;
  RouterSettings settings;
  int passes = 0;  // made by the last routing
};

struct ServerData : private kvs::noncopyable {
  // `base`: where relative paths are read from ("" is the working directory); `sharedBase`: a
  // cluster's shared base directory, whose SharedDomains folder the domain scan reads too.
  explicit ServerData(std::string base = "", std::string sharedBase = "");

  // The path to open for `path`: absolute paths as they are, relative ones below the base.
  [[nodiscard]] std::string inBase(const std::string& path) const;
  // The modification time of a file or directory, or nothing when it cannot be read.
  [[nodiscard]] std::optional<FileStamp> stamp(const std::string& path) const;
  // The entries of a directory, sorted by name: (name, is a directory).
  [[nodiscard]] std::vector<std::pair<std::string, bool>> listDirectory(
      const std::string& path) const;

  // Copies taken under their locks, for listings.
  [[nodiscard]] DomainTables domainTables();
  [[nodiscard]] RouterTable routerTable();

  const std::string base;
  const std::string sharedBase;

  TraceSwitch dataSetTrace{"Dataset"};  // loading dataset files
  TraceSwitch baseDirTrace{"BaseDir"};  // the domain scan and every lookup
  TraceSwitch routerTrace{"Router"};    // the routing passes

  // The base-directory lock guards `tables`. The router lock is held for a whole routing or
  // reload; it is taken before the base-directory lock, never after.
  kvs::MutexInterface tablesLock;
  DomainTables tables;
  kvs::MutexInterface routerLock;
  RouterTable router;

  // Settings/Main.settings' "DomainName", read at the first call of mainDomainName().
  std::once_flag mainDomainRead;
  std::string mainDomain;
};

}  // namespace cgp
