// kvs::sock::socket: a blocking-or-timed TCP/UDP socket over BSD sockets or Winsock, with
// whole-line sends, chunk and line reads through one receive buffer, listen and accept.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "kvs/noncopyable.h"
#include "kvs/ptr.h"

namespace kvs::sock {

// The platform's socket handle, wide enough for a Windows SOCKET; 0 means "no socket".
using handle_t = std::uintptr_t;

inline constexpr const char* kAnyAddress = "0.0.0.0";
inline constexpr const char* kLocalHost = "127.0.0.1";

// An IPv4 endpoint as sockaddr_in holds it: port and address in network byte order.
struct address {
  std::uint16_t family = 2;
  std::uint16_t port = 0;
  std::uint32_t ip = 0;
};

// A resolved host: the name asked for and its IPv4 addresses, dotted and in network order.
struct host_entry {
  std::string name;
  std::vector<std::string> dotted;
  std::vector<std::uint32_t> addresses;
};

// Starts the platform's socket library once per process (Winsock 1.1; nothing on POSIX); it
// stops when the process ends. A failure throws kvs::SocketException when asked, else returns
// false, and the next call tries again.
bool startup(bool throwOnError = false);

// The endpoint host:port without any name lookup. The host must be a dotted IPv4 address in
// the classic forms ("127.1", octal "010.0.0.1", hexadecimal "0x7f.1"); anything else throws
// kvs::UnableToResolveAddressException ("Invalid IP address", or "Invalid IP Address" for an
// empty host).
[[nodiscard]] address makeAddress(const std::string& host, std::uint16_t port);

// Looks a host name up with the platform resolver, IPv4 only. Throws
// kvs::UnableToResolveAddressException when nothing resolves.
[[nodiscard]] ptr<host_entry> resolve(const std::string& name);

// makeAddress for a host meant as a dotted address (its last part begins with a digit), else
// the first address that resolve() finds.
[[nodiscard]] address resolveAddress(const std::string& host, std::uint16_t port);

// For the clients that read their servers' answer lines: the text of a refused login, with the
// server's words in parentheses when there are any; the digest of a challenge login (MD5 of the
// greeting's stamp, from its first "<" to the next ">", followed by the password, in lower-case
// hexadecimal; empty when the greeting has no stamp).
[[nodiscard]] std::string loginRefusal(std::string_view detail);
[[nodiscard]] std::string stampDigest(std::string_view greeting, std::string_view password);

class socket;

// One entry of a wait on several sockets; `ready` is set when the socket has data.
struct wait_entry {
  socket* sock = nullptr;
  bool ready = false;
};

// Time-outs are in milliseconds; 0 means blocking without limit. Every operation that takes a
// throw flag either throws the socket error of the library (true) or returns false (false).
// Every failure that ends a connection closes the socket, so a caller can create it again.
class socket : private noncopyable {
 public:
  enum Kind : std::uint32_t { kStream = 0, kDatagram = 1 };

  socket() = default;
  socket(std::uint32_t receiveTimeout, std::uint32_t sendTimeout)
      : sendTimeout_(sendTimeout), receiveTimeout_(receiveTimeout) {}
  virtual ~socket();

  bool create(std::uint32_t kind = kStream, bool throwOnError = false);
  bool connect(const address& to, bool throwOnError = false);
  // Binds to host:port (every interface unless a host is given) and listens, backlog 5.
  bool bindAndListen(std::uint16_t port, bool throwOnError = false,
                     const std::string& host = kAnyAddress);
  // Accepts one connection into `into` and checks that it speaks a plain-text protocol: the
  // client's first three bytes must be letters. Otherwise a secure endpoint throws
  // kvs::InvalidSSLCertificateOrKeyException and a plain one drops the connection.
  bool accept(socket& into, address& peer, std::uint32_t receiveTimeout, bool requireSecure);
  // The accept step alone, for protocols where the server speaks first.
  bool acceptConnection(socket& into, address& peer, std::uint32_t receiveTimeout);

  bool sendLine(std::string_view text, bool addCrlf = true, bool throwOnError = false);
  // Replaces `out` with the bytes the line reader holds, or else with up to 4096 bytes, whatever
  // one receive brings.
  bool receiveChunk(std::string& out, bool throwOnError = false);
  // Hands bytes back: the next read starts with them.
  void putBack(std::string_view bytes) { buffer_.insert(0, bytes); }
  // Up to `count` bytes without consuming them.
  bool peek(std::string& out, std::size_t count, bool throwOnError = false);
  // One line ended by LF; a CR right before the LF is dropped, unless the line end is kept.
  bool receiveLine(std::string& out, bool throwOnError = false, bool keepLineEnd = false);

  // True when nothing arrived to read within `milliseconds`.
  bool nothingToRead(std::uint32_t milliseconds);
  // Waits until one of the sockets has data (at most 64 are waited on). True on a time-out;
  // otherwise marks the ready entries.
  static bool waitOnSet(std::vector<wait_entry>& entries, std::uint32_t milliseconds);

  void close();

  // Takes over an already open handle (the receive buffer starts empty).
  void attach(handle_t handle);
  [[nodiscard]] handle_t handle() const { return handle_; }
  [[nodiscard]] bool isOpen() const { return handle_ != 0; }
  // The local port of a bound socket (0 when unknown), for listeners on port 0.
  [[nodiscard]] std::uint16_t localPort() const;

  void setConnectTimeout(std::uint32_t ms) { connectTimeout_ = ms; }
  void setSendTimeout(std::uint32_t ms) { sendTimeout_ = ms; }
  void setReceiveTimeout(std::uint32_t ms) { receiveTimeout_ = ms; }
  [[nodiscard]] std::uint32_t connectTimeout() const { return connectTimeout_; }
  [[nodiscard]] std::uint32_t sendTimeout() const { return sendTimeout_; }
  [[nodiscard]] std::uint32_t receiveTimeout() const { return receiveTimeout_; }
  [[nodiscard]] bool nonBlocking() const { return nonBlocking_; }

 protected:
  // Non-blocking mode when `timeout` is non-zero, blocking otherwise; switched lazily.
  bool switchMode(std::uint32_t timeout, bool throwOnError);
  // Waits for the handle to become readable (or writable); closes the socket on a time-out.
  bool waitReady(std::uint32_t timeout, bool forWriting);
  // Closes, then throws E when asked or returns false.
  template <class E>
  bool fail(bool throwOnError);

 private:
  bool nonBlocking_ = false;
  std::uint32_t connectTimeout_ = 0;
  std::uint32_t sendTimeout_ = 0;
  std::uint32_t receiveTimeout_ = 0;
  handle_t handle_ = 0;
  std::string buffer_;
};

// The select() time-out for `milliseconds`: whole seconds and the remaining microseconds.
struct wait_time {
  long seconds;
  long microseconds;
};
[[nodiscard]] wait_time waitTime(std::uint32_t milliseconds);

}  // namespace kvs::sock
