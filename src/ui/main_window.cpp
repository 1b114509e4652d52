#include "ui/main_window.h"

#include <QStyle>
#include <QSlider>
#include <QToolBar>
#include <QToolButton>

#include "shell/user_settings.h"
#include "timeline/project_control.h"
#include "timeline/time_beat_mapper.h"
#include "timeline/track_pixel_mapping.h"
#include "ui/export_options_dialog.h"
#include "ui/format_settings_dialog.h"
#include "ui/level_meter.h"
#include "ui/navigator_strip.h"

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
  navigatorHolder = new QHBoxLayout;
  navigatorHolder->setContentsMargins(kHeaderWidth, 0, 0, 0);
  column->addLayout(navigatorHolder);
  TimeLine.AddNotify(this);

  setCentralWidget(central);
  statusBar()->showMessage(tr("Ready"));

  // The transport and the level of the mix stay in view above everything.
  toolBar = addToolBar(tr("Transport"));
  toolBar->setObjectName(QStringLiteral("transportBar"));
  toolBar->setMovable(false);
  toolBar->setIconSize(QSize(20, 20));
  positionLabel = new QLabel(this);
  positionLabel->setObjectName(QStringLiteral("positionDisplay"));
  positionLabel->setStyleSheet(QStringLiteral(
      "QLabel { background: #1b1d20; color: #e8f4ea; border-radius: 3px; padding: 2px 10px;"
      " font-family: monospace; font-size: 15px; }"));
  positionLabel->setToolTip(tr("Position: minutes:seconds and bar.beat"));
  masterMeter = new TDLevelMeter(Qt::Horizontal, this);
  masterMeter->setObjectName(QStringLiteral("masterMeter"));
  masterMeter->setToolTip(tr("The level of the mix"));
  ShowPosition(0);
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

void TDQtMainWindow::spntfPlay(long) {
  bPlaying = true;
  if (QAction* play = CommandAction(CM_PLAY_STOP)) {
    play->setIcon(style()->standardIcon(QStyle::SP_MediaStop));
    play->setText(tr("&Stop"));
  }
}

void TDQtMainWindow::spntfLevel(LDBMultiChannel<LdB<signed char>> const& levels, long) {
  if (masterMeter) masterMeter->SetLevels(levels);
  TDTracksDB const* tracks = TrackLevels ? TrackLevels() : nullptr;
  if (tracks == nullptr) return;
  int const n = std::min(TrackControlCount(), TDTracksDB::MaxTracks);
  for (int i = 0; i < n; ++i) trackControls[static_cast<std::size_t>(i)]->Meter()->SetLevels(tracks->Tracks[i]);
}

void TDQtMainWindow::ShowPosition(LSoundTime ms) {
  if (positionLabel == nullptr) return;
  QString text = TDTimeRuler::TimeLabel(ms, 1);
  if (Controller) {
    TDProject const& project = Controller->GetProject();
    int const perBar = std::max(1, project.iTimeSignatureBeats);
    double const beat = std::max(0.0, LTimeBeatMapper::GetBeatFromTime(ms, project.Metronome.GetTempoChanges(), 0, 0.0));
    long long const whole = static_cast<long long>(beat);
    int const hundredths = static_cast<int>((beat - static_cast<double>(whole)) * 100);
    text += QStringLiteral("   %1.%2.%3")
                .arg(whole / perBar + 1)
                .arg(whole % perBar + 1)
                .arg(hundredths, 2, 10, QLatin1Char('0'));
  }
  positionLabel->setText(text);
}

void TDQtMainWindow::spntfTime(LSoundTime time, long) {
  ShowPosition(time);
  if (lanesWidget == nullptr) return;
  lanesWidget->SetPlayPosition(time);
  // Keep the play cursor in view: a page on when it leaves on the right.
  LSoundTime const span = TimeLine.GetViewEnd() - TimeLine.GetViewStart();
  if (time > TimeLine.GetViewEnd() || time < TimeLine.GetViewStart()) {
    TimeLine.SetViewRegion(time - span / 10, time - span / 10 + span);
  }
}

void TDQtMainWindow::spntfStop(long) {
  bPlaying = false;
  if (lanesWidget) lanesWidget->SetPlayPosition(-1);
  if (masterMeter) masterMeter->Reset();
  for (TDTrackControl* row : trackControls) row->Meter()->Reset();
  if (QAction* play = CommandAction(CM_PLAY_STOP)) {
    play->setIcon(style()->standardIcon(QStyle::SP_MediaPlay));
    play->setText(tr("&Play"));
  }
  if (Controller) ShowPosition(Controller->GetCursorPosition());
}

void TDQtMainWindow::SyncTimeLine() {
  if (!Controller) return;
  TDProject const& project = Controller->GetProject();
  TimeLine.SetEnd(project.GetEnd());
  TimeLine.SetTempoChanges(project.Metronome.GetTempoChanges());
  TimeLine.SetPosition(Controller->GetCursorPosition());
  TimeLineChanged(TimeLine);
  if (!bPlaying) ShowPosition(Controller->GetCursorPosition());
  if (navigator) navigator->update();
}

void TDQtMainWindow::SetController(MainDialog* controller) {
  // Rows talk to the controller directly, so they go before it may.
  for (TDTrackControl* row : trackControls) delete row;
  trackControls.clear();
  delete lanesWidget;
  lanesWidget = nullptr;
  delete ruler;
  ruler = nullptr;
  delete navigator;
  navigator = nullptr;
  Controller = controller;
  if (Controller) {
    lanesWidget = new TDTrackArea(*Controller, TimeLine, trackHolder);
    laneHolder->addWidget(lanesWidget, 0, Qt::AlignTop);
    ruler = new TDTimeRuler(*Controller, TimeLine, this);
    rulerHolder->addWidget(ruler);
    connect(ruler, &TDTimeRuler::CursorMoved, lanesWidget, [this](LSoundTime ms) {
      lanesWidget->update();
      if (navigator) navigator->update();
      if (!bPlaying) ShowPosition(ms);
    });
    navigator = new TDNavigatorStrip(*Controller, TimeLine, this);
    navigatorHolder->addWidget(navigator);
    SyncTimeLine();
    // Start with the whole project in view.
    TimeLine.SetViewRegion(0, TimeLine.GetEnd());
  }
  BuildMenus();
  BuildToolBar();
  RebuildTracks();
}

QAction* TDQtMainWindow::AddCommand(QMenu* menu, const QString& text, int id, const QKeySequence& key) {
  QAction* a = menu->addAction(text);
  if (!key.isEmpty()) a->setShortcut(key);
  connect(a, &QAction::triggered, this, [this, a, id] {
    if (!Controller) return;
    Controller->Command(id);
    // A checkable action shows the controller's state, not the click's: a refused
    // command leaves it as it was.
    if (a->isCheckable()) UITransportApply();
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
  QAction* open = openClipAction = clip->addAction(tr("&Open Clip..."));
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
  AddCommand(transport, bPlaying ? tr("&Stop") : tr("&Play"), CM_PLAY_STOP, QKeySequence(Qt::Key_Space))
      ->setIcon(style()->standardIcon(bPlaying ? QStyle::SP_MediaStop : QStyle::SP_MediaPlay));
  AddCommand(transport, tr("Play from &Cursor"), CM_PLAY_FROM_CURSOR, QKeySequence(Qt::SHIFT | Qt::Key_Space));
  QAction* pause = AddCommand(transport, tr("P&ause"), CM_PAUSE, QKeySequence(Qt::CTRL | Qt::Key_Space));
  pause->setIcon(style()->standardIcon(QStyle::SP_MediaPause));
  pause->setCheckable(true);
  AddCommand(transport, tr("Stop and &Return"), CM_STOP_AND_RETURN, QKeySequence(Qt::Key_Escape));
  AddCommand(transport, tr("Go to &Start"), CM_GO_TO_START, QKeySequence(Qt::Key_Home))
      ->setIcon(style()->standardIcon(QStyle::SP_MediaSkipBackward));
  AddCommand(transport, tr("Go to &End"), CM_GO_TO_END, QKeySequence(Qt::Key_End))
      ->setIcon(style()->standardIcon(QStyle::SP_MediaSkipForward));
  QAction* loopPlay = AddCommand(transport, tr("&Loop Playback"), CM_LOOP_PLAY_TOGGLE, QKeySequence(Qt::Key_L));
  loopPlay->setCheckable(true);
  loopPlay->setChecked(Controller->IsLoopPlay());
  loopPlay->setIcon(style()->standardIcon(QStyle::SP_BrowserReload));
  AddCommand(transport, tr("Scr&ub"), CM_SCRUB_TOGGLE)->setCheckable(true);
  transport->addSeparator();
  AddCommand(transport, tr("&Loop the Selection"), CM_LOOP_ADD, QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_L));
  AddCommand(transport, tr("Loop &Starts at Cursor"), CM_SELECT_LOOP_AREA_START, QKeySequence(Qt::Key_BracketLeft));
  AddCommand(transport, tr("Loop E&nds at Cursor"), CM_SELECT_LOOP_AREA_END, QKeySequence(Qt::Key_BracketRight));
  AddCommand(transport, tr("&Clear Loop"), CM_DESELECT_LOOP_AREA);
  transport->addSeparator();
  AddCommand(transport, tr("Add &Bookmark at Cursor"), CM_BOOKMARK_ADD, QKeySequence(Qt::CTRL | Qt::Key_B));
  AddCommand(transport, tr("&Next Bookmark"), CM_GOTO_NEXT_BOOKMARK, QKeySequence(Qt::CTRL | Qt::Key_Right));
  AddCommand(transport, tr("P&revious Bookmark"), CM_GOTO_PREV_BOOKMARK, QKeySequence(Qt::CTRL | Qt::Key_Left));

  QMenu* view = menuBar()->addMenu(tr("&View"));
  auto zoomTime = [this](double factor) {
    // About the cursor when it is in view, so what the user looks at stays put.
    LSoundTime anchor = Controller ? Controller->GetCursorPosition() : 0;
    if (anchor < TimeLine.GetViewStart() || anchor > TimeLine.GetViewEnd())
      anchor = (TimeLine.GetViewStart() + TimeLine.GetViewEnd()) / 2;
    TimeLine.SetViewRegionZoom(factor, anchor);
  };
  QAction* zoomIn = view->addAction(tr("Zoom &In"), this, [zoomTime] { zoomTime(0.5); });
  zoomIn->setShortcuts({QKeySequence(Qt::CTRL | Qt::Key_Equal), QKeySequence(Qt::CTRL | Qt::Key_Plus)});
  zoomIn->setObjectName(QStringLiteral("zoomIn"));
  QAction* zoomOut = view->addAction(tr("Zoom &Out"), this, [zoomTime] { zoomTime(2.0); });
  zoomOut->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Minus));
  zoomOut->setObjectName(QStringLiteral("zoomOut"));
  QAction* zoomAll = view->addAction(tr("&Whole Project"), this, [this] { TimeLine.SetViewRegion(0, TimeLine.GetEnd()); });
  zoomAll->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_0));
  zoomAll->setObjectName(QStringLiteral("zoomAll"));
  view->addSeparator();
  QAction* taller = view->addAction(tr("&Taller Tracks"), this, [this] { ZoomTracks(1.25); });
  taller->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_Equal));
  taller->setObjectName(QStringLiteral("tallerTracks"));
  QAction* shorter = view->addAction(tr("&Shorter Tracks"), this, [this] { ZoomTracks(0.8); });
  shorter->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_Minus));
  shorter->setObjectName(QStringLiteral("shorterTracks"));
  view->addSeparator();
  QAction* beats = view->addAction(tr("Ruler in &Bars and Beats"));
  beats->setCheckable(true);
  beats->setChecked(LUserSettingGet("Settings", "TimelineMode", 0) == TDProjectControl::kTimelineModeBeats);
  connect(beats, &QAction::toggled, this, [this](bool on) {
    LUserSettingSet("Settings", "TimelineMode", on ? TDProjectControl::kTimelineModeBeats : 0);
    if (ruler) ruler->update();
  });

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

void TDQtMainWindow::BuildToolBar() {
  toolBar->clear();
  if (!Controller) return;
  toolBar->addAction(CommandAction(CM_GO_TO_START));
  // Winding lasts while the button is held.
  auto wind = [this](QStyle::StandardPixmap icon, const QString& tip, int id, const char* name) {
    auto* b = new QToolButton(toolBar);
    b->setIcon(style()->standardIcon(icon));
    b->setToolTip(tip);
    b->setObjectName(QString::fromLatin1(name));
    b->setAutoRaise(true);
    connect(b, &QToolButton::pressed, this, [this, id] { Controller->Command(id); });
    connect(b, &QToolButton::released, this, [this] { Controller->Command(CM_WIND_END); });
    toolBar->addWidget(b);
  };
  wind(QStyle::SP_MediaSeekBackward, tr("Rewind (hold)"), CM_REWIND, "rewind");
  toolBar->addAction(CommandAction(CM_PLAY_STOP));
  toolBar->addAction(CommandAction(CM_PAUSE));
  wind(QStyle::SP_MediaSeekForward, tr("Fast forward (hold)"), CM_FAST_FORWARD, "fastForward");
  toolBar->addAction(CommandAction(CM_GO_TO_END));
  toolBar->addAction(CommandAction(CM_LOOP_PLAY_TOGGLE));
  toolBar->addSeparator();
  toolBar->addWidget(positionLabel);
  toolBar->addSeparator();
  toolBar->addWidget(masterMeter);
  masterVolume = new QSlider(Qt::Horizontal, toolBar);
  masterVolume->setObjectName(QStringLiteral("masterVolume"));
  masterVolume->setRange(-48, 12);
  masterVolume->setFixedWidth(90);
  masterVolume->setValue(Controller->GetMasterVolume());
  masterVolume->setToolTip(tr("Master volume: %1 dB").arg(Controller->GetMasterVolume()));
  connect(masterVolume, &QSlider::valueChanged, this, [this](int dB) {
    if (!Controller || dB == Controller->GetMasterVolume()) return;
    Controller->CmAdjustMasterVolume(dB);
    masterVolume->setToolTip(tr("Master volume: %1 dB").arg(dB));
  });
  toolBar->addWidget(masterVolume);
  toolBar->addSeparator();
  openClipAction->setIcon(style()->standardIcon(QStyle::SP_DialogOpenButton));
  openClipAction->setToolTip(tr("Add a sound or video file as a clip (Ctrl+O)"));
  toolBar->addAction(openClipAction);
  toolBar->addAction(CommandAction(CM_CLIP_SPLIT));
  toolBar->addAction(CommandAction(CM_CLIP_FADE_IN));
  toolBar->addAction(CommandAction(CM_CLIP_FADE_OUT));
  toolBar->addSeparator();
  QAction* exportAction = CommandAction(CM_PROJECT_EXPORT);
  exportAction->setIcon(style()->standardIcon(QStyle::SP_DialogSaveButton));
  toolBar->addAction(exportAction);
}

void TDQtMainWindow::UITransportApply() {
  if (!Controller) return;
  if (QAction* loop = CommandAction(CM_LOOP_PLAY_TOGGLE)) {
    QSignalBlocker const quiet(loop);
    loop->setChecked(Controller->IsLoopPlay());
  }
  if (QAction* scrub = CommandAction(CM_SCRUB_TOGGLE)) scrub->setChecked(Controller->IsScrubbing());
  if (QAction* pause = CommandAction(CM_PAUSE)) pause->setChecked(Controller->IsPaused());
  if (masterVolume && masterVolume->value() != Controller->GetMasterVolume()) {
    QSignalBlocker const quiet(masterVolume);
    masterVolume->setValue(std::clamp(Controller->GetMasterVolume(), -48, 12));
  }
  if (Controller->IsPaused()) ShowPosition(Controller->GetPlayPosition());
}

void TDQtMainWindow::ZoomTracks(double factor) {
  TDTrackPixelMapping::dZoomFactorV = std::clamp(TDTrackPixelMapping::dZoomFactorV * factor, 1.0, 4.0);
  RebuildTracks();
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
  if (navigator) navigator->update();
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
