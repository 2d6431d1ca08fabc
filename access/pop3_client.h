// kvs::pop3::client: a minimal POP3 client (RFC 1939) over the socket layer: greeting,
// USER/PASS or APOP, STAT, RETR into a stream, DELE and QUIT.
#pragma once

#include <cstdint>
#include <ostream>
#include <string>

#include "access/socket.h"
#include "kvs/noncopyable.h"

namespace kvs::pop3 {

class client : private noncopyable {
 public:
  enum State : std::uint32_t { kClosed = 0, kAuthorization = 1, kTransaction = 2 };

  client() = default;
  // Sends QUIT when still connected; never throws.
  ~client();

  // Time-outs of the connection in milliseconds (0, the default, waits without limit).
  void setTimeouts(std::uint32_t receive, std::uint32_t send);

  // Connects and reads the greeting; a greeting that is not "+OK" throws
  // kvs::InvalidServerPromptException. Socket errors pass through.
  void connect(const std::string& host, std::uint16_t port);
  // USER/PASS, or APOP with the greeting's stamp. A refusal throws kvs::InvalidLoginException;
  // APOP without a stamp in the greeting throws kvs::InvalidServerPromptException.
  void login(const std::string& user, const std::string& password, bool apop = false);
  // STAT: the number of messages; the mailbox size in octets goes to `totalSize` when given.
  std::uint32_t count(std::uint64_t* totalSize = nullptr);
  // RETR: the message with "\n" line ends, dot-unstuffed, without the final dot line.
  void retrieve(std::uint32_t number, std::ostream& out);
  // DELE: true when the server marked the message deleted.
  bool remove(std::uint32_t number);
  // QUIT, without throwing, then closes the connection.
  void close();

  [[nodiscard]] State state() const { return static_cast<State>(state_); }
  [[nodiscard]] const std::string& lastResponse() const { return lastResponse_; }
  [[nodiscard]] const std::string& greeting() const { return greeting_; }

 private:
  // Reads one status line into lastResponse_ (and, untrimmed, into `line`); true for "+OK". On
  // failure with `quitOnFailure` the session is ended (QUIT, close).
  bool readStatus(bool quitOnFailure, std::string* line = nullptr);
  void require(State wanted) const;
  void quit();

  sock::socket socket_;
  std::uint32_t state_ = kClosed;
  std::string lastResponse_;
  std::string greeting_;
  bool dropLineFeed_ = false;  // the last RETR ended on a CR whose LF has not come yet
};

}  // namespace kvs::pop3
