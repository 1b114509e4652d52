#include "sound/envelope_sources.h"

#include <algorithm>

namespace {

// The stretch that frame `frame` falls in: the last stop at or before it.
// Stops are sorted by frame and `frame` is not before the first.
template <class Stop>
std::size_t StopAtOrBefore(std::vector<Stop> const& stops, std::int64_t frame) {
  auto it =
      std::upper_bound(stops.begin(), stops.end(), frame, [](std::int64_t f, Stop const& s) { return f < s.iFrame; });
  return static_cast<std::size_t>(it - stops.begin()) - 1;
}

template <class Point, class Stop, class LevelsOf>
std::vector<Stop> MakeStops(std::span<Point const> points, int rate, LevelsOf levelsOf) {
  std::vector<Point> sorted(points.begin(), points.end());
  LSortEnvelopePoints(sorted);
  std::vector<Stop> stops;
  stops.reserve(sorted.size());
  for (Point const& p : sorted) {
    Stop s{};
    s.iFrame = LSoundTimeToFrames(p.iPosition, rate);
    levelsOf(p, s);
    stops.push_back(s);
  }
  return stops;
}

// Walks the stretches that meet frames [first, first + frames) and hands each run
// of frames to `apply(offset, count, stop, step index)`, with the gain at the run's
// first frame worked out from the stretch's start so that no rounding carries
// from one Read to the next.
template <class Stop, class Apply>
void WalkStretches(std::vector<Stop> const& stops, int frames, std::int64_t first, Apply apply) {
  if (stops.empty() || frames <= 0) return;
  std::int64_t const end = first + frames;
  if (end <= stops.front().iFrame || first > stops.back().iFrame) return;
  std::int64_t f = std::max(first, stops.front().iFrame);
  std::size_t i = StopAtOrBefore(stops, f);
  while (f < end) {
    if (i + 1 >= stops.size()) {
      // The frame on the last point takes its level; those after it are left.
      if (f == stops.back().iFrame) apply(static_cast<int>(f - first), 1, stops.back(), stops.back(), 0);
      return;
    }
    Stop const& a = stops[i];
    Stop const& b = stops[i + 1];
    ++i;
    if (b.iFrame <= f) continue;  // points on the same frame: the later one leads on
    std::int64_t const runEnd = std::min(end, b.iFrame);
    apply(static_cast<int>(f - first), static_cast<int>(runEnd - f), a, b, f - a.iFrame);
    f = runEnd;
  }
}

}  // namespace

// ---- gain ----

LSRCGainEnvelope::LSRCGainEnvelope(LSoundSource const& source, std::span<LEnvelopePointVol const> points)
    : LSoundProcessBase(source) {
  vStops = MakeStops<LEnvelopePointVol, Stop>(
      points, sSampleRate, [](LEnvelopePointVol const& p, Stop& s) { s.dAmplitude = p.GetDB().GetAmplitude(); });
  // Points above unity can lift samples past full scale: the limiter must know.
  for (Stop const& s : vStops) {
    if (s.dAmplitude > 1.0) fPeakBound = LSoundPeakUnknown;
  }
}

void LSRCGainEnvelope::Read(float* buffer, int frames) {
  if (frames <= 0) return;
  std::int64_t const first = lssSource->GetPositionSample();
  lssSource->Read(buffer, frames);
  ProcessVolume(buffer, frames, first);
}

void LSRCGainEnvelope::ProcessVolume(float* buffer, int frames, std::int64_t first) const {
  int const ch = nChans;
  WalkStretches(vStops, frames, first, [&](int offset, int count, Stop const& a, Stop const& b, std::int64_t passed) {
    double const span = static_cast<double>(b.iFrame - a.iFrame);
    double const step = span > 0.0 ? (b.dAmplitude - a.dAmplitude) / span : 0.0;
    double gain = a.dAmplitude + step * static_cast<double>(passed);
    float* p = buffer + static_cast<std::size_t>(offset) * ch;
    for (int f = 0; f < count; ++f) {
      for (int c = 0; c < ch; ++c, ++p) *p = static_cast<float>(*p * gain);
      gain += step;
    }
  });
}

// ---- pan ----

LSRCPanEnvelope::LSRCPanEnvelope(LSoundSource const& source, std::span<LEnvelopePointPan const> points)
    : LSoundProcessBase(source) {
  vStops = MakeStops<LEnvelopePointPan, Stop>(points, sSampleRate, [](LEnvelopePointPan const& p, Stop& s) {
    LDBMultiChannel<signed char> const levels = p.GetPanDB();
    s.dAmplitude[0] = LdBAmplitudeOf(levels[0]);
    s.dAmplitude[1] = LdBAmplitudeOf(levels[1]);
  });
}

void LSRCPanEnvelope::Read(float* buffer, int frames) {
  if (frames <= 0) return;
  std::int64_t const first = lssSource->GetPositionSample();
  lssSource->Read(buffer, frames);
  ProcessPan(buffer, frames, first);
}

void LSRCPanEnvelope::ProcessPan(float* buffer, int frames, std::int64_t first) const {
  int const ch = nChans;
  int const sides = std::min(ch, 2);
  WalkStretches(vStops, frames, first, [&](int offset, int count, Stop const& a, Stop const& b, std::int64_t passed) {
    double const span = static_cast<double>(b.iFrame - a.iFrame);
    double gain[2];
    double step[2];
    for (int c = 0; c < 2; ++c) {
      step[c] = span > 0.0 ? (b.dAmplitude[c] - a.dAmplitude[c]) / span : 0.0;
      gain[c] = a.dAmplitude[c] + step[c] * static_cast<double>(passed);
    }
    float* p = buffer + static_cast<std::size_t>(offset) * ch;
    for (int f = 0; f < count; ++f, p += ch) {
      for (int c = 0; c < sides; ++c) {
        p[c] = static_cast<float>(p[c] * gain[c]);
        gain[c] += step[c];
      }
    }
  });
}
