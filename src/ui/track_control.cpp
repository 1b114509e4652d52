#include "ui/track_control.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMouseEvent>
#include <QSlider>
#include <QToolButton>
#include <QVBoxLayout>
#include <cmath>

#include "shell/main_dialog.h"
#include "timeline/track_pixel_mapping.h"
#include "ui/effect_chain_panel.h"
#include "ui/level_meter.h"

namespace {

QToolButton* MakeToggle(const QString& text, const QString& tip, const QString& onColour, QWidget* parent) {
  auto* b = new QToolButton(parent);
  b->setText(text);
  b->setToolTip(tip);
  b->setCheckable(true);
  b->setFixedSize(24, 22);
  b->setStyleSheet(QStringLiteral("QToolButton:checked { background: %1; color: black; font-weight: bold; }").arg(onColour));
  return b;
}

// The pan slider runs 0..100 from left to right with 50 at the centre, as the
// controller's pan position does; a positive pan leans left.
int PanToPosition(double pan) {
  return static_cast<int>(std::lround(50.0 - pan * 50.0));
}

}  // namespace

TDTrackControl::TDTrackControl(MainDialog& controller, int track, QWidget* parent)
    : QFrame(parent), Controller(controller), iTrack(track) {
  setFrameShape(QFrame::StyledPanel);
  setAutoFillBackground(true);

  colourStrip = new QLabel(this);
  colourStrip->setFixedWidth(6);
  numberLabel = new QLabel(this);
  numberLabel->setFixedWidth(24);
  numberLabel->setAlignment(Qt::AlignCenter);

  nameEdit = new QLineEdit(this);
  nameEdit->setMaxLength(259);
  nameEdit->setMinimumWidth(120);
  nameEdit->setFrame(false);

  armButton = MakeToggle(QStringLiteral("R"), tr("Arm for recording"), QStringLiteral("#e05050"), this);
  muteButton = MakeToggle(QStringLiteral("M"), tr("Mute"), QStringLiteral("#e0b040"), this);
  soloButton = MakeToggle(QStringLiteral("S"), tr("Solo"), QStringLiteral("#50c050"), this);
  effectsButton = MakeToggle(QStringLiteral("FX"), tr("Live effects"), QStringLiteral("#70a0e0"), this);
  effectsButton->setFixedSize(28, 22);
  collapseButton = new QToolButton(this);
  collapseButton->setAutoRaise(true);
  collapseButton->setFixedSize(18, 18);

  volumeSlider = new QSlider(Qt::Horizontal, this);
  volumeSlider->setRange(-48, 12);
  volumeSlider->setToolTip(tr("Volume"));
  volumeSlider->setMinimumWidth(80);
  volumeLabel = new QLabel(this);
  volumeLabel->setFixedWidth(48);
  volumeLabel->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
  panSlider = new QSlider(Qt::Horizontal, this);
  panSlider->setRange(0, 100);
  panSlider->setToolTip(tr("Pan"));
  panSlider->setFixedWidth(60);

  auto* top = new QHBoxLayout;
  top->setContentsMargins(0, 0, 0, 0);
  top->addWidget(collapseButton);
  top->addWidget(numberLabel);
  top->addWidget(nameEdit, 1);
  top->addWidget(armButton);
  top->addWidget(muteButton);
  top->addWidget(soloButton);
  top->addWidget(effectsButton);

  detailRow = new QWidget(this);
  auto* bottom = new QHBoxLayout(detailRow);
  bottom->setContentsMargins(0, 0, 0, 0);
  bottom->addSpacing(42);
  bottom->addWidget(new QLabel(tr("Vol"), detailRow));
  bottom->addWidget(volumeSlider, 1);
  bottom->addWidget(volumeLabel);
  bottom->addWidget(new QLabel(tr("Pan"), detailRow));
  bottom->addWidget(panSlider);

  auto* rows = new QVBoxLayout;
  rows->setContentsMargins(4, 2, 4, 2);
  rows->setSpacing(2);
  rows->addLayout(top);
  rows->addWidget(detailRow);

  auto* outer = new QHBoxLayout(this);
  outer->setContentsMargins(0, 0, 0, 0);
  outer->setSpacing(0);
  outer->addWidget(colourStrip);
  outer->addLayout(rows, 1);
  meter = new TDLevelMeter(Qt::Vertical, this);
  meter->setToolTip(tr("The track's level"));
  outer->addWidget(meter);

  connect(nameEdit, &QLineEdit::editingFinished, this, [this] {
    if (bApplying) return;
    Controller.CmTrackRename(iTrack, nameEdit->text().toStdString());
  });
  connect(armButton, &QToolButton::clicked, this, [this] { Controller.CmTrackRecordToggle(iTrack); });
  connect(muteButton, &QToolButton::clicked, this, [this] { Controller.CmTrackMuteToggle(iTrack); });
  connect(soloButton, &QToolButton::clicked, this, [this] { Controller.CmTrackSoloToggle(iTrack); });
  connect(effectsButton, &QToolButton::clicked, this, [this] {
    effectsButton->setChecked(!Controller.GetProject().Tracks.GetTrack(iTrack)->EffectChain.IsEmpty());
    TDEffectChainPanel::OpenFor(Controller, iTrack, window());
  });
  connect(collapseButton, &QToolButton::clicked, this, [this] {
    const TDTrack* t = Controller.GetProject().Tracks.GetTrack(iTrack);
    if (t && t->bCollapsed) Controller.CmTrackExpand(iTrack);
    else Controller.CmTrackCollapse(iTrack);
  });
  connect(volumeSlider, &QSlider::valueChanged, this, [this](int dB) {
    if (!bApplying) Controller.CmTrackSetVolume(iTrack, dB);
  });
  connect(panSlider, &QSlider::valueChanged, this, [this](int position) {
    if (!bApplying) Controller.CmTrackSetPan(iTrack, position);
  });
  Apply();
}

void TDTrackControl::mousePressEvent(QMouseEvent* event) {
  Controller.CmTrackSelect(iTrack);
  QFrame::mousePressEvent(event);
}

void TDTrackControl::Apply() {
  const TDTrack* t = Controller.GetProject().Tracks.GetTrack(iTrack);
  if (!t) return;
  bApplying = true;
  const bool current = Controller.GetProject().Tracks.GetCurrentTrackIndex() == iTrack;

  colourStrip->setStyleSheet(QStringLiteral("background: rgb(%1,%2,%3);")
                                 .arg(t->Colour.uRed >> 8)
                                 .arg(t->Colour.uGreen >> 8)
                                 .arg(t->Colour.uBlue >> 8));
  numberLabel->setText(QString::number(iTrack + 1));
  if (!nameEdit->hasFocus()) nameEdit->setText(QString::fromStdString(t->GetName()));
  armButton->setChecked(t->IsRecordMode());
  muteButton->setChecked(t->bMute);
  soloButton->setChecked(t->bSolo);
  effectsButton->setChecked(!t->EffectChain.IsEmpty());
  // A track silenced by another's solo is drawn dimmed, as a mute would be.
  const bool silenced = t->bSilencedBySolo || t->bMute;
  if (property("silenced").toBool() != silenced) {
    setProperty("silenced", silenced);
    nameEdit->setStyleSheet(silenced ? QStringLiteral("color: palette(mid);") : QString());
  }

  const int dB = static_cast<int>(std::lround(t->PannedVolume.fCentre));
  volumeSlider->setValue(dB);
  volumeLabel->setText(QStringLiteral("%1 dB").arg(dB > 0 ? QStringLiteral("+%1").arg(dB) : QString::number(dB)));
  panSlider->setValue(PanToPosition(t->PannedVolume.dPan));

  collapseButton->setArrowType(t->bCollapsed ? Qt::RightArrow : Qt::DownArrow);
  collapseButton->setToolTip(t->bCollapsed ? tr("Expand") : tr("Collapse"));
  detailRow->setVisible(!t->bCollapsed);
  // A header stands as tall as its lane, rows of automation included.
  setFixedHeight(TDTrackPixelMapping(Controller.GetProject().Tracks).GetTrackHeight(iTrack));

  QPalette pal = palette();
  QColor base = palette().color(QPalette::Window);
  pal.setColor(QPalette::Window, current ? base.darker(118) : base);
  setPalette(pal);
  bApplying = false;
}
