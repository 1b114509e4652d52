#include "ui/export_options_dialog.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QVBoxLayout>
#include <filesystem>

#include "shell/gen_sink_open.h"
#include "shell/gen_source_open.h"

TDExportOptionsDlg::TDExportOptionsDlg(TDExportOptions const& options, TDMainWindowView::ExportAccept accept,
                                       LFormatSettingsEditor& settingsEditor, QWidget* parent)
    : QDialog(parent), Result(options), Accept(std::move(accept)), SettingsEditor(settingsEditor) {
  setWindowTitle(tr("Export Project"));
  auto* form = new QFormLayout(this);

  auto* pathRow = new QHBoxLayout;
  pathEdit = new QLineEdit(QString::fromStdString(options.szPath), this);
  pathEdit->setMinimumWidth(380);
  auto* browse = new QPushButton(tr("Browse..."), this);
  pathRow->addWidget(pathEdit, 1);
  pathRow->addWidget(browse);
  form->addRow(tr("Export to"), pathRow);
  problem = new QLabel(this);
  problem->setWordWrap(true);
  problem->setStyleSheet(QStringLiteral("color: #c0392b"));
  problem->hide();
  form->addRow(QString(), problem);

  auto* typeRow = new QHBoxLayout;
  typeBox = new QComboBox(this);
  for (std::string const& ext : LGenSinkGetExtensions(false)) {
    typeBox->addItem(QString::fromStdString(LGenSinkTypeName(ext)), QString::fromStdString(ext));
  }
  int const at = typeBox->findData(QString::fromStdString(options.szExtension));
  typeBox->setCurrentIndex(at >= 0 ? at : 0);
  settingsButton = new QPushButton(tr("Settings..."), this);
  settingsButton->setEnabled(LGenSinkHasSettings(ChosenExtension()));
  typeRow->addWidget(typeBox, 1);
  typeRow->addWidget(settingsButton);
  form->addRow(tr("File type"), typeRow);

  midiBox = new QCheckBox(tr("Render MIDI clips into the mix"), this);
  midiBox->setChecked(options.bRenderMidi);
  midiBox->setEnabled(options.bHasMidi);
  if (!options.bHasMidi) midiBox->setToolTip(tr("The project has no MIDI clips."));
  tagsBox = new QCheckBox(tr("Write the project's tags into the file"), this);
  tagsBox->setChecked(options.bExportTags);
  tagsBox->setEnabled(options.bHasTags);
  if (!options.bHasTags) tagsBox->setToolTip(tr("The project has no tags to write."));
  form->addRow(QString(), midiBox);
  form->addRow(QString(), tagsBox);

  auto* rangeBox = new QVBoxLayout;
  wholeButton = new QRadioButton(tr("The whole project"), this);
  selectionButton = new QRadioButton(tr("The selection only"), this);
  selectionButton->setEnabled(options.bHasSelection);
  (options.bSelectionOnly && options.bHasSelection ? selectionButton : wholeButton)->setChecked(true);
  rangeBox->addWidget(wholeButton);
  rangeBox->addWidget(selectionButton);
  form->addRow(tr("Export"), rangeBox);

  auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
  buttons->button(QDialogButtonBox::Ok)->setText(tr("Export"));
  form->addRow(buttons);

  connect(buttons, &QDialogButtonBox::accepted, this, &TDExportOptionsDlg::accept);
  connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
  connect(typeBox, &QComboBox::currentIndexChanged, this, [this] { CmFileTypeChanged(); });
  connect(pathEdit, &QLineEdit::textEdited, this, [this] { PathEdited(); });
  connect(settingsButton, &QPushButton::clicked, this,
          [this] { LGenSinkCheckSettings(ChosenExtension(), SettingsEditor); });
  connect(browse, &QPushButton::clicked, this, [this] {
    QString const filter = QString::fromStdString(LGenSinkTypeName(ChosenExtension()));
    // The form asks about an existing file itself, once, on Export.
    QString const chosen = QFileDialog::getSaveFileName(this, tr("Export Project"), pathEdit->text(), filter, nullptr,
                                                        QFileDialog::DontConfirmOverwrite);
    if (chosen.isEmpty()) return;
    pathEdit->setText(chosen);
    PathEdited();
  });
}

std::string TDExportOptionsDlg::ChosenExtension() const { return typeBox->currentData().toString().toStdString(); }

void TDExportOptionsDlg::CmFileTypeChanged() {
  std::string const ext = ChosenExtension();
  pathEdit->setText(QString::fromStdString(TDExportOptionsChangeType(pathEdit->text().toStdString(), ext)));
  settingsButton->setEnabled(LGenSinkHasSettings(ext));
}

void TDExportOptionsDlg::PathEdited() {
  problem->hide();
  int const at = typeBox->findData(QString::fromStdString(TDLowerExtension(pathEdit->text().toStdString())));
  if (at < 0 || at == typeBox->currentIndex()) return;
  QSignalBlocker quiet(typeBox);
  typeBox->setCurrentIndex(at);
  settingsButton->setEnabled(LGenSinkHasSettings(ChosenExtension()));
}

void TDExportOptionsDlg::accept() {
  TDExportOptions o = Result;
  o.szPath = pathEdit->text().trimmed().toStdString();
  o.szExtension = ChosenExtension();
  o.bRenderMidi = midiBox->isChecked();
  o.bExportTags = tagsBox->isChecked();
  o.bSelectionOnly = selectionButton->isChecked();
  std::optional<std::string> const said = Accept(o);
  if (said) {
    pathEdit->setText(QString::fromStdString(o.szPath));
    problem->setText(QString::fromStdString(*said));
    problem->setVisible(!said->empty());
    return;
  }
  Result = o;
  QDialog::accept();
}
