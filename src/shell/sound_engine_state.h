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
  bool Jump(LSoundTime time) override { return rEngine.IsPlaying() && rEngine.Restart(time); }
  bool Scrub(LSoundTime time) override { return rEngine.Scrub(time); }
  void StopScrub() override { rEngine.StopScrub(); }
  LSoundTime GetPosition() override { return rEngine.GetPosition(); }
  LSoundTime GetStopPosition() const override { return rEngine.GetStopPosition(); }
  bool IsDeviceLost() const override { return rEngine.IsDeviceLost(); }
  void SetVolume(LdB<signed char> volume) override { rEngine.SetPlayerVolume(volume); }
  void SetPlayDevice(const std::string& setting) override {
    LSoundPlayDevice device = rEngine.GetSoundPlayDevice();
    device.no = LSoundPlayDeviceList::Get()->IndexFromSetting(setting);
    rEngine.UpdateSoundPlayDevice(device);
  }
  void SetNotify(LSoundPlayerNotify* notify) override { rEngine.SetPlayerNotify(notify); }
  TDTracksDB const* TakeTracksDB() override { return rEngine.TakeTracksDB(); }
  void Restart() override {
    if (rEngine.IsPlaying() || rEngine.IsScrubbing()) rEngine.Restart();
  }

 private:
  TDEngine& rEngine;
};
