#pragma once
#include "project/project.h"
#include "sound/sound_engine.h"

// What the transport plays: the project's mix, opened anew at every play or
// restart (a mix is a snapshot of the project), looping over the working region
// when looped play is on. Opened on the main thread; read on the player's pump.
class TDProjectSoundOpener : public TDSoundSourceOpener {
 public:
  TDProjectSoundOpener() = default;
  explicit TDProjectSoundOpener(TDProject& project) : pProject(&project) {}
  // The engine is made before the controller that owns the project; it is told
  // the project once both stand. Without one there is nothing to play.
  void SetProject(TDProject* project) { pProject = project; }
  LSoundSource OpenProjectSource(LSoundTime time, bool scrubbing) override;

 private:
  TDProject* pProject = nullptr;
};
