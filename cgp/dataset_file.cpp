// Dataset files and the main domain name.
#include "cgp/dataset_file.h"

#include <atomic>
#include <mutex>

#include "cgp/dataset_text.h"
#include "kvs/log.h"
#include "kvs/platform/platform.h"

namespace cgp {
namespace {

std::atomic<bool> traceOn{false};

std::mutex& baseMutex() {
  static std::mutex mutex;
  return mutex;
}
std::string& baseSlot() {
  static std::string base;
  return base;
}

// Filled at the first call, before any worker thread runs; no lock of its own.
std::string mainDomain;
bool mainDomainFilled = false;

void trace(const std::string& text) {
  if (traceOn) kvs::logline("Dataset") << text;
}

}  // namespace

void setBaseDirectory(const std::string& directory) {
  {
    std::lock_guard<std::mutex> lock(baseMutex());
    baseSlot() = directory;
  }
  resetMainDomainName();
}

std::string baseDirectory() {
  std::lock_guard<std::mutex> lock(baseMutex());
  return baseSlot();
}

std::string inBase(const std::string& path) {
  const std::string base = baseDirectory();
  if (base.empty() || path.empty() || path.front() == '/' || path.front() == '\\' ||
      (path.size() > 1 && path[1] == ':')) {
    return path;
  }
  return base.back() == '/' ? base + path : base + "/" + path;
}

void setDataSetTrace(bool on) {
  traceOn = on;
}
bool dataSetTrace() {
  return traceOn;
}

std::optional<std::string> readWholeFile(const std::string& path) {
  kvs::platform::File file;
  if (!file.open(inBase(path))) return std::nullopt;
  std::string contents;
  char buffer[65536];
  for (;;) {
    const std::int64_t n = file.read(buffer, sizeof buffer);
    if (n < 0) return std::nullopt;
    if (n == 0) return contents;
    contents.append(buffer, static_cast<std::size_t>(n));
  }
}

DataSet loadDataSet(const std::string& path) {
  trace("Loading from file " + path);
  DataSet result;
  try {
    if (auto text = readWholeFile(path)) result = parseDataSet(*text, path);
  } catch (const std::exception&) {
    result = DataSet();  // lookups never throw, not even when memory runs out
  }
  if (result.isEmpty()) trace("File " + path + " not found or can't be read");
  return result;
}

DataSet parseDataSetText(std::string_view text) {
  DataSet result;
  try {
    result = parseDataSet(text);
  } catch (const std::exception&) {
    result = DataSet();
  }
  if (result.isEmpty()) trace("string can't be parsed");
  return result;
}

std::string mainDomainName() {
  if (mainDomainFilled) return mainDomain;
  mainDomainFilled = true;
  const DataSet settings = loadDataSet("Settings/Main.settings");
  if (settings.has("DomainName")) mainDomain = settings.get("DomainName").getText();
  return mainDomain;
}

void resetMainDomainName() {
  mainDomain.clear();
  mainDomainFilled = false;
}

}  // namespace cgp
