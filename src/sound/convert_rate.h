#pragma once
#include <cstddef>
#include <cstdint>
#include <memory>

#include "sound/convert_rate_kernels.h"
#include "sound/sound_sink.h"
#include "sound/sound_source.h"

// Polyphase sample-rate conversion, for sources (every clip whose rate differs from
// the mix's) and for sinks (a device recording at another rate than the project's).
//
// The ratio is out / in = L / M in lowest terms: output frame k lies at input time
// k * M / L, and is the dot product of one of L precomputed filters (the phase
// (k * M) mod L) with the input frames around that time. The filters are a
// Kaiser-windowed sinc: for a rate going down the cut-off sits a little under the
// new Nyquist frequency, for a rate going up a little under the old one, so nothing
// above half the lower rate survives.

// The ratio and the filter table, shared by the source and the sink converters.
class LConvertRateBase {
 public:
  // `taps` filter taps a phase; `narrow` widens the guard band under the new Nyquist
  // frequency when the rate goes down (for short filters, whose slope is shallow).
  // `approximate` replaces the exact ratio by the nearest one with at most 255
  // phases, for rates whose exact ratio would need a huge table; the result then runs
  // a little fast or slow (under 1e-5 of the rate when one is found, as for most
  // pairs). An exact ratio of more than MaxExactPhases phases is approximated too.
  LConvertRateBase(int in, int out, int taps, bool narrow, bool approximate);
  LConvertRateBase(LConvertRateBase const&) = delete;
  LConvertRateBase& operator=(LConvertRateBase const&) = delete;

  static constexpr int MaxExactPhases = 4096;

  int GetUp() const { return iUp; }      // L
  int GetDown() const { return iDown; }  // M
  int GetTaps() const { return iTaps; }
  // Floats from one phase's taps to the next: the taps rounded up to whole vectors,
  // the extra taps being zero.
  int GetStride() const { return iStride; }
  float const* GetPhaseTaps(int phase) const { return pTable.get() + static_cast<std::size_t>(phase) * iStride; }
  // The most the filter can multiply a sample's size by: the greatest sum of
  // absolute taps over the phases.
  float GetGainBound() const { return fGainBound; }
  bool HasTable() const { return pTable != nullptr; }

  // L and M for a conversion from `in` to `out`, both above 0.
  static void ChooseRatio(int in, int out, bool approximate, int& up, int& down);

 protected:
  struct AlignedFree {
    void operator()(float* p) const;
  };

  int iUp = 1;
  int iDown = 1;
  int iTaps;
  int iStride;
  float fGainBound = 1.0f;
  std::unique_ptr<float[], AlignedFree> pTable;
};

// Converts a source to another rate. Stated rate: the target; peak bound: the
// source's times the filter's gain bound (ringing can overshoot).
//
// It reads the source only as far as the frames it is asked for need, so that the
// source's position stays near this one and a streaming source is not read past
// what is there. GetPositionSample, GetEndSample and Seek translate exactly: output
// frame p lies at input time p * M / L, the end is the first output frame at or past
// the source's end (for a streaming source, the first whose filter would reach past
// it), and before input frame 0 the input is taken as silence.
class LSRCConvertRate : public LSoundProcessBase, public LConvertRateBase {
 public:
  static constexpr int Taps = 63;
  // Input frames held for each channel: enough for LSoundMaxReadFrames output
  // frames at four input frames each, with the filter's length.
  static constexpr int BufferFrames = 4 * LSoundMaxReadFrames + Taps;

  // A rate under 1 gives 44100 and error state 3.
  LSRCConvertRate(LSoundSource const& source, int rate, bool approximate = false);

  void Read(float* buffer, int frames) override;
  int GetPositionSample() const override;
  int GetEndSample() const override;
  void Seek(int frame) override;
  // Messages with no value are not passed on.
  bool ControlMessage(int code, long* value) override;
  // Offsets and positions here are output frames; the stages below (a loop) count
  // input frames, so both go down at the input's rate, and what a loop below does to
  // them (a fold by its length) comes back at the output's.
  int AdjustRelativeOffset(int offset, int position) override;

 private:
  // Makes input frames [0, upTo) of the buffer available, first moving the frames
  // still needed to the front when the buffer would overflow.
  void Fill(std::int64_t upTo);
  // Starts over with output frame `frame`.
  void Restart(std::int64_t frame, bool seekSource);

  LRateKernel pKernel = nullptr;
  std::size_t iPlaneStride = 0;       // floats from one channel's input to the next
  std::unique_ptr<float[]> pInput;    // planar input, BufferFrames (and a vector) a channel
  std::unique_ptr<float[]> pScratch;  // one interleaved read from the source
  std::int64_t iBufferStart = 0;      // input frame number of buffer frame 0
  int iHeld = 0;                      // buffer frames filled
  int iIndex = 0;                     // buffer frame where the next output's filter starts
  int iPhase = 0;                     // and its phase
  std::int64_t iZerosPending = 0;     // silence before input frame 0 still to put in
};

// The description of a rate conversion: a target rate and whether an approximate
// ratio will do.
class LSPConvertRate {
 public:
  explicit LSPConvertRate(int rate, bool approximate = false) : iRate(rate), bApproximate(approximate) {}

  // `source` itself when it is in error or has the rate already; otherwise a
  // converter. A source at more than four times the target first goes to twice the
  // target, so that one filter never has to cut far below its input's band.
  LSoundSource OpenSource(LSoundSource const& source) const;

  int iRate;
  bool bApproximate;
};

// A sink that takes frames at one rate and writes them to another sink at that
// sink's rate: for a sound device that records at another rate than the project.
// A short filter (15 taps) keeps the delay and the work small on the recording path.
//
// Input is filtered as it comes and what is ready goes to the sink at the end of each
// Write. Flush (also run by Seek and on destruction) writes the last frames, so that
// N frames written give the output frames up to the one at or past input time N.
class LSinkConvertRateBase : public LSoundSinkBase, public LConvertRateBase {
 public:
  static constexpr int Taps = 15;
  static constexpr int BufferFrames = LSoundMaxReadFrames + Taps;

  // Takes frames at `rate`; writes them to `sink` at its own rate.
  LSinkConvertRateBase(LSoundSink const& sink, int rate, bool narrow = false, bool approximate = false);
  ~LSinkConvertRateBase() override;

  void Write(float const* buffer, int frames) override;
  // Flushes, then moves the sink to the same time at its rate and starts over.
  void Seek(int frame) override;
  void Flush();

  LSoundSink const& GetSink() const { return lsnkSink; }

 private:
  void Restart();
  void Produce(std::int64_t maxOutputs);
  void WriteOut();

  LSoundSink lsnkSink;
  LRateKernel pKernel = nullptr;
  std::size_t iPlaneStride = 0;
  std::unique_ptr<float[]> pInput;   // planar, BufferFrames (and a vector) a channel
  std::unique_ptr<float[]> pOutput;  // LSoundMaxReadFrames interleaved frames
  int iOutFrames = 0;
  int iHeld = 0;
  int iIndex = 0;
  int iPhase = 0;
  std::int64_t iInputFrames = 0;   // written since the start or the last seek
  std::int64_t iOutputFrames = 0;  // made since then
};

// The description of a sink conversion: the rate that the writer gives.
class LSinkConvertRate {
 public:
  explicit LSinkConvertRate(int rate, bool approximate = false) : iRate(rate), bApproximate(approximate) {}

  // `sink` itself when it has the rate already (or is in error); otherwise an
  // LSinkConvertRateBase over it. `narrow` as for LConvertRateBase.
  LSoundSink OpenSink(LSoundSink const& sink, bool narrow = false) const;

  int iRate;
  bool bApproximate;
};
