#pragma once
#include "sound/sound_source.h"

// Brings `source` to `rate` and `channels`, replacing the handle in place. Channels
// are reduced before the rate is converted and widened after it, so that the rate
// converter works on as few channels as it can. A source already in error is left
// as it is; test the error state afterwards.
void LSPConvertSourceRateChannels(int rate, int channels, LSoundSource& source);

// The rate step of the above: LSPConvertRate with an exact ratio (approximated only
// for pairs of rates whose exact ratio would need an outsized filter table). A
// source in error or at the rate already stays as it is.
void LSPConvertSourceRate(int rate, LSoundSource& source);
