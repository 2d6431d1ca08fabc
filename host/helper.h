// The helper protocol engine: cgp::Helper reads request lines and answers the protocol's own
// commands; cgp::ExtFilter turns a message request into a verdict through filterMessage.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <set>
#include <string>
#include <vector>

#include "kvs/mutex.h"
#include "kvs/noncopyable.h"
#include "kvs/ptr.h"

namespace cgp {

struct Verdict {
  enum Code : std::int32_t { OK = 0, REJECTED = 1, ERROR = 2, DISCARD = 3, ADDHEADER = 4 };
  std::int32_t code = OK;
  std::vector<std::string> lines;
};

class Helper;

// One request as handed to processing.
struct CallData {
  int seqID = 0;
  Helper* helper = nullptr;
  std::string command;
  std::string parameter;
};

// The three fields of a request line.
struct RequestLine {
  std::string id;
  std::string command;  // folded to lower case through the library's case table
  std::string parameter;
};
[[nodiscard]] RequestLine splitRequestLine(const std::string& line);
// The request number as stream extraction reads it: leading digits count, no number gives 0,
// values beyond the 32-bit range are clamped.
[[nodiscard]] int requestNumber(const std::string& text);

// The comment line and the answer line for a message's verdict, as one text; empty for a code
// outside the table, which is answered with silence, on purpose. ADDHEADER with no text to add
// is answered as OK.
[[nodiscard]] std::string formatAnswer(int seqID, const Verdict& verdict);
// The same, appended to `out`.
void appendAnswer(std::string& out, int seqID, const Verdict& verdict);

class Helper : private kvs::noncopyable {
 public:
  static constexpr std::size_t maxQueuedRequests = 50;

  Helper(bool threaded, const std::string& failureWord);
  virtual ~Helper();

  virtual int intf(int version);
  virtual void onQuit();
  virtual void processRequest(int seqID, const std::string& command,
                              const std::string& parameter) = 0;
  virtual bool acceptsCommand(const std::string& command) = 0;

  // Reads requests from standard input (or `in`) until it ends.
  void commandLoop();
  void commandLoop(std::istream& in);

  // Answers one request line (what commandLoop does with each line it reads).
  void handleRequest(const std::string& line);

  // The request processing routine: a worker's entry in threaded mode.
  static void processCall(kvs::ptr<CallData> callData);

 protected:
  void admitRequest(const CallData& callData);
  std::size_t activeCount();

  bool intfReceived = false;
  kvs::MutexInterface activeLock;
  bool threaded;
  std::set<std::int32_t> activeRequests;
  std::string failurePrefix;

 private:
  bool quitReceived_ = false;
};

class ExtFilter : public Helper {
 public:
  explicit ExtFilter(bool threaded);
  ~ExtFilter() override;

  void processRequest(int seqID, const std::string& command, const std::string& path) override;
  bool acceptsCommand(const std::string& command) override;
  virtual Verdict filterMessage(int seqID, const std::string& path) = 0;

 private:
  // The filter object's calls never overlap: in threaded mode workers take turns here.
  kvs::MutexInterface filterLock_;
};

}  // namespace cgp
