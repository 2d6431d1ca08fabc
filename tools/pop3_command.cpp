// velmora-tool pop3: one POP3 operation (count, fetch or delete) on a mailbox.
#include <cstdio>
#include <cstdlib>
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

// A decimal number of at most `max`, or -1.
long number(const std::string& text, long max) {
  if (text.empty() || text.size() > 10 ||
      text.find_first_not_of("0123456789") != std::string::npos) {
    return -1;
  }
  const long long value = std::strtoll(text.c_str(), nullptr, 10);
  return value > max ? -1 : static_cast<long>(value);
}

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
      port = number(value, 65535);
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
  const long message = numbered && fits ? number(args[i + 1], 0x7fffffff) : 0;
  if (host.empty() || port <= 0 || user.empty() || !fits || message < 0) {
    std::fputs(kPop3Usage, stderr);
    return 2;
  }
  const auto which = static_cast<std::uint32_t>(message);
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
      pop.retrieve(which, std::cout);
    } else {
      pop.remove(which);
      std::cout << "message " << which << " deleted\n";
    }
    pop.close();
    return 0;
  } catch (const kvs::ProtocolException& e) {
    // A refusal or an odd greeting: the server's own words, when there are any.
    std::cerr << (e.getMessage().empty() ? "Unhandled error" : e.getMessage()) << '\n';
  } catch (const kvs::Exception& e) {
    std::cerr << cgp::CLISession::describe(e) << '\n';
  } catch (const std::exception&) {
    std::cerr << "Unhandled error\n";
  }
  return 1;
}

}  // namespace tool
