#include "foundation/run_on_main_thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "foundation/main_thread_queue.h"

namespace {

// Appends its number to a list when it runs, and counts its own deletion.
class Item : public LThreadRunOnMainThreadData {
 public:
  Item(int n, std::vector<int>& ran, std::atomic<int>& deleted) : n(n), ran(ran), deleted(deleted) {}
  ~Item() override { deleted.fetch_add(1); }
  void Run() override {
    ran.push_back(n);
    thread = std::this_thread::get_id();
  }

  int n;
  std::vector<int>& ran;
  std::atomic<int>& deleted;
  static inline std::thread::id thread;
};

class RunOnMainThreadTest : public ::testing::Test {
 protected:
  LPumpedMainThreadQueue queue;
  LMainThreadQueueRegistration registration{queue};
  std::vector<int> ran;
  std::atomic<int> deleted{0};
};

}  // namespace

TEST_F(RunOnMainThreadTest, ItemsFromAnotherThreadRunInOrderOnTheMainThread) {
  LThreadRunOnMainThread owner;
  std::thread worker([&] {
    for (int i = 0; i < 50; ++i) owner.RunOnMainThread(new Item(i, ran, deleted));
  });
  worker.join();
  EXPECT_EQ(owner.GetPendingCount(), 50u);
  EXPECT_TRUE(ran.empty());  // nothing runs until the main thread takes it
  EXPECT_EQ(queue.RunPending(), 50);
  ASSERT_EQ(ran.size(), 50u);
  for (int i = 0; i < 50; ++i) EXPECT_EQ(ran[static_cast<std::size_t>(i)], i);
  EXPECT_EQ(Item::thread, std::this_thread::get_id());
  EXPECT_EQ(deleted.load(), 50);
  EXPECT_EQ(owner.GetPendingCount(), 0u);
}

TEST_F(RunOnMainThreadTest, DestroyFlushesWhatIsPendingAndRefusesLaterPosts) {
  auto owner = std::make_unique<LThreadRunOnMainThread>();
  for (int i = 0; i < 5; ++i) owner->RunOnMainThread(new Item(i, ran, deleted));
  owner->ThreadRunOnMainThreadDestroy();
  // Flushed means deleted now, not merely skipped later.
  EXPECT_EQ(deleted.load(), 5);
  EXPECT_FALSE(owner->IsRunOnMainThreadValid());
  owner->RunOnMainThread(new Item(99, ran, deleted));
  EXPECT_EQ(deleted.load(), 6);
  owner.reset();
  queue.RunPending();
  EXPECT_TRUE(ran.empty());
  EXPECT_EQ(deleted.load(), 6);
}

TEST_F(RunOnMainThreadTest, AnOwnerDestroyedWhileAThreadPostsNeverRunsAnything) {
  auto owner = std::make_unique<LThreadRunOnMainThread>();
  LSignalObject some;
  std::atomic<bool> quit{false};
  std::atomic<int> posted{0};
  LThreadRunOnMainThread* raw = owner.get();
  // The worker keeps posting through the owner while the main thread destroys it;
  // the owner's lock decides, post by post, whether an item is queued or deleted.
  std::vector<int> ranByWorker;
  std::thread worker([&] {
    for (int i = 0; !quit.load(); ++i) {
      raw->RunOnMainThread(new Item(i, ranByWorker, deleted));
      if (posted.fetch_add(1) == 100) some.Set();
    }
  });
  ASSERT_TRUE(some.WaitSignal(LSignalWaitForever));
  queue.RunPending();  // some run while the owner lives
  std::size_t const ranBefore = ranByWorker.size();
  EXPECT_GT(ranBefore, 0u);
  raw->ThreadRunOnMainThreadDestroy();
  queue.RunPending();
  EXPECT_EQ(ranByWorker.size(), ranBefore);
  quit.store(true);
  worker.join();
  owner.reset();
  queue.RunPending();
  EXPECT_EQ(ranByWorker.size(), ranBefore);
  EXPECT_EQ(deleted.load(), posted.load());
}

TEST(RunOnMainThread, WithoutARunningMainLoopItemsAreDeletedUnrun) {
  std::vector<int> ran;
  std::atomic<int> deleted{0};
  LThreadRunOnMainThread owner;
  owner.RunOnMainThread(new Item(1, ran, deleted));  // no queue registered
  EXPECT_EQ(deleted.load(), 1);

  LPumpedMainThreadQueue queue;
  LMainThreadQueueRegistration registration(queue);
  owner.RunOnMainThread(new Item(2, ran, deleted));
  EXPECT_EQ(deleted.load(), 1);
  // The loop ends with the item still queued: it is dropped, and deleted all the same.
  queue.Close();
  EXPECT_EQ(deleted.load(), 2);
  EXPECT_FALSE(LIsMainLoopRunning());
  owner.RunOnMainThread(new Item(3, ran, deleted));
  EXPECT_EQ(deleted.load(), 3);
  EXPECT_EQ(queue.RunPending(), 0);
  EXPECT_TRUE(ran.empty());
  EXPECT_EQ(owner.GetPendingCount(), 0u);
}

TEST(MainThreadQueue, AnUnregisteredQueueReceivesNothingAndTheLaterOneStaysRegistered) {
  LPumpedMainThreadQueue first, second;
  LRegisterMainThreadQueue(&first);
  LRegisterMainThreadQueue(&second);
  LUnregisterMainThreadQueue(&first);  // not the registered one: no effect
  int ran = 0;
  EXPECT_TRUE(LPostToMainThread([&] { ++ran; }));
  EXPECT_EQ(first.GetPendingCount(), 0u);
  EXPECT_EQ(second.RunPending(), 1);
  LUnregisterMainThreadQueue(&second);
  EXPECT_FALSE(LPostToMainThread([&] { ++ran; }));
  EXPECT_EQ(second.GetPendingCount(), 0u);
  EXPECT_EQ(ran, 1);
}

TEST(MainThreadQueue, WaitPumpingRunsWorkUntilTheSignalAndReportsAStop) {
  LPumpedMainThreadQueue queue;
  LSignalObject done, stop;
  std::vector<int> ran;
  std::thread worker([&] {
    for (int i = 0; i < 20; ++i) queue.PostToMainThread([&ran, i] { ran.push_back(i); });
    done.Set();
  });
  EXPECT_EQ(queue.WaitPumping(done, stop, LSignalWaitForever), 0);
  worker.join();
  // All that was posted before the signal has run, in order.
  ASSERT_EQ(ran.size(), 20u);
  EXPECT_EQ(ran.front(), 0);
  EXPECT_EQ(ran.back(), 19);

  done.Reset();
  queue.PostToMainThread([&ran] { ran.push_back(100); });
  stop.Set();
  EXPECT_EQ(queue.WaitPumping(done, stop, LSignalWaitForever), 1);
  EXPECT_EQ(ran.back(), 100);
  stop.Reset();
  EXPECT_EQ(queue.WaitPumping(done, stop, 5), 2);
}

namespace {

class Notified : public LThreadQueuedNotify {
 public:
  ~Notified() override { ThreadRunOnMainThreadDestroy(); }
  std::atomic<bool> bNews{false};
  int iSeen = 0;

 protected:
  void EvNotify() override {
    if (bNews.exchange(false)) ++iSeen;
  }
};

class DataHandler : public LQueuedNotifyDataHandler {
 public:
  ~DataHandler() override { ThreadRunOnMainThreadDestroy(); }
  std::vector<std::pair<unsigned int, std::string>> got;

 protected:
  void EvQueuedNotifyData(unsigned int code, void const* data, unsigned long size) override {
    got.emplace_back(code, data ? std::string(static_cast<char const*>(data), size) : std::string("<none>"));
  }
};

}  // namespace

TEST_F(RunOnMainThreadTest, NotifiesReachTheirHandlersWithACopyOfTheData) {
  Notified notified;
  notified.bNews.store(true);
  notified.PostQueueNotify();
  notified.PostQueueNotify();  // the second finds the flag already cleared

  DataHandler handler;
  char buffer[] = "first";
  handler.PostNotifyFromSender(7, buffer, 5);
  buffer[0] = 'X';  // the sender may reuse its buffer at once
  handler.PostNotifyFromSender(8, nullptr, 0);
  queue.RunPending();
  EXPECT_EQ(notified.iSeen, 1);
  ASSERT_EQ(handler.got.size(), 2u);
  EXPECT_EQ(handler.got[0], (std::pair<unsigned int, std::string>{7, "first"}));
  EXPECT_EQ(handler.got[1], (std::pair<unsigned int, std::string>{8, "<none>"}));
}

namespace {

// Every item of this kind lives at the same address, as the allocator may well
// arrange for an item freed just before the next is made.
class SameAddressItem : public LThreadRunOnMainThreadData {
 public:
  explicit SameAddressItem(std::vector<int>& ran, int n) : ran(ran), n(n) {}
  void Run() override { ran.push_back(n); }
  static void* operator new(std::size_t size) {
    EXPECT_LE(size, sizeof slot);
    EXPECT_FALSE(inUse);
    inUse = true;
    return slot;
  }
  static void operator delete(void*) { inUse = false; }

 private:
  std::vector<int>& ran;
  int n;
  alignas(std::max_align_t) static inline unsigned char slot[128];
  static inline bool inUse = false;
};

// A main loop that keeps a piece of work after running it, until told to let go.
struct HoldingQueue : LMainThreadQueue {
  std::vector<std::function<void()>> works;
  void PostToMainThread(std::function<void()> work) override { works.push_back(std::move(work)); }
};

}  // namespace

TEST(RunOnMainThread, AnItemAtTheAddressOfOneThatRanIsNotTakenForIt) {
  HoldingQueue queue;
  LMainThreadQueueRegistration registration(queue);
  std::vector<int> ran;
  LThreadRunOnMainThread owner;
  owner.RunOnMainThread(new SameAddressItem(ran, 1));
  queue.works[0]();
  owner.RunOnMainThread(new SameAddressItem(ran, 2));
  // The loop lets go of the first work only now, while the second waits.
  queue.works[0] = nullptr;
  ASSERT_EQ(owner.GetPendingCount(), 1u);
  queue.works[1]();
  EXPECT_EQ(ran, (std::vector<int>{1, 2}));
}
