#include "foundation/main_thread_queue.h"

#include <chrono>
#include <utility>

namespace {

// Held while a post reaches the queue and while the registration changes: a queue
// that has been unregistered is certain to receive nothing more.
std::mutex& RegistryMutex() {
  static std::mutex m;
  return m;
}
LMainThreadQueue* registered = nullptr;

}  // namespace

void LRegisterMainThreadQueue(LMainThreadQueue* queue) {
  std::lock_guard hold(RegistryMutex());
  registered = queue;
}

void LUnregisterMainThreadQueue(LMainThreadQueue* queue) {
  std::lock_guard hold(RegistryMutex());
  if (registered == queue) registered = nullptr;
}

bool LPostToMainThread(std::function<void()> work) {
  {
    std::lock_guard hold(RegistryMutex());
    if (registered && registered->IsMainLoopRunning()) {
      registered->PostToMainThread(std::move(work));
      return true;
    }
  }
  // `work` dies here, outside the lock: its destructor may take locks of its own.
  return false;
}

bool LIsMainLoopRunning() {
  std::lock_guard hold(RegistryMutex());
  return registered && registered->IsMainLoopRunning();
}

void LPumpedMainThreadQueue::PostToMainThread(std::function<void()> work) {
  {
    std::lock_guard hold(mtx);
    if (!bClosed) {
      queue.push_back(std::move(work));
      soPosted.Set();
      return;
    }
  }
  // Refused work is destroyed outside the queue's lock, for the same reason as above.
}

bool LPumpedMainThreadQueue::IsMainLoopRunning() const {
  std::lock_guard hold(mtx);
  return !bClosed;
}

int LPumpedMainThreadQueue::RunPending() {
  // Reset before taking the batch: a post after the take sets the signal again.
  soPosted.Reset();
  std::deque<std::function<void()>> batch;
  {
    std::lock_guard hold(mtx);
    batch.swap(queue);
  }
  int ran = 0;
  for (auto& work : batch) {
    work();
    ++ran;
  }
  return ran;
}

int LPumpedMainThreadQueue::WaitPumping(LSignalObjectRef awaited, LSignalObjectRef stop, unsigned int ms) {
  using Clock = std::chrono::steady_clock;
  bool const forever = ms == LSignalWaitForever;
  auto const deadline = Clock::now() + std::chrono::milliseconds(forever ? 0 : ms);
  LSignalObjectGroup group;
  group.Add(awaited);
  group.Add(stop);
  group.Add(soPosted.GetRef());
  for (;;) {
    // Look first, then run: what a thread posted before it set either signal is
    // queued by the time the set is seen, and so runs before this returns.
    bool const signaled = awaited.IsSignaled();
    bool const stopped = !signaled && stop.IsSignaled();
    RunPending();
    if (signaled) return 0;
    if (stopped) return 1;
    unsigned int wait = LSignalWaitForever;
    if (!forever) {
      auto const left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
      if (left <= 0) return 2;
      wait = static_cast<unsigned int>(left);
    }
    group.Select(wait);
  }
}

void LPumpedMainThreadQueue::Close() {
  std::deque<std::function<void()>> dropped;
  {
    std::lock_guard hold(mtx);
    bClosed = true;
    dropped.swap(queue);
  }
}

std::size_t LPumpedMainThreadQueue::GetPendingCount() const {
  std::lock_guard hold(mtx);
  return queue.size();
}
