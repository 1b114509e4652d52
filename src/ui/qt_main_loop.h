#pragma once
#include <QObject>
#include <QTimer>
#include <functional>
#include <map>

#include "shell/main_window_view.h"

// The main thread's queue and keyed one-shot timers, on Qt's event loop.
class TDQtMainLoop : public QObject, public TDMainLoop {
  Q_OBJECT
 public:
  // Registers itself as the process's main-thread queue; create it on the main thread.
  explicit TDQtMainLoop(QObject* parent = nullptr);
  ~TDQtMainLoop() override;

  // Called on the main thread with the key of each timer that fires.
  void SetTimerHandler(std::function<void(int)> handler) { timerHandler = std::move(handler); }

  void SetTimer(int id, unsigned ms) override;
  void KillTimer(int id) override;
  void PostToMainThread(std::function<void()> work) override;
  bool IsMainLoopRunning() const override;

  bool IsTimerActive(int id) const;

 private:
  std::function<void(int)> timerHandler;
  std::map<int, QTimer*> timers;
};
