#pragma once
#include <QProgressDialog>
#include <string>

#include "foundation/process_interface.h"

// The progress window of a long job run on the main thread: the job's title and
// status lines, its bar, and Stop. Each report lets the window repaint and take
// the click on Stop, so the job needs no thread of its own.
class TDQtProgress : public LProcessInterface {
 public:
  TDQtProgress(QWidget* parent, std::string const& title);
  ~TDQtProgress() override;

  bool IsToStop() override;
  int ProcessWait(unsigned int ms) override;
  int ProcessWaitSignal(LSignalObjectRef signal, unsigned int ms) override;
  int ProcessWaitSignalObjectGroup(LSignalObjectGroup& group, unsigned int ms) override;
  void SetError(char const* text) override;
  void SetStatus(char const* text, int line) override;
  void SetProgress(double done) override;
  void SetProgressIndeterminateOn() override;
  void SetProgressIndeterminateOff() override;

  std::string const& GetError() const { return szError; }

 private:
  void Pump();

  QProgressDialog dialog;
  std::string szLines[2];
  std::string szError;
};
