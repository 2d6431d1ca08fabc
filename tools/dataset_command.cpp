// velmora-tool dataset: reads a dataset text and writes it back in the server's notation.
#include <cstdio>
#include <iostream>
#include <iterator>

#include "cgp/dataset_file.h"
#include "cgp/dataset_text.h"
#include "tools/server_options.h"

namespace tool {
namespace {

const char kHelp[] =
    "usage: velmora-tool dataset [--one-line] [--base DIR] [--trace] FILE|-\n"
    "\n"
    "Reads a dataset in the server's text notation from FILE (below the base directory when\n"
    "FILE is relative and --base is given) or from standard input (-), and writes it back:\n"
    "the multi-line form, or with --one-line the one-line form. A syntax error prints the\n"
    "parser's \"* while parsing ...\" line and exits with 1; so does a file that cannot be read.\n"
    "\n"
    "  --one-line     write the one-line form\n"
    "  --base DIR     read FILE relative to DIR\n"
    "  --trace        log the file's loading on the \"Dataset\" channel\n"
    "  --help         this text\n";

int rewrite(const ServerOptions& options, cgp::ServerData& data) {
  const std::string& source = options.operands[0];
  const std::size_t errorsBefore = cgp::parseErrorCount();
  cgp::DataSet value;
  if (source == "-") {
    const std::string text((std::istreambuf_iterator<char>(std::cin)),
                           std::istreambuf_iterator<char>());
    value = cgp::parseDataSetText(text, data);
  } else {
    if (!cgp::readWholeFile(source, data)) {
      std::fprintf(stderr, "velmora-tool dataset: cannot read %s\n", data.inBase(source).c_str());
      return 1;
    }
    value = cgp::loadDataSet(source, data);
  }
  if (cgp::parseErrorCount() != errorsBefore) return 1;
  if (value.isEmpty()) return 0;  // an empty text is an empty value: nothing to write
  std::string written = cgp::writeDataSet(value, options.oneLine);
  // The multi-line form opens arrays and dictionaries with a line change; a file does not
  // start with an empty line.
  if (!written.empty() && written.front() == '\n') written.erase(0, 1);
  printResult(written);
  return 0;
}

}  // namespace

int runDataset(const Args& args) {
  return runServerCommand("dataset", kHelp, args, true, 1, rewrite);
}

}  // namespace tool
