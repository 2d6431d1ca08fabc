// velmora-bench: times the velmora program answering whole corpora through one process each run,
// against two readers of the same files: the read floor (open, 64 KiB reads, close: nothing but
// the files' own system calls) and the line scan (the same reads, every line end found with
// memchr); then checks the speed and memory targets and prints a table of the medians. POSIX only
// (posix_spawn, pipes, poll); the peak memory comes from /proc where there is one, from wait4
// otherwise.
//
//   velmora-bench --corpora DIR [--velmora PATH] [--runs N] [--only NAME[,NAME...]]
// (the velmora of the same build by default)
//
// Exits 0 whatever the figures are (the targets are informative); 1 when the harness itself
// failed: a corpus missing, the program dying, or a request left without an answer.
#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "bench/answer_tally.h"

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

namespace {

constexpr int kSilenceLimitSeconds = 120;  // no output for this long: the program hangs
constexpr std::chrono::microseconds kGatherPause{100};  // between two reads of the answers
constexpr double kMiB = 1024.0 * 1024.0;

struct HarnessError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// The processor every contestant is timed on. The processors of a virtual machine need not be
// equally fast: on the machine these targets were set on, either of the two ran the same read
// loop up to a third slower than the other for minutes at a time, and where the scheduler
// happened to put the program and where the harness's own reading decided the ratios. So each
// corpus is timed on one processor, the quicker at a read floor pass just before; while the
// program runs there, the harness's threads keep to the others. Where there is one processor,
// or no way to choose, nothing is pinned.
class Placement {
 public:
  Placement() {
#ifdef __linux__
    CPU_ZERO(&all_);
    if (::sched_getaffinity(0, sizeof all_, &all_) != 0 || CPU_COUNT(&all_) < 2) return;
    for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
      if (CPU_ISSET(cpu, &all_)) candidates_.push_back(cpu);
    }
#endif
  }
  // The processors to choose from; none where nothing is pinned.
  [[nodiscard]] const std::vector<int>& candidates() const {
    return candidates_;
  }
  // Makes `cpu`, one of the candidates, the measuring processor.
  void choose([[maybe_unused]] int cpu) {
#ifdef __linux__
    CPU_ZERO(&measuring_);
    CPU_SET(cpu, &measuring_);
    others_ = all_;
    CPU_CLR(cpu, &others_);
    chosen_ = true;
#endif
  }
  // The calling thread (and what it starts) onto the measuring processor, onto the others, or
  // back to all.
  void measuring() const {
    pin(kMeasuring);
  }
  void elsewhere() const {
    pin(kOthers);
  }
  void anywhere() const {
    pin(kAll);
  }

 private:
  enum Set { kMeasuring, kOthers, kAll };
  void pin([[maybe_unused]] Set set) const {
#ifdef __linux__
    if (!chosen_) return;
    const cpu_set_t& mask = set == kMeasuring ? measuring_ : set == kOthers ? others_ : all_;
    ::sched_setaffinity(0, sizeof mask, &mask);
#endif
  }
  std::vector<int> candidates_;
  bool chosen_ = false;
#ifdef __linux__
  cpu_set_t all_{}, measuring_{}, others_{};
#endif
};

struct Corpus {
  std::string name;
  fs::path dir;
  std::vector<std::string> files;
  std::vector<std::string> expected;  // the answer text of each file
  std::uint64_t bytes = 0;
  std::uint64_t largestZip = 0;
  std::string requests;  // "0 INTF 3", then one "<n> FILE <file>" per message
};

Corpus loadCorpus(const fs::path& root, const std::string& name) {
  Corpus corpus;
  corpus.name = name;
  corpus.dir = root / name;
  std::ifstream manifest(corpus.dir / "manifest.txt", std::ios::binary);
  if (!manifest) throw HarnessError("no corpus at " + corpus.dir.string());
  std::string line;
  while (std::getline(manifest, line)) {
    if (line.starts_with("# largest-zip ")) {
      corpus.largestZip = std::stoull(line.substr(14));
    } else if (!line.starts_with("#")) {
      const std::size_t tab = line.find('\t');
      if (tab == std::string::npos) throw HarnessError("bad manifest line: " + line);
      corpus.files.push_back(line.substr(0, tab));
      corpus.expected.push_back(line.substr(tab + 1));
    }
  }
  corpus.requests = "0 INTF 3\n";
  for (std::size_t i = 0; i < corpus.files.size(); ++i) {
    corpus.requests += std::to_string(i + 1) + " FILE " + corpus.files[i] + "\n";
    corpus.bytes += fs::file_size(corpus.dir / corpus.files[i]);
  }
  if (corpus.files.empty()) throw HarnessError("empty corpus at " + corpus.dir.string());
  return corpus;
}

double threadCpuSeconds() {
  timespec now{};
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

double cpuSeconds(const timeval& user, const timeval& system) {
  return static_cast<double>(user.tv_sec + system.tv_sec) +
         static_cast<double>(user.tv_usec + system.tv_usec) / 1e6;
}

struct Timing {
  double seconds = 0;  // wall clock
  double cpu = 0;      // processor time of the side measured, which other load disturbs less
};

// Opens, reads in 64 KiB blocks and closes every file of the corpus, handing each block to
// `visit`.
template <class Visit>
Timing readPass(const Corpus& corpus, Visit visit) {
  static std::vector<char> buffer(64 * 1024);
  const auto start = Clock::now();
  const double cpuStart = threadCpuSeconds();
  for (const std::string& file : corpus.files) {
    const int fd = ::open((corpus.dir / file).c_str(), O_RDONLY);
    if (fd < 0) throw HarnessError("cannot open " + (corpus.dir / file).string());
    ssize_t got;
    while ((got = ::read(fd, buffer.data(), buffer.size())) > 0) {
      visit(buffer.data(), static_cast<std::size_t>(got));
    }
    ::close(fd);
    if (got < 0) throw HarnessError("cannot read " + file);
  }
  return {std::chrono::duration<double>(Clock::now() - start).count(),
          threadCpuSeconds() - cpuStart};
}

// The read floor: nothing but the files' own system calls.
Timing floorPass(const Corpus& corpus) {
  return readPass(corpus, [](const char*, std::size_t) {});
}

// The line scan: the same reads, and every line end found with memchr.
Timing lineScanPass(const Corpus& corpus, std::uint64_t& lines) {
  lines = 0;
  return readPass(corpus, [&lines](const char* p, std::size_t n) {
    const char* const end = p + n;
    while ((p = static_cast<const char*>(std::memchr(p, '\n', end - p))) != nullptr) {
      ++lines;
      ++p;
    }
  });
}

struct ProgramRun {
  Timing time;
  long peakKiB = 0;
  std::size_t differing = 0;
  std::vector<std::string> differingExamples;
};

void writeAll(int fd, const std::string& bytes, std::atomic<bool>& failed) {
  std::size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      failed = true;
      return;
    }
    done += static_cast<std::size_t>(n);
  }
}

// The peak resident memory of the running program in KiB, 0 where /proc does not tell. Read
// while the program still runs, because wait4's figure for a child also counts the memory the
// child shared with this process between fork and exec.
long residentHighWater(pid_t pid) {
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.starts_with("VmHWM:")) return std::atol(line.c_str() + 6);
  }
  return 0;
}

// One process answers the whole corpus. The clock runs from the start of the process to the
// last answer; the requests are written by a second thread so that neither pipe can fill up
// and stall both sides.
ProgramRun programPass(const fs::path& program, const Corpus& corpus, const Placement& placement) {
  int toChild[2], fromChild[2];
  if (::pipe(toChild) != 0 || ::pipe(fromChild) != 0) throw HarnessError("pipe failed");
  // The program is spawned, not forked: a fork copies this process's page tables first, which
  // in a virtual machine costs a millisecond or more that the program itself never spends.
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_adddup2(&actions, toChild[0], 0);
  ::posix_spawn_file_actions_adddup2(&actions, fromChild[1], 1);
  for (const int fd : {toChild[0], toChild[1], fromChild[0], fromChild[1]}) {
    ::posix_spawn_file_actions_addclose(&actions, fd);
  }
  // The server starts the filter in its own directory and names queue files relative to it.
  ::posix_spawn_file_actions_addchdir_np(&actions, corpus.dir.c_str());
  char name[] = "velmora";
  char* const argv[] = {name, nullptr};
  placement.measuring();  // the program starts on the measuring processor
  const auto start = Clock::now();
  pid_t pid = 0;
  const int spawned = ::posix_spawn(&pid, program.c_str(), &actions, nullptr, argv, environ);
  ::posix_spawn_file_actions_destroy(&actions);
  placement.elsewhere();  // and the writer and the reader of the answers keep off it
  if (spawned != 0)
    throw HarnessError("cannot start " + program.string() + ": " + std::strerror(spawned));
  ::close(toChild[0]);
  ::close(fromChild[1]);

  std::atomic<bool> writeFailed = false;
  std::thread writer(writeAll, toChild[1], std::cref(corpus.requests), std::ref(writeFailed));
  bench::AnswerTally tally(corpus.expected);
  std::vector<char> buffer(64 * 1024);
  std::string failure;
  bool ended = false;
  while (!tally.complete() && !ended) {
    pollfd wait{fromChild[0], POLLIN, 0};
    const int ready = ::poll(&wait, 1, kSilenceLimitSeconds * 1000);
    if (ready == 0) {
      failure = "no output for " + std::to_string(kSilenceLimitSeconds) + " s";
      ::kill(pid, SIGKILL);
      break;
    }
    const ssize_t got = ::read(fromChild[0], buffer.data(), buffer.size());
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) {
      ended = true;
    } else {
      tally.feed(std::string_view(buffer.data(), static_cast<std::size_t>(got)));
      // Answers are gathered a batch at a time. A reader waiting in poll() on the pipe is woken
      // by every answer, and the writer pays for the wake-up: in a virtual machine that is an
      // interrupt to the other processor, about 4 us an answer, more than the program's own
      // work on a small message. The pause costs at most its own length at the last answer.
      if (!tally.complete()) std::this_thread::sleep_for(kGatherPause);
    }
  }
  const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
  const long highWater = failure.empty() ? residentHighWater(pid) : 0;
  // A killed or finished program makes the writer's pipe fail or drain, so the join returns.
  writer.join();
  ::close(toChild[1]);  // end of input: the filter ends
  while (!ended && failure.empty()) {
    pollfd wait{fromChild[0], POLLIN, 0};
    if (::poll(&wait, 1, kSilenceLimitSeconds * 1000) <= 0) break;
    const ssize_t got = ::read(fromChild[0], buffer.data(), buffer.size());
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    tally.feed(std::string_view(buffer.data(), static_cast<std::size_t>(got)));
  }
  ::close(fromChild[0]);

  placement.anywhere();
  int status = 0;
  rusage usage{};
  if (::wait4(pid, &status, 0, &usage) != pid) throw HarnessError("wait4 failed");
  if (failure.empty() && !tally.complete()) {
    failure = "the program answered " + std::to_string(tally.answered()) + " of " +
              std::to_string(corpus.files.size() + 1) + " requests; request " +
              std::to_string(tally.firstMissing()) + " got no answer";
  }
  if (failure.empty() && !tally.problems().empty()) failure = tally.problems().front();
  if (failure.empty() && writeFailed) failure = "writing the requests failed";
  if (failure.empty() && (!WIFEXITED(status) || WEXITSTATUS(status) != 0)) {
    failure = WIFSIGNALED(status)
                  ? "the program died of signal " + std::to_string(WTERMSIG(status))
                  : "the program exited with " + std::to_string(WEXITSTATUS(status));
  }
  if (!failure.empty()) throw HarnessError(corpus.name + ": " + failure);
  return {{seconds, cpuSeconds(usage.ru_utime, usage.ru_stime)},
          highWater > 0 ? highWater : usage.ru_maxrss,
          tally.differing(),
          tally.differingExamples()};
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const std::size_t n = values.size();
  return n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
}

struct Verdicts {
  int passed = 0, failed = 0;
  void check(bool ok, const std::string& text) {
    std::printf("  %s %s\n", ok ? "PASS" : "FAIL", text.c_str());
    ++(ok ? passed : failed);
  }
};

// One corpus's medians, for the closing table.
struct Figures {
  std::string corpus;
  std::size_t messages = 0;
  double megabytes = 0;
  double floorSeconds = 0, lineScanSeconds = 0, programSeconds = 0;
};

// The rate of `seconds` over the corpus as the table gives it: messages per second for a corpus
// of small messages, where the cost is per message, MB/s otherwise.
std::string rate(const Figures& f, double seconds) {
  char text[64];
  if (f.megabytes * 1e6 / static_cast<double>(f.messages) < 64 * 1024) {
    std::snprintf(text, sizeof text, "%.0f msg/s", static_cast<double>(f.messages) / seconds);
  } else {
    std::snprintf(text, sizeof text, "%.0f MB/s", f.megabytes / seconds);
  }
  return text;
}

void printTable(const std::vector<Figures>& all) {
  std::printf(
      "\n| corpus | read floor | line scan | velmora | velmora's time / floor's |\n"
      "|---|---|---|---|---|\n");
  for (const Figures& f : all) {
    std::printf("| %s, %zu messages, %.0f MB | %s | %s | %s | %.2f |\n", f.corpus.c_str(),
                f.messages, f.megabytes, rate(f, f.floorSeconds).c_str(),
                rate(f, f.lineScanSeconds).c_str(), rate(f, f.programSeconds).c_str(),
                f.programSeconds / f.floorSeconds);
  }
}

Figures benchCorpus(const fs::path& program, const Corpus& corpus, int runs, Placement& placement,
                    Verdicts& verdicts) {
  const double megabytes = static_cast<double>(corpus.bytes) / 1e6;
  const double messages = static_cast<double>(corpus.files.size());
  std::printf("\n%s: %zu messages, %.1f MB\n", corpus.name.c_str(), corpus.files.size(), megabytes);
  std::fflush(stdout);
  std::uint64_t lines = 0;
  floorPass(corpus);  // brings the files into the page cache
  if (!placement.candidates().empty()) {
    int quickest = -1;
    double best = 0;
    std::string tried;
    for (const int cpu : placement.candidates()) {
      placement.choose(cpu);
      placement.measuring();
      const double seconds = floorPass(corpus).seconds;
      tried += (tried.empty() ? "" : ", ") + std::to_string(cpu) + ": " +
               std::to_string(static_cast<int>(seconds * 1000 + 0.5)) + " ms";
      if (quickest < 0 || seconds < best) quickest = cpu, best = seconds;
    }
    placement.choose(quickest);
    placement.anywhere();
    std::printf("  timed on processor %d (a read floor pass on each: %s)\n", quickest,
                tried.c_str());
  }
  std::vector<double> floorTimes, lineTimes, programTimes, floorCpu, lineCpu, programCpu;
  long peakKiB = 0;
  ProgramRun last;
  auto readers = [&] {
    placement.measuring();
    const Timing floor = floorPass(corpus);
    const Timing scan = lineScanPass(corpus, lines);
    placement.anywhere();
    floorTimes.push_back(floor.seconds);
    floorCpu.push_back(floor.cpu);
    lineTimes.push_back(scan.seconds);
    lineCpu.push_back(scan.cpu);
  };
  for (int run = 0; run < runs; ++run) {
    // Alternate which side goes first, so a drift in the machine's load hits all alike.
    if (run % 2 == 0) readers();
    last = programPass(program, corpus, placement);
    if (run % 2 == 1) readers();
    programTimes.push_back(last.time.seconds);
    programCpu.push_back(last.time.cpu);
    peakKiB = std::max(peakKiB, last.peakKiB);
  }
  const Figures figures{corpus.name,        corpus.files.size(), megabytes,
                        median(floorTimes), median(lineTimes),   median(programTimes)};
  const double floorRatio = figures.programSeconds / figures.floorSeconds;
  const double lineRatio = figures.lineScanSeconds / figures.programSeconds;
  const double messageRate = messages / figures.programSeconds;
  const double peakMiB = static_cast<double>(peakKiB) * 1024.0 / kMiB;
  const double zipMiB = static_cast<double>(corpus.largestZip) / kMiB;
  std::printf("  read floor (open, 64 KiB reads, close): %.0f MB/s, %.0f messages/s\n",
              megabytes / figures.floorSeconds, messages / figures.floorSeconds);
  std::printf("  line scan (the same reads + memchr, %llu lines): %.0f MB/s\n",
              static_cast<unsigned long long>(lines), megabytes / figures.lineScanSeconds);
  std::printf(
      "  velmora: %.0f MB/s, %.0f messages/s, peak memory %.1f MiB; %.2f times the read floor's "
      "time, %.3f of the line scan's speed\n",
      megabytes / figures.programSeconds, messageRate, peakMiB, floorRatio, lineRatio);
  auto printRuns = [](const char* name, const std::vector<double>& times) {
    std::printf(" %s", name);
    for (double t : times) std::printf(" %.3f", t);
  };
  std::printf("  runs (s):");
  printRuns("velmora", programTimes);
  printRuns("; read floor", floorTimes);
  printRuns("; line scan", lineTimes);
  std::printf("\n");
  std::printf(
      "  processor time only: velmora %.0f MB/s, %.0f messages/s; read floor %.0f MB/s; line scan "
      "%.0f MB/s; %.2f times the floor's\n",
      megabytes / median(programCpu), messages / median(programCpu), megabytes / median(floorCpu),
      megabytes / median(lineCpu), median(programCpu) / median(floorCpu));

  // The read floor's time, the most any corpus may take in multiples of it.
  const double floorTarget = corpus.name == "small" ? 2.0 : corpus.name == "mixed" ? 1.3 : 2.5;
  char target[160];
  std::snprintf(target, sizeof target, "%s time: %.2f times the read floor's (<= %.1f)",
                corpus.name.c_str(), floorRatio, floorTarget);
  verdicts.check(floorRatio <= floorTarget, target);
  if (corpus.name == "mixed") {
    verdicts.check(lineRatio >= 0.5,
                   "mixed speed: " + std::to_string(lineRatio) + " of the line scan (>= 0.5)");
  } else if (corpus.name == "small") {
    verdicts.check(
        messageRate >= 50000,
        "small rate: " + std::to_string(static_cast<long>(messageRate)) + " messages/s (>= 50000)");
  } else if (corpus.name == "zip-heavy") {
    verdicts.check(lineRatio >= 0.25,
                   "zip-heavy speed: " + std::to_string(lineRatio) + " of the line scan (>= 0.25)");
  }
  char memory[160];
  std::snprintf(memory, sizeof memory,
                "%s memory: peak %.1f MiB <= 16 MiB + largest decoded ZIP %.1f MiB",
                corpus.name.c_str(), peakMiB, zipMiB);
  verdicts.check(peakMiB <= 16.0 + zipMiB, memory);

  if (last.differing == 0) {
    std::printf("  answers: all %zu as the generator expects\n", corpus.files.size());
  } else {
    std::printf("  answers: %zu of %zu differ from what the generator expects, e.g.\n",
                last.differing, corpus.files.size());
    for (const std::string& example : last.differingExamples) {
      std::printf("    %s\n", example.c_str());
    }
  }
  std::fflush(stdout);
  return figures;
}

std::vector<std::string> split(const std::string& list) {
  std::vector<std::string> names;
  std::size_t from = 0;
  while (from <= list.size()) {
    const std::size_t comma = std::min(list.find(',', from), list.size());
    if (comma > from) names.push_back(list.substr(from, comma - from));
    from = comma + 1;
  }
  return names;
}

}  // namespace

int main(int argc, char** argv) {
  fs::path program = VELMORA_PROGRAM, corpora;
  int runs = 5;
  std::vector<std::string> names = {"mixed", "small", "zip-heavy"};
  for (int i = 1; i + 1 < argc; i += 2) {
    const std::string option = argv[i], value = argv[i + 1];
    if (option == "--velmora")
      program = value;
    else if (option == "--corpora")
      corpora = value;
    else if (option == "--runs")
      runs = std::max(1, std::stoi(value));
    else if (option == "--only")
      names = split(value);
    else
      program.clear(), i = argc;
  }
  if (program.empty() || corpora.empty()) {
    std::cerr
        << "usage: velmora-bench --corpora DIR [--velmora PATH] [--runs N] [--only NAME,...]\n";
    return 2;
  }
  // A filter that dies must not take the harness with it through a write to a closed pipe.
  ::signal(SIGPIPE, SIG_IGN);
  try {
    program = fs::absolute(program);
    if (!fs::is_regular_file(program)) throw HarnessError("no program at " + program.string());
    std::printf("velmora-bench: %s, %d runs per corpus, medians\n", program.string().c_str(), runs);
    // The targets are judged on the wall clock, which other work on the machine stretches.
    std::ifstream loadavg("/proc/loadavg");
    std::string load;
    if (loadavg >> load) {
      std::printf("load average %s on %u processors at the start\n", load.c_str(),
                  std::thread::hardware_concurrency());
    }
    Placement placement;
    Verdicts verdicts;
    std::vector<Figures> table;
    for (const std::string& name : names) {
      table.push_back(benchCorpus(program, loadCorpus(corpora, name), runs, placement, verdicts));
    }
    printTable(table);
    std::printf("\n%d targets met, %d missed\n", verdicts.passed, verdicts.failed);
  } catch (const std::exception& e) {
    std::fflush(stdout);
    std::cerr << "velmora-bench: FAILED: " << e.what() << "\n";
    return 1;
  }
  return 0;
}
