#include "foundation/process_thread.h"

#include <cstring>

namespace {

struct StatusReport {
  char szText[LProcessThreadBase::kStatusTextSize];
  int iLine;
};

}  // namespace

LProcessThreadBase::~LProcessThreadBase() {
  ThreadRunOnMainThreadDestroy();
  StopThreadNow();
}

void LProcessThreadBase::ThreadFunction() {
  LProcessThreadInterface face(*this);
  LProcessResult const result = RunJob(face);
  face.Unlink();
  iResult.store(result, std::memory_order_release);
}

void LProcessThreadBase::EvQueuedNotifyData(unsigned int code, void const* data, unsigned long size) {
  // After a stop the caller shows its own "waiting" text; late reports would cover it.
  if (IsToStop()) return;
  switch (code) {
    case kSetError: piOuter.SetError(size > 0 ? static_cast<char const*>(data) : ""); break;
    case kSetStatus:
      if (size == sizeof(StatusReport)) {
        StatusReport report;
        std::memcpy(&report, data, sizeof report);
        piOuter.SetStatus(report.szText, report.iLine);
      }
      break;
    case kSetProgress:
      if (size == sizeof(double)) {
        double done;
        std::memcpy(&done, data, sizeof done);
        piOuter.SetProgress(done);
      }
      break;
    case kIndeterminateOn: piOuter.SetProgressIndeterminateOn(); break;
    case kIndeterminateOff: piOuter.SetProgressIndeterminateOff(); break;
    default: break;
  }
}

LProcessResult LProcessRunOnThread(LProcessInterface& outer, LProcessThreadBase& thread) {
  int priority = LThreadGetCurrentPriority();
  if (priority < 0) priority = LThreadPriorityNormal;
  if (!thread.Start(priority)) {
    thread.ThreadRunOnMainThreadDestroy();
    return LProcessFailed;
  }
  LSignalObjectRef const completed = thread.GetCompletedSignal();
  LProcessResult result = LProcessFailed;
  if (outer.ProcessWaitSignal(completed, LSignalWaitForever) == LProcessWaitStopped) {
    thread.StopThreadSoon();
    outer.SetStatus("Waiting for the process to stop", 0);
    // The job ends at its next poll; meanwhile the caller's interface keeps its window alive.
    while (thread.IsRunning()) {
      outer.IsToStop();
      completed.WaitSignal(10);
    }
    result = LProcessStopped;
  } else {
    // An interface that gave up waiting early still gets the job's own result.
    while (thread.IsRunning()) completed.WaitSignal(10);
    result = thread.GetResult();
  }
  thread.ThreadRunOnMainThreadDestroy();
  return result;
}

bool LProcessThreadInterface::IsToStop() {
  return pThread == nullptr || pThread->IsToStop();
}

int LProcessThreadInterface::ProcessWait(unsigned int ms) {
  return pThread ? pThread->ProcessWait(ms) : LProcessWaitStopped;
}

int LProcessThreadInterface::ProcessWaitSignal(LSignalObjectRef signal, unsigned int ms) {
  return pThread ? pThread->ProcessWaitSignal(signal, ms) : LProcessWaitStopped;
}

int LProcessThreadInterface::ProcessWaitSignalObjectGroup(LSignalObjectGroup& group, unsigned int ms) {
  return pThread ? pThread->ProcessWaitSignalObjectGroup(group, ms) : LProcessWaitStopped;
}

void LProcessThreadInterface::SetError(char const* text) {
  if (!pThread) return;
  pThread->LThread::SetError(text);
  if (!text) text = "";
  pThread->PostNotifyFromSender(LProcessThreadBase::kSetError, text, std::strlen(text) + 1);
}

void LProcessThreadInterface::SetStatus(char const* text, int line) {
  if (!pThread) return;
  pThread->LThread::SetStatus(text, line);
  StatusReport report{};
  if (text) std::strncpy(report.szText, text, sizeof report.szText - 1);
  report.iLine = line;
  pThread->PostNotifyFromSender(LProcessThreadBase::kSetStatus, &report, sizeof report);
}

void LProcessThreadInterface::SetProgress(double done) {
  if (!pThread) return;
  pThread->LThread::SetProgress(done);
  pThread->PostNotifyFromSender(LProcessThreadBase::kSetProgress, &done, sizeof done);
}

void LProcessThreadInterface::SetProgressIndeterminateOn() {
  if (!pThread) return;
  pThread->LThread::SetProgressIndeterminateOn();
  pThread->PostNotifyFromSender(LProcessThreadBase::kIndeterminateOn, nullptr, 0);
}

void LProcessThreadInterface::SetProgressIndeterminateOff() {
  if (!pThread) return;
  pThread->LThread::SetProgressIndeterminateOff();
  pThread->PostNotifyFromSender(LProcessThreadBase::kIndeterminateOff, nullptr, 0);
}
