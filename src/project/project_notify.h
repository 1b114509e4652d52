#pragma once

// Observers of the model. The model never touches a window or a device; it tells
// the controller what changed through these, always on the main thread.

// Changes to the track list. Nothing is reported through it yet.
class TDTracksNotify {
 public:
  virtual ~TDTracksNotify() = default;
};

// Changes to the clip list. Nothing is reported through it yet.
class TDClipsNotify {
 public:
  virtual ~TDClipsNotify() = default;
};

class TDProjectNotify : public TDTracksNotify, public TDClipsNotify {
 public:
  virtual void prntfTrackVolumeChanged(int track) { (void)track; }
  // The clips or the project's length changed; the argument is 0 for a change
  // of the whole project.
  virtual void prntfClipsChanged(long what) { (void)what; }
  virtual void prntfVSTEffectParameter(long what) { (void)what; }
};
