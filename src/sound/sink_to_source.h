#pragma once
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>

#include "foundation/counted.h"
#include "foundation/signal_object.h"
#include "sound/sound_sink.h"
#include "sound/sound_source.h"

// A bridge from push to pull across two threads: what is written into its sink face
// is read from its source face, through a ring of float samples. The writer blocks
// while the ring is full and the reader blocks while it is empty; closing either
// face wakes the other side, so nobody stays blocked on a partner that is gone.
//
// One reader at a time: the read index belongs to the reading thread, the write
// index to the writing side. Writes are serialised by a mutex; reads take no lock.
// The bridge must be held by counted handles (see Create): each face keeps a share.
class LSinkToSourceBase : public LCountedObject {
 public:
  // The ring holds `ringBytes` rounded down to whole frames, at least two frames.
  LSinkToSourceBase(int sampleRate, int channels, std::size_t ringBytes);
  static LCountedPtr<LSinkToSourceBase> Create(int sampleRate, int channels, std::size_t ringBytes);

  // A new writing face. The sink side counts as open while a face lives.
  LSoundSink OpenSink();
  // A new reading face. The source side counts as open while a face lives.
  LSoundSource OpenSource();

  int GetSampleRate() const { return sSampleRate; }
  int GetChannels() const { return nChans; }
  // The most frames the ring holds at once (one slot stays free).
  int GetCapacityFrames() const { return static_cast<int>(uCapacity / nChans) - 1; }
  int GetFilledFrames() const { return static_cast<int>(FilledFloats() / nChans); }
  bool IsSinkOpen() const { return iSinkFaces.load() > 0; }
  bool IsSourceOpen() const { return iSourceFaces.load() > 0; }

  // Places all frames, waiting up to 200 ms at a time for room; gives up when the
  // ring is full and no source face is open.
  void Write(float const* buffer, int frames);
  // Fills all frames, waiting up to 1000 ms at a time for data; when the ring is
  // empty and no sink face is open, the rest is zeros.
  void Read(float* buffer, int frames);

  LSignalObjectRef GetDataSignal() const { return soData.GetRef(); }

 private:
  friend class LSinkToSourceSink;
  friend class LSinkToSourceSource;

  std::uint32_t FilledFloats() const;
  std::uint32_t FreeFloats() const;  // whole frames only

  int sSampleRate;
  int nChans;
  std::uint32_t uCapacity;  // in floats, a multiple of the channel count
  std::unique_ptr<float[]> pRing;
  std::atomic<std::uint32_t> uReadIndex{0};
  std::atomic<std::uint32_t> uWriteIndex{0};
  std::atomic<int> iSinkFaces{0};
  std::atomic<int> iSourceFaces{0};
  LSignalObject soData;  // set after frames were written, and when a sink face closes
  LSignalObject soRoom;  // set after frames were read, and when a source face closes
  std::mutex mtxWrite;
};

// The writing face of an LSinkToSourceBase.
class LSinkToSourceSink : public LSoundSinkBase {
 public:
  explicit LSinkToSourceSink(LCountedPtr<LSinkToSourceBase> const& bridge);
  ~LSinkToSourceSink() override;
  void Write(float const* buffer, int frames) override;

 private:
  LCountedPtr<LSinkToSourceBase> pBridge;
};

// The reading face of an LSinkToSourceBase. Its position stays 0 and its end is what
// the ring holds, so a consumer sees "at the end" exactly when nothing is waiting.
class LSinkToSourceSource : public LSoundSourceBase {
 public:
  explicit LSinkToSourceSource(LCountedPtr<LSinkToSourceBase> const& bridge);
  ~LSinkToSourceSource() override;

  void Read(float* buffer, int frames) override;
  int GetPositionSample() const override { return 0; }
  int GetEndSample() const override;
  // True while a sink face is open: more may come.
  bool IsStreaming() const override;
  void WaitForStreamingData(int ms) override;

 private:
  LCountedPtr<LSinkToSourceBase> pBridge;
};
