// Holder rings: the last holder destroys the object exactly once, whatever the release order;
// and the thread object, which hands its argument's holder to the thread.
#include "kvs/ptr.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

#include "kvs/thread.h"

namespace {

struct Counted {
  explicit Counted(int& destroyed) : destroyed(destroyed) {}
  ~Counted() { ++destroyed; }
  int& destroyed;
};

TEST(Ptr, EveryReleaseOrderOfARingDestroysOnceAtTheEnd) {
  std::vector<int> order = {0, 1, 2, 3};
  do {
    int destroyed = 0;
    std::vector<kvs::ptr<Counted>> holders(4);
    holders[0] = kvs::ptr<Counted>(new Counted(destroyed));
    EXPECT_TRUE(holders[0].isUnique());
    holders[3] = holders[2] = holders[1] = holders[0];
    for (std::size_t i = 0; i < order.size(); ++i) {
      EXPECT_EQ(holders[order[i]].isUnique(), i == 3);
      holders[order[i]] = nullptr;
      EXPECT_TRUE(holders[order[i]].isNull());
      EXPECT_EQ(destroyed, i == 3 ? 1 : 0);
    }
  } while (std::next_permutation(order.begin(), order.end()));
}

TEST(Ptr, AssignMoveAndDeleter) {
  int first = 0, second = 0;
  kvs::ptr<Counted> a(new Counted(first)), b(new Counted(second));
  a = b;  // releases the first object, joins b's ring
  EXPECT_EQ(first, 1);
  EXPECT_EQ(a.get(), b.get());
  a = a;
  EXPECT_FALSE(a.isUnique());
  kvs::ptr<Counted> c = std::move(b);  // takes b's place in the ring
  EXPECT_TRUE(b.isNull());
  a = nullptr;
  EXPECT_TRUE(c.isUnique());
  EXPECT_EQ(second, 0);
  c = nullptr;
  EXPECT_EQ(second, 1);
  static int deleterCalls = 0;
  {
    kvs::ptr<Counted> d(new Counted(first), [](Counted* p) { ++deleterCalls; delete p; }), e = d;
  }
  EXPECT_EQ(deleterCalls, 1);
  EXPECT_EQ(first, 2);
}

TEST(ThreadSafePtr, ConcurrentCopiesAndReleases) {
  int destroyed = 0;
  {
    kvs::thread_safe_ptr<Counted> root(new Counted(destroyed));
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
      threads.emplace_back([&root] {
        for (int i = 0; i < 2000; ++i) {
          kvs::thread_safe_ptr<Counted> copy = root, again;
          again = copy;
          EXPECT_FALSE(again.isUnique());
        }
      });
    }
    for (auto& t : threads) t.join();
    EXPECT_TRUE(root.isUnique() && !root.isNull());
    EXPECT_EQ(destroyed, 0);
  }
  EXPECT_EQ(destroyed, 1);
}

// Notes the thread that destroys it.
struct Witness {
  explicit Witness(std::thread::id& where) : destroyedOn(where) {}
  ~Witness() { destroyedOn = std::this_thread::get_id(); }
  std::thread::id& destroyedOn;
};

// A plain ptr ring is unlocked: after start no holder may be left with the starting thread,
// so the thread's function, which drops the last holder, destroys the object on the thread.
TEST(Thread, HandsTheOnlyHolderToTheThreadAndStartsOnce) {
  std::thread::id destroyedOn;
  kvs::ptr<Witness> argument(new Witness(destroyedOn));
  kvs::_thread thread([](kvs::ptr<Witness> held) { held = nullptr; }, std::move(argument), false);
  EXPECT_EQ(destroyedOn, std::thread::id());
  thread.start();
  thread.wait();
  EXPECT_NE(destroyedOn, std::thread::id());
  EXPECT_NE(destroyedOn, std::this_thread::get_id());
  std::atomic<int> runs{0};
  kvs::_thread once([&runs] { ++runs; });
  once.wait();
  once.start();
  once.wait();
  EXPECT_EQ(runs, 1);
}

}  // namespace
