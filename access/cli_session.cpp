// The CLI session: connection, greeting, the three logins, "inline", answers and their errors.
#include "access/cli_session.h"

#include <climits>

#include "cgp/dataset_text.h"
#include "kvs/ascii.h"

namespace cgp {
namespace {

constexpr const char* kInvalidArgument = "invalid or missing argument";

// An answer line as an error quotes it: without the blanks and line ends around it.
std::string quoted(std::string_view line) {
  return std::string(kvs::trim(line, kvs::kLineBlanks));
}

}  // namespace

CLISettings& CLISession::settings() {
  static CLISettings instance;
  return instance;
}

CLISession::CLISession() {
  const CLISettings& s = settings();
  open(s.host, s.port, s.user, s.password, s.loginMethod);
}

CLISession::CLISession(const std::string& host, std::uint16_t port, const std::string& user,
                       const std::string& password, std::uint32_t method) {
  open(host, port, user, password, method);
}

void CLISession::open(const std::string& host, std::uint16_t port, const std::string& user,
                      const std::string& password, std::uint32_t method) {
  create(kStream, false);  // starts the socket library first
  connect(kvs::sock::resolveAddress(host, port), true);
  login(user, password, method);
}

void CLISession::login(const std::string& user, const std::string& password, std::uint32_t method) {
  const std::string greeting = readAnswerText();
  auto refused = [this] {
    return kvs::InvalidLoginException(kvs::sock::loginRefusal(lastStatus_), lastCode_);
  };
  switch (method) {
    case kPlain:
      sendCommand("user " + user);
      readAnswer(false);
      if (lastCode_ != 300) throw refused();
      sendCommand("pass " + password);
      break;
    case kDigest: {
      const std::string digest = kvs::sock::stampDigest(greeting, password);
      if (digest.empty()) throw kvs::InvalidServerPromptException(quoted(greeting));
      sendCommand("APOP " + user + " " + digest);
      break;
    }
    case kWebUser:
      sendCommand("AUTH WEBUSER " + user + " " + password);
      break;
    default:
      throw kvs::ProtocolException(kInvalidArgument);
  }
  readAnswer(false);
  if (lastCode_ != 200) throw refused();
  // From here on a command's data comes on its answer line.
  sendCommand("inline");
  readAnswer(true);
}

bool CLISession::testLogin(const std::string& user, const std::string& password,
                           std::uint32_t method, std::string& error, bool& reached) {
  reached = false;
  try {
    const CLISettings& s = settings();
    CLISession session(s.host, s.port, user, password, method);
    reached = true;
    return true;
  } catch (const kvs::UnableToConnectException& e) {
    error = e.getMessage();
  } catch (const kvs::ConnectionResetException& e) {
    error = e.getMessage();
  } catch (const kvs::UnableToResolveAddressException& e) {
    error = e.getMessage();
  } catch (const kvs::Exception& e) {
    reached = true;
    error = e.getMessage();
  }
  return false;
}

std::string CLISession::describe(const kvs::Exception& error) {
  if (dynamic_cast<const kvs::UnableToConnectException*>(&error)) {
    return "Unable to connect to server";
  }
  if (dynamic_cast<const kvs::ConnectionResetException*>(&error)) {
    return "Connection with the server has reset";
  }
  if (dynamic_cast<const CLIException*>(&error)) {
    return "CLI module reported: " + error.getMessage();
  }
  // A refused login's text begins with "Invalid username or password".
  if (dynamic_cast<const kvs::InvalidLoginException*>(&error)) return error.getMessage();
  return "Unhandled error";
}

CLIAnswer CLISession::parseAnswer(std::string_view raw) {
  const std::size_t space = raw.find(' ');
  if (space == 0) throw kvs::InvalidServerResponseException(quoted(raw));
  // The leading decimal number; none, or one beyond an int, reads as 0.
  CLIAnswer answer;
  answer.code = static_cast<int>(kvs::leadingNumber(raw, INT_MAX).value);
  if (answer.code == 0) throw kvs::ProtocolException(quoted(raw));
  const std::string_view rest = space == std::string_view::npos ? raw : raw.substr(space + 1);
  if (answer.code == 200 || answer.code == 201) {
    answer.status = "OK";
    answer.data = std::string(rest);
  } else {
    answer.status = kvs::trim(rest, kvs::kLineBlanks);
  }
  return answer;
}

void CLISession::checkArgument(const std::string& name) {
  if (name.empty()) throw kvs::ProtocolException(kInvalidArgument);
}

void CLISession::checkArgument(const DataSet& value, DataSet::Kind kind) {
  bool good = false;
  switch (kind) {
    case DataSet::Text:
      good = value.kind() == DataSet::Text && !value.getText().empty();
      break;
    case DataSet::Array:
    case DataSet::Dictionary:
      good = value.kind() == kind && value.count() != 0;
      break;
    default:
      good = !value.isEmpty();
      break;
  }
  if (!good) throw kvs::ProtocolException(kInvalidArgument);
}

void CLISession::sendCommand(const std::string& line) {
  sendLine(line, true, true);
}

// One answer, line end included, read up to its line feed through the socket rather than
// taken as one receive, on purpose: an answer split over two receives, or a data line that
// arrives with its answer line, is then read right instead of failing or waiting for ever.
std::string CLISession::readAnswerText() {
  std::string text;
  receiveLine(text, true, true);
  return text;
}

void CLISession::readAnswer(bool throwOnError) {
  lastCode_ = 0;
  lastStatus_.clear();
  lastData_.clear();
  CLIAnswer answer = parseAnswer(readAnswerText());
  lastCode_ = answer.code;
  lastStatus_ = std::move(answer.status);
  lastData_ = std::move(answer.data);
  if (throwOnError && lastCode_ != 200 && lastCode_ != 201) {
    throw CLIException(lastStatus_, lastCode_);
  }
}

void CLISession::execute(const std::string& line) {
  sendCommand(line);
  readAnswer(true);
}

DataSet CLISession::query(const std::string& line) {
  execute(line);
  // 201 carries the data on the answer line; 200 sends it on the next line.
  const std::string data = lastCode_ == 201 ? lastData_ : readAnswerText();
  return parseDataSet(data);
}

}  // namespace cgp
