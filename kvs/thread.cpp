// The thread object.
#include "kvs/thread.h"

#include <exception>
#include <utility>

#include "kvs/log.h"

namespace kvs {

_thread::~_thread() {
  if (thread_.joinable()) thread_.detach();
}

void _thread::start() {
  if (!body_) return;
  thread_ = std::thread([body = std::exchange(body_, nullptr)]() {
    // An exception that escapes the thread's function ends only that thread: it is logged
    // for the server's log instead of taking the whole filter down.
    try {
      body();
    } catch (const std::exception& e) {
      logline() << "Thread ended by an exception: " << e.what();
    } catch (...) {
      logline() << "Thread ended by an exception";
    }
  });
}

void _thread::wait() {
  if (thread_.joinable() && thread_.get_id() != std::this_thread::get_id()) thread_.join();
}

}  // namespace kvs
