#pragma once
#include <cstdint>
#include <string>
#include <vector>

#include "project/metronome_feature.h"
#include "sound/sound_source.h"

// The metronome: a click on every beat of the project's tempo list, the accent
// sound on the first beat of each bar, the beat sound on the others. Beat 0 is
// the first beat of the first bar and stands at frame 0; beats before it count
// back through the tempo in force there, so a pre-roll clicks in time too. A
// tempo counts beats of the time signature.
//
// The clicks are held in memory at the mix's rate and channels. A click plays
// until its sound ends or the next beat starts one, so clicks never pile up. It
// has no end; its position starts at the frame it is made for.
class LSRCMetronomeMultiTempo : public LSoundSourceBase {
 public:
  // Tempos outside this range are taken as its nearest end, so that the click
  // buffers stay bounded (a beat lasts at most six seconds).
  static constexpr double kMinBPM = 10.0;
  static constexpr double kMaxBPM = 280.0;

  // `beat` and `accent` are interleaved frames of `channels`; either may be empty
  // (no click of that kind). Only beats whose frame lies in [boundaryStart,
  // boundaryEnd) click.
  LSRCMetronomeMultiTempo(int rate, int channels, std::vector<LTempoChange> const& tempos, int beatsPerBar,
                          std::vector<float> beat, std::vector<float> accent, int startFrame, int boundaryStart,
                          int boundaryEnd);

  void Read(float* buffer, int frames) override;
  int GetPositionSample() const override { return sPosition; }
  int GetEndSample() const override { return 0x7FFFFFFF; }
  // A seek into a click that is still sounding there plays the rest of it.
  void Seek(int frame) override;

  // Clicks only for beats in [start, end) from now on.
  void SetBoundary(int start, int end);

  // The frame where beat `beat` falls (negative beats lie before frame 0).
  std::int64_t GetBeatFrame(std::int64_t beat) const;
  // The same for any beat position, and back, without rounding.
  double GetFrameOfBeat(double beat) const;
  double GetBeatOfFrame(double frame) const;
  // The first beat whose frame is at or after `frame`.
  std::int64_t GetFirstBeatAtOrAfter(std::int64_t frame) const;
  bool IsAccent(std::int64_t beat) const;
  int GetBeatSoundFrames() const { return iBeatFrames; }
  int GetAccentSoundFrames() const { return iAccentFrames; }

 private:
  // A stretch of constant tempo from a beat position on.
  struct Segment {
    double dBeat;
    double dFrame;
    double dFramesPerBeat;
  };

  // The click a beat starts, null when it does not click.
  float const* ClickOf(std::int64_t beat, int& frames) const;
  // Trims a click to whole frames, to its last audible frame, and to `maxFrames`.
  void Fit(std::vector<float>& click, int& frames, int maxFrames) const;

  std::vector<Segment> vSegments;  // in order of beat; the first also covers all before it
  int iBeatsPerBar;
  std::vector<float> vBeat;
  std::vector<float> vAccent;
  int iBeatFrames = 0;
  int iAccentFrames = 0;
  int iBoundaryStart;
  int iBoundaryEnd;
  int sPosition = 0;
  // The click sounding now and how far it has played.
  float const* pTick = nullptr;
  int iTickFrames = 0;
  int iTickOffset = 0;
};

// Reads a click sound file (WAV, AIFF or AU) into memory at `rate` and
// `channels`, at most `maxFrames` frames. Empty when the file cannot be read.
std::vector<float> TDLoadClickSound(std::string const& path, int rate, int channels, int maxFrames);

// The sound files the metronome uses unless a project names its own: "beat.wav"
// and "accent.wav" in the "sounds" folder of the program's shared data.
std::string TDDefaultMetronomeSoundPath(char const* name);
