// The server data object and the process's own instance.
#include "cgp/server_data.h"

#include <algorithm>
#include <system_error>

#include "kvs/log.h"

namespace cgp {

void TraceSwitch::always(const std::string& text) const {
  kvs::logline(channel_) << text;
}

ServerData::ServerData(std::string baseDirectory, std::string sharedBaseDirectory)
    : base(std::move(baseDirectory)), sharedBase(std::move(sharedBaseDirectory)) {}

ServerData& serverData() {
  static ServerData data;
  return data;
}

std::string ServerData::inBase(const std::string& path) const {
  if (base.empty() || path.empty() || path.front() == '/' || path.front() == '\\' ||
      (path.size() > 1 && path[1] == ':')) {
    return path;
  }
  return base.back() == '/' ? base + path : base + "/" + path;
}

std::optional<FileStamp> ServerData::stamp(const std::string& path) const {
  std::error_code ec;
  const FileStamp time = std::filesystem::last_write_time(std::filesystem::path(inBase(path)), ec);
  if (ec) return std::nullopt;
  return time;
}

std::vector<std::pair<std::string, bool>> ServerData::listDirectory(const std::string& path) const {
  namespace fs = std::filesystem;
  std::vector<std::pair<std::string, bool>> entries;
  std::error_code ec;
  fs::directory_iterator it(fs::path(inBase(path)), ec), end;
  for (; !ec && it != end; it.increment(ec)) {
    std::error_code kindError;
    const bool directory = it->is_directory(kindError);
    entries.emplace_back(it->path().filename().string(), directory && !kindError);
  }
  // Directory order differs between file systems; sorted, scans and logs are repeatable.
  std::sort(entries.begin(), entries.end());
  return entries;
}

DomainTables ServerData::domainTables() {
  kvs::ScopedLock lock(tablesLock);
  return tables;
}

RouterTable ServerData::routerTable() {
  kvs::ScopedLock lock(routerLock);
  return router;
}

}  // namespace cgp
