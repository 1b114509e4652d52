#pragma once
// Windows under test must never wait for a person: any modal dialog that opens
// is noted and closed, so a test that meets an unexpected question fails on it
// rather than hanging the run.
#include <QApplication>
#include <QDialog>
#include <QMessageBox>
#include <QTimer>
#include <QWidget>
#include <string>
#include <vector>

class TDModalDismisser {
 public:
  TDModalDismisser() {
    timer.setInterval(20);
    QObject::connect(&timer, &QTimer::timeout, [this] {
      QWidget* modal = QApplication::activeModalWidget();
      if (modal == nullptr) return;
      if (auto* box = qobject_cast<QMessageBox*>(modal)) {
        seen.push_back(box->text().toStdString());
      } else {
        seen.push_back(modal->windowTitle().toStdString());
      }
      if (auto* dialog = qobject_cast<QDialog*>(modal)) {
        dialog->reject();
      } else {
        modal->close();
      }
    });
    timer.start();
  }

  // The texts of the dialogs closed so far.
  std::vector<std::string> seen;

 private:
  QTimer timer;
};
