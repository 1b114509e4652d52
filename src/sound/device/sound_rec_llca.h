#pragma once
#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "foundation/signal_object.h"
#include "foundation/thread.h"
#include "sound/device/sound_devices.h"
#include "sound/device/sound_service.h"
#include "sound/sound_sink.h"

// The input side of a device: its callback fills a ring of buffers of 20 ms each,
// four seconds in all, and the recorder's thread takes the full ones and writes them
// to the sink, so that a slow disk does not lose input. The device's thread never
// waits: should the recorder fall four seconds behind, the input of that moment is
// dropped and counted.
class LSoundRecLLCA : public LSoundCaptureCallback {
 public:
  LSoundRecLLCA();
  ~LSoundRecLLCA() override;
  LSoundRecLLCA(LSoundRecLLCA const&) = delete;
  LSoundRecLLCA& operator=(LSoundRecLLCA const&) = delete;

  void SetDevice(LSoundRecordDevice const& device) { this->device = device; }
  LSoundRecordDevice const& GetDevice() const { return device; }

  // The rate the device records at when asked for `rate`: what the recorder
  // compares with the project's.
  int GetSupportedSampleRate(int rate) const;

  // Opens the input for `sink`, of one or two channels (the left input, or the
  // pair). The stream runs at the device's rate; a sink at another rate is written
  // through a rate converter. `thread` is the recorder's, whose stop ends waits.
  bool Open(LSoundSink const& sink, LThread* thread);
  void Close();
  bool Start();
  void Stop();
  bool IsOpen() const { return au && au->IsOpen(); }

  // On the recorder's thread: waits up to `ms` for a full buffer and writes it to the
  // sink. The frames written, 0 after the time-out, -1 when the thread is to stop.
  int ProcessBuffer(unsigned ms);
  // Writes what the buffers hold, the part-filled one too: after Stop, so that the
  // end of a take is not lost.
  void Flush();

  int GetSampleRate() const { return sSampleRate; }
  int GetBufferFrames() const { return iBufferFrames; }
  int GetBufferCount() const { return static_cast<int>(buffers.size()); }
  // Milliseconds (LGetTickCountMSAccurate) of the first callback after Start, 0 before.
  std::int64_t GetFirstCallbackTick() const { return uTCFirstCallback.load(); }
  // Callbacks whose input found no free buffer.
  std::uint64_t GetOverrunCount() const { return uOverruns.load(); }
  LSoundSink const& GetSink() const { return lsnk; }

  void Capture(float const* in, int frames) noexcept override;

 private:
  struct Buffer {
    std::unique_ptr<float[]> pData;
    std::atomic<bool> bFull{false};
  };

  LSoundRecordDevice device;
  std::unique_ptr<LSoundStream> au;
  LSoundSink lsnk;
  LThread* pThread = nullptr;
  std::vector<Buffer> buffers;
  int iBufferFrames = 0;
  int nChans = 0;        // channels written to the sink
  int nStreamChans = 0;  // channels the stream delivers
  int iLeft = 0;         // stream channel of the sink's first channel
  int iRight = 0;        // and of its second
  int sSampleRate = 0;
  std::size_t uFill = 0;  // the buffer the callback fills
  int iFillFrames = 0;    // frames in it so far
  std::size_t uTake = 0;  // the buffer the recorder takes next
  LSignalObject soFilled;
  std::atomic<bool> bFirstCallback{false};
  std::atomic<std::int64_t> uTCFirstCallback{0};
  std::atomic<std::uint64_t> uOverruns{0};
};
