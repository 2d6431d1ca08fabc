// The POP3 client: status lines, the two logins, STAT, RETR with dot-unstuffing, DELE, QUIT.
#include "access/pop3_client.h"

#include "access/pop3_retrieve.h"
#include "kvs/ascii.h"
#include "kvs/exception.h"

namespace kvs::pop3 {
namespace {

// The decimal number after any blanks at the start of `text` (0 when there is none, or when it
// is beyond 64 bits); `text` moves past it.
std::uint64_t takeNumber(std::string_view& text) {
  text = kvs::trimLeft(text, " \t");
  const kvs::LeadingNumber n = kvs::leadingNumber(text);
  text.remove_prefix(n.digits);
  return n.value;
}

}  // namespace

client::~client() {
  if (state_ == kClosed) return;
  try {
    close();
  } catch (...) {
    // A destructor must not throw; the connection is gone either way.
  }
}

void client::setTimeouts(std::uint32_t receive, std::uint32_t send) {
  socket_.setReceiveTimeout(receive);
  socket_.setSendTimeout(send);
}

void client::require(State wanted) const {
  if (state_ == wanted) return;
  throw ProtocolException(wanted == kAuthorization ? "POP3 session is not waiting for a login"
                                                   : "POP3 session is not logged in");
}

// One status line, read up to its line end through the socket rather than taken as one
// receive, on purpose: a line split over two receives, or arriving with a message's first
// lines, is then read right instead of failing or waiting for ever.
bool client::readStatus(bool quitOnFailure, std::string* line) {
  if (dropLineFeed_) {
    dropLineFeed_ = false;
    std::string next;
    socket_.receiveChunk(next, true);
    socket_.putBack(std::string_view(next).substr(next.starts_with('\n') ? 1 : 0));
  }
  std::string text;
  socket_.receiveLine(text, true);
  lastResponse_ = kvs::trim(text, kLineBlanks);
  if (line != nullptr) *line = std::move(text);
  if (lastResponse_.starts_with("+OK")) return true;
  if (quitOnFailure) quit();
  return false;
}

void client::quit() {
  socket_.sendLine("QUIT", true, false);
  std::string ignored;
  socket_.receiveChunk(ignored, false);
  socket_.close();
  dropLineFeed_ = false;
  state_ = kClosed;
}

void client::connect(const std::string& host, std::uint16_t port) {
  if (state_ != kClosed) close();
  const sock::address to = sock::resolveAddress(host, port);
  dropLineFeed_ = false;
  socket_.create(sock::socket::kStream, true);
  socket_.connect(to, true);
  if (!readStatus(true)) throw InvalidServerPromptException(lastResponse_);
  greeting_ = lastResponse_;
  state_ = kAuthorization;
}

void client::login(const std::string& user, const std::string& password, bool apop) {
  require(kAuthorization);
  if (apop) {
    const std::string digest = sock::stampDigest(greeting_, password);
    if (digest.empty()) throw InvalidServerPromptException(greeting_);
    socket_.sendLine("APOP " + user + " " + digest, true, true);
    if (!readStatus(false)) throw InvalidLoginException(sock::loginRefusal(lastResponse_));
  } else {
    socket_.sendLine("USER " + user, true, true);
    if (!readStatus(false)) throw InvalidLoginException(sock::loginRefusal(lastResponse_));
    socket_.sendLine("PASS " + password, true, true);
    if (!readStatus(false)) throw InvalidLoginException(sock::loginRefusal(lastResponse_));
  }
  state_ = kTransaction;
}

std::uint32_t client::count(std::uint64_t* totalSize) {
  require(kTransaction);
  socket_.sendLine("STAT", true, true);
  if (!readStatus(false) || lastResponse_.size() < 4) {
    throw InvalidServerResponseException(lastResponse_);
  }
  std::string_view rest = std::string_view(lastResponse_).substr(3);
  // A count that is not a number reads as 0, as a plain decimal conversion would.
  const std::uint64_t messages = takeNumber(rest);
  const std::uint64_t size = takeNumber(rest);
  if (totalSize != nullptr) *totalSize = size;
  return static_cast<std::uint32_t>(messages);
}

void client::retrieve(std::uint32_t number, std::ostream& out) {
  require(kTransaction);
  socket_.sendLine("RETR " + std::to_string(number), true, true);
  std::string status;
  if (!readStatus(false, &status)) throw InvalidServerResponseException(lastResponse_);
  RetrieveReader reader;
  // A lone CR ends the status line as it ends a message line: what follows it is the message.
  const std::size_t cr = status.find('\r');
  if (cr != std::string::npos) reader.feed(status.substr(cr + 1) + "\r\n", out);
  std::string chunk;
  while (!reader.ended()) {
    socket_.receiveChunk(chunk, true);
    reader.feed(chunk, out);
  }
  socket_.putBack(reader.rest());
  dropLineFeed_ = reader.lineFeedMayFollow();
}

bool client::remove(std::uint32_t number) {
  require(kTransaction);
  socket_.sendLine("DELE " + std::to_string(number), true, true);
  if (!readStatus(false)) throw InvalidServerResponseException(lastResponse_);
  return true;
}

void client::close() {
  if (state_ == kClosed && !socket_.isOpen()) return;
  quit();
}

}  // namespace kvs::pop3
