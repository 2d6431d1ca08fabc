// Accounting of the filter's output during a benchmark run: every request must get exactly one
// answer, and each answer is compared with the one the corpus generator expects.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace bench {

class AnswerTally {
 public:
  // expected[i] is the answer text for request i + 1 (the part after "<n> "). Request 0 is the
  // INTF request that opens the conversation; its answer is "0 INTF 3".
  explicit AnswerTally(const std::vector<std::string>& expected);

  // Takes the filter's standard output in chunks of any size.
  void feed(std::string_view bytes);

  [[nodiscard]] bool complete() const { return answered_ == expected_.size() + 1; }
  [[nodiscard]] std::size_t answered() const { return answered_; }
  // The lowest request number still without an answer (the number of requests when none).
  [[nodiscard]] std::size_t firstMissing() const;
  // Answers that differ from the expected ones, and a few of them to show.
  [[nodiscard]] std::size_t differing() const { return differing_; }
  [[nodiscard]] const std::vector<std::string>& differingExamples() const { return examples_; }
  // Output that breaks the conversation itself: answers to requests never sent, second answers,
  // lines of unknown shape, files the filter could not find. Any of these fails the run.
  [[nodiscard]] const std::vector<std::string>& problems() const { return problems_; }

 private:
  void line(std::string_view text);
  void problem(std::string text);

  const std::vector<std::string>& expected_;
  std::vector<bool> seen_;
  std::size_t answered_ = 0;
  std::size_t differing_ = 0;
  std::vector<std::string> examples_;
  std::vector<std::string> problems_;
  std::string pending_;  // a line not yet ended by its line feed
};

}  // namespace bench
