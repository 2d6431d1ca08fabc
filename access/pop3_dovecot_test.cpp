// The POP3 client against a real Dovecot POP3 server from the distribution's packages, started
// on a loopback port with a throw-away configuration and mail directory, and stopped again.
// Needs root (the server drops to an unprivileged user for the mailbox) and the dovecot-pop3d
// package; without either the test says why and is skipped.
#include <fcntl.h>
#include <pwd.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "access/pop3_client.h"

namespace {

namespace fs = std::filesystem;
using kvs::pop3::client;

// The first message has lines that begin with dots (stuffed by the server on the wire) and lone
// line feeds in the mail file (CR LF on the wire); the second is there to be counted.
const char* const kFirst =
    "From: carol@example.org\n"
    "Subject: dots\n"
    "\n"
    ".leading dot\n"
    "..two dots\n"
    ".\n"
    "after a lone dot\n";
const char* const kSecond = "Subject: plain\n\njust text\n";

std::string findDovecot() {
  std::string path = std::getenv("PATH") ? std::getenv("PATH") : "";
  path += ":/usr/sbin:/usr/local/sbin";
  std::stringstream dirs(path);
  std::string dir;
  while (std::getline(dirs, dir, ':')) {
    const fs::path candidate = fs::path(dir) / "dovecot";
    if (!dir.empty() && ::access(candidate.c_str(), X_OK) == 0) return candidate;
  }
  return std::string();
}

void writeFile(const fs::path& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

// A free loopback port: bound once and given back for the server to take.
std::uint16_t freePort() {
  kvs::sock::socket probe;
  probe.create();
  probe.bindAndListen(0, true, "127.0.0.1");
  return probe.localPort();
}

class DovecotServer {
 public:
  // Starts the server; an empty result means it is up, anything else says why not.
  std::string start() {
    const std::string binary = findDovecot();
    if (binary.empty()) return "dovecot is not installed (package dovecot-pop3d)";
    if (::geteuid() != 0) return "starting dovecot needs root";
    const passwd* nobody = ::getpwnam("nobody");
    if (nobody == nullptr) return "no user 'nobody' to own the mailbox";

    char pattern[] = "velmora-pop3-XXXXXX";
    const fs::path base = fs::temp_directory_path() / pattern;
    std::string templ = base.string();
    if (::mkdtemp(templ.data()) == nullptr) return "cannot make a temporary directory";
    dir_ = templ;
    ::chmod(dir_.c_str(), 0755);
    const fs::path maildir = dir_ / "home" / "alice" / "Maildir";
    for (const char* sub : {"cur", "new", "tmp"}) fs::create_directories(maildir / sub);
    writeFile(maildir / "cur" / "1700000001.M1P1.velmora:2,", kFirst);
    writeFile(maildir / "cur" / "1700000002.M2P1.velmora:2,", kSecond);
    for (const auto& entry : fs::recursive_directory_iterator(dir_ / "home")) {
      if (::chown(entry.path().c_str(), nobody->pw_uid, nobody->pw_gid) != 0) return "chown failed";
    }
    if (::chown((dir_ / "home").c_str(), nobody->pw_uid, nobody->pw_gid) != 0)
      return "chown failed";
    writeFile(dir_ / "users", "alice:{PLAIN}wonderland\n");

    port_ = freePort();
    const std::string d = dir_.string();
    writeFile(dir_ / "dovecot.conf",
              "protocols = pop3\n"
              "listen = 127.0.0.1\n"
              "base_dir = " +
                  d +
                  "/run\n"
                  "state_dir = " +
                  d +
                  "/state\n"
                  "log_path = " +
                  d +
                  "/dovecot.log\n"
                  "ssl = no\n"
                  "disable_plaintext_auth = no\n"
                  "auth_mechanisms = plain apop\n"
                  "auth_failure_delay = 0\n"
                  "mail_location = maildir:~/Maildir\n"
                  "passdb {\n  driver = passwd-file\n  args = scheme=PLAIN " +
                  d +
                  "/users\n}\n"
                  "userdb {\n  driver = static\n  args = uid=" +
                  std::to_string(nobody->pw_uid) + " gid=" + std::to_string(nobody->pw_gid) +
                  " home=" + d +
                  "/home/%u\n}\n"
                  "service pop3-login {\n"
                  "  inet_listener pop3 {\n    address = 127.0.0.1\n    port = " +
                  std::to_string(port_) +
                  "\n  }\n"
                  "  inet_listener pop3s {\n    port = 0\n  }\n}\n");

    pid_ = ::fork();
    if (pid_ < 0) return "fork failed";
    if (pid_ == 0) {
      const int log = ::open((dir_ / "stderr.log").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
      if (log >= 0) {
        ::dup2(log, 1);
        ::dup2(log, 2);
      }
      const std::string conf = (dir_ / "dovecot.conf").string();
      ::execl(binary.c_str(), "dovecot", "-F", "-c", conf.c_str(), static_cast<char*>(nullptr));
      ::_exit(127);
    }
    // Up when it greets; give it ten seconds.
    for (int i = 0; i < 100; ++i) {
      kvs::sock::socket probe(1000, 0);
      std::string greeting;
      if (probe.create() && probe.connect(kvs::sock::makeAddress("127.0.0.1", port_), false) &&
          probe.receiveChunk(greeting, false)) {
        probe.sendLine("QUIT", true, false);
        return std::string();
      }
      int status = 0;
      if (::waitpid(pid_, &status, WNOHANG) == pid_) {
        pid_ = -1;
        return "dovecot exited at start: " + log();
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    return "dovecot did not answer within 10 s: " + log();
  }

  ~DovecotServer() {
    if (pid_ > 0) {
      ::kill(pid_, SIGTERM);
      int status = 0;
      bool ended = false;
      for (int i = 0; i < 100 && !ended; ++i) {
        ended = ::waitpid(pid_, &status, WNOHANG) == pid_;
        if (!ended) std::this_thread::sleep_for(std::chrono::milliseconds(100));
      }
      if (!ended) {
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, &status, 0);
      }
    }
    if (!dir_.empty()) {
      std::error_code ignored;
      fs::remove_all(dir_, ignored);
    }
  }

  [[nodiscard]] std::uint16_t port() const { return port_; }

  std::string log() const {
    std::ifstream in(dir_ / "stderr.log");
    std::ostringstream text;
    text << in.rdbuf();
    std::ifstream own(dir_ / "dovecot.log");
    text << own.rdbuf();
    return text.str();
  }

 private:
  fs::path dir_;
  std::uint16_t port_ = 0;
  pid_t pid_ = -1;
};

// One real session each way: USER/PASS with STAT, RETR of the dotted message and DELE; then
// APOP, which must find the deletion kept.
TEST(Pop3Dovecot, LoginsStatRetrDele) {
  DovecotServer server;
  const std::string why = server.start();
  if (!why.empty()) GTEST_SKIP() << "Dovecot POP3 test skipped: " << why;
  {
    SCOPED_TRACE("USER/PASS");
    client pop;
    pop.setTimeouts(10000, 10000);
    pop.connect("127.0.0.1", server.port());
    pop.login("alice", "wonderland");
    std::uint64_t size = 0;
    EXPECT_EQ(pop.count(&size), 2u);
    EXPECT_GT(size, 0u);
    std::ostringstream first;
    pop.retrieve(1, first);
    EXPECT_EQ(first.str(), kFirst);
    EXPECT_TRUE(pop.remove(1));
    pop.close();  // QUIT makes the deletion stick
  }
  {
    SCOPED_TRACE("APOP");
    client pop;
    pop.setTimeouts(10000, 10000);
    pop.connect("127.0.0.1", server.port());
    pop.login("alice", "wonderland", true);
    EXPECT_EQ(pop.count(), 1u);
  }
  if (HasFailure()) ADD_FAILURE() << server.log();
}

}  // namespace
