#pragma once
#include "project/track.h"
#include "sound/sound_source.h"

// Wraps the mix of one track's clips in what the track itself does to it, in the
// order of the signal: the track's volume and pan as per-channel gains (whole
// dB from the amplitude table, a fraction interpolated between its neighbours),
// then the effect chain. The track's automation goes on top of what this returns
// once automation exists. Channels past the second take the track's volume alone.
LSoundSource TDWrapTrackSource(TDTrack const& track, LSoundSource const& clipMix);
