#pragma once
// A job interface that records what a job reports, for tests only.
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "foundation/main_thread_queue.h"
#include "foundation/process_interface.h"

class LTestProcessRecorder : public LProcessInterface {
 public:
  enum class Kind { Error, Status, Progress, IndeterminateOn, IndeterminateOff };
  struct Report {
    Kind kind;
    std::string text;  // Error, Status
    int line = 0;      // Status
    double value = 0;  // Progress
    std::thread::id thread;
  };

  // With a queue, the waits run what other threads post to it, as a main loop would.
  explicit LTestProcessRecorder(LPumpedMainThreadQueue* queue = nullptr) : pQueue(queue) {}

  bool IsToStop() override {
    ++iStopPolls;
    if (onIsToStop) onIsToStop();
    return soStop.IsSignaled();
  }
  int ProcessWait(unsigned int ms) override { return ProcessWaitSignal(LSignalObjectRef(), ms); }
  int ProcessWaitSignal(LSignalObjectRef signal, unsigned int ms) override {
    if (pQueue) return pQueue->WaitPumping(signal, soStop, ms);
    return LProcessWaitSignalOrStop(signal, soStop, ms);
  }
  int ProcessWaitSignalObjectGroup(LSignalObjectGroup& group, unsigned int ms) override {
    return LProcessWaitGroupOrStop(group, soStop, ms);
  }
  void SetError(char const* text) override { Add({Kind::Error, text, 0, 0, {}}); }
  void SetStatus(char const* text, int line) override { Add({Kind::Status, text, line, 0, {}}); }
  void SetProgress(double done) override { Add({Kind::Progress, {}, 0, done, {}}); }
  void SetProgressIndeterminateOn() override { Add({Kind::IndeterminateOn, {}, 0, 0, {}}); }
  void SetProgressIndeterminateOff() override { Add({Kind::IndeterminateOff, {}, 0, 0, {}}); }

  std::vector<std::string> Statuses(int line) const {
    std::vector<std::string> out;
    for (auto const& r : reports)
      if (r.kind == Kind::Status && r.line == line) out.push_back(r.text);
    return out;
  }
  std::vector<double> Progress() const {
    std::vector<double> out;
    for (auto const& r : reports)
      if (r.kind == Kind::Progress) out.push_back(r.value);
    return out;
  }
  std::vector<std::string> Errors() const {
    std::vector<std::string> out;
    for (auto const& r : reports)
      if (r.kind == Kind::Error) out.push_back(r.text);
    return out;
  }
  std::size_t Count(Kind kind) const {
    std::size_t n = 0;
    for (auto const& r : reports) n += r.kind == kind;
    return n;
  }

  LSignalObject soStop;  // set it to make IsToStop true and end the waits with 1
  std::function<void()> onIsToStop;
  int iStopPolls = 0;
  std::vector<Report> reports;

 private:
  void Add(Report r) {
    r.thread = std::this_thread::get_id();
    reports.push_back(std::move(r));
  }
  LPumpedMainThreadQueue* pQueue;
};
