#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "project/project.h"
#include "shell/engine_state.h"
#include "shell/main_window_view.h"

// The one place where a user command is decided. Every menu item, button, key
// and drop ends here: the controller tests the command's guards, changes the
// model, restarts the engine if it plays, refreshes the windows and marks an
// undo point. It owns the project for the life of the process and reaches the
// windows, the main loop and the engine only through their interfaces, so all
// of it runs (and is tested) without a display.
class MainDialog : public TDProjectNotify, public LSoundPlayerNotify {
 public:
  // Timers of the controller, by their keys.
  enum Timer : int {
    TIMER_NAVIGATOR = 2,
    TIMER_RECOVERY_SAVE = 3,
    TIMER_SCRUB_FAST_FORWARD = 5,
    TIMER_SCRUB_REWIND = 6,
    TIMER_RECOVERY_SAVE_SOON = 9,
    TIMER_RESTART = 8,
    TIMER_HIDE_HINT = 10,
    TIMER_EFFECT_UNDO = 13,
    TIMER_WIND_END = 14,
    TIMER_VOLUME_UNDO = 17,
    TIMER_PAN_UNDO = 18,
    TIMER_WIND = 21,
  };

  static constexpr int kMaxTracks = 250;
  static constexpr int kDefaultTrackCount = 12;
  static constexpr unsigned kHintMs = 5000;
  static constexpr unsigned kFaderUndoDelayMs = 1000;
  static constexpr unsigned kRecoverySaveMs = 600000;
  static constexpr unsigned kRecoverySaveSoonMs = 1000;
  // A run of effect changes closer than this makes one restart and one undo step.
  static constexpr unsigned kEffectChangeDelayMs = 100;
  // How far the nudge keys move clips.
  static constexpr LSoundTime kNudgeMs = 10;
  // Winding: every tick the play jumps this far on (or back), so that with the
  // tick's own play it runs about six times as fast.
  static constexpr unsigned kWindTickMs = 100;
  static constexpr LSoundTime kWindStepMs = 500;
  static constexpr LSoundTime kRewindStepMs = 700;
  // A released key ends winding or a scrub this long after, so that a key's
  // repeat (a release and a press) does not stop it; a jog wheel's motion ends
  // when no event came for the longer time.
  static constexpr unsigned kWindEndMs = 100;
  static constexpr unsigned kJogEndMs = 500;
  // A held scrub key moves the spot this far every tick: half of normal speed.
  static constexpr unsigned kScrubTickMs = 40;
  static constexpr LSoundTime kScrubStepMs = 20;
  // The master volume, in dB; -127 is silence.
  static constexpr int kMinMasterVolume = -127;
  static constexpr int kMaxMasterVolume = 12;
  // Where a play starts again at the loop's start rather than a moment before its end.
  static constexpr LSoundTime kLoopEndSnapMs = 99;

  MainDialog(TDMainWindowView& view, TDMainLoop& loop, TDEngineState& engine);
  ~MainDialog() override;
  MainDialog(const MainDialog&) = delete;
  MainDialog& operator=(const MainDialog&) = delete;

  // Runs once the window exists: sets up and opens the default project.
  void InitDialog();
  bool IsInitialised() const { return bInitDone; }

  // The road of every command from a menu, button or key. False when the
  // identifier is not a command of the controller.
  bool Command(int id, int notifyCode = 0);
  void OnTimer(int id);

  // Arguments of this start or handed over by a later one, program name first.
  void EvRunArguments(const std::vector<std::string>& argv);

  // The main window is closing; false keeps it open.
  bool CmCancel();

  void ProjectDefault();

  // Track commands. Those without a track act on the current one.
  void CmTrackAdd();
  void CmTrackInsert();
  void CmTrackDelete();
  void CmTrackMoveUp();
  void CmTrackMoveDown();
  void CmTrackRename(int track, const std::string& name);
  void CmTrackPickColor(int track);
  void CmTrackSetMute(int track, bool on);
  void CmTrackSetSolo(int track, bool on);
  void CmTrackMuteToggle(int track);
  void CmTrackSoloToggle(int track);
  void CmTrackRecordToggle(int track);
  void CmTrackMonitorToggle(int track);
  // dB from -48 to +12; the stored value is clamped to that range.
  void CmTrackSetVolume(int track, int dB);
  // 0 to 100 with 50 the centre; below 50 leans left.
  void CmTrackSetPan(int track, int position);
  void CmTrackCollapse(int track);
  void CmTrackExpand(int track);
  void CmTrackCollapseAll();
  void CmTrackExpandAll();
  void CmTrackCollapseSelected();
  void CmTrackExpandSelected();
  void CmTrackSelect(int track);
  void CmTrackSelectFirst();
  void CmTrackSelectLast();
  void CmSelectNextTrack();
  void CmSelectPrevTrack();

  // Live effects of the current track (main_dialog_effects.cpp).
  void CmTrackLiveEffectsAddAmplify();
  void CmTrackLiveEffectsAddHighpass();
  void CmTrackLiveEffectsAddLowpass();
  // What the effect chain editor of a track tells the controller: a message
  // number with its argument, sent on to the events below.
  void EvEffectWindowMessage(int message, int argument);
  // An effect's parameters or bypass changed; `restartNow` skips the short wait
  // that lets a slider drag cost one restart.
  void EvEffectParametersChanged(bool restartNow);
  void EvEffectAdd(int index);
  void EvEffectDelete();
  // The order of a chain changed, or effects were loaded into it.
  void EvEffectListChanged();
  // Rebuilds the playing mix from the project, if something plays.
  void CmRestart();
  // The folder chain files are saved to and loaded from, and where the last one was.
  static std::string GetEffectChainFolder();
  static void SetEffectChainFolder(const std::string& folder);

  // Opens a project file in place of the open project, after the close prompt.
  // False when it did not open; a failed load leaves a fresh default project.
  bool ProjectLoad(const std::string& path);
  // The close prompt: false when the user stays in the project. On true the
  // project is closed (empty).
  bool ProjectClosePrompt();
  void CmProjectClose();
  void CmProjectOpen();
  // True when saved (or nothing to save).
  bool CmProjectSave();
  bool CmProjectSaveAs();
  // Saves to `path`; `interactive` shows the progress window. False on failure.
  bool ProjectSave(const std::string& path, const std::string& title, bool interactive);
  // The recovery file of the open project, written now and then while it is
  // dirty, so a crash loses little; removed when the project closes cleanly.
  void AutoProjectSaveForCrash();
  void DeleteProjectFileForCrash();
  std::string GetRecoveryFilePath() const;
  // At start: offers to recover the last project when it left a recovery file.
  bool RecoverCrashedProject();
  // Projects opened or saved lately, newest first, that still exist.
  static constexpr int kRecentProjects = 8;
  std::vector<std::string> GetRecentProjects() const;
  // Takes an audio file into the project's data folder as a clip at the cursor on
  // the current track. False, having said why, when it could not.
  bool AddClip(const std::string& path);

  // The play cursor on the timeline, where splits and moves to the cursor act.
  void SetCursorPosition(LSoundTime ms) { iCursor = ms < 0 ? 0 : ms; }
  LSoundTime GetCursorPosition() const { return iCursor; }

  // Clip commands. Those without arguments act on the selected clips.
  void CmClipOpen(const std::string& path);
  void CmClipDelete();
  void CmClipSplit();
  void CmClipJoin();
  void CmClipLockToggle();
  void CmTrackToggleLock();
  void CmClipRename(std::uint32_t clipId, const std::string& name);
  void CmClipRestore();
  void CmClipSetBase();
  void CmClipMoveToCursor();
  void CmClipMoveToStart();
  // Moves the selected unlocked clips by `ms`, none of them before 0.
  void CmClipNudge(LSoundTime ms);
  void CmClipSelectAll();
  void CmClipSelectNext();
  void CmClipSelectPrev();
  // Fades act on the part of each clip within the edit region, or, with no
  // region, on the selected clips under the cursor: a fade in from the clip's
  // start to the cursor, a fade out from the cursor to its end.
  void CmClipFadeIn();
  void CmClipFadeOut();
  // Fades the two selected overlapping audio clips into each other.
  void CmClipCrossFade();
  // A point at the cursor on the line each selected clip's track shows.
  void CmClipAddFade();
  // Clears the shown line of the clips within the edit region over the region,
  // or of the selected clips over their whole length.
  void CmClipDeleteFade();
  // Selects one clip (alone, unless `add`).
  void EvClipSelect(std::uint32_t clipId, bool add);
  // The release of a drag of the selected clips, which the window has moved
  // already (main_dialog_mouse.cpp).
  void EvClipsDragEnd(bool moved);
  // The release of a copying drag: copies of the selected clips `offset` ms and
  // `rows` tracks away, selected in their place. Answers how many were made.
  int EvClipsDragCopy(LSoundTime offset, int rows);
  // The release of a trim: applies what the drag left pending on that edge.
  void EvClipEndTrimOrExpand(std::uint32_t clipId, bool leftEdge);
  // What the settings window edits.
  struct TDSettings {
    std::string szPlayDevice;  // the "SoundOutDevice" value; empty for the default
    int iSampleRate = 44100;   // the project's
    std::string szSaveFolder;  // where projects are saved by default
    bool bMetronome = false;
    int iMetronomeVolume = 0;  // dB
  };
  TDSettings GetSettings() const;
  // Stores the preferences and changes the project's own; false, having said why,
  // for a value out of range (nothing is changed then).
  bool ApplySettings(TDSettings const& settings);
  // Files dropped onto the window: a project opens, anything else becomes clips
  // one after another on the current track; nothing while recording.
  void EvDropFiles(const std::vector<std::string>& paths);
  // The working region, the stretch that plays in a loop (main_dialog_timeline.cpp):
  // from the selected stretch, from or to the cursor, or dragged on the ruler.
  // A region of no length is none. Playback takes the new region at once.
  void CmLoopAdd();
  void CmSelectLoopAreaStart();
  void CmSelectLoopAreaEnd();
  void CmDeselectLoopArea();
  void SetWorkRegion(LSoundTime start, LSoundTime end);

  // Bookmarks (main_dialog_timeline.cpp). Adding puts one at the cursor, named
  // after its number, unless one stands there already; the cursor jumps to the
  // nearest one after or before it. Bookmarks are no undo step: they mark where
  // to go, not what the project sounds like, but the project must be saved.
  void CmBookmarkAdd();
  void CmGotoNextBookMark();
  void CmGotoPrevBookMark();
  bool CmBookmarkRename(LSoundTime position, const std::string& name);
  bool CmBookmarkMove(LSoundTime position, LSoundTime to);
  bool CmBookmarkDelete(LSoundTime position);

  // Ctrl+E: the export form (where, which format and its settings, the selection
  // or the whole), then the project's mix goes there (main_dialog_export.cpp).
  void CmProjectExport();
  // The form's OK: the target made whole, an existing file only overwritten when
  // the user says so, a folder that takes no file refused; the choices remembered.
  std::optional<std::string> ExportOptionsOk(TDExportOptions& options);
  // The export itself, under a progress window; a failure is said and leaves no file.
  bool ExportProjectTo(const std::string& path, bool selectionOnly = false);
  // ---- The transport (main_dialog_transport.cpp) ----
  //
  // While recording none of these act (the recording has its own stop), and they
  // say nothing. A device that won't open says "Cannot open sound device for
  // playing.", and so does one that goes away while it plays.
  //
  // Space: plays from the cursor, or stops what plays, scrubs or winds.
  void CmPlayStop();
  // Plays from the cursor (from the start when the cursor stands at the end of the
  // clips). While playing it goes back to where this play began.
  void CmPlay();
  // A play from `time`: a start just before the loop's end goes to its start; the
  // metronome's boundary is set for this play; while playing the play jumps there.
  void CmPlay(LSoundTime time);
  // Plays from the cursor as it stands, also while playing.
  void CmPlayFromCursor();
  // While playing: stops where the sound is, the cursor there, and remembers the
  // pause; while paused: plays on from the cursor.
  void CmPause();
  // Stops playing, scrubbing or winding; the cursor stays where the sound was.
  void CmStop();
  // The same, and the cursor goes back to where the last play began.
  void CmStopAndReturn();
  // Home and End (also the start and end buttons): the cursor to the project's start
  // or to the end of its clips. While playing the start jumps there and plays on;
  // the end stops.
  void CmGoToStart();
  void CmGoToEnd();
  // Rewind and fast-forward while the key or button is held (CmWindEnd on release),
  // from the cursor when nothing plays. The play jumps by steps, so a moment of
  // sound is heard every tick; when it ends, what ran before goes on (a play from
  // where winding left it), or the transport stops there. Fast-forward stops at the
  // end of the clips; rewind at 0 goes on from there.
  void CmRewind();
  void CmFastForward();
  void CmWindEnd();
  // Scrubbing: the spot at `time` plays over and over (the ruler under the mouse).
  void CmScrub(LSoundTime time);
  // Scrubbing at the cursor on, or off.
  void CmScrubToggle();
  // A step of the spot, and the keys that repeat it while held. A scrub that a key
  // began ends when the key is released.
  void CmScrubRewind();
  void CmScrubFastForward();
  void CmScrubRewindBegin();
  void CmScrubRewindEnd();
  void CmScrubFastForwardBegin();
  void CmScrubFastForwardEnd();
  // A jog wheel's turn: below 0 rewinds, above fast-forwards (while scrubbing, the
  // spot moves that way); the motion ends when the wheel rests for kJogEndMs.
  void CmJogWheel(int value);
  // Looping over the working region while playing, on or off. A play that runs
  // takes the change at once.
  void CmLoopPlayToggle();
  bool IsLoopPlay() const { return Project.bLoopPlay; }
  // The master volume in dB, clamped to kMinMasterVolume..kMaxMasterVolume; kept
  // in the settings when the window closes.
  void CmAdjustMasterVolume(int dB);
  int GetMasterVolume() const { return iMasterVolume; }

  // The transport as the window shows it.
  bool IsPlaying() const { return Engine.IsPlaying(); }
  bool IsPaused() const { return bPaused; }
  bool IsScrubbing() const { return Engine.IsScrubbing(); }
  // -1 rewinding, 1 fast-forwarding, 0 neither.
  int GetWindDirection() const { return iWind; }
  // Where the last play began: where CmStopAndReturn goes back to.
  LSoundTime GetPlayReturnPosition() const { return stPlayReturn; }
  // What the listener hears, as last reported (the cursor when nothing plays).
  LSoundTime GetPlayPosition() const { return stPlayPosition; }
  // The window hears the transport's notifications through the controller, after
  // it has acted on them: spntfPlay and spntfStop, spntfTime with the play
  // position 30 times a second, spntfLevel with the master levels (silence at a
  // stop). At each spntfLevel the tracks' levels due are TakeTracksDB's (null when
  // none are due; their record is valid until the next call).
  void SetPlayerNotify(LSoundPlayerNotify* notify) { pPlayerNotify = notify; }
  TDTracksDB const* TakeTracksDB() { return Engine.TakeTracksDB(); }

  // LSoundPlayerNotify: the transport's news, on the main thread.
  void spntfPlay(long user) override;
  void spntfStop(long user) override;
  void spntfTime(LSoundTime time, long user) override;
  void spntfLevel(LDBMultiChannel<LdB<signed char>> const& levels, long user) override;
  // Says a locked clip can't change, and flashes the locked clips.
  void SayClipLocked();
  // The release of a drag of one of a clip's fade points.
  void EvFadePointDragEnd(std::uint32_t clipId, bool moved);

  // Take commands: the selected takes, or the take the menu was opened on.
  void SetTakeMenuClip(std::uint32_t clipId) { uTakeMenuClip = clipId; }
  void CmChooseNextTake();
  void CmChoosePrevTake();
  void CmUseTake(int number);
  void CmDeleteActiveTake();
  void CmDeleteNoActiveTakes();
  void CmExpandTakes();
  // The entries of the take menu of a clip, in order: an identifier (0 for a
  // separator), the words, and whether it is checked.
  struct MenuEntry {
    int id = 0;
    std::string text;
    bool checked = false;
  };
  std::vector<MenuEntry> GetTakeMenu(std::uint32_t clipId) const;

  void SetProjectDirty();
  void SetProjectClean();
  bool IsProjectDirty() const { return bDirty; }
  // Marks the project changed and names the state the change led to.
  void SetUndoPoint(const std::string& name);
  // The name of the newest undo state.
  const std::string& GetUndoPointName() const { return szUndoPointName; }
  // How many undo states the history holds.
  int GetUndoPointCount() const { return iUndoPoints; }

  TDProject& GetProject() { return Project; }
  const TDProject& GetProject() const { return Project; }

  // The folder and file of the project a fresh start works in.
  static std::string DefaultProjectPath();

  // TDProjectNotify
  void prntfTrackVolumeChanged(int track) override;

 private:
  // An edit made during playback reaches the ear only through a restart,
  // since the playing mix is a snapshot of the project.
  void RestartIfPlaying();
  void TrackEdited(int track, const std::string& undoName);
  void SetCollapsed(int track, bool collapsed);
  void HistoryAddState(const std::string& name);
  // Drops the newest state; its name stands until the next state replaces it.
  void HistoryDiscardNewest();
  void AddLiveEffect(int type);
  void EffectChangedUndoPoint();
  // New effects take some of their defaults from the user's settings.
  static void InstallEffectDefaults();
  int CurrentTrack() const;
  // The edit that follows touches clips: restart the mix, redraw, undo point.
  void ClipsEdited(const std::string& undoName);
  // True (and says so) when any of the selected clips is locked.
  bool DisallowIfLocked();
  // Selected clips in order of position.
  std::vector<TDClip*> SelectedClips() const;
  void SplitAudioTakesAndAddToProject(TDClip& take, LSoundTime at);
  // A clip a fade command acts on, and the stretch of it, ms from its start.
  struct FadeTarget {
    TDClip* pClip = nullptr;
    LSoundTime iStart = 0;
    LSoundTime iEnd = 0;
  };
  // The clips within the edit region and the part of the region over each; with
  // no region, what `withoutRegion` makes of each selected clip (nothing when it
  // gives an empty stretch).
  std::vector<FadeTarget> FadeTargets(FadeTarget (*withoutRegion)(TDClip&, LSoundTime cursor)) const;
  // True (and says so) when any of the targets is locked.
  bool DisallowIfLocked(std::vector<FadeTarget> const& targets);
  void FadeCommand(bool fadeIn);
  // The take a take command acts on: the menu's clip, or the first selected take.
  TDClip* TakeForCommand() const;
  void MoveSelectedClipsTo(LSoundTime start);
  // Clears a working region wholly past the clips and lines the takes up: what
  // every play from a stop does first.
  void PrepareToPlay();
  // Steps of winding and scrubbing, by the timers.
  void WindStep();
  void ScrubStep(int direction);
  void ScrubKeyBegin(int timer, int otherTimer);
  void ScrubKeyEnd(int timer);
  // Winding begun in `direction`, or ended, back to what ran before.
  void Wind(int direction);
  void StopWinding();
  void StopScrubbing();
  // The timer after a released key or a resting jog wheel.
  void EndMotion();
  void TransportChanged();

  void HandleCorruptedProject(const std::string& dataFolder);
  // Rebuilds the waveform files the data folder lacks for the open project.
  void ProjectCheckIntegrity();
  void UpdateCaption();
  void AddRecentProject(const std::string& path);
  // Where the save and open choosers start: "SaveDir", or "Tandrel Projects".
  std::string ProjectsFolder() const;
  // The save chooser and the save; false when cancelled or failed.
  bool SaveToChosenFile(const std::string& title);

  TDMainWindowView& View;
  TDMainLoop& Loop;
  TDEngineState& Engine;

  bool bDirty = false;
  bool bInitDone = false;
  TDProject Project;
  std::string szUndoPointName;
  int iUndoPoints = 0;
  LSoundTime iCursor = 0;
  std::uint32_t uTakeMenuClip = 0xFFFFFFFFu;

  // The transport's own state.
  LSoundPlayerNotify* pPlayerNotify = nullptr;
  LSoundTime stPlayReturn = 0;    // where the last play began
  LSoundTime stPlayPosition = 0;  // the last time the transport reported
  LSoundTime stScrubPoint = 0;
  bool bPaused = false;
  bool bReturnOnStop = false;  // the next stop sends the cursor to stPlayReturn
  int iWind = 0;               // -1 rewinding, 1 fast-forwarding
  bool bWindWasPlaying = false;
  bool bScrubByKey = false;  // the scrub began with a scrub key, and ends with it
  int iMasterVolume = 0;
};
