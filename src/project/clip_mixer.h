#pragma once
#include <memory>
#include <vector>

#include "foundation/db.h"
#include "foundation/sound_time.h"
#include "sound/sound_source.h"

// Hears the level of every clip as the mix plays it, for the level marks on the
// clips of the timeline. Called on the reading thread, once for each clip that
// sounded in a block; it must not block.
class TDSrcMixerNotify {
 public:
  virtual ~TDSrcMixerNotify() = default;
  // The clip's peak per channel over the block that starts at `time` (ms).
  virtual void mpSRCntfClipLevel(LDBMultiChannel<LdB<signed char>> const& levels, long clipId, LSoundTime time) = 0;
};

// Collects the clips of one track, each with its place on the timeline, and opens
// the source that sums them: the track's clip mix, whose frame 0 is the project's
// start.
class TDClipMixer {
 public:
  TDClipMixer();

  // The clip's sound (at the mix's rate and channels), its start on the timeline
  // and its id.
  void AddSource(LSoundSource const& source, LSoundTime start, long id);
  int GetCount() const { return static_cast<int>(vSources.size()); }

  // The sum of the clips; starts become frames at the first source's rate. With
  // no clip, a source in error.
  LSoundSource OpenSource(TDSrcMixerNotify* notify) const;

 private:
  std::vector<LSoundSource> vSources;
  std::vector<LSoundTime> vStarts;
  std::vector<long> vIds;
};

// Sums clips at their frame offsets. A clip is read only while the mix is within
// it, so a long track of many clips costs what is sounding, and a clip starting
// inside a block is read from its first frame into the block at its offset. Seek
// puts every clip where the new position finds it: so a clip keeps in step
// however the mix moves.
class TDSRCClipMixer : public LSoundSourceBase {
 public:
  // All sources at one rate and channel count, with a start frame each. Clips are
  // kept in order of their starts.
  TDSRCClipMixer(std::vector<LSoundSource> sources, std::vector<int> starts, std::vector<long> ids,
                 TDSrcMixerNotify* notify);

  void Read(float* buffer, int frames) override;
  int GetPositionSample() const override { return sPosition; }
  int GetEndSample() const override { return sEnd; }
  void Seek(int frame) override;

  int GetCount() const { return static_cast<int>(vClips.size()); }

 private:
  struct Clip {
    LSoundSource lss;
    int iStart;
    int iEnd;  // start plus the clip's length, in the mix's frames
    long lId;
  };

  void NotifyLevel(Clip const& clip, float const* work, int frames) const;

  std::vector<Clip> vClips;
  TDSrcMixerNotify* pNotify;
  int sPosition = 0;
  int sEnd = 0;
  std::unique_ptr<float[]> pWork;
};
