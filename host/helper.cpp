// The helper protocol engine: request parsing, protocol answers, message requests, the
// optional worker threads.
#include "host/helper.h"

#include <climits>
#include <cstdlib>
#include <ctime>
#include <iostream>
#include <iterator>

#include "kvs/ascii.h"
#include "kvs/escape.h"
#include "kvs/exception.h"
#include "kvs/log.h"
#include "kvs/platform/platform.h"
#include "kvs/thread.h"

namespace cgp {
namespace {

bool isDelimiter(char c) {
  return c == ' ' || c == '\r' || c == '\n';
}

// One row per verdict code: the comment, the answer word, whether the lines follow in quotes.
struct AnswerRow {
  const char* comment;
  const char* word;
  bool withText;
};
const AnswerRow kAnswers[] = {
    {"Accepting message", "OK", false},
    {"Postponing message", "REJECTED", true},
    {"Rejecting message", "ERROR", true},
    {"Discarding message", "DISCARD", false},
    {"Adding Header(s) to message", "ADDHEADER", true},
};

const char kQuitAnswer[] =
    "\"QUIT command received, filter is shut down. Please restart the filter.\"";

}  // namespace

RequestLine splitRequestLine(const std::string& line) {
  RequestLine r;
  std::size_t i = 0;
  const std::size_t n = line.size();
  auto skip = [&] {
    while (i < n && isDelimiter(line[i])) ++i;
  };
  auto field = [&] {
    const std::size_t start = i;
    while (i < n && !isDelimiter(line[i])) ++i;
    return line.substr(start, i - start);
  };
  skip();
  r.id = field();
  skip();
  r.command = field();
  kvs::toLowerInPlace(r.command);
  skip();
  r.parameter = line.substr(i);
  return r;
}

int requestNumber(const std::string& text) {
  // What `stream >> int` reads: leading whitespace, a sign, digits; no digits give 0, and a
  // value beyond the range is clamped to the largest or smallest int.
  std::string_view rest = kvs::trimLeft(text);
  const bool negative = rest.starts_with('-');
  if (negative || rest.starts_with('+')) rest.remove_prefix(1);
  const std::int64_t limit = negative ? -std::int64_t{INT_MIN} : INT_MAX;
  const kvs::LeadingNumber n = kvs::leadingNumber(rest, static_cast<std::uint64_t>(limit));
  const std::int64_t value = n.over ? limit : static_cast<std::int64_t>(n.value);
  return static_cast<int>(negative ? -value : value);
}

namespace {

// Whether the lines escape to no text at all: at most one line, holding nothing but CRs (which
// the escape drops). Two lines or more always give the escaped line feed between them.
bool escapesToNothing(const std::vector<std::string>& lines) {
  return lines.size() <= 1 &&
         (lines.empty() || lines[0].find_first_not_of('\r') == std::string::npos);
}

}  // namespace

void appendAnswer(std::string& out, int seqID, const Verdict& verdict) {
  std::int32_t code = verdict.code;
  if (code == Verdict::ADDHEADER && escapesToNothing(verdict.lines)) code = Verdict::OK;
  if (static_cast<std::uint32_t>(code) >= std::size(kAnswers)) return;
  const AnswerRow& row = kAnswers[code];
  kvs::appendComment(out, seqID, {}, row.comment);
  out += std::to_string(seqID);
  out += ' ';
  out += row.word;
  if (row.withText) {
    // The lines escaped straight into the answer, joined by "\e" (an escaped line feed).
    out += " \"";
    for (std::size_t i = 0; i < verdict.lines.size(); ++i) {
      if (i > 0) out += "\\e";
      kvs::appendEscaped(out, verdict.lines[i]);
    }
    out += '"';
  }
  out += '\n';
}

std::string formatAnswer(int seqID, const Verdict& verdict) {
  std::string answer;
  appendAnswer(answer, seqID, verdict);
  return answer;
}

Helper::Helper(bool threaded_, const std::string& failureWord)
    : threaded(threaded_), failurePrefix(" " + failureWord + " ") {}

Helper::~Helper() = default;

int Helper::intf(int) {
  return 3;
}

void Helper::onQuit() {}

void Helper::commandLoop() {
  commandLoop(std::cin);
}

void Helper::commandLoop(std::istream& in) {
  kvs::logline() << "Ready to receive INTF command.";
  std::string line;
  for (;;) {
    if (in.eof() || in.fail()) return;
    if (!std::getline(in, line) && line.empty()) return;
    // Standard input is text: a CR right before the line feed is part of the line end.
    if (!in.eof() && line.ends_with('\r')) line.pop_back();
    handleRequest(line);
  }
}

void Helper::handleRequest(const std::string& line) {
  RequestLine r = splitRequestLine(line);
  if (r.id.empty()) {
    kvs::outline() << "(null) FAILURE";
    return;
  }
  const int n = requestNumber(r.id);
  if (quitReceived_) {
    kvs::outline() << r.id << failurePrefix << kQuitAnswer;
    return;
  }
  if (r.command.empty()) {
    kvs::outline() << r.id << " FAILURE";
    return;
  }
  if (r.command == "intf") {
    intfReceived = true;
    const int version = r.parameter.empty() ? 1 : requestNumber(r.parameter);
    kvs::outline() << r.id << " INTF " << intf(version);
    return;
  }
  if (r.command == "key") {
    kvs::outline() << r.id << " OK";
    return;
  }
  if (r.command == "quit") {
    quitReceived_ = true;
    kvs::logline(r.id) << "Filter is shutting down...";
    onQuit();
    kvs::outline() << r.id
                   << " OK \"Filter is shut down and waiting for standard output to be closed\"";
    return;
  }
  if (r.command == "crash") {
    // Makes the filter fail on purpose: nothing catches this.
    throw kvs::Exception("unhandled exception request");
  }
  // A message request.
  if (n == 0 && r.id != "0") {
    kvs::outline() << r.id << failurePrefix << "\"Error: seqID should be a number\"";
    return;
  }
  if (r.parameter.empty()) {
    kvs::outline() << r.id << " FAILURE \"Missing parameter(s)\"";
    return;
  }
  if (!acceptsCommand(r.command)) {
    kvs::outline() << r.id << " FAILURE";
    return;
  }
  if (!intfReceived) {
    intf(3);
    intfReceived = true;
  }
  CallData call{n, this, std::move(r.command), std::move(r.parameter)};
  if (threaded) {
    admitRequest(call);
  } else {
    // The request lives on this stack until its answer is out: its holder deletes nothing.
    processCall(kvs::ptr<CallData>(&call, [](CallData*) {}));
  }
}

std::size_t Helper::activeCount() {
  kvs::ScopedLock lock(activeLock);
  return activeRequests.size();
}

void Helper::admitRequest(const CallData& callData) {
  const int n = callData.seqID;
  bool inUse;
  std::size_t count;
  {
    kvs::ScopedLock lock(activeLock);
    inUse = activeRequests.count(n) != 0;
    count = activeRequests.size();
  }
  if (count >= maxQueuedRequests) {
    kvs::outline() << n << failurePrefix << "\"Too many requests in queue (" << count
                   << "), try again in a few seconds.\"";
    return;
  }
  if (inUse) {
    kvs::outline() << n << failurePrefix << "\"This request ID is already in use (" << n
                   << "), try again in a few seconds.\"";
    return;
  }
  {
    kvs::ScopedLock lock(activeLock);
    activeRequests.insert(n);
  }
  kvs::logline(n) << "Thread processing started";
  // The request's one holder moves into the worker: once it runs, nothing here touches the ring.
  kvs::ptr<CallData> data(new CallData(callData));
  kvs::thread_safe_ptr<kvs::_thread> worker(
      new kvs::_thread(&Helper::processCall, std::move(data), true));
}

void Helper::processCall(kvs::ptr<CallData> callData) {
  Helper* helper = callData->helper;
  const int seqID = callData->seqID;
  helper->processRequest(seqID, callData->command, callData->parameter);
  if (helper->threaded) {
    {
      kvs::ScopedLock lock(helper->activeLock);
      helper->activeRequests.erase(seqID);
    }
    kvs::logline(seqID) << "Thread processing done";
  }
  callData = nullptr;
}

ExtFilter::ExtFilter(bool threaded_) : Helper(threaded_, "REJECTED") {
  std::srand(static_cast<unsigned>(std::time(nullptr)));
}

ExtFilter::~ExtFilter() = default;

bool ExtFilter::acceptsCommand(const std::string& command) {
  return command == "file";
}

void ExtFilter::processRequest(int seqID, const std::string&, const std::string& path) {
  // The engine's own stream stays open until the answer is out.
  kvs::platform::File file;
  if (file.openFile(path) != kvs::platform::PathKind::File) {
    kvs::outline() << seqID << " OK \"Error: File Not Found " << kvs::escapeString(path) << "\"";
    return;
  }
  if (!file.isOpen()) {
    kvs::outline() << seqID << " OK \"Error: unable to open file " << kvs::escapeString(path)
                   << "\"";
    return;
  }
  Verdict verdict;
  {
    kvs::ScopedLock lock(filterLock_);
    verdict = filterMessage(seqID, path);
  }
  // The comment and the answer leave in one write: the pair stays together and the server is
  // woken once. Room for both is made once.
  std::size_t room = 96;
  for (const std::string& line : verdict.lines) room += line.size() + 4;
  std::string answer;
  answer.reserve(room);
  appendAnswer(answer, seqID, verdict);
  if (!answer.empty()) kvs::writeOutput(answer);
}

}  // namespace cgp
