#pragma once
#include <QDialog>

#include "shell/main_dialog.h"

class QCheckBox;
class QComboBox;
class QLineEdit;
class QSpinBox;

// The settings window: the playback device, the project's sample rate, where
// projects are saved and the metronome. It shows what the controller reads and
// hands the edited values back to it on OK; a value the controller refuses
// keeps the window open.
class TDSettingsDialog : public QDialog {
  Q_OBJECT
 public:
  TDSettingsDialog(MainDialog& controller, QWidget* parent = nullptr);

  QComboBox* DeviceBox() const { return deviceBox; }
  QComboBox* RateBox() const { return rateBox; }
  QLineEdit* FolderEdit() const { return folderEdit; }
  QCheckBox* MetronomeBox() const { return metronomeBox; }
  QSpinBox* MetronomeVolume() const { return metronomeVolume; }

  void accept() override;

 private:
  MainDialog& Controller;
  QComboBox* deviceBox;
  QComboBox* rateBox;
  QLineEdit* folderEdit;
  QCheckBox* metronomeBox;
  QSpinBox* metronomeVolume;
};
