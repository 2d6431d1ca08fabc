// Holder rings: the last holder destroys the object exactly once, whatever the release order.
#include "kvs/ptr.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <thread>
#include <vector>

namespace {

struct Counted {
  explicit Counted(int& destroyed) : destroyed(destroyed) {}
  ~Counted() { ++destroyed; }
  int& destroyed;
};

TEST(Ptr, SingleHolderDestroysOnce) {
  int destroyed = 0;
  {
    kvs::ptr<Counted> p(new Counted(destroyed));
    EXPECT_TRUE(p.isUnique());
    EXPECT_FALSE(p.isNull());
  }
  EXPECT_EQ(destroyed, 1);
}

TEST(Ptr, EveryReleaseOrderOfARingDestroysOnceAtTheEnd) {
  std::vector<int> order = {0, 1, 2, 3};
  do {
    int destroyed = 0;
    std::vector<kvs::ptr<Counted>> holders(4);
    holders[0] = kvs::ptr<Counted>(new Counted(destroyed));
    holders[1] = holders[0];
    holders[2] = holders[1];
    holders[3] = holders[0];
    for (std::size_t i = 0; i < order.size(); ++i) {
      EXPECT_FALSE(holders[order[i]].isUnique() && i < 3);
      holders[order[i]] = nullptr;
      EXPECT_TRUE(holders[order[i]].isNull());
      EXPECT_EQ(destroyed, i == 3 ? 1 : 0);
    }
  } while (std::next_permutation(order.begin(), order.end()));
}

TEST(Ptr, CopyIsNotUniqueAndLastOneStandingIs) {
  int destroyed = 0;
  kvs::ptr<Counted> a(new Counted(destroyed));
  {
    kvs::ptr<Counted> b = a;
    EXPECT_FALSE(a.isUnique());
    EXPECT_FALSE(b.isUnique());
    EXPECT_EQ(a.get(), b.get());
  }
  EXPECT_TRUE(a.isUnique());
  EXPECT_EQ(destroyed, 0);
}

int deleterCalls = 0;
void countingDeleter(Counted* c) {
  ++deleterCalls;
  delete c;
}

TEST(Ptr, DeleterReplacesDelete) {
  int destroyed = 0;
  deleterCalls = 0;
  {
    kvs::ptr<Counted> a(new Counted(destroyed), countingDeleter);
    kvs::ptr<Counted> b = a;
  }
  EXPECT_EQ(deleterCalls, 1);
  EXPECT_EQ(destroyed, 1);
}

TEST(Ptr, AssigningAnotherObjectReleasesTheOldOne) {
  int first = 0, second = 0;
  kvs::ptr<Counted> a(new Counted(first));
  kvs::ptr<Counted> b(new Counted(second));
  a = b;
  EXPECT_EQ(first, 1);
  EXPECT_EQ(second, 0);
  a = a;
  EXPECT_FALSE(a.isUnique());
  b = nullptr;
  a = nullptr;
  EXPECT_EQ(second, 1);
}

TEST(Ptr, MoveTakesThePlaceInTheRing) {
  int destroyed = 0;
  kvs::ptr<Counted> a(new Counted(destroyed));
  kvs::ptr<Counted> b = a;
  kvs::ptr<Counted> c = std::move(b);
  EXPECT_TRUE(b.isNull());
  a = nullptr;
  EXPECT_TRUE(c.isUnique());
  c = nullptr;
  EXPECT_EQ(destroyed, 1);
}

TEST(ThreadSafePtr, ConcurrentCopiesAndReleases) {
  int destroyed = 0;
  {
    kvs::thread_safe_ptr<Counted> root(new Counted(destroyed));
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
      threads.emplace_back([&root] {
        for (int i = 0; i < 2000; ++i) {
          kvs::thread_safe_ptr<Counted> copy = root;
          kvs::thread_safe_ptr<Counted> again = copy;
          EXPECT_FALSE(again.isUnique());
        }
      });
    }
    for (auto& t : threads) t.join();
    EXPECT_TRUE(root.isUnique());
    EXPECT_EQ(destroyed, 0);
  }
  EXPECT_EQ(destroyed, 1);
}

}  // namespace
