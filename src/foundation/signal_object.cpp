#include "foundation/signal_object.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <chrono>
#include <climits>

namespace {

// Polls the read ends for input, restarting with the time left when a signal
// interrupts. Returns the number of ready descriptors, 0 on time-out.
int PollForInput(pollfd* fds, std::size_t count, unsigned int ms) {
  bool anyValid = false;
  for (std::size_t i = 0; i < count; ++i) {
    fds[i].events = POLLIN;
    fds[i].revents = 0;
    anyValid = anyValid || fds[i].fd >= 0;
  }
  // Nothing could ever fire; waiting without limit would hang the caller for good.
  if (!anyValid) return 0;

  using Clock = std::chrono::steady_clock;
  bool const forever = ms == LSignalWaitForever;
  auto const deadline = Clock::now() + std::chrono::milliseconds(forever ? 0 : ms);
  for (;;) {
    int timeout = -1;
    if (!forever) {
      auto const left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
      timeout = left <= 0 ? 0 : (left > INT_MAX ? INT_MAX : static_cast<int>(left));
    }
    int const r = ::poll(fds, static_cast<nfds_t>(count), timeout);
    if (r >= 0) return r;
    if (errno != EINTR) return 0;
  }
}

bool HasInput(pollfd const& p) {
  return p.fd >= 0 && (p.revents & POLLIN) != 0;
}

}  // namespace

void LSignalObjectRef::Set() const {
  if (fdWrite < 0) return;
  char const byte = 1;
  // A full pipe (EAGAIN) is already set; nothing more to do.
  while (::write(fdWrite, &byte, 1) < 0 && errno == EINTR) {
  }
}

void LSignalObjectRef::Reset() const {
  if (fdRead < 0) return;
  char buf[64];
  for (;;) {
    ssize_t const n = ::read(fdRead, buf, sizeof buf);
    if (n > 0) continue;
    if (n < 0 && errno == EINTR) continue;
    return;  // empty (EAGAIN) or closed
  }
}

bool LSignalObjectRef::IsSignaled() const {
  return WaitSignal(0);
}

bool LSignalObjectRef::WaitSignal(unsigned int ms) const {
  pollfd p{fdRead, POLLIN, 0};
  return PollForInput(&p, 1, ms) > 0 && HasInput(p);
}

int LSignalObjectRef::WaitSignalDual(LSignalObjectRef other, unsigned int ms) const {
  pollfd p[2] = {{fdRead, POLLIN, 0}, {other.fdRead, POLLIN, 0}};
  if (PollForInput(p, 2, ms) <= 0) return 0;
  return (HasInput(p[0]) ? 1 : 0) | (HasInput(p[1]) ? 2 : 0);
}

LSignalObject::LSignalObject() {
  int fds[2];
  if (::pipe2(fds, O_NONBLOCK | O_CLOEXEC) == 0) {
    fdRead = fds[0];
    fdWrite = fds[1];
  }
}

LSignalObject::~LSignalObject() {
  if (fdRead >= 0) ::close(fdRead);
  if (fdWrite >= 0) ::close(fdWrite);
}

void LSignalObjectGroup::Add(LSignalObjectRef signal) {
  vSignals.push_back(signal);
}

int LSignalObjectGroup::Select(unsigned int ms) const {
  return SelectWith(LSignalObjectRef(), ms);
}

int LSignalObjectGroup::SelectWith(LSignalObjectRef extra, unsigned int ms) const {
  // Small groups (a stop signal and a few others): a stack array avoids a heap
  // allocation on every wait.
  constexpr std::size_t kOnStack = 16;
  std::size_t const count = vSignals.size() + 1;
  pollfd local[kOnStack];
  std::vector<pollfd> heap;
  pollfd* fds = local;
  if (count > kOnStack) {
    heap.resize(count);
    fds = heap.data();
  }
  for (std::size_t i = 0; i < vSignals.size(); ++i) fds[i] = pollfd{vSignals[i].GetReadFd(), POLLIN, 0};
  fds[vSignals.size()] = pollfd{extra.GetReadFd(), POLLIN, 0};
  if (PollForInput(fds, count, ms) <= 0) return -1;
  for (std::size_t i = 0; i < count; ++i) {
    if (HasInput(fds[i])) return static_cast<int>(i);
  }
  return -1;
}

bool LSignalObjectGroup::IsSignaled(std::size_t index) const {
  return index < vSignals.size() && vSignals[index].IsSignaled();
}
