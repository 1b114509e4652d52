#include "foundation/process_interface.h"

#include <errno.h>
#include <time.h>

void LProcessInterface::SetError(char const*) {}
void LProcessInterface::SetStatus(char const*, int) {}
void LProcessInterface::SetProgress(double) {}
void LProcessInterface::SetProgressIndeterminateOn() {}
void LProcessInterface::SetProgressIndeterminateOff() {}
LProcessInterface::~LProcessInterface() = default;

int LProcessInterfaceVoid::ProcessWait(unsigned int ms) {
  timespec left{static_cast<time_t>(ms / 1000), static_cast<long>(ms % 1000) * 1000000L};
  // nanosleep leaves the time still to sleep in `left` when a signal handler cuts it short.
  while (::nanosleep(&left, &left) != 0 && errno == EINTR) {
  }
  return LProcessWaitSignaled;
}

int LProcessInterfaceVoid::ProcessWaitSignal(LSignalObjectRef signal, unsigned int ms) {
  return signal.WaitSignal(ms) ? LProcessWaitSignaled : LProcessWaitTimedOut;
}

int LProcessInterfaceVoid::ProcessWaitSignalObjectGroup(LSignalObjectGroup& group, unsigned int ms) {
  return group.Select(ms) >= 0 ? LProcessWaitSignaled : LProcessWaitTimedOut;
}

bool LProcessInterfaceNested::IsToStop() {
  return piOuter.IsToStop();
}
int LProcessInterfaceNested::ProcessWait(unsigned int ms) {
  return piOuter.ProcessWait(ms);
}
int LProcessInterfaceNested::ProcessWaitSignal(LSignalObjectRef signal, unsigned int ms) {
  return piOuter.ProcessWaitSignal(signal, ms);
}
int LProcessInterfaceNested::ProcessWaitSignalObjectGroup(LSignalObjectGroup& group, unsigned int ms) {
  return piOuter.ProcessWaitSignalObjectGroup(group, ms);
}
void LProcessInterfaceNested::SetError(char const* text) {
  piOuter.SetError(text);
}
void LProcessInterfaceNested::SetStatus(char const* text, int line) {
  piOuter.SetStatus(text, line);
}
void LProcessInterfaceNested::SetProgress(double done) {
  piOuter.SetProgress(done);
}
void LProcessInterfaceNested::SetProgressIndeterminateOn() {
  piOuter.SetProgressIndeterminateOn();
}
void LProcessInterfaceNested::SetProgressIndeterminateOff() {
  piOuter.SetProgressIndeterminateOff();
}

void LProcessInterfaceSubProcess::SetStatus(char const* text, int line) {
  piOuter.SetStatus(text, line + 1);
}

void LProcessInterfaceSubProcess::SetProgress(double done) {
  piOuter.SetProgress(done * dScale + dStart);
}

int LProcessWaitSignalOrStop(LSignalObjectRef signal, LSignalObjectRef stop, unsigned int ms) {
  int const fired = signal.WaitSignalDual(stop, ms);
  if (fired & 1) return LProcessWaitSignaled;
  if (fired & 2) return LProcessWaitStopped;
  return LProcessWaitTimedOut;
}

int LProcessWaitGroupOrStop(LSignalObjectGroup& group, LSignalObjectRef stop, unsigned int ms) {
  int const index = group.SelectWith(stop, ms);
  if (index < 0) return LProcessWaitTimedOut;
  if (static_cast<std::size_t>(index) < group.GetCount()) return LProcessWaitSignaled;
  return LProcessWaitStopped;
}
