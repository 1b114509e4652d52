#pragma once
#include <QDialog>
#include <vector>

#include "shell/format_settings.h"

// One form for the settings of any export format: a row for each field of the
// format's model. OK writes the rows back into the model; storing is the caller's.
class TDFormatSettingsDialog : public QDialog {
  Q_OBJECT
 public:
  TDFormatSettingsDialog(LFormatSettingsModel& model, QWidget* parent = nullptr);
  void accept() override;
  // The editor of the field with `key`, for tests.
  QWidget* FieldWidget(const std::string& key) const;

 private:
  LFormatSettingsModel& Model;
  std::vector<QWidget*> editors;  // one per field, in the model's order
};
