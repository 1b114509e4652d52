#include "ui/settings_dialog.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>

#include "sound/device/sound_devices.h"

TDSettingsDialog::TDSettingsDialog(MainDialog& controller, QWidget* parent) : QDialog(parent), Controller(controller) {
  setWindowTitle(tr("Settings"));
  MainDialog::TDSettings const now = Controller.GetSettings();
  auto* form = new QFormLayout(this);

  // Devices by name; the stored value is what the list makes of the choice.
  deviceBox = new QComboBox(this);
  auto const devices = LSoundPlayDeviceList::Get();
  int const current = devices->IndexFromSetting(now.szPlayDevice);
  for (int i = 0; i < devices->GetCount(); ++i) {
    deviceBox->addItem(QString::fromStdString(devices->GetName(i)), QString::fromStdString(devices->SettingFromIndex(i)));
  }
  deviceBox->setCurrentIndex(std::max(0, current));
  form->addRow(tr("Playback device"), deviceBox);

  rateBox = new QComboBox(this);
  for (int rate : {22050, 32000, 44100, 48000, 88200, 96000}) rateBox->addItem(QStringLiteral("%1 Hz").arg(rate), rate);
  int const at = rateBox->findData(now.iSampleRate);
  if (at < 0) rateBox->addItem(QStringLiteral("%1 Hz").arg(now.iSampleRate), now.iSampleRate);
  rateBox->setCurrentIndex(at >= 0 ? at : rateBox->count() - 1);
  form->addRow(tr("Project sample rate"), rateBox);

  auto* folderRow = new QHBoxLayout;
  folderEdit = new QLineEdit(QString::fromStdString(now.szSaveFolder), this);
  auto* browse = new QPushButton(tr("Browse..."), this);
  connect(browse, &QPushButton::clicked, this, [this] {
    QString const chosen = QFileDialog::getExistingDirectory(this, tr("Default Save Folder"), folderEdit->text());
    if (!chosen.isEmpty()) folderEdit->setText(chosen);
  });
  folderRow->addWidget(folderEdit, 1);
  folderRow->addWidget(browse);
  form->addRow(tr("Save projects in"), folderRow);

  metronomeBox = new QCheckBox(tr("Click while playing"), this);
  metronomeBox->setChecked(now.bMetronome);
  form->addRow(tr("Metronome"), metronomeBox);
  metronomeVolume = new QSpinBox(this);
  metronomeVolume->setRange(TDProjectMetronomeFeature::kMinMetronomeVolume, TDProjectMetronomeFeature::kMaxMetronomeVolume);
  metronomeVolume->setSuffix(QStringLiteral(" dB"));
  metronomeVolume->setValue(now.iMetronomeVolume);
  form->addRow(tr("Metronome volume"), metronomeVolume);

  auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
  connect(buttons, &QDialogButtonBox::accepted, this, &TDSettingsDialog::accept);
  connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
  form->addRow(buttons);
}

void TDSettingsDialog::accept() {
  MainDialog::TDSettings s;
  s.szPlayDevice = deviceBox->currentData().toString().toStdString();
  s.iSampleRate = rateBox->currentData().toInt();
  s.szSaveFolder = folderEdit->text().toStdString();
  s.bMetronome = metronomeBox->isChecked();
  s.iMetronomeVolume = metronomeVolume->value();
  if (Controller.ApplySettings(s)) QDialog::accept();
}
