#include "foundation/run_on_main_thread.h"

#include <cstdint>
#include <cstring>
#include <unordered_map>
#include <utility>
#include <vector>

#include "foundation/lock_object.h"
#include "foundation/main_thread_queue.h"

struct LThreadRunOnMainThread::State {
  LLockObject mtxIsValid;
  bool bIsValid = true;
  // Posted items not yet run or dropped, by a number of their own: an item's address
  // may be taken again by a later item once it has run, while the queue still holds
  // the first one's ticket. Whoever removes an item from here deletes it: the queue's
  // handler when it runs, or the flush.
  std::uint64_t uNextId = 0;
  std::unordered_map<std::uint64_t, LThreadRunOnMainThreadData*> pending;

  LThreadRunOnMainThreadData* Take(std::uint64_t id) {
    LLockObjectHold hold(mtxIsValid);
    auto it = pending.find(id);
    if (it == pending.end()) return nullptr;
    LThreadRunOnMainThreadData* data = it->second;
    pending.erase(it);
    return data;
  }
};

// The queue's handle on one item. Run by the main loop, it runs the item if the owner
// is still valid; dropped unrun because the loop ended, it still deletes the item.
struct LThreadRunOnMainThreadTicket {
  std::shared_ptr<LThreadRunOnMainThread::State> state;
  std::uint64_t id;

  // Spelled out because clang 14 cannot make_shared an aggregate.
  LThreadRunOnMainThreadTicket(std::shared_ptr<LThreadRunOnMainThread::State> s, std::uint64_t i)
      : state(std::move(s)), id(i) {}
  ~LThreadRunOnMainThreadTicket() { delete state->Take(id); }

  void Run() {
    LThreadRunOnMainThreadData* data = nullptr;
    bool valid = false;
    {
      LLockObjectHold hold(state->mtxIsValid);
      data = state->Take(id);
      valid = state->bIsValid;
    }
    if (!data) return;  // flushed
    // Run outside the lock: the item may stop and wait for the very thread that is
    // posting to this owner at this moment. Validity cannot change meanwhile, since
    // the owner is destroyed on this thread.
    if (valid) data->Run();
    delete data;
  }
};

LThreadRunOnMainThread::LThreadRunOnMainThread() : pState(std::make_shared<State>()) {}

LThreadRunOnMainThread::~LThreadRunOnMainThread() {
  ThreadRunOnMainThreadDestroy();
}

void LThreadRunOnMainThread::RunOnMainThread(LThreadRunOnMainThreadData* data) {
  if (!data) return;
  // Every post goes through the owner's lock, so a flush on the main thread cannot
  // miss an item that another thread is posting at the same moment.
  LLockObjectHold hold(pState->mtxIsValid);
  if (!pState->bIsValid) {
    delete data;
    return;
  }
  std::uint64_t const id = pState->uNextId++;
  pState->pending.emplace(id, data);
  auto ticket = std::make_shared<LThreadRunOnMainThreadTicket>(pState, id);
  // When the main loop no longer runs, the post is refused and the last handle on the
  // ticket, ours, deletes the item as it goes.
  LPostToMainThread([ticket] { ticket->Run(); });
}

void LThreadRunOnMainThread::ThreadRunOnMainThreadDestroy() {
  std::unordered_map<std::uint64_t, LThreadRunOnMainThreadData*> flushed;
  {
    LLockObjectHold hold(pState->mtxIsValid);
    pState->bIsValid = false;
    flushed.swap(pState->pending);
  }
  for (auto const& [id, data] : flushed) delete data;
}

bool LThreadRunOnMainThread::IsRunOnMainThreadValid() const {
  LLockObjectHold hold(pState->mtxIsValid);
  return pState->bIsValid;
}

std::size_t LThreadRunOnMainThread::GetPendingCount() const {
  LLockObjectHold hold(pState->mtxIsValid);
  return pState->pending.size();
}

class LThreadQueuedNotifyData : public LThreadRunOnMainThreadData {
 public:
  explicit LThreadQueuedNotifyData(LThreadQueuedNotify& owner) : rOwner(owner) {}
  void Run() override { rOwner.EvNotify(); }

 private:
  LThreadQueuedNotify& rOwner;
};

void LThreadQueuedNotify::PostQueueNotify() {
  RunOnMainThread(new LThreadQueuedNotifyData(*this));
}

class LQueuedNotifyData : public LThreadRunOnMainThreadData {
 public:
  LQueuedNotifyData(LQueuedNotifyDataHandler& owner, unsigned int code, void const* data, unsigned long size)
      : rOwner(owner), uCode(code), bytes(size) {
    if (size > 0 && data) std::memcpy(bytes.data(), data, size);
  }
  void Run() override { rOwner.EvQueuedNotifyData(uCode, bytes.empty() ? nullptr : bytes.data(), bytes.size()); }

 private:
  LQueuedNotifyDataHandler& rOwner;
  unsigned int uCode;
  std::vector<unsigned char> bytes;
};

void LQueuedNotifyDataHandler::PostNotifyFromSender(unsigned int code, void const* data, unsigned long size) {
  RunOnMainThread(new LQueuedNotifyData(*this, code, data, size));
}
