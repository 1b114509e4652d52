#pragma once
// Sources with known content, for this folder's tests only.
#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "sound/sound_source.h"

// Sample (frame, channel) is given by a function for frames in [0, end), zero outside.
// Counts and records what is asked of it, so tests can see how a decorator drives it.
class LTestFunctionSource : public LSoundSourceBase {
 public:
  using Fn = std::function<float(int frame, int channel)>;

  LTestFunctionSource(int rate, int channels, int end, Fn fn, float peak = LSoundPeakInRange)
      : LSoundSourceBase(rate, channels, peak), sEnd(end), fn(std::move(fn)) {}

  void Read(float* buffer, int frames) override {
    EXPECT_LE(frames, LSoundMaxReadFrames) << "a read larger than the contract allows";
    for (int f = 0; f < frames; ++f, ++sPosition) {
      for (int c = 0; c < nChans; ++c) {
        *buffer++ = (sPosition >= 0 && sPosition < sEnd) ? fn(sPosition, c) : 0.0f;
      }
    }
  }
  int GetPositionSample() const override { return sPosition; }
  int GetEndSample() const override { return sEnd; }
  void Seek(int frame) override { sPosition = frame; }
  bool ControlMessage(int code, long* value) override {
    codes.push_back(code);
    if (code == iTakeCode && value) *value += 1000;
    return code == iTakeCode;
  }
  bool IsStreaming() const override { return bStreaming; }

  int sPosition = 0;
  int sEnd;
  Fn fn;
  bool bStreaming = false;
  int iTakeCode = -1;  // ControlMessage takes this code and adds 1000 to the value
  std::vector<int> codes;
};

// frame * 16 + channel: exact in float up to a million frames, distinct per channel.
inline float TestRamp(int frame, int channel) { return static_cast<float>(frame * 16 + channel); }

inline LSoundSource MakeRampSource(int rate, int channels, int end) {
  return LSoundSource::Make<LTestFunctionSource>(rate, channels, end, TestRamp);
}

// Reads `frames` frames in blocks of at most `block`.
inline std::vector<float> ReadAll(LSoundSource const& s, int frames, int block = LSoundMaxReadFrames) {
  std::vector<float> out(static_cast<std::size_t>(frames) * static_cast<std::size_t>(s->GetChannels()));
  for (int done = 0; done < frames;) {
    int const n = std::min(block, frames - done);
    s->Read(out.data() + static_cast<std::size_t>(done) * static_cast<std::size_t>(s->GetChannels()), n);
    done += n;
  }
  return out;
}
