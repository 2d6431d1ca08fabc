// Shared ownership without counters: every holder of one object sits in a ring, and the last
// holder to leave the ring destroys the object. thread_safe_ptr does the same under one lock per
// pointee type; a ptr ring must stay within one thread at a time.
#pragma once

#include <cstddef>

#include "kvs/mutex.h"

namespace kvs {

template <class T>
class ptr_interface {
 public:
  using Deleter = void (*)(T*);

  virtual void release() = 0;
  virtual ~ptr_interface() = default;
  virtual T* get() { return object; }
  virtual const T* get() const { return object; }
  virtual bool isUnique() const { return uniqueUnlocked(); }
  virtual bool isNull() const { return object == nullptr; }

  T* operator->() const { return object; }
  T& operator*() const { return *object; }
  explicit operator bool() const { return object != nullptr; }

  // What both pointer classes are made from: nothing, or a new object and how to delete it.
  ptr_interface(std::nullptr_t) {}
  explicit ptr_interface(T* o, Deleter d = nullptr) : object(o), deleter(o ? d : nullptr) {}

 protected:
  ptr_interface() = default;

  bool uniqueUnlocked() const { return next == nullptr || next == this; }

  void releaseUnlocked() {
    if (object != nullptr) {
      if (uniqueUnlocked()) {
        if (deleter != nullptr) {
          deleter(object);
        } else {
          delete object;
        }
      } else {
        next->previous = previous;
        previous->next = next;
      }
    }
    object = nullptr;
    deleter = nullptr;
    next = nullptr;
    previous = nullptr;
  }

  // Joins the ring of `other`, right after it. `this` must be empty.
  void joinUnlocked(const ptr_interface& other) {
    if (other.object == nullptr) return;
    object = other.object;
    deleter = other.deleter;
    auto& o = const_cast<ptr_interface&>(other);
    if (o.next == nullptr) {
      o.next = o.previous = &o;
    }
    next = o.next;
    previous = &o;
    o.next->previous = this;
    o.next = this;
  }

  // Leaves this ring for that of `other`, unless both already hold the same object.
  void assignUnlocked(const ptr_interface& other) {
    if (this == &other || object == other.object) return;
    releaseUnlocked();
    joinUnlocked(other);
  }

  // Takes the place of `other` in its ring; `other` ends up empty. `this` must be empty.
  void replaceUnlocked(ptr_interface& other) {
    object = other.object;
    deleter = other.deleter;
    if (other.next != nullptr && other.next != &other) {
      next = other.next;
      previous = other.previous;
      next->previous = this;
      previous->next = this;
    }
    other.object = nullptr;
    other.deleter = nullptr;
    other.next = other.previous = nullptr;
  }

  T* object = nullptr;
  Deleter deleter = nullptr;
  ptr_interface* next = nullptr;
  ptr_interface* previous = nullptr;
};

template <class T>
class ptr : public ptr_interface<T> {
  using Base = ptr_interface<T>;

 public:
  using Base::Base;
  ptr() = default;
  ptr(const ptr& other) : Base() { this->joinUnlocked(other); }
  ptr(ptr&& other) noexcept : Base() { this->replaceUnlocked(other); }
  ~ptr() override { release(); }

  ptr& operator=(const ptr& other) {
    this->assignUnlocked(other);
    return *this;
  }
  ptr& operator=(ptr&& other) noexcept {
    if (this != &other) {
      this->releaseUnlocked();
      this->replaceUnlocked(other);
    }
    return *this;
  }
  ptr& operator=(std::nullptr_t) {
    release();
    return *this;
  }

  void release() override { this->releaseUnlocked(); }
};

template <class T>
class thread_safe_ptr : public ptr_interface<T> {
  using Base = ptr_interface<T>;

 public:
  using Base::Base;
  thread_safe_ptr() = default;
  thread_safe_ptr(const thread_safe_ptr& other) : Base() {
    ScopedLock lock(typeLock());
    this->joinUnlocked(other);
  }
  ~thread_safe_ptr() override { release(); }

  thread_safe_ptr& operator=(const thread_safe_ptr& other) {
    ScopedLock lock(typeLock());
    this->assignUnlocked(other);
    return *this;
  }
  thread_safe_ptr& operator=(std::nullptr_t) {
    release();
    return *this;
  }

  void release() override {
    ScopedLock lock(typeLock());
    this->releaseUnlocked();
  }
  bool isUnique() const override {
    ScopedLock lock(typeLock());
    return this->uniqueUnlocked();
  }
  bool isNull() const override {
    ScopedLock lock(typeLock());
    return this->object == nullptr;
  }

 private:
  // One lock per pointee type, made on first use (function-local statics are thread-safe).
  static MutexInterface& typeLock() {
    static MutexInterface lock;
    return lock;
  }
};

}  // namespace kvs
