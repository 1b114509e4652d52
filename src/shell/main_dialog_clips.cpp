// The clip and take commands of the controller.
#include <algorithm>
#include <climits>
#include <cstdio>

#include "project/clip_audio.h"
#include "project/cut_list_load_save.h"
#include "shell/gen_source_open.h"
#include "shell/commands.h"
#include "shell/main_dialog.h"
#include "shell/user_settings.h"

namespace {

constexpr char kLockedEdit[] =
    "Tandrel can't perform this action while the clip is locked. Please unlock the clip first.";
constexpr char kNoFadeTarget[] =
    "Please select the region of a clip you want to fade, or put the cursor over a selected clip.";

// Clears what a line does over start..end (ms from the clip's start): its points
// there go, and an end of the line that lies there returns to unity (the centre,
// for pan), so that nothing is left shaping the sound in that stretch. False when
// that changed nothing.
bool ClearFadeRange(TDClip& clip, LSoundTime start, LSoundTime end, FadeType type) {
  clip.SortFadePoints(type);
  TDClipFadePoints const before = clip.GetFadeListByType(type);
  clip.DeleteFadePoints(start, end, type);
  TDClipFadePoints& list = clip.GetFadeListByType(type);
  if (!list.empty()) {
    for (TDClipFadePoint* edge : {&list.front(), &list.back()}) {
      if (edge->iPosition >= start && edge->iPosition <= end) edge->dValue = 0.0;
    }
  }
  return list != before;
}

}  // namespace

// ---------------------------------------------------------------------------
// Common ground

void MainDialog::ClipsEdited(const std::string& undoName) {
  RestartIfPlaying();
  View.UIClipsApply();
  SetUndoPoint(undoName);
}

std::vector<TDClip*> MainDialog::SelectedClips() const {
  std::vector<TDClip*> out;
  for (auto const& c : Project.Clips.GetClips()) {
    if (c->bSelected) out.push_back(c.get());
  }
  return out;
}

bool MainDialog::DisallowIfLocked() {
  if (!Project.Clips.HasClipsSelectedAndLocked()) return false;
  View.InfoBar(kLockedEdit);
  View.FlashLockedClips();
  return true;
}

void MainDialog::SayClipLocked() {
  View.InfoBar(kLockedEdit);
  View.FlashLockedClips();
}

// ---------------------------------------------------------------------------
// Opening files as clips

bool MainDialog::AddClip(const std::string& path) {
  if (Engine.IsRecording()) {
    View.Alert("Tandrel can't open clips when it is recording. Please stop recording, then try loading clips.", "");
    return false;
  }
  if (Project.Tracks.GetTrackCount() == 0) {
    View.Alert("The current project has no tracks. Please add a track before adding a clip.", "Could not add clip");
    return false;
  }
  // Every format opens the one way; a failure is an alert that says why, over the
  // window, and nothing is added.
  LCutListAudio list;
  bool opened = false;
  LProcessResult const r = View.RunModalJob("Loading clip...", [&](LProcessInterface& pi) {
    LSoundSource source;
    LGenSourceOpenInterfaceGUI face(View, pi);
    LProcessResult const open = ProcessGenSourceOpenSource(source, path.c_str(), face);
    if (open != LProcessFinished) return open;
    opened = true;
    LCutListAudioLoadSource job{"Loading clip...", &list, source};
    return Process(pi, job);
  });
  if (!opened) return false;
  if (r == LProcessStopped) return false;  // the part written goes with the list
  if (r != LProcessFinished || list.IsEmpty()) {
    std::string const why = list.GetErrorText().empty() ? "Tandrel could not read the audio of \"" + path + "\"."
                                                        : list.GetErrorText();
    View.Alert(why, "Could not add clip");
    return false;
  }
  auto clip = std::make_unique<TDClipAudio>(list);
  if (Project.AddClipFinalise(std::move(clip), path, CurrentTrack(), iCursor) == nullptr) return false;
  ClipsEdited("Add Clip");
  return true;
}

void MainDialog::CmClipOpen(const std::string& path) { AddClip(path); }

// ---------------------------------------------------------------------------
// Deleting

void MainDialog::CmClipDelete() {
  if (Engine.IsRecording()) {
    View.Alert("Tandrel can't delete clips when it is recording. Please stop recording, then try deleting the clips.",
               "");
    return;
  }
  std::vector<TDClip*> const selected = SelectedClips();
  if (selected.empty()) return;
  for (TDClip* c : selected) {
    if (c->bLocked) {
      View.Alert("The Clip " + c->GetTitle() + " is locked. Please unlock it before deleting.", "");
      View.FlashLockedClips();
      return;
    }
  }
  if (LUserSettingGet("Settings", "bWarnClipDelete", true)) {
    bool dontAsk = false;
    int const answer = View.Ask("Are you sure you want to delete this clip from the current project?",
                                "Confirm Delete", {"Yes", "No"}, "Please do not show this message in future", &dontAsk);
    if (answer != 0) return;
    if (dontAsk) LUserSettingSet("Settings", "bWarnClipDelete", false);
  }
  for (TDClip* c : selected) {
    if (Project.Clips.GetNumTakesInGroup(c->uTakeGroupId) > 1) {
      int const answer =
          View.Ask("This clip contains multiple takes. Do you want to delete the current take, or all takes?", "",
                   {"Delete the current take", "Cancel", "Delete all takes"});
      if (answer == 0) {
        Project.Clips.DeleteOneClipInTakeGroup(c);
      } else if (answer == 2) {
        Project.Clips.DeleteAllClipsInTakeGroup(c);
      }
      continue;
    }
    Project.Clips.DeleteClip(c);
  }
  // Playing nothing at all is a stop, not a restart.
  if (Engine.IsPlaying() && Project.Clips.IsEmpty()) Engine.Stop();
  ClipsEdited("Delete Clip");
}

// ---------------------------------------------------------------------------
// Splitting and joining

void MainDialog::SplitAudioTakesAndAddToProject(TDClip& take, LSoundTime at) {
  std::uint32_t const group = static_cast<std::uint32_t>(Project.GetNewTakeGroupId());
  for (TDClip* t : Project.Clips.GetTakesInGroup(take.uTakeGroupId)) {
    auto* audio = dynamic_cast<TDClipAudio*>(t);
    if (audio == nullptr) continue;
    std::unique_ptr<TDClipAudio> right = audio->Split(at);
    if (!right) continue;
    right->iPosition = at;
    right->uTakeGroupId = group;
    right->bSelected = false;
    right->uClipId = TDClipID::GetNewId();
    Project.Clips.AddClip(std::move(right));
  }
}

void MainDialog::CmClipSplit() {
  std::vector<TDClip*> const selected = SelectedClips();
  if (selected.empty()) {
    View.Alert("Please select one or more clips to split.", "Select Clip");
    return;
  }
  std::vector<TDClip*> under;
  for (TDClip* c : selected) {
    if (!c->bLocked && c->iPosition < iCursor && iCursor < c->GetEndTime()) under.push_back(c);
  }
  if (under.empty()) {
    View.Alert(
        "The project cursor is not over any selected, unlocked clips. To split, make sure your clip is unlocked and "
        "that the cursor is in the right position.",
        "No Clips To Split");
    return;
  }
  std::vector<std::uint32_t> groupsDone;
  for (TDClip* c : under) {
    if (c->IsTake()) {
      // A take group splits as one: the left parts keep the group, the right
      // parts make a new one.
      if (std::find(groupsDone.begin(), groupsDone.end(), c->uTakeGroupId) != groupsDone.end()) continue;
      groupsDone.push_back(c->uTakeGroupId);
      SplitAudioTakesAndAddToProject(*c, iCursor);
      continue;
    }
    auto* audio = dynamic_cast<TDClipAudio*>(c);
    if (audio == nullptr) continue;
    std::unique_ptr<TDClipAudio> right = audio->Split(iCursor);
    if (!right) continue;
    right->iPosition = iCursor;
    right->uClipId = TDClipID::GetNewId();
    Project.Clips.AddClip(std::move(right));
  }
  ClipsEdited("Split Clip");
}

void MainDialog::CmClipJoin() {
  std::vector<TDClip*> const selected = SelectedClips();
  bool const anyMidi = std::any_of(selected.begin(), selected.end(), [](TDClip* c) { return c->IsMidi(); });
  bool const anyAudio = std::any_of(selected.begin(), selected.end(), [](TDClip* c) { return !c->IsMidi(); });
  if (anyMidi && anyAudio) {
    View.Alert("Can't join MIDI clips with audio clips. Please select the same kind of clips.", "");
    return;
  }
  if (selected.size() < 2) {
    View.Alert("Please select two or more clips you want to join.", "Join Clips Error");
    return;
  }
  if (std::any_of(selected.begin(), selected.end(), [](TDClip* c) { return c->IsTake(); })) {
    View.Alert("You are trying to join multiple take clips. Please delete unneeded takes and try again.", "Join Clips");
    return;
  }
  if (DisallowIfLocked()) return;
  // In order of time into the first; a gap between two clips becomes silence so
  // that everything keeps its place.
  auto* first = dynamic_cast<TDClipAudio*>(selected.front());
  if (first == nullptr) return;
  int const rate = first->GetSampleRate();
  int const channels = first->GetChansRequired();
  for (std::size_t i = 1; i < selected.size(); ++i) {
    auto* next = dynamic_cast<TDClipAudio*>(selected[i]);
    if (next == nullptr) continue;
    if (next->GetSampleRate() != rate || next->GetChansRequired() != channels) {
      LProcessResult const r = View.RunModalJob("Changing rate and channels", [&](LProcessInterface& pi) {
        return next->ConvertRateAndChannel(pi, rate, channels);
      });
      if (r != LProcessFinished) return;
    }
    LSoundTime const gap = next->iPosition - first->GetEndTime();
    if (gap > 0) {
      LCutListAudio silence = first->GetCutListAudio();
      silence.Clear();
      silence.EfInsertSilence(0, TDTimeToFrames(gap, rate));
      TDClipAudio pause(silence);
      first->Join(pause, false);
    }
    first->Join(*next, false);
    Project.Clips.DeleteClip(next);
  }
  Project.ResetEnd();
  ClipsEdited("Join Clips");
}

// ---------------------------------------------------------------------------
// Fades

std::vector<MainDialog::FadeTarget> MainDialog::FadeTargets(FadeTarget (*withoutRegion)(TDClip&, LSoundTime)) const {
  std::vector<FadeTarget> out;
  TDEditRegion const& region = Project.GetEditRegion();
  if (region.iStart != region.iEnd) {
    LSoundTime const start = std::min(region.iStart, region.iEnd);
    LSoundTime const end = std::max(region.iStart, region.iEnd);
    for (auto const& c : Project.Clips.GetClips()) {
      if (!Project.IsClipInEditRegion(*c)) continue;
      LSoundTime const from = std::max(start, c->iPosition) - c->iPosition;
      LSoundTime const to = std::min(end, c->GetEndTime()) - c->iPosition;
      // A clip that only touches the region has nothing of it to fade.
      if (from < to) out.push_back({c.get(), from, to});
    }
    return out;
  }
  for (TDClip* c : SelectedClips()) {
    FadeTarget const t = withoutRegion(*c, iCursor);
    if (t.pClip != nullptr && t.iStart < t.iEnd) out.push_back(t);
  }
  return out;
}

bool MainDialog::DisallowIfLocked(std::vector<FadeTarget> const& targets) {
  if (std::none_of(targets.begin(), targets.end(), [](FadeTarget const& t) { return t.pClip->bLocked; })) {
    return false;
  }
  View.InfoBar(kLockedEdit);
  View.FlashLockedClips();
  return true;
}

void MainDialog::FadeCommand(bool fadeIn) {
  // Without a region the cursor splits a selected clip it stands over into the
  // part that fades and the part that keeps its level.
  auto const head = [](TDClip& c, LSoundTime cursor) -> FadeTarget {
    if (cursor <= c.iPosition || cursor >= c.GetEndTime()) return {};
    return {&c, 0, cursor - c.iPosition};
  };
  auto const tail = [](TDClip& c, LSoundTime cursor) -> FadeTarget {
    if (cursor <= c.iPosition || cursor >= c.GetEndTime()) return {};
    return {&c, cursor - c.iPosition, c.GetEnd()};
  };
  std::vector<FadeTarget> const targets = fadeIn ? FadeTargets(head) : FadeTargets(tail);
  if (targets.empty()) {
    View.Alert(kNoFadeTarget, "Select Region");
    return;
  }
  if (DisallowIfLocked(targets)) return;
  for (FadeTarget const& t : targets) {
    if (fadeIn) {
      t.pClip->FadeInRegion(t.iStart, t.iEnd, FadeTypeVolume);
    } else {
      t.pClip->FadeOutRegion(t.iStart, t.iEnd, FadeTypeVolume);
    }
  }
  ClipsEdited(fadeIn ? "Fade in" : "Fade out");
}

void MainDialog::CmClipFadeIn() { FadeCommand(true); }

void MainDialog::CmClipFadeOut() { FadeCommand(false); }

void MainDialog::CmClipCrossFade() {
  if (DisallowIfLocked()) return;
  if (!Project.CrossFadeClips()) {
    View.Alert("The cross fade could not be applied. Please make sure you have two overlapping clips selected.",
               "Cross fade not completed");
    return;
  }
  ClipsEdited("Clips Crossfaded");
}

void MainDialog::CmClipAddFade() {
  std::vector<TDClip*> const selected = SelectedClips();
  bool const under = std::any_of(selected.begin(), selected.end(), [this](TDClip* c) {
    return c->iPosition < iCursor && iCursor < c->GetEndTime();
  });
  if (!under) {
    View.Alert("Please put the cursor over a selected clip to add a fade point there.", "Add Fade Point");
    return;
  }
  if (DisallowIfLocked()) return;
  // A point that already stands at the cursor is no change.
  if (Project.Clips.AddFadePoint(iCursor) == 0) return;
  ClipsEdited("Fade Point Added");
}

void MainDialog::CmClipDeleteFade() {
  auto const whole = [](TDClip& c, LSoundTime) -> FadeTarget { return {&c, 0, c.GetEnd()}; };
  std::vector<FadeTarget> const targets = FadeTargets(whole);
  if (targets.empty() || DisallowIfLocked(targets)) return;
  bool changed = false;
  for (FadeTarget const& t : targets) {
    changed = ClearFadeRange(*t.pClip, t.iStart, t.iEnd, t.pClip->GetFadeTypeShown()) || changed;
  }
  if (changed) ClipsEdited("Fade Point Deleted");
}

// ---------------------------------------------------------------------------
// Locks, names, restore, base

void MainDialog::CmClipLockToggle() {
  if (SelectedClips().empty()) return;
  Project.Clips.LockToggleSelectedClips();
  View.UIClipsApply();
  SetUndoPoint("Lock Clip");
}

void MainDialog::CmTrackToggleLock() {
  int const track = CurrentTrack();
  TDClip* first = nullptr;
  for (auto const& c : Project.Clips.GetClips()) {
    if (c->iTrackIndex == track) {
      first = c.get();
      break;
    }
  }
  if (first == nullptr) return;
  bool const lock = !first->bLocked;
  for (auto const& c : Project.Clips.GetClips()) {
    if (c->iTrackIndex == track) c->bLocked = lock;
  }
  View.UIClipsApply();
  SetUndoPoint("Lock Track");
}

void MainDialog::CmClipRename(std::uint32_t clipId, const std::string& name) {
  TDClip* clip = Project.Clips.GetClip(clipId);
  if (clip == nullptr || name.empty() || name == clip->szName) return;
  if (clip->bLocked) {
    View.Alert("The clip is locked. Please unlock the clip and try to rename again.", "Rename Error");
    return;
  }
  // The same limit as a track's name: 259 bytes.
  std::string cut = name.substr(0, std::min<std::size_t>(name.size(), 259));
  while (!cut.empty() && cut.size() < name.size() && (static_cast<unsigned char>(name[cut.size()]) & 0xC0) == 0x80) {
    cut.pop_back();
  }
  clip->szName = cut;
  View.UIClipsApply();
  SetUndoPoint("Rename Clip");
}

void MainDialog::CmClipRestore() {
  if (SelectedClips().empty()) return;
  bool allRestored = true;
  LProcessResult const r = View.RunModalJob("Restoring clips", [&](LProcessInterface& pi) {
    allRestored = Project.Clips.RestoreClip(pi);
    return LProcessFinished;
  });
  if (!allRestored) {
    View.Alert("One or more clips could not be restored because they are locked.", "Restore could not be completed.");
  }
  if (r == LProcessFinished) {
    Project.ResetEnd();
    ClipsEdited("Restore Clip");
  }
}

void MainDialog::CmClipSetBase() {
  std::vector<TDClip*> const selected = SelectedClips();
  if (selected.empty() || DisallowIfLocked()) return;
  for (TDClip* c : selected) c->SetAsTrimOrExpandBase();
  ClipsEdited("Set as Trim/Expand base");
}

// ---------------------------------------------------------------------------
// Moving

void MainDialog::MoveSelectedClipsTo(LSoundTime start) {
  std::vector<TDClip*> const selected = SelectedClips();
  if (selected.empty()) return;
  if (Project.Clips.HasClipsSelectedAndLocked()) {
    if (LUserSettingGet("Settings", "LockedClipsMoveWarning", true)) {
      bool dontShow = false;
      View.Ask("Some clips have been locked please unlock them and try again.", "Clips Locked", {"OK"},
               "Please do not show this message in future", &dontShow);
      if (dontShow) LUserSettingSet("Settings", "LockedClipsMoveWarning", false);
    }
    return;
  }
  // The earliest goes to `start`, the others keep their distance to it.
  LSoundTime const delta = start - Project.Clips.GetSelClipMinStartPos();
  if (delta == 0) return;
  Project.Clips.OffsetClipsPosition(delta, 1, 0);
  Project.Clips.AlignAllTakesPosition();
  Project.ResetEnd();
  ClipsEdited("Move Clip");
}

void MainDialog::CmClipMoveToCursor() { MoveSelectedClipsTo(iCursor); }

void MainDialog::CmClipMoveToStart() { MoveSelectedClipsTo(0); }

void MainDialog::CmClipNudge(LSoundTime ms) {
  std::vector<TDClip*> const selected = SelectedClips();
  if (selected.empty() || DisallowIfLocked()) return;
  // None may go before the timeline's start: the group stops together.
  LSoundTime const earliest = Project.Clips.GetSelClipMinStartPos();
  if (earliest + ms < 0) ms = -earliest;
  if (ms == 0) return;
  Project.Clips.OffsetClipsPosition(ms, 1, 0);
  Project.Clips.AlignAllTakesPosition();
  Project.ResetEnd();
  ClipsEdited("Nudge Clip");
}

// ---------------------------------------------------------------------------
// Selection

void MainDialog::EvClipSelect(std::uint32_t clipId, bool add) {
  TDClip* clip = Project.Clips.GetClip(clipId);
  if (clip == nullptr) return;
  if (!add) Project.Clips.DeselectAllClips();
  clip->bSelected = true;
  Project.Tracks.SetCurrentTrackIndex(clip->iTrackIndex);
  View.UIClipsApply();
}

void MainDialog::CmClipSelectAll() {
  Project.Clips.SelectAllClips();
  View.UIClipsApply();
}

void MainDialog::CmClipSelectNext() {
  // The clip after the selected one on the current track, or its first clip.
  auto const& clips = Project.Clips.GetClips();
  int const track = CurrentTrack();
  TDClip* from = nullptr;
  for (auto const& c : clips) {
    if (c->bSelected && c->iTrackIndex == track) from = c.get();
  }
  TDClip* next = nullptr;
  bool past = from == nullptr;
  for (auto const& c : clips) {
    if (c->iTrackIndex != track) continue;
    if (past) {
      next = c.get();
      break;
    }
    past = c.get() == from;
  }
  if (next == nullptr) return;
  EvClipSelect(next->uClipId, false);
}

void MainDialog::CmClipSelectPrev() {
  auto const& clips = Project.Clips.GetClips();
  int const track = CurrentTrack();
  TDClip* from = nullptr;
  for (auto const& c : clips) {
    if (c->bSelected && c->iTrackIndex == track) {
      from = c.get();
      break;
    }
  }
  TDClip* prev = nullptr;
  for (auto const& c : clips) {
    if (c->iTrackIndex != track) continue;
    if (c.get() == from) break;
    prev = c.get();
  }
  if (from == nullptr) {
    // Nothing selected on the track: its last clip.
    for (auto const& c : clips) {
      if (c->iTrackIndex == track) prev = c.get();
    }
  }
  if (prev == nullptr) return;
  EvClipSelect(prev->uClipId, false);
}

// ---------------------------------------------------------------------------
// Takes

TDClip* MainDialog::TakeForCommand() const {
  TDClip* clip = Project.Clips.GetClip(uTakeMenuClip);
  if (clip != nullptr && clip->IsTake()) return clip;
  for (TDClip* c : SelectedClips()) {
    if (c->IsTake()) return c;
  }
  return nullptr;
}

void MainDialog::CmChooseNextTake() {
  std::vector<std::uint32_t> done;
  bool changed = false;
  for (TDClip* c : SelectedClips()) {
    if (!c->IsTake() || !c->bActiveTake) continue;
    if (std::find(done.begin(), done.end(), c->uTakeGroupId) != done.end()) continue;
    done.push_back(c->uTakeGroupId);
    TDClip* next = Project.Clips.GetNextClipTake(*c);
    if (next == nullptr || next == c) continue;
    changed = Project.Clips.SelectTakeByTakeId(next->iTakeNumber, *c) || changed;
  }
  if (changed) ClipsEdited("Choose Take");
}

void MainDialog::CmChoosePrevTake() {
  std::vector<std::uint32_t> done;
  bool changed = false;
  for (TDClip* c : SelectedClips()) {
    if (!c->IsTake() || !c->bActiveTake) continue;
    if (std::find(done.begin(), done.end(), c->uTakeGroupId) != done.end()) continue;
    done.push_back(c->uTakeGroupId);
    TDClip* prev = Project.Clips.GetPrevClipTake(*c);
    if (prev == nullptr || prev == c) continue;
    changed = Project.Clips.SelectTakeByTakeId(prev->iTakeNumber, *c) || changed;
  }
  if (changed) ClipsEdited("Choose Take");
}

void MainDialog::CmUseTake(int number) {
  TDClip* take = TakeForCommand();
  if (take == nullptr) return;
  if (Project.Clips.SelectTakeByTakeId(number, *take)) ClipsEdited("Choose Take");
}

void MainDialog::CmDeleteActiveTake() {
  TDClip* take = TakeForCommand();
  if (take == nullptr) return;
  Project.Clips.DeleteOneClipInTakeGroup(take);
  uTakeMenuClip = 0xFFFFFFFFu;
  ClipsEdited("Delete Active Take");
}

void MainDialog::CmDeleteNoActiveTakes() {
  TDClip* keep = TakeForCommand();
  if (keep == nullptr) return;
  for (TDClip* t : Project.Clips.GetTakesInGroup(keep->uTakeGroupId)) {
    if (t != keep) Project.Clips.DeleteClip(t);
  }
  keep->uTakeGroupId = 0;
  keep->iTakeNumber = 0;
  keep->bActiveTake = true;
  ClipsEdited("Delete All Other Takes");
}

void MainDialog::CmExpandTakes() {
  if (Engine.IsRecording()) {
    View.Alert("Please stop recording before expanding takes.", "");
    return;
  }
  TDClip* take = TakeForCommand();
  if (take == nullptr) return;
  std::vector<TDClip*> const takes = Project.Clips.GetTakesInGroup(take->uTakeGroupId);
  int const first = take->iTrackIndex;
  int const count = static_cast<int>(takes.size());
  if (first + count > kMaxTracks - 1) {
    View.Alert("Only 250 tracks supported.", "Warning");
    return;
  }
  while (Project.Tracks.GetTrackCount() < first + count) {
    TDTrack* added = Project.AddTrackAfter(Project.Tracks.GetTrackCount() - 1);
    if (added == nullptr) break;
    View.UITrackAddApply(added->iIndex);
  }
  int const tracks = Project.Tracks.GetTrackCount();
  for (int n = 0; n < count; ++n) {
    TDClip* t = takes[static_cast<std::size_t>(n)];
    int const index = (first + n) % tracks;
    t->BindTrack(Project.Tracks.GetTrack(index), index);
    t->szName = t->szName + " (" + std::to_string(t->iTakeNumber) + ")";
    t->uTakeGroupId = 0;
    t->iTakeNumber = 0;
    t->bActiveTake = true;
  }
  uTakeMenuClip = 0xFFFFFFFFu;
  ClipsEdited("Expand Takes");
}

std::vector<MainDialog::MenuEntry> MainDialog::GetTakeMenu(std::uint32_t clipId) const {
  std::vector<MenuEntry> menu;
  TDClip const* clip = Project.Clips.GetClip(clipId);
  if (clip == nullptr || !clip->IsTake()) return menu;
  menu.push_back({CM_EXPAND_TAKES, "Expand Takes", false});
  menu.push_back({CM_DELETE_NO_ACTIVE_TAKES, "Delete all other takes", false});
  menu.push_back({CM_DELETE_ACTIVE_TAKE, "Delete Current Take", false});
  menu.push_back({0, std::string(), false});
  for (TDClip const* t : Project.Clips.GetTakesInGroup(clip->uTakeGroupId)) {
    char text[32];
    std::snprintf(text, sizeof text, "Use: Take %2d", t->iTakeNumber);
    menu.push_back({CM_TAKE_FIRST - 1 + t->iTakeNumber, text, t->bActiveTake});
  }
  return menu;
}
