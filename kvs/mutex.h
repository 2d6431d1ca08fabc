// The library's mutex (non-recursive) and the scoped lock every lock is taken through.
#pragma once

#include <mutex>

#include "kvs/noncopyable.h"

namespace kvs {

class MutexInterface : private noncopyable {
 public:
  MutexInterface() = default;
  virtual ~MutexInterface() = default;
  // Both throw std::system_error when the operating system refuses.
  void lock() { mutex_.lock(); }
  void unlock() { mutex_.unlock(); }

 private:
  std::mutex mutex_;
};

class ScopedLock : private noncopyable {
 public:
  explicit ScopedLock(MutexInterface& mutex, bool lockNow = true) : mutex_(mutex) {
    if (lockNow) lock();
  }
  ~ScopedLock() {
    if (held_) mutex_.unlock();
  }
  void lock() {
    mutex_.lock();
    held_ = true;
  }
  void unlock() {
    mutex_.unlock();
    held_ = false;
  }
  bool isLocked() const { return held_; }

 private:
  MutexInterface& mutex_;
  bool held_ = false;
};

}  // namespace kvs
