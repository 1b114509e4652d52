#pragma once
#include <cstdint>
#include <utility>

#include "foundation/counted.h"

// Bit of LSoundSinkBase's error flags: the sink failed and discards what it gets.
inline constexpr std::uint8_t LSoundSinkErrorFailed = 0x01;

// The push side of all audio: Write(buf, n) consumes n interleaved float frames and
// adds n to the position. A sink cannot report failure by return; one that fails
// sets its error flags and discards further data, and the writer tests the flags
// after opening and after each write.
class LSoundSinkBase : public LCountedObject {
 public:
  // A channel count outside 1..255 becomes 1, and a rate below 1 becomes 44100, both
  // with the error bit set.
  LSoundSinkBase(int sampleRate, int channels);
  ~LSoundSinkBase() override;
  LSoundSinkBase(LSoundSinkBase const&) = delete;
  LSoundSinkBase& operator=(LSoundSinkBase const&) = delete;

  virtual void Write(float const* buffer, int frames) = 0;
  virtual void Seek(int frame);
  // Completes what the sink makes (an encoder's last frames, a container's index)
  // and tells whether all of it reached its place; a sink whose work ends in a
  // program or a trailer can fail only here. It takes no data afterwards. Sinks
  // finish in their destructors too, for writers that never ask; the default has
  // nothing to complete.
  virtual bool Finish();

  int GetPositionSample() const { return sPosition; }
  int GetSampleRate() const { return sSampleRate; }
  int GetChannels() const { return nChans; }
  std::uint8_t GetErrorFlags() const { return uErrorFlags; }
  bool IsError() const { return uErrorFlags != 0; }

 protected:
  int sPosition = 0;
  int sSampleRate;
  std::uint8_t nChans;
  std::uint8_t uErrorFlags = 0;
};

// A counted handle on a sink, never empty: a default or closed handle holds a fresh
// LSoundSinkError.
class LSoundSink {
 public:
  LSoundSink();
  // Takes a share of `sink`; null gives the error sink.
  explicit LSoundSink(LSoundSinkBase* sink);
  LSoundSink(LSoundSink const&) = default;
  LSoundSink& operator=(LSoundSink const&) = default;

  template <class T, class... Args>
  static LSoundSink Make(Args&&... args) {
    return LSoundSink(new T(std::forward<Args>(args)...));
  }

  void Close();

  LSoundSinkBase* Get() const noexcept { return p.Get(); }
  LSoundSinkBase* operator->() const noexcept { return p.Get(); }
  LSoundSinkBase& operator*() const noexcept { return *p; }
  bool IsGood() const { return !p->IsError(); }

 private:
  LCountedPtr<LSoundSinkBase> p;
};

// Stands in for a sink that could not be made: 44100 Hz, mono, error bit set;
// discards and does not count.
class LSoundSinkError : public LSoundSinkBase {
 public:
  LSoundSinkError();
  void Write(float const* buffer, int frames) override;
};

// Discards and counts: for where a sink is required and the data is not wanted.
class LSoundSinkStubBase : public LSoundSinkBase {
 public:
  LSoundSinkStubBase(int sampleRate, int channels);
  void Write(float const* buffer, int frames) override;
};
