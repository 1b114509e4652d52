#include "sound/sound_engine.h"

// --- LScrub ----------------------------------------------------------------------

bool LScrub::Start(LSoundSource const& source, int point) {
  Clear();
  if (source->IsError()) return false;
  auto* window = new LScrubSourceBase(source, point);
  lss = LSoundSource(window);
  if (lss->IsError()) {
    lss.Close();
    return false;
  }
  pScrubSourceBase = window;
  // A scrub must answer the hand at once: the small ring.
  sp.SetLowLatency(true);
  bScrubbing = sp.Start(lss);
  if (!bScrubbing) Clear();
  return bScrubbing;
}

void LScrub::SetPoint(int point) {
  if (!bScrubbing || !pScrubSourceBase) return;
  // Frames of the window are device frames only when no rate conversion stands
  // between; the player converts a scrub like any source, so the point is given in
  // the mix's frames and the window lives there.
  LLockObjectHold hold(sp.GetSuspendLock());
  pScrubSourceBase->SetPoint(point);
  LSoundPlayerLLCA& spll = sp.GetDeviceLayer();
  spll.ResyncStart(true);
  // Seeking the top of the chain in place flushes what a rate converter above the
  // window still holds of the old spot.
  sp.GetSoundSource()->Seek(sp.GetSoundSource()->GetPositionSample());
  spll.ResyncBuffer(true);
  spll.ResyncFinish();
}

void LScrub::SetSoundSource(LSoundSource const& source) {
  if (!bScrubbing || !pScrubSourceBase || source->IsError()) return;
  LLockObjectHold hold(sp.GetSuspendLock());
  pScrubSourceBase->SetSource(source);
}

void LScrub::Clear() {
  if (bScrubbing) sp.Stop();
  bScrubbing = false;
  pScrubSourceBase = nullptr;
  lss.Close();
  sp.SetLowLatency(false);
}

// --- TDSoundEngine -----------------------------------------------------------------

TDSoundEngine::TDSoundEngine(TDSoundSourceOpener& opener) : rOpener(opener) {
  sp.SetNotify(this, TDEngine::SoundPlayer);
  rOpener.SetTracksDBHistory(&TracksDBHistory);
}

TDSoundEngine::~TDSoundEngine() {
  rOpener.SetTracksDBHistory(nullptr);
  sp.SetNotify(nullptr, 0);
  spScrub.Clear();
  sp.Stop();
}

LSoundSource TDSoundEngine::OpenAt(LSoundTime time, bool scrubbing) {
  LSoundSource source = rOpener.OpenProjectSource(time, scrubbing);
  if (source->IsError()) return source;
  source->Seek(static_cast<int>(LSoundTimeToFrames(time, source->GetSampleRate())));
  return source;
}

bool TDSoundEngine::Play(LSoundTime time, unsigned short mode) {
  Stop();
  stPlayStart = time;
  stLastSoundPlayerTime = time;
  LSoundSource source = OpenAt(time, false);
  if (source->IsError()) return false;
  return sp.Start(source, mode);
}

void TDSoundEngine::Stop() {
  // The last tick may be a thirtieth of a second old: a stop by hand leaves the
  // cursor where the sound really was.
  if (sp.IsPlaying() && !spScrub.IsScrubbing()) stLastSoundPlayerTime = sp.GetPositionTime();
  spScrub.Clear();
  sp.Stop();
  ClearTracksDBHistory();
}

bool TDSoundEngine::Restart() {
  if (!sp.IsPlaying()) return false;
  LSoundTime const now = GetCurrentPlayingTime();
  LSoundSource source = rOpener.OpenProjectSource(now, spScrub.IsScrubbing());
  if (source->IsError()) return false;
  bool ok = true;
  if (spScrub.IsScrubbing()) {
    spScrub.SetSoundSource(source);
  } else {
    // The player seeks it to where the old one stood; the time only says which mix.
    ok = sp.ReplaceSource(source);
  }
  ClearTracksDBHistory();
  return ok;
}

bool TDSoundEngine::Restart(LSoundTime time) {
  if (!sp.IsPlaying() || spScrub.IsScrubbing()) return false;
  LSoundSource source = rOpener.OpenProjectSource(time, false);
  if (source->IsError()) return false;
  stPlayStart = time;
  bool const ok = sp.JumpTo(source, time);
  ClearTracksDBHistory();
  return ok;
}

bool TDSoundEngine::Scrub(LSoundTime time) {
  stScrubPosition = time;
  if (spScrub.IsScrubbing()) {
    SetScrubPoint(time);
    return true;
  }
  Stop();
  LSoundSource source = OpenAt(time, true);
  if (source->IsError()) return false;
  return spScrub.Start(source, static_cast<int>(LSoundTimeToFrames(time, source->GetSampleRate())));
}

void TDSoundEngine::StopScrub() {
  if (spScrub.IsScrubbing()) spScrub.Clear();
}

void TDSoundEngine::SetScrubPoint(LSoundTime time) {
  stScrubPosition = time;
  if (!spScrub.IsScrubbing()) return;
  LScrubSourceBase* window = spScrub.GetScrubSource();
  spScrub.SetPoint(static_cast<int>(LSoundTimeToFrames(time, window->GetSampleRate())));
}

void TDSoundEngine::SetSoundPlayDevice(LSoundPlayDevice const& device) {
  if (device == sp.GetDeviceLayer().GetDevice()) return;
  if (!sp.IsPlaying() || spScrub.IsScrubbing()) {
    bool const scrubbing = spScrub.IsScrubbing();
    Stop();
    sp.GetDeviceLayer().SetDevice(device);
    if (scrubbing) Scrub(stScrubPosition);
    return;
  }
  // Another device may run at another rate: the play starts again there.
  LSoundTime const now = GetCurrentPlayingTime();
  LSoundPlayerNotify* const notify = pPlayerNotify;
  pPlayerNotify = nullptr;  // for the owner the play goes on
  sp.Stop();
  sp.GetDeviceLayer().SetDevice(device);
  LSoundSource source = OpenAt(now, false);
  bool const ok = !source->IsError() && sp.Start(source);
  pPlayerNotify = notify;
  if (!ok && pPlayerNotify) pPlayerNotify->spntfStop(TDEngine::SoundPlayer);
}

LSoundTime TDSoundEngine::GetCurrentPlayingTime() {
  if (!sp.IsPlaying()) return stLastSoundPlayerTime;
  return sp.GetPositionTime();
}

void TDSoundEngine::spntfPlay(long user) {
  if (pPlayerNotify) pPlayerNotify->spntfPlay(user);
}

void TDSoundEngine::spntfStop(long user) {
  ClearTracksDBHistory();
  if (pPlayerNotify) pPlayerNotify->spntfStop(user);
}

void TDSoundEngine::spntfTime(LSoundTime time, long user) {
  if (spScrub.IsScrubbing()) time = stScrubPosition;
  stLastSoundPlayerTime = time;
  if (pPlayerNotify) pPlayerNotify->spntfTime(time, user);
}

void TDSoundEngine::spntfLevel(LDBMultiChannel<LdB<signed char>> const& levels, long user) {
  if (pPlayerNotify) pPlayerNotify->spntfLevel(levels, user);
}

// --- TDEngine -----------------------------------------------------------------------

TDEngine::TDEngine(TDSoundSourceOpener& opener) : mpSoundEngine(opener) {
  mpSoundEngine.SetPlayerNotify(this);
}

bool TDEngine::Play(LSoundTime time) {
  stRestartTime = time;
  stStopPosition = time;
  bJumped = false;
  bDeviceLost = false;
  bStopping = true;  // the stop of what played before is ours
  bStarting = true;
  bToldStop = false;
  bool const ok = mpSoundEngine.Play(time);
  bStarting = false;
  bStopping = false;
  // What played before has stopped and nothing took its place.
  if (!ok && bToldStop && pSoundPlayerNotify) pSoundPlayerNotify->spntfStop(SoundPlayer);
  return ok;
}

void TDEngine::Stop() {
  bStopping = true;
  mpSoundEngine.Stop();
  bStopping = false;
}

bool TDEngine::Restart() {
  return mpSoundEngine.Restart();
}

bool TDEngine::Restart(LSoundTime time) {
  stRestartTime = time;
  bJumped = true;
  return mpSoundEngine.Restart(time);
}

bool TDEngine::IsNotifierActive(NotifierType type) const {
  switch (type) {
    case SoundPlayer: return mpSoundEngine.IsPlaying() || mpSoundEngine.IsScrubbing();
    case SoundRecorder: return false;
    case MidiPlayer: return IsMidiPlaying();
    case MidiRecorder: return false;
  }
  return false;
}

void TDEngine::ApplyTime(NotifierType type, int ms) {
  bool pass = false;
  switch (type) {
    case SoundPlayer: pass = !IsNotifierActive(SoundRecorder); break;
    case SoundRecorder: pass = true; break;
    case MidiPlayer:
      pass = !IsNotifierActive(SoundPlayer) && !IsNotifierActive(SoundRecorder) && !IsNotifierActive(MidiRecorder);
      break;
    case MidiRecorder: pass = !IsNotifierActive(SoundRecorder) && !IsNotifierActive(SoundPlayer); break;
  }
  if (pass && pSoundPlayerNotify) pSoundPlayerNotify->spntfTime(ms, type);
}

void TDEngine::spntfPlay(long user) {
  if (pSoundPlayerNotify) pSoundPlayerNotify->spntfPlay(user);
}

void TDEngine::spntfStop(long user) {
  if (bStarting) {
    bToldStop = true;
    return;
  }
  LSoundTime const last = mpSoundEngine.GetLastTime();
  LSoundTime const start = mpSoundEngine.GetPlayStart();
  bDeviceLost = mpSoundEngine.IsDeviceLost();
  bool const shortPlay = !bStopping && !bJumped && !bDeviceLost && last - start < ShortPlayMs;
  stStopPosition = shortPlay ? 0 : last;
  if (pSoundPlayerNotify) pSoundPlayerNotify->spntfStop(user);
}

void TDEngine::spntfTime(LSoundTime time, long) {
  ApplyTime(SoundPlayer, time);
}

void TDEngine::spntfLevel(LDBMultiChannel<LdB<signed char>> const& levels, long user) {
  if (pSoundPlayerNotify) pSoundPlayerNotify->spntfLevel(levels, user);
}
