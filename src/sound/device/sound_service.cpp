// The sound service on Linux: RtAudio with its JACK, PulseAudio and ALSA back ends.
// RtAudio reports failures by exceptions; every call into it is caught here, so
// that the rest of the program sees only a bool.
#include "sound/device/sound_service.h"

#include <RtAudio.h>

#include "foundation/log.h"

#include <pthread.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <exception>
#include <iostream>
#include <mutex>
#include <thread>

namespace {

// A stream we keep running that has not called back for this long is gone.
constexpr std::int64_t kSilentLostMs = 2000;
// Silent for this long after the service reported trouble: gone as well.
constexpr std::int64_t kSilentSuspectMs = 250;
// How long a stop waits for the service to finish closing a stream by itself.
constexpr std::int64_t kServiceCloseWaitMs = 1000;

std::int64_t NowMs() {
  timespec ts{};
  ::clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<std::int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

RtAudio::Api ToRtApi(int api) {
  switch (api) {
    case LSoundServiceJack: return RtAudio::UNIX_JACK;
    case LSoundServicePulse: return RtAudio::LINUX_PULSE;
    case LSoundServiceAlsa: return RtAudio::LINUX_ALSA;
    default: return RtAudio::UNSPECIFIED;
  }
}

bool IsCompiled(RtAudio::Api api) {
  std::vector<RtAudio::Api> apis;
  RtAudio::getCompiledApi(apis);
  return std::find(apis.begin(), apis.end(), api) != apis.end();
}

// Errors and warnings of open streams come here rather than to standard error.
// RtAudio says neither which stream nor anything a caller could act on at once: a
// fatal one has already stopped the stream, and after a warning from the callback
// (a JACK buffer size that changed under it) the stream stops calling back. So they
// are only counted; a stream that then falls silent is taken as lost sooner.
std::atomic<unsigned> gStreamErrors{0};
void CountStreamError(RtAudioError::Type, std::string const&) { gStreamErrors.fetch_add(1, std::memory_order_relaxed); }

// When a JACK server shuts a client down, RtAudio's JACK back end starts a thread
// that closes the stream, and then writes a line to std::cerr from the JACK thread
// that told it. Closing the client cancels that JACK thread at once, wherever it
// is, and a cancel that lands in the middle of the stream's output ends the
// program. Nothing of ours writes to std::cerr (our log uses stderr itself), so it
// is put in a failed state before RtAudio first runs, where a write does nothing.
void SilenceStandardErrorStream() {
  static std::once_flag once;
  std::call_once(once, [] { std::cerr.setstate(std::ios::badbit); });
}

// An RtAudio object of one back end, or null when that back end is not built in or
// cannot even start.
std::unique_ptr<RtAudio> MakeAudio(int api) {
  SilenceStandardErrorStream();
  RtAudio::Api const rt = ToRtApi(api);
  if (rt == RtAudio::UNSPECIFIED || !IsCompiled(rt)) return nullptr;
  try {
    auto audio = std::make_unique<RtAudio>(rt);
    audio->showWarnings(false);
    return audio;
  } catch (...) {
    return nullptr;
  }
}

LSoundDeviceEntry EntryOf(int api, unsigned id, RtAudio::DeviceInfo const& info) {
  LSoundDeviceEntry e;
  e.szServiceName = info.name;
  e.szName = info.name + " (" + LSoundServiceApiName(api) + ")";
  e.iApi = api;
  e.uId = id;
  e.nOutputChannels = static_cast<int>(info.outputChannels);
  e.nInputChannels = static_cast<int>(info.inputChannels);
  e.iPreferredRate = static_cast<int>(info.preferredSampleRate);
  for (unsigned r : info.sampleRates) e.rates.push_back(static_cast<int>(r));
  // A JACK server runs at its own rate and takes no other.
  e.bFixedRate = api == LSoundServiceJack;
  if (e.bFixedRate && e.iPreferredRate == 0 && !e.rates.empty()) e.iPreferredRate = e.rates.front();
  return e;
}

// Whether the device at `id` is the one named, asked of the service now. A probe
// that fails says no.
bool IsDeviceAt(RtAudio& audio, unsigned id, LSoundDeviceEntry const& device) {
  try {
    RtAudio::DeviceInfo const info = audio.getDeviceInfo(id);
    return info.probed && info.name == device.szServiceName;
  } catch (...) {
    return false;
  }
}

// The device's number now: a JACK graph's clients come and go, so the number read
// for the list may name another device by the time it is opened. A busy JACK
// server can also leave a client that is there out of a listing, or fail the probe
// of it; so while the service answers at all, a device it does not show is looked
// for again a few times before it counts as gone.
bool FindDeviceNow(RtAudio& audio, LSoundDeviceEntry const& device, unsigned& id) {
  constexpr int kLooks = 5;
  constexpr int kLookAgainMs = 100;
  for (int look = 1;; ++look) {
    unsigned const count = audio.getDeviceCount();
    if (device.uId < count && IsDeviceAt(audio, device.uId, device)) {
      id = device.uId;
      return true;
    }
    for (unsigned i = 0; i < count; ++i) {
      if (i != device.uId && IsDeviceAt(audio, i, device)) {
        id = i;
        return true;
      }
    }
    if (count == 0 || look == kLooks) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(kLookAgainMs));
  }
}

class LRtAudioStream : public LSoundStream {
 public:
  explicit LRtAudioStream(LSoundRenderCallback& r) : pRender(&r) {}
  explicit LRtAudioStream(LSoundCaptureCallback& c) : pCapture(&c) {}
  ~LRtAudioStream() override { Close(); }

  bool Open(LSoundDeviceEntry const& device, LSoundStreamRequest const& request) override {
    Close();
    pAudio = MakeAudio(device.iApi);
    if (!pAudio) {
      LLog("sound: no %s service for \"%s\"", LSoundServiceApiName(device.iApi), device.szName.c_str());
      return false;
    }
    try {
      unsigned id = 0;
      if (!FindDeviceNow(*pAudio, device, id)) {
        LLog("sound: \"%s\" is not there now", device.szName.c_str());
        pAudio.reset();
        return false;
      }
      RtAudio::StreamParameters params;
      params.deviceId = id;
      params.nChannels = static_cast<unsigned>(request.nChannels);
      params.firstChannel = static_cast<unsigned>(request.iFirstChannel);
      RtAudio::StreamOptions options;
      options.streamName = request.szClientName;
      // The callback thread of ALSA and PulseAudio asks for real time; where the
      // user may not have it, RtAudio runs it at normal priority.
      options.flags = RTAUDIO_SCHEDULE_REALTIME;
      if (!request.bConnect) options.flags |= RTAUDIO_JACK_DONT_CONNECT;
      options.priority = 80;
      unsigned frames = static_cast<unsigned>(std::max(request.iBufferFrames, 16));
      bool const output = pRender != nullptr;
      pAudio->openStream(output ? &params : nullptr, output ? nullptr : &params, RTAUDIO_FLOAT32,
                         static_cast<unsigned>(request.iRate), &frames, &LRtAudioStream::Callback, this, &options,
                         &CountStreamError);
      if (!pAudio->isStreamOpen()) {
        LLog("sound: \"%s\" did not open a stream", device.szName.c_str());
        pAudio.reset();
        return false;
      }
      iBufferFrames = static_cast<int>(frames);
      iRate = static_cast<int>(pAudio->getStreamSampleRate());
      if (iRate <= 0) iRate = request.iRate;
      return true;
    } catch (RtAudioError const& e) {
      LLog("sound: \"%s\" did not open: %s", device.szName.c_str(), e.what());
    } catch (...) {
      LLog("sound: \"%s\" did not open", device.szName.c_str());
    }
    pAudio.reset();
    return false;
  }

  void Close() override {
    if (!pAudio) return;
    bStarted = false;
    WaitForServiceClose();
    try {
      if (pAudio->isStreamRunning()) pAudio->abortStream();
      if (pAudio->isStreamOpen()) pAudio->closeStream();
    } catch (...) {
    }
    pAudio.reset();
  }

  bool Start() override {
    if (!pAudio) return false;
    try {
      iLastCallbackMs = NowMs();
      uErrorsAtStart = gStreamErrors.load(std::memory_order_relaxed);
      if (!pAudio->isStreamRunning()) pAudio->startStream();
      bStarted = pAudio->isStreamRunning();
      return bStarted;
    } catch (...) {
      return false;
    }
  }

  void Stop() override {
    if (!pAudio) return;
    bStarted = false;
    WaitForServiceClose();
    try {
      // Dropped at once, not drained: a stop means silence now.
      if (pAudio->isStreamRunning()) pAudio->abortStream();
    } catch (...) {
    }
  }

  bool IsOpen() const override { return pAudio && pAudio->isStreamOpen(); }
  bool IsRunning() const override { return pAudio && pAudio->isStreamRunning(); }
  int GetBufferFrames() const override { return iBufferFrames; }
  int GetSampleRate() const override { return iRate; }

  // RtAudio keeps its stream's state in a plain field that its own threads change
  // (a JACK server's shutdown closes the stream on a thread RtAudio starts); reading
  // it from here is what RtAudio's own calls do, and a stale answer only delays the
  // verdict by one look.
  bool IsLost() const override {
    if (!bStarted.load() || !pAudio) return false;
    if (!pAudio->isStreamOpen() || !pAudio->isStreamRunning()) return true;
    std::int64_t const silent = NowMs() - iLastCallbackMs.load(std::memory_order_relaxed);
    if (silent >= kSilentLostMs) return true;
    return silent >= kSilentSuspectMs && gStreamErrors.load(std::memory_order_relaxed) != uErrorsAtStart;
  }

 private:
  // When a JACK server goes away, RtAudio closes the stream by itself on a thread
  // of its own, and a stop or close of ours meanwhile would free what that thread
  // is still using. A stream that has gone quiet gets a moment to finish that
  // before we touch it; a stream that is merely stalled is stopped after it.
  void WaitForServiceClose() {
    if (!pAudio->isStreamOpen() || !pAudio->isStreamRunning()) return;
    if (NowMs() - iLastCallbackMs.load(std::memory_order_relaxed) < kSilentSuspectMs) return;
    std::int64_t const deadline = NowMs() + kServiceCloseWaitMs;
    while (pAudio->isStreamOpen() && pAudio->isStreamRunning() && NowMs() < deadline)
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }

  // JACK's library cancels its client threads asynchronously when a client is
  // closed, as RtAudio does after the server died, and a cancel in the middle of
  // our callback would unwind through code that may not be unwound (and that holds
  // the player's lock). It waits until we are done: the cancel, if one came,
  // happens when this function gives cancelling back, with nothing of ours on the
  // way out.
  static int Callback(void* out, void* in, unsigned int frames, double, RtAudioStreamStatus, void* user) {
    int cancelState = PTHREAD_CANCEL_ENABLE;
    ::pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancelState);
    auto* self = static_cast<LRtAudioStream*>(user);
    self->iLastCallbackMs.store(NowMs(), std::memory_order_relaxed);
    if (self->pRender) {
      if (out) self->pRender->Render(static_cast<float*>(out), static_cast<int>(frames));
    } else if (self->pCapture && in) {
      self->pCapture->Capture(static_cast<float const*>(in), static_cast<int>(frames));
    }
    ::pthread_setcancelstate(cancelState, nullptr);
    return 0;
  }

  LSoundRenderCallback* pRender = nullptr;
  LSoundCaptureCallback* pCapture = nullptr;
  std::unique_ptr<RtAudio> pAudio;
  int iBufferFrames = 0;
  int iRate = 0;
  std::atomic<bool> bStarted{false};  // started by us and not stopped since
  std::atomic<std::int64_t> iLastCallbackMs{0};
  unsigned uErrorsAtStart = 0;
};

std::unique_ptr<LSoundStream> SystemOutput(LSoundRenderCallback& render) {
  return std::make_unique<LRtAudioStream>(render);
}

std::unique_ptr<LSoundStream> SystemInput(LSoundCaptureCallback& capture) {
  return std::make_unique<LRtAudioStream>(capture);
}

std::atomic<LSoundOutputStreamFactory> gOutputFactory{&SystemOutput};
std::atomic<LSoundInputStreamFactory> gInputFactory{&SystemInput};

}  // namespace

std::unique_ptr<LSoundStream> LSoundOpenOutputStream(LSoundRenderCallback& render) {
  return gOutputFactory.load()(render);
}

std::unique_ptr<LSoundStream> LSoundOpenInputStream(LSoundCaptureCallback& capture) {
  return gInputFactory.load()(capture);
}

void LSoundSetStreamFactories(LSoundOutputStreamFactory output, LSoundInputStreamFactory input) {
  gOutputFactory.store(output ? output : &SystemOutput);
  gInputFactory.store(input ? input : &SystemInput);
}

LSoundServiceDevices LSoundEnumerateDevices() {
  LSoundServiceDevices found;
  bool haveOutputDefault = false;
  bool haveInputDefault = false;
  for (int api : {LSoundServiceJack, LSoundServicePulse, LSoundServiceAlsa}) {
    std::unique_ptr<RtAudio> audio = MakeAudio(api);
    if (!audio) continue;
    try {
      unsigned const count = audio->getDeviceCount();
      if (count == 0) continue;
      unsigned const defOut = audio->getDefaultOutputDevice();
      unsigned const defIn = audio->getDefaultInputDevice();
      LSoundDeviceEntry firstOut, firstIn;
      bool anyOut = false, anyIn = false;
      bool defOutFound = false, defInFound = false;
      for (unsigned i = 0; i < count; ++i) {
        RtAudio::DeviceInfo info;
        try {
          info = audio->getDeviceInfo(i);
        } catch (...) {
          continue;
        }
        if (!info.probed) continue;
        LSoundDeviceEntry const e = EntryOf(api, i, info);
        if (e.nOutputChannels > 0) {
          found.outputs.push_back(e);
          if (!anyOut) firstOut = e;
          anyOut = true;
          if (i == defOut && !haveOutputDefault) {
            found.defaultOutput = e;
            defOutFound = true;
          }
        }
        if (e.nInputChannels > 0) {
          found.inputs.push_back(e);
          if (!anyIn) firstIn = e;
          anyIn = true;
          if (i == defIn && !haveInputDefault) {
            found.defaultInput = e;
            defInFound = true;
          }
        }
      }
      // The first back end that has a device of a direction gives that direction's
      // default: a JACK server, when one runs, is where sound goes.
      if (!haveOutputDefault && anyOut) {
        if (!defOutFound) found.defaultOutput = firstOut;
        haveOutputDefault = true;
      }
      if (!haveInputDefault && anyIn) {
        if (!defInFound) found.defaultInput = firstIn;
        haveInputDefault = true;
      }
    } catch (...) {
      continue;
    }
  }
  return found;
}
