#pragma once
#include <chrono>
#include <cstdio>
#include <string>

#include "foundation/main_thread_queue.h"
#include "foundation/process_interface.h"

// The progress of a job on a terminal, for tandrel-cli: what the progress dialog is
// to the windows.
//
// On a terminal it draws one line, redrawn in place: a bar, the percentage and the
// status of line 1; a new title (line 0) is printed above it. Anywhere else (a pipe,
// a log file) it writes plain lines: each title and status when it changes, and the
// progress at most once per whole ten per cent, so that a log stays short.
//
// Ctrl-C, once CatchInterrupt has been called, is a stop: IsToStop turns true and the
// waits return 1. A second Ctrl-C ends the program the ordinary way.
class TDConsoleProgress : public LProcessInterface {
 public:
  // Chooses the form by whether `out` is a terminal.
  explicit TDConsoleProgress(std::FILE* out = stderr);
  TDConsoleProgress(std::FILE* out, bool terminal);
  // Ends the bar's line, and gives SIGINT back its former handling.
  ~TDConsoleProgress() override;
  TDConsoleProgress(TDConsoleProgress const&) = delete;
  TDConsoleProgress& operator=(TDConsoleProgress const&) = delete;

  // Makes SIGINT a stop for as long as this object lives. One object at a time.
  bool CatchInterrupt();
  // The main thread's queue: a job on a thread posts its reports there, and the waits
  // below run them. Without one, the waits only wait.
  void SetQueue(LPumpedMainThreadQueue* queue) { pQueue = queue; }
  // A stop from the program itself.
  void Stop() { soStop.Set(); }
  // Ends the bar's line on a terminal, so that what follows starts on a line of its own.
  void Finish();

  bool IsToStop() override;
  int ProcessWait(unsigned int ms) override;
  int ProcessWaitSignal(LSignalObjectRef signal, unsigned int ms) override;
  int ProcessWaitSignalObjectGroup(LSignalObjectGroup& group, unsigned int ms) override;
  void SetError(char const* text) override;
  void SetStatus(char const* text, int line) override;
  void SetProgress(double done) override;
  void SetProgressIndeterminateOn() override;
  void SetProgressIndeterminateOff() override;

  bool IsTerminal() const { return bTerminal; }

 private:
  void Draw();
  // Clears the bar's line before a line of text goes above it.
  void ClearBar();
  void PrintLine(std::string const& text);

  std::FILE* fOut;
  bool bTerminal;
  bool bCatching = false;
  bool bBarShown = false;
  bool bIndeterminate = false;
  double dProgress = 0.0;
  int iLastDecile = 0;
  int iSpin = 0;
  std::chrono::steady_clock::time_point tLastTurn;
  std::string szStatus[2];
  std::string szShownLine;  // what the bar's line shows now
  LPumpedMainThreadQueue* pQueue = nullptr;
  LSignalObject soStop;
};
