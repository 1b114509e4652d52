#pragma once
#include <cstdint>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "project/clip.h"
#include "project/clip_wave_profile.h"
#include "project/cut_list_audio.h"

// Makes the source that plays `source` `ratio` times faster (ratio = old length /
// new length), keeping its pitch or not. Stretching asks this; the phase vocoder
// and the pitch-and-speed source plug in here. Until they do, a change of speed
// without keeping the pitch is made by the rate converter, and keeping the pitch
// is not available (the source comes back in error and the stretch fails).
using TDStretchSourceMaker = std::function<LSoundSource(LSoundSource const& source, double ratio, bool keepPitch)>;
void TDSetStretchSourceMaker(TDStretchSourceMaker maker);
LSoundSource TDMakeStretchSource(LSoundSource const& source, double ratio, bool keepPitch);

// A stretch of the timeline: start and end, ms.
using TDTimeSegment = std::pair<LSoundTime, LSoundTime>;

// An audio clip: three cut lists over the files of the data folder.
//
//   current   what plays, and the only one saved;
//   base      what trimming and expanding repeat, as a loop in both directions;
//   original  what Restore goes back to.
//
// The clip shows a window of the endless repetition of the base, from the trim
// start total to the base's length plus the trim end total. Expanding past the
// base's end repeats it; trimming back gives the same list again.
//
// What plays is the current list shaped by the clip's lines: the volume line when
// the track's volume envelope is on, the pan line when its pan envelope is on.
class TDClipAudio : public TDClip {
 public:
  TDClipAudio();
  explicit TDClipAudio(LCutListAudio const& list);
  ~TDClipAudio() override;

  LSoundSource OpenSource(int rate, int channels) override;
  std::string GetTitle() const override;
  LProcessResult RestoreToOriginal(LProcessInterface& pi) override;
  void TrimOrExpand() override;
  // With the start at the clip's start this is a trim of the head (the clip moves),
  // with the end at the clip's end a trim of the tail; in between the frames go
  // and what is left becomes the new base.
  void CutFromMiddle(LSoundTime start, LSoundTime end) override;
  // Silences in what plays only: the base keeps the sound, so expanding shows the
  // silence in the first repeat alone.
  void SilenceRegion(LSoundTime start, LSoundTime end) override;
  // Both must be audio of the same rate and channels.
  bool Join(TDClip const& clip, bool before) override;
  // Renders a new file at the new length through the stretch source; on a stop or
  // a failure the clip is as it was.
  LProcessResult Stretch(LProcessInterface& pi, LSoundTime length, bool keepPitch) override;
  void SetAsTrimOrExpandBase() override;
  // The current list's length in ms, rounded to the nearest, halves away from 0.
  LSoundTime GetEnd() const override;
  int GetEndSample() const override { return clCurrent.GetEndSample(); }
  std::unique_ptr<TDClip> Clone() const override;

  // Sets all three lists.
  void SetCutListAudio(LCutListAudio const& list);
  LCutListAudio const& GetCutListAudio() const { return clCurrent; }
  LCutListAudio const& GetBaseCutListAudio() const { return clBase; }
  LCutListAudio const& GetOriginalCutListAudio() const { return clOriginal; }
  int GetSampleRate() const { return clCurrent.GetSampleRate(); }
  int GetChansRequired() const { return clCurrent.GetChannels(); }

  // Cuts the clip at timeline `time`: this clip keeps the left part and the right
  // part comes back, still at this clip's position for the caller to place. Null
  // when the time is not strictly inside the clip.
  std::unique_ptr<TDClipAudio> Split(LSoundTime time);
  // Builds the current list afresh from the base and the trim totals.
  void ReCreateCutListAudio();
  // Brings the original to a rate and channel count (a new file under "Changing
  // rate and channels") and rebuilds what plays from it.
  LProcessResult ConvertRateAndChannel(LProcessInterface& pi, int rate, int channels);
  // The current list's sound without fades, at the asked rate and channels.
  LSoundSource OpenSourceNoFades(int rate, int channels) const;
  // Puts the shape of the lines into the sound over each segment (the part of it
  // that lies on the clip): the clip is played with its lines, as its track would
  // play it, into a new file under "Applying fade points for <name>", and those
  // stretches of the result replace what played. A line that went into the sound
  // becomes flat there, so that it isn't applied twice. Over the whole clip the
  // clip sounds exactly as before; where a segment ends inside the clip, the line
  // turns within the millisecond inside the edge and gains a point on the edge,
  // whose level counts in whole dB like any point's. What plays becomes the trim
  // base. On a stop or failure the clip is as it was.
  LProcessResult RenderFadepoints(LProcessInterface& pi, std::vector<TDTimeSegment> const& segments);
  // Marks every file the three lists name as preserved (after a save).
  void PreserveCutList() const;

  // The drawn outline over clip times start..end (ms from the clip's start) on
  // pixels firstPixel..lastPixel; nothing is done when that is what is built
  // already, or the range is empty. True when it was rebuilt.
  bool CreateWaveProfileIfChanged(LSoundTime start, int firstPixel, LSoundTime end, int lastPixel);
  // Builds again for the same key, after the audio changed.
  void ReCreateWaveProfile();
  int GetProfilePixels() const { return iProfileKey[3] - iProfileKey[1]; }
  // The outline on a grid of columns fixed to the clip: column c covers frames
  // floor(c x framesPerPixel) up to the next column's, counted from the clip's
  // start. Columns first..first + count are made; at the same zoom, columns held
  // already are moved into place rather than read again, so scrolling reads only
  // the columns that came into view. True when anything was rebuilt; the result
  // is in GetUpperProfile/GetLowerProfile, column `first` at index 0.
  bool CreateWaveProfileColumns(double framesPerPixel, int first, int count);
  int GetProfileColumns() const { return iColumnCount; }
  // Null until an outline has been built.
  std::uint8_t const* GetUpperProfile() const { return vUpper.empty() ? nullptr : vUpper.data(); }
  std::uint8_t const* GetLowerProfile() const { return vLower.empty() ? nullptr : vLower.data(); }

 private:
  void BuildWaveProfile();
  // Columns [from, to) of the fixed grid into the buffers at `at`.
  void BuildColumns(double framesPerPixel, int from, int to, int at);
  // The line of `type` at unity from start to end (ms from the clip's start),
  // keeping its course outside.
  void FlattenFadePoints(LSoundTime start, LSoundTime end, FadeType type);
  // Frames [from, to) of the base repeated for ever in both directions.
  LCutListAudio Window(std::int64_t from, std::int64_t to) const;

  LCutListAudio clCurrent;
  LCutListAudio clBase;
  LCutListAudio clOriginal;
  // Made when first drawn: a project of thousands of clips loads without them.
  std::vector<std::uint8_t> vUpper;
  std::vector<std::uint8_t> vLower;
  // Start ms, first pixel, end ms, last pixel of the profile held; -1 for none.
  int iProfileKey[4] = {-1, -1, -1, -1};
  // The columns held on the fixed grid, when they were made that way.
  double dColumnFrames = 0.0;
  int iColumnFirst = 0;
  int iColumnCount = 0;
};
