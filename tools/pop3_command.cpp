// velmora-tool pop3: one POP3 operation (count, fetch or delete) on a mailbox.
#include <cstdio>
#include <iostream>
#include <string>

#include "access/cli_session.h"
#include "access/pop3_client.h"
#include "kvs/ascii.h"
#include "tools/commands.h"
#include "tools/options.h"

namespace tool {
namespace {

const char kPop3Usage[] =
    R"(usage: velmora-tool pop3 --host H --port P --user U --password W [--apop]
                         stat | retr N | dele N

stat prints the number of messages and the mailbox size in octets; retr writes message N
to standard output with line-feed line ends; dele marks message N deleted.
)";

// A server that stops answering must not hang the tool for ever.
constexpr std::uint32_t kTimeoutMs = 30000;

// A decimal number of at most ten digits and at most `max`, or -1.
long number(const std::string& text, long max) {
  const kvs::LeadingNumber n = kvs::leadingNumber(text, static_cast<std::uint64_t>(max));
  const bool good = n.digits > 0 && n.digits == text.size() && n.digits <= 10 && !n.over;
  return good ? static_cast<long>(n.value) : -1;
}

}  // namespace

int runPop3(const Args& args) {
  std::string host, user, password, port;
  bool apop = false;
  const OptionRules rules{"pop3",
                          kPop3Usage,
                          OptionStyle::Leading,
                          {text("--host", "a value", host), text("--port", "a value", port),
                           text("--user", "a value", user), text("--password", "a value", password),
                           flag("--apop", apop)}};
  Args words;
  if (const std::optional<int> stop = parseOptions(rules, args, words)) return *stop;
  const std::string operation = words.empty() ? "" : words[0];
  const bool numbered = operation == "retr" || operation == "dele";
  const bool fits = (operation == "stat" && words.size() == 1) || (numbered && words.size() == 2);
  const long message = numbered && fits ? number(words[1], 0x7fffffff) : 0;
  const long portNumber = number(port, 65535);
  if (host.empty() || portNumber <= 0 || user.empty() || !fits || message < 0) {
    std::fputs(kPop3Usage, stderr);
    return 2;
  }
  const auto which = static_cast<std::uint32_t>(message);
  try {
    kvs::pop3::client pop;
    pop.setTimeouts(kTimeoutMs, kTimeoutMs);
    pop.connect(host, static_cast<std::uint16_t>(portNumber));
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
