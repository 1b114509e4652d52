#pragma once
#include <memory>
#include <vector>

#include "foundation/counted.h"
#include "sound/sound_source.h"

// A general mixer for the smaller players (sound panels, the Beat Designer): any
// number of sources, each routed onto the output channels by its own channel map
// with a volume per route. The project's own mix does not use it; it has its
// tracks, meters and solo to look after.
//
//   LAudioMixer mixer(44100, 2);
//   mixer.AddSource(kick, 1);                      // default map by channel count
//   mixer.AddChannelDesignation(2, 0, 1, 0.5f);    // source 2's left to the right, at half
//   LSoundSource out = mixer.OpenSource();

// One input of a mixer: its source, the id it is known by, and where its channels go.
class LAudioMixerSource {
 public:
  struct Designation {
    int iInput;
    int iOutput;
    float fVolume;
  };

  LAudioMixerSource(LSoundSource source, long id) : lssSource(std::move(source)), lId(id) {}

  // The routes a source of this many channels takes by default on an output of
  // `outputChannels`: mono to every output, otherwise channel c to output c for
  // as many as both have.
  void SetDefaultChanMap(int outputChannels);
  void AddDesignation(int input, int output, float volume) { vMap.push_back({input, output, volume}); }
  void ClearChanMap() { vMap.clear(); }

  LSoundSource const& GetSource() const { return lssSource; }
  void SetSource(LSoundSource source) { lssSource = std::move(source); }
  long GetId() const { return lId; }
  std::vector<Designation> const& GetChanMap() const { return vMap; }

 private:
  LSoundSource lssSource;
  long lId;
  std::vector<Designation> vMap;
};

// The source a mixer opens: sums its inputs by their maps. Position is its own;
// a seek reaches every input. The end is the longest input's. ControlMessage goes
// to all inputs, true when all took it (and with no inputs).
class LAudioMixerSourceBase : public LSoundSourceBase {
 public:
  // Inputs must be at `rate` already; routes to channels outside `channels`, or
  // from channels an input does not have, are dropped.
  LAudioMixerSourceBase(int rate, int channels, std::vector<LAudioMixerSource> inputs);

  void Read(float* buffer, int frames) override;
  int GetPositionSample() const override { return sPosition; }
  int GetEndSample() const override;
  void Seek(int frame) override;
  bool ControlMessage(int code, long* value) override;
  bool IsStreaming() const override;

  // Puts another source in place of input `id` while the mix plays, at the mix's
  // position. The caller holds whatever lock keeps the reading thread out (the
  // player's). False when there is no such input, or the new source is at another
  // rate or has more channels than the input's buffer takes.
  bool UpdateSource(long id, LSoundSource const& source);

 private:
  std::vector<LAudioMixerSource> vInputs;
  int iWorkChannels = 1;  // the widest input, which sizes the work buffer
  std::unique_ptr<float[]> pWork;
  int sPosition = 0;
};

// The description of a mix: inputs, their routes, and the output format. Sources
// at another rate are converted when they are added.
class LAudioMixer {
 public:
  LAudioMixer(int rate, int channels) : iRate(rate), iChannels(channels) {}

  int GetSampleRate() const { return iRate; }
  int GetChannels() const { return iChannels; }

  // Adds an input with the default channel map. A source in error is kept (so
  // its id exists) but plays nothing.
  void AddSource(LSoundSource const& source, long id);
  // Replaces the source of input `id`, keeping its routes; the source opened last
  // takes it too. False when there is no such input.
  bool UpdateSource(long id, LSoundSource const& source);
  bool DoesSourceExist(long id) const;
  // Adds a route of input `id`; the first one given replaces the default map.
  bool AddChannelDesignation(long id, int input, int output, float volume = 1.0f);
  void Clear();
  int GetCount() const { return static_cast<int>(vSources.size()); }

  // A source that plays the inputs as they are now; with none, a silent source
  // of the mixer's format and length 0.
  LSoundSource OpenSource();

 private:
  struct Entry {
    LAudioMixerSource source;
    bool bDefaultMap = true;
  };
  Entry* Find(long id);

  int iRate;
  int iChannels;
  std::vector<Entry> vSources;
  LSoundSourceTransparent<LAudioMixerSourceBase> lssOpened;
};
