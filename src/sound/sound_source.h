#pragma once
#include <cstdint>
#include <utility>

#include "foundation/counted.h"

// The most frames one Read may ask for. Decorators size their work buffers by it,
// so a consumer with more to read cuts it into blocks of at most this many.
inline constexpr int LSoundMaxReadFrames = 8192;

// Peak bound of a source whose samples stay in range: 32767/32768.
inline constexpr float LSoundPeakInRange = 32767.0f / 32768.0f;
// Peak bound of a source that may exceed full scale, or cannot tell.
inline constexpr float LSoundPeakUnknown = 16.0f;

// Error state of a source.
inline constexpr std::uint8_t LSoundErrorNone = 0;
inline constexpr std::uint8_t LSoundErrorFailed = 1;      // the error source, or failed to open
inline constexpr std::uint8_t LSoundErrorBelow = 2;       // the source below a decorator is in error
inline constexpr std::uint8_t LSoundErrorParameters = 3;  // invalid construction parameters

// Codes of ControlMessage, the side channel through a chain. A stage handles the
// codes it knows and passes the others down.
namespace LSoundControl {
// *value is a position below this stage; a stage that holds frames back adds them.
inline constexpr int PositionCorrection = 1;
// *value receives the frames a peak limiter holds back.
inline constexpr int GetLookAhead = 4;
// Fold the position *value into the span a loop plays.
inline constexpr int FoldIntoLoop = 5;
// Translate the relative offset *value at this stage to the offset below it.
inline constexpr int TranslateOffset = 6;
// *value (as a byte) receives whether limiting took place; the flag is cleared.
inline constexpr int GetLimitingFlag = 7;
}  // namespace LSoundControl

// The pull side of all audio: interleaved 32-bit float frames.
//
// Read(buf, n) always fills n * channels floats and advances the position by n,
// with zeros past the end; it cannot fail and never allocates. n is at most
// LSoundMaxReadFrames. A consumer learns of the end only by
// GetPositionSample() >= GetEndSample(). A source that could not be built carries a
// non-zero error state; callers test it after opening and never read from one.
class LSoundSourceBase : public LCountedObject {
 public:
  // A rate below 1 becomes 44100 and a channel count outside 1..255 becomes 1, both
  // with error state 3.
  LSoundSourceBase(int sampleRate, int channels, float peakBound);
  ~LSoundSourceBase() override;
  LSoundSourceBase(LSoundSourceBase const&) = delete;
  LSoundSourceBase& operator=(LSoundSourceBase const&) = delete;

  virtual void Read(float* buffer, int frames) = 0;
  virtual int GetPositionSample() const = 0;
  virtual int GetEndSample() const = 0;
  virtual void Seek(int frame);
  // Returns true when this stage or one below took the code.
  virtual bool ControlMessage(int code, long* value);
  // Maps `offset` frames, measured at this stage's output at `position`, to the
  // equivalent offset on the timeline.
  virtual int AdjustRelativeOffset(int offset, int position);
  // True while the end is not known yet because data is still being produced.
  virtual bool IsStreaming() const;
  // Blocks until more data is there or `ms` has passed. The default just sleeps.
  virtual void WaitForStreamingData(int ms);

  int GetSampleRate() const { return sSampleRate; }
  int GetChannels() const { return nChans; }
  // The greatest absolute sample value this source can deliver; the player puts a
  // limiter on the end of the chain when this exceeds full scale.
  float GetPeakBound() const { return fPeakBound; }
  std::uint8_t GetErrorState() const { return uErrorState; }
  bool IsError() const { return uErrorState != LSoundErrorNone; }

 protected:
  int sSampleRate;
  std::uint8_t nChans;
  float fPeakBound;
  std::uint8_t uErrorState = LSoundErrorNone;
};

// A counted handle on a source, never empty: a default handle and a closed one hold
// a fresh LSoundSourceError, so code can always read, seek and ask the position.
class LSoundSource {
 public:
  LSoundSource();
  // Takes a share of `source`; null gives the error source.
  explicit LSoundSource(LSoundSourceBase* source);
  LSoundSource(LSoundSource const&) = default;
  LSoundSource& operator=(LSoundSource const&) = default;
  // No move: a moved-from handle would be empty.

  template <class T, class... Args>
  static LSoundSource Make(Args&&... args) {
    return LSoundSource(new T(std::forward<Args>(args)...));
  }

  // Drops this handle's share and holds a fresh error source again.
  void Close();

  LSoundSourceBase* Get() const noexcept { return p.Get(); }
  LSoundSourceBase* operator->() const noexcept { return p.Get(); }
  LSoundSourceBase& operator*() const noexcept { return *p; }
  bool IsGood() const { return !p->IsError(); }

 private:
  LCountedPtr<LSoundSourceBase> p;
};

// A handle that also keeps the concrete type of the source it holds, so the holder
// can call the effect's own operations while the chain sees a plain source.
template <class T>
class LSoundSourceTransparent {
 public:
  // The error source, with no typed pointer.
  LSoundSourceTransparent() = default;
  explicit LSoundSourceTransparent(T* source) : lss(source), pTyped(source) {}

  LSoundSource const& GetSource() const { return lss; }
  operator LSoundSource const&() const { return lss; }  // NOLINT: used where a source is wanted
  T* GetTyped() const { return pTyped; }
  T* operator->() const { return pTyped; }

  void Close() {
    lss.Close();
    pTyped = nullptr;
  }

 private:
  LSoundSource lss;
  T* pTyped = nullptr;
};

// Stands in for every source that could not be made: mono, 11025 Hz, silent, at
// position 0 with end 0, error state 1.
class LSoundSourceError : public LSoundSourceBase {
 public:
  LSoundSourceError();
  void Read(float* buffer, int frames) override;
  int GetPositionSample() const override { return 0; }
  int GetEndSample() const override { return 0; }
};

// Base of decorators: holds the source below and forwards everything but Read to it.
// Built over a source in error it takes error state 2, so that one test at the top
// of a chain tells of a failure anywhere beneath.
class LSoundProcessBase : public LSoundSourceBase {
 public:
  // Same rate, channels and peak bound as `source`.
  explicit LSoundProcessBase(LSoundSource const& source);
  // For a stage that changes the channel count or the peak bound.
  LSoundProcessBase(LSoundSource const& source, int channels, float peakBound);

  int GetPositionSample() const override;
  int GetEndSample() const override;
  void Seek(int frame) override;
  bool ControlMessage(int code, long* value) override;
  int AdjustRelativeOffset(int offset, int position) override;
  bool IsStreaming() const override;
  void WaitForStreamingData(int ms) override;

  LSoundSource const& GetSource() const { return lssSource; }

 protected:
  LSoundSource lssSource;
};

// Zeros from `position` on; the end is a number that Read does not respect, so a
// silence can be read past its end like any source.
class LSilenceSourceBase : public LSoundSourceBase {
 public:
  LSilenceSourceBase(int sampleRate, int channels, int endFrames);
  void Read(float* buffer, int frames) override;
  int GetPositionSample() const override { return sPosition; }
  int GetEndSample() const override { return sEnd; }
  void Seek(int frame) override { sPosition = frame; }

 private:
  int sPosition = 0;
  int sEnd;
};
