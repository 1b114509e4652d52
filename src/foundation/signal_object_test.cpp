#include "foundation/signal_object.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

using namespace std::chrono_literals;

namespace {

auto Elapsed(std::chrono::steady_clock::time_point since) { return std::chrono::steady_clock::now() - since; }

}  // namespace

TEST(SignalObject, StaysSetUntilReset) {
  LSignalObject so;
  ASSERT_TRUE(so.IsValid());
  EXPECT_FALSE(so.IsSignaled());
  so.Set();
  so.Set();
  EXPECT_TRUE(so.IsSignaled());
  EXPECT_TRUE(so.WaitSignal(0));
  EXPECT_TRUE(so.IsSignaled());  // looking does not consume it
  so.Reset();
  EXPECT_FALSE(so.IsSignaled());
  so.Reset();  // on an empty pipe: returns at once
  EXPECT_FALSE(so.IsSignaled());
}

TEST(SignalObject, EndsAreNonBlockingAndCloseOnExec) {
  LSignalObject so;
  for (int fd : {so.GetReadFd(), so.GetWriteFd()}) {
    EXPECT_TRUE(::fcntl(fd, F_GETFL) & O_NONBLOCK);
    EXPECT_TRUE(::fcntl(fd, F_GETFD) & FD_CLOEXEC);
  }
  // More sets than a pipe holds bytes: a blocking write end would hang here.
  for (int i = 0; i < 70000; ++i) so.Set();
  so.Reset();
  EXPECT_FALSE(so.IsSignaled());
}

TEST(SignalObject, WaitTimesOutOrWakesOnASetFromAnotherThread) {
  LSignalObject so;
  auto t0 = std::chrono::steady_clock::now();
  EXPECT_FALSE(so.WaitSignal(40));
  EXPECT_GE(Elapsed(t0), 39ms);

  LSignalObjectRef ref = so.GetRef();
  std::thread setter([ref] {
    std::this_thread::sleep_for(20ms);
    ref.Set();
  });
  t0 = std::chrono::steady_clock::now();
  EXPECT_TRUE(so.WaitSignal(LSignalWaitForever));
  EXPECT_LT(Elapsed(t0), 5s);
  setter.join();
}

TEST(SignalObject, DualWaitTellsWhichFired) {
  LSignalObject a, b;
  EXPECT_EQ(a.WaitSignalDual(b, 10), 0);
  b.Set();
  EXPECT_EQ(a.WaitSignalDual(b, LSignalWaitForever), 2);
  a.Set();
  EXPECT_EQ(a.WaitSignalDual(b, 0), 3);
  b.Reset();
  EXPECT_EQ(a.WaitSignalDual(b, 0), 1);
}

TEST(SignalObject, InvalidSignalNeverBlocks) {
  LSignalObjectRef none;
  EXPECT_FALSE(none.IsValid());
  none.Set();
  EXPECT_FALSE(none.WaitSignal(LSignalWaitForever));
}

TEST(SignalObjectGroup, SelectGivesTheFirstSetMember) {
  LSignalObject a, b, c;
  LSignalObjectGroup group;
  group.Add(a);
  group.Add(b);
  group.Add(c);
  EXPECT_FALSE(group.IsSignaled());
  EXPECT_EQ(group.Select(10), -1);
  c.Set();
  EXPECT_EQ(group.Select(LSignalWaitForever), 2);
  b.Set();
  EXPECT_EQ(group.Select(0), 1);
  EXPECT_TRUE(group.IsSignaled(2));
  EXPECT_FALSE(group.IsSignaled(0));
  EXPECT_FALSE(group.IsSignaled(3));

  LSignalObjectGroup many;  // more members than fit the stack array
  LSignalObject extra[20];
  for (auto& s : extra) many.Add(s);
  extra[17].Set();
  EXPECT_EQ(many.Select(0), 17);
}
