// The thread object: the argument's holder goes to the thread, and start runs the function once.
#include "kvs/thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "kvs/ptr.h"

namespace {

// Notes the thread that destroys it.
struct Witness {
  explicit Witness(std::thread::id& where) : destroyedOn(where) {}
  ~Witness() { destroyedOn = std::this_thread::get_id(); }
  std::thread::id& destroyedOn;
};

// A plain ptr ring is unlocked: after start no holder may be left with the starting thread,
// so the thread's function, which drops the last holder, destroys the object on the thread.
TEST(Thread, HandsTheOnlyHolderToTheThread) {
  std::thread::id destroyedOn;
  kvs::ptr<Witness> argument(new Witness(destroyedOn));
  kvs::_thread thread([](kvs::ptr<Witness> held) { held = nullptr; }, std::move(argument), false);
  EXPECT_EQ(destroyedOn, std::thread::id());
  thread.start();
  thread.wait();
  EXPECT_NE(destroyedOn, std::thread::id());
  EXPECT_NE(destroyedOn, std::this_thread::get_id());
}

TEST(Thread, StartsOnce) {
  std::atomic<int> runs{0};
  kvs::_thread thread([&runs] { ++runs; });
  thread.wait();
  thread.start();
  thread.wait();
  EXPECT_EQ(runs, 1);
}

}  // namespace
