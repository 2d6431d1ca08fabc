// For tests: a one-connection TCP server on 127.0.0.1, built on the library's own listen and
// accept, that plays a fixed script (send these bytes, expect a line, pause, hang up) on a
// thread of its own and records every line it received.
#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "access/socket.h"

namespace testing_server {

struct Step {
  enum Kind { Send, Receive, Pause, HangUp } kind;
  std::string text;  // bytes to send, as they are (no CRLF added)
  int milliseconds = 0;
};

inline Step send(std::string bytes) {
  return {Step::Send, std::move(bytes), 0};
}
inline Step receive() {
  return {Step::Receive, {}, 0};
}
inline Step pause(int ms) {
  return {Step::Pause, {}, ms};
}
inline Step hangUp() {
  return {Step::HangUp, {}, 0};
}

class ScriptedServer {
 public:
  // Nothing in a script waits longer than this, so a test never hangs on a silent client.
  static constexpr std::uint32_t kPatience = 5000;

  explicit ScriptedServer(std::vector<Step> script) : script_(std::move(script)) {
    listener_.create(kvs::sock::socket::kStream, true);
    listener_.bindAndListen(0, true, kvs::sock::kLocalHost);
    port_ = listener_.localPort();
    thread_ = std::thread([this] { play(); });
  }
  ~ScriptedServer() { finish(); }

  [[nodiscard]] std::uint16_t port() const { return port_; }

  // Waits for the script to end and returns the lines the client sent.
  std::vector<std::string> finish() {
    if (thread_.joinable()) thread_.join();
    std::lock_guard<std::mutex> lock(mutex_);
    return received_;
  }

 private:
  void play() {
    if (listener_.nothingToRead(kPatience)) return;
    kvs::sock::socket peer;
    kvs::sock::address from;
    if (!listener_.acceptConnection(peer, from, kPatience)) return;
    for (const Step& step : script_) {
      switch (step.kind) {
        case Step::Send:
          if (!peer.sendLine(step.text, false, false)) return;
          break;
        case Step::Receive: {
          std::string line;
          if (!peer.receiveLine(line, false)) return;
          std::lock_guard<std::mutex> lock(mutex_);
          received_.push_back(line);
          break;
        }
        case Step::Pause:
          std::this_thread::sleep_for(std::chrono::milliseconds(step.milliseconds));
          break;
        case Step::HangUp:
          peer.close();
          return;
      }
    }
    // Let the client read the last answer before the connection goes away.
    peer.nothingToRead(200);
  }

  std::vector<Step> script_;
  kvs::sock::socket listener_;
  std::uint16_t port_ = 0;
  std::thread thread_;
  std::mutex mutex_;
  std::vector<std::string> received_;
};

}  // namespace testing_server
