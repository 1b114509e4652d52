#include "ui/qt_progress.h"

#include <QCoreApplication>
#include <QElapsedTimer>

#include <algorithm>

namespace {
constexpr int kBarSteps = 1000;
}

TDQtProgress::TDQtProgress(QWidget* parent, std::string const& title)
    : dialog(QString::fromStdString(title), QObject::tr("Stop"), 0, kBarSteps, parent) {
  dialog.setWindowModality(Qt::WindowModal);
  dialog.setMinimumDuration(300);  // a quick job shows no window at all
  dialog.setAutoClose(false);
  dialog.setAutoReset(false);
  szLines[0] = title;
}

TDQtProgress::~TDQtProgress() { dialog.close(); }

void TDQtProgress::Pump() { QCoreApplication::processEvents(QEventLoop::AllEvents, 20); }

bool TDQtProgress::IsToStop() {
  Pump();
  return dialog.wasCanceled();
}

int TDQtProgress::ProcessWait(unsigned int ms) {
  QElapsedTimer timer;
  timer.start();
  while (static_cast<unsigned>(timer.elapsed()) < ms) {
    if (IsToStop()) return LProcessWaitStopped;
    QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 10);
  }
  return LProcessWaitSignaled;
}

int TDQtProgress::ProcessWaitSignal(LSignalObjectRef signal, unsigned int ms) {
  QElapsedTimer timer;
  timer.start();
  for (;;) {
    if (signal.IsSignaled()) return LProcessWaitSignaled;
    if (IsToStop()) return LProcessWaitStopped;
    if (ms != LSignalWaitForever && static_cast<unsigned>(timer.elapsed()) >= ms) return LProcessWaitTimedOut;
    signal.WaitSignal(10);
  }
}

int TDQtProgress::ProcessWaitSignalObjectGroup(LSignalObjectGroup& group, unsigned int ms) {
  QElapsedTimer timer;
  timer.start();
  for (;;) {
    if (group.IsSignaled()) return LProcessWaitSignaled;
    if (IsToStop()) return LProcessWaitStopped;
    if (ms != LSignalWaitForever && static_cast<unsigned>(timer.elapsed()) >= ms) return LProcessWaitTimedOut;
    group.Select(10);
  }
}

void TDQtProgress::SetError(char const* text) { szError = text ? text : ""; }

void TDQtProgress::SetStatus(char const* text, int line) {
  if (line < 0 || line > 1) return;
  szLines[line] = text ? text : "";
  dialog.setLabelText(QString::fromStdString(szLines[1].empty() ? szLines[0] : szLines[0] + "\n" + szLines[1]));
  Pump();
}

void TDQtProgress::SetProgress(double done) {
  dialog.setValue(static_cast<int>(std::clamp(done, 0.0, 1.0) * kBarSteps));
  Pump();
}

void TDQtProgress::SetProgressIndeterminateOn() { dialog.setRange(0, 0); }

void TDQtProgress::SetProgressIndeterminateOff() { dialog.setRange(0, kBarSteps); }
