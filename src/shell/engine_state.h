#pragma once
#include <string>

#include "foundation/db.h"
#include "foundation/sound_time.h"
#include "sound/sound_player.h"
#include "sound/tracks_db.h"

// The transport as the controller sees it when it decides a command. The real
// engine stands behind it in the program (TDSoundEngineState); tests script it.
class TDEngineState {
 public:
  virtual ~TDEngineState() = default;
  virtual bool IsPlaying() const = 0;
  virtual bool IsRecording() const = 0;
  virtual bool IsScrubbing() const = 0;
  // Stops playback (and scrubbing) at once; recording is stopped by StopRecord.
  virtual void Stop() = 0;
  virtual void StopRecord() = 0;
  // Rebuilds the playing mix from the changed project at the current position.
  virtual void Restart() = 0;
  // Plays the project from `time` (ms); false when no device would open. An engine
  // without devices never plays.
  virtual bool Play(LSoundTime /*time*/) { return false; }
  // While playing: the play goes on from `time` without a stop. False when nothing
  // plays or the jump could not be made.
  virtual bool Jump(LSoundTime /*time*/) { return false; }
  // Scrubs at `time`: starts scrubbing there (stopping a play), or moves the spot.
  // False when it could not start.
  virtual bool Scrub(LSoundTime /*time*/) { return false; }
  virtual void StopScrub() {}
  // What the listener hears now while playing or scrubbing; where the last play
  // stopped otherwise.
  virtual LSoundTime GetPosition() { return 0; }
  // Where the cursor belongs after the last stop: where it stopped, or 0 after a
  // play that ended by itself at once.
  virtual LSoundTime GetStopPosition() const { return 0; }
  // The last stop came from the device going away while it played.
  virtual bool IsDeviceLost() const { return false; }
  // The volume of everything played, applied after the meters.
  virtual void SetVolume(LdB<signed char> /*volume*/) {}
  // Plays to the device a "SoundOutDevice" setting names from now on.
  virtual void SetPlayDevice(const std::string& /*setting*/) {}
  // Who hears the transport's news on the main thread: play, stop, time, levels.
  virtual void SetNotify(LSoundPlayerNotify* /*notify*/) {}
  // At a level notification: the track levels due now, or null.
  virtual TDTracksDB const* TakeTracksDB() { return nullptr; }
};

// An engine with no devices behind it: never plays, never records.
class TDIdleEngine : public TDEngineState {
 public:
  bool IsPlaying() const override { return false; }
  bool IsRecording() const override { return false; }
  bool IsScrubbing() const override { return false; }
  void Stop() override {}
  void StopRecord() override {}
  void Restart() override {}
};
