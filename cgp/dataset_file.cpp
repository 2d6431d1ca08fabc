// Dataset files and the main domain name.
#include "cgp/dataset_file.h"

#include "cgp/dataset_text.h"
#include "cgp/server_data.h"
#include "kvs/platform/platform.h"

namespace cgp {

std::optional<std::string> readWholeFile(const std::string& path, const ServerData& data) {
  kvs::platform::File file;
  if (!file.open(data.inBase(path))) return std::nullopt;
  std::string contents;
  char buffer[65536];
  for (;;) {
    const std::int64_t n = file.read(buffer, sizeof buffer);
    if (n < 0) return std::nullopt;
    if (n == 0) return contents;
    contents.append(buffer, static_cast<std::size_t>(n));
  }
}

DataSet loadDataSet(const std::string& path, const ServerData& data) {
  data.dataSetTrace("Loading from file " + path);
  DataSet result;
  try {
    if (auto text = readWholeFile(path, data)) result = parseDataSet(*text, path);
  } catch (const std::exception&) {
    result = DataSet();  // lookups never throw, not even when memory runs out
  }
  if (result.isEmpty()) data.dataSetTrace("File " + path + " not found or can't be read");
  return result;
}

DataSet parseDataSetText(std::string_view text, const ServerData& data) {
  DataSet result;
  try {
    result = parseDataSet(text);
  } catch (const std::exception&) {
    result = DataSet();
  }
  if (result.isEmpty()) data.dataSetTrace("string can't be parsed");
  return result;
}

std::string mainDomainName(ServerData& data) {
  std::call_once(data.mainDomainRead, [&data] {
    const DataSet settings = loadDataSet("Settings/Main.settings", data);
    if (settings.has("DomainName")) data.mainDomain = settings.get("DomainName").getText();
  });
  return data.mainDomain;
}

}  // namespace cgp
