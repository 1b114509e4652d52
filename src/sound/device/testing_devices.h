#pragma once
// A sound service that the test drives by hand, for this folder's tests only: the
// test calls the render callback itself, so what the device layer does with each
// buffer can be checked without a sound server or a clock.
#include <memory>
#include <vector>

#include "sound/device/sound_devices.h"
#include "sound/device/sound_service.h"

inline constexpr int kTestApi = 99;  // a back end no real service has

class LTestManualStream : public LSoundStream {
 public:
  explicit LTestManualStream(LSoundRenderCallback& r) : pRender(&r) { Last() = this; }
  ~LTestManualStream() override {
    if (Last() == this) Last() = nullptr;
  }

  bool Open(LSoundDeviceEntry const& device, LSoundStreamRequest const& request) override {
    entry = device;
    req = request;
    bOpen = device.iApi == kTestApi;
    ++iOpens;
    return bOpen;
  }
  void Close() override { bOpen = bRunning = false; }
  bool Start() override { return bRunning = bOpen; }
  void Stop() override { bRunning = false; }
  bool IsOpen() const override { return bOpen; }
  bool IsRunning() const override { return bRunning; }
  int GetBufferFrames() const override { return iBufferFrames; }
  int GetSampleRate() const override { return req.iRate; }

  // One callback of `frames` frames; what the device would have played.
  std::vector<float> Pull(int frames) {
    std::vector<float> out(static_cast<std::size_t>(frames) * static_cast<std::size_t>(req.nChannels), -99.0f);
    pRender->Render(out.data(), frames);
    return out;
  }

  static LTestManualStream*& Last() {
    static LTestManualStream* last = nullptr;
    return last;
  }
  static std::unique_ptr<LSoundStream> Make(LSoundRenderCallback& r) { return std::make_unique<LTestManualStream>(r); }

  LSoundRenderCallback* pRender;
  LSoundDeviceEntry entry;
  LSoundStreamRequest req;
  bool bOpen = false;
  bool bRunning = false;
  int iBufferFrames = 256;
  int iOpens = 0;
};

inline LSoundDeviceEntry TestDevice(std::string name, int outputs, int inputs, int rate, bool fixed) {
  LSoundDeviceEntry e;
  e.szName = name;
  e.szServiceName = name;
  e.iApi = kTestApi;
  e.nOutputChannels = outputs;
  e.nInputChannels = inputs;
  e.iPreferredRate = rate;
  e.bFixedRate = fixed;
  if (fixed) e.rates = {rate};
  return e;
}

// Puts the manual service and a list of test devices in place for a test's life:
// entry 1 "Stereo Out" (2 outputs, any rate), entry 2 "Quad Out" (4 outputs, fixed
// at 48000), entry 3 "Mono Out".
class LTestManualService {
 public:
  LTestManualService() {
    LSoundSetStreamFactories(&LTestManualStream::Make, nullptr);
    LSoundDeviceEntry const stereo = TestDevice("Stereo Out", 2, 2, 44100, false);
    LSoundPlayDeviceList::Install(std::make_shared<LSoundPlayDeviceList const>(
        stereo, std::vector<LSoundDeviceEntry>{stereo, TestDevice("Quad Out", 4, 0, 48000, true),
                                               TestDevice("Mono Out", 1, 0, 44100, false)}));
  }
  ~LTestManualService() {
    LSoundSetStreamFactories(nullptr, nullptr);
    LSoundPlayDeviceList::Install(nullptr);
  }
};
