// Dataset files of the server's base directory, and the main domain name from its settings.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "cgp/dataset.h"

namespace cgp {

// Where relative paths of the server's data are read from: the working directory unless a
// base directory is set ("" goes back to the working directory). Setting it forgets the main
// domain name, which belongs to the base directory it came from.
void setBaseDirectory(const std::string& directory);
[[nodiscard]] std::string baseDirectory();
// The path to open for `path`: absolute paths as they are, relative ones below the base.
[[nodiscard]] std::string inBase(const std::string& path);

// The dataset trace switch (off at start): loading logs its steps on the "Dataset" channel.
void setDataSetTrace(bool on);
[[nodiscard]] bool dataSetTrace();

// The whole contents of a file (found through inBase), or nothing when it cannot be read.
[[nodiscard]] std::optional<std::string> readWholeFile(const std::string& path);

// Reads a dataset file named relative to the base directory; an empty value on any failure.
// Never throws.
[[nodiscard]] DataSet loadDataSet(const std::string& path);
// Reads a dataset from a text in memory (source name "string"); empty on failure. Never throws.
[[nodiscard]] DataSet parseDataSetText(std::string_view text);

// "DomainName" of Settings/Main.settings, read once (a failed read is not retried).
[[nodiscard]] std::string mainDomainName();
// Forgets the main domain name so that the next call reads the file again.
void resetMainDomainName();

}  // namespace cgp
