// The RETR body reader: a pure function of the received bytes, apart from the socket.
#include "access/pop3_retrieve.h"

namespace kvs::pop3 {

bool RetrieveReader::feed(std::string_view chunk, std::ostream& out) {
  if (ended_) return true;
  std::size_t i = 0;
  while (i < chunk.size()) {
    if (skipLineFeed_) {
      skipLineFeed_ = false;
      if (chunk[i] == '\n') {
        ++i;
        continue;
      }
    }
    std::size_t end = chunk.find_first_of("\r\n", i);
    if (end == std::string_view::npos) {
      line_.append(chunk.substr(i));
      break;
    }
    line_.append(chunk.substr(i, end - i));
    if (chunk[end] == '\r') {
      if (end + 1 == chunk.size()) {
        skipLineFeed_ = true;
      } else if (chunk[end + 1] == '\n') {
        ++end;
      }
    }
    i = end + 1;
    line_ += '\n';
    if (line_[0] == '.') {
      if (line_[1] != '.') {  // the terminating "." line
        rest_ = chunk.substr(i);
        ended_ = true;
        return true;
      }
      line_.erase(0, 1);
    }
    out.write(line_.data(), static_cast<std::streamsize>(line_.size()));
    line_.clear();
  }
  return false;
}

}  // namespace kvs::pop3
