#pragma once
#include "project/track.h"
#include "sound/sound_source.h"

// Wraps the mix of one track's clips in what the track itself does to it, in the
// order of the signal: the track's volume and pan as per-channel gains (whole
// dB from the amplitude table, a fraction interpolated between its neighbours),
// then the effect chain, then the track's volume and pan lines. The mix's frame 0
// is the project's start. Channels past the second take the track's volume alone.
LSoundSource TDWrapTrackSource(TDTrack const& track, LSoundSource const& clipMix);
