#include "sound/sink_limit.h"

bool LPRLimitForSink(LSoundSource& source) {
  if (source->IsError()) return true;  // the caller's error test reports this one
  return source->GetPeakBound() <= LPRSinkCeiling;
}
