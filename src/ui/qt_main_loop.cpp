#include "ui/qt_main_loop.h"

#include <QCoreApplication>
#include <QMetaObject>

TDQtMainLoop::TDQtMainLoop(QObject* parent) : QObject(parent) {
  LRegisterMainThreadQueue(this);
}

TDQtMainLoop::~TDQtMainLoop() {
  LUnregisterMainThreadQueue(this);
}

bool TDQtMainLoop::IsMainLoopRunning() const {
  return QCoreApplication::instance() != nullptr && !QCoreApplication::closingDown();
}

void TDQtMainLoop::SetTimer(int id, unsigned ms) {
  QTimer*& timer = timers[id];
  if (!timer) {
    timer = new QTimer(this);
    timer->setSingleShot(true);
    connect(timer, &QTimer::timeout, this, [this, id] {
      if (timerHandler) timerHandler(id);
    });
  }
  timer->start(static_cast<int>(ms));
}

void TDQtMainLoop::KillTimer(int id) {
  if (auto it = timers.find(id); it != timers.end()) it->second->stop();
}

bool TDQtMainLoop::IsTimerActive(int id) const {
  auto it = timers.find(id);
  return it != timers.end() && it->second->isActive();
}

void TDQtMainLoop::PostToMainThread(std::function<void()> work) {
  // A queued call on an object of the main thread runs there, whichever
  // thread posts it; work posted after the loop object is gone is dropped.
  QMetaObject::invokeMethod(this, [w = std::move(work)] { w(); }, Qt::QueuedConnection);
}
