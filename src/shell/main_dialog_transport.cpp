// The transport's commands: what a play starts from, what stops it, where the
// cursor goes then, and the motions (winding, scrubbing, the jog wheel).
#include <algorithm>

#include "shell/main_dialog.h"

namespace {

constexpr char kCannotPlay[] = "Cannot open sound device for playing.";

}  // namespace

void MainDialog::TransportChanged() { View.UITransportApply(); }

void MainDialog::PrepareToPlay() {
  Project.Clips.AlignAllTakesPosition();
  TDWorkRegionInfo& region = Project.WorkRegion;
  // A loop wholly past the last clip would play nothing but silence.
  if (!region.IsEmpty() && region.GetStart() >= Project.Clips.GetPlayableClipsEnd()) region.Clear();
}

// ---------------------------------------------------------------------------
// Play and stop

void MainDialog::CmPlayStop() {
  if (Engine.IsRecording()) return;
  if (Engine.IsPlaying() || Engine.IsScrubbing() || iWind != 0) {
    CmStop();
    return;
  }
  CmPlay();
}

void MainDialog::CmPlay() {
  if (Project.Clips.IsEmpty() || Engine.IsRecording()) return;
  if (Engine.IsScrubbing()) StopScrubbing();
  PrepareToPlay();
  LSoundTime start = iCursor;
  if (Engine.IsPlaying() && iWind == 0) {
    // Again from where this play began.
    start = stPlayReturn;
  } else if (Project.WorkRegion.IsEmpty() && start >= Project.Clips.GetPlayableClipsEnd() - 3) {
    // At the end already: play the song again rather than nothing.
    start = 0;
  }
  CmPlay(start);
}

void MainDialog::CmPlayFromCursor() {
  if (Project.Clips.IsEmpty() || Engine.IsRecording()) return;
  if (Engine.IsScrubbing()) StopScrubbing();
  PrepareToPlay();
  CmPlay(iCursor);
}

void MainDialog::CmPlay(LSoundTime time) {
  if (Project.Clips.IsEmpty() || Engine.IsRecording()) return;
  if (iWind != 0) {
    // A play ends the winding where it is and starts anew.
    Loop.KillTimer(TIMER_WIND);
    Loop.KillTimer(TIMER_WIND_END);
    iWind = 0;
  }
  if (Engine.IsScrubbing()) StopScrubbing();
  TDWorkRegionInfo const& region = Project.WorkRegion;
  // A moment before the loop's end there is nothing left to hear: its start.
  if (!region.IsEmpty() && time >= region.GetEnd() - kLoopEndSnapMs && time <= region.GetEnd()) {
    time = region.GetStart();
  }
  time = std::max<LSoundTime>(time, 0);
  int const rate = Project.PreferSampleRate.GetPreferredSampleRate();
  LSoundTime const until = std::max(region.IsEmpty() ? 0 : region.GetEnd(), Project.Clips.GetPlayableClipsEnd());
  Project.Metronome.SetMetronomeBoundary(static_cast<std::int32_t>(LSoundTimeToFrames(time, rate)),
                                         static_cast<std::int32_t>(LSoundTimeToFrames(until, rate)));
  bPaused = false;
  stPlayReturn = time;
  stPlayPosition = time;
  // While playing the device goes on and the new place fades in; a jump that
  // cannot be made starts the play anew.
  bool const ok = (Engine.IsPlaying() && Engine.Jump(time)) || Engine.Play(time);
  if (!ok) View.Alert(kCannotPlay, "");
  TransportChanged();
}

void MainDialog::CmPause() {
  if (Engine.IsRecording()) return;
  if (Engine.IsPlaying()) {
    if (iWind != 0) {
      Loop.KillTimer(TIMER_WIND);
      Loop.KillTimer(TIMER_WIND_END);
      iWind = 0;
    }
    // The stop leaves the cursor where the sound was; the next play goes on there.
    bPaused = true;
    Engine.Stop();
    TransportChanged();
    return;
  }
  if (bPaused) CmPlayFromCursor();
}

void MainDialog::CmStop() {
  if (Engine.IsRecording()) return;
  Loop.KillTimer(TIMER_WIND);
  Loop.KillTimer(TIMER_WIND_END);
  Loop.KillTimer(TIMER_SCRUB_REWIND);
  Loop.KillTimer(TIMER_SCRUB_FAST_FORWARD);
  iWind = 0;
  bScrubByKey = false;
  bPaused = false;
  if (Engine.IsPlaying() || Engine.IsScrubbing()) Engine.Stop();
  TransportChanged();
}

void MainDialog::CmStopAndReturn() {
  if (Engine.IsRecording()) return;
  bReturnOnStop = true;
  CmStop();
  // Nothing played: the stop told nothing, and the cursor goes back here.
  if (bReturnOnStop) {
    bReturnOnStop = false;
    SetCursorPosition(stPlayReturn);
    View.UIClipsApply();
  }
}

void MainDialog::CmGoToStart() {
  if (Engine.IsRecording()) return;
  StopWinding();
  SetCursorPosition(0);
  if (Engine.IsScrubbing()) {
    stScrubPoint = 0;
    Engine.Scrub(0);
  } else if (Engine.IsPlaying()) {
    stPlayReturn = 0;
    if (!Engine.Jump(0)) CmPlay(0);
  }
  View.UIClipsApply();
}

void MainDialog::CmGoToEnd() {
  if (Engine.IsRecording()) return;
  LSoundTime const end = Project.Clips.GetPlayableClipsEnd();
  // Past the end nothing is left to play.
  if (Engine.IsPlaying() || Engine.IsScrubbing() || iWind != 0) CmStop();
  SetCursorPosition(end);
  View.UIClipsApply();
}

// ---------------------------------------------------------------------------
// Winding. The player has no speed stage yet, so winding is a run of jumps: a
// tick plays kWindTickMs and then moves the play on by a step, which the listener
// hears as short stretches of sound at about six times the speed.

void MainDialog::CmRewind() { Wind(-1); }

void MainDialog::CmFastForward() { Wind(1); }

void MainDialog::CmWindEnd() {
  if (iWind != 0) Loop.SetTimer(TIMER_WIND_END, kWindEndMs);
}

void MainDialog::Wind(int direction) {
  if (Engine.IsRecording()) return;
  if (iWind == direction) {
    // A key's repeat: it goes on.
    Loop.KillTimer(TIMER_WIND_END);
    return;
  }
  if (iWind != 0) StopWinding();
  if (Project.Clips.IsEmpty()) return;
  if (Engine.IsScrubbing()) StopScrubbing();
  bWindWasPlaying = Engine.IsPlaying();
  if (!bWindWasPlaying) {
    LSoundTime const from = iCursor;
    bPaused = false;
    if (!Engine.Play(from)) {
      View.Alert(kCannotPlay, "");
      TransportChanged();
      return;
    }
    stPlayReturn = from;
  }
  iWind = direction;
  WindStep();
  if (iWind != 0) Loop.SetTimer(TIMER_WIND, kWindTickMs);
  TransportChanged();
}

void MainDialog::WindStep() {
  if (iWind == 0 || !Engine.IsPlaying()) {
    iWind = 0;
    return;
  }
  LSoundTime const now = Engine.GetPosition();
  LSoundTime const end = Project.Clips.GetPlayableClipsEnd();
  LSoundTime const target = std::clamp<LSoundTime>(iWind > 0 ? now + kWindStepMs : now - kRewindStepMs, 0, end);
  stPlayPosition = target;
  // At the end the play ends by itself, and the stop ends the winding.
  if (!Engine.Jump(target)) {
    StopWinding();
    return;
  }
  // Nothing before the start: winding ends there, and what ran before goes on.
  if (iWind < 0 && target == 0) StopWinding();
}

void MainDialog::StopWinding() {
  Loop.KillTimer(TIMER_WIND);
  Loop.KillTimer(TIMER_WIND_END);
  if (iWind == 0) return;
  iWind = 0;
  // What ran before goes on: a play from here, or nothing, with the cursor here.
  if (!bWindWasPlaying && Engine.IsPlaying()) Engine.Stop();
  TransportChanged();
}

// ---------------------------------------------------------------------------
// Scrubbing

void MainDialog::CmScrub(LSoundTime time) {
  if (Engine.IsRecording()) return;
  if (iWind != 0) {
    Loop.KillTimer(TIMER_WIND);
    Loop.KillTimer(TIMER_WIND_END);
    iWind = 0;
  }
  time = std::clamp<LSoundTime>(time, 0, Project.GetEnd());
  bool const was = Engine.IsScrubbing();
  bPaused = false;
  stScrubPoint = time;
  if (!Engine.Scrub(time) && !was) {
    bScrubByKey = false;
    View.Alert(kCannotPlay, "");
  }
  // After the scrub began: a play it stopped put the cursor where that play was.
  SetCursorPosition(time);
  stPlayPosition = time;
  View.UIClipsApply();
  if (!was) TransportChanged();
}

void MainDialog::CmScrubToggle() {
  if (Engine.IsRecording()) return;
  if (Engine.IsScrubbing()) {
    StopScrubbing();
    return;
  }
  if (Project.Clips.IsEmpty()) return;
  bScrubByKey = false;
  CmScrub(iCursor);
}

void MainDialog::StopScrubbing() {
  Loop.KillTimer(TIMER_SCRUB_REWIND);
  Loop.KillTimer(TIMER_SCRUB_FAST_FORWARD);
  bScrubByKey = false;
  if (!Engine.IsScrubbing()) return;
  Engine.StopScrub();
  TransportChanged();
}

void MainDialog::ScrubStep(int direction) {
  if (!Engine.IsScrubbing()) return;
  CmScrub(stScrubPoint + direction * kScrubStepMs);
}

void MainDialog::CmScrubRewind() { ScrubStep(-1); }

void MainDialog::CmScrubFastForward() { ScrubStep(1); }

// A scrub key held: the spot steps that way on each tick, scrubbing from the cursor
// first when nothing scrubs yet.
void MainDialog::ScrubKeyBegin(int timer, int otherTimer) {
  if (Engine.IsRecording()) return;
  if (!Engine.IsScrubbing()) {
    if (Project.Clips.IsEmpty()) return;
    bScrubByKey = true;
    CmScrub(iCursor);
    if (!Engine.IsScrubbing()) return;
  }
  Loop.KillTimer(TIMER_WIND_END);
  Loop.KillTimer(otherTimer);
  Loop.SetTimer(timer, kScrubTickMs);
}

// The key released: a scrub the key began ends a moment later.
void MainDialog::ScrubKeyEnd(int timer) {
  Loop.KillTimer(timer);
  if (bScrubByKey) Loop.SetTimer(TIMER_WIND_END, kWindEndMs);
}

void MainDialog::CmScrubRewindBegin() { ScrubKeyBegin(TIMER_SCRUB_REWIND, TIMER_SCRUB_FAST_FORWARD); }

void MainDialog::CmScrubFastForwardBegin() { ScrubKeyBegin(TIMER_SCRUB_FAST_FORWARD, TIMER_SCRUB_REWIND); }

void MainDialog::CmScrubRewindEnd() { ScrubKeyEnd(TIMER_SCRUB_REWIND); }

void MainDialog::CmScrubFastForwardEnd() { ScrubKeyEnd(TIMER_SCRUB_FAST_FORWARD); }

void MainDialog::CmJogWheel(int value) {
  if (value == 0 || Engine.IsRecording()) return;
  if (Engine.IsScrubbing()) {
    if (value < 0) {
      CmScrubRewindBegin();
    } else {
      CmScrubFastForwardBegin();
    }
  } else if (value < 0) {
    CmRewind();
  } else {
    CmFastForward();
  }
  // The next event of the wheel restarts this; when it rests, the motion ends.
  if (iWind != 0 || Engine.IsScrubbing()) Loop.SetTimer(TIMER_WIND_END, kJogEndMs);
}

void MainDialog::EndMotion() {
  Loop.KillTimer(TIMER_SCRUB_REWIND);
  Loop.KillTimer(TIMER_SCRUB_FAST_FORWARD);
  StopWinding();
  if (bScrubByKey) StopScrubbing();
}

// ---------------------------------------------------------------------------
// Loop and volume

void MainDialog::CmLoopPlayToggle() {
  Project.bLoopPlay = !Project.bLoopPlay;
  // The playing mix loops or not from now: it is opened anew where it is.
  RestartIfPlaying();
  TransportChanged();
}

void MainDialog::CmAdjustMasterVolume(int dB) {
  iMasterVolume = std::clamp(dB, kMinMasterVolume, kMaxMasterVolume);
  Engine.SetVolume(LdB<signed char>(static_cast<signed char>(iMasterVolume)));
  TransportChanged();
}

// ---------------------------------------------------------------------------
// The transport's notifications

void MainDialog::spntfPlay(long user) {
  if (pPlayerNotify) pPlayerNotify->spntfPlay(user);
  TransportChanged();
}

void MainDialog::spntfStop(long user) {
  // Winding and its keys end with the play they moved.
  Loop.KillTimer(TIMER_WIND);
  iWind = 0;
  LSoundTime const at = bReturnOnStop ? stPlayReturn : Engine.GetStopPosition();
  bReturnOnStop = false;
  SetCursorPosition(at);
  stPlayPosition = iCursor;
  View.UIClipsApply();
  bool const lost = Engine.IsDeviceLost();
  if (lost) bPaused = false;
  if (pPlayerNotify) {
    // The meters fall at once.
    LDBMultiChannel<LdB<signed char>> silence(2);
    silence.SetAll(LdB<signed char>::Silence);
    pPlayerNotify->spntfLevel(silence, user);
    pPlayerNotify->spntfStop(user);
  }
  TransportChanged();
  if (lost) View.Alert(kCannotPlay, "");
}

void MainDialog::spntfTime(LSoundTime time, long user) {
  stPlayPosition = time;
  if (pPlayerNotify) pPlayerNotify->spntfTime(time, user);
}

void MainDialog::spntfLevel(LDBMultiChannel<LdB<signed char>> const& levels, long user) {
  if (pPlayerNotify) pPlayerNotify->spntfLevel(levels, user);
}
