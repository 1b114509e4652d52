#pragma once
#include "foundation/sound_time.h"
#include "sound/device/sound_player_llca.h"
#include "sound/scrub_source.h"
#include "sound/sound_player.h"
#include "sound/tracks_db.h"

using LSoundPlayer = LSoundPlayerTemplate<LSoundPlayerLLCA>;

// What the engine plays: the project's mix, opened at a time. The engine knows no
// project; whoever owns one gives it this.
class TDSoundSourceOpener {
 public:
  virtual ~TDSoundSourceOpener() = default;
  // The mix to play from `time`, not seeked yet (the engine seeks it). With
  // `scrubbing` a source without loops or an end at the selection. A source in error
  // when there is nothing to play.
  virtual LSoundSource OpenProjectSource(LSoundTime time, bool scrubbing) = 0;
  // Where the mixes opened from now on hand the track levels of each read, on the
  // pump's thread. The engine that plays them sets it; null keeps none.
  void SetTracksDBHistory(TDTracksDBHistory* history) { pTracksDBHistory = history; }

 protected:
  TDTracksDBHistory* pTracksDBHistory = nullptr;
};

// Scrubbing on the one player: the scrub window over the mix, at low latency.
class LScrub {
 public:
  explicit LScrub(LSoundPlayer& player) : sp(player) {}

  // Starts the player on a window around `point` (frames of `source`).
  bool Start(LSoundSource const& source, int point);
  // Moves the window; the player's ring is cut so the new spot is heard at once.
  void SetPoint(int point);
  // The mix was rebuilt: the window goes on over the new one.
  void SetSoundSource(LSoundSource const& source);
  void Clear();
  bool IsScrubbing() const { return bScrubbing; }
  LScrubSourceBase* GetScrubSource() const { return pScrubSourceBase; }

 private:
  LSoundPlayer& sp;
  LSoundSource lss;
  bool bScrubbing = false;
  LScrubSourceBase* pScrubSourceBase = nullptr;
};

// The sound side of the transport: the one player, what it plays and where, the
// levels of the tracks on their way to the meters.
class TDSoundEngine : public LSoundPlayerNotify {
 public:
  explicit TDSoundEngine(TDSoundSourceOpener& opener);
  ~TDSoundEngine() override;
  TDSoundEngine(TDSoundEngine const&) = delete;
  TDSoundEngine& operator=(TDSoundEngine const&) = delete;

  void SetPlayerNotify(LSoundPlayerNotify* notify) { pPlayerNotify = notify; }

  // Plays the mix from `time`. False when there is nothing to play or the device
  // cannot be opened ("Cannot open sound device for playing.").
  bool Play(LSoundTime time, unsigned short mode = 0);
  // Stops at once; the time heard last is kept as the last time (GetLastTime).
  void Stop();
  // The mix changed while playing: the new one takes over where the listener is,
  // under a cross-fade. Nothing when not playing.
  bool Restart();
  // The same with a jump to `time`.
  bool Restart(LSoundTime time);

  bool Scrub(LSoundTime time);
  void StopScrub();
  void SetScrubPoint(LSoundTime time);

  void SetPlayVolume(LdB<signed char> volume) { sp.GetDeviceLayer().SetPlayVolumeStandard(volume); }
  // The device chosen anew (the setting changed). While playing the play goes on
  // there from where it was.
  void SetSoundPlayDevice(LSoundPlayDevice const& device);
  LSoundPlayDevice GetSoundPlayDevice() const { return sp.GetDeviceLayer().GetDevice(); }

  bool IsPlaying() const { return sp.IsPlaying() && !spScrub.IsScrubbing(); }
  // The last stop came from the device going away (see LSoundPlayerTemplate).
  bool IsDeviceLost() const { return sp.IsDeviceLost(); }
  bool IsScrubbing() const { return spScrub.IsScrubbing(); }
  // What the listener hears now; the last reported time when stopped.
  LSoundTime GetCurrentPlayingTime();
  LSoundTime GetPlayStart() const { return stPlayStart; }
  LSoundTime GetLastTime() const { return stLastSoundPlayerTime; }

  // From the mix after each read, on the pump's thread.
  void AddTracksDB(TDTracksDB const& levels) { TracksDBHistory.Add(levels); }
  // On the main thread: the track levels due now, or null.
  TDTracksDB const* TakeTracksDB() { return TracksDBHistory.Take(GetCurrentPlayingTime()); }
  void ClearTracksDBHistory() { TracksDBHistory.Clear(); }

  LSoundPlayer& GetPlayer() { return sp; }

  void spntfPlay(long) override;
  void spntfStop(long) override;
  void spntfTime(LSoundTime time, long) override;
  void spntfLevel(LDBMultiChannel<LdB<signed char>> const& levels, long) override;

 private:
  LSoundSource OpenAt(LSoundTime time, bool scrubbing);

  TDSoundSourceOpener& rOpener;
  LSoundPlayer sp;
  LSoundPlayerNotify* pPlayerNotify = nullptr;
  TDTracksDBHistory TracksDBHistory;
  LScrub spScrub{sp};
  LSoundTime stScrubPosition = 0;
  LSoundTime stPlayStart = 0;
  LSoundTime stLastSoundPlayerTime = 0;
};

// The transport as the controller uses it. Only the sound player stands behind it
// so far; the recorders and the MIDI side report as idle, and the clock rule
// (ApplyTime) already takes them into account.
class TDEngine : public LSoundPlayerNotify {
 public:
  enum NotifierType : int { SoundPlayer = 0, SoundRecorder = 1, MidiPlayer = 2, MidiRecorder = 3 };
  // A play that ended by itself sooner than this after it began sends the cursor
  // back to the start: a source with nothing to play must not strand it.
  static constexpr LSoundTime ShortPlayMs = 500;

  explicit TDEngine(TDSoundSourceOpener& opener);

  // Time and level notifications, after the clock rule, and the stop.
  void SetPlayerNotify(LSoundPlayerNotify* notify) { pSoundPlayerNotify = notify; }

  // Plays from `time`; what played before stops without a stop being told, since
  // for the owner the transport goes on. False when nothing could start (nothing to
  // play, or the device would not open).
  bool Play(LSoundTime time);
  void Stop();
  bool Restart();
  // A jump while playing: the play goes on from `time` under a cross-fade.
  bool Restart(LSoundTime time);
  bool Scrub(LSoundTime time) { return mpSoundEngine.Scrub(time); }
  void StopScrub() { mpSoundEngine.StopScrub(); }
  void SetScrubPoint(LSoundTime time) { mpSoundEngine.SetScrubPoint(time); }
  void SetPlayerVolume(LdB<signed char> volume) { mpSoundEngine.SetPlayVolume(volume); }
  void UpdateSoundPlayDevice(LSoundPlayDevice const& device) { mpSoundEngine.SetSoundPlayDevice(device); }
  LSoundPlayDevice GetSoundPlayDevice() const { return mpSoundEngine.GetSoundPlayDevice(); }

  bool IsPlaying() const { return IsSoundPlaying(); }
  bool IsSoundPlaying() const { return mpSoundEngine.IsPlaying(); }
  bool IsMidiPlaying() const { return false; }
  bool IsRecording() const { return false; }
  bool IsScrubbing() const { return mpSoundEngine.IsScrubbing(); }
  bool IsStopped() const { return !IsPlaying() && !IsScrubbing() && !IsRecording(); }
  // The last stop was the device going away while it played: the owner says so.
  bool IsDeviceLost() const { return bDeviceLost; }
  // What the listener hears now while playing or scrubbing; where the last play
  // stopped otherwise.
  LSoundTime GetPosition() { return mpSoundEngine.GetCurrentPlayingTime(); }
  // On the main thread, at each level notification: the track levels due now, or
  // null (none came, or the mix was restarted).
  TDTracksDB const* TakeTracksDB() { return mpSoundEngine.TakeTracksDB(); }
  bool IsNotifierActive(NotifierType type) const;
  // Decides which clock the UI follows and passes the time on when it is that one.
  void ApplyTime(NotifierType type, int ms);

  // Where the cursor belongs after the last stop: back at 0 after a play that ended by
  // itself within ShortPlayMs of where it began (and was not moved by a jump), else
  // where the play stopped.
  LSoundTime GetStopPosition() const { return stStopPosition; }
  LSoundTime GetRestartTime() const { return stRestartTime; }
  TDSoundEngine& GetSoundEngine() { return mpSoundEngine; }

  void spntfPlay(long) override;
  void spntfStop(long) override;
  void spntfTime(LSoundTime time, long) override;
  void spntfLevel(LDBMultiChannel<LdB<signed char>> const& levels, long) override;

 private:
  TDSoundEngine mpSoundEngine;
  LSoundPlayerNotify* pSoundPlayerNotify = nullptr;
  LSoundTime stRestartTime = 0;
  LSoundTime stStopPosition = 0;
  bool bStopping = false;  // the stop is ours, not the end of the source
  bool bStarting = false;  // inside Play: a stop of what played before is not told
  bool bToldStop = false;  // a stop was kept from the owner by Play
  bool bJumped = false;    // the play was moved by a jump since it began
  bool bDeviceLost = false;
};
