#pragma once
#include "shell/engine_state.h"
#include "sound/sound_engine.h"

// The controller's view of the real transport: what it asks while deciding a
// command, answered by the engine that plays through the devices.
class TDSoundEngineState : public TDEngineState {
 public:
  explicit TDSoundEngineState(TDEngine& engine) : rEngine(engine) {}

  bool IsPlaying() const override { return rEngine.IsPlaying(); }
  bool IsRecording() const override { return rEngine.IsRecording(); }
  bool IsScrubbing() const override { return rEngine.IsScrubbing(); }
  void Stop() override { rEngine.Stop(); }
  // No recorder stands behind the engine yet: nothing records, nothing to stop.
  void StopRecord() override {}
  bool Play(LSoundTime time) override { return rEngine.Play(time); }
  void SetPlayDevice(const std::string& setting) override {
    LSoundPlayDevice device = rEngine.GetSoundPlayDevice();
    device.no = LSoundPlayDeviceList::Get()->IndexFromSetting(setting);
    rEngine.UpdateSoundPlayDevice(device);
  }
  void Restart() override {
    if (rEngine.IsPlaying() || rEngine.IsScrubbing()) rEngine.Restart();
  }

 private:
  TDEngine& rEngine;
};
