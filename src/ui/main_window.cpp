#include "ui/main_window.h"

#include "ui/export_options_dialog.h"
#include "ui/format_settings_dialog.h"

#include <QAction>
#include <QHBoxLayout>
#include <QApplication>
#include <QCheckBox>
#include <QCloseEvent>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QMimeData>
#include <QUrl>
#include <QColorDialog>
#include <QFileDialog>
#include <QLabel>
#include <QMenuBar>
#include <QMessageBox>
#include <QPushButton>
#include <QScrollArea>
#include <QScrollBar>
#include <QSignalBlocker>
#include <QStatusBar>
#include <QToolTip>
#include <QVBoxLayout>

#include "shell/commands.h"
#include "shell/main_dialog.h"
#include "ui/effect_chain_panel.h"
#include "ui/qt_progress.h"
#include "ui/settings_dialog.h"
#include "ui/time_ruler.h"
#include "ui/track_area.h"
#include "ui/track_control.h"

namespace {
const QString kAppName = QStringLiteral("Tandrel");
}

TDQtMainWindow::TDQtMainWindow(QWidget* parent) : QMainWindow(parent) {
  setWindowTitle(kAppName);
  resize(1000, 700);
  setAcceptDrops(true);

  auto* central = new QWidget(this);
  auto* column = new QVBoxLayout(central);
  column->setContentsMargins(0, 0, 0, 0);
  column->setSpacing(0);

  infoBar = new QLabel(central);
  infoBar->setObjectName(QStringLiteral("infoBar"));
  infoBar->setStyleSheet(QStringLiteral("QLabel { background: #fff6c8; color: #3a3000; padding: 4px 8px; }"));
  infoBar->setVisible(false);
  column->addWidget(infoBar);

  // The ruler sits above the lanes, beside a blank the width of the headers.
  auto* rulerRow = new QHBoxLayout;
  rulerRow->setContentsMargins(0, 0, 0, 0);
  rulerRow->setSpacing(0);
  rulerCorner = new QWidget(central);
  rulerCorner->setFixedWidth(kHeaderWidth);
  rulerRow->addWidget(rulerCorner);
  rulerHolder = new QHBoxLayout;
  rulerRow->addLayout(rulerHolder, 1);
  // Room over the lanes' scroll bar, so ruler and lanes map time to the same columns.
  rulerScrollGap = new QWidget(central);
  rulerRow->addWidget(rulerScrollGap);
  column->addLayout(rulerRow);

  // Headers and lanes scroll up and down together; across, the view of the time
  // line moves instead, through the scroll bar below.
  trackArea = new QScrollArea(central);
  trackArea->setWidgetResizable(true);
  trackArea->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  trackArea->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOn);
  rulerScrollGap->setFixedWidth(trackArea->verticalScrollBar()->sizeHint().width() + trackArea->frameWidth());
  rulerCorner->setFixedWidth(kHeaderWidth + trackArea->frameWidth());
  trackHolder = new QWidget(trackArea);
  auto* lanes = new QHBoxLayout(trackHolder);
  lanes->setContentsMargins(0, 0, 0, 0);
  lanes->setSpacing(0);
  auto* headers = new QWidget(trackHolder);
  headers->setFixedWidth(kHeaderWidth);
  trackLayout = new QVBoxLayout(headers);
  trackLayout->setContentsMargins(0, 0, 0, 0);
  trackLayout->setSpacing(0);
  trackLayout->addStretch(1);
  lanes->addWidget(headers, 0, Qt::AlignTop);
  laneHolder = new QVBoxLayout;
  lanes->addLayout(laneHolder, 1);
  trackArea->setWidget(trackHolder);
  column->addWidget(trackArea, 1);

  timeScroll = new QScrollBar(Qt::Horizontal, central);
  timeScroll->setObjectName(QStringLiteral("timeScroll"));
  connect(timeScroll, &QScrollBar::valueChanged, this, [this](int value) {
    LSoundTime const span = TimeLine.GetViewEnd() - TimeLine.GetViewStart();
    TimeLine.SetViewRegion(value, value + span);
  });
  column->addWidget(timeScroll);
  TimeLine.AddNotify(this);

  setCentralWidget(central);
  statusBar()->showMessage(tr("Ready"));
}

TDQtMainWindow::~TDQtMainWindow() { TimeLine.RemoveNotify(this); }

void TDQtMainWindow::TimeLineChanged(LTimeLine& line) {
  // The scroll bar shows the view inside the project; setting it must not echo back.
  QSignalBlocker const quiet(timeScroll);
  LSoundTime const span = line.GetViewEnd() - line.GetViewStart();
  timeScroll->setRange(0, std::max<LSoundTime>(0, line.GetEnd() - span));
  timeScroll->setPageStep(span);
  timeScroll->setSingleStep(std::max<LSoundTime>(1, span / 20));
  timeScroll->setValue(line.GetViewStart());
}

void TDQtMainWindow::spntfTime(LSoundTime time, long) {
  if (lanesWidget == nullptr) return;
  lanesWidget->SetPlayPosition(time);
  // Keep the play cursor in view: a page on when it leaves on the right.
  LSoundTime const span = TimeLine.GetViewEnd() - TimeLine.GetViewStart();
  if (time > TimeLine.GetViewEnd() || time < TimeLine.GetViewStart()) {
    TimeLine.SetViewRegion(time - span / 10, time - span / 10 + span);
  }
}

void TDQtMainWindow::spntfStop(long) {
  if (lanesWidget) lanesWidget->SetPlayPosition(-1);
}

void TDQtMainWindow::SyncTimeLine() {
  if (!Controller) return;
  TDProject const& project = Controller->GetProject();
  TimeLine.SetEnd(project.GetEnd());
  TimeLine.SetTempoChanges(project.Metronome.GetTempoChanges());
  TimeLine.SetPosition(Controller->GetCursorPosition());
  TimeLineChanged(TimeLine);
}

void TDQtMainWindow::SetController(MainDialog* controller) {
  // Rows talk to the controller directly, so they go before it may.
  for (TDTrackControl* row : trackControls) delete row;
  trackControls.clear();
  delete lanesWidget;
  lanesWidget = nullptr;
  delete ruler;
  ruler = nullptr;
  Controller = controller;
  if (Controller) {
    lanesWidget = new TDTrackArea(*Controller, TimeLine, trackHolder);
    laneHolder->addWidget(lanesWidget, 0, Qt::AlignTop);
    ruler = new TDTimeRuler(*Controller, TimeLine, this);
    rulerHolder->addWidget(ruler);
    connect(ruler, &TDTimeRuler::CursorMoved, lanesWidget, [this] { lanesWidget->update(); });
    SyncTimeLine();
    // Start with the whole project in view.
    TimeLine.SetViewRegion(0, TimeLine.GetEnd());
  }
  BuildMenus();
  RebuildTracks();
}

QAction* TDQtMainWindow::AddCommand(QMenu* menu, const QString& text, int id, const QKeySequence& key) {
  QAction* a = menu->addAction(text);
  if (!key.isEmpty()) a->setShortcut(key);
  connect(a, &QAction::triggered, this, [this, id] {
    if (Controller) Controller->Command(id);
  });
  commandActions[id] = a;
  return a;
}

void TDQtMainWindow::BuildMenus() {
  menuBar()->clear();
  commandActions.clear();
  if (!Controller) return;

  QMenu* file = menuBar()->addMenu(tr("&Project"));
  AddCommand(file, tr("&New Project"), CM_PROJECT_NEW, QKeySequence::New);
  AddCommand(file, tr("&Open Project..."), CM_PROJECT_OPEN, QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_O));
  AddCommand(file, tr("&Save Project"), CM_PROJECT_SAVE, QKeySequence::Save);
  AddCommand(file, tr("Save Project &As..."), CM_PROJECT_SAVE_AS, QKeySequence::SaveAs);
  AddCommand(file, tr("&Close Project"), CM_PROJECT_CLOSE);
  file->addSeparator();
  AddCommand(file, tr("&Export Project..."), CM_PROJECT_EXPORT, QKeySequence(Qt::CTRL | Qt::Key_E));
  QMenu* recent = file->addMenu(tr("&Recent Projects"));
  // Filled when opened, so it always shows what exists now.
  connect(recent, &QMenu::aboutToShow, this, [this, recent] {
    recent->clear();
    if (!Controller) return;
    std::vector<std::string> const paths = Controller->GetRecentProjects();
    if (paths.empty()) recent->addAction(tr("(none)"))->setEnabled(false);
    for (std::string const& path : paths) {
      QAction* a = recent->addAction(QString::fromStdString(path));
      connect(a, &QAction::triggered, this, [this, path] {
        if (Controller) Controller->ProjectLoad(path);
      });
    }
  });
  file->addSeparator();
  QAction* settings = file->addAction(tr("Se&ttings..."));
  settings->setObjectName(QStringLiteral("settings"));
  connect(settings, &QAction::triggered, this, [this] {
    if (!Controller) return;
    TDSettingsDialog dialog(*Controller, this);
    dialog.exec();
  });
  QAction* quit = file->addAction(tr("&Quit"));
  quit->setShortcut(QKeySequence::Quit);
  connect(quit, &QAction::triggered, this, &QWidget::close);

  QMenu* clip = menuBar()->addMenu(tr("&Clip"));
  QAction* open = clip->addAction(tr("&Open Clip..."));
  open->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_O));
  connect(open, &QAction::triggered, this, [this] {
    QString const path = QFileDialog::getOpenFileName(this, tr("Open Clip"), QString(),
                                                      tr("Sound and video files (*.wav *.wave *.bwf *.aif *.aiff *.aifc "
                                                         "*.afc *.au *.snd *.gsm *.mp3 *.flac *.ogg *.oga *.opus *.m4a "
                                                         "*.aac *.mpc *.spx *.amr *.caf *.vox *.raw *.wma *.mp4 *.mov "
                                                         "*.avi *.mkv *.webm);;All files (*)"));
    if (!path.isEmpty() && Controller) Controller->CmClipOpen(path.toStdString());
  });
  AddCommand(clip, tr("&Delete Clip"), CM_CLIP_DELETE, QKeySequence(Qt::Key_Delete));
  AddCommand(clip, tr("&Split at Cursor"), CM_CLIP_SPLIT, QKeySequence(Qt::Key_S));
  AddCommand(clip, tr("&Join Clips"), CM_CLIP_JOIN, QKeySequence(Qt::CTRL | Qt::Key_J));
  AddCommand(clip, tr("&Lock/Unlock"), CM_CLIP_LOCK_TOGGLE, QKeySequence(Qt::CTRL | Qt::Key_L));
  AddCommand(clip, tr("&Restore to Original"), CM_CLIP_RESTORE);
  AddCommand(clip, tr("Set as Trim/Expand base"), CM_CLIP_SET_BASE);
  clip->addSeparator();
  AddCommand(clip, tr("Fade &In"), CM_CLIP_FADE_IN);
  AddCommand(clip, tr("Fade O&ut"), CM_CLIP_FADE_OUT);
  AddCommand(clip, tr("Cross &Fade"), CM_CLIP_CROSS_FADE);
  AddCommand(clip, tr("Add Fade &Point"), CM_CLIP_ADD_FADE_POINT);
  AddCommand(clip, tr("Delete Fade Points"), CM_CLIP_DELETE_FADE_POINTS);
  clip->addSeparator();
  AddCommand(clip, tr("Move to &Cursor"), CM_CLIP_MOVE_TO_CURSOR);
  AddCommand(clip, tr("Move to S&tart"), CM_CLIP_MOVE_TO_START);
  AddCommand(clip, tr("Nudge Left"), CM_CLIP_NUDGE_LEFT, QKeySequence(Qt::ALT | Qt::Key_Left));
  AddCommand(clip, tr("Nudge Right"), CM_CLIP_NUDGE_RIGHT, QKeySequence(Qt::ALT | Qt::Key_Right));
  clip->addSeparator();
  AddCommand(clip, tr("Select &All Clips"), CM_CLIP_SELECT_ALL, QKeySequence(Qt::CTRL | Qt::Key_A));
  AddCommand(clip, tr("Select Next Clip"), CM_CLIP_SELECT_NEXT, QKeySequence(Qt::Key_Tab));
  AddCommand(clip, tr("Select Previous Clip"), CM_CLIP_SELECT_PREV, QKeySequence(Qt::SHIFT | Qt::Key_Tab));
  clip->addSeparator();
  AddCommand(clip, tr("Next Take"), CM_CHOOSE_NEXT_TAKE);
  AddCommand(clip, tr("Previous Take"), CM_CHOOSE_PREV_TAKE);
  AddCommand(clip, tr("Expand Takes"), CM_EXPAND_TAKES);
  AddCommand(clip, tr("Delete all other takes"), CM_DELETE_NO_ACTIVE_TAKES);
  AddCommand(clip, tr("Delete Current Take"), CM_DELETE_ACTIVE_TAKE);

  QMenu* transport = menuBar()->addMenu(tr("T&ransport"));
  AddCommand(transport, tr("&Play/Stop"), CM_PLAY_STOP, QKeySequence(Qt::Key_Space));
  AddCommand(transport, tr("Go to &Start"), CM_GO_TO_START, QKeySequence(Qt::Key_Home));
  AddCommand(transport, tr("Go to &End"), CM_GO_TO_END, QKeySequence(Qt::Key_End));

  QMenu* track = menuBar()->addMenu(tr("&Track"));
  AddCommand(track, tr("&Add Track"), CM_TRACK_ADD, QKeySequence(Qt::CTRL | Qt::Key_T));
  AddCommand(track, tr("&Insert Track"), CM_TRACK_INSERT, QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_T));
  AddCommand(track, tr("&Delete Track"), CM_TRACK_DELETE);
  track->addSeparator();
  AddCommand(track, tr("Move Track &Up"), CM_TRACK_MOVE_UP, QKeySequence(Qt::ALT | Qt::SHIFT | Qt::Key_Up));
  AddCommand(track, tr("Move Track Do&wn"), CM_TRACK_MOVE_DOWN, QKeySequence(Qt::ALT | Qt::SHIFT | Qt::Key_Down));
  track->addSeparator();
  AddCommand(track, tr("&Mute"), CM_TRACK_MUTE_TOGGLE);
  AddCommand(track, tr("&Solo"), CM_TRACK_SOLO_TOGGLE);
  AddCommand(track, tr("Arm for &Recording"), CM_TRACK_RECORD_TOGGLE);
  AddCommand(track, tr("M&onitor Input"), CM_TRACK_MONITOR_TOGGLE);
  AddCommand(track, tr("Track &Colour..."), CM_TRACK_PICK_COLOR);
  track->addSeparator();
  QAction* effects = track->addAction(tr("Live &Effects..."));
  effects->setObjectName(QStringLiteral("liveEffects"));
  connect(effects, &QAction::triggered, this, [this] {
    if (Controller)
      TDEffectChainPanel::OpenFor(*Controller, Controller->GetProject().Tracks.GetCurrentTrackIndex(), this);
  });
  QMenu* addEffect = track->addMenu(tr("Add Live Effect"));
  AddCommand(addEffect, tr("Amplify"), CM_TRACK_LIVE_EFFECTS_ADD_AMPLIFY);
  AddCommand(addEffect, tr("High Pass"), CM_TRACK_LIVE_EFFECTS_ADD_HIGHPASS);
  AddCommand(addEffect, tr("Low Pass"), CM_TRACK_LIVE_EFFECTS_ADD_LOWPASS);
  track->addSeparator();
  AddCommand(track, tr("Co&llapse"), CM_TRACK_COLLAPSE);
  AddCommand(track, tr("E&xpand"), CM_TRACK_EXPAND);
  AddCommand(track, tr("Collapse All"), CM_TRACK_COLLAPSE_ALL);
  AddCommand(track, tr("Expand All"), CM_TRACK_EXPAND_ALL);
  track->addSeparator();
  AddCommand(track, tr("Select &Previous Track"), CM_SELECT_PREV_TRACK, QKeySequence(Qt::ALT | Qt::Key_Up));
  AddCommand(track, tr("Select &Next Track"), CM_SELECT_NEXT_TRACK, QKeySequence(Qt::ALT | Qt::Key_Down));
  AddCommand(track, tr("Select First Track"), CM_TRACK_SELECT_FIRST, QKeySequence(Qt::ALT | Qt::Key_Home));
  AddCommand(track, tr("Select Last Track"), CM_TRACK_SELECT_LAST, QKeySequence(Qt::ALT | Qt::Key_End));
}

QAction* TDQtMainWindow::CommandAction(int id) const {
  auto it = commandActions.find(id);
  return it == commandActions.end() ? nullptr : it->second;
}

TDTrackControl* TDQtMainWindow::TrackControlAt(int track) const {
  if (track < 0 || track >= TrackControlCount()) return nullptr;
  return trackControls[static_cast<std::size_t>(track)];
}

QString TDQtMainWindow::InfoBarText() const { return infoBar->isVisible() ? infoBar->text() : QString(); }

void TDQtMainWindow::RebuildTracks() {
  if (!Controller) return;
  const int count = Controller->GetProject().Tracks.GetTrackCount();
  // Rows are reused; only the difference in count is made or removed.
  while (TrackControlCount() > count) {
    delete trackControls.back();
    trackControls.pop_back();
  }
  while (TrackControlCount() < count) {
    auto* row = new TDTrackControl(*Controller, TrackControlCount(), trackHolder);
    trackLayout->insertWidget(TrackControlCount(), row);
    trackControls.push_back(row);
  }
  for (TDTrackControl* row : trackControls) row->Apply();
  if (lanesWidget) lanesWidget->TracksChanged();
  SyncTimeLine();
}

void TDQtMainWindow::Alert(const std::string& text, const std::string& caption) {
  QMessageBox box(QMessageBox::Warning, caption.empty() ? kAppName : QString::fromStdString(caption),
                  QString::fromStdString(text), QMessageBox::Ok, this);
  box.exec();
}

int TDQtMainWindow::Ask(const std::string& text, const std::string& caption, const std::vector<std::string>& buttons,
                        const std::string& checkText, bool* checked) {
  QMessageBox box(QMessageBox::Question, caption.empty() ? kAppName : QString::fromStdString(caption),
                  QString::fromStdString(text), QMessageBox::NoButton, this);
  std::vector<QAbstractButton*> made;
  for (std::size_t i = 0; i < buttons.size(); ++i)
    made.push_back(box.addButton(QString::fromStdString(buttons[i]),
                                 i == 0 ? QMessageBox::AcceptRole : QMessageBox::RejectRole));
  if (!made.empty()) box.setDefaultButton(static_cast<QPushButton*>(made.front()));
  QCheckBox* check = nullptr;
  if (checked) {
    check = new QCheckBox(QString::fromStdString(checkText), &box);
    check->setChecked(*checked);
    box.setCheckBox(check);
  }
  box.exec();
  if (checked && check) *checked = check->isChecked();
  for (std::size_t i = 0; i < made.size(); ++i)
    if (box.clickedButton() == made[i]) return static_cast<int>(i);
  return -1;
}

void TDQtMainWindow::ShowTip(const std::string& text, int track, unsigned ms) {
  QWidget* anchor = track >= 0 && track < TrackControlCount() ? static_cast<QWidget*>(TrackControlAt(track)) : this;
  QToolTip::showText(anchor->mapToGlobal(QPoint(anchor->width() / 2, anchor->height() / 2)),
                     QString::fromStdString(text), anchor, QRect(), static_cast<int>(ms));
}

void TDQtMainWindow::HideTip() { QToolTip::hideText(); }

void TDQtMainWindow::InfoBar(const std::string& text) {
  infoBar->setText(QString::fromStdString(text));
  infoBar->setVisible(!text.empty());
}

bool TDQtMainWindow::PickColor(unsigned short& red, unsigned short& green, unsigned short& blue) {
  QColor start = QColor::fromRgba64(red, green, blue);
  QColor chosen = QColorDialog::getColor(start, this, tr("Track Colour"));
  if (!chosen.isValid()) return false;
  QRgba64 c = chosen.rgba64();
  red = c.red();
  green = c.green();
  blue = c.blue();
  return true;
}

void TDQtMainWindow::SetCaption(const std::string& caption) { setWindowTitle(QString::fromStdString(caption)); }

void TDQtMainWindow::UITrackAddApply(int) { RebuildTracks(); }
void TDQtMainWindow::UITrackDeleteApply(int) {
  RebuildTracks();
  if (Controller) TDEffectChainPanel::CloseStale(*Controller, this);
}

void TDQtMainWindow::UITrackChangeApply(int track) {
  if (TDTrackControl* row = TrackControlAt(track)) row->Apply();
  for (TDEffectChainPanel* panel : findChildren<TDEffectChainPanel*>()) panel->Refresh();
}

void TDQtMainWindow::UIProjectStateApply() {
  RebuildTracks();
  if (Controller) TDEffectChainPanel::CloseStale(*Controller, this);
}

// A clip command can add tracks (expanding takes) and move the project's end, so
// the rows and the time line follow before the lanes are drawn again.
void TDQtMainWindow::UIClipsApply() {
  RebuildTracks();
  if (lanesWidget) lanesWidget->update();
  if (ruler) ruler->update();
}

void TDQtMainWindow::FlashLockedClips() { QApplication::beep(); }

std::string TDQtMainWindow::AskSaveFile(const std::string& title, const std::string& filter, const std::string& folder,
                                       const std::string& name) {
  QString const start = QString::fromStdString(folder + "/" + name);
  return QFileDialog::getSaveFileName(this, QString::fromStdString(title), start, QString::fromStdString(filter))
      .toStdString();
}

std::string TDQtMainWindow::AskOpenFile(const std::string& title, const std::string& filter,
                                       const std::string& folder) {
  return QFileDialog::getOpenFileName(this, QString::fromStdString(title), QString::fromStdString(folder),
                                      QString::fromStdString(filter))
      .toStdString();
}

LProcessResult TDQtMainWindow::RunModalJob(const std::string& title,
                                           const std::function<LProcessResult(LProcessInterface&)>& job) {
  TDQtProgress progress(this, title);
  LProcessResult const result = job(progress);
  if (result == LProcessFailed && !progress.GetError().empty()) Alert(progress.GetError(), "");
  return result;
}

bool TDQtMainWindow::AskExportOptions(TDExportOptions& options, const ExportAccept& accept) {
  TDExportOptionsDlg form(options, accept, *this, this);
  if (form.exec() != QDialog::Accepted) return false;
  options = form.Options();
  return true;
}

bool TDQtMainWindow::EditFormatSettings(LFormatSettingsModel& model) {
  QWidget* parent = QApplication::activeModalWidget();
  TDFormatSettingsDialog form(model, parent != nullptr ? parent : this);
  return form.exec() == QDialog::Accepted;
}

void TDQtMainWindow::dragEnterEvent(QDragEnterEvent* event) {
  if (event->mimeData()->hasUrls()) event->acceptProposedAction();
}

void TDQtMainWindow::dropEvent(QDropEvent* event) {
  std::vector<std::string> paths;
  for (QUrl const& url : event->mimeData()->urls()) {
    if (url.isLocalFile()) paths.push_back(url.toLocalFile().toStdString());
  }
  event->acceptProposedAction();
  if (Controller) Controller->EvDropFiles(paths);
}

void TDQtMainWindow::closeEvent(QCloseEvent* event) {
  if (Controller && !Controller->CmCancel()) {
    event->ignore();
    return;
  }
  event->accept();
}
