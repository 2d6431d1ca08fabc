// The POP3 client against a scripted server: the lines of both logins, STAT, RETR with
// dot-stuffing and every kind of line end in pieces, DELE, QUIT, and each failure.
#include "access/pop3_client.h"

#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "access/scripted_server.h"
#include "kvs/exception.h"
#include "kvs/md5.h"

namespace {

using kvs::pop3::client;
using testing_server::hangUp;
using testing_server::pause;
using testing_server::receive;
using testing_server::ScriptedServer;
using testing_server::send;

void connectTo(client& pop, std::uint16_t port) {
  pop.setTimeouts(5000, 0);
  pop.connect("127.0.0.1", port);
}

TEST(Pop3Client, PlainSessionFromGreetingToQuit) {
  ScriptedServer server({send("+OK POP3 ready\r\n"), receive(), send("+OK\r\n"), receive(),
                         send("+OK logged in\r\n"), receive(), send("+OK 2 320\r\n"), receive(),
                         send("+OK 120 octets\r\nSubject: x\r\n\r\n..dot\r\n"), pause(30),
                         send("lone lf\nlone cr\rsplit cr"), pause(30), send("\r"), pause(30),
                         send("\n..\r\n\r\nend\r\n.\r\n"), receive(), send("+OK deleted\r\n"),
                         receive(), send("+OK bye\r\n")});
  client pop;
  connectTo(pop, server.port());
  EXPECT_EQ(pop.state(), client::kAuthorization);
  EXPECT_EQ(pop.greeting(), "+OK POP3 ready");
  pop.login("alice", "secret");
  EXPECT_EQ(pop.state(), client::kTransaction);
  std::uint64_t size = 0;
  EXPECT_EQ(pop.count(&size), 2u);
  EXPECT_EQ(size, 320u);
  std::ostringstream message;
  pop.retrieve(1, message);
  EXPECT_EQ(message.str(), "Subject: x\n\n.dot\nlone lf\nlone cr\nsplit cr\n.\n\nend\n");
  EXPECT_TRUE(pop.remove(1));
  pop.close();
  EXPECT_EQ(pop.state(), client::kClosed);
  EXPECT_EQ(server.finish(), (std::vector<std::string>{"USER alice", "PASS secret", "STAT",
                                                       "RETR 1", "DELE 1", "QUIT"}));
}

// The final line's CR and LF in two receives: the LF still belongs to RETR, so the next
// command reads its own status line, not an empty one.
TEST(Pop3Client, FinalLineEndSplitAcrossReceives) {
  ScriptedServer server({send("+OK ready\r\n"), receive(), send("+OK\r\n"), receive(),
                         send("+OK in\r\n"), receive(), send("+OK\r\nbody\r\n.\r"), receive(),
                         pause(30), send("\n"), pause(30), send("+OK deleted\r\n"), receive(),
                         send("+OK bye\r\n")});
  client pop;
  connectTo(pop, server.port());
  pop.login("alice", "secret");
  std::ostringstream message;
  pop.retrieve(1, message);
  EXPECT_EQ(message.str(), "body\n");
  EXPECT_TRUE(pop.remove(1));
  EXPECT_EQ(pop.lastResponse(), "+OK deleted");
  pop.close();
  EXPECT_EQ(server.finish(),
            (std::vector<std::string>{"USER alice", "PASS secret", "RETR 1", "DELE 1", "QUIT"}));
}

// The status line of RETR ends like every message line: at CR LF, a lone CR or a lone LF.
// What follows a lone CR in the same receive is already the message.
TEST(Pop3Client, RetrieveStatusLineEndsAtAnyLineEnd) {
  struct Case {
    const char* answer;
    const char* stored;
  } cases[] = {
      {"+OK msg\rline1\r\nline2\r\n.\r\n", "line1\nline2\n"},
      {"+OK msg\r\r\nline2\r\n.\r\n", "\nline2\n"},
      {"+OK msg\r..dot\rlast\n.\r\n", ".dot\nlast\n"},
      {"+OK msg\n.\r\n", ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.answer);
    ScriptedServer server({send("+OK ready\r\n"), receive(), send("+OK\r\n"), receive(),
                           send("+OK\r\n"), receive(), send(c.answer), receive(),
                           send("+OK deleted\r\n"), receive(), send("+OK bye\r\n")});
    client pop;
    connectTo(pop, server.port());
    pop.login("a", "b");
    std::ostringstream message;
    pop.retrieve(1, message);
    EXPECT_EQ(message.str(), c.stored);
    EXPECT_TRUE(pop.remove(1));
    pop.close();
    EXPECT_EQ(server.finish(),
              (std::vector<std::string>{"USER a", "PASS b", "RETR 1", "DELE 1", "QUIT"}));
  }
}

TEST(Pop3Client, ApopUsesTheGreetingStamp) {
  ScriptedServer server({send("+OK ready <1896.697170952@dbc.mtview.ca.us>\r\n"), receive(),
                         send("+OK\r\n"), receive(), send("+OK bye\r\n")});
  client pop;
  connectTo(pop, server.port());
  pop.login("mrose", "tanstaaf", true);
  pop.close();
  // The digest of RFC 1939's own example.
  EXPECT_EQ(server.finish(),
            (std::vector<std::string>{"APOP mrose c4c9334bac560ecc979e58001b3e22fb", "QUIT"}));
}

TEST(Pop3Client, DestructionSendsQuit) {
  ScriptedServer server({send("+OK ready\r\n"), receive(), send("+OK bye\r\n")});
  {
    client pop;
    connectTo(pop, server.port());
  }
  EXPECT_EQ(server.finish(), (std::vector<std::string>{"QUIT"}));
}

TEST(Pop3Client, WrongStateSendsNothing) {
  ScriptedServer server({send("+OK ready\r\n"), receive(), send("+OK\r\n")});
  client pop;
  std::ostringstream out;
  EXPECT_THROW(pop.login("a", "b"), kvs::ProtocolException);
  connectTo(pop, server.port());
  EXPECT_THROW(pop.count(), kvs::ProtocolException);
  EXPECT_THROW(pop.retrieve(1, out), kvs::ProtocolException);
  EXPECT_THROW(pop.remove(1), kvs::ProtocolException);
  pop.close();
  EXPECT_EQ(server.finish(), (std::vector<std::string>{"QUIT"}));
}

TEST(Pop3Client, Failures) {
  {
    SCOPED_TRACE("bad greeting");
    ScriptedServer server({send("-ERR too busy\r\n"), receive(), send("+OK\r\n")});
    client pop;
    try {
      connectTo(pop, server.port());
      ADD_FAILURE() << "connected";
    } catch (const kvs::InvalidServerPromptException& e) {
      EXPECT_STREQ(e.what(), "-ERR too busy");
    }
    EXPECT_EQ(pop.state(), client::kClosed);
    EXPECT_EQ(server.finish(), (std::vector<std::string>{"QUIT"}));
  }
  {
    SCOPED_TRACE("APOP without a stamp");
    ScriptedServer server({send("+OK ready\r\n"), receive(), send("+OK\r\n")});
    client pop;
    connectTo(pop, server.port());
    EXPECT_THROW(pop.login("a", "b", true), kvs::InvalidServerPromptException);
  }
  {
    SCOPED_TRACE("refused password");
    ScriptedServer server({send("+OK ready\r\n"), receive(), send("+OK\r\n"), receive(),
                           send("-ERR [AUTH] Authentication failed.\r\n"), receive(),
                           send("+OK\r\n")});
    client pop;
    connectTo(pop, server.port());
    try {
      pop.login("a", "b");
      ADD_FAILURE() << "logged in";
    } catch (const kvs::InvalidLoginException& e) {
      EXPECT_STREQ(e.what(), "Invalid username or password (-ERR [AUTH] Authentication failed.)");
    }
    EXPECT_EQ(pop.state(), client::kAuthorization);
  }
  {
    SCOPED_TRACE("refused commands");
    ScriptedServer server({send("+OK ready\r\n"), receive(), send("+OK\r\n"), receive(),
                           send("+OK\r\n"), receive(), send("-ERR no\r\n"), receive(),
                           send("-ERR no such message\r\n"), receive(), send("-ERR gone\r\n"),
                           receive(), send("+OK\r\n")});
    client pop;
    connectTo(pop, server.port());
    pop.login("a", "b");
    std::ostringstream out;
    EXPECT_THROW(pop.count(), kvs::InvalidServerResponseException);
    try {
      pop.retrieve(9, out);
      ADD_FAILURE() << "retrieved";
    } catch (const kvs::InvalidServerResponseException& e) {
      EXPECT_STREQ(e.what(), "-ERR no such message");
    }
    EXPECT_THROW(pop.remove(9), kvs::InvalidServerResponseException);
    EXPECT_EQ(out.str(), "");
  }
  {
    SCOPED_TRACE("server gone during RETR");
    ScriptedServer server({send("+OK ready\r\n"), receive(), send("+OK\r\n"), receive(),
                           send("+OK\r\n"), receive(), send("+OK\r\nfirst\r\nsec"), hangUp()});
    client pop;
    connectTo(pop, server.port());
    pop.login("a", "b");
    std::ostringstream out;
    EXPECT_THROW(pop.retrieve(1, out), kvs::ConnectionResetException);
    EXPECT_EQ(out.str(), "first\n");
  }
}

}  // namespace
