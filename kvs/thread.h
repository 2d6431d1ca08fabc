// The library's thread object: starts an operating-system thread that runs one function.
#pragma once

#include <functional>
#include <thread>
#include <utility>

#include "kvs/noncopyable.h"

namespace kvs {

class _thread : private noncopyable {
 public:
  // Runs function(argument) on a new thread; with startNow false, start() begins it later.
  // The argument is moved, never copied, on its way to the thread: a ptr handed in with
  // std::move stays one holder, owned by the thread alone once it runs.
  template <class Function, class Argument>
  _thread(Function function, Argument argument, bool startNow = true)
      : body_([function, argument = std::move(argument)]() mutable {
          function(std::move(argument));
        }) {
    if (startNow) start();
  }
  explicit _thread(std::function<void()> body, bool startNow = true) : body_(std::move(body)) {
    if (startNow) start();
  }
  // A thread that is still running when its last holder lets go runs on, detached: workers
  // are never joined by anyone.
  ~_thread();

  // Hands the function over to the new thread: it can be started once.
  void start();
  // Waits for the thread's end (no time limit). A thread never waits for itself.
  void wait();
  bool started() const { return thread_.joinable(); }

 private:
  std::function<void()> body_;
  std::thread thread_;
};

using Thread = _thread;

}  // namespace kvs
