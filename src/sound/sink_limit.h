#pragma once
#include "sound/sound_source.h"

// The ceiling of everything written to a sink: 32767/32768, the greatest value that
// every integer sample format holds. No file ever receives overs.
inline constexpr float LPRSinkCeiling = LSoundPeakInRange;

// The limiter step of the copies to a sink: leaves `source` limited to
// LPRSinkCeiling. A source whose peak bound is at or under the ceiling passes as it
// is. The limiter itself is not part of the program yet, so a source that may exceed
// the ceiling cannot be written: this returns false, and the caller fails with
// LPRSinkLimiterMissing rather than write overs.
bool LPRLimitForSink(LSoundSource& source);

inline constexpr char LPRSinkLimiterMissing[] =
    "The sound cannot be written: it may exceed full scale, and the peak limiter is not available.";
