// velmora-tool mailbox: the file or directory of a mailbox.
#include "cgp/base_directory.h"
#include "cgp/dataset_file.h"
#include "cgp/email.h"
#include "tools/server_options.h"

namespace tool {
namespace {

const char kHelp[] =
    "usage: velmora-tool mailbox [--base DIR] [--shared DIR] [--trace] ACCOUNT@DOMAIN MAILBOX\n"
    "\n"
    "Prints the path of MAILBOX of the account, relative to the base directory: INBOX, or a\n"
    "name whose \"/\"-separated folders become NAME.folder directories, found as NAME.mdir,\n"
    "NAME.mbox or NAME.mslc, in that order. The domain is turned into its real name first.\n"
    "\n" VELMORA_SERVER_OPTIONS_HELP;

}  // namespace

int runMailbox(const Args& args) {
  ServerOptions options;
  if (int code = prepareServerCommand("mailbox", kHelp, args, false, 2, options); code >= 0) {
    return code;
  }
  cgp::setBaseDirTrace(options.trace);
  cgp::setDataSetTrace(options.trace);
  cgp::scanDomains();
  const cgp::EMail address = cgp::EMail::parse(options.operands[0]);
  const std::string path = cgp::mailboxPath(options.operands[1], address.account, address.domain);
  if (path.empty()) return 1;
  printResult(path);
  return 0;
}

}  // namespace tool
