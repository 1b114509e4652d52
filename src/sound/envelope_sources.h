#pragma once
#include <cstdint>
#include <span>
#include <vector>

#include "sound/envelope_points.h"
#include "sound/sound_source.h"

// The sources that play volume and pan lines, of a clip's fades and of a track's
// automation alike.
//
// Between two neighbouring points the gain runs in a straight line, in amplitude,
// from the whole-dB level of the one to that of the other (GetDB, GetPanDB); a
// frame at a point's position takes that point's level. Frames before the first
// point and after the last are passed on untouched: the line only speaks where it
// has points. Positions are milliseconds from the source's frame 0, turned into
// frames at the source's rate.
//
// The points are copied and sorted when the source is made, so editing the line
// while it plays changes nothing here; the levels are looked up in the dB table
// once per point, so Read costs one multiply and one add per sample and
// allocates nothing. Seek goes to the source below: the gain is worked out afresh
// from the position at every Read.

class LSRCGainEnvelope : public LSoundProcessBase {
 public:
  LSRCGainEnvelope(LSoundSource const& source, std::span<LEnvelopePointVol const> points);

  void Read(float* buffer, int frames) override;

  int GetPointCount() const { return static_cast<int>(vStops.size()); }

 private:
  struct Stop {
    std::int64_t iFrame;
    double dAmplitude;
  };

  // Applies the line to `frames` frames that start at source frame `first`.
  void ProcessVolume(float* buffer, int frames, std::int64_t first) const;

  std::vector<Stop> vStops;
};

// Each of the first two channels follows its own side of the pan line; further
// channels pass untouched, and a mono source takes the first channel's side only.
// Pan only ever lowers a side, so the peak bound stays that of the source.
class LSRCPanEnvelope : public LSoundProcessBase {
 public:
  LSRCPanEnvelope(LSoundSource const& source, std::span<LEnvelopePointPan const> points);

  void Read(float* buffer, int frames) override;

  int GetPointCount() const { return static_cast<int>(vStops.size()); }

 private:
  struct Stop {
    std::int64_t iFrame;
    double dAmplitude[2];
  };

  void ProcessPan(float* buffer, int frames, std::int64_t first) const;

  std::vector<Stop> vStops;
};
