#include "shell/main_dialog.h"

#include "project/audio_cut_tank.h"

#include <algorithm>
#include <cstdio>
#include <sys/stat.h>
#include <unistd.h>

#include "foundation/log.h"
#include "project/project_paths.h"
#include "foundation/app_paths.h"
#include "shell/commands.h"
#include "shell/user_settings.h"

namespace {

constexpr char kDefaultProjectName[] = "Default Project";
constexpr char kProjectExtension[] = ".tdpj";
constexpr char kRecoveryFileName[] = "Recover.tdpj-recover";
constexpr char kSoundCloudReturn[] = "orvane.tandrel://authsoundcloud";

constexpr int kMinTrackDB = -48;
constexpr int kMaxTrackDB = 12;

bool EndsWith(const std::string& s, const std::string& tail) {
  return s.size() >= tail.size() && s.compare(s.size() - tail.size(), tail.size(), tail) == 0;
}

std::string JoinArguments(const std::vector<std::string>& argv) {
  std::string all;
  for (std::size_t i = 1; i < argv.size(); ++i) {
    if (i > 1) all += ' ';
    all += '"' + argv[i] + '"';
  }
  return all;
}

}  // namespace

MainDialog::MainDialog(TDMainWindowView& view, TDMainLoop& loop, TDEngineState& engine)
    : View(view), Loop(loop), Engine(engine) {
  Project.pNotify = this;
  Project.bLoopPlay = LUserSettingGet("Settings", "bLoopPlay", true);
  Project.bLoopRecord = LUserSettingGet("Settings", "bLoopRecord", true);
  Project.Tracks.SetNewTrackDefaultsProvider([] {
    TDTrackDefaults d;
    d.iInputChannelsSetting = LUserSettingGet("Settings", "TrackInputChannels0", 1);
    return d;
  });
  Project.SetMixSettingsProvider([] {
    TDMixSettings s;
    s.iPlaybackSpeed = LUserSettingGet("Settings", "PlaybackSpeed", 100);
    s.bMetronomePrerollOnly = LUserSettingGet("Settings", "MetronomePrerollOnly", false);
    return s;
  });
  InstallEffectDefaults();
  iMasterVolume = std::clamp(LUserSettingGet("Setting", "MasterVolume", 0), kMinMasterVolume, kMaxMasterVolume);
  Engine.SetNotify(this);
}

MainDialog::~MainDialog() {
  Engine.SetNotify(nullptr);
  Loop.KillTimer(TIMER_WIND);
  Loop.KillTimer(TIMER_WIND_END);
  Loop.KillTimer(TIMER_SCRUB_REWIND);
  Loop.KillTimer(TIMER_SCRUB_FAST_FORWARD);
  Loop.KillTimer(TIMER_HIDE_HINT);
  Loop.KillTimer(TIMER_VOLUME_UNDO);
  Loop.KillTimer(TIMER_PAN_UNDO);
  Loop.KillTimer(TIMER_RESTART);
  Loop.KillTimer(TIMER_EFFECT_UNDO);
  Project.pNotify = nullptr;
}

std::string MainDialog::DefaultProjectPath() {
  return LAppPaths::TemporaryFolder() + "/" + kDefaultProjectName + kProjectExtension;
}

void MainDialog::InitDialog() {
  // A project that ended without being closed comes back if the user wants it.
  if (!RecoverCrashedProject()) ProjectDefault();
  Loop.SetTimer(TIMER_NAVIGATOR, 0);
  bInitDone = true;
}

void MainDialog::ProjectDefault() {
  Project.ResetEditRegion();
  Project.Close();
  for (int i = 0; i < kDefaultTrackCount; ++i) Project.Tracks.AddTrack();
  Project.Tracks.SetCurrentTrackIndex(0);
  SetProjectClean();

  Project.szFilePath = DefaultProjectPath();
  Project.SetEnd(TDProject::kMinimumEnd);

  std::string dataFolder;
  TDProjectFileAndDataFolderManager::GetProjectFolderPathFromProjectFile(Project.szFilePath, dataFolder);
  Project.szDataFolderPath = dataFolder;
  // A recovery file left beside the default project belongs to nobody.
  ::unlink((dataFolder + "/" + kRecoveryFileName).c_str());
  if (!LAppPaths::MakeFolders(dataFolder, 0777))
    LLog("cannot create the default project's data folder %s", dataFolder.c_str());
  // The audio of a fresh project lives there; what an earlier run left in it
  // belongs to no project any more.
  LAudioCutTank::Instance().SetWorkingFolder(dataFolder);
  LAudioCutTank::Instance().DeleteCachedFiles();

  View.SetCaption(std::string(kDefaultProjectName) + " - Tandrel");
  View.UIProjectStateApply();
  Engine.SetVolume(LdB<signed char>(static_cast<signed char>(iMasterVolume)));
  SetCursorPosition(0);
  stPlayReturn = 0;
  stPlayPosition = 0;
  HistoryAddState("Default Empty Project");
  Loop.SetTimer(TIMER_RECOVERY_SAVE, kRecoverySaveMs);
}

// ---------------------------------------------------------------------------
// The road of a command

bool MainDialog::Command(int id, int notifyCode) {
  (void)notifyCode;
  View.HideTip();
  const int track = CurrentTrack();
  switch (id) {
    case CM_TRACK_ADD: CmTrackAdd(); return true;
    case CM_TRACK_INSERT: CmTrackInsert(); return true;
    case CM_TRACK_DELETE: CmTrackDelete(); return true;
    case CM_TRACK_MOVE_UP: CmTrackMoveUp(); return true;
    case CM_TRACK_MOVE_DOWN: CmTrackMoveDown(); return true;
    case CM_TRACK_PICK_COLOR: CmTrackPickColor(track); return true;
    case CM_TRACK_MUTE_TOGGLE: CmTrackMuteToggle(track); return true;
    case CM_TRACK_SOLO_TOGGLE: CmTrackSoloToggle(track); return true;
    case CM_TRACK_RECORD_TOGGLE: CmTrackRecordToggle(track); return true;
    case CM_TRACK_MONITOR_TOGGLE: CmTrackMonitorToggle(track); return true;
    case CM_TRACK_COLLAPSE: CmTrackCollapse(track); return true;
    case CM_TRACK_EXPAND: CmTrackExpand(track); return true;
    case CM_TRACK_COLLAPSE_ALL: CmTrackCollapseAll(); return true;
    case CM_TRACK_EXPAND_ALL: CmTrackExpandAll(); return true;
    case CM_TRACK_COLLAPSE_SELECTED: CmTrackCollapseSelected(); return true;
    case CM_TRACK_EXPAND_SELECTED: CmTrackExpandSelected(); return true;
    case CM_TRACK_SELECT_FIRST: CmTrackSelectFirst(); return true;
    case CM_TRACK_SELECT_LAST: CmTrackSelectLast(); return true;
    case CM_SELECT_NEXT_TRACK: CmSelectNextTrack(); return true;
    case CM_SELECT_PREV_TRACK: CmSelectPrevTrack(); return true;
    case CM_PROJECT_NEW: CmProjectClose(); return true;
    case CM_PROJECT_OPEN: CmProjectOpen(); return true;
    case CM_PROJECT_SAVE: CmProjectSave(); return true;
    case CM_PROJECT_SAVE_AS: CmProjectSaveAs(); return true;
    case CM_PROJECT_CLOSE: CmProjectClose(); return true;
    case CM_PROJECT_EXPORT: CmProjectExport(); return true;
    case CM_TRACK_LIVE_EFFECTS_ADD_AMPLIFY: CmTrackLiveEffectsAddAmplify(); return true;
    case CM_TRACK_LIVE_EFFECTS_ADD_HIGHPASS: CmTrackLiveEffectsAddHighpass(); return true;
    case CM_TRACK_LIVE_EFFECTS_ADD_LOWPASS: CmTrackLiveEffectsAddLowpass(); return true;
    case CM_PLAY_STOP: CmPlayStop(); return true;
    case CM_GO_TO_START: CmGoToStart(); return true;
    case CM_GO_TO_END: CmGoToEnd(); return true;
    case CM_PLAY: CmPlay(); return true;
    case CM_PLAY_FROM_CURSOR: CmPlayFromCursor(); return true;
    case CM_PAUSE: CmPause(); return true;
    case CM_STOP: CmStop(); return true;
    case CM_STOP_AND_RETURN: CmStopAndReturn(); return true;
    case CM_REWIND: CmRewind(); return true;
    case CM_FAST_FORWARD: CmFastForward(); return true;
    case CM_WIND_END: CmWindEnd(); return true;
    case CM_SCRUB_TOGGLE: CmScrubToggle(); return true;
    case CM_SCRUB_REWIND: CmScrubRewind(); return true;
    case CM_SCRUB_REWIND_BEGIN: CmScrubRewindBegin(); return true;
    case CM_SCRUB_REWIND_END: CmScrubRewindEnd(); return true;
    case CM_SCRUB_FAST_FORWARD: CmScrubFastForward(); return true;
    case CM_SCRUB_FAST_FORWARD_BEGIN: CmScrubFastForwardBegin(); return true;
    case CM_SCRUB_FAST_FORWARD_END: CmScrubFastForwardEnd(); return true;
    case CM_LOOP_PLAY_TOGGLE: CmLoopPlayToggle(); return true;
    case CM_BOOKMARK_ADD: CmBookmarkAdd(); return true;
    case CM_GOTO_NEXT_BOOKMARK: CmGotoNextBookMark(); return true;
    case CM_GOTO_PREV_BOOKMARK: CmGotoPrevBookMark(); return true;
    case CM_LOOP_ADD: CmLoopAdd(); return true;
    case CM_SELECT_LOOP_AREA_START: CmSelectLoopAreaStart(); return true;
    case CM_SELECT_LOOP_AREA_END: CmSelectLoopAreaEnd(); return true;
    case CM_DESELECT_LOOP_AREA: CmDeselectLoopArea(); return true;
    case CM_CLIP_DELETE: CmClipDelete(); return true;
    case CM_CLIP_SPLIT: CmClipSplit(); return true;
    case CM_CLIP_JOIN: CmClipJoin(); return true;
    case CM_CLIP_LOCK_TOGGLE: CmClipLockToggle(); return true;
    case CM_TRACK_TOGGLE_LOCK: CmTrackToggleLock(); return true;
    case CM_CLIP_RESTORE: CmClipRestore(); return true;
    case CM_CLIP_SET_BASE: CmClipSetBase(); return true;
    case CM_CLIP_MOVE_TO_CURSOR: CmClipMoveToCursor(); return true;
    case CM_CLIP_MOVE_TO_START: CmClipMoveToStart(); return true;
    case CM_CLIP_NUDGE_LEFT: CmClipNudge(-kNudgeMs); return true;
    case CM_CLIP_NUDGE_RIGHT: CmClipNudge(kNudgeMs); return true;
    case CM_CLIP_FADE_IN: CmClipFadeIn(); return true;
    case CM_CLIP_FADE_OUT: CmClipFadeOut(); return true;
    case CM_CLIP_CROSS_FADE: CmClipCrossFade(); return true;
    case CM_CLIP_ADD_FADE_POINT: CmClipAddFade(); return true;
    case CM_CLIP_DELETE_FADE_POINTS: CmClipDeleteFade(); return true;
    case CM_CLIP_SELECT_ALL: CmClipSelectAll(); return true;
    case CM_CLIP_SELECT_NEXT: CmClipSelectNext(); return true;
    case CM_CLIP_SELECT_PREV: CmClipSelectPrev(); return true;
    case CM_CHOOSE_NEXT_TAKE: CmChooseNextTake(); return true;
    case CM_CHOOSE_PREV_TAKE: CmChoosePrevTake(); return true;
    case CM_DELETE_ACTIVE_TAKE: CmDeleteActiveTake(); return true;
    case CM_DELETE_NO_ACTIVE_TAKES: CmDeleteNoActiveTakes(); return true;
    case CM_EXPAND_TAKES: CmExpandTakes(); return true;
    default:
      if (id >= CM_TAKE_FIRST && id <= CM_TAKE_LAST) {
        CmUseTake(id - (CM_TAKE_FIRST - 1));
        return true;
      }
      return false;
  }
}

void MainDialog::OnTimer(int id) {
  switch (id) {
    case TIMER_HIDE_HINT: View.HideTip(); break;
    case TIMER_VOLUME_UNDO: SetUndoPoint("Volume Change"); break;
    case TIMER_RECOVERY_SAVE:
      AutoProjectSaveForCrash();
      Loop.SetTimer(TIMER_RECOVERY_SAVE, kRecoverySaveMs);
      break;
    case TIMER_RECOVERY_SAVE_SOON: AutoProjectSaveForCrash(); break;
    case TIMER_PAN_UNDO: SetUndoPoint("Pan Change"); break;
    case TIMER_RESTART: CmRestart(); break;
    case TIMER_EFFECT_UNDO: EffectChangedUndoPoint(); break;
    case TIMER_WIND:
      WindStep();
      if (iWind != 0) Loop.SetTimer(TIMER_WIND, kWindTickMs);
      break;
    case TIMER_WIND_END: EndMotion(); break;
    case TIMER_SCRUB_REWIND:
      CmScrubRewind();
      if (Engine.IsScrubbing()) Loop.SetTimer(TIMER_SCRUB_REWIND, kScrubTickMs);
      break;
    case TIMER_SCRUB_FAST_FORWARD:
      CmScrubFastForward();
      if (Engine.IsScrubbing()) Loop.SetTimer(TIMER_SCRUB_FAST_FORWARD, kScrubTickMs);
      break;
    default: break;
  }
}

void MainDialog::SetProjectDirty() {
  bool const was = bDirty;
  bDirty = true;
  // A recovery save soon after every change, so a crash loses little.
  Loop.SetTimer(TIMER_RECOVERY_SAVE_SOON, kRecoverySaveSoonMs);
  if (!was) UpdateCaption();
}

void MainDialog::SetProjectClean() {
  bDirty = false;
  Loop.KillTimer(TIMER_RECOVERY_SAVE_SOON);
  UpdateCaption();
}

void MainDialog::HistoryAddState(const std::string& name) {
  szUndoPointName = name;
  ++iUndoPoints;
}

void MainDialog::HistoryDiscardNewest() {
  if (iUndoPoints > 0) --iUndoPoints;
}

void MainDialog::SetUndoPoint(const std::string& name) {
  SetProjectDirty();
  HistoryAddState(name);
}

void MainDialog::RestartIfPlaying() {
  if (Engine.IsPlaying()) Engine.Restart();
}

int MainDialog::CurrentTrack() const { return Project.Tracks.GetCurrentTrackIndex(); }

void MainDialog::TrackEdited(int track, const std::string& undoName) {
  RestartIfPlaying();
  View.UITrackChangeApply(track);
  SetUndoPoint(undoName);
}

// ---------------------------------------------------------------------------
// Arguments

void MainDialog::EvRunArguments(const std::vector<std::string>& argv) {
  LLog("arguments: %s", JoinArguments(argv).c_str());
  if (argv.size() == 2) {
    const std::string& arg = argv[1];
    if (arg.substr(0, arg.find('?')) == kSoundCloudReturn) {
      // The browser returns from the SoundCloud sign-in with the token behind it.
      std::size_t at = arg.find("access_token=");
      if (at != std::string::npos) {
        at += sizeof("access_token=") - 1;
        std::size_t end = arg.find('&', at);
        LUserSettingSetString("SoundCloud", "Token", arg.substr(at, end == std::string::npos ? end : end - at).c_str());
      }
      return;
    }
  }
  if (!bInitDone || argv.size() < 2) return;

  for (std::size_t i = 1; i < argv.size(); ++i) {
    const std::string& arg = argv[i];
    if (i == 1 && arg == "-refreshfiles" && argv.size() > 2) return;
    if (arg == "-block" || arg.rfind("-psn_", 0) == 0) continue;
    if (arg == "-install") {
      // The demonstration clips come with the installed data and clip loading.
      LLog("no demonstration clips to load");
      continue;
    }
    if (EndsWith(arg, kProjectExtension)) {
      ProjectLoad(arg);
      continue;
    }
    if (!AddClip(arg)) return;
  }
}

// ---------------------------------------------------------------------------
// Closing

bool MainDialog::CmCancel() {
  Loop.KillTimer(TIMER_WIND);
  Loop.KillTimer(TIMER_WIND_END);
  Loop.KillTimer(TIMER_SCRUB_REWIND);
  Loop.KillTimer(TIMER_SCRUB_FAST_FORWARD);
  iWind = 0;
  Engine.Stop();
  Engine.StopRecord();
  if (!ProjectClosePrompt()) return false;
  LUserSettingSet("Setting", "MasterVolume", iMasterVolume);
  Loop.KillTimer(TIMER_VOLUME_UNDO);
  Loop.KillTimer(TIMER_PAN_UNDO);
  Loop.KillTimer(TIMER_RESTART);
  Loop.KillTimer(TIMER_EFFECT_UNDO);
  LUserSettingSet("Settings", "bLoopPlay", Project.bLoopPlay);
  LUserSettingSet("Settings", "bLoopRecord", Project.bLoopRecord);
  return true;
}

// ---------------------------------------------------------------------------
// Tracks

void MainDialog::CmTrackAdd() {
  if (Engine.IsRecording()) {
    View.Alert("Tandrel can't add a track when it is recording. Please stop recording, then try adding the track.", "");
    return;
  }
  if (Project.Tracks.GetTrackCount() >= kMaxTracks) {
    View.Alert("Only 250 tracks supported.", "Warning");
    return;
  }
  TDTrack* t = Project.Tracks.AddTrack();
  Project.Tracks.SetCurrentTrackIndex(t->iIndex);
  RestartIfPlaying();
  View.UITrackAddApply(t->iIndex);
  SetUndoPoint("Add Track");
}

void MainDialog::CmTrackInsert() {
  if (Engine.IsPlaying() || Engine.IsRecording()) {
    View.Alert(
        "Tandrel can't insert a track when it is playing or recording. Please stop playing or recording, then try "
        "inserting the track.",
        "");
    return;
  }
  if (Project.Tracks.GetTrackCount() >= kMaxTracks) {
    View.Alert("Only 250 tracks supported.", "Warning");
    return;
  }
  // The new track goes right below the current one and becomes current.
  const int after = Project.Tracks.GetTrackCount() == 0 ? -1 : CurrentTrack();
  TDTrack* t = Project.AddTrackAfter(after);
  if (!t) return;
  Project.Tracks.SetCurrentTrackIndex(t->iIndex);
  View.UITrackAddApply(t->iIndex);
  SetUndoPoint("Insert Track");
}

void MainDialog::CmTrackDelete() {
  const int track = CurrentTrack();
  if (Project.Tracks.GetTrackCount() == 1) {
    View.InfoBar("At least one track is needed.");
    return;
  }
  if (Engine.IsPlaying() || Engine.IsRecording() || Engine.IsScrubbing()) {
    View.Alert(
        "Tandrel can't delete a track when it is playing, recording or scrubbing. Please stop and then try deleting "
        "the track again.",
        "");
    return;
  }
  if (!Project.Tracks.IsTrackValid(track)) return;
  if (Project.Clips.HasLockedClipOnTrack(track)) {
    View.Alert("Some clips were locked in this track, please unlock them first.", "Delete Error");
    return;
  }
  if (LUserSettingGet("Settings", "bWarnTrackDelete", true)) {
    bool dontAsk = false;
    int answer = View.Ask("Are you sure you want to delete this track from the project?", "Confirm Delete",
                          {"Yes", "No"}, "Please do not show this message in future", &dontAsk);
    if (answer != 0) return;
    if (dontAsk) LUserSettingSet("Settings", "bWarnTrackDelete", false);
  }
  Project.DeleteTrack(track);
  View.UITrackDeleteApply(track);
  SetUndoPoint("Delete Track");
}

void MainDialog::CmTrackMoveUp() {
  if (Engine.IsPlaying() || Engine.IsRecording()) return;
  const int track = CurrentTrack();
  if (track < 1 || !Project.ExchangeTracks(track, track - 1)) return;
  Project.Tracks.SetCurrentTrackIndex(track - 1);
  View.UITrackChangeApply(track);
  View.UITrackChangeApply(track - 1);
  SetUndoPoint("Move Track Up");
}

void MainDialog::CmTrackMoveDown() {
  if (Engine.IsPlaying() || Engine.IsRecording()) return;
  const int track = CurrentTrack();
  if (!Project.ExchangeTracks(track, track + 1)) return;
  Project.Tracks.SetCurrentTrackIndex(track + 1);
  View.UITrackChangeApply(track);
  View.UITrackChangeApply(track + 1);
  SetUndoPoint("Move Track Down");
}

void MainDialog::CmTrackRename(int track, const std::string& name) {
  TDTrack* t = Project.Tracks.GetTrack(track);
  if (!t) return;
  // An emptied name field means the user changed their mind, not "no name".
  if (name.empty() || name == t->GetName()) {
    View.UITrackChangeApply(track);
    return;
  }
  t->SetName(name);
  View.UITrackChangeApply(track);
  SetUndoPoint("Rename Track");
}

void MainDialog::CmTrackPickColor(int track) {
  TDTrack* t = Project.Tracks.GetTrack(track);
  if (!t) return;
  unsigned short r = t->Colour.uRed, g = t->Colour.uGreen, b = t->Colour.uBlue;
  if (!View.PickColor(r, g, b)) return;
  if (r == t->Colour.uRed && g == t->Colour.uGreen && b == t->Colour.uBlue) return;
  t->Colour = TDRGB16{r, g, b};
  View.UITrackChangeApply(track);
  SetUndoPoint("Track Color");
}

void MainDialog::CmTrackSetMute(int track, bool on) {
  const TDTrack* t = Project.Tracks.GetTrack(track);
  if (!t || t->bMute == on) return;
  Project.Tracks.SetTrackMute(track, on);
  RestartIfPlaying();
  // Mute drops a solo, which changes what every other track hears.
  for (int i = 0; i < Project.Tracks.GetTrackCount(); ++i) View.UITrackChangeApply(i);
  SetUndoPoint(on ? "Mute Track" : "Unmute Track");
}

void MainDialog::CmTrackSetSolo(int track, bool on) {
  const TDTrack* t = Project.Tracks.GetTrack(track);
  if (!t || t->bSolo == on) return;
  Project.Tracks.SetTrackSolo(track, on);
  RestartIfPlaying();
  for (int i = 0; i < Project.Tracks.GetTrackCount(); ++i) View.UITrackChangeApply(i);
  SetUndoPoint(on ? "Solo Track" : "Unsolo Track");
}

void MainDialog::CmTrackMuteToggle(int track) {
  if (const TDTrack* t = Project.Tracks.GetTrack(track)) CmTrackSetMute(track, !t->bMute);
}

void MainDialog::CmTrackSoloToggle(int track) {
  if (const TDTrack* t = Project.Tracks.GetTrack(track)) CmTrackSetSolo(track, !t->bSolo);
}

void MainDialog::CmTrackRecordToggle(int track) {
  TDTrack* t = Project.Tracks.GetTrack(track);
  if (!t) return;
  if (Engine.IsRecording()) {
    View.Alert(
        "You cannot change the record mode of a track while Tandrel is recording.\nPlease stop the recording first.",
        "");
    View.UITrackChangeApply(track);
    return;
  }
  // Standby of the input devices joins here once recording exists.
  t->ToggleRecordMode();
  View.UITrackChangeApply(track);
  if (t->IsRecordMode()) {
    SetUndoPoint("Track recording armed");
    View.ShowTip("Click the record button to start recording.", track, kHintMs);
    Loop.SetTimer(TIMER_HIDE_HINT, kHintMs);
  } else {
    SetUndoPoint("Track recording disarmed");
  }
}

void MainDialog::CmTrackMonitorToggle(int track) {
  TDTrack* t = Project.Tracks.GetTrack(track);
  if (!t) return;
  if (Engine.IsRecording()) {
    View.Alert(
        "You can't change the monitoring state of a track if recording is in progress. Please stop recording first, "
        "then click the monitor button.",
        "");
    return;
  }
  if (!t->bMonitor) {
    for (int i = 0; i < Project.Tracks.GetTrackCount(); ++i) {
      const TDTrack* other = Project.Tracks.GetTrack(i);
      if (i != track && other && other->bMonitor) {
        View.Alert(
            "You can only monitor one track at a time. Please turn off monitoring on other tracks first.",
            "Monitoring Not Available");
        return;
      }
    }
  }
  const bool wasPlaying = Engine.IsPlaying();
  if (wasPlaying) Engine.Stop();
  t->bMonitor = !t->bMonitor;
  // Monitoring routes the input into the mix; playback picks it up when it
  // starts again.
  if (wasPlaying) Engine.Restart();
  View.UITrackChangeApply(track);
  SetProjectDirty();
}

void MainDialog::CmTrackSetVolume(int track, int dB) {
  const TDTrack* t = Project.Tracks.GetTrack(track);
  if (!t) return;
  dB = std::clamp(dB, kMinTrackDB, kMaxTrackDB);
  if (t->PannedVolume.fCentre == static_cast<float>(dB)) return;
  Project.Tracks.SetTrackVolume(track, static_cast<float>(dB));
  RestartIfPlaying();
  View.UITrackChangeApply(track);
  // A moving fader makes one undo step, set a moment after it stops.
  SetProjectDirty();
  Loop.SetTimer(TIMER_VOLUME_UNDO, kFaderUndoDelayMs);
}

void MainDialog::CmTrackSetPan(int track, int position) {
  const TDTrack* t = Project.Tracks.GetTrack(track);
  if (!t) return;
  position = std::clamp(position, 0, 100);
  const double pan = position < 50 ? (50 - position) * 0.02 : position > 50 ? (position - 50) * -0.02 : 0.0;
  if (t->PannedVolume.dPan == pan) return;
  Project.Tracks.SetTrackPan(track, pan);
  RestartIfPlaying();
  View.UITrackChangeApply(track);
  SetProjectDirty();
  Loop.SetTimer(TIMER_PAN_UNDO, kFaderUndoDelayMs);
}

void MainDialog::prntfTrackVolumeChanged(int track) { View.UITrackChangeApply(track); }

void MainDialog::SetCollapsed(int track, bool collapsed) {
  TDTrack* t = Project.Tracks.GetTrack(track);
  if (!t || t->bCollapsed == collapsed) return;
  // How a track is drawn is saved with the project but is no edit of the
  // sound, so it dirties the project without an undo step.
  t->bCollapsed = collapsed;
  View.UITrackChangeApply(track);
  SetProjectDirty();
}

void MainDialog::CmTrackCollapse(int track) { SetCollapsed(track, true); }
void MainDialog::CmTrackExpand(int track) { SetCollapsed(track, false); }

void MainDialog::CmTrackCollapseAll() {
  for (int i = 0; i < Project.Tracks.GetTrackCount(); ++i) SetCollapsed(i, true);
}

void MainDialog::CmTrackExpandAll() {
  for (int i = 0; i < Project.Tracks.GetTrackCount(); ++i) SetCollapsed(i, false);
}

// The selection of tracks is the current track until the timeline brings
// multi-track selection.
void MainDialog::CmTrackCollapseSelected() { SetCollapsed(CurrentTrack(), true); }
void MainDialog::CmTrackExpandSelected() { SetCollapsed(CurrentTrack(), false); }

void MainDialog::CmTrackSelect(int track) {
  const int before = CurrentTrack();
  if (!Project.Tracks.IsTrackValid(track) || track == before) return;
  Project.Tracks.SetCurrentTrackIndex(track);
  View.UITrackChangeApply(before);
  View.UITrackChangeApply(track);
}

void MainDialog::CmTrackSelectFirst() { CmTrackSelect(0); }
void MainDialog::CmTrackSelectLast() { CmTrackSelect(Project.Tracks.GetTrackCount() - 1); }
void MainDialog::CmSelectNextTrack() { CmTrackSelect(CurrentTrack() + 1); }
void MainDialog::CmSelectPrevTrack() { CmTrackSelect(CurrentTrack() - 1); }
