// The body of a RETR answer, read chunk by chunk as the server sends it: line ends made "\n",
// dot-unstuffing, and the final "." line that ends it.
#pragma once

#include <ostream>
#include <string>
#include <string_view>

namespace kvs::pop3 {

class RetrieveReader {
 public:
  // Takes the next received bytes and writes every line they complete. True once the final
  // line has come; the bytes received behind it are then in rest() and later chunks are
  // ignored.
  bool feed(std::string_view chunk, std::ostream& out);

  [[nodiscard]] bool ended() const { return ended_; }
  [[nodiscard]] const std::string& rest() const { return rest_; }
  // The final line ended in a CR that was the last byte received: its LF is still to come and
  // belongs to this answer, not to the next.
  [[nodiscard]] bool lineFeedMayFollow() const { return ended_ && skipLineFeed_; }

 private:
  std::string line_;
  bool skipLineFeed_ = false;  // CR LF is one line end even when a chunk ends between the two
  bool ended_ = false;
  std::string rest_;
};

}  // namespace kvs::pop3
