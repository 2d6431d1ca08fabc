// The socket class over BSD sockets (POSIX) or Winsock (Windows). The two differ only in the
// few helpers at the top of this file; everything below them is shared.
#include "access/socket.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

#include "kvs/ascii.h"
#include "kvs/exception.h"
#include "kvs/md5.h"

#ifdef _WIN32
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <winsock2.h>
#include <ws2tcpip.h>
#else
#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>
#endif

namespace kvs::sock {
namespace {

#ifdef _WIN32
using native_t = SOCKET;
using length_t = int;
constexpr int kSendFlags = 0;

int lastSocketError() {
  return ::WSAGetLastError();
}
bool connectInProgress(int error) {
  return error == WSAEWOULDBLOCK;
}
void closeNative(native_t s) {
  ::closesocket(s);
}
bool setBlockingMode(native_t s, bool nonBlocking) {
  u_long mode = nonBlocking ? 1 : 0;
  return ::ioctlsocket(s, FIONBIO, &mode) == 0;
}
// select() ignores its first argument on Windows and a set holds any handle value.
bool fitsInSet(native_t) {
  return true;
}

// The classic dotted-address conversion; the address comes in network order.
bool convertDotted(const char* text, std::uint32_t& ip) {
  ip = ::inet_addr(text);
  // inet_addr has no failure value of its own: the broadcast address reads as one.
  return ip != INADDR_NONE || std::strcmp(text, "255.255.255.255") == 0;
}

bool startLibrary() {
  WSADATA data;
  return ::WSAStartup(257, &data) == 0;  // version 1.1
}
void stopLibrary() {
  ::WSACleanup();
}
#else
using native_t = int;
using length_t = socklen_t;
#ifdef MSG_NOSIGNAL
// A peer that went away must fail the send, not raise SIGPIPE in the caller's process.
constexpr int kSendFlags = MSG_NOSIGNAL;
#else
constexpr int kSendFlags = 0;
#endif

int lastSocketError() {
  return errno;
}
bool connectInProgress(int error) {
  return error == EINPROGRESS || error == EWOULDBLOCK;
}
void closeNative(native_t s) {
  ::close(s);
}
bool setBlockingMode(native_t s, bool nonBlocking) {
  int mode = nonBlocking ? 1 : 0;
  return ::ioctl(s, FIONBIO, &mode) == 0;
}
bool fitsInSet(native_t s) {
  return s >= 0 && s < FD_SETSIZE;
}

bool convertDotted(const char* text, std::uint32_t& ip) {
  in_addr converted;
  if (::inet_aton(text, &converted) == 0) return false;
  ip = converted.s_addr;
  return true;
}

bool startLibrary() {
  return true;
}
void stopLibrary() {}
#endif

native_t nativeOf(handle_t h) {
  return static_cast<native_t>(h);
}

// The platform's socket library for the whole process: started by the first start() that
// succeeds, stopped when the process ends. Unguarded: the first start happens before threads
// share sockets.
class Library {
 public:
  static bool start() {
    static Library library;
    if (!library.started_) library.started_ = startLibrary();
    return library.started_;
  }
  ~Library() {
    if (started_) stopLibrary();
  }

 private:
  bool started_ = false;
};

sockaddr_in toNative(const address& a) {
  sockaddr_in sa;
  std::memset(&sa, 0, sizeof sa);
  sa.sin_family = AF_INET;
  sa.sin_port = a.port;
  sa.sin_addr.s_addr = a.ip;
  return sa;
}

// A name's last part never begins with a digit, so a host whose last part does (or that is
// nothing but digits and dots) is meant as a dotted address and is never looked up.
bool meantAsAddress(std::string_view host) {
  const std::size_t dot = host.rfind('.');
  const std::string_view last = dot == std::string_view::npos ? host : host.substr(dot + 1);
  return host.find_first_not_of("0123456789.") == std::string_view::npos ||
         (!last.empty() && kvs::isDigit(static_cast<unsigned char>(last[0])));
}

timeval toTimeval(std::uint32_t milliseconds) {
  const wait_time w = waitTime(milliseconds);
  timeval tv;
  tv.tv_sec = w.seconds;
  tv.tv_usec = w.microseconds;
  return tv;
}

// select() on one handle: above 0 when it is ready, 0 on a time-out, below 0 on an error or
// for a handle that a set cannot hold.
int selectOne(native_t s, std::uint32_t milliseconds, bool forWriting) {
  if (!fitsInSet(s)) return -1;
  fd_set set;
  FD_ZERO(&set);
  FD_SET(s, &set);
  timeval tv = toTimeval(milliseconds);
  return ::select(static_cast<int>(s) + 1, forWriting ? nullptr : &set, forWriting ? &set : nullptr,
                  nullptr, &tv);
}

}  // namespace

wait_time waitTime(std::uint32_t milliseconds) {
  const std::uint64_t ms = milliseconds;
  return {static_cast<long>(ms / 1000), static_cast<long>((ms * 1000) % 1000000)};
}

bool startup(bool throwOnError) {
  if (Library::start()) return true;
  if (throwOnError) throw kvs::SocketException();
  return false;
}

std::string loginRefusal(std::string_view detail) {
  std::string text = "Invalid username or password";
  if (!detail.empty()) text.append(" (").append(detail).append(")");
  return text;
}

std::string stampDigest(std::string_view greeting, std::string_view password) {
  const std::size_t open = greeting.find('<');
  const std::size_t close = greeting.find('>', open);
  if (close == std::string_view::npos) return std::string();
  std::string stamped(greeting.substr(open, close - open + 1));
  stamped += password;
  return kvs::md5Hex(stamped);
}

address makeAddress(const std::string& host, std::uint16_t port) {
  // The two spellings are the library's own: the capital one for a missing host.
  if (host.empty()) throw kvs::UnableToResolveAddressException("Invalid IP Address");
  address a;
  if (!convertDotted(host.c_str(), a.ip)) {
    throw kvs::UnableToResolveAddressException("Invalid IP address");
  }
  a.port = htons(port);
  return a;
}

ptr<host_entry> resolve(const std::string& name) {
  startup(false);
  addrinfo hints;
  std::memset(&hints, 0, sizeof hints);
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (name.empty() || ::getaddrinfo(name.c_str(), nullptr, &hints, &found) != 0 || !found) {
    throw kvs::UnableToResolveAddressException();
  }
  ptr<host_entry> entry(new host_entry);
  entry->name = name;
  for (const addrinfo* p = found; p != nullptr; p = p->ai_next) {
    if (p->ai_family != AF_INET || p->ai_addr == nullptr) continue;
    sockaddr_in sa;
    std::memcpy(&sa, p->ai_addr, sizeof sa);
    const std::uint32_t ip = sa.sin_addr.s_addr;
    if (std::find(entry->addresses.begin(), entry->addresses.end(), ip) != entry->addresses.end()) {
      continue;
    }
    entry->addresses.push_back(ip);
    entry->dotted.push_back(::inet_ntoa(sa.sin_addr));
  }
  ::freeaddrinfo(found);
  if (entry->addresses.empty()) throw kvs::UnableToResolveAddressException();
  return entry;
}

address resolveAddress(const std::string& host, std::uint16_t port) {
  if (host.empty() || meantAsAddress(host)) return makeAddress(host, port);
  const ptr<host_entry> entry = resolve(host);
  address a;
  a.port = htons(port);
  a.ip = entry->addresses.front();
  return a;
}

socket::~socket() {
  close();
}

template <class E>
bool socket::fail(bool throwOnError) {
  close();
  if (throwOnError) throw E();
  return false;
}

bool socket::switchMode(std::uint32_t timeout, bool throwOnError) {
  const bool wanted = timeout != 0;
  if (wanted == nonBlocking_) return true;
  if (!setBlockingMode(nativeOf(handle_), wanted)) {
    if (throwOnError) throw kvs::SocketException();
    return false;
  }
  nonBlocking_ = wanted;
  return true;
}

bool socket::waitReady(std::uint32_t timeout, bool forWriting) {
  if (selectOne(nativeOf(handle_), timeout, forWriting) > 0) return true;
  close();
  return false;
}

bool socket::create(std::uint32_t kind, bool throwOnError) {
  if (!startup(throwOnError)) return false;
  close();
  const native_t s = ::socket(AF_INET, static_cast<int>(kind + 1), kind ? 17 : 6);
  // Only 0 counts as failure here: the invalid-socket value is kept and fails at connect or
  // bind, which is where callers look for a failure.
  if (s == 0) {
    if (throwOnError) throw kvs::SocketException();
    return false;
  }
  handle_ = static_cast<handle_t>(s);
  return true;
}

bool socket::connect(const address& to, bool throwOnError) {
  buffer_.clear();
  if (!switchMode(connectTimeout_, throwOnError)) return false;
  const sockaddr_in sa = toNative(to);
  const int result =
      ::connect(nativeOf(handle_), reinterpret_cast<const sockaddr*>(&sa), sizeof sa);
  if (connectTimeout_ == 0) {
    if (result != 0) return fail<kvs::UnableToConnectException>(throwOnError);
    return true;
  }
  if (result == 0) return true;
  if (result < 0 && connectInProgress(lastSocketError()) && waitReady(connectTimeout_, true)) {
    // Writable also means "failed" for a pending connect; the socket's error tells which.
    int error = 0;
    length_t length = sizeof error;
    if (::getsockopt(nativeOf(handle_), SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&error),
                     &length) == 0 &&
        error == 0) {
      if (sendTimeout_ == 0 && receiveTimeout_ == 0) switchMode(0, false);
      return true;
    }
  }
  return fail<kvs::UnableToConnectException>(throwOnError);
}

bool socket::bindAndListen(std::uint16_t port, bool throwOnError, const std::string& host) {
  address a;
  try {
    a = makeAddress(host, port);
  } catch (const kvs::UnableToResolveAddressException&) {
    if (throwOnError) throw;
    return false;
  }
  if (!switchMode(0, false)) {
    if (throwOnError) throw kvs::PortAlreadyUsedException();
    return false;
  }
  buffer_.clear();
  const sockaddr_in sa = toNative(a);
  const native_t s = nativeOf(handle_);
  if (::bind(s, reinterpret_cast<const sockaddr*>(&sa), sizeof sa) != 0 || ::listen(s, 5) != 0) {
    if (throwOnError) throw kvs::PortAlreadyUsedException();
    return false;
  }
  return true;
}

bool socket::acceptConnection(socket& into, address& peer, std::uint32_t receiveTimeout) {
  if (nonBlocking_ && !switchMode(0, false)) return false;
  peer = address{};
  into.close();
  sockaddr_in sa;
  std::memset(&sa, 0, sizeof sa);
  sa.sin_family = AF_INET;
  length_t length = sizeof sa;
  const native_t s = ::accept(nativeOf(handle_), reinterpret_cast<sockaddr*>(&sa), &length);
  const handle_t h = static_cast<handle_t>(s);
  if (h == 0 || h == static_cast<handle_t>(static_cast<native_t>(-1))) return false;
  into.handle_ = h;
  into.nonBlocking_ = false;
  into.connectTimeout_ = 0;
  into.sendTimeout_ = 0;
  into.receiveTimeout_ = receiveTimeout;
  into.buffer_.clear();
  peer.port = sa.sin_port;
  peer.ip = sa.sin_addr.s_addr;
  return true;
}

bool socket::accept(socket& into, address& peer, std::uint32_t receiveTimeout, bool requireSecure) {
  if (!acceptConnection(into, peer, receiveTimeout)) return false;
  std::string first;
  into.peek(first, 3, false);
  bool letters = first.size() == 3;
  for (char c : first) {
    const unsigned char lower = kvs::asciiLower(static_cast<unsigned char>(c));
    letters = letters && lower >= 'a' && lower <= 'z';
  }
  if (letters) return true;
  if (requireSecure) throw kvs::InvalidSSLCertificateOrKeyException();
  into.close();
  return false;
}

bool socket::sendLine(std::string_view text, bool addCrlf, bool throwOnError) {
  std::string data(text);
  if (addCrlf) data += "\r\n";
  if (data.empty()) return true;
  if (!switchMode(sendTimeout_, throwOnError)) return false;
  const auto sent =
      ::send(nativeOf(handle_), data.data(), static_cast<length_t>(data.size()), kSendFlags);
  const bool whole = sent >= 0 && static_cast<std::size_t>(sent) == data.size();
  if (whole && (sendTimeout_ == 0 || waitReady(sendTimeout_, true))) return true;
  return fail<kvs::ConnectionResetException>(throwOnError);
}

bool socket::receiveChunk(std::string& out, bool throwOnError) {
  // Bytes that the line reader holds came first, so they go first.
  if (!buffer_.empty()) {
    out = std::move(buffer_);
    buffer_.clear();
    return true;
  }
  if (!switchMode(receiveTimeout_, throwOnError)) return false;
  if (receiveTimeout_ == 0 || waitReady(receiveTimeout_, false)) {
    char chunk[4096];
    const auto got = ::recv(nativeOf(handle_), chunk, static_cast<length_t>(sizeof chunk), 0);
    if (got > 0) {
      out.assign(chunk, static_cast<std::size_t>(got));
      return true;
    }
  }
  out.clear();
  return fail<kvs::ConnectionResetException>(throwOnError);
}

bool socket::peek(std::string& out, std::size_t count, bool throwOnError) {
  out.clear();
  if (!switchMode(receiveTimeout_, throwOnError)) return false;
  std::string buffer(count, '\0');
  long long got = 0;
  if (receiveTimeout_ == 0) {
    got = ::recv(nativeOf(handle_), buffer.data(), static_cast<length_t>(count), MSG_PEEK);
  } else {
    // The bytes asked for may arrive in pieces: look again every 50 ms until they are all
    // there or the receive time-out is used up.
    for (std::uint32_t elapsed = 0;; elapsed += 50) {
      if (!waitReady(receiveTimeout_, false)) break;
      got = ::recv(nativeOf(handle_), buffer.data(), static_cast<length_t>(count), MSG_PEEK);
      if (got <= 0 || static_cast<std::size_t>(got) >= count || elapsed + 50 >= receiveTimeout_) {
        break;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
  }
  if (got <= 0) return fail<kvs::ConnectionResetException>(throwOnError);
  out.assign(buffer.data(), static_cast<std::size_t>(got));
  return true;
}

bool socket::receiveLine(std::string& out, bool throwOnError, bool keepLineEnd) {
  out.clear();
  for (;;) {
    const std::size_t end = buffer_.find('\n');
    if (end != std::string::npos) {
      out.append(buffer_, 0, keepLineEnd ? end + 1 : end);
      buffer_.erase(0, end + 1);
      if (!keepLineEnd && out.ends_with('\r')) out.pop_back();
      return true;
    }
    out += buffer_;
    buffer_.clear();
    if (!receiveChunk(buffer_, throwOnError)) {
      out.clear();
      return false;
    }
  }
}

bool socket::nothingToRead(std::uint32_t milliseconds) {
  return selectOne(nativeOf(handle_), milliseconds, false) == 0;
}

bool socket::waitOnSet(std::vector<wait_entry>& entries, std::uint32_t milliseconds) {
  fd_set set;
  FD_ZERO(&set);
  native_t highest = 0;
  int added = 0;
  for (wait_entry& e : entries) {
    e.ready = false;
    if (e.sock == nullptr || added >= 64) continue;
    const native_t s = nativeOf(e.sock->handle_);
    if (!fitsInSet(s)) continue;
    FD_SET(s, &set);
    ++added;
    if (s > highest) highest = s;
  }
  timeval tv = toTimeval(milliseconds);
  const int result = ::select(static_cast<int>(highest) + 1, &set, nullptr, nullptr, &tv);
  if (result == 0) return true;
  if (result < 0) return false;
  for (wait_entry& e : entries) {
    if (e.sock == nullptr) continue;
    const native_t s = nativeOf(e.sock->handle_);
    e.ready = fitsInSet(s) && FD_ISSET(s, &set);
  }
  return false;
}

void socket::close() {
  if (nonBlocking_ && handle_ != 0) switchMode(0, false);
  nonBlocking_ = false;
  buffer_.clear();
  // Handles 0-2 are the standard streams on POSIX: never close those.
  if (handle_ >= 3) closeNative(nativeOf(handle_));
  handle_ = 0;
}

void socket::attach(handle_t handle) {
  close();
  handle_ = handle;
}

std::uint16_t socket::localPort() const {
  sockaddr_in sa;
  std::memset(&sa, 0, sizeof sa);
  length_t length = sizeof sa;
  if (::getsockname(nativeOf(handle_), reinterpret_cast<sockaddr*>(&sa), &length) != 0) return 0;
  return ntohs(sa.sin_port);
}

}  // namespace kvs::sock
