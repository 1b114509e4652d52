#pragma once
#include <QMainWindow>
#include <map>
#include <vector>

#include "shell/main_window_view.h"
#include "sound/sound_player.h"
#include "sound/tracks_db.h"
#include "timeline/time_line.h"

class MainDialog;
class QAction;
class QLabel;
class QVBoxLayout;
class QScrollArea;
class QScrollBar;
class QToolBar;
class QSlider;
class QHBoxLayout;
class TDLevelMeter;
class TDNavigatorStrip;
class TDTimeRuler;
class TDTrackArea;
class TDTrackControl;

// The main window. It draws the project and turns the user's clicks and keys
// into controller commands; it decides nothing itself.
class TDQtMainWindow : public QMainWindow, public TDMainWindowView, public LTimeLineNotify, public LSoundPlayerNotify {
  Q_OBJECT
 public:
  explicit TDQtMainWindow(QWidget* parent = nullptr);
  ~TDQtMainWindow() override;

  // Where the levels of the tracks come from while playing: the latest due, or
  // null. Asked at each level tick of the mix.
  void SetTrackLevelSource(std::function<TDTracksDB const*()> source) { TrackLevels = std::move(source); }

  // Connects the window to its controller; the menus and tracks appear then.
  void SetController(MainDialog* controller);

  int TrackControlCount() const { return static_cast<int>(trackControls.size()); }
  TDTrackControl* TrackControlAt(int track) const;
  QAction* CommandAction(int id) const;
  QString InfoBarText() const;
  TDTrackArea* TrackArea() const { return lanesWidget; }
  TDTimeRuler* Ruler() const { return ruler; }
  TDNavigatorStrip* Navigator() const { return navigator; }
  TDLevelMeter* MasterMeter() const { return masterMeter; }
  QLabel* PositionDisplay() const { return positionLabel; }
  LTimeLine& GetTimeLine() { return TimeLine; }

  void TimeLineChanged(LTimeLine& line) override;
  // The transport's news, on the main thread: the play cursor follows.
  void spntfPlay(long) override;
  void spntfTime(LSoundTime time, long) override;
  void spntfStop(long) override;
  void spntfLevel(LDBMultiChannel<LdB<signed char>> const& levels, long) override;

  // TDMainWindowView
  void Alert(const std::string& text, const std::string& caption) override;
  int Ask(const std::string& text, const std::string& caption, const std::vector<std::string>& buttons,
          const std::string& checkText, bool* checked) override;
  void ShowTip(const std::string& text, int track, unsigned ms) override;
  void HideTip() override;
  void InfoBar(const std::string& text) override;
  bool PickColor(unsigned short& red, unsigned short& green, unsigned short& blue) override;
  void SetCaption(const std::string& caption) override;
  void UITrackAddApply(int track) override;
  void UITrackDeleteApply(int track) override;
  void UITrackChangeApply(int track) override;
  void UIProjectStateApply() override;
  void UIClipsApply() override;
  void FlashLockedClips() override;
  void UITransportApply() override;
  std::string AskSaveFile(const std::string& title, const std::string& filter, const std::string& folder,
                          const std::string& name) override;
  std::string AskOpenFile(const std::string& title, const std::string& filter, const std::string& folder) override;
  LProcessResult RunModalJob(const std::string& title,
                             const std::function<LProcessResult(LProcessInterface&)>& job) override;
  bool AskExportOptions(TDExportOptions& options, const ExportAccept& accept) override;
  bool EditFormatSettings(LFormatSettingsModel& model) override;

 protected:
  void closeEvent(QCloseEvent* event) override;
  void dragEnterEvent(QDragEnterEvent* event) override;
  void dropEvent(QDropEvent* event) override;

 private:
  void BuildMenus();
  void BuildToolBar();
  // The position display: the play position while playing, else the cursor.
  void ShowPosition(LSoundTime ms);
  // Vertical zoom of every track by `factor` (1 is the smallest).
  void ZoomTracks(double factor);
  QAction* AddCommand(QMenu* menu, const QString& text, int id, const QKeySequence& key = {});
  void RebuildTracks();
  // The time line takes the project's end, tempo and cursor.
  void SyncTimeLine();

  static constexpr int kHeaderWidth = 300;
  LTimeLine TimeLine;
  TDTrackArea* lanesWidget = nullptr;
  TDTimeRuler* ruler = nullptr;
  QWidget* rulerCorner;
  QWidget* rulerScrollGap;
  QHBoxLayout* rulerHolder;
  QHBoxLayout* navigatorHolder;
  QVBoxLayout* laneHolder;
  QScrollBar* timeScroll;

  MainDialog* Controller = nullptr;
  QScrollArea* trackArea;
  QWidget* trackHolder;
  QVBoxLayout* trackLayout;
  QLabel* infoBar;
  QLabel* positionLabel = nullptr;
  TDLevelMeter* masterMeter = nullptr;
  QSlider* masterVolume = nullptr;
  TDNavigatorStrip* navigator = nullptr;
  QToolBar* toolBar = nullptr;
  QAction* openClipAction = nullptr;  // the Clip menu's, on the tool bar too
  bool bPlaying = false;
  std::function<TDTracksDB const*()> TrackLevels;
  std::vector<TDTrackControl*> trackControls;
  std::map<int, QAction*> commandActions;
};
