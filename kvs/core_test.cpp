// Answer and comment lines, the repetition filter, archiveFile; holder rings (the last holder
// destroys the object once); the thread object, which hands its argument's holder to the thread.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <regex>
#include <thread>
#include <vector>

#include "kvs/log.h"
#include "kvs/ptr.h"
#include "kvs/thread.h"
#include "tests/support/support.h"

namespace {

std::string captured;

TEST(LogLines, ShapesAndTheRepetitionFilter) {
  kvs::resetRepeatTable();
  const auto previous = kvs::setOutputWriter([](std::string_view t) { captured.append(t); });
  kvs::outline() << "7 OK" << "\n\n";  // exactly one line feed
  kvs::outline() << 12 << ' ' << std::string("x");
  {
    kvs::outline line;
    line << "a" << kvs::endl;  // written here, and not again at the end of the scope
    EXPECT_EQ(captured, "7 OK\n12 x\na\n");
  }
  kvs::logline() << "Ready to receive INTF command.";
  kvs::logline(12) << "Thread processing started";
  kvs::logline(0) << "no number";
  kvs::logline(std::string("7")) << "Filter is shutting down...";
  kvs::logline(5) << "a\nb\n\n";
  kvs::logline(std::string("src")) << "x\n\ny";
  EXPECT_EQ(captured,
            "7 OK\n12 x\na\n"
            "* Ready to receive INTF command.\n* [12] Thread processing started\n* no number\n"
            "* 7: Filter is shutting down...\n* [5] a\n* [5] b\n* src: x\n* src: \n* src: y\n");
  // Per source, a comment equal to the one before is held back and counted; the summary counts
  // the first occurrence too and comes before the next different comment. Comments without a
  // source are never held back.
  captured.clear();
  const std::pair<const char*, const char*> comments[] = {
      {"7", "same"}, {"7", "same"}, {"7", "same"}, {"7", "other"}, {"a", "one"},
      {"b", "one"},  {"a", "two"},  {"a", "two"},  {"b", "one"},   {"a", "one"}};
  for (const auto& [source, text] : comments) kvs::logline(std::string(source)) << text;
  kvs::logline(3) << "Accepting message";
  kvs::logline(3) << "Accepting message";
  EXPECT_EQ(captured,
            "* 7: same\n* 7: (Last message repeated 3 times)\n* 7: other\n"
            "* a: one\n* b: one\n* a: two\n* a: (Last message repeated 2 times)\n* a: one\n"
            "* [3] Accepting message\n* [3] Accepting message\n");
  kvs::setOutputWriter(previous);
}

TEST(ArchiveFile, MovesAsideAndAvoidsExistingNames) {
  test_support::TempDir dir;
  const std::string file = dir.write("log.txt", "first"), first = kvs::archiveFile(file);
  EXPECT_TRUE(!std::filesystem::exists(file) && std::filesystem::exists(first));
  const std::string suffix = first.substr(file.size());
  EXPECT_TRUE(std::regex_match(suffix, std::regex(R"(\.\d{8}-\d{6})"))) << suffix;
  // Within the same second the target name is taken: ".1" is added.
  const std::string second = kvs::archiveFile(dir.write("log.txt", "second"));
  EXPECT_TRUE(second.substr(file.size(), 16) != suffix || second == first + ".1") << second;
  EXPECT_TRUE(std::filesystem::exists(second));
  EXPECT_EQ(kvs::archiveFile(dir.path() + "/missing"), "");
}

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

struct Witness {  // notes the thread that destroys it
  explicit Witness(std::thread::id& where) : destroyedOn(where) {}
  ~Witness() { destroyedOn = std::this_thread::get_id(); }
  std::thread::id& destroyedOn;
};

// A plain ptr ring is unlocked: the thread's function must drop the last holder.
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
