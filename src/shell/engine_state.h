#pragma once
#include <string>

#include "foundation/sound_time.h"

// The transport as the controller sees it when it decides a command. The real
// engine stands behind it once devices are in; until then an idle engine does.
class TDEngineState {
 public:
  virtual ~TDEngineState() = default;
  virtual bool IsPlaying() const = 0;
  virtual bool IsRecording() const = 0;
  virtual bool IsScrubbing() const = 0;
  // Stops playback (and scrubbing); recording is stopped by StopRecord.
  virtual void Stop() = 0;
  virtual void StopRecord() = 0;
  // Rebuilds the playing mix from the changed project at the current position.
  virtual void Restart() = 0;
  // Plays the project from `time` (ms); false when no device would open. An engine
  // without devices never plays.
  virtual bool Play(LSoundTime /*time*/) { return false; }
  // Plays to the device a "SoundOutDevice" setting names from now on.
  virtual void SetPlayDevice(const std::string& /*setting*/) {}
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
