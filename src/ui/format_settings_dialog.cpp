#include "ui/format_settings_dialog.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QLineEdit>
#include <QSpinBox>

TDFormatSettingsDialog::TDFormatSettingsDialog(LFormatSettingsModel& model, QWidget* parent)
    : QDialog(parent), Model(model) {
  setWindowTitle(QString::fromStdString(model.szTitle));
  auto* form = new QFormLayout(this);
  for (LFormatSetting const& f : model.Fields) {
    QWidget* editor = nullptr;
    QString const label = QString::fromStdString(f.szLabel);
    switch (f.eKind) {
      case LFormatSetting::Choice: {
        auto* box = new QComboBox(this);
        for (auto const& [text, value] : f.Choices) box->addItem(QString::fromStdString(text), value);
        int at = box->findData(f.iValue);
        box->setCurrentIndex(at >= 0 ? at : 0);
        editor = box;
        break;
      }
      case LFormatSetting::Number: {
        auto* spin = new QSpinBox(this);
        spin->setRange(f.iMin, f.iMax);
        spin->setValue(f.iValue);
        editor = spin;
        break;
      }
      case LFormatSetting::Check: {
        auto* check = new QCheckBox(label, this);
        check->setChecked(f.iValue != 0);
        editor = check;
        break;
      }
      case LFormatSetting::Text: editor = new QLineEdit(QString::fromStdString(f.szText), this); break;
    }
    editors.push_back(editor);
    if (f.eKind == LFormatSetting::Check) {
      form->addRow(QString(), editor);
    } else {
      form->addRow(label, editor);
    }
  }
  auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
  connect(buttons, &QDialogButtonBox::accepted, this, &TDFormatSettingsDialog::accept);
  connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
  form->addRow(buttons);
}

QWidget* TDFormatSettingsDialog::FieldWidget(const std::string& key) const {
  for (std::size_t i = 0; i < Model.Fields.size(); ++i) {
    if (Model.Fields[i].szKey == key) return editors[i];
  }
  return nullptr;
}

void TDFormatSettingsDialog::accept() {
  for (std::size_t i = 0; i < Model.Fields.size(); ++i) {
    LFormatSetting& f = Model.Fields[i];
    switch (f.eKind) {
      case LFormatSetting::Choice: f.iValue = static_cast<QComboBox*>(editors[i])->currentData().toInt(); break;
      case LFormatSetting::Number: f.iValue = static_cast<QSpinBox*>(editors[i])->value(); break;
      case LFormatSetting::Check: f.iValue = static_cast<QCheckBox*>(editors[i])->isChecked() ? 1 : 0; break;
      case LFormatSetting::Text: f.szText = static_cast<QLineEdit*>(editors[i])->text().toStdString(); break;
    }
  }
  QDialog::accept();
}
