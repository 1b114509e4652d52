#include "ui/effect_chain_panel.h"

#include <QAbstractItemModel>
#include <QCheckBox>
#include <QComboBox>
#include <QFileDialog>
#include <QFileInfo>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QMessageBox>
#include <QPushButton>
#include <QSlider>
#include <QSpinBox>
#include <QTreeWidget>
#include <QVBoxLayout>
#include <cmath>
#include <cstdio>

#include "shell/main_dialog.h"
#include "ui/main_window.h"
#include "ui/track_control.h"

namespace {

const char kTrackProperty[] = "effectChainTrackId";

// Sliders count in whole steps; decimal values move in hundredths, or in
// thousandths where the range is below one.
double StepsPerUnit(LSoundProcessParameter const& p) {
  if (p.eType != LSPV_Double && p.eType != LSPV_Float) return 1.0;
  return p.GetMax() - p.GetMin() < 1.0 || p.GetMin() < 0.01 ? 1000.0 : 100.0;
}

QString ValueText(LSoundProcessParameter const& p, double value) {
  QString const number = (p.eType == LSPV_Double || p.eType == LSPV_Float) ? QString::number(value, 'f', 2)
                                                                           : QString::number(std::lround(value));
  return p.szUnits[0] ? number + QLatin1Char(' ') + QString::fromUtf8(p.szUnits) : number;
}

QString ChainFileFilter() {
  return QStringLiteral("%1 (*%2)")
      .arg(QString::fromUtf8(LSPChainFileDescription), QString::fromUtf8(LSPChainFileExtension));
}

}  // namespace

TDEffectChainPanel::TDEffectChainPanel(MainDialog& controller, int track, QWidget* parent)
    : QDialog(parent), Controller(controller) {
  TDTrack* t = controller.GetProject().Tracks.GetTrack(track);
  uTrackId = t ? t->EnsureTrackId() : 0;
  setProperty(kTrackProperty, QVariant::fromValue<qulonglong>(uTrackId));
  setAttribute(Qt::WA_DeleteOnClose);
  setWindowTitle(tr("Live Effects - %1").arg(t ? QString::fromStdString(t->GetName()) : QString()));
  resize(640, 360);

  static LSoundProcessMulti noChain;  // stands in only when the track is already gone
  pModel = std::make_unique<LMultiEffectWindow>(t ? t->EffectChain : noChain, *this, "Tandrel");

  availableTree = new QTreeWidget(this);
  availableTree->setHeaderHidden(true);
  auto* root = new QTreeWidgetItem(availableTree, {QString::fromStdString(pModel->GetAvailableRootText())});
  for (int i = 0; i < pModel->GetAvailableCount(); ++i)
    new QTreeWidgetItem(root, {QString::fromStdString(pModel->GetAvailable(i)->GetNameString())});
  availableTree->expandAll();

  addButton = new QPushButton(tr("Add >>"), this);
  removeButton = new QPushButton(tr("<< Remove"), this);
  auto* saveButton = new QPushButton(tr("Save Chain..."), this);
  auto* loadButton = new QPushButton(tr("Load Chain..."), this);

  chainList = new QListWidget(this);
  chainList->setSelectionMode(QAbstractItemView::ExtendedSelection);
  chainList->setDragDropMode(QAbstractItemView::InternalMove);

  presetBox = new QComboBox(this);
  editorHolder = new QWidget(this);
  editorForm = new QFormLayout(editorHolder);
  editorNote = new QLabel(this);
  editorNote->setWordWrap(true);

  auto* buttons = new QVBoxLayout;
  buttons->addStretch(1);
  buttons->addWidget(addButton);
  buttons->addWidget(removeButton);
  buttons->addStretch(1);
  buttons->addWidget(saveButton);
  buttons->addWidget(loadButton);

  auto* right = new QVBoxLayout;
  right->addWidget(new QLabel(tr("Presets"), this));
  right->addWidget(presetBox);
  right->addWidget(editorHolder);
  right->addWidget(editorNote);
  right->addStretch(1);

  auto* row = new QHBoxLayout(this);
  row->addWidget(availableTree, 2);
  row->addLayout(buttons);
  row->addWidget(chainList, 2);
  row->addLayout(right, 3);

  connect(availableTree, &QTreeWidget::currentItemChanged, this, [this](QTreeWidgetItem* item) {
    QTreeWidgetItem* parentItem = item ? item->parent() : nullptr;
    pModel->SetAvailableSelection(parentItem ? parentItem->indexOfChild(item) : -1);
  });
  connect(availableTree, &QTreeWidget::itemDoubleClicked, this, [this] { pModel->AddSelectedEffect(); });
  connect(addButton, &QPushButton::clicked, this, [this] { pModel->AddSelectedEffect(); });
  connect(removeButton, &QPushButton::clicked, this, [this] {
    for (int i = 0; i < chainList->count(); ++i) pModel->SetSelected(i, chainList->item(i)->isSelected());
    pModel->RemoveSelectedEffect();
  });
  connect(saveButton, &QPushButton::clicked, this, &TDEffectChainPanel::SaveChain);
  connect(loadButton, &QPushButton::clicked, this, &TDEffectChainPanel::LoadChain);
  connect(chainList, &QListWidget::currentRowChanged, this, [this](int r) {
    if (!bFilling && r >= 0) pModel->SelectEffect(r);
  });
  connect(chainList, &QListWidget::itemChanged, this, [this] {
    if (bFilling) return;
    std::vector<bool> enabled;
    for (int i = 0; i < chainList->count(); ++i) enabled.push_back(chainList->item(i)->checkState() == Qt::Checked);
    pModel->UpdateEffectEnabledState(enabled);
  });
  // The list has moved its row already; the chain follows and the rows are
  // drawn again from it, once the view is done with its drop.
  connect(chainList->model(), &QAbstractItemModel::rowsMoved, this,
          [this](const QModelIndex&, int start, int, const QModelIndex&, int to) {
            if (bFilling) return;
            QMetaObject::invokeMethod(
                this, [this, start, to] { pModel->Reorder(start, to); }, Qt::QueuedConnection);
          });
  connect(presetBox, qOverload<int>(&QComboBox::activated), this, [this](int entry) { pModel->ChoosePreset(entry); });

  FillRows();
  pModel->SelectEffect(0);
}

TDEffectChainPanel::~TDEffectChainPanel() = default;

TDEffectChainPanel* TDEffectChainPanel::OpenFor(MainDialog& controller, int track, QWidget* parent) {
  TDTrack* t = controller.GetProject().Tracks.GetTrack(track);
  if (!t) return nullptr;
  std::uint64_t const id = t->EnsureTrackId();
  for (TDEffectChainPanel* p : parent->findChildren<TDEffectChainPanel*>()) {
    if (p->TrackId() == id) {
      p->show();
      p->raise();
      return p;
    }
  }
  auto* panel = new TDEffectChainPanel(controller, track, parent);
  panel->show();
  return panel;
}

void TDEffectChainPanel::CloseStale(MainDialog& controller, QWidget* parent) {
  for (TDEffectChainPanel* p : parent->findChildren<TDEffectChainPanel*>()) {
    if (controller.GetProject().Tracks.GetTrackById(p->TrackId()) == nullptr) p->close();
  }
}

void TDEffectChainPanel::EffectMessage(int message, int argument) {
  // The preset message is for this panel, which the model has already served.
  if (message == LSPMessage::PresetChosen) return;
  Controller.EvEffectWindowMessage(message, argument);
  // The track's row shows whether the track has effects.
  auto* main = qobject_cast<TDQtMainWindow*>(parentWidget());
  TDTracksManager& tracks = Controller.GetProject().Tracks;
  if (TDTrack* t = tracks.GetTrackById(uTrackId); t && main) {
    if (TDTrackControl* row = main->TrackControlAt(t->iIndex)) row->Apply();
  }
}

void TDEffectChainPanel::Alert(std::string const& text, std::string const& caption) {
  QMessageBox::warning(this, QString::fromStdString(caption), QString::fromStdString(text));
}

void TDEffectChainPanel::EffectRowsChanged() {
  FillRows();
}

void TDEffectChainPanel::Refresh() {
  if (chainList->count() == pModel->GetChain().GetCount()) return;
  pModel->SelectLastEffect();
}

void TDEffectChainPanel::FillRows() {
  bFilling = true;
  LSoundProcessMulti& chain = pModel->GetChain();
  chainList->clear();
  for (int i = 0; i < chain.GetCount(); ++i) {
    auto* item = new QListWidgetItem(QString::fromStdString(chain.GetAt(i)->GetNameString()), chainList);
    item->setFlags(item->flags() | Qt::ItemIsUserCheckable | Qt::ItemIsDragEnabled);
    item->setCheckState(chain.GetAt(i)->bBypass ? Qt::Unchecked : Qt::Checked);
  }
  for (int i : pModel->GetSelection()) chainList->item(i)->setSelected(true);
  bFilling = false;
}

void TDEffectChainPanel::FillPresets() {
  presetBox->clear();
  for (std::string const& name : pModel->GetPresetList()) presetBox->addItem(QString::fromStdString(name));
  presetBox->setCurrentIndex(pModel->GetPresetListSelection());
  presetBox->setEnabled(presetBox->count() > 1);
}

void TDEffectChainPanel::EffectEditorChanged(int index) {
  if (chainList->count() != pModel->GetChain().GetCount()) FillRows();
  bFilling = true;
  chainList->setCurrentRow(index);
  for (int i = 0; i < chainList->count(); ++i) chainList->item(i)->setSelected(i == index);
  bFilling = false;
  FillPresets();
  BuildEditor(index);
}

void TDEffectChainPanel::BuildEditor(int index) {
  while (editorForm->rowCount() > 0) editorForm->removeRow(0);
  editorNote->clear();
  LSoundProcess* p = pModel->GetChain().GetAt(index);
  if (p == nullptr) return;
  if (p->GetEditorType() != 1) {
    editorNote->setText(tr("This effect is kept with the track; its editor is not available in this version."));
    return;
  }
  if (!LSPHasSignalWork(p->GetSoundProcessType()))
    editorNote->setText(tr("This version keeps this effect and its settings but does not play it yet."));
  for (int i = 0; i < p->GetNumParameters(); ++i) {
    LSoundProcessParameter param;
    p->GetParameterByIndex(i, &param);
    QString const label = QString::fromUtf8(param.szName);
    if (param.eType == LSPV_Bool) {
      auto* box = new QCheckBox(editorHolder);
      box->setChecked(param.GetValue() != 0.0);
      connect(box, &QCheckBox::toggled, this, [this, i](bool on) { ParameterMoved(i, on); });
      editorForm->addRow(label, box);
    } else if (param.eType == LSPV_DB) {
      auto* box = new QSpinBox(editorHolder);
      box->setRange(static_cast<int>(param.GetMin()), static_cast<int>(param.GetMax()));
      box->setSuffix(QStringLiteral(" dB"));
      box->setValue(static_cast<int>(param.GetValue()));
      connect(box, qOverload<int>(&QSpinBox::valueChanged), this, [this, i](int dB) { ParameterMoved(i, dB); });
      editorForm->addRow(label, box);
    } else {
      double const steps = StepsPerUnit(param);
      auto* line = new QWidget(editorHolder);
      auto* lineLayout = new QHBoxLayout(line);
      lineLayout->setContentsMargins(0, 0, 0, 0);
      auto* slider = new QSlider(Qt::Horizontal, line);
      slider->setMinimumWidth(160);
      slider->setRange(static_cast<int>(std::lround(param.GetMin() * steps)),
                       static_cast<int>(std::lround(param.GetMax() * steps)));
      slider->setValue(static_cast<int>(std::lround(param.GetValue() * steps)));
      auto* value = new QLabel(ValueText(param, param.GetValue()), line);
      value->setMinimumWidth(70);
      lineLayout->addWidget(slider, 1);
      lineLayout->addWidget(value);
      int const type = param.eType;
      QString const units = QString::fromUtf8(param.szUnits);
      connect(slider, &QSlider::valueChanged, this, [this, i, steps, value, type, units](int position) {
        double const v = position / steps;
        LSoundProcessParameter shown;
        shown.eType = type;
        std::snprintf(shown.szUnits, sizeof shown.szUnits, "%s", units.toUtf8().constData());
        value->setText(ValueText(shown, v));
        ParameterMoved(i, v);
      });
      editorForm->addRow(label, line);
    }
  }
}

void TDEffectChainPanel::ParameterMoved(int index, double value) {
  pModel->UpdateEffectParameterValue(index, value);
  presetBox->setCurrentIndex(pModel->GetPresetListSelection());
}

void TDEffectChainPanel::SaveChain() {
  if (!pModel->CanSaveEffectsChain()) return;
  QString path = QFileDialog::getSaveFileName(
      this, tr("Save Effect Chain"), QString::fromStdString(MainDialog::GetEffectChainFolder()), ChainFileFilter());
  if (path.isEmpty()) return;
  if (!path.endsWith(QLatin1String(LSPChainFileExtension), Qt::CaseInsensitive))
    path += QLatin1String(LSPChainFileExtension);
  MainDialog::SetEffectChainFolder(QFileInfo(path).absolutePath().toStdString());
  pModel->SaveEffectsChainFile(path.toStdString());
}

void TDEffectChainPanel::LoadChain() {
  QString const path = QFileDialog::getOpenFileName(
      this, tr("Load Effect Chain"), QString::fromStdString(MainDialog::GetEffectChainFolder()), ChainFileFilter());
  if (path.isEmpty()) return;
  MainDialog::SetEffectChainFolder(QFileInfo(path).absolutePath().toStdString());
  pModel->LoadEffectChainFile(path.toStdString().c_str());
}
