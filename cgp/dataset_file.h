// Dataset files of the server's base directory, and the main domain name from its settings.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "cgp/dataset.h"

namespace cgp {

// The server's data (cgp/server_data.h). The functions of the server-data headers take one as
// their last argument; the default is the process's own, which reads the working directory.
struct ServerData;
[[nodiscard]] ServerData& serverData();

// The whole contents of a file below the base directory, or nothing when it cannot be read.
[[nodiscard]] std::optional<std::string> readWholeFile(const std::string& path,
                                                       const ServerData& data = serverData());

// Reads a dataset file named relative to the base directory; an empty value on any failure.
// Never throws.
[[nodiscard]] DataSet loadDataSet(const std::string& path, const ServerData& data = serverData());
// Reads a dataset from a text in memory (source name "string"); empty on failure. Never throws.
[[nodiscard]] DataSet parseDataSetText(std::string_view text,
                                       const ServerData& data = serverData());

// "DomainName" of Settings/Main.settings, read at the first call and kept (a failed read is
// not retried).
[[nodiscard]] std::string mainDomainName(ServerData& data = serverData());

}  // namespace cgp
