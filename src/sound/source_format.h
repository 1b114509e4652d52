#pragma once
#include "sound/sound_source.h"

// Brings `source` to `rate` and `channels`, replacing the handle in place. Channels
// are reduced before the rate is converted and widened after it, so that the rate
// converter works on as few channels as it can. A source already in error is left
// as it is; the result of a conversion that cannot be done is an error source, so
// test the error state afterwards.
void LSPConvertSourceRateChannels(int rate, int channels, LSoundSource& source);

// The rate step of the above. There is no sample rate converter yet: any change of
// rate gives an error source, so that a caller refuses the graph instead of playing
// it at the wrong speed. This is the one place the converter plugs in.
void LSPConvertSourceRate(int rate, LSoundSource& source);
