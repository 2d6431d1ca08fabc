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

namespace {

using kvs::sock::makeAddress;
using kvs::sock::socket;
using namespace testing_server;

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
// come before anything received later, and bytes handed back come first of all.
TEST(SocketLines, ChunksBecomeLinesInOrder) {
  const std::string q(5000, 'q');
  ScriptedServer server({send("abc\r\nde"), pause(30), send("f\ra\rb\nxy\r"), pause(30),
                         send("\n\r\n\n" + q), pause(30), send(q + "\none\r\ntwo\nrest"), pause(30),
                         send("later\n")});
  socket s(3000, 0);
  connectTo(s, server.port());
  std::string text;
  for (const std::string& line :
       std::initializer_list<std::string>{"abc", "def\ra\rb", "xy", "", "", q + q}) {
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
  for (bool throwOnError : {false, true}) {
    ScriptedServer server({send("complete\r\npartial"), hangUp()});
    socket s;
    connectTo(s, server.port());
    std::string line;
    ASSERT_TRUE(s.receiveLine(line, false));
    EXPECT_EQ(line, "complete");
    if (throwOnError) {
      EXPECT_THROW(s.receiveLine(line, true), kvs::ConnectionResetException);
    } else {
      EXPECT_FALSE(s.receiveLine(line, false));
      EXPECT_EQ(line, "");
    }
    EXPECT_EQ(s.handle(), 0u);

    ScriptedServer silent({pause(400)});
    socket t(200, 0);
    connectTo(t, silent.port());
    line = "stale";
    if (throwOnError) {
      EXPECT_THROW(t.receiveLine(line, true), kvs::ConnectionResetException);
    } else {
      EXPECT_FALSE(t.receiveChunk(line, false));
    }
    EXPECT_EQ(line, "");
    EXPECT_FALSE(t.isOpen());
  }
}

TEST(SocketTimeouts, WaitTime) {
  EXPECT_EQ(kvs::sock::waitTime(1500).seconds * 1000000 + kvs::sock::waitTime(1500).microseconds,
            1500000);
  EXPECT_EQ(kvs::sock::waitTime(999).microseconds, 999000);
  EXPECT_EQ(kvs::sock::waitTime(4294967295u).seconds, 4294967);  // no 32-bit overflow
  EXPECT_EQ(kvs::sock::waitTime(4294967295u).microseconds, 295000);
}

TEST(SocketConnect, ClosedPortIsRefused) {
  std::uint16_t port = 0;
  {
    socket probe;  // a port that nothing listens on: bound once, then given back
    probe.create();
    probe.bindAndListen(0, true, "127.0.0.1");
    port = probe.localPort();
  }
  socket s;
  ASSERT_TRUE(s.create());
  EXPECT_FALSE(s.connect(makeAddress("127.0.0.1", port), false));
  EXPECT_FALSE(s.isOpen());
  for (std::uint32_t timeout : {0u, 1000u}) {
    s.setConnectTimeout(timeout);
    ASSERT_TRUE(s.create());
    EXPECT_THROW(s.connect(makeAddress("127.0.0.1", port), true), kvs::UnableToConnectException);
  }
}

// A timed connect leaves the socket non-blocking only when reads or sends are timed too.
TEST(SocketConnect, TimedConnectLeavesModeByOtherTimeouts) {
  for (std::uint32_t receiveTimeout : {0u, 500u}) {
    ScriptedServer server({pause(200)});
    socket s(receiveTimeout, 0);
    s.setConnectTimeout(2000);
    ASSERT_TRUE(s.create());
    ASSERT_TRUE(s.connect(makeAddress("127.0.0.1", server.port()), true));
    EXPECT_EQ(s.nonBlocking(), receiveTimeout != 0);
  }
}

TEST(SocketSend, EmptyTextCrlfAndClosedSocket) {
  ScriptedServer server({receive(), receive()});
  socket s(0, 1000);  // a timed send waits until the socket can be written to, not read from
  connectTo(s, server.port());
  EXPECT_TRUE(s.sendLine("", false, true));  // sends nothing at all
  EXPECT_TRUE(s.sendLine("", true, true));   // a bare CRLF
  EXPECT_TRUE(s.sendLine("hello", true, true));
  EXPECT_EQ(server.finish(), (std::vector<std::string>{"", "hello"}));
  socket closed;
  EXPECT_FALSE(closed.sendLine("x", true, false));
  EXPECT_THROW(closed.sendLine("x", true, true), kvs::ConnectionResetException);
}

TEST(SocketPeek, DoesNotConsume) {
  ScriptedServer server({send("ab"), pause(100), send("cdef\n")});
  socket s(2000, 0);
  connectTo(s, server.port());
  std::string first;
  ASSERT_TRUE(s.peek(first, 3, true));  // waits for the bytes that come later
  EXPECT_EQ(first, "abc");
  std::string line;
  ASSERT_TRUE(s.receiveLine(line, true));
  EXPECT_EQ(line, "abcdef");
}

// Plays the client side of accept(): connects and sends `first`. A second listener on the
// same port is refused.
TEST(SocketAccept, FirstThreeBytesDecidePlainText) {
  socket listener, second;
  ASSERT_TRUE(listener.create() && second.create());
  ASSERT_TRUE(listener.bindAndListen(0, true, "127.0.0.1"));
  EXPECT_FALSE(second.bindAndListen(listener.localPort(), false, "127.0.0.1"));
  EXPECT_THROW(second.bindAndListen(listener.localPort(), true, "127.0.0.1"),
               kvs::PortAlreadyUsedException);
  const std::pair<std::string, bool> cases[] = {
      {"get / HTTP/1.0\r\n", true},
      {"EHLO x\r\n", true},
      {std::string("\x16\x03\x01\x02", 4), false},  // a TLS hello
      {"123\r\n", false},
      {"ab \r\n", false},
  };
  for (const auto& [first, plainText] : cases) {
    for (bool secure : {false, true}) {
      SCOPED_TRACE(first + (secure ? " (secure)" : ""));
      socket client;
      connectTo(client, listener.localPort());
      ASSERT_TRUE(client.sendLine(first, false, true));
      socket accepted;
      kvs::sock::address peer;
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
  socket idle, accepted;  // not listening: nothing to accept
  kvs::sock::address peer;
  ASSERT_TRUE(idle.create());
  EXPECT_FALSE(idle.acceptConnection(accepted, peer, 100));
  EXPECT_FALSE(idle.accept(accepted, peer, 100, false));
}

// Waits on one socket or on several end at a time-out or when data comes.
TEST(SocketWait, IdleAndDataOnOneOrSeveralSockets) {
  ScriptedServer quiet({pause(600)});
  ScriptedServer talking({pause(300), send("hi\n"), pause(600)});
  socket a, b;
  connectTo(a, quiet.port());
  connectTo(b, talking.port());
  EXPECT_TRUE(b.nothingToRead(50));
  std::vector<kvs::sock::wait_entry> entries = {{&a, true}, {&b, false}};
  EXPECT_FALSE(socket::waitOnSet(entries, 3000));
  EXPECT_FALSE(entries[0].ready);
  EXPECT_TRUE(entries[1].ready);
  EXPECT_FALSE(b.nothingToRead(3000));
  EXPECT_TRUE(b.isOpen());
  entries.pop_back();
  EXPECT_TRUE(socket::waitOnSet(entries, 50));
  EXPECT_FALSE(entries[0].ready);
}

TEST(SocketHandles, StandardHandlesAreNeverClosed) {
  socket s;
  s.attach(2);
  s.close();
  EXPECT_EQ(s.handle(), 0u);
  EXPECT_NE(::fcntl(2, F_GETFD), -1);
}

TEST(SocketHandles, InvalidHandleSurfacesAtConnect) {
  // With every descriptor used up, socket() yields the invalid value; create() keeps it and
  // connect() is where the failure shows. Done in a child so the test process keeps its limit.
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
    // No more descriptors are needed here, but the sanitizers' checks need a few.
    for (int fd = last; fd > last - 4; --fd) ::close(fd);
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

// The classic dotted forms: one to four parts, each decimal, octal (leading 0) or hexadecimal
// (0x); the last part fills the bytes that are left.
TEST(SocketAddress, DottedAddressesOnly) {
  const kvs::sock::address a = makeAddress("127.0.0.1", 106);
  EXPECT_EQ(a.family, 2);
  const auto* port = reinterpret_cast<const unsigned char*>(&a.port);
  EXPECT_EQ(port[0] * 256 + port[1], 106);
  const std::pair<const char*, std::vector<int>> valid[] = {
      {"127.1", {127, 0, 0, 1}}, {"010.0.0.1", {8, 0, 0, 1}},    {"0x7f.1", {127, 0, 0, 1}},
      {"1.2.3", {1, 2, 0, 3}},   {"2130706433", {127, 0, 0, 1}}, {"1.2.0x1ff", {1, 2, 1, 255}},
      {"0.0.0.0", {0, 0, 0, 0}},
  };
  for (const auto& [text, bytes] : valid) {
    const kvs::sock::address got = makeAddress(text, 1);
    const auto* ip = reinterpret_cast<const unsigned char*>(&got.ip);
    EXPECT_EQ(std::vector<int>(ip, ip + 4), bytes) << text;
  }
  for (const char* text : {"256.1.1.1", "a.b.c.d", "1.2.3.4.5", "1..2.3", " 1.2.3.4", "08.1.1.1"}) {
    EXPECT_EQ(addressError([&] { (void)makeAddress(text, 1); }), "Invalid IP address") << text;
  }
  EXPECT_EQ(addressError([] { (void)makeAddress("", 1); }), "Invalid IP Address");
}

// A host that is meant as a dotted address (its last part begins with a digit) is never looked
// up as a name: a malformed one is an invalid address wherever a connection is made. Names are
// looked up.
TEST(SocketAddress, MalformedDottedAddressIsNotLookedUp) {
  EXPECT_EQ(kvs::sock::resolveAddress("0x7f.1", 25).ip, makeAddress("127.0.0.1", 25).ip);
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
