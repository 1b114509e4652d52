#pragma once
#include <QDialog>

#include "shell/main_window_view.h"

class QCheckBox;
class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QRadioButton;

// The export form: where the mix goes, in which format (with that format's
// settings), and whether the selection or the whole project is exported. What OK
// means is the controller's to decide; a refusal keeps the form open with the
// reason under the file name.
class TDExportOptionsDlg : public QDialog {
  Q_OBJECT
 public:
  TDExportOptionsDlg(TDExportOptions const& options, TDMainWindowView::ExportAccept accept,
                     LFormatSettingsEditor& settingsEditor, QWidget* parent = nullptr);

  TDExportOptions const& Options() const { return Result; }
  QLineEdit* PathEdit() const { return pathEdit; }
  QComboBox* TypeBox() const { return typeBox; }
  QPushButton* SettingsButton() const { return settingsButton; }
  QRadioButton* SelectionButton() const { return selectionButton; }
  QLabel* ProblemLabel() const { return problem; }

  void accept() override;

 private:
  // The user picked another format in the list: the path's extension follows.
  void CmFileTypeChanged();
  // The user typed a path: a known extension picks its format in the list.
  void PathEdited();
  std::string ChosenExtension() const;

  TDExportOptions Result;
  TDMainWindowView::ExportAccept Accept;
  LFormatSettingsEditor& SettingsEditor;
  QLineEdit* pathEdit;
  QComboBox* typeBox;
  QPushButton* settingsButton;
  QCheckBox* midiBox;
  QCheckBox* tagsBox;
  QRadioButton* wholeButton;
  QRadioButton* selectionButton;
  QLabel* problem;
};
