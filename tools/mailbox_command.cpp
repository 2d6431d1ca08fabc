// velmora-tool mailbox: the file or directory of a mailbox.
#include "cgp/base_directory.h"
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

int findMailbox(const ServerOptions& options, cgp::ServerData& data) {
  cgp::scanDomains(data);
  const cgp::EMail address = cgp::EMail::parse(options.operands[0]);
  const std::string path =
      cgp::mailboxPath(options.operands[1], address.account, address.domain, data);
  if (path.empty()) return 1;
  printResult(path);
  return 0;
}

}  // namespace

int runMailbox(const Args& args) {
  return runServerCommand("mailbox", kHelp, args, false, 2, findMailbox);
}

}  // namespace tool
