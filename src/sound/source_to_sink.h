#pragma once
#include "foundation/process_interface.h"
#include "foundation/sound_time.h"
#include "sound/sound_sink.h"
#include "sound/sound_source.h"

// Copies a finite source into a sink: the most used job of all (import, export,
// rendering). The source is brought to the sink's rate and channels and limited to
// the sink ceiling on the way.
//
//   LPRSourceToSink job{"Mixing down file...", source, sink};
//   LProcessResult r = Process(progress, job);   // 0 done, 1 stopped, 2 failed
//
// On a stop the sink keeps what was written so far; deleting the file is the
// caller's business.
struct LPRSourceToSink {
  char const* szTitle = "";
  LSoundSource lssSource;
  LSoundSink lsnkSink;
  // Faded into over the last tenth of a second when bCrossMix is set.
  LSoundSource lssCrossMix;
  bool bCrossMix = false;
};

LProcessResult Process(LProcessInterface& pi, LPRSourceToSink& job);

// The same for a source whose end is not known yet (a decoder still producing): the
// copy follows the source until it stops streaming.
struct LPRSourceToSinkStreaming {
  char const* szTitle = "";
  LSoundSource lssSource;
  LSoundSink lsnkSink;
  // The length when known, for the progress bar; 0 shows an indeterminate one.
  LSoundTime tTotal = 0;
};

LProcessResult Process(LProcessInterface& pi, LPRSourceToSinkStreaming& job);

// Frames per read and write of the copy jobs, and blocks per burst of the finite one.
inline constexpr int LPRCopyBlockFrames = LSoundMaxReadFrames;
inline constexpr int LPRCopyBurstBlocks = 10;
