// The velmora program with one difference for the stress test: a message file whose name asks
// for it is removed or replaced after the engine has checked it and before the scanner opens
// it, the window in which the server may take a queued file away. Doing it here, not by
// timing, keeps the test deterministic.
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <iostream>
#include <string>

#include "kvs/platform/platform.h"
#include "scanner/attachment_filter.h"

namespace {

namespace fs = std::filesystem;

bool endsWith(const std::string& text, const std::string& tail) {
  return text.size() >= tail.size() &&
         text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

// Leaves a UNIX socket file at `path`; the socket itself is closed, the file stays.
void socketFile(const std::string& path) {
  const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
  (void)::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
  ::close(fd);
}

class VanishingFilter : public AttachmentFilter {
 public:
  cgp::Verdict filterMessage(int seqID, const std::string& path) override {
    std::error_code ignored;
    if (endsWith(path, ".removed")) {
      fs::remove(path, ignored);
    } else if (endsWith(path, ".to-directory")) {
      fs::remove(path, ignored);
      fs::create_directory(path, ignored);
    } else if (endsWith(path, ".to-socket")) {
      fs::remove(path, ignored);
      socketFile(path);
    } else if (endsWith(path, ".to-dangling-link")) {
      fs::remove(path, ignored);
      fs::create_symlink(path + ".nowhere", path, ignored);
    }
    return AttachmentFilter::filterMessage(seqID, path);
  }
};

}  // namespace

int main(int argc, char** argv) {
  kvs::platform::prepareStandardStreams();
  std::ios::sync_with_stdio(false);
  VanishingFilter filter;
  return filter.run(argc, argv);
}
