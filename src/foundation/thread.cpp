#include "foundation/thread.h"

#include <errno.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

namespace {

pid_t CurrentTid() {
  return static_cast<pid_t>(::syscall(SYS_gettid));
}

// The FIFO priority asked for real time: above ordinary desktop work, below what a
// sound server such as JACK takes for itself, and never above the user's limit.
constexpr int kRealTimeFifoPriority = 70;
// How much lower than normal the nice value of a high-priority thread goes, when allowed.
constexpr int kHighPriorityNiceStep = 5;

bool TryRealTime(pthread_t thread) {
  int want = kRealTimeFifoPriority;
  rlimit rl{};
  if (::getrlimit(RLIMIT_RTPRIO, &rl) == 0 && rl.rlim_cur != RLIM_INFINITY) {
    // Without the limit only a privileged process may; the call below tells.
    if (rl.rlim_cur > 0) want = std::min<int>(want, static_cast<int>(rl.rlim_cur));
  }
  sched_param sp{};
  sp.sched_priority = std::clamp(want, ::sched_get_priority_min(SCHED_FIFO), ::sched_get_priority_max(SCHED_FIFO));
  return ::pthread_setschedparam(thread, SCHED_FIFO, &sp) == 0;
}

void ApplyPriorityTo(pthread_t thread, pid_t tid, int baseNice, int priority) {
  if (priority == LThreadPriorityRealTime && TryRealTime(thread)) return;
  sched_param sp{};
  sp.sched_priority = 0;
  ::pthread_setschedparam(thread, SCHED_OTHER, &sp);
  if (tid < 0) return;
  // On Linux the nice value belongs to the thread named by its kernel id. Lowering it
  // needs a privilege the user may not have; then the thread stays as it is.
  int const nice = priority >= LThreadPriorityHigh && priority != LThreadPriorityRealTime
                       ? baseNice - kHighPriorityNiceStep
                       : baseNice;
  ::setpriority(PRIO_PROCESS, static_cast<id_t>(tid), nice);
}

}  // namespace

int LThreadGetCurrentPriority() {
  int policy = 0;
  sched_param sp{};
  if (::pthread_getschedparam(::pthread_self(), &policy, &sp) != 0) return -1;
  if (policy == SCHED_FIFO || policy == SCHED_RR) return LThreadPriorityRealTime;
  errno = 0;
  int const mine = ::getpriority(PRIO_PROCESS, static_cast<id_t>(CurrentTid()));
  if (errno != 0) return -1;
  int const process = ::getpriority(PRIO_PROCESS, static_cast<id_t>(::getpid()));
  if (errno != 0) return -1;
  return mine < process ? LThreadPriorityHigh : LThreadPriorityNormal;
}

LThread::LThread() = default;

LThread::LThread(char const* name) {
  if (name) std::strncpy(szName, name, sizeof szName - 1);
}

LThread::~LThread() {
  StopThreadNow();
}

bool LThread::IsToStop() {
  return soStop.IsSignaled();
}

int LThread::ProcessWait(unsigned int ms) {
  return soStop.WaitSignal(ms) ? LProcessWaitStopped : LProcessWaitTimedOut;
}

int LThread::ProcessWaitSignal(LSignalObjectRef signal, unsigned int ms) {
  return LProcessWaitSignalOrStop(signal, soStop, ms);
}

int LThread::ProcessWaitSignalObjectGroup(LSignalObjectGroup& group, unsigned int ms) {
  return LProcessWaitGroupOrStop(group, soStop, ms);
}

bool LThread::Start(int priority) {
  LLockObjectHold hold(loStart);
  if (bHasThread) {
    if (IsRunning()) return false;
    Join();
  }
  soStop.Reset();
  soCompleted.Reset();
  soStarted.Reset();
  iStartPriority.store(priority);
  bActive.store(true, std::memory_order_release);
  if (::pthread_create(&tThread, nullptr, &LThread::Entry, this) != 0) {
    bActive.store(false);
    return false;
  }
  bHasThread = true;
  soStarted.WaitSignal(LSignalWaitForever);
  return true;
}

void* LThread::Entry(void* p) {
  auto* self = static_cast<LThread*>(p);
  pid_t const me = CurrentTid();
  if (self->szName[0]) ::pthread_setname_np(::pthread_self(), self->szName);
  errno = 0;
  int const nice = ::getpriority(PRIO_PROCESS, static_cast<id_t>(me));
  self->iBaseNice = errno == 0 ? nice : 0;
  // The thread sets its own priority before it says it has started: its kernel id is
  // sure to be its own here, while after the start it may already have ended.
  ApplyPriorityTo(::pthread_self(), me, self->iBaseNice, self->iStartPriority.load());
  self->tid.store(me, std::memory_order_release);
  self->soStarted.Set();

  self->ThreadFunction();

  LDetachedThreadsOwner* owner = self->pDetachedOwner;
  self->tid.store(-1, std::memory_order_release);
  self->bActive.store(false, std::memory_order_release);
  self->soCompleted.Set();
  if (owner && owner->Leave(static_cast<LDetachedThread*>(self))) {
    // Nobody will wait for this thread any more: it reaps and frees itself.
    ::pthread_detach(::pthread_self());
    self->bHasThread = false;
    delete self;
    owner->Gone();
  }
  return nullptr;
}

void LThread::StopThreadSoon() {
  soStop.Set();
}

void LThread::StopThreadNow() {
  StopThreadSoon();
  LLockObjectHold hold(loStart);
  if (!bHasThread) return;
  if (::pthread_equal(tThread, ::pthread_self())) {
    // Destroyed from its own work: it cannot wait for itself.
    ::pthread_detach(tThread);
    bHasThread = false;
    return;
  }
  Join();
}

void LThread::Join() {
  ::pthread_join(tThread, nullptr);
  bHasThread = false;
}

void LThread::SetPriority(int priority) {
  iStartPriority.store(priority);
  LLockObjectHold hold(loStart);
  if (bHasThread && IsRunning()) ApplyPriorityTo(tThread, GetTid(), iBaseNice, priority);
}

bool LDetachedThread::StartDetached(LDetachedThreadsOwner& owner, int priority) {
  // The owner's lock is held through the start, so that a thread with little to do
  // cannot delete itself while Start still uses the object.
  LLockObjectHold hold(owner.loThreads);
  pDetachedOwner = &owner;
  owner.threads.push_back(this);
  ++owner.iLive;
  if (!Start(priority)) {
    --owner.iLive;
    owner.threads.pop_back();
    pDetachedOwner = nullptr;
    delete this;
    return false;
  }
  return true;
}

LDetachedThreadsOwner::~LDetachedThreadsOwner() {
  StopThreadsNow();
}

void LDetachedThreadsOwner::StopThreadsSoon() {
  LLockObjectHold hold(loThreads);
  for (LDetachedThread* t : threads) t->StopThreadSoon();
}

void LDetachedThreadsOwner::StopThreadsNow() {
  StopThreadsSoon();
  for (;;) {
    LDetachedThread* thread = nullptr;
    {
      LLockObjectHold hold(loThreads);
      if (threads.empty()) break;
      thread = threads.back();
      threads.pop_back();
    }
    // Out of the list, the thread no longer deletes itself: it is ours to reap.
    thread->StopThreadNow();
    delete thread;
    LLockObjectHold hold(loThreads);
    --iLive;
  }
  // Those that left the list on their own may still be in their destructors.
  std::unique_lock hold(loThreads);
  cvGone.wait(hold, [this] { return iLive == 0; });
}

std::size_t LDetachedThreadsOwner::GetCount() {
  LLockObjectHold hold(loThreads);
  return threads.size();
}

void LDetachedThreadsOwner::Gone() {
  LLockObjectHold hold(loThreads);
  --iLive;
  cvGone.notify_all();
}

bool LDetachedThreadsOwner::Leave(LDetachedThread* thread) {
  LLockObjectHold hold(loThreads);
  auto it = std::find(threads.begin(), threads.end(), thread);
  if (it == threads.end()) return false;
  threads.erase(it);
  return true;
}
