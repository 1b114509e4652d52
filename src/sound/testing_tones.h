#pragma once
// Measuring a tone that went through a codec, for tests only: lossy codecs keep the
// pitch and, within a decibel or so, the level, though not the samples.
#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <string>
#include <vector>

#include "sound/sound_source.h"

// Frames [from, to) of one channel of interleaved samples.
struct LTestTone {
  double dFrequency = 0;  // from the upward zero crossings
  double dRms = 0;
};

inline LTestTone LTestMeasureTone(std::vector<float> const& samples, int channels, int channel, int rate,
                                  std::size_t from, std::size_t to) {
  LTestTone t;
  std::size_t const frames = samples.size() / static_cast<std::size_t>(channels);
  to = std::min(to, frames);
  if (from + 2 >= to) return t;
  auto at = [&](std::size_t f) { return samples[f * static_cast<std::size_t>(channels) + static_cast<std::size_t>(channel)]; };
  double sum = 0;
  int crossings = 0;
  double first = -1, last = -1;
  for (std::size_t f = from; f < to; ++f) {
    double const v = at(f);
    sum += v * v;
    if (f > from && at(f - 1) < 0 && v >= 0) {
      // Where between the two samples the line crosses zero.
      double const prev = at(f - 1);
      double const x = static_cast<double>(f - 1) + (-prev) / (v - prev);
      if (first < 0) first = x;
      last = x;
      ++crossings;
    }
  }
  t.dRms = std::sqrt(sum / static_cast<double>(to - from));
  if (crossings >= 2) t.dFrequency = (crossings - 1) * static_cast<double>(rate) / (last - first);
  return t;
}

inline double LTestDb(double ratio) { return 20.0 * std::log10(std::max(ratio, 1e-12)); }

// Reads a source from its position to its end; a streaming one is followed, as the
// streaming copy follows it, until it knows its end.
inline std::vector<float> LTestReadToEnd(LSoundSource const& s) {
  std::vector<float> out;
  std::vector<float> block(static_cast<std::size_t>(LSoundMaxReadFrames) * static_cast<std::size_t>(s->GetChannels()));
  for (;;) {
    int const left = s->GetEndSample() - s->GetPositionSample();
    if (left < 1) {
      if (!s->IsStreaming()) return out;
      s->WaitForStreamingData(150);
      continue;
    }
    int const n = std::min(LSoundMaxReadFrames, left);
    s->Read(block.data(), n);
    out.insert(out.end(), block.begin(), block.begin() + static_cast<std::ptrdiff_t>(n) * s->GetChannels());
  }
}

// Runs a reference tool (ffmpeg, sox) quietly; true when it succeeded.
inline bool LTestRunTool(std::string const& command) { return std::system((command + " >/dev/null 2>&1").c_str()) == 0; }
