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

using kvs::sock::socket;
using testing_server::hangUp;
using testing_server::pause;
using testing_server::receive;
using testing_server::ScriptedServer;
using testing_server::send;

void connectTo(socket& s, std::uint16_t port) {
  ASSERT_TRUE(s.create(socket::kStream, true));
  ASSERT_TRUE(s.connect(kvs::sock::makeAddress("127.0.0.1", port), true));
}

// A port that nothing listens on: bound once, then given back.
std::uint16_t closedPort() {
  socket probe;
  probe.create(socket::kStream, true);
  probe.bindAndListen(0, true, "127.0.0.1");
  return probe.localPort();
}

struct LineCase {
  const char* name;
  std::vector<std::string> chunks;
  std::vector<std::string> lines;
};

TEST(SocketLines, ChunksBecomeLines) {
  const LineCase cases[] = {
      {"two lines in one chunk", {"abc\r\ndef\n"}, {"abc", "def"}},
      {"line split across chunks", {"ab", "c\r\n"}, {"abc"}},
      {"CR inside a line stays", {"a\rb\n"}, {"a\rb"}},
      {"CR and LF in separate chunks", {"xy\r", "\nz\n"}, {"xy", "z"}},
      {"empty lines", {"\r\n\n"}, {"", ""}},
      {"long line over many chunks",
       {std::string(5000, 'q'), std::string(5000, 'r') + "\n"},
       {std::string(5000, 'q') + std::string(5000, 'r')}},
  };
  for (const LineCase& c : cases) {
    SCOPED_TRACE(c.name);
    std::vector<testing_server::Step> script;
    for (const std::string& chunk : c.chunks) {
      script.push_back(send(chunk));
      script.push_back(pause(30));
    }
    ScriptedServer server(script);
    socket s(3000, 0);
    connectTo(s, server.port());
    for (const std::string& expected : c.lines) {
      std::string line;
      ASSERT_TRUE(s.receiveLine(line, true));
      EXPECT_EQ(line, expected);
    }
  }
}

// Line and chunk reads share one buffer: bytes behind a line come before anything received
// later, and bytes handed back come first of all.
TEST(SocketLines, LinesChunksAndBytesPutBackKeepTheirOrder) {
  ScriptedServer server({send("one\r\ntwo\nrest"), pause(30), send("later\n")});
  socket s(3000, 0);
  connectTo(s, server.port());
  std::string text;
  ASSERT_TRUE(s.receiveLine(text, true, true));
  EXPECT_EQ(text, "one\r\n");
  ASSERT_TRUE(s.receiveLine(text, true));
  EXPECT_EQ(text, "two");
  ASSERT_TRUE(s.receiveChunk(text, true));
  EXPECT_EQ(text, "rest");
  s.putBack("back\n");
  ASSERT_TRUE(s.receiveLine(text, true));
  EXPECT_EQ(text, "back");
  ASSERT_TRUE(s.receiveLine(text, true));
  EXPECT_EQ(text, "later");
}

TEST(SocketLines, PeerClosingMidLineFailsTheRead) {
  ScriptedServer server({send("complete\r\npartial"), hangUp()});
  socket s;
  connectTo(s, server.port());
  std::string line;
  ASSERT_TRUE(s.receiveLine(line, false));
  EXPECT_EQ(line, "complete");
  EXPECT_FALSE(s.receiveLine(line, false));
  EXPECT_EQ(line, "");
  EXPECT_FALSE(s.isOpen());
}

TEST(SocketLines, PeerClosingThrowsWhenAsked) {
  ScriptedServer server({send("half"), hangUp()});
  socket s;
  connectTo(s, server.port());
  std::string line;
  EXPECT_THROW(s.receiveLine(line, true), kvs::ConnectionResetException);
  EXPECT_EQ(s.handle(), 0u);
}

TEST(SocketTimeouts, SilentPeerTimesOutLineAndChunkReads) {
  ScriptedServer server({pause(800)});
  socket s(200, 0);
  connectTo(s, server.port());
  std::string text = "stale";
  EXPECT_FALSE(s.receiveChunk(text, false));
  EXPECT_EQ(text, "");
  EXPECT_FALSE(s.isOpen());

  ScriptedServer second({pause(800)});
  socket t(200, 0);
  connectTo(t, second.port());
  EXPECT_THROW(t.receiveLine(text, true), kvs::ConnectionResetException);
}

TEST(SocketTimeouts, WaitTimeSplitsMilliseconds) {
  EXPECT_EQ(kvs::sock::waitTime(1500).seconds, 1);
  EXPECT_EQ(kvs::sock::waitTime(1500).microseconds, 500000);
  EXPECT_EQ(kvs::sock::waitTime(999).seconds, 0);
  EXPECT_EQ(kvs::sock::waitTime(999).microseconds, 999000);
  EXPECT_EQ(kvs::sock::waitTime(4294967295u).seconds, 4294967);
  EXPECT_EQ(kvs::sock::waitTime(4294967295u).microseconds, 295000);
}

TEST(SocketTimeouts, NothingToReadReportsIdleAndData) {
  ScriptedServer server({pause(300), send("x\n"), pause(300)});
  socket s;
  connectTo(s, server.port());
  EXPECT_TRUE(s.nothingToRead(50));
  EXPECT_FALSE(s.nothingToRead(3000));
  EXPECT_TRUE(s.isOpen());
}

TEST(SocketConnect, ClosedPortIsRefused) {
  const std::uint16_t port = closedPort();
  socket s;
  ASSERT_TRUE(s.create());
  EXPECT_FALSE(s.connect(kvs::sock::makeAddress("127.0.0.1", port), false));
  EXPECT_FALSE(s.isOpen());
  ASSERT_TRUE(s.create());
  EXPECT_THROW(s.connect(kvs::sock::makeAddress("127.0.0.1", port), true),
               kvs::UnableToConnectException);
  socket timed;
  timed.setConnectTimeout(1000);
  ASSERT_TRUE(timed.create());
  EXPECT_THROW(timed.connect(kvs::sock::makeAddress("127.0.0.1", port), true),
               kvs::UnableToConnectException);
}

TEST(SocketConnect, TimedConnectLeavesModeByOtherTimeouts) {
  ScriptedServer server({pause(200)});
  socket plain;
  plain.setConnectTimeout(2000);
  ASSERT_TRUE(plain.create());
  ASSERT_TRUE(plain.connect(kvs::sock::makeAddress("127.0.0.1", server.port()), true));
  EXPECT_FALSE(plain.nonBlocking());

  ScriptedServer other({pause(200)});
  socket timedReads(500, 0);
  timedReads.setConnectTimeout(2000);
  ASSERT_TRUE(timedReads.create());
  ASSERT_TRUE(timedReads.connect(kvs::sock::makeAddress("127.0.0.1", other.port()), true));
  EXPECT_TRUE(timedReads.nonBlocking());
}

TEST(SocketSend, EmptyTextAndCrlf) {
  ScriptedServer server({receive(), receive()});
  socket s;
  connectTo(s, server.port());
  EXPECT_TRUE(s.sendLine("", false, true));  // sends nothing at all
  EXPECT_TRUE(s.sendLine("", true, true));   // a bare CRLF
  EXPECT_TRUE(s.sendLine("hello", true, true));
  EXPECT_EQ(server.finish(), (std::vector<std::string>{"", "hello"}));
}

TEST(SocketSend, ToClosedSocketFails) {
  socket s;
  EXPECT_FALSE(s.sendLine("x", true, false));
  EXPECT_THROW(s.sendLine("x", true, true), kvs::ConnectionResetException);
}

TEST(SocketPeek, DoesNotConsume) {
  ScriptedServer server({send("abcdef\n")});
  socket s(2000, 0);
  connectTo(s, server.port());
  std::string first;
  ASSERT_TRUE(s.peek(first, 3, true));
  EXPECT_EQ(first, "abc");
  std::string line;
  ASSERT_TRUE(s.receiveLine(line, true));
  EXPECT_EQ(line, "abcdef");
}

// Plays the client side of accept(): connects and sends `first`.
struct AcceptCase {
  const char* name;
  std::string first;
  bool plainText;
};

TEST(SocketAccept, FirstThreeBytesDecidePlainText) {
  const AcceptCase cases[] = {
      {"lower-case command", "get / HTTP/1.0\r\n", true},
      {"upper-case command", "EHLO x\r\n", true},
      {"TLS hello", std::string("\x16\x03\x01\x02", 4), false},
      {"digits", "123\r\n", false},
      {"two letters then blank", "ab \r\n", false},
  };
  for (const AcceptCase& c : cases) {
    for (bool secure : {false, true}) {
      SCOPED_TRACE(std::string(c.name) + (secure ? " (secure)" : ""));
      socket listener;
      ASSERT_TRUE(listener.create());
      ASSERT_TRUE(listener.bindAndListen(0, true, "127.0.0.1"));
      socket client;
      connectTo(client, listener.localPort());
      ASSERT_TRUE(client.sendLine(c.first, false, true));
      socket accepted;
      kvs::sock::address peer;
      if (c.plainText) {
        EXPECT_TRUE(listener.accept(accepted, peer, 2000, secure));
        EXPECT_TRUE(accepted.isOpen());
        EXPECT_EQ(peer.ip, kvs::sock::makeAddress("127.0.0.1", 0).ip);
        std::string line;
        ASSERT_TRUE(accepted.receiveLine(line, true));  // the peeked bytes are still there
        EXPECT_EQ(line + "\r\n", c.first);
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

TEST(SocketListen, PortInUseIsReported) {
  socket first;
  ASSERT_TRUE(first.create());
  ASSERT_TRUE(first.bindAndListen(0, true, "127.0.0.1"));
  socket second;
  ASSERT_TRUE(second.create());
  EXPECT_FALSE(second.bindAndListen(first.localPort(), false, "127.0.0.1"));
  EXPECT_THROW(second.bindAndListen(first.localPort(), true, "127.0.0.1"),
               kvs::PortAlreadyUsedException);
}

TEST(SocketWait, SetMarksOnlySocketsWithData) {
  ScriptedServer quiet({pause(600)});
  ScriptedServer talking({send("hi\n"), pause(600)});
  socket a, b;
  connectTo(a, quiet.port());
  connectTo(b, talking.port());
  std::vector<kvs::sock::wait_entry> entries = {{&a, true}, {&b, false}};
  EXPECT_FALSE(socket::waitOnSet(entries, 3000));
  EXPECT_FALSE(entries[0].ready);
  EXPECT_TRUE(entries[1].ready);

  std::vector<kvs::sock::wait_entry> onlyQuiet = {{&a, true}};
  EXPECT_TRUE(socket::waitOnSet(onlyQuiet, 50));
  EXPECT_FALSE(onlyQuiet[0].ready);
}

TEST(SocketClose, StandardHandlesAreNeverClosed) {
  socket s;
  s.attach(2);
  s.close();
  EXPECT_EQ(s.handle(), 0u);
  EXPECT_NE(::fcntl(2, F_GETFD), -1);
}

TEST(SocketCreate, InvalidHandleSurfacesAtConnect) {
  // With every descriptor used up, socket() yields the invalid value; create() keeps it and
  // connect() is where the failure shows. Done in a child so the test process keeps its limit.
  const pid_t child = ::fork();
  ASSERT_NE(child, -1);
  if (child == 0) {
    rlimit limit{16, 16};
    ::setrlimit(RLIMIT_NOFILE, &limit);
    while (::dup(0) != -1) {
    }
    int code = 0;
    socket s;
    if (!s.create(socket::kStream, false)) code = 1;
    if (s.handle() != static_cast<kvs::sock::handle_t>(-1)) code = 2;
    try {
      s.connect(kvs::sock::makeAddress("127.0.0.1", 1), true);
      code = 3;
    } catch (const kvs::UnableToConnectException&) {
    }
    ::_exit(code);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

// The classic dotted forms: one to four parts, each decimal, octal (leading 0) or hexadecimal
// (0x); the last part fills the bytes that are left.
TEST(SocketAddress, DottedAddressesOnly) {
  const kvs::sock::address a = kvs::sock::makeAddress("127.0.0.1", 106);
  EXPECT_EQ(a.family, 2);
  const auto* port = reinterpret_cast<const unsigned char*>(&a.port);
  EXPECT_EQ(port[0] * 256 + port[1], 106);

  const struct {
    const char* text;
    unsigned char bytes[4];
  } valid[] = {
      {"127.0.0.1", {127, 0, 0, 1}}, {"127.1", {127, 0, 0, 1}}, {"010.0.0.1", {8, 0, 0, 1}},
      {"0x7f.1", {127, 0, 0, 1}},    {"1.2.3", {1, 2, 0, 3}},   {"2130706433", {127, 0, 0, 1}},
      {"1.2.0x1ff", {1, 2, 1, 255}}, {"0.0.0.0", {0, 0, 0, 0}},
  };
  for (const auto& v : valid) {
    SCOPED_TRACE(v.text);
    const kvs::sock::address got = kvs::sock::makeAddress(v.text, 1);
    const auto* ip = reinterpret_cast<const unsigned char*>(&got.ip);
    EXPECT_EQ(std::vector<unsigned char>(ip, ip + 4),
              std::vector<unsigned char>(v.bytes, v.bytes + 4));
  }

  const char* malformed[] = {"256.1.1.1", "a.b.c.d",  "1.2.3.4.5", "1..2.3",
                             " 1.2.3.4",  "08.1.1.1", "localhost"};
  for (const char* text : malformed) {
    SCOPED_TRACE(text);
    try {
      (void)kvs::sock::makeAddress(text, 1);
      ADD_FAILURE() << "accepted";
    } catch (const kvs::UnableToResolveAddressException& e) {
      EXPECT_STREQ(e.what(), "Invalid IP address");
    }
  }
  try {
    (void)kvs::sock::makeAddress("", 1);
    ADD_FAILURE() << "accepted";
  } catch (const kvs::UnableToResolveAddressException& e) {
    EXPECT_STREQ(e.what(), "Invalid IP Address");
  }
}

// A host that is meant as a dotted address (its last part begins with a digit) is never looked
// up as a name: a malformed one is an invalid address wherever a connection is made.
TEST(SocketAddress, MalformedDottedAddressIsNotLookedUp) {
  EXPECT_EQ(kvs::sock::resolveAddress("0x7f.1", 25).ip, kvs::sock::makeAddress("127.0.0.1", 25).ip);
  const std::vector<std::function<void(const std::string&)>> connects = {
      [](const std::string& host) { (void)kvs::sock::resolveAddress(host, 1); },
      [](const std::string& host) { kvs::pop3::client().connect(host, 1); },
      [](const std::string& host) { cgp::CLISession(host, 1, "u", "p", 0); },
  };
  for (const char* host : {"1.2.3.999", "127.0.0.1.5", "1..2", "10.0.0.08"}) {
    for (std::size_t i = 0; i < connects.size(); ++i) {
      SCOPED_TRACE(std::string(host) + " #" + std::to_string(i));
      try {
        connects[i](host);
        ADD_FAILURE() << "accepted";
      } catch (const kvs::UnableToResolveAddressException& e) {
        EXPECT_STREQ(e.what(), "Invalid IP address");
      }
    }
  }
}

TEST(SocketAddress, ResolvesLocalNames) {
  const kvs::ptr<kvs::sock::host_entry> entry = kvs::sock::resolve("localhost");
  ASSERT_FALSE(entry->dotted.empty());
  EXPECT_EQ(entry->dotted.front().substr(0, 4), "127.");
  EXPECT_EQ(kvs::sock::resolveAddress("localhost", 25).ip, entry->addresses.front());
  EXPECT_THROW((void)kvs::sock::resolve(""), kvs::UnableToResolveAddressException);
}

}  // namespace
