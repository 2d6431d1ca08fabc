// Accounting of the filter's output during a benchmark run.
#include "bench/answer_tally.h"

#include <algorithm>
#include <charconv>

namespace bench {

namespace {
constexpr std::size_t kShown = 3;  // examples kept of each kind; the counts say the rest
}

AnswerTally::AnswerTally(const std::vector<std::string>& expected)
    : expected_(expected), seen_(expected.size() + 1, false) {}

void AnswerTally::feed(std::string_view bytes) {
  while (!bytes.empty()) {
    const std::size_t end = bytes.find('\n');
    if (end == std::string_view::npos) {
      pending_.append(bytes);
      return;
    }
    if (pending_.empty()) {
      line(bytes.substr(0, end));
    } else {
      pending_.append(bytes.substr(0, end));
      line(pending_);
      pending_.clear();
    }
    bytes.remove_prefix(end + 1);
  }
}

std::size_t AnswerTally::firstMissing() const {
  return static_cast<std::size_t>(std::find(seen_.begin(), seen_.end(), false) - seen_.begin());
}

void AnswerTally::problem(std::string text) {
  if (problems_.size() < kShown) problems_.push_back(std::move(text));
}

void AnswerTally::line(std::string_view text) {
  if (text.starts_with("* ")) return;  // comment lines for the server's log
  std::size_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  const std::size_t digits = static_cast<std::size_t>(end - text.data());
  if (error != std::errc() || digits == 0 || digits >= text.size() || text[digits] != ' ') {
    problem("line of unknown shape: " + std::string(text.substr(0, 200)));
    return;
  }
  if (number >= seen_.size()) {
    problem("answer to a request never sent: " + std::string(text.substr(0, 200)));
    return;
  }
  if (seen_[number]) {
    problem("second answer to request " + std::to_string(number));
    return;
  }
  seen_[number] = true;
  ++answered_;
  const std::string_view answer = text.substr(digits + 1);
  if (number == 0) {
    if (answer != "INTF 3") problem("INTF answered " + std::string(answer));
    return;
  }
  if (answer.starts_with("OK \"Error:")) {
    problem("request " + std::to_string(number) + ": " + std::string(answer));
    return;
  }
  const std::string& want = expected_[number - 1];
  if (answer.size() != want.size() + 12 || !answer.starts_with("ADDHEADER \"") ||
      answer.substr(11, want.size()) != want || answer.back() != '"') {
    if (differing_++ < kShown) {
      examples_.push_back("request " + std::to_string(number) + ": got " +
                          std::string(answer.substr(0, 300)) + "\n    expected ADDHEADER \"" +
                          want.substr(0, 300) + "\"");
    }
  }
}

}  // namespace bench
