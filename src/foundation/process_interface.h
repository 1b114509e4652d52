#pragma once
#include "foundation/signal_object.h"

// What a long job returns.
using LProcessResult = int;
inline constexpr LProcessResult LProcessFinished = 0;
inline constexpr LProcessResult LProcessStopped = 1;  // IsToStop answered true
inline constexpr LProcessResult LProcessFailed = 2;   // SetError was called, or the failure speaks for itself

// What the wait operations of LProcessInterface return.
inline constexpr int LProcessWaitSignaled = 0;  // the awaited signal fired
inline constexpr int LProcessWaitStopped = 1;   // a stop was asked for
inline constexpr int LProcessWaitTimedOut = 2;

// The one face a long job sees: it reports progress and polls for a stop here, and
// never learns whether a modal dialog, a background thread or nobody is behind it.
// A job is a plain record X with a free function `LProcessResult Process(LProcessInterface&, X&)`.
//
// The order of the operations is fixed: the destructor comes after the nine, so that
// classes deriving from an implementation (LThread) find their own slots after both.
class LProcessInterface {
 public:
  // True when the job should end soon. A job polls it at least once per block of work.
  virtual bool IsToStop() = 0;
  // Sleeps `ms` while staying stoppable. 1 means a stop was asked for.
  virtual int ProcessWait(unsigned int ms) = 0;
  // Waits for `signal` or a stop: 0 signal, 1 stop, 2 time-out (LSignalWaitForever: none).
  virtual int ProcessWaitSignal(LSignalObjectRef signal, unsigned int ms) = 0;
  // As above for any member of `group`.
  virtual int ProcessWaitSignalObjectGroup(LSignalObjectGroup& group, unsigned int ms) = 0;
  // A failure in the program's words. The job decides itself whether it goes on.
  virtual void SetError(char const* text);
  // Line 0 is the job's title, line 1 what it is doing now; other lines are ignored.
  virtual void SetStatus(char const* text, int line);
  // Fraction done, 0.0 to 1.0.
  virtual void SetProgress(double done);
  // The job cannot tell how far it is, until the Off call.
  virtual void SetProgressIndeterminateOn();
  virtual void SetProgressIndeterminateOff();

  virtual ~LProcessInterface();
};

// For a job run without anyone watching: never stops, waits only for what it is told.
class LProcessInterfaceVoid : public LProcessInterface {
 public:
  bool IsToStop() override { return false; }
  // Sleeps the whole time, even through interruptions, and returns 0.
  int ProcessWait(unsigned int ms) override;
  int ProcessWaitSignal(LSignalObjectRef signal, unsigned int ms) override;
  int ProcessWaitSignalObjectGroup(LSignalObjectGroup& group, unsigned int ms) override;
};

// Passes everything to an outer interface; the base of adapters that change a part.
class LProcessInterfaceNested : public LProcessInterface {
 public:
  explicit LProcessInterfaceNested(LProcessInterface& outer) : piOuter(outer) {}

  bool IsToStop() override;
  int ProcessWait(unsigned int ms) override;
  int ProcessWaitSignal(LSignalObjectRef signal, unsigned int ms) override;
  int ProcessWaitSignalObjectGroup(LSignalObjectGroup& group, unsigned int ms) override;
  void SetError(char const* text) override;
  void SetStatus(char const* text, int line) override;
  void SetProgress(double done) override;
  void SetProgressIndeterminateOn() override;
  void SetProgressIndeterminateOff() override;

  LProcessInterface& GetOuter() const { return piOuter; }

 protected:
  LProcessInterface& piOuter;
};

// Runs a sub-job inside a slice of an outer job's progress bar: the sub-job's
// progress p shows as start + p * scale, and its title lands on the outer job's
// second line. The sub-job cannot switch the outer bar to indeterminate: the outer
// job knows how far it is.
class LProcessInterfaceSubProcess : public LProcessInterfaceNested {
 public:
  LProcessInterfaceSubProcess(LProcessInterface& outer, double start, double scale)
      : LProcessInterfaceNested(outer), dStart(start), dScale(scale) {}

  void SetStatus(char const* text, int line) override;
  void SetProgress(double done) override;
  void SetProgressIndeterminateOn() override {}
  void SetProgressIndeterminateOff() override {}

  void SetSlice(double start, double scale) {
    dStart = start;
    dScale = scale;
  }

 private:
  double dStart;
  double dScale;
};

// The waits of an interface whose stop is a signal: `stop` set means 1. When the
// awaited signal and the stop are both set, the signal wins, so a job that has just
// finished is not taken for a stopped one.
int LProcessWaitSignalOrStop(LSignalObjectRef signal, LSignalObjectRef stop, unsigned int ms);
int LProcessWaitGroupOrStop(LSignalObjectGroup& group, LSignalObjectRef stop, unsigned int ms);
