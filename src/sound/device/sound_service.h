#pragma once
#include <memory>
#include <string>

#include "sound/device/sound_devices.h"

// The seam between the device layer and the system's sound service. The player
// and the recorder see only a stream that calls them back with interleaved float
// frames; the ring, the levels and the volume stay on this side. The service
// behind it (RtAudio over JACK, PulseAudio and ALSA in sound_service.cpp) may throw
// or fail as it likes: nothing of that crosses here.

// Called on the device's own thread for every buffer. It must not allocate, block
// on anything but a short lock, or throw.
class LSoundRenderCallback {
 public:
  virtual ~LSoundRenderCallback() = default;
  // Fills `frames` interleaved frames of the stream's channels.
  virtual void Render(float* out, int frames) noexcept = 0;
};

class LSoundCaptureCallback {
 public:
  virtual ~LSoundCaptureCallback() = default;
  // Takes `frames` interleaved frames of the stream's channels.
  virtual void Capture(float const* in, int frames) noexcept = 0;
};

// How a stream is asked for.
struct LSoundStreamRequest {
  int iFirstChannel = 0;  // the device's channel the stream's channel 0 is
  int nChannels = 2;
  int iRate = 48000;
  int iBufferFrames = 512;  // what we would like per callback; the device decides
  std::string szClientName = "Tandrel";  // the name a JACK graph shows
  bool bConnect = true;                  // wire the stream to the device's ports (JACK)
};

// One output or input stream on one device.
class LSoundStream {
 public:
  virtual ~LSoundStream() = default;
  // False when the device cannot be opened so; the stream is then closed.
  virtual bool Open(LSoundDeviceEntry const& device, LSoundStreamRequest const& request) = 0;
  virtual void Close() = 0;
  virtual bool Start() = 0;
  virtual void Stop() = 0;
  virtual bool IsOpen() const = 0;
  virtual bool IsRunning() const = 0;
  // Frames per callback as the device settled them (its own buffer): part of the lag.
  virtual int GetBufferFrames() const = 0;
  virtual int GetSampleRate() const = 0;
  // Whether a stream we started and have not stopped is gone from under us: the
  // service closed or stopped it (a JACK server that went away), or it has not
  // called back for a long while. Asked from the player's threads, never from the
  // callback.
  virtual bool IsLost() const { return false; }
};

// The service's streams. An output calls `render`, an input `capture`; both must
// outlive the stream.
std::unique_ptr<LSoundStream> LSoundOpenOutputStream(LSoundRenderCallback& render);
std::unique_ptr<LSoundStream> LSoundOpenInputStream(LSoundCaptureCallback& capture);

// Lets a test put another service behind the seam: a factory for outputs and one for
// inputs. Null restores the system's.
using LSoundOutputStreamFactory = std::unique_ptr<LSoundStream> (*)(LSoundRenderCallback&);
using LSoundInputStreamFactory = std::unique_ptr<LSoundStream> (*)(LSoundCaptureCallback&);
void LSoundSetStreamFactories(LSoundOutputStreamFactory output, LSoundInputStreamFactory input);
