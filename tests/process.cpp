// Child processes for the program tests (POSIX).
#include "tests/process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <thread>

namespace testing_process {
namespace {

void readAvailable(int fd, std::string& into, bool& open) {
  char buf[65536];
  const ssize_t n = ::read(fd, buf, sizeof buf);
  if (n > 0) {
    into.append(buf, static_cast<std::size_t>(n));
  } else if (n == 0 || (errno != EINTR && errno != EAGAIN)) {
    open = false;
  }
}

}  // namespace

Result run(const std::vector<std::string>& argv, const std::string& input, int timeoutSeconds,
           const std::string& workdir) {
  Result result;
  int in[2], out[2], err[2];
  if (::pipe(in) != 0 || ::pipe(out) != 0 || ::pipe(err) != 0) return result;
  ::signal(SIGPIPE, SIG_IGN);
  const pid_t pid = ::fork();
  if (pid == 0) {
    ::dup2(in[0], 0);
    ::dup2(out[1], 1);
    ::dup2(err[1], 2);
    for (int fd : {in[0], in[1], out[0], out[1], err[0], err[1]}) ::close(fd);
    if (!workdir.empty() && ::chdir(workdir.c_str()) != 0) ::_exit(126);
    std::vector<char*> args;
    for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
    args.push_back(nullptr);
    ::execvp(args[0], args.data());
    ::_exit(127);
  }
  ::close(in[0]);
  ::close(out[1]);
  ::close(err[1]);
  std::thread writer([fd = in[1], &input] {
    std::size_t done = 0;
    while (done < input.size()) {
      const ssize_t n = ::write(fd, input.data() + done, input.size() - done);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) break;
      done += static_cast<std::size_t>(n);
    }
    ::close(fd);
  });
  bool outOpen = true, errOpen = true;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(timeoutSeconds);
  while (outOpen || errOpen) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        deadline - std::chrono::steady_clock::now());
    if (left.count() <= 0) {
      result.timedOut = true;
      ::kill(pid, SIGKILL);
      break;
    }
    pollfd fds[2] = {{out[0], POLLIN, 0}, {err[0], POLLIN, 0}};
    if (!outOpen) fds[0].fd = -1;
    if (!errOpen) fds[1].fd = -1;
    const int ready = ::poll(fds, 2, static_cast<int>(std::min<long long>(left.count(), 1000)));
    if (ready < 0 && errno != EINTR) break;
    if (fds[0].revents) readAvailable(out[0], result.out, outOpen);
    if (fds[1].revents) readAvailable(err[0], result.err, errOpen);
  }
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  writer.join();
  ::close(out[0]);
  ::close(err[0]);
  if (WIFEXITED(status)) result.exitCode = WEXITSTATUS(status);
  if (WIFSIGNALED(status)) result.signal = WTERMSIG(status);
  return result;
}

std::vector<std::string> ownProgram(const std::string& path) {
#ifdef VELMORA_EMULATOR
  return {VELMORA_EMULATOR, path};
#else
  return {path};
#endif
}

namespace {
std::vector<std::string> withRunner(const std::string& path) {
  if (const char* runner = std::getenv("VELMORA_RUNNER"); runner && *runner) {
    return {runner, path};
  }
  return ownProgram(path);
}
}  // namespace

std::vector<std::string> program() {
  const char* over = std::getenv("VELMORA_PROGRAM_PATH");
  return withRunner(over && *over ? over : VELMORA_PROGRAM);
}

std::vector<std::string> tool(const std::vector<std::string>& args) {
  const char* over = std::getenv("VELMORA_TOOL_PATH");
  auto argv = withRunner(over && *over ? over : VELMORA_TOOL);
  argv.insert(argv.end(), args.begin(), args.end());
  return argv;
}

bool windowsPrograms() {
  const char* runner = std::getenv("VELMORA_RUNNER");
  return runner && *runner;
}

bool endedByAbort(const Result& result) {
  if (windowsPrograms()) return result.signal == 0 && result.exitCode == 3;
  return result.signal != 0;
}

std::string sourceDir() {
  return VELMORA_SOURCE_DIR;
}
std::string corpusDir() {
  return std::string(VELMORA_SOURCE_DIR) + "/../shared/corpus";
}

}  // namespace testing_process
