// Socket layer: line reading across chunks, sends, accept's plain-text test, time-outs,
// refused connections, peers that hang up, address checks.
#include "access/socket.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "access/cli_session.h"
#include "access/pop3_client.h"
#include "access/scripted_server.h"
#include "kvs/exception.h"
#include "tests/support/support.h"

namespace {

using kvs::sock::makeAddress;
using kvs::sock::socket;
using namespace testing_server;
using Lines = std::vector<std::string>;

// The text of the invalid-address error that `connect` throws.
std::string addressError(const std::function<void()>& connect) {
  try {
    connect();
  } catch (const kvs::UnableToResolveAddressException& e) {
    return e.what();
  }
  return "accepted";
}

void connectTo(socket& s, std::uint16_t port) {
  ASSERT_TRUE(s.create(socket::kStream, true));
  ASSERT_TRUE(s.connect(makeAddress("127.0.0.1", port), true));
}

// Lines ended by LF (a CR right before it dropped, any other CR kept) across chunks, the
// longest over several receives. Line and chunk reads share one buffer: bytes behind a line
// come before anything received later, and bytes handed back come first of all. A peek waits
// for bytes that come later and consumes nothing.
TEST(SocketLines, ChunksBecomeLinesInOrder) {
  const std::string q(5000, 'q');
  ScriptedServer server({send("abc\r\nde"), pause(30), send("f\ra\rb\nxy\r"), pause(30),
                         send("\n\r\n\n" + q), pause(30), send(q + "\none\r\ntwo\nrest"), pause(30),
                         send("later\n")});
  socket s(3000, 0);
  connectTo(s, server.port());
  std::string text;
  ASSERT_TRUE(s.peek(text, 9, true));
  EXPECT_EQ(text, "abc\r\ndef\r");
  for (const std::string& line : Lines{"abc", "def\ra\rb", "xy", "", "", q + q}) {
    ASSERT_TRUE(s.receiveLine(text, true));
    EXPECT_EQ(text, line);
  }
  ASSERT_TRUE(s.receiveLine(text, true, true));
  EXPECT_EQ(text, "one\r\n");
  ASSERT_TRUE(s.receiveLine(text, true));
  EXPECT_EQ(text, "two");
  ASSERT_TRUE(s.receiveChunk(text, true));
  EXPECT_EQ(text, "rest");
  s.putBack("back\n");
  for (const char* line : {"back", "later"}) {
    ASSERT_TRUE(s.receiveLine(text, true));
    EXPECT_EQ(text, line);
  }
}

// A peer that closes mid-line, or stays silent past the time-out, fails the read and closes
// the socket; with the throw flag the failure is a reset connection.
TEST(SocketLines, PeersThatHangUpOrStaySilent) {
  for (bool throwing : {false, true}) {
    ScriptedServer server({send("complete\r\npartial"), hangUp()}), silent({pause(400)});
    socket s, t(200, 0);
    connectTo(s, server.port());
    connectTo(t, silent.port());
    std::string line;
    ASSERT_TRUE(s.receiveLine(line, false));
    EXPECT_EQ(line, "complete");
    if (throwing) {
      EXPECT_THROW(s.receiveLine(line, true), kvs::ConnectionResetException);
      EXPECT_THROW(t.receiveLine(line, true), kvs::ConnectionResetException);
    } else {
      EXPECT_FALSE(s.receiveLine(line, false));
      line = "stale";
      EXPECT_FALSE(t.receiveChunk(line, false));
    }
    EXPECT_EQ(line, "");
    EXPECT_EQ(s.handle(), 0u);
    EXPECT_FALSE(t.isOpen());
  }
}

// A closed port is refused; a timed connect leaves the socket non-blocking only when reads or
// sends are timed too.
TEST(SocketConnect, RefusalsAndTheModeLeft) {
  const std::uint16_t port = test_support::closedPort();
  socket s;
  ASSERT_TRUE(s.create());
  EXPECT_FALSE(s.connect(makeAddress("127.0.0.1", port), false));
  EXPECT_FALSE(s.isOpen());
  for (std::uint32_t timeout : {0u, 1000u}) {
    s.setConnectTimeout(timeout);
    ASSERT_TRUE(s.create());
    EXPECT_THROW(s.connect(makeAddress("127.0.0.1", port), true), kvs::UnableToConnectException);
  }
  for (std::uint32_t receiveTimeout : {0u, 500u}) {
    ScriptedServer server({pause(200)});
    socket t(receiveTimeout, 0);
    t.setConnectTimeout(2000);
    ASSERT_TRUE(t.create());
    ASSERT_TRUE(t.connect(makeAddress("127.0.0.1", server.port()), true));
    EXPECT_EQ(t.nonBlocking(), receiveTimeout != 0);
  }
}

TEST(SocketSend, EmptyTextCrlfAndClosedSockets) {
  ScriptedServer server({receive(), receive()});
  socket s(0, 1000);  // a timed send waits until the socket can be written to, not read from
  connectTo(s, server.port());
  EXPECT_TRUE(s.sendLine("", false, true));  // sends nothing at all
  EXPECT_TRUE(s.sendLine("", true, true));   // a bare CRLF
  EXPECT_TRUE(s.sendLine("hello", true, true));
  EXPECT_EQ(server.finish(), (Lines{"", "hello"}));
  socket closed;
  EXPECT_FALSE(closed.sendLine("x", true, false));
  EXPECT_THROW(closed.sendLine("x", true, true), kvs::ConnectionResetException);
  closed.attach(2);  // the standard handles are never closed
  closed.close();
  EXPECT_EQ(closed.handle(), 0u);
  EXPECT_NE(::fcntl(2, F_GETFD), -1);
}

// Plays the client side of accept(): connects and sends `first`. A second listener on the
// same port is refused; a socket that does not listen accepts nothing.
TEST(SocketAccept, FirstThreeBytesDecidePlainText) {
  socket listener, second, accepted;
  kvs::sock::address peer;
  ASSERT_TRUE(listener.create() && second.create());
  EXPECT_FALSE(second.acceptConnection(accepted, peer, 100));
  EXPECT_FALSE(second.accept(accepted, peer, 100, false));
  ASSERT_TRUE(listener.bindAndListen(0, true, "127.0.0.1"));
  EXPECT_FALSE(second.bindAndListen(listener.localPort(), false, "127.0.0.1"));
  EXPECT_THROW(second.bindAndListen(listener.localPort(), true, "127.0.0.1"),
               kvs::PortAlreadyUsedException);
  const std::pair<std::string, bool> cases[] = {
      {"get / HTTP/1.0\r\n", true}, {"EHLO x\r\n", true}, {"\x16\x03\x01\x02", false},  // TLS
      {"123\r\n", false},           {"ab \r\n", false},
  };
  for (const auto& [first, plainText] : cases) {
    for (bool secure : {false, true}) {
      SCOPED_TRACE(first + (secure ? " (secure)" : ""));
      socket client;
      connectTo(client, listener.localPort());
      ASSERT_TRUE(client.sendLine(first, false, true));
      if (plainText) {
        EXPECT_TRUE(listener.accept(accepted, peer, 2000, secure));
        EXPECT_EQ(peer.ip, makeAddress("127.0.0.1", 0).ip);
        std::string line;
        ASSERT_TRUE(accepted.receiveLine(line, true));  // the peeked bytes are still there
        EXPECT_EQ(line + "\r\n", first);
      } else if (secure) {
        EXPECT_THROW(listener.accept(accepted, peer, 2000, secure),
                     kvs::InvalidSSLCertificateOrKeyException);
      } else {
        EXPECT_FALSE(listener.accept(accepted, peer, 2000, secure));
        EXPECT_FALSE(accepted.isOpen());
      }
    }
  }
}

// Waits on one socket or on several end at a time-out or when data comes; a wait's time in
// seconds and microseconds does not overflow.
TEST(SocketWait, IdleAndDataOnOneOrSeveralSockets) {
  EXPECT_EQ(kvs::sock::waitTime(1999).microseconds, 999000);
  EXPECT_EQ(kvs::sock::waitTime(4294967295u).seconds, 4294967);
  EXPECT_EQ(kvs::sock::waitTime(4294967295u).microseconds, 295000);
  ScriptedServer quiet({pause(600)}), talking({pause(300), send("hi\n"), pause(600)});
  socket a, b;
  connectTo(a, quiet.port());
  connectTo(b, talking.port());
  EXPECT_TRUE(b.nothingToRead(50));
  std::vector<kvs::sock::wait_entry> entries = {{&a, true}, {&b, false}};
  EXPECT_FALSE(socket::waitOnSet(entries, 3000));
  EXPECT_FALSE(entries[0].ready);
  EXPECT_TRUE(entries[1].ready);
  EXPECT_FALSE(b.nothingToRead(3000));
  entries.pop_back();
  EXPECT_TRUE(socket::waitOnSet(entries, 50));
  EXPECT_FALSE(entries[0].ready);
}

// With every descriptor used up, socket() yields the invalid value; create() keeps it and
// connect() is where the failure shows. Done in a child so the test process keeps its limit.
TEST(SocketHandles, InvalidHandleSurfacesAtConnect) {
  const pid_t child = ::fork();
  ASSERT_NE(child, -1);
  if (child == 0) {
    socket s, timed;
    rlimit limit{16, 16};
    ::setrlimit(RLIMIT_NOFILE, &limit);
    int last = 0;
    for (int fd; (fd = ::dup(0)) != -1;) last = fd;
    if (!s.create(socket::kStream, false) || !timed.create()) ::_exit(1);
    if (s.handle() != static_cast<kvs::sock::handle_t>(-1)) ::_exit(2);
    for (int fd = last; fd > last - 4; --fd) ::close(fd);  // the sanitizers need a few
    timed.setConnectTimeout(1000);  // a timed connect cannot even switch the mode
    if (timed.connect(makeAddress("127.0.0.1", 1), false)) ::_exit(4);
    try {
      s.connect(makeAddress("127.0.0.1", 1), true);
    } catch (const kvs::UnableToConnectException&) {
      ::_exit(0);
    }
    ::_exit(3);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
}

// The classic dotted forms (one to four parts, octal and hexadecimal too). A host meant as a
// dotted address (only digits and dots, or a last part that begins with a digit) is never looked
// up as a name, wherever a connection is made: a malformed one is invalid. Names are looked up.
TEST(SocketAddress, DottedAddressesAndNames) {
  const kvs::sock::address a = makeAddress("0x7f.1", 106);
  EXPECT_EQ(a.ip, makeAddress("127.0.0.1", 0).ip);
  const auto* port = reinterpret_cast<const unsigned char*>(&a.port);
  EXPECT_EQ(port[0] * 256 + port[1], 106);
  EXPECT_EQ(addressError([] { (void)makeAddress("", 1); }), "Invalid IP Address");
  EXPECT_EQ(kvs::sock::resolveAddress("0x7f.1", 25).ip, a.ip);
  for (const std::string host : {"1.2.3.999", "127.0.0.1.5", "1..2", "10.0.0.08"}) {
    for (const auto& connect : std::initializer_list<std::function<void()>>{
             [&] { (void)kvs::sock::resolveAddress(host, 1); },
             [&] { kvs::pop3::client().connect(host, 1); },
             [&] { cgp::CLISession(host, 1, "u", "p", 0); }}) {
      EXPECT_EQ(addressError(connect), "Invalid IP address") << host;
    }
  }
  const kvs::ptr<kvs::sock::host_entry> entry = kvs::sock::resolve("localhost");
  ASSERT_FALSE(entry->dotted.empty());
  EXPECT_EQ(entry->dotted.front().substr(0, 4), "127.");
  EXPECT_EQ(kvs::sock::resolveAddress("localhost", 25).ip, entry->addresses.front());
  EXPECT_THROW((void)kvs::sock::resolve(""), kvs::UnableToResolveAddressException);
}

}  // namespace
