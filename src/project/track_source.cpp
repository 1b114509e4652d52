#include "project/track_source.h"

#include "sound/gain_sources.h"

LSoundSource TDWrapTrackSource(TDTrack const& track, LSoundSource const& clipMix) {
  int const channels = clipMix->GetChannels();
  LDBMultiChannel<float> levels(channels);
  levels.SetAll(track.PannedVolume.fCentre);
  levels[0] = track.PannedVolume.fFirstChannelGain;
  if (channels > 1) levels[1] = track.PannedVolume.fSecondChannelGain;
  LSoundSource const gained = LSoundSource::Make<LSRCGainMultiChannels>(clipMix, levels);
  // Automation, the last stage of a track, will open over the chain's output here.
  return track.EffectChain.OpenSource(gained);
}
