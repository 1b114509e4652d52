#include "project/track_source.h"

#include "sound/gain_sources.h"

LSoundSource TDWrapTrackSource(TDTrack const& track, LSoundSource const& clipMix) {
  int const channels = clipMix->GetChannels();
  LDBMultiChannel<float> levels(channels);
  levels.SetAll(track.PannedVolume.fCentre);
  levels[0] = track.PannedVolume.fFirstChannelGain;
  if (channels > 1) levels[1] = track.PannedVolume.fSecondChannelGain;
  LSoundSource const gained = LSoundSource::Make<LSRCGainMultiChannels>(clipMix, levels);
  // The track's own lines come last, so a volume ride shapes what the effects
  // made rather than what goes into them. The mix starts at the project's start.
  return track.Automation.OpenSource(track.EffectChain.OpenSource(gained), 0);
}
