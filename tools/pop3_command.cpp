// velmora-tool pop3: one POP3 operation (count, fetch or delete) on a mailbox.
#include <cstdio>
#include <iostream>
#include <string>

#include "access/cli_session.h"
#include "access/pop3_client.h"
#include "tools/commands.h"

namespace tool {
namespace {

const char* const kPop3Usage =
    "usage: velmora-tool pop3 --host H --port P --user U --password W [--apop]\n"
    "                         stat | retr N | dele N\n"
    "\n"
    "stat prints the number of messages and the mailbox size in octets; retr writes message N\n"
    "to standard output with line-feed line ends; dele marks message N deleted.\n";

// A server that stops answering must not hang the tool for ever.
constexpr std::uint32_t kTimeoutMs = 30000;

}  // namespace

int runPop3(const Args& args) {
  std::string host, user, password;
  long port = -1;
  bool apop = false;
  std::size_t i = 0;
  for (; i < args.size(); ++i) {
    const std::string& a = args[i];
    if (a == "--help" || a == "-h") {
      std::fputs(kPop3Usage, stdout);
      return 0;
    }
    if (a == "--apop") {
      apop = true;
      continue;
    }
    if (a.rfind("--", 0) != 0) break;
    if (i + 1 >= args.size()) {
      std::fprintf(stderr, "velmora-tool pop3: %s needs a value\n%s", a.c_str(), kPop3Usage);
      return 2;
    }
    const std::string& value = args[++i];
    if (a == "--host") {
      host = value;
    } else if (a == "--port") {
      port = std::stol(value);
    } else if (a == "--user") {
      user = value;
    } else if (a == "--password") {
      password = value;
    } else {
      std::fprintf(stderr, "velmora-tool pop3: unknown option '%s'\n%s", a.c_str(), kPop3Usage);
      return 2;
    }
  }
  const std::string operation = i < args.size() ? args[i] : "";
  const bool numbered = operation == "retr" || operation == "dele";
  const bool fits =
      (operation == "stat" && i + 1 == args.size()) || (numbered && i + 2 == args.size());
  if (host.empty() || port <= 0 || port > 65535 || user.empty() || !fits) {
    std::fputs(kPop3Usage, stderr);
    return 2;
  }
  const std::uint32_t number = numbered ? static_cast<std::uint32_t>(std::stoul(args[i + 1])) : 0;
  try {
    kvs::pop3::client pop;
    pop.setTimeouts(kTimeoutMs, kTimeoutMs);
    pop.connect(host, static_cast<std::uint16_t>(port));
    pop.login(user, password, apop);
    if (operation == "stat") {
      std::uint64_t size = 0;
      const std::uint32_t count = pop.count(&size);
      std::cout << count << " messages, " << size << " octets\n";
    } else if (operation == "retr") {
      pop.retrieve(number, std::cout);
    } else {
      pop.remove(number);
      std::cout << "message " << number << " deleted\n";
    }
    pop.close();
    return 0;
  } catch (const kvs::Exception& e) {
    std::cerr << cgp::CLISession::describe(e) << '\n';
  } catch (const std::exception&) {
    std::cerr << "Unhandled error\n";
  }
  return 1;
}

}  // namespace tool
