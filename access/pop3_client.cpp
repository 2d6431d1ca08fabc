// The POP3 client: status lines, the two logins, STAT, RETR with dot-unstuffing, DELE, QUIT.
#include "access/pop3_client.h"

#include "access/pop3_retrieve.h"

#include "kvs/exception.h"
#include "kvs/md5.h"

namespace kvs::pop3 {
namespace {

constexpr std::string_view kBlanks = " \t\r\n";

std::string trimBlanks(std::string_view text) {
  const std::size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return std::string();
  return std::string(text.substr(first, text.find_last_not_of(kBlanks) - first + 1));
}

// The decimal number at `pos` after any blanks; `pos` moves past it.
std::uint64_t numberAt(const std::string& text, std::size_t& pos, bool& found) {
  while (pos < text.size() && (text[pos] == ' ' || text[pos] == '\t')) ++pos;
  std::uint64_t value = 0;
  found = false;
  while (pos < text.size() && text[pos] >= '0' && text[pos] <= '9') {
    value = value * 10 + static_cast<std::uint64_t>(text[pos] - '0');
    found = true;
    ++pos;
  }
  return value;
}

std::string refusal(const std::string& response) {
  std::string text = "Invalid username or password";
  if (!response.empty()) text += " (" + response + ")";
  return text;
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

// One status line. The server may split it over several receives, so this reads until a line
// end has come; whatever follows the line (a message's first lines) is kept for RETR.
bool client::readStatus(bool quitOnFailure, std::string* line) {
  std::string text = std::move(pending_);
  pending_.clear();
  std::string chunk;
  for (;;) {
    if (dropLineFeed_ && !text.empty()) {
      if (text[0] == '\n') text.erase(0, 1);
      dropLineFeed_ = false;
    }
    if (text.find('\n') != std::string::npos) break;
    socket_.receiveChunk(chunk, true);
    text += chunk;
  }
  const std::size_t end = text.find('\n');
  pending_ = text.substr(end + 1);
  text.resize(end);
  if (!text.empty() && text.back() == '\r') text.pop_back();
  lastResponse_ = trimBlanks(text);
  if (line != nullptr) *line = std::move(text);
  if (lastResponse_.compare(0, 3, "+OK") == 0) return true;
  if (quitOnFailure) quit();
  return false;
}

void client::quit() {
  socket_.sendLine("QUIT", true, false);
  std::string ignored;
  socket_.receiveChunk(ignored, false);
  socket_.close();
  pending_.clear();
  dropLineFeed_ = false;
  state_ = kClosed;
}

void client::connect(const std::string& host, std::uint16_t port) {
  if (state_ != kClosed) close();
  const sock::address to = sock::resolveAddress(host, port);
  pending_.clear();
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
    const std::size_t open = greeting_.find('<');
    const std::size_t close = open == std::string::npos ? open : greeting_.find('>', open);
    if (close == std::string::npos) throw InvalidServerPromptException(greeting_);
    const std::string stamp = greeting_.substr(open, close - open + 1);
    socket_.sendLine("APOP " + user + " " + md5Hex(stamp + password), true, true);
    if (!readStatus(false)) throw InvalidLoginException(refusal(lastResponse_));
  } else {
    socket_.sendLine("USER " + user, true, true);
    if (!readStatus(false)) throw InvalidLoginException(refusal(lastResponse_));
    socket_.sendLine("PASS " + password, true, true);
    if (!readStatus(false)) throw InvalidLoginException(refusal(lastResponse_));
  }
  state_ = kTransaction;
}

std::uint32_t client::count(std::uint64_t* totalSize) {
  require(kTransaction);
  socket_.sendLine("STAT", true, true);
  if (!readStatus(false) || lastResponse_.size() < 4) {
    throw InvalidServerResponseException(lastResponse_);
  }
  std::size_t pos = 3;
  bool found = false;
  // A count that is not a number reads as 0, as a plain decimal conversion would.
  const std::uint64_t messages = numberAt(lastResponse_, pos, found);
  const std::uint64_t size = numberAt(lastResponse_, pos, found);
  if (totalSize != nullptr) *totalSize = found ? size : 0;
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
  const bool endedInStatus = reader.ended();
  std::string chunk = std::move(pending_);
  pending_.clear();
  while (!reader.feed(chunk, out)) socket_.receiveChunk(chunk, true);
  pending_ = endedInStatus ? reader.rest() + chunk : reader.rest();
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
