#include "sound/sink_limit.h"

#include "sound/peak_limit.h"

void LPRLimitForSink(LSoundSource& source) {
  if (source->IsError()) return;  // the caller's error test reports this one
  source = LSPPeakLimit(LPRSinkCeiling).OpenSource(source);
}
