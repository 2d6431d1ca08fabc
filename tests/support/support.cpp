#include "tests/support/support.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <fstream>
#include <iterator>
#include <thread>

namespace test_support {

std::string readFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

bool makeSocketFile(const std::string& path) {
  sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
  if (path.size() >= sizeof address.sun_path) return false;
  path.copy(address.sun_path, path.size());
  const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
  const bool made = ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
  ::close(fd);
  return made;
}

std::uint16_t closedPort() {
  sockaddr_in address{
      .sin_family = AF_INET, .sin_port = 0, .sin_addr = {htonl(INADDR_LOOPBACK)}, .sin_zero = {}};
  socklen_t size = sizeof address;
  const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  ::bind(fd, reinterpret_cast<sockaddr*>(&address), size);
  ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size);
  ::close(fd);
  return ntohs(address.sin_port);
}

Result run(const std::vector<std::string>& argv, const std::string& input, int timeoutSeconds,
           const std::string& workdir) {
  // Standard input and both outputs are files: the child never waits for this process.
  const TempDir io;
  const std::string files[] = {io.write("in", input), io.path() + "/out", io.path() + "/err"};
  std::vector<char*> args;
  for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);
  const pid_t pid = ::fork();
  if (pid == 0) {
    for (int i = 0; i < 3; ++i) {
      const int fd = ::open(files[i].c_str(), i == 0 ? O_RDONLY : O_WRONLY | O_CREAT, 0600);
      if (fd < 0 || ::dup2(fd, i) < 0) ::_exit(126);
      if (fd != i) ::close(fd);
    }
    ::signal(SIGPIPE, SIG_DFL);
    if (!workdir.empty() && ::chdir(workdir.c_str()) != 0) ::_exit(126);
    ::execvp(args[0], args.data());
    ::_exit(127);
  }
  Result result;
  int status = 0;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(timeoutSeconds);
  for (pid_t done = 0; done != pid && (done == 0 || errno == EINTR);) {
    done = ::waitpid(pid, &status, WNOHANG);
    if (!result.timedOut && std::chrono::steady_clock::now() > deadline) {
      result.timedOut = true;
      ::kill(pid, SIGKILL);
    }
    if (done == 0) std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  result.out = readFile(files[1]);
  result.err = readFile(files[2]);
  if (WIFEXITED(status)) result.exitCode = WEXITSTATUS(status);
  if (WIFSIGNALED(status)) result.signal = WTERMSIG(status);
  return result;
}

}  // namespace test_support
