#pragma once
#include "sound/sound_source.h"

// The ceiling of everything written to a sink: 32767/32768, the greatest value that
// every integer sample format holds. No file ever receives overs.
inline constexpr float LPRSinkCeiling = LSoundPeakInRange;

// The limiter step of the copies to a sink: puts a peak limiter with the sink
// ceiling on the end of `source`, unless its peak bound says it cannot exceed it.
void LPRLimitForSink(LSoundSource& source);
