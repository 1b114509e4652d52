#pragma once
#include "project/project.h"
#include "project/project_source.h"
#include "sound/sound_engine.h"

// What the transport plays: the project's mix, opened anew at every play or
// restart (a mix is a snapshot of the project). With a working region the rules
// of looped play decide its shape, by where the play starts:
//
//   loop on, start inside the region   the mix looping over the region
//   loop on, start before the region   a run-in up to the region, then the loop
//   loop off, start before its end     the mix, ending at the region's end
//   otherwise (or scrubbing)           the plain mix
//
// Opened on the main thread; read on the player's pump, where each read hands the
// track levels to the engine's history.
class TDProjectSoundOpener : public TDSoundSourceOpener, private TDProjectSourceNotify {
 public:
  TDProjectSoundOpener() = default;
  explicit TDProjectSoundOpener(TDProject& project) : pProject(&project) {}
  // The engine is made before the controller that owns the project; it is told
  // the project once both stand. Without one there is nothing to play.
  void SetProject(TDProject* project) { pProject = project; }
  LSoundSource OpenProjectSource(LSoundTime time, bool scrubbing) override;

 private:
  void mpSRCntfTrackLevel(TDTracksDB const& levels) override;

  TDProject* pProject = nullptr;
};
